// SPDX-License-Identifier: BSD-3-Clause
/// First stage of an analysis: adjacency, fill-reducing order, trailing blocks.
#pragma once

#include "base/input_matrix.hpp"
#include "graph/ordering.hpp"
#include "graph/pairing.hpp"

namespace vlm {

/// iparm(2).
enum class OrderMethod : int {
  minimum_degree = 0,
  constrained = 1,  ///< minimum degree behind a k-way split
  dissection = 2,
};

struct OrderOptions {
  OrderMethod method = OrderMethod::dissection;
  bool symmetric = true;  ///< the rows hold the upper triangle
  int threads = 1;        ///< of the team; parts of the k-way split
  bool parallel = true;   ///< the dissection runs on all threads
  int domains = 1;        ///< leaf domains wanted of a dissection
  int schur = 0;          ///< nodes n - schur + 1 to n stay last
  /// What an operation of the factorization takes beside one of a real symmetric matrix.
  double operation_cost = 1;
};

/// The matrix, and what the caller or a matching says of its order.
struct OrderInput {
  InputMatrix matrix;                 ///< pattern only
  const int* row_perm = nullptr;      ///< [n] row that takes the place of row i; null: itself
  const int* user_perm = nullptr;     ///< [n] order that the caller gives
  const int* marks = nullptr;         ///< [n] partial solve: not 0 for the nodes that take part
  const Ordering* matched = nullptr;  ///< order that keeps the pairs of a matching together
};

/// Time that went into the parts of the stage, in seconds.
struct OrderTimes {
  double adjacency = 0, order = 0;
};

/// Forms the adjacency and orders it: by the caller's order, the matching's, or the method.
///
/// The interiors of the domains come first, then the separators, then the nodes of the Schur
/// complement, in increasing index.  Marked nodes come behind the separators where they are few and
/// the method chooses the order.
/// @return a Status
int reorder1_velmora(const OrderInput& input, const OrderOptions& options, OrderedGraph& ordered,
                     OrderTimes& times);

/// Orders a graph by the method.
/// @param held  nodes that come last, by a mark  [n] or empty, in
/// @return a Status
int order_by_method(const OrderOptions& options, const Adjacency& graph, Ordering& order,
                    const Vector<char>& held = {});

/// Orders a graph by nested dissection with partners next to each other.
/// @param pairs  exchanged where a separator asks for it, in and out
/// @return false when the graph is better ordered with each pair as one node: nothing is done
bool order_with_pairs(const OrderOptions& options, const Adjacency& graph, Pairing& pairs,
                      Ordering& order);

}  // namespace vlm
