// SPDX-License-Identifier: BSD-3-Clause
/// Constrained minimum degree: a k-way split whose interface is held back.
///
/// The graph is cut into k parts; a vertex cover of the cut becomes the interface, which
/// takes the last positions, and multiple minimum degree orders the rest.  The interiors of
/// the parts are then independent subtrees with the interface on top.
#pragma once

#include "base/memory.hpp"
#include "graph/ordering.hpp"

namespace vlm {

/// Split of a graph by domains.
struct DomainSplit {
  /// Nodes in their new sequence: interior of part 1, of part 2, ..., then the interface
  /// vertices by part.
  Vector<int> perm;
  int interface_nodes = 0;
};

/// Partitions the graph into parts and thins the cut to an interface.
DomainSplit ddecomp_velmora(const Adjacency& graph, int parts);

/// Order by constrained minimum degree; the order counts as one range.
/// @param parts  domains wanted, at least 1
/// @param held   nodes that come behind the interface, by a mark  [n] or empty, in
void gepcmd_velmora(const Adjacency& graph, int parts, Ordering& order,
                    const Vector<char>& held = {});

}  // namespace vlm
