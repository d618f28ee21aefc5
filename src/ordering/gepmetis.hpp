// SPDX-License-Identifier: BSD-3-Clause
/// Fill-reducing order by nested dissection, with minimum degree for small graphs and leaves.
///
/// The graph is compressed by indistinguishable nodes, its dense rows are put last, and the
/// rest goes to dissect().  Graphs of a few nodes take microseconds.
#pragma once

#include "graph/ordering.hpp"
#include "graph/pairing.hpp"

namespace vlm {

/// What the caller of the ordering asks for.
struct DissectionRequest {
  int nparts = 1;   ///< domains wanted, for the threads of the factorization
  int threads = 1;  ///< of the ordering; the order does not depend on them
  /// What an operation of the factorization takes beside one of a real symmetric matrix.
  double operation_cost = 1;
};

/// Orders the graph.
/// @param order  the interiors of the domains one after another, the separators behind them; the
///               range table says where.  Fewer domains than wanted come out of a graph too small
///               for them.
/// @param held  nodes that come behind all others, by a mark  [n] or empty, in
void gepmetis_velmora(const Adjacency& graph, const DissectionRequest& request, Ordering& order,
                      const Vector<char>& held = {});

/// The same with partners next to each other; the graph is not compressed.
/// @param pairs  exchanged where a separator asks for it, in and out
/// @return false for a graph with dense rows: nothing is done
bool dissect_with_pairs(const Adjacency& graph, const DissectionRequest& request, Pairing& pairs,
                        Ordering& order);

}  // namespace vlm
