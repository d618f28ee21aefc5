// SPDX-License-Identifier: BSD-3-Clause
/// The matrix of a call, and the permutation and scalings by which a matching changes it.
#pragma once

namespace vlm {

/// The caller's matrix: compressed rows, 1-based; complex values are two adjacent doubles.
struct InputMatrix {
  int n = 0;
  const int* ia = nullptr;  ///< [n+1]
  const int* ja = nullptr;  ///< [nnz]
  const double* a = nullptr;
  int nnz() const { return ia[n] - 1; }
};

/// Matching permutation P and scalings R, C; null pointers where there are none.  All indices are
/// the caller's row and column numbers.
///
/// What is factored is M = P R A C:  m(i,j) = r(perm(i)) * a(perm(i),j) * c(j), so the entry
/// a(perm(j),j) stands on the diagonal of M.  Row k moves to the place i with perm(i) = k;
/// columns stay where they are.
///   A x = b :   gather y(i) = r(perm(i)) b(perm(i)),  M z = y,   scatter x(j) = c(j) z(j)
///   A'x = b :   gather y(j) = c(j) b(j),              M'z = y,   scatter x(perm(i)) = r(perm(i))
///   z(i)
/// For symmetric storage perm is null or the identity, and both halves of scale are the same.
struct Matching {
  const int* perm = nullptr;      ///< [n], 1-based: row that takes the place of column j
  const double* scale = nullptr;  ///< [2n]: column factors c, then row factors r
};

}  // namespace vlm
