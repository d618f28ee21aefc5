// SPDX-License-Identifier: BSD-3-Clause
/// Symmetric weighted matching: 1x1 and 2x2 pivot candidates, compression, expansion.
///
/// For a symmetric indefinite matrix the matching of mps.hpp may not move rows alone.  Its
/// cycles are cut into single nodes and pairs; the two nodes of a pair, coupled by a large
/// entry, form a 2x2 pivot candidate.  Each pair becomes one node of a compressed graph, the
/// fill-reducing ordering runs on that graph, and the expanded order keeps the partners next to
/// each other, so that they meet in one diagonal block (I. S. Duff, S. Pralet, Strategies for
/// scaling and pivoting for sparse symmetric indefinite problems, 2005).
///
/// Nodes and positions are 0-based in the records of this file; Adjacency and Ordering keep
/// their 1-based contents.  All steps but the ordering take O(n + nnz).
#pragma once

#include "base/function.hpp"
#include "base/input_matrix.hpp"
#include "base/memory.hpp"
#include "graph/ordering.hpp"
#include "graph/pairing.hpp"
#include "matching/mps.hpp"

namespace vlm {

/// An order with its pivot candidates.
struct PairedOrder {
  Vector<int> node;       ///< [n] node at a position
  Vector<bool> block1x1;  ///< [n] by position: true for a 1x1 candidate; false for both
                          ///< positions of a 2x2 candidate, which are neighbours
};

/// Graph in which each 2x2 candidate is one node.
struct PairGraph {
  Adjacency graph;    ///< both triangles, no diagonal, lists ascending, a pair weighs 2
  Vector<int> first;  ///< [graph.n + 1] first position of a compressed node
  Vector<int> map;    ///< [n] compressed node of a node of the matrix, 0-based
};

/// Orders a graph; returns a Status.
using GraphOrdering = Function<int(const Adjacency& graph, Ordering& order)>;

/// Matrix with the full pattern of every 2x2 candidate, in the caller's numbering.
struct PaddedMatrix {
  int n = 0;
  Vector<int> ia, ja;  ///< upper triangle, 1-based, diagonal first, columns ascending
  Vector<int> map;     ///< [nnz of the input] place of an input entry in ja, 1-based
};

/// Cuts the cycles of the matching into single nodes and pairs.
///
/// The order reads: cycles of length 1, then the other cycles in pairs, and at the tail, from
/// the back, the first member of each odd cycle.  Two members that both have a diagonal entry
/// above 1e-8 in magnitude stay neighbours but count as two 1x1 candidates.
/// @param matrix  upper triangle, diagonal first in each row, in
/// @param match   row matched to column j, 0-based  [n], in
PairedOrder reordering_matching_sym2x2(const MatchInput& matrix, const Vector<int>& match);

/// Quotient graph of the pattern, explicit zeros included, by the candidates of an order.
/// Compressed nodes are numbered by position.
/// @return status_overflow when the graph does not fit 32-bit positions
int compress_2x2_blocks(const MatchInput& matrix, const PairedOrder& pairs, PairGraph& compressed);

/// Expands an order of the compressed graph, its ranges included.
/// @param order       of the compressed nodes, in
/// @param expanded    order of the matrix's nodes, out
/// @param candidates  the same order with its candidates, out
void expand_cond_perm(const PairedOrder& pairs, const PairGraph& compressed, const Ordering& order,
                      Ordering& expanded, PairedOrder& candidates);

/// From pairs to a symmetric order: compression, ordering, expansion.
/// @param order       order of the nodes 1..matrix.n, out
/// @param candidates  pivot candidates by position, out
/// @return a Status
int mps_sym_velmora(const MatchInput& matrix, const PairedOrder& pairs,
                    const GraphOrdering& order_graph, Ordering& order, PairedOrder& candidates);

/// The graph of the nodes without pairs.
int uncompressed_graph(const MatchInput& matrix, Adjacency& graph);

/// The pairs with their alternatives: those entries that are at least a tenth of a matched one
/// in the scaled matrix.  The same holds for the diagonal entry of a node that may stand alone.
/// @param match  complete matching with scalings, in
Pairing exchangeable_pairs(const MatchInput& matrix, const MatchResult& match,
                           const PairedOrder& pairs);

/// Whether there are enough pairs, nearly all with a partner that may stand alone.
bool worth_exchanging(const Pairing& pairs);

/// The candidates of an order in which partners are neighbours.
PairedOrder candidates_of(const Ordering& order, const Pairing& pairs);

/// Pattern of the matrix filled up so that the four blocks between any two adjacent candidates
/// are full or absent.
/// @param matrix  upper triangle, in
/// @return status_overflow when the pattern does not fit 32-bit positions
int build_padded_2x2_mat(const InputMatrix& matrix, const PairedOrder& candidates,
                         PaddedMatrix& padded);

/// Writes the caller's values to their places in the padded matrix, zero elsewhere.
/// @param nvals  doubles per value
/// @param out    [nvals * padded.ja.size()]
void scatter_padded_values(const PaddedMatrix& padded, int nvals, const double* a, double* out);

}  // namespace vlm
