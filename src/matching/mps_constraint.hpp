// SPDX-License-Identifier: BSD-3-Clause
/// Constrained matching of a saddle-point matrix [F B'; B C] with small C.
///
/// Instead of a transversal of the whole matrix each constraint, a row of B, is matched with one
/// of the leading unknowns; the entry and its mirror image make a 2x2 pivot with it, and the
/// other unknowns keep their own diagonal entry.  The product of all these pivots is largest
/// when the matched entries maximise the product of |b(k,i)| / sqrt|f(i,i)|.  That is the
/// problem of mps.hpp on the rectangle B with a fixed weight, half of log|f(i,i)|, on every
/// unknown, and its duals scale the matrix symmetrically: matched entries and the diagonal
/// entries of free unknowns come out at 1, no other entry of B or of the diagonal of F above it.
#pragma once

#include "base/memory.hpp"
#include "matching/mps.hpp"

namespace vlm {

/// n - i for the first row i < n-1 (from 0) whose entry at or right of the diagonal is the
/// diagonal entry alone, of magnitude 1e-8 at most; 0 if there is none.
int guess_constraint_size(const MatchInput& matrix);

/// Matches every row of a rectangle, as far as possible, so that the sum of value - weight over
/// the matched entries is largest.
///
/// The duals satisfy u(j) + v(i) + value(i,j) <= 0, with equality on matched entries, and
/// u(j) <= -weight(j), with equality on free columns.  Both are cleared when a row stays free or
/// one of them reaches 512 ln 2, beyond which a factor would overflow.
/// @param rectangle  rowptr, col and logarithms of magnitudes in val; val and path_bound are
///                   overwritten by costs, each row shifted to a largest cost of 0
/// @param weight  [ncol], in
/// @param match   row matched to a column, or -1  [ncol], out
/// @param u, v    by column, by row  [ncol], [n], out
/// @return the number of matched rows
int unsym_reordering_mps(mps_csr& rectangle, const Vector<double>& weight, Vector<int>& match,
                         Vector<double>& u, Vector<double>& v);

/// Matching of the constraints as a permutation of the whole matrix: a constraint and its partner
/// change places, all others stay, also constraints that find no partner.  u and v are equal.
/// @return false when no constraint block is found or it is larger than the leading block;
///         result is then left alone
bool constrained_matching(const MatchInput& matrix, MatchResult& result);

}  // namespace vlm
