// SPDX-License-Identifier: BSD-3-Clause
/// Pieces of a dissected graph.
#pragma once

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// A part of a graph, with its own numbering; or all of it, by reference.
struct Piece {
  WeightedGraph own;
  const WeightedGraph* all = nullptr;  ///< not null: stands for `own`
  Vector<int>
      vertex;  ///< vertex of the whole graph  [graph().n], or empty: that of the same number

  const WeightedGraph& graph() const { return all != nullptr ? *all : own; }
  int vertex_of(int i) const { return vertex.empty() ? i : vertex[i]; }
};

/// The vertices of a piece on one of its sides, with their mutual edges.
/// @param side   of a vertex  [piece.graph().n], in
/// @param index  scratch  [piece.graph().n]
template <class Side>
Piece take_side(const Piece& piece, const Vector<Side>& side, int wanted, Vector<int>& index) {
  const WeightedGraph& from = piece.graph();
  Piece part;
  int count = 0, edges = 0;
  for (int i = 0; i < from.n; ++i)
    if (side[i] == wanted) {
      index[i] = count++;
      edges += from.ptr[i + 1] - from.ptr[i];
    }
  WeightedGraph& to = part.own;
  to.n = count;
  part.vertex.reserve(count);
  to.ptr.reserve(count + 1);
  to.ptr.push_back(0);
  to.adj.reserve(edges);
  to.weight.reserve(count);
  for (int i = 0; i < from.n; ++i) {
    if (side[i] != wanted) continue;
    part.vertex.push_back(piece.vertex_of(i));
    to.weight.push_back(from.weight[i]);
    for (int k = from.ptr[i]; k < from.ptr[i + 1]; ++k)
      if (side[from.adj[k]] == wanted) to.adj.push_back(index[from.adj[k]]);
    to.ptr.push_back(static_cast<int>(to.adj.size()));
  }
  return part;
}

/// A piece that lists its vertices, with those around it behind them, without edges among these.
/// @param whole   the graph that the piece is of, in
/// @param local   scratch, -1 everywhere on entry and on return  [whole.n]
/// @param vertex  vertices of the whole graph, out
WeightedGraph with_halo(const WeightedGraph& whole, const Piece& piece, Vector<int>& local,
                        Vector<int>& vertex);

}  // namespace vlm
