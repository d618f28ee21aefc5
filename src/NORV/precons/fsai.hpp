// SPDX-License-Identifier: BSD-3-Clause
/// Factored sparse approximate inverse of a symmetric matrix, A^-1 ~ G^T D^-1 G.
///
/// G is unit lower triangular in an order of elimination, D has 1x1 and 2x2 blocks.  A row, or the
/// two rows of a 2x2 block, is found by itself: on a pattern J of rows that come before, its
/// entries g solve A(J,J) g = -A(J,i), after which D is what the quadratic form g A g^T has there.
/// For a definite matrix that minimises Kaporin's condition number, and D is positive whatever J
/// (L. Kolotilina and A. Yeremin, Factorized sparse approximate inverse preconditionings, 1993).
/// With an indefinite one A(J,J) may be near to singular: the same rows then solve a least-squares
/// problem with all rows that J touches, and pivots that stay small are delayed, made 2x2, or
/// perturbed.
///
/// Patterns: the neighbours within a number of steps (a power of the matrix); all rows before that
/// a path joins (with which the inverse is exact); or grown in rounds by those entries that lower D
/// most (T. Huckle, Factorized sparse approximate inverses for preconditioning, 2003; C. Janna and
/// M. Ferronato, Adaptive pattern research for block FSAI preconditioning, 2011).
#pragma once

#include <cstdint>

#include "NORV/precons/scalars.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

/// How the entries of a row are found.
enum class FsaiSolution {
  qr,               ///< least squares on all rows that the pattern touches
  restricted_lsqr,  ///< the square system, by LSQR
  lsqr,             ///< least squares by LSQR
  normal_equation,  ///< not offered
  iterative,        ///< the square system, by conjugate residuals
  direct            ///< the square system, by elimination
};
enum class FsaiPattern { power, inverse, adaptive };
/// Which 1x1 and 2x2 pivots: given ones, or tried in turn; what is told apart is when a block waits
/// until the others are done.
enum class FsaiPivots {
  given,
  given_delayed,    ///< where its pivot is small
  given_monitored,  ///< where its row is large
  tried,            ///< where its pivot is small
  tried_monitored   ///< where its row is large too
};

struct FsaiOptions {
  FsaiSolution solution = FsaiSolution::direct;
  FsaiPattern pattern = FsaiPattern::adaptive;
  FsaiPivots pivots = FsaiPivots::given;
  int power = 1;                 ///< steps, or rounds of growth
  double threshold = 0;          ///< couplings and gains below it don't enter a pattern
  double drop = 0;               ///< entries of G below it go
  int limit = 0;                 ///< most entries of a row of G beside its unit
  double pivot_eps = 0;          ///< smaller pivots are replaced
  double bound = 0;              ///< largest entry of a row that is no reason to wait
  const int* partner = nullptr;  ///< [n] the other row of a 2x2 pivot, or -1; null: none
};

/// Sparse rows; row k stands for the row `row[k]` of a vector.
template <class T>
struct InverseRows {
  Vector<int> row, start, column;
  Vector<T> value;
  /// y(row[k]) = row k times x.
  void multiply(const T* x, T* y) const;
};

template <class T>
struct FsaiFactor {
  InverseRows<T> G, Gt;
  Vector<int> partner;  ///< [n] or -1
  Vector<T> d, e;       ///< D^-1: diagonal, and what couples with the partner
  int pairs = 0, bad_pairs = 0, perturbed = 0, delayed = 0, npos = 0, nneg = 0;
  double pattern_seconds = 0, build_seconds = 0, solve_seconds = 0;

  std::int64_t entries() const { return static_cast<std::int64_t>(G.column.size()); }
};

/// @param A  both triangles of a symmetric matrix, sorted
template <class T>
FsaiFactor<T> factorize_fsai(const Rows<T>& A, const FsaiOptions& options);

/// y := G^T D^-1 G x.
/// @param work  [n] scratch
template <class T>
void apply(const FsaiFactor<T>& factor, const T* x, T* work, T* y);

}  // namespace vlm::norv
