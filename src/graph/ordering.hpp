// SPDX-License-Identifier: BSD-3-Clause
/// An elimination order with its domains, and small operations on it: inverse, ranges, regrouping.
#pragma once

#include "base/memory.hpp"
#include "graph/adjacency.hpp"

namespace vlm {

/// First and last column position (later: supernode) of a range; empty when last < first.
struct Range {
  int first = 1, last = 0;
};

/// A fill-reducing order.  perm(position) = node, invp(node) = position.
struct Ordering {
  Vector<int> perm, invp;
  /// Leaf domains in positions, then the tail pair that holds the separators.
  /// One range: (1, n-1), (n, n).
  Vector<Range> ranges;
  int nparts = 1;  ///< leaf domains: ranges.size() - 1
  int nodes = 0;   ///< vertices that were ordered, fewer than n after compression; 0: n
  /// Elimination tree and column counts where the ordering has found them on its way, by node: the
  /// parent's node or 0, entries of the column.  Else empty.
  Vector<int> parent, count;
};

/// A graph with the order that was found for it.
struct OrderedGraph {
  Adjacency graph;
  Ordering order;
  int trailing = 0;  ///< trailing columns of the Schur complement, which begin a supernode
  /// Partial solve: positions with right-hand side and with wanted solution, ascending; both empty
  /// when all are.
  Vector<int> marked_rows, marked_columns;
};

/// Moves the held nodes behind the others; both keep their order.
/// @param held  by node, from `base`
void move_held_behind(Vector<int>& order, const Vector<char>& held, int base);

/// One range over the whole order: (1, n-1), (n, n).
void set_single_range(Ordering& order, int n);

/// Identity with one range.
void set_identity(Ordering& order, int n);

/// Writes invp from perm; false when perm is not a permutation of 1..n.
bool invert_order(Ordering& order);

/// Sorts the nodes by group, keeping their order within a group, and rebuilds perm and invp.
/// @param group   group of a node, 1..count                   [n], in
/// @return first and last position of each group              [count]
Vector<Range> regroup(Ordering& order, const Vector<int>& group, int count);

/// Adds the tail pair behind the domains.  It holds at least the last position, which the
/// domain that ends there gives up.
void close_ranges(Ordering& order);

/// Makes the interiors of the leaf domains contiguous, with the separators behind them, in the
/// order they had, and the tail nodes last in increasing index.
///
/// The range table comes out as the domains and the tail pair.
/// @param tail_nodes  nodes n - tail_nodes + 1 to n take the last positions
void regroup_by_ranges(Ordering& order, int tail_nodes);

}  // namespace vlm
