// SPDX-License-Identifier: BSD-3-Clause
#include "graph/weighted_graph.hpp"

namespace vlm {

WeightedGraph weighted_graph(const Adjacency& graph) {
  WeightedGraph out{graph.n, graph.xadj, graph.adjncy, graph.weight};
  for (int& k : out.ptr) --k;
  for (int& v : out.adj) --v;
  if (out.weight.empty()) out.weight.assign(graph.n, 1);
  return out;
}

WeightedGraph induced(const WeightedGraph& graph, const Vector<int>& side, int wanted,
                      Vector<int>& index, Vector<int>& vertex) {
  int count = 0, edges = 0;
  for (int v = 0; v < graph.n; ++v)
    if (side[v] == wanted) {
      index[v] = count++;
      edges += graph.ptr[v + 1] - graph.ptr[v];
    }
  WeightedGraph out;
  out.n = count;
  vertex.clear();
  vertex.reserve(count);
  out.ptr.reserve(count + 1);
  out.ptr.push_back(0);
  out.adj.reserve(edges);
  out.weight.reserve(count);
  for (int v = 0; v < graph.n; ++v) {
    if (side[v] != wanted) continue;
    vertex.push_back(v);
    out.weight.push_back(graph.weight[v]);
    for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k)
      if (side[graph.adj[k]] == wanted) out.adj.push_back(index[graph.adj[k]]);
    out.ptr.push_back(static_cast<int>(out.adj.size()));
  }
  return out;
}

}  // namespace vlm
