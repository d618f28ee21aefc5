// SPDX-License-Identifier: BSD-3-Clause
/// Multiple minimum degree ordering, free and constrained.
///
/// J. W. H. Liu, "Modification of the minimum-degree algorithm by multiple elimination", ACM
/// Trans. Math. Softw. 11 (1985).  The quotient graph lives in the storage of the adjacency;
/// degrees are external degrees, kept in lists by degree of which the last entered comes
/// first.  Indistinguishable nodes are merged, and nodes outmatched by another one wait for it; a
/// node that stands for several columns counts as that many merged ones.  The time is that of the
/// degree updates; memory is 5n integers and two for each column beside the graph.
#pragma once

#include <cstdint>

#include "base/memory.hpp"
#include "graph/ordering.hpp"

namespace vlm {

/// Options of the minimum-degree loop.
struct MinimumDegreeOptions {
  /// Largest value of a marker.  Tests lower it to reach the renewal of the tags.
  int maxint = 2147483647;
};

/// Order by multiple minimum degree.
/// @param graph  adjacency, by value: the quotient graph uses it up
/// @param order  permutation with one range, out
/// @return estimate of the subscripts that the factor needs
std::int64_t gepmmd_velmora(Adjacency graph, Ordering& order,
                            const MinimumDegreeOptions& options = {});

/// Minimum degree on the nodes that are not held back.
///
/// Held-back nodes stay in the graph and count in the degrees, but take the last positions,
/// in the sequence given.
/// @param last  nodes for positions n - t + 1 to n, in that sequence  [t], in
std::int64_t cmd_velmora(Adjacency graph, const Vector<int>& last, Ordering& order,
                         const MinimumDegreeOptions& options = {});

}  // namespace vlm
