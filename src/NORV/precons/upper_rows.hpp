// SPDX-License-Identifier: BSD-3-Clause
/// Symmetric matrices as the factorizations take them: rows of the upper triangle, in the order of
/// elimination, with positions of 64 bits.
#pragma once

#include <cstdint>

#include "NORV/precons/scalars.hpp"
#include "base/growing.hpp"

namespace vlm::norv {

/// Rows of the upper triangle, diagonal included; columns ascend in a row.  A diagonal entry that
/// is not stored counts as zero.
template <class T>
struct UpperRows {
  int n = 0;
  Vector<std::int64_t> start;  ///< [n+1]
  Growing<int> column;
  Growing<T> value;

  std::int64_t entries() const { return start.empty() ? 0 : start.back(); }
  /// Entries of both triangles.
  std::int64_t full_entries() const { return 2 * entries() - n; }
};

/// The upper triangle of a symmetric smat, or of an unsymmetric one, of which the lower triangle is
/// passed over, permuted and scaled on both sides: entry (i,j) times scale(i) scale(j) becomes
/// entry (place(i), place(j)).
/// @param place  [n], or null for the identity
/// @param scale  [n], or null for none
template <class T>
UpperRows<T> permuted_upper(const smat* A, const int* place, const double* scale);

/// The same of rows.
template <class T>
UpperRows<T> permuted_upper(const UpperRows<T>& A, const int* place, const double* scale);

/// Copies rows into an smat; the caller
/// frees it.  A matrix whose entries don't fit 32-bit positions is a fault.
/// @param filled_diagonal  stores a zero where the diagonal is missing
template <class T>
smat* to_smat(const UpperRows<T>& rows, bool filled_diagonal);

}  // namespace vlm::norv
