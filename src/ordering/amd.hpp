// SPDX-License-Identifier: BSD-3-Clause
/// Approximate minimum degree and minimum fill orderings of a weighted graph, with halo.
///
/// P. R. Amestoy, T. A. Davis and I. S. Duff, "An approximate minimum degree ordering
/// algorithm", SIAM J. Matrix Anal. Appl. 17 (1996): quotient graph with element absorption
/// and aggressive absorption, approximate external degrees, supervariables found by hashing,
/// mass elimination.  Halo vertices (F. Pellegrini, J. Roman and P. Amestoy, "Hybridizing
/// nested dissection and halo approximate minimum degree", 2000) count in the degrees and are
/// never eliminated: they stand for the separators around a leaf of a dissection.
///
/// Fill: E. Rothberg and S. C. Eisenstat, "Node selection strategies for bottom-up sparse matrix
/// ordering", SIAM J. Matrix Anal. Appl. 19 (1998), and E. G. Ng and P. Raghavan, "Performance of
/// greedy ordering heuristics for sparse Cholesky factorization", SIAM J. Matrix Anal. Appl. 20
/// (1999): of the pairs of neighbours those that share an element are taken off, for all elements.
///
/// The time is close to linear in the edges on graphs of small degree.  Memory is about
/// 1.2 |adj| + 12 n integers, by fill 16 n.
#pragma once

#include "base/memory.hpp"
#include "graph/symbolic_cost.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// What the next pivot has least of.
enum class EliminationScore {
  degree,  ///< neighbours
  fill,    ///< pairs of neighbours that are not joined yet
};

/// What is known of the fill of a variable in the element that its last pivot made.
struct KnownFill {
  double joined = 0;  ///< twice the pairs of neighbours that other elements and weights join
  double reach = 0;   ///< weight that its other elements have outside of this one
};

/// Work arrays of minimum_score(), for a caller that orders many graphs.
struct AmdWorkspace {
  Vector<int> lists, start, length, elements, size, degree, work;
  Vector<int> next, previous, bucket, owner;
  Vector<KnownFill> known;
};

/// Orders the vertices 0 to graph.n - halo - 1; the last `halo` vertices are the halo.
/// @param order  vertices in elimination order, postordered by the assembly tree, appended to
/// @return cost of the columns ordered, exact
FactorCost minimum_score(const WeightedGraph& graph, int halo, EliminationScore score,
                         Vector<int>& order, AmdWorkspace& workspace);

FactorCost minimum_score(const WeightedGraph& graph, int halo, EliminationScore score,
                         Vector<int>& order);

}  // namespace vlm
