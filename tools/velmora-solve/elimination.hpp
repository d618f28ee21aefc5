// SPDX-License-Identifier: BSD-3-Clause
/// Structure of the factor for a given elimination order, as far as a picture needs it.
///
/// Elimination tree by path compression (J. W. H. Liu, The role of elimination trees in sparse
/// factorization, 1990); the rows of the factor are the subtrees of it that the entries of a row
/// span, walked one after the other: time O(nnz(L)), memory O(n + nnz(A)).
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "system.hpp"

namespace tool {

/// A run of columns, first to last, counted from 0.
struct Range {
  int first = 0, last = 0;
};

class Elimination {
 public:
  /// @param order  node, from 1, at each position, n of them or more; a matrix with unsymmetric
  /// pattern is taken with
  ///               its mirror
  Elimination(const SparseMatrix& matrix, const std::vector<int>& order);

  /// Calls visit(row, column, original) for every entry of L below the diagonal, rows ascending;
  /// `original` tells an entry of the matrix from fill.
  void for_factor(const std::function<void(int, int, bool)>& visit) const;

  /// Columns of equal structure below their diagonal block, longest possible runs.
  std::vector<Range> supernodes() const;

  /// Independent parts: subtrees that are contiguous in the order and hold at most a `wanted`-th
  /// of the work each, without those below a tenth of that.
  std::vector<Range> domains(int wanted) const;

  std::int64_t nonzeros() const { return nonzeros_; }  ///< in L, diagonal included
  int n() const { return static_cast<int>(parent_.size()); }

 private:
  std::vector<int> start_, lower_;  ///< columns left of the diagonal, row by row, in the order
  std::vector<int> parent_;         ///< -1 for a root
  std::vector<int> count_;          ///< entries of each column of L, diagonal included
  std::int64_t nonzeros_ = 0;
};

}  // namespace tool
