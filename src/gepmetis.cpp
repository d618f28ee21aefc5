#include "gepmetis.hpp"

#include <algorithm>
#include <bit>
#include <vector>

#include "compress.hpp"
#include "dissect.hpp"
#include "ordering.hpp"

namespace vlm {
void gepmetis_velmora(const Adjacency& graph, const DissectionRequest& request, Ordering& order) {
  const int n = graph.n;
  if (graph.adjncy.empty()) {
    set_identity(order, n);
    return;
  }
  const CompressedGraph compressed = compress_graph(graph);
  DissectionGoal goal;
  goal.domains = std::bit_ceil(static_cast<unsigned>(std::max(request.nparts, 1)));
  goal.flop_weight = request.flop_weight;
  order.perm.clear();
  order.perm.reserve(n);
  std::vector<int> group(n, 0);
  const Dissection found = dissect(compressed.graph, goal);
  order.nparts = std::max(found.domains, 1);
  for (const int v : found.order)
    for (int k = compressed.first[v]; k < compressed.first[v + 1]; ++k) {
      const int node = compressed.nodes[k];
      order.perm.push_back(node);
      group[node - 1] = found.domain[v] > 0 ? found.domain[v] : order.nparts + 1;
    }
  for (const int v : compressed.dense) {
    order.perm.push_back(v);
    group[v - 1] = order.nparts + 1;
  }
  invert_order(order);
  if (order.nparts == 1) {
    set_single_range(order, n);
    return;
  }
  order.ranges = regroup(order, group, order.nparts + 1);
  close_ranges(order);
}

}  // namespace vlm
