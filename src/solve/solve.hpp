// SPDX-License-Identifier: BSD-3-Clause
/// Triangular solves with a finished factor.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

struct SolveOptions {
  const MatrixType& type;
  bool single = false;     ///< the factor is one in single precision
  bool transpose = false;  ///< solve with the transposed matrix; full storage only
  int steps = 0;         ///< iparm(26): 0 both sweeps, 1 forward alone, above diagonal and backward
  bool partial = false;  ///< only the marked nodes, where the analysis had marks
  int schur = 0;         ///< trailing columns that were not eliminated
  int threads = 1;       ///< at most
  bool use_domains = false;  ///< threads take a domain each, where the structure has some
};

/// Bytes of the work that a solve needs.
std::size_t solve_work_bytes(const SolveOptions& options, const Structure& structure, int nrhs);

/// Gather and scale, forward, diagonal, backward, scatter.
///
/// A partial solve takes the right-hand side of the marked nodes, zero elsewhere, and writes their
/// solution; it visits the panels from them to the roots of the elimination tree and nothing else.
/// Its forward step writes the positions of these panels, from which its backward step takes them.
/// @param matching  scalings, null for none, and row permutation, null for none, in
/// @param lu    finished factor, in
/// @param b     right-hand sides, n by nrhs, complex values as two doubles, in
/// @param x     solutions, n by nrhs, out; may be b itself
/// @param work  solve_work_bytes() bytes
/// @return status_ok or status_unsupported
int solve_velmora(const SolveOptions& options, const Structure& structure, const Matching& matching,
                  const void* lu, int nrhs, const double* b, double* x, void* work);

}  // namespace vlm
