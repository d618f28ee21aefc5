// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T with 1x1 and 2x2 pivots, inverse-based dropping and delayed pivots.
///
/// Row after row is formed from the matrix and from the finished rows, and thinned out before it is
/// stored.  Which finished rows reach the current one is told by linked lists: each waits in the
/// list of its next column (N. Li, Y. Saad, E. Chow, "Crout versions of ILU for general sparse
/// matrices", 2003), so no column is ever scanned.  Entries are dropped against the norm of the
/// rows of L^-1, and a pivot that would make it exceed a bound is postponed (M. Bollhoefer,
/// Y. Saad, "Multilevel preconditioners constructed from inverse-based ILUs", 2006); what has been
/// postponed is eliminated last, or left as the Schur complement of the others.
///
/// With second_drop an entry that is dropped still acts once: updates by a finished row take what
/// was dropped from it along, times what was kept, so that the error of the factorization is of
/// second order in what is dropped (M. Tismenetsky, "A new preconditioning technique for solving
/// large sparse linear systems", 1991; I. E. Kaporin, "High quality preconditioning of a general
/// symmetric positive definite matrix based on its U^T U + U^T R + R^T U-decomposition", 1998).
/// These entries live as long as the factorization.
///
/// Time is proportional to the updates, at fixed parameters to the rows.  Memory: the factor, one
/// copy of the matrix, some ten arrays of n.
#pragma once

#include <cstdint>

#include "NORV/precons/condest.hpp"
#include "NORV/precons/ldlt_factor.hpp"
#include "NORV/precons/upper_rows.hpp"

namespace vlm::norv {

/// What |w(j)| of a row is compared with.
enum class DropStyle : int {
  diagonal = 0,  ///< drop |d|
  inverse = 1,   ///< drop |d| / (norm of L^-1 times largest entry of the row)
  infinity = 2,  ///< drop times the largest row sum of the matrix: known by name alone
};

/// What happens to a pivot that is too small.
enum class SmallPivot : int {
  ignore = 0,   ///< it is used; an exact zero is replaced as by `perturb`
  perturb = 1,  ///< it becomes the threshold, with its sign
  delay = 2,    ///< it is delayed
};

/// When two rows are eliminated together.
enum class PairChoice : int {
  none = 0,
  tridiagonal = 1,  ///< |d| < pivot_2x2 |e|^2 with the next row's e
  column = 2,       ///< the same with the largest entry of the row, wherever its partner stands
  dominance = 3,    ///< where the block is the more dominant one; real matrices
};

/// How bad pivots are put off.
enum class Postponing : int {
  never = 0,
  delay = 1,  ///< the row goes behind all others
  skip = 2,   ///< the row stays, and is cut off from those behind it
};

/// Which estimate of |L^-1| runs along.
enum class Estimator : int { none = 0, running = 1, fixed = 2 };

struct IldltOptions {
  double drop = 1e-3;       ///< dropping threshold, 0 keeps what isn't zero
  double max_fill = 10;     ///< limit of a row as a multiple of the average row; <= 0: none
  int most_entries = -1;    ///< limit of a row in entries; < 0: by max_fill
  double pivot_1x1 = 1e-8;  ///< what counts as a small pivot
  double pivot_2x2 = 0.1;   ///< factor of the test for a 2x2 pivot
  double kappa = 0;         ///< bound on the rows of L^-1; <= 0: none
  DropStyle drop_style = DropStyle::inverse;
  SmallPivot small_pivot = SmallPivot::delay;
  PairChoice pair_choice = PairChoice::tridiagonal;
  Postponing postponing = Postponing::delay;
  Estimator estimator = Estimator::running;
  CondestStrategy condest = CondestStrategy::orlund_1;
  bool compensate = false;  ///< what is dropped is made up for on the diagonal
  bool keep_schur = false;  ///< delayed rows are not eliminated but left as Schur complement
  double second_drop = -1;  ///< dropped entries down to so many times the threshold still take part
                            ///< in the updates; < 0: none; not with PairChoice::column
  double schur_drop = -1;   ///< entries of the Schur complement up to it are dropped; < 0: none
  int leading = -1;         ///< with keep_schur: only so many rows are eliminated; < 0: all
  bool positive = false;    ///< a pivot that isn't positive is a fault
  const char* precious = nullptr;       ///< [n] rows of which nothing is dropped, or null
  bool delay_small_eigenvalues = true;  ///< also delay real pivots with an eigenvalue below 0.01
};

/// What statistics messages tell.
struct IldltStatistics {
  std::int64_t pairs = 0;  ///< 2x2 pivots
  std::int64_t exchanges = 0;
  std::int64_t perturbed = 0, first_perturbed = -1;
  std::int64_t delayed_scalar = 0, first_delayed = -1;
  std::int64_t delayed_pairs = 0;
  std::int64_t skipped = 0, first_skipped = -1;
  std::int64_t bad_delayed = 0;  ///< accepted although they would be delayed again
  double smallest_bad = 0;
  std::int64_t delayed_eigenvalue_1x1 = 0, delayed_eigenvalue_2x2 = 0;
  std::int64_t dropped_1x1 = 0, entries_1x1 = 0;  ///< of the rows of 1x1 pivots
  std::int64_t dropped_2x2 = 0, entries_2x2 = 0;
  std::int64_t clipped = 0, clipped_rows = 0;  ///< by the fill limit
  std::int64_t sign_changes = 0;               ///< diagonal entries whose pivot has the other sign
  double norm = 0;                             ///< estimate of |L^-1|
  double largest_threshold = 0;
  double smallest_diagonal = 0;
  double seconds = 0, schur_seconds = 0;
  int schur_size = 0;
};

template <class T>
struct IldltResult {
  LdltFactor<T> factor;
  Vector<int> place;   ///< [n] final position of a row of the matrix as it was given
  UpperRows<T> schur;  ///< with keep_schur: what is left, in the order of the last positions
  IldltStatistics statistics;
};

/// Entries that a row may keep: max_fill times the average row of both triangles, rounded.
template <class T>
int fill_limit(double max_fill, const UpperRows<T>& A);

/// Factorizes a matrix that stands in the order of elimination; its arrays are used up.
/// @param target  for `compensate`: what the factor shall act alike on, by row of A [n]
template <class T>
IldltResult<T> factorize_ildlt(UpperRows<T>&& A, const IldltOptions& options, const T* target);

}  // namespace vlm::norv
