// SPDX-License-Identifier: BSD-3-Clause
/// Elimination trees of a permuted symmetric pattern.
#pragma once

#include <cstdint>
#include <vector>

#include "base/view.hpp"
#include "graph/ordering.hpp"

namespace vlm {

/// Elimination tree by path compression (Liu, "A compact row storage scheme for Cholesky
/// factors using elimination trees", 1986).  Almost linear in the adjacency.
/// @param graph   diagonal-free symmetric adjacency, in
/// @param perm    position to node [n], in
/// @param invp    node to position [n], in
/// @param parent  position of the parent, 0 for a root, parent(j) > j otherwise [n], out
void etep_velmora(const Adjacency& graph, View<const int> perm, View<const int> invp,
                  View<int> parent);

/// First son and next brother of every vertex, 0 for none; sons rise, and the roots are
/// chained in brothr in falling position from position n.
/// @param parent  [n], in
/// @param fson    [n], out
/// @param brothr  [n], out
void betee_velmora(View<const int> parent, View<int> fson, View<int> brothr);

/// Depth-first postorder of the forest: order(k) is the k-th vertex visited.  Used to count,
/// never to renumber.
/// @param parent  [n], in
/// @param order   [n], out
void postorder(View<const int> parent, View<int> order);

/// Height of the forest, the number of edges of its longest path; level(i) is the height of
/// the subtree below i.
int treeht_velmora(View<const int> parent, View<int> level);

/// Number of entries in every column of L, diagonal included, without forming L.
///
/// Skeleton counting of Gilbert, Ng and Peyton, "An efficient algorithm to compute row and
/// column counts for sparse Cholesky factorization", 1994: every row of L is the union of
/// paths of the tree, and only the leaves of that row subtree count.  Almost linear.
/// @param parent  elimination tree [n], in
/// @param colcnt  column counts [n], out
void lnnt_velmora(const Adjacency& graph, View<const int> perm, View<const int> invp,
                  View<const int> parent, View<int> colcnt);

}  // namespace vlm
