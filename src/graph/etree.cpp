// SPDX-License-Identifier: BSD-3-Clause
#include "graph/etree.hpp"

#include "base/memory.hpp"
#include "graph/forest.hpp"

namespace vlm {

void etep_velmora(const OrderedPattern& pattern, View<int> parent) {
  const int n = pattern.size();
  Vector<int> ancestor_store(n);
  const View<int> ancestor(ancestor_store);
  for (int i = 1; i <= n; ++i) {
    parent(i) = 0;
    pattern.for_each_neighbour(i, [&](int j) {
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
    });
  }
}

void postorder(View<const int> parent, View<const int> size, View<int> order) {
  const int n = static_cast<int>(parent.size());
  Vector<int> child, sibling, stack(n);
  Forest forest(n, child, sibling);
  for (int j = n; j >= 1; --j)
    if (parent(j) != 0) forest.add(j - 1, parent(j) - 1);
  if (!size.empty())
    for (int v = 0; v < n; ++v) forest.largest_child_last(v, [&](int c) { return size(c + 1); });
  int k = 0;
  for (int root = 1; root <= n; ++root)
    if (parent(root) == 0) forest.walk(root - 1, stack, [&](int v) { order(++k) = v + 1; });
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

// Column j belongs to row subtree i where leaves minus least common ancestors, summed over the
// descendants of j, give 1.
void lnnt_velmora(const OrderedPattern& pattern, View<const int> parent, View<const int> post,
                  View<int> colcnt) {
  const int n = pattern.size();
  Vector<int> store(static_cast<std::size_t>(n) * 4);
  const auto part = [&](int number) {
    return View<int>(store.data() + static_cast<std::size_t>(n) * number, n);
  };
  const View<int> first = part(0);  // earliest postorder number in the subtree
  const View<int> reach = part(1);  // first() of row i's last leaf
  const View<int> leaf = part(2);   // last leaf of row i's subtree
  const View<int> set = part(3);    // ancestors met so far
  for (int k = 1; k <= n; ++k) {
    int j = post(k);
    colcnt(j) = first(j) == 0 ? pattern.weight(j) : 0;  // a leaf starts with its diagonal
    for (; j != 0 && first(j) == 0; j = parent(j)) first(j) = k;
  }
  for (int i = 1; i <= n; ++i) set(i) = i;

  for (int k = 1; k <= n; ++k) {
    const int j = post(k);
    const int p = parent(j);
    if (p != 0) colcnt(p) -= pattern.weight(j);  // the diagonal of j is not passed on
    pattern.for_each_neighbour(j, [&](int i) {
      if (i <= j || first(j) <= reach(i)) return;  // j is no leaf of row i's subtree
      const int weight = pattern.weight(i);
      reach(i) = first(j);
      colcnt(j) += weight;
      if (leaf(i) != 0) colcnt(find_root(set, leaf(i))) -= weight;  // overlap of the two paths
      leaf(i) = j;
    });
    if (p != 0) set(j) = p;
  }
  for (int j = 1; j <= n; ++j)
    if (parent(j) != 0) colcnt(parent(j)) += colcnt(j);
}

}  // namespace vlm
