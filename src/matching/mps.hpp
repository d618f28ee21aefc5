// SPDX-License-Identifier: BSD-3-Clause
/// Unsymmetric weighted matching and scaling.
///
/// Finds a row permutation and row and column scalings that put entries of magnitude 1 on the
/// diagonal and leave all others at most 1: the transversal of largest product, computed as a
/// minimum-cost perfect matching on logarithms.  A greedy start with exchanges of length two is
/// followed by one shortest-augmenting-path search per unmatched row, Dijkstra's method on
/// reduced costs with a binary heap (H. W. Kuhn, The Hungarian method for the assignment
/// problem, 1955; I. S. Duff, J. Koster, On algorithms for permuting large entries to the
/// diagonal of a sparse matrix, 2001).  The dual variables give the scalings.
///
/// Everything inside is 0-based; the caller's pattern is 1-based.  Memory: one copy of the
/// entries and some eight arrays of n, all taken before the search starts.  Time: O(nnz) for the
/// start, at worst O(nnz log n) per remaining row, in practice a short walk each.
#pragma once

#include <cstdint>

#include "base/memory.hpp"

namespace vlm {

/// Square matrix whose entries are to be matched: 1-based compressed rows, real values (the
/// magnitude of complex ones, see convert2abs).
struct MatchInput {
  int n = 0;                  ///< rows and columns that take part; others are passed over
  const int* ia = nullptr;    ///< [n+1]
  const int* ja = nullptr;    ///< columns, in any order
  const double* a = nullptr;  ///< values
  bool upper = false;         ///< the upper triangle stands for the symmetric matrix
  int threads = 1;            ///< that may take part; results are the same on any number
};

/// Work matrix of the matching: costs c(i,j) = log|a(i,j)| - log max_k |a(k,j)| <= 0 of the
/// entries that aren't zero, compressed rows, 0-based.
struct mps_csr {
  int n = 0;              ///< rows
  int ncol = 0;           ///< columns, at least n: a rectangle leaves some of them free
  Vector<int> rowptr;     ///< [n+1]
  Vector<int> col;        ///< [nnz]
  Vector<double> val;     ///< [nnz]
  Vector<double> logmax;  ///< [ncol] logarithm of the largest magnitude of a column; 0 if none
  double path_bound = 0;  ///< no augmenting path costs more: -(n+1) times the smallest cost
};

/// State of a matching: dual variables with u(i) + v(j) >= c(i,j), equality on matched entries.
struct MatchState {
  Vector<int> match;         ///< [ncol] row matched to a column, or -1
  Vector<int> match_of_row;  ///< [n] column matched to a row, or -1
  Vector<double> u;          ///< [n] by row
  Vector<double> v;          ///< [ncol] by column, 0 for a free one, never negative
  int count = 0;             ///< matched rows
};

/// Result of a matching.
struct MatchResult {
  int count = 0;     ///< rows matched before completion: n, or the structural rank
  Vector<int> perm;  ///< [n] 0-based: row matched to column j; always a permutation
  /// exp(u[i] + v[j]) * |a(i,j)| <= 1 with equality on matched entries [n]; empty when count < n
  Vector<double> u, v;
};

/// Cost matrix.  A zero is dropped; a NaN takes the
/// smallest positive magnitude, so that it loses against every number; an infinite entry takes
/// the largest finite one.  Throws std::length_error when the full structure of a symmetric
/// matrix overflows 32-bit positions.
mps_csr csr_create_log(const MatchInput& matrix);

/// Greedy start: each row takes the column of its largest cost, another one of equal cost, or a
/// column whose owner can move to a free column of its own largest cost.  O(nnz).
/// @param threads  that find the largest costs; the result is the same on any number
MatchState kuhn_munkres_init(const mps_csr& cost, int threads = 1);

/// Completes the greedy start to a matching of largest size, of smallest total cost when that
/// size is n.  @return the number of matched rows
int kuhn_munkres(const mps_csr& cost, MatchState& state);

/// Completes a deficient matching to a permutation: each free row takes the free column at the
/// end of its chain row -> column of the same number -> its row.  O(n).
/// @param match  [n] row matched to a column or -1, in and out
/// @return the number of pairs that were added
int expand_matching(Vector<int>& match);

/// Matching, permutation and logarithms of the scaling factors.
MatchResult mps_velmora(const MatchInput& matrix);

/// Magnitudes of complex values given as pairs of doubles.
Vector<double> convert2abs(std::int64_t nnz, const double* a);

enum class ScaleMode {
  permute,  ///< unit factors
  scale,
};

/// Stores permutation and scaling factors in the form that the numeric phases read.
/// @param perm    0-based, row that takes the place of column j [n], in
/// @param u, v    logarithms of row and of column factors [n], in; used by ScaleMode::scale only
/// @param mtype   -2, -4, 6 get one factor per index, the geometric mean, in both halves
/// @param nschur  trailing positions whose rows keep the factor 1
/// @param perm_store   [n] 1-based, out
/// @param scale_store  [2n] column factors, then row factors, out
void rr33adcopy(ScaleMode mode, int n, const int* perm, const double* u, const double* v, int mtype,
                int nschur, int* perm_store, double* scale_store);

}  // namespace vlm
