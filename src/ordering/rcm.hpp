// SPDX-License-Identifier: BSD-3-Clause
/// Reverse Cuthill-McKee ordering.
///
/// A. George and J. W. H. Liu, "Computer Solution of Large Sparse Positive Definite Systems",
/// 1981, chapter 4.  Breadth-first numbering of every component from a pseudo-peripheral node,
/// neighbours by increasing degree, each component reversed.  Linear but for the sorting of
/// neighbour lists; memory is 2n integers.
#pragma once

#include <vector>

#include "graph/ordering.hpp"

namespace vlm {

/// Reverse Cuthill-McKee order of all components, in the order of their lowest node.
/// @return perm(position) = node, 1-based  [n]
std::vector<int> genrcmvelmora(const Adjacency& graph);

}  // namespace vlm
