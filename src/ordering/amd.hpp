// SPDX-License-Identifier: BSD-3-Clause
/// Approximate minimum degree ordering of a weighted graph, with halo.
///
/// P. R. Amestoy, T. A. Davis and I. S. Duff, "An approximate minimum degree ordering
/// algorithm", SIAM J. Matrix Anal. Appl. 17 (1996): quotient graph with element absorption
/// and aggressive absorption, approximate external degrees, supervariables found by hashing,
/// mass elimination.  Halo vertices (F. Pellegrini, J. Roman and P. Amestoy, "Hybridizing
/// nested dissection and halo approximate minimum degree", 2000) count in the degrees and are
/// never eliminated: they stand for the separators around a leaf of a dissection.
///
/// The time is close to linear in the edges on graphs of small degree.  Memory is about
/// 1.2 |adj| + 12 n integers.
#pragma once

#include "base/memory.hpp"
#include "graph/symbolic_cost.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// Orders the vertices 0 to graph.n - halo - 1; the last `halo` vertices are the halo.
/// @param order  vertices in elimination order, postordered by the assembly tree, appended to
/// @return cost of the columns ordered, exact
FactorCost approximate_minimum_degree(const WeightedGraph& graph, int halo, Vector<int>& order);

/// Work arrays of approximate_minimum_degree(), for a caller that orders many graphs.
struct AmdWorkspace {
  Vector<int> lists, start, length, elements, size, degree, work;
  Vector<int> head, next, previous, bucket, owner;
};

FactorCost approximate_minimum_degree(const WeightedGraph& graph, int halo, Vector<int>& order,
                                      AmdWorkspace& workspace);

}  // namespace vlm
