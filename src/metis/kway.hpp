// SPDX-License-Identifier: BSD-3-Clause
/// Partition of a graph into parts of like weight, by repeated bisection.
///
/// A vertex separator cuts each piece in two; its vertices join the side that is short of weight,
/// so that every edge between two parts ends at one of them and an interface no larger than the
/// separators covers the cut.  Time and memory are those of the separators, log2(parts) times.
#pragma once

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// @param parts  at least 1; beyond the number of vertices some stay empty
/// @return part of each vertex, from 0  [n]
Vector<int> kway_parts(const WeightedGraph& graph, int parts);

}  // namespace vlm
