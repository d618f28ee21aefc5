// SPDX-License-Identifier: BSD-3-Clause
#include "graph/ordering.hpp"

#include <algorithm>
#include <numeric>

#include "base/memory.hpp"
#include "base/view.hpp"

namespace vlm {

void move_held_behind(Vector<int>& order, const Vector<char>& held, int base) {
  Vector<int> behind;
  auto at = order.begin();
  for (const int node : order)
    if (held[node - base] != 0)
      behind.push_back(node);
    else
      *at++ = node;
  std::copy(behind.begin(), behind.end(), at);
}

void set_single_range(Ordering& order, int n) {
  order.nparts = 1;
  order.ranges = {{1, n - 1}, {n, n}};
}

void set_identity(Ordering& order, int n) {
  order.perm.resize(n);
  std::iota(order.perm.begin(), order.perm.end(), 1);
  order.invp = order.perm;
  set_single_range(order, n);
}

bool invert_order(Ordering& order) {
  const int n = static_cast<int>(order.perm.size());
  order.invp.assign(n, 0);
  const View<const int> perm(order.perm);
  const View<int> invp(order.invp);
  for (int i = 1; i <= n; ++i) {
    const int node = perm(i);
    if (node < 1 || node > n || invp(node) != 0) return false;
    invp(node) = i;
  }
  return true;
}

Vector<Range> regroup(Ordering& order, const Vector<int>& group, int count) {
  const View<const int> group_of(group);
  Vector<int> start(count + 2, 0);
  for (const int g : group) ++start[g + 1];
  start[1] = 1;
  for (int g = 2; g <= count + 1; ++g) start[g] += start[g - 1];
  Vector<Range> ranges(count);
  for (int g = 1; g <= count; ++g) ranges[g - 1] = {start[g], start[g + 1] - 1};

  Vector<int> old(order.perm.size());
  old.swap(order.perm);
  const View<int> perm(order.perm), invp(order.invp);
  for (const int node : old) {
    const int position = start[group_of(node)]++;
    perm(position) = node;
    invp(node) = position;
  }
  return ranges;
}

void close_ranges(Ordering& order) {
  const int n = static_cast<int>(order.perm.size());
  order.ranges.resize(order.nparts);
  Range tail{order.ranges.back().last + 1, n};
  if (tail.first > n) tail.first = n;
  for (Range& r : order.ranges) r.last = std::min(r.last, tail.first - 1);
  order.ranges.push_back(tail);
}

void regroup_by_ranges(Ordering& order, int tail_nodes) {
  const int n = static_cast<int>(order.perm.size());
  if (order.nparts == 1 && tail_nodes == 0) {
    set_single_range(order, n);
    return;
  }
  // Groups: the domains, the separators, then the tail nodes.
  const int separators = order.nparts == 1 ? 1 : order.nparts + 1;
  const int count = separators + (tail_nodes > 0 ? 1 : 0);
  Vector<int> group(n, separators);
  const View<int> group_of(group);
  const View<const int> perm(order.perm);
  if (order.nparts > 1)
    for (int k = 1; k <= order.nparts; ++k)
      for (int i = order.ranges[k - 1].first; i <= order.ranges[k - 1].last; ++i)
        group_of(perm(i)) = k;
  for (int node = n - tail_nodes + 1; node <= n; ++node) group_of(node) = count;
  Vector<Range> ranges = regroup(order, group, count);

  const View<int> perm_out(order.perm), invp(order.invp);
  for (int node = n - tail_nodes + 1; node <= n; ++node) {
    perm_out(node) = node;
    invp(node) = node;
  }
  if (order.nparts == 1) {
    set_single_range(order, n);
    return;
  }
  order.ranges = std::move(ranges);
  close_ranges(order);
}

}  // namespace vlm
