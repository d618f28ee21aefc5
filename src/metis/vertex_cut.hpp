// SPDX-License-Identifier: BSD-3-Clause
/// Minimum vertex cut of a small graph between a source and a sink.
///
/// E. A. Dinic, "Algorithm for solution of a problem of maximum flow in networks with power
/// estimation", Soviet Math. Dokl. 11 (1970), on the graph with each vertex split into an arc
/// of its weight.  For unit weights O(sqrt(n) |adj|) at worst; memory 4 |adj| integers.
#pragma once

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// The two extreme minimum cuts; per vertex 0: source side, 1: sink side, 2: in the cut.
struct VertexCut {
  Vector<int> near_source, near_sink;  ///< [n] each
};

/// Least weight of vertices whose removal parts the source from the sink.
/// @param graph      vertices that may be removed, with their mutual edges, in
/// @param at_source  vertices next to the source  [n], in
/// @param at_sink    vertices next to the sink    [n], in
VertexCut minimum_vertex_cut(const WeightedGraph& graph, const Vector<char>& at_source,
                             const Vector<char>& at_sink);

}  // namespace vlm
