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
  bool overwrite_b = false;  ///< copy the solution to b as well
  int threads = 1;
  double* b = nullptr;  ///< [n, nrhs] in, out with overwrite_b
  double* x = nullptr;  ///< [n, nrhs] out: x(ja(i), k) = b(i, k) / a(i)
};

/// Tests the rows and solves, real values.
///
/// Counts the signs of the entries into npos and nneg, up to the faulty row where there is one;
/// x is then not touched.
/// @return 0; i when row i does not hold exactly one entry with a column from 1 to n;
///         -i when its value is zero
int diag_velmora(const DiagonalSystem& system, int& npos, int& nneg);

/// The same for complex values; there are no signs to count.
int c_diag_velmora(const DiagonalSystem& system);

}  // namespace vlm
