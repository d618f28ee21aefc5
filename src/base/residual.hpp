// SPDX-License-Identifier: BSD-3-Clause
/// Residual of a computed solution, for the public residual operation.
#pragma once

#include "base/input_matrix.hpp"

namespace vlm {

struct ResidualNorms {
  double residual = 0;  ///< ||A x - b||
  double rhs = 0;       ///< ||b||
};

/// y = A x and the Euclidean norms of y - b and of b, one right-hand side.
///
/// As many threads as OpenMP offers, one inside a parallel region or for a small matrix.
/// Type 2 and -2 read the stored upper triangle and take the first entry of each row for its
/// diagonal; any other type is read as full rows.  n below 1 gives zero norms.
/// @param b  right-hand side  [n], in
/// @param x  solution         [n], in
/// @param y  A x              [n], out
ResidualNorms velmora_residual_r(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y);

/// The same in complex values, two doubles each; type 6 reads the upper triangle.
ResidualNorms velmora_residual_c(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y);

}  // namespace vlm
