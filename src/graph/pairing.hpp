// SPDX-License-Identifier: BSD-3-Clause
/// Pairs of vertices that are eliminated together, and the pairs that could take their place.
///
/// A graph in which each pair is one vertex has thicker separators than the graph itself: where
/// a separator runs between two partners, the other one has to join it.  A saddle-point matrix
/// leaves a choice, because a constraint can be paired with any of its large unknowns.  So the
/// separators are found in the graph without pairs, and the pairs that a separator parts are
/// exchanged along augmenting paths (H. W. Kuhn, The Hungarian method for the assignment
/// problem, 1955) on one side of it; only those that admit no exchange move into the separator.
///
/// Two things can make the block of a side singular although every pair in it is not.  In a ring
/// of pairs each of which couples with the next alone, the two products of the determinant may
/// cancel, as they do for the divergence on a ring of cells; the pairs of a side are kept as a
/// forest instead.  And where no unknown of a side couples with a constraint outside of it, the
/// constraints of the side may be dependent, like those of a closed box of fluid; one of them
/// then moves into the separator.
#pragma once

#include <cstddef>
#include <utility>

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// Partners and their alternatives; all arrays 0-based.
struct Pairing {
  Vector<int> partner;      ///< [n] -1: the vertex stands alone
  Vector<char> sound;       ///< [n] the vertex may stand alone
  Vector<int> ptr;          ///< [n+1] starts in alternative
  Vector<int> alternative;  ///< vertices that could be partners, one of the two not sound
};

/// Sees to it that partners are on the same side of a separator.
///
/// Pairs change, and vertices move into the separator, but none out of it.  A vertex that isn't
/// sound and has a partner always keeps one.  Almost linear in the alternatives.
class PairKeeper {
 public:
  explicit PairKeeper(Pairing& pairs);

  /// Exchanges pairs until no ring is left, as far as possible.
  void break_rings();

  /// @param vertex  vertices of a part of the graph that holds no or both members of each pair
  /// @param side    0, 1 or 2 for the separator, in and out  [vertex.size()]
  void keep_together(const Vector<int>& vertex, Vector<int>& side);

 private:
  Vector<int> settle_sides(const Vector<int>& vertex);
  void settle_separator(const Vector<int>& vertex, const Vector<int>& waiting);
  void open_side(const Vector<int>& vertex, int side, Vector<int>& waiting);
  bool part(int v, int mate);
  bool find_partner(int v, int depth);
  int next_pair(int v, int w) const;
  bool link(int v, int w);
  void join(int v, int w);
  Vector<int> find_trees(const Vector<int>& vertex);
  int tree_of(int v);
  void set_partner(int v, int w);
  void undo(std::size_t changes);

  Pairing& pairs_;
  Vector<int> side_;      // of a vertex of the part at hand, else none
  Vector<char> waiting_;  // the pair of a vertex is not settled yet
  Vector<int> visit_;     // last search that came to a vertex
  int search_ = 0;
  Vector<int> tree_;     // vertex towards the name of the tree of pairs that it is in
  bool across_ = false;  // trees reach across the separator
  Vector<std::pair<int, int>> changes_;  // vertex and its former partner
};

/// Graph in which each pair is one vertex.
/// @param graph    in
/// @param partner  of a vertex, or -1  [graph.n], in
/// @param lead     first member of a vertex of the result  [result.n], out; vertices keep the
///                 sequence of their first members
WeightedGraph contract_pairs(const WeightedGraph& graph, const Vector<int>& partner,
                             Vector<int>& lead);

}  // namespace vlm
