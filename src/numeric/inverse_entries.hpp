// SPDX-License-Identifier: BSD-3-Clause
/// Entries of the inverse of the caller's matrix, read out of a selected inverse.
#pragma once

#include "base/input_matrix.hpp"
#include "base/memory.hpp"
#include "numeric/inverse.hpp"

namespace vlm {

/// An entry of the caller's pattern whose place in the inverse lies outside of the factor's
/// pattern.  A row permutation of the matching brings them about: the pattern of the factor is a
/// symmetric one around the permuted matrix.
struct OutsideEntry {
  int row = 0, column = 0;  ///< of the inverse of the factored matrix, elimination order, from 1
  int place = 0;            ///< in ja, from 1
};

/// Column of the inverse of the factored matrix, in elimination order, that belongs to each row of
/// the caller's matrix.
/// @return [n]
Vector<int> inverse_columns(const Structure& structure, const Matching& matching);

/// The entries outside of the factor's pattern, by column and row; none without a row permutation.
/// @param columns  of inverse_columns()
Vector<OutsideEntry> outside_entries(const Structure& structure, const InputMatrix& pattern,
                                     const Matching& matching, const Vector<int>& columns);

/// a(p) := entry (i,j) of the inverse of the caller's matrix, for each entry p at (i,j) of its
/// pattern.  Permutations and scalings of the matching are undone; entries outside of the factor's
/// pattern are left alone.  Takes no memory: when it is called, the factor may be gone.
/// @param columns  of inverse_columns()
/// @param lu       selected inverse of invert_factor(), in
/// @param a        [nnz], complex values as two doubles, out
void read_inverse(const InverseOptions& options, const Structure& structure,
                  const InputMatrix& pattern, const Matching& matching, const Vector<int>& columns,
                  const void* lu, double* a);

/// a(p) := value * the scalings of an entry outside of the factor's pattern.
/// @param values  [outside.size()], complex values as two doubles, in
void put_outside_entries(const InverseOptions& options, const Structure& structure,
                         const InputMatrix& pattern, const Matching& matching,
                         const Vector<OutsideEntry>& outside, const double* values, double* a);

}  // namespace vlm
