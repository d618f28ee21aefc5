// SPDX-License-Identifier: BSD-3-Clause
/// The calls into METIS, with the solver's integer type and fixed random seeds.
#pragma once

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// Vertex separator: 0 and 1 for the sides, 2 for the separator; a side may be a fifth heavier
/// than one half.
/// @param side  [n], out
/// @return false when METIS reports an error
bool metis_vertex_separator(const WeightedGraph& graph, Vector<int>& side);

}  // namespace vlm
