// SPDX-License-Identifier: BSD-3-Clause
/// Cost of a factor for a given order, and postorders that leave it unchanged.
///
/// One elimination tree gives both; nearly linear in the edges, 9n integers.
#pragma once

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// Cost of a factor, columns of a weighted vertex counted one by one.
struct FactorCost {
  double entries = 0;  ///< entries of L, diagonal included
  double flops = 0;    ///< sum over the columns of the squared number of entries

  FactorCost& operator+=(const FactorCost& other) {
    entries += other.entries;
    flops += other.flops;
    return *this;
  }
};

/// Cost of a block of `width` columns with `below` further rows.
inline FactorCost block_cost(double width, double below) {
  const double f = width, r = below;
  return {f * r + f * (f + 1) / 2, f * r * r + r * f * (f + 1) + f * (f + 1) * (2 * f + 1) / 6};
}

/// The elimination tree of an order, by places from 0.
struct EliminationTree {
  Vector<int> parent;   ///< [n] -1 for a root
  Vector<int> count;    ///< [n] entries of the first column of the vertex at a place
  Vector<double> work;  ///< [n] operations of the vertex at a place
};

/// Postorders the elimination tree and counts the factor.
///
/// Among the children of a column the one with the most entries comes last, so that chains of
/// like columns stay together.
/// @param graph  weighted graph, in
/// @param order  vertex at each place; out: the same elimination, postordered  [n]
/// @param tree   of the order that comes out; null: not wanted, out
/// @return exact cost of the factor
FactorCost postorder_and_cost(const WeightedGraph& graph, Vector<int>& order,
                              EliminationTree* tree = nullptr);

}  // namespace vlm
