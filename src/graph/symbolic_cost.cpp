// SPDX-License-Identifier: BSD-3-Clause
#include "graph/symbolic_cost.hpp"

#include <algorithm>

#include "base/memory.hpp"
#include "graph/etree.hpp"

namespace vlm {

FactorCost postorder_and_cost(const WeightedGraph& graph, Vector<int>& order) {
  const int n = graph.n;
  Vector<int> place(n), parent_store(n), count_store(n), post_store(n);
  for (int k = 0; k < n; ++k) place[order[k]] = k + 1;
  const OrderedPattern pattern(graph, View<const int>(order), View<const int>(place));
  const View<int> parent(parent_store), count(count_store), post(post_store);
  etep_velmora(pattern, parent);
  postorder(parent, {}, post);
  lnnt_velmora(pattern, parent, post, count);
  FactorCost cost;
  for (const int j : post) {
    const double width = pattern.weight(j);
    cost += block_cost(width, count(j) - width);
  }
  postorder(parent, count, post);
  std::transform(post.begin(), post.end(), place.begin(), [&](int j) { return order[j - 1]; });
  order.swap(place);
  return cost;
}

}  // namespace vlm
