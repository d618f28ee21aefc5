// SPDX-License-Identifier: BSD-3-Clause
/// A solve with a method and a preconditioner that the user names.
#pragma once

#include <string>
#include <vector>

#include "options.hpp"
#include "report.hpp"
#include "system.hpp"

namespace tool {

/// Sets the preconditioner up and solves from a zero start, and repeats both as the options say.
/// @param factor    receives times, figures and the history of the residual
/// @param solution  as long as b
/// @return empty, or why there is none
/// @throws InputError where method, preconditioner and matrix don't go together
std::string solve_as_chosen(const Options& options, const Printer& printer,
                            const SparseMatrix& matrix, const std::vector<double>& b, int nrhs,
                            Factor& factor, std::vector<double>& solution);

}  // namespace tool
