// SPDX-License-Identifier: BSD-3-Clause
/// Contraction of a graph by clusters of neighbours.
///
/// Clusters form along the heaviest edges (G. Karypis and V. Kumar, "A fast and high quality
/// multilevel scheme for partitioning irregular graphs", SIAM J. Sci. Comput. 20 (1998)).  A vertex
/// whose neighbours are all taken joins the neighbouring cluster that it is tied to most; where
/// that has no room, as at the hub of a star, it is matched with another vertex of the same fate
/// two edges away.
#pragma once

#include <cstdint>

#include "base/growing.hpp"
#include "base/work_team.hpp"
#include "metis/level_graph.hpp"

namespace vlm {

/// Clusters of a contraction.
struct ClusterLimits {
  int members = 2;          ///< vertices of a cluster; a straggler more is let in
  std::int64_t weight = 0;  ///< of a cluster
};

/// Clusters of a slice: first member, number of members, weight; vertices that wait.
struct ClusterLists {
  Vector<int> head, size, waiting;
  Vector<std::int64_t> weight;
};

/// Work arrays, for a caller that contracts many graphs.
struct CoarsenWorkspace {
  Vector<int> next, meeting;
  Growing<int> adj, edge;  // as long as all edges, of which a contraction fills a part
  ClusterLists clusters;
  Vector<ClusterLists> slices;
  Vector<Vector<int>> place;
};

/// Contracts a graph.  Linear in its edges.
/// @param coarse  out
void contract(const LevelGraph& fine, const ClusterLimits& limits, CoarseLevel& coarse,
              CoarsenWorkspace& workspace, WorkTeam& team);

}  // namespace vlm
