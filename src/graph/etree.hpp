// SPDX-License-Identifier: BSD-3-Clause
/// Elimination tree and column counts of a permuted symmetric pattern.
///
/// Elimination tree with path compression (J. W. H. Liu, "A compact row storage scheme for
/// Cholesky factors using elimination trees", 1986); column counts from the leaves of the row
/// subtrees and their least common ancestors (J. R. Gilbert, E. G. Ng and B. W. Peyton, "An
/// efficient algorithm to compute row and column counts for sparse Cholesky factorization",
/// SIAM J. Matrix Anal. Appl. 15 (1994)).  Both nearly linear in the edges, without forming L.
///
/// Trees and counts are 1-based, by position in the elimination order.
#pragma once

#include "base/view.hpp"
#include "graph/adjacency.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// A diagonal-free symmetric pattern with an elimination order.
class OrderedPattern {
 public:
  /// @param perm  position to node [n]
  /// @param invp  node to position [n]
  OrderedPattern(const Adjacency& graph, View<const int> perm, View<const int> invp)
      : base_(1),
        ptr_(graph.xadj),
        adj_(graph.adjncy),
        weight_(graph.weight),
        perm_(perm),
        invp_(invp) {}
  /// @param order  vertex at each place, from 0 [n]
  /// @param place  position of a vertex, from 1 [n]
  OrderedPattern(const WeightedGraph& graph, View<const int> order, View<const int> place)
      : base_(0),
        ptr_(graph.ptr),
        adj_(graph.adj),
        weight_(graph.weight),
        perm_(order),
        invp_(place) {}

  int size() const { return static_cast<int>(perm_.size()); }
  /// Columns that the vertex at a position stands for.
  int weight(int position) const { return weight_.empty() ? 1 : weight_(vertex(position)); }
  /// Calls visit with the position of each neighbour.
  template <class Visit>
  void for_each_neighbour(int position, Visit visit) const {
    const int v = vertex(position), shift = 1 - base_;
    for (int k = ptr_(v) + shift, end = ptr_(v + 1) + shift; k < end; ++k)
      visit(invp_(adj_(k) + shift));
  }

 private:
  int vertex(int position) const { return perm_(position) + 1 - base_; }

  int base_;  // of the contents of ptr, adj and perm
  View<const int> ptr_, adj_, weight_, perm_, invp_;
};

/// Elimination tree.
/// @param parent  position of the parent, 0 for a root, parent(j) > j otherwise [n], out
void etep_velmora(const OrderedPattern& pattern, View<int> parent);

/// Depth-first postorder of the forest: order(k) is the k-th position visited, the roots in
/// rising order.
/// @param parent  [n], in
/// @param size    [n] among siblings the one of largest size comes last, the others rise; empty:
///                all siblings rise, in
/// @param order   [n], out
void postorder(View<const int> parent, View<const int> size, View<int> order);

/// Number of entries in every column of L, the columns of a vertex being full, diagonal block
/// included: of the first column of each vertex.
/// @param parent  elimination tree [n], in
/// @param post    a postorder of it [n], in
/// @param colcnt  column counts [n], out
void lnnt_velmora(const OrderedPattern& pattern, View<const int> parent, View<const int> post,
                  View<int> colcnt);

}  // namespace vlm
