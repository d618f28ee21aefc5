// SPDX-License-Identifier: BSD-3-Clause
/// Cost of a factor for a given order, and postorders that leave it unchanged.
///
/// Elimination tree with path compression (J. W. H. Liu, "A compact row storage scheme for
/// Cholesky factors using elimination trees", 1986); column counts from the leaves of the row
/// subtrees and their least common ancestors (J. R. Gilbert, E. G. Ng and B. W. Peyton, "An
/// efficient algorithm to compute row and column counts for sparse Cholesky factorization",
/// SIAM J. Matrix Anal. Appl. 15 (1994)).  Nearly linear in the edges; 8n integers.
#pragma once

#include <vector>

#include "metis/metis_graph.hpp"
#include "ordering/amd.hpp"

namespace vlm {

/// Postorders the elimination tree and counts the factor.
///
/// Among the children of a column the one with the most entries comes last, so that chains of
/// like columns stay together.
/// @param graph  weighted graph, in
/// @param order  vertex at each place; out: the same elimination, postordered  [n]
/// @return exact cost of the factor
FactorCost postorder_and_cost(const WeightedGraph& graph, std::vector<int>& order);

}  // namespace vlm
