// SPDX-License-Identifier: BSD-3-Clause
#include "graph/symbolic_cost.hpp"

#include <algorithm>
#include <utility>

namespace vlm {
namespace {

constexpr int none = -1;

class RowSubtrees {
 public:
  RowSubtrees(const WeightedGraph& graph, const std::vector<int>& order)
      : n_(graph.n), graph_(graph), order_(order), place_(n_), parent_(n_, none) {
    for (int k = 0; k < n_; ++k) place_[order_[k]] = k;
  }

  void build_tree();
  void count_columns();
  std::vector<int> postorder(bool by_count);
  FactorCost cost() const;

 private:
  int find_root(int v);

  int n_;
  const WeightedGraph& graph_;
  const std::vector<int>& order_;  // vertex at a place
  std::vector<int> place_, parent_, ancestor_;
  std::vector<double> count_;  // entries of a column, diagonal block included
};

void RowSubtrees::build_tree() {
  ancestor_.assign(n_, none);
  for (int i = 0; i < n_; ++i) {
    const int v = order_[i];
    for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k) {
      for (int j = place_[graph_.adj[k]]; j < i;) {
        const int next = ancestor_[j];
        if (next == i) break;
        ancestor_[j] = i;
        if (next == none) {
          parent_[j] = i;
          break;
        }
        j = next;
      }
    }
  }
}

// Places in postorder; children by increasing count, or as they stand.
std::vector<int> RowSubtrees::postorder(bool by_count) {
  std::vector<int> child(n_ + 1, none), sibling(n_, none), sequence, stack;
  const int root = n_;  // stands above all roots
  for (int j = n_ - 1; j >= 0; --j) {
    const int up = parent_[j] == none ? root : parent_[j];
    sibling[j] = child[up];
    child[up] = j;
  }
  if (by_count) {
    for (int v = 0; v < n_; ++v) {
      int largest = none, before_largest = none, last = none;
      for (int c = child[v]; c != none; last = c, c = sibling[c])
        if (largest == none || count_[c] >= count_[largest]) {
          largest = c;
          before_largest = last;
        }
      if (largest == last) continue;
      (before_largest == none ? child[v] : sibling[before_largest]) = sibling[largest];
      sibling[last] = largest;
      sibling[largest] = none;
    }
  }
  sequence.reserve(n_);
  for (int top = child[root]; top != none; top = sibling[top]) {
    stack.push_back(top);
    while (!stack.empty()) {
      const int v = stack.back();
      if (const int c = child[v]; c != none) {
        child[v] = sibling[c];
        stack.push_back(c);
      } else {
        sequence.push_back(v);
        stack.pop_back();
      }
    }
  }
  return sequence;
}

int RowSubtrees::find_root(int v) {
  int root = v;
  while (ancestor_[root] != root) root = ancestor_[root];
  while (v != root) v = std::exchange(ancestor_[v], root);
  return root;
}

// Needs places in postorder.  Column j belongs to row subtree i where leaves minus least
// common ancestors, summed over the descendants of j, give 1.
void RowSubtrees::count_columns() {
  count_.assign(n_, 0);
  std::vector<int> first(n_), latest(n_, none), previous_leaf(n_, none);
  for (int j = 0; j < n_; ++j) first[j] = j;
  for (int j = 0; j < n_; ++j) {
    if (parent_[j] != none) first[parent_[j]] = std::min(first[parent_[j]], first[j]);
    ancestor_[j] = j;
  }
  for (int j = 0; j < n_; ++j) {
    const int v = order_[j];
    const double own = graph_.weight[v];
    if (parent_[j] != none) count_[parent_[j]] -= own;
    if (first[j] == j) count_[j] += own;  // a leaf of the tree is the only leaf of its row
    for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k) {
      const int i = place_[graph_.adj[k]];
      if (i <= j || first[j] <= latest[i]) continue;
      const double weight = graph_.weight[graph_.adj[k]];
      count_[j] += weight;
      if (previous_leaf[i] != none) count_[find_root(previous_leaf[i])] -= weight;
      previous_leaf[i] = j;
      latest[i] = j;
    }
    if (parent_[j] != none) ancestor_[j] = parent_[j];
  }
  for (int j = 0; j < n_; ++j)
    if (parent_[j] != none) count_[parent_[j]] += count_[j];
}

FactorCost RowSubtrees::cost() const {
  FactorCost total;
  for (int j = 0; j < n_; ++j) {
    const double f = graph_.weight[order_[j]];
    total += block_cost(f, count_[j] - f);
  }
  return total;
}

}  // namespace

FactorCost postorder_and_cost(const WeightedGraph& graph, std::vector<int>& order) {
  const auto apply = [&](const std::vector<int>& sequence) {
    std::vector<int> next(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) next[k] = order[sequence[k]];
    order.swap(next);
  };
  {
    RowSubtrees tree(graph, order);
    tree.build_tree();
    apply(tree.postorder(false));
  }
  RowSubtrees tree(graph, order);
  tree.build_tree();
  tree.count_columns();
  const FactorCost cost = tree.cost();
  apply(tree.postorder(true));
  return cost;
}

}  // namespace vlm
