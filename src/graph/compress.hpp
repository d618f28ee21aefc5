// SPDX-License-Identifier: BSD-3-Clause
/// Compression of a graph by indistinguishable vertices.
///
/// C. Ashcraft, "Compressed graphs and the minimum degree algorithm", SIAM J. Sci. Comput. 16
/// (1995): vertices with the same closed neighbourhood, such as the unknowns of one mesh node,
/// become one weighted vertex.  Linear in the edges: neighbours are compared by hash first.
#pragma once

#include "base/memory.hpp"
#include "graph/adjacency.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// A weighted graph, and the nodes that stand behind its vertices.
struct CompressedGraph {
  WeightedGraph graph;
  Vector<int> first;  ///< start of a vertex in members  [graph.n+1]
  Vector<int> nodes;  ///< members, 1-based nodes, ascending in a vertex
  Vector<int> dense;  ///< nodes with too many neighbours, left out, ascending
};

/// Entries above which a row is dense: max(16, 10 sqrt(n)).
double dense_row_limit(int n);

/// Compresses the adjacency and leaves its dense rows out.
///
/// A vertex weighs as much as its members together.
/// @param held  nodes that share no vertex with the others, by a mark  [n] or empty, in
CompressedGraph compress_graph(const Adjacency& graph, const Vector<char>& held = {},
                               int threads = 1);

}  // namespace vlm
