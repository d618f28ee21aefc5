// SPDX-License-Identifier: BSD-3-Clause
/// Which unknowns depend strongly on which, and the coarse ones among them.
///
/// The first pass of J. W. Ruge, K. Stueben, "Algebraic multigrid", 1987: unknowns that many others
/// depend on become coarse, those that depend on them fine, until all are one or the other.
#pragma once

#include "NORV/corelib/smat_rows.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

/// A directed graph by rows.
struct Graph {
  int n = 0;
  Vector<int> start;   ///< [n+1]
  Vector<int> target;  ///< by vertex, rising
};

/// The strong couplings of each row, without the diagonal.
struct StrengthOptions {
  double positive = 0.25;  ///< part of the row's largest coupling
  double negative = 0.25;  ///< part of the row's largest negative coupling
  bool signs = true;       ///< false: only sizes count
  int components = 1;      ///< couplings between rows of different remainder don't count
};

/// Couplings are negative where they have the sign opposite to the diagonal entry's, as in a
/// discrete Laplacian.
template <class T>
Graph strong_couplings(const Rows<T>& A, const StrengthOptions& options);

Graph transposed(const Graph& G);

/// Coarse number of each vertex, in rising order, or -1.
struct Splitting {
  int coarse = 0;
  Vector<int> number;
};

/// @param S  vertex i depends on S.target[S.start[i]..]
Splitting coarsen_rs(const Graph& S);

}  // namespace vlm::norv
