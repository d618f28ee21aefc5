// SPDX-License-Identifier: BSD-3-Clause
/// An incomplete factor L D L^T with 1x1 and 2x2 pivots, and its sweeps.
#pragma once

#include <cstdint>

#include "NORV/precons/upper_rows.hpp"

namespace vlm::norv {

/// Factor of the leading `pivots` rows of a symmetric matrix of order n, in elimination order.
///
/// L is unit lower triangular and kept by rows of L^T: row k has the columns right of k, without
/// the diagonal, ascending, those of the coupling with the rows behind `pivots` included.  A 2x2
/// pivot in rows k, k+1 keeps both rows of L^T in row k, row k+1 being empty: its entries stand in
/// pairs of places p, p+1 with the column in column[p] and the values of rows k and k+1 in
/// value[p], value[p+1]; column[p+1] is the same column.
template <class T>
struct LdltFactor {
  int n = 0;       ///< order of the matrix
  int pivots = 0;  ///< rows that were eliminated
  Vector<T> d;  ///< [n] diagonal; behind `pivots` that of the Schur complement, where there is one
  Vector<T> e;  ///< [n] second value of a 2x2 pivot, at its first row
  Vector<char> is_pair;        ///< [n] 1 at the first row of a 2x2 pivot
  Vector<std::int64_t> start;  ///< [pivots+1]
  Growing<int> column;
  Growing<T> value;
  int npos = 0, nneg = 0;  ///< pivots by sign; 0 for complex ones

  std::int64_t entries() const { return start.empty() ? 0 : start.back(); }
  /// Bytes that one application reads, both sweeps together.
  std::int64_t sweep_bytes() const;
};

/// y := L^-1 y on the leading rows; the rows behind get y2 - L21 y1.   [n], in and out
template <class T>
void solve_forward(const LdltFactor<T>& factor, T* y);

/// y1 := L^-T y1 where L takes the rows behind along: y1 - L21^T y2 stands on the right side.
template <class T>
void solve_backward(const LdltFactor<T>& factor, T* y);

/// y1 := D^-1 y1.
template <class T>
void solve_diagonal(const LdltFactor<T>& factor, T* y);

/// y1 := L^-T (D^-1 y1 - L21^T y2), the last two in one sweep.
template <class T>
void solve_diagonal_backward(const LdltFactor<T>& factor, T* y);

}  // namespace vlm::norv
