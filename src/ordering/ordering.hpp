// SPDX-License-Identifier: BSD-3-Clause
/// The choice of an ordering, and small operations on a finished one: inverse, ranges,
/// regrouping.
#pragma once

#include <vector>

#include "driver/control.hpp"
#include "graph/pairing.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

/// One range over the whole order: (1, n-1), (n, n).
void set_single_range(Ordering& order, int n);

/// Identity with one range.
void set_identity(Ordering& order, int n);

/// Writes invp from perm; false when perm is not a permutation of 1..n.
bool invert_order(Ordering& order);

/// Orders a graph by the routine that the control's selector names; any other selector gives
/// the identity.
/// @return a Status
int order_by_selector(const Control& control, const Adjacency& graph, Ordering& order);

/// Orders a graph by nested dissection with partners next to each other.
/// @param pairs  exchanged where a separator asks for it, in and out
/// @return false when the graph is better ordered with each pair as one node: nothing is done
bool order_with_pairs(const Control& control, const Adjacency& graph, Pairing& pairs,
                      Ordering& order);

/// Sorts the nodes by group, keeping their order within a group, and rebuilds perm and invp.
/// @param group   group of a node, 1..count                   [n], in
/// @return first and last position of each group              [count]
std::vector<Range> regroup(Ordering& order, const std::vector<int>& group, int count);

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
