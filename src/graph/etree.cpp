// SPDX-License-Identifier: BSD-3-Clause
#include "graph/etree.hpp"

#include <algorithm>

namespace vlm {

void etep_velmora(const Adjacency& graph, View<const int> perm, View<const int> invp,
                  View<int> parent) {
  const int n = graph.n;
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  std::vector<int> ancestor_store(n);
  const View<int> ancestor(ancestor_store);
  for (int i = 1; i <= n; ++i) {
    parent(i) = 0;
    ancestor(i) = 0;
    const int node = perm(i);
    for (int k = xadj(node); k < xadj(node + 1); ++k) {
      int j = invp(adjncy(k));
      while (j < i) {
        const int next = ancestor(j);
        if (next == i) break;
        ancestor(j) = i;  // compress the path to i
        if (next == 0) {
          parent(j) = i;
          break;
        }
        j = next;
      }
    }
  }
}

void betee_velmora(View<const int> parent, View<int> fson, View<int> brothr) {
  const int n = static_cast<int>(parent.size());
  std::fill(fson.begin(), fson.end(), 0);
  std::fill(brothr.begin(), brothr.end(), 0);
  if (n <= 1) return;
  int lroot = n;
  for (int node = n - 1; node >= 1; --node) {
    const int p = parent(node);
    if (p <= 0 || p == node) {
      brothr(lroot) = node;
      lroot = node;
    } else {
      brothr(node) = fson(p);
      fson(p) = node;
    }
  }
  brothr(lroot) = 0;
}

void postorder(View<const int> parent, View<int> order) {
  const int n = static_cast<int>(parent.size());
  if (n == 0) return;
  std::vector<int> son_store(n), brother_store(n), stack;
  const View<int> fson(son_store), brothr(brother_store);
  betee_velmora(parent, fson, brothr);
  int k = 0;
  for (int root = n; root != 0; root = brothr(root)) {
    stack.push_back(root);
    while (!stack.empty()) {
      const int v = stack.back();
      if (const int son = fson(v); son != 0) {
        fson(v) = brothr(son);  // the next son to descend into
        stack.push_back(son);
      } else {
        stack.pop_back();
        order(++k) = v;
      }
    }
  }
}

int treeht_velmora(View<const int> parent, View<int> level) {
  std::fill(level.begin(), level.end(), 0);
  int height = 0;
  const int n = static_cast<int>(parent.size());
  for (int i = 1; i <= n; ++i) {
    height = std::max(height, level(i));
    if (const int p = parent(i); p > 0) level(p) = std::max(level(p), level(i) + 1);
  }
  return height;
}

namespace {

/// Root of v's set, with path halving.
int find_root(View<int> set, int v) {
  while (set(v) != v) {
    set(v) = set(set(v));
    v = set(v);
  }
  return v;
}

}  // namespace

void lnnt_velmora(const Adjacency& graph, View<const int> perm, View<const int> invp,
                  View<const int> parent, View<int> colcnt) {
  const int n = graph.n;
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  std::vector<int> store(static_cast<std::size_t>(n) * 5);
  const View<int> post(store.data(), n);
  const View<int> first(store.data() + n, n);  // earliest postorder number in the subtree
  const View<int> reach(store.data() + 2 * std::size_t(n), n);  // first() of row i's last leaf
  const View<int> leaf(store.data() + 3 * std::size_t(n), n);   // last leaf of row i's subtree
  const View<int> set(store.data() + 4 * std::size_t(n), n);    // ancestors met so far
  postorder(parent, post);
  for (int k = 1; k <= n; ++k) {
    int j = post(k);
    colcnt(j) = first(j) == 0 ? 1 : 0;  // a leaf of the tree starts with its diagonal
    for (; j != 0 && first(j) == 0; j = parent(j)) first(j) = k;
  }
  for (int i = 1; i <= n; ++i) set(i) = i;

  for (int k = 1; k <= n; ++k) {
    const int j = post(k);
    const int p = parent(j);
    if (p != 0) --colcnt(p);  // the diagonal of j is not passed on
    const int node = perm(j);
    for (int e = xadj(node); e < xadj(node + 1); ++e) {
      const int i = invp(adjncy(e));
      if (i <= j || first(j) <= reach(i)) continue;  // j is no leaf of row i's subtree
      reach(i) = first(j);
      ++colcnt(j);
      if (leaf(i) != 0) --colcnt(find_root(set, leaf(i)));  // overlap of the two paths
      leaf(i) = j;
    }
    if (p != 0) set(j) = p;
  }
  for (int j = 1; j <= n; ++j)
    if (parent(j) != 0) colcnt(parent(j)) += colcnt(j);
}

}  // namespace vlm
