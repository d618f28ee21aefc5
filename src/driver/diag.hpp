// SPDX-License-Identifier: BSD-3-Clause
/// Systems whose matrix has exactly n stored entries: solved at once, without handle.
#pragma once

#include "base/input_matrix.hpp"
#include "base/view.hpp"

namespace vlm {

/// One diagonal (or scaled permutation) system.
struct DiagonalSystem {
  InputMatrix matrix;  ///< n entries, one in each row
  int nrhs = 0;
  bool solve = false;        ///< false: only test the rows
  bool transpose = false;    ///< solve with the transposed matrix
  bool definite = false;     ///< half a solve is one with the root of the diagonal
  int steps = 0;             ///< iparm(26): 1 forward half, above backward half, else both
  bool overwrite_b = false;  ///< copy the solution to b as well
  int threads = 1;
  double* b = nullptr;  ///< [n, nrhs] in, out with overwrite_b
  double* x = nullptr;  ///< [n, nrhs] out: x(ja(i), k) = b(i, k) / a(i)
};

/// What can be wrong with a row.
enum class RowFault : int {
  none,
  entries,     ///< not exactly one entry with a column from 1 to n
  zero,        ///< its value is zero
  not_finite,  ///< its value is NaN or infinite
  repeated,    ///< its column stands in a row before it
};

/// The first row that is wrong.
struct DiagonalFault {
  RowFault what = RowFault::none;
  int row = 0;
  explicit operator bool() const { return what != RowFault::none; }
};

/// Tests the rows and solves, real values.  A forward half leaves the right-hand side as it is,
/// but for definite types; the halves give the solution together.
///
/// Counts the signs of the entries into npos and nneg, up to the faulty row where there is one;
/// x is then not touched.  Throws std::bad_alloc.
DiagonalFault diag_velmora(const DiagonalSystem& system, int& npos, int& nneg);

/// The same for complex values; there are no signs to count.
DiagonalFault c_diag_velmora(const DiagonalSystem& system);

/// a(i) := the entry of the inverse at the place of a(i), real values: its reciprocal on the
/// diagonal, the reciprocal of the mirrored one where two rows exchange their columns, else zero.
/// Where a row is wrong nothing is written.  Throws std::bad_alloc.
/// @param a  the values of the matrix, in, out
DiagonalFault invert_diagonal(const InputMatrix& matrix, double* a);

/// The same for complex values.
DiagonalFault c_invert_diagonal(const InputMatrix& matrix, double* a);

}  // namespace vlm
