// SPDX-License-Identifier: BSD-3-Clause
/// Graphs with weighted vertices, as orderings and separators work on them.
#pragma once

#include "base/memory.hpp"
#include "graph/adjacency.hpp"

namespace vlm {

/// 0-based compressed rows, both triangles, no diagonal.
struct WeightedGraph {
  int n = 0;
  Vector<int> ptr;     ///< [n+1]
  Vector<int> adj;     ///< [ptr[n]]
  Vector<int> weight;  ///< [n]
};

/// The nodes of an adjacency as vertices, each of its weight.
WeightedGraph weighted_graph(const Adjacency& graph);

/// The graph of the vertices v with side[v] == wanted.
/// @param index   work  [n]
/// @param vertex  these vertices, ascending; the vertices of the result are their places, out
WeightedGraph induced(const WeightedGraph& graph, const Vector<int>& side, int wanted,
                      Vector<int>& index, Vector<int>& vertex);

}  // namespace vlm
