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

}  // namespace vlm
