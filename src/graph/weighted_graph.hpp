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

}  // namespace vlm
