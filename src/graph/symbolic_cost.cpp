// SPDX-License-Identifier: BSD-3-Clause
#include "graph/symbolic_cost.hpp"

#include <algorithm>

#include "base/memory.hpp"
#include "graph/etree.hpp"

namespace vlm {

namespace {

// The tree by the places of its postorder.
void write_tree(const OrderedPattern& pattern, View<const int> parent, View<const int> count,
                View<const int> post, EliminationTree& tree) {
  const int n = pattern.size();
  Vector<int> place(n);
  for (int k = 1; k <= n; ++k) place[post(k) - 1] = k - 1;
  tree.parent.resize(n);
  tree.count.resize(n);
  tree.work.resize(n);
  for (int k = 1; k <= n; ++k) {
    const int j = post(k);
    const double width = pattern.weight(j);
    tree.parent[k - 1] = parent(j) == 0 ? -1 : place[parent(j) - 1];
    tree.count[k - 1] = count(j);
    tree.work[k - 1] = block_cost(width, count(j) - width).flops;
  }
}

}  // namespace

FactorCost postorder_and_cost(const WeightedGraph& graph, Vector<int>& order,
                              EliminationTree* tree) {
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
  if (tree != nullptr) write_tree(pattern, parent, count, post, *tree);
  std::transform(post.begin(), post.end(), place.begin(), [&](int j) { return order[j - 1]; });
  order.swap(place);
  return cost;
}

}  // namespace vlm
