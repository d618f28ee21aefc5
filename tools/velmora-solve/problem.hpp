// SPDX-License-Identifier: BSD-3-Clause
/// The linear system of a run: its matrix and right-hand sides, from files or made up.
#pragma once

#include <vector>

#include "options.hpp"
#include "report.hpp"
#include "system.hpp"

namespace tool {

struct Rhs {
  std::vector<double> b;
  bool solution_is_ones = false;
};

/// The matrix from its file; `dumped_rhs` receives the right-hand side of a dump that has one.
SparseMatrix read_matrix(const Options& options, Report& report, std::vector<double>& dumped_rhs);

/// The right-hand sides that the options ask for.
/// @param dumped  that of a dump, or empty
Rhs make_rhs(const Options& options, const SparseMatrix& matrix, std::vector<double>&& dumped,
             Report& report);

}  // namespace tool
