// SPDX-License-Identifier: BSD-3-Clause
/// Nested dissection of a weighted graph whose leaves are ordered by minimum degree.
///
/// A. George, "Nested dissection of a regular finite element mesh", SIAM J. Numer. Anal. 10
/// (1973); leaves by halo approximate minimum degree as in F. Pellegrini, J. Roman and
/// P. Amestoy (2000); separators from find_separator().
///
/// Pieces are cut while a separator is expected to save more time in the factorization than it
/// takes to find.  Where its weight alone does not tell, minimum degree orders the piece, and its
/// operations tell: of the whole too, so small and flat graphs often stay uncut.  Pieces go side by
/// side, from a queue of the team.  The order depends on the graph only; the domains are subtrees of its
/// elimination (domains.hpp).
#pragma once

#include "base/memory.hpp"
#include "graph/dissection_tuning.hpp"
#include "graph/pairing.hpp"
#include "graph/symbolic_cost.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// How long the pieces of a dissection took, in the sequence in which they were worked on.
struct DissectionTrace {
  struct Piece {
    int parent = -1;     ///< the piece that this one was cut from; -1: none
    double seconds = 0;  ///< for the separator or, of a leaf, the order
    double shared = 0;   ///< the same with its loops on the threads that it may have
  };
  int threads = 1;  ///< that the whole has; a half has half of them, and so on
  Vector<Piece> pieces;
  double rest = 0;  ///< seconds of what comes behind the pieces
};

/// What a dissection aims at.
struct DissectionGoal {
  int domains = 1;  ///< domains wanted
  int threads = 1;  ///< of the team
  /// What an operation of the factorization takes beside one of a real symmetric matrix.
  double operation_cost = 1;
  DissectionTuning tuning = {};
  DissectionTrace* trace = nullptr;  ///< filled where there is one and one thread works
};

/// A dissected graph.
struct Dissection {
  Vector<int> order;   ///< vertices in elimination order, postordered              [n]
  Vector<int> domain;  ///< domain of a vertex from 1; 0 for the separators above  [n]
  int domains = 0;     ///< domains found
  /// Of the order.  Empty where vertices are paired or held back.
  EliminationTree tree;
};

/// Dissects the graph into domains and orders them and the separators between them.
/// @param held  vertices that come last, by a mark; the others are ordered as those around a leaf
///              are, which count in its degrees  [n] or empty, in
Dissection dissect(const WeightedGraph& graph, const DissectionGoal& goal,
                   const Vector<char>& held = {});

/// The same for a graph with pairs: partners come next to each other, in the same domain.
///
/// Separators are those of the graph without pairs; the order is that of the graph in which a
/// pair is one vertex.
/// @param pairs  exchanged where a separator asks for it, in and out
Dissection dissect_pairs(const WeightedGraph& graph, const DissectionGoal& goal, Pairing& pairs);

}  // namespace vlm
