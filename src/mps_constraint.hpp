/// Constrained matching of a saddle-point matrix [F B'; B C] with small C.
///
/// Instead of a transversal of the whole matrix each constraint, a row of B, is matched with one
/// of the leading unknowns, so that the matched entries of B and their mirror images stand
/// across from each other as 2x2 pivots; what is left of the leading unknowns keeps its own
/// diagonal entry.  The search is the one of mps.hpp on the rectangle B; a weight, half the
/// logarithm of the diagonal entry of F, makes unknowns with a large diagonal costly.
#pragma once

#include <vector>

#include "mps.hpp"

namespace vlm {

/// n - i for the first row i < n-1 (from 0) whose entry at or right of the diagonal is the
/// diagonal entry alone, of magnitude 1e-8 at most; 0 if there is none.
int guess_constraint_size(const MatchInput& matrix);

/// Matches every row of a rectangle, as far as possible, at least cost.
///
/// The cost of an entry is top(j) + weight(j) - value - shift >= 0, top(j) being the largest
/// value of column j and the shift the smallest weight.  The duals satisfy
/// u(j) + v(i) + value <= 0, with equality on matched entries; both are cleared when a row
/// stays free or one of them reaches 512 ln 2, beyond which a factor would overflow.
/// @param rectangle  rowptr, col and logarithms of magnitudes in val; val and path_bound are
///                   overwritten by the costs
/// @param weight  [ncol], in
/// @param match   row matched to a column, or -1  [ncol], out
/// @param u, v    by column, by row  [ncol], [n], out
/// @return the number of matched rows
int unsym_reordering_mps(mps_csr& rectangle, const std::vector<double>& weight,
                         std::vector<int>& match, std::vector<double>& u, std::vector<double>& v);

/// Matching of the constraints as a permutation of the whole matrix: constraint k and its
/// partner i change places, all others stay.  The constraints get unit factors.
/// @return false when no constraint block is found or it is larger than the leading block;
///         result is then left alone
bool constrained_matching(const MatchInput& matrix, MatchResult& result);

}  // namespace vlm
