// SPDX-License-Identifier: BSD-3-Clause
/// The calls into METIS, with the solver's integer type and fixed random seeds.
#pragma once

#include "base/memory.hpp"
#include "graph/adjacency.hpp"

namespace vlm {

/// Partition into parts of like weight: part numbers from 0.
/// @param part  part of each node  [n], out
/// @return false when METIS reports an error
bool metis_kway_parts(const Adjacency& graph, int parts, Vector<int>& part);

}  // namespace vlm
