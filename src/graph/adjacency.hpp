// SPDX-License-Identifier: BSD-3-Clause
/// Adjacency of the ordering graph: the pattern of A + A^T without its diagonal.
///
/// All builders are linear in the entries of the matrix and use counting passes only.  Every
/// neighbour list comes out ascending and free of repeats, on any number of threads, which makes
/// the orderings deterministic.
#pragma once

#include "base/memory.hpp"
#include "base/status.hpp"
#include "base/view.hpp"

namespace vlm {

/// Symmetric adjacency without diagonal, both triangles, 1-based contents.
struct Adjacency {
  int n = 0;
  Vector<int> xadj;    ///< [n+1]
  Vector<int> adjncy;  ///< [xadj(n+1)-1]
  Vector<int> weight;  ///< [n] columns that a node stands for; empty: one each

  int weight_of(int node) const { return weight.empty() ? 1 : weight[node - 1]; }
};

/// Pattern in compressed rows, 1-based.
struct Pattern {
  int n = 0;
  View<const int> ia;  ///< [n+1]
  View<const int> ja;  ///< [ia(n+1)-1]
};

/// Adjacency of a matrix of which each row holds the entries from the diagonal on.
/// @param upper  upper triangle, columns ascending in a row, in
/// @param graph  both triangles, out
/// @return status_overflow when the lists do not fit 32-bit positions, else status_ok
int ladj_mod_velmora(const Pattern& upper, Adjacency& graph, int threads = 1);

/// Adjacency of a matrix stored in full, whether or not its pattern is symmetric.
/// @param full      rows of A, columns ascending in a row, in
/// @param row_perm  row that takes the place of row i, or empty for A as it stands  [n], in
/// @param graph     pattern of A + A^T of the permuted matrix, out
/// @return status_overflow when the lists do not fit 32-bit positions, else status_ok
int ladjun_velmora(const Pattern& full, View<const int> row_perm, Adjacency& graph,
                   int threads = 1);

/// Transpose of a pattern; the rows come out ascending.
/// @param ptr   row starts of the transpose   [n+1], out
/// @param list  columns of the transpose      [nnz], out
void kgtransp_str_ia_velmora(const Pattern& pattern, Vector<int>& ptr, Vector<int>& list,
                             int threads = 1);

/// Merges the rows of a pattern with those of its transpose and leaves out the diagonal.
/// The columns of each row must ascend; repeats are dropped.
int kg_diafree_adjnodia_velmora(const Pattern& pattern, Adjacency& graph, int threads = 1);

/// Puts row row_perm(i) of the pattern in the place of row i.
void perm_str_velmora(const Pattern& pattern, View<const int> row_perm, Vector<int>& ia,
                      Vector<int>& ja);

}  // namespace vlm
