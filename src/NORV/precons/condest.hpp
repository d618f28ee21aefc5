// SPDX-License-Identifier: BSD-3-Clause
/// Running estimate of the norm of the inverse of a unit triangular factor.
///
/// The solution z of L z = e is built up beside L, where each component of e is +1 or -1 and is
/// chosen when its row comes up, so that z grows (A. K. Cline, C. B. Moler, G. W. Stewart,
/// J. H. Wilkinson, "An estimate for the condition number of a matrix", 1979; in incomplete
/// factorizations M. Bollhoefer, "A robust ILU with pivoting based on monitoring the growth of the
/// inverse factors", 2001).  One step costs the length of the row.
///
/// A step is looked at before the pivot is accepted and taken afterwards, so that a pivot that is
/// delayed changes nothing.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "NORV/precons/scalars.hpp"

namespace vlm::norv {

/// How a sign is chosen.
enum class CondestStrategy : int {
  max_change_1 = 0,  ///< larger sum of what z becomes behind the pivot
  max_change_2 = 1,  ///< the same, step times the pivot
  max_change_3 = 2,  ///< the same as the first, value with the mean of the sum
  orlund_1 = 3,      ///< the side on which more components grow, against their old values
  orlund_2 = 4,      ///< the same against the entries of the row; real matrices
  orlund_3 = 5,      ///< the same as orlund_2, value with the mean of the sum
};

/// Names of the strategies, as messages have them; [6].
extern const char* const condest_strategy_names[6];

/// Diagonal block of a pivot of W rows, 1 or 2: d, or [d e; e f].
template <class T, int W>
struct PivotBlock {
  T d, e = T(), f = T();

  /// Steps mu that solve block * mu = right-hand side.
  void solve(const T (&rhs)[W], T (&mu)[W]) const {
    if constexpr (W == 1) {
      mu[0] = divide(rhs[0], d);
    } else {  // scaled by the off-diagonal entry, which a 2x2 pivot has
      const T x = divide(f, e), y = divide(d, e);
      const T scale = divide(divide(T(1), product(x, y) - T(1)), e);
      mu[0] = product(scale, product(x, rhs[0]) - rhs[1]);
      mu[1] = product(scale, product(y, rhs[1]) - rhs[0]);
    }
  }
  /// block * mu.
  void apply(const T (&mu)[W], T (&out)[W]) const {
    if constexpr (W == 1) {
      out[0] = product(d, mu[0]);
    } else {
      out[0] = product(d, mu[0]) + product(e, mu[1]);
      out[1] = product(e, mu[0]) + product(f, mu[1]);
    }
  }
};

/// Rows of a pivot behind it: columns, and a value of each row for every column.
template <class T, int W>
struct PivotRows {
  int length = 0;
  const int* column = nullptr;  ///< indices into z
  const T* value[W] = {};       ///< [length] each
};

/// A step that was looked at.
template <class T, int W>
struct CondestStep {
  double bound = 0;    ///< estimate of the largest component
  bool taken = false;  ///< false: bound exceeds kappa, the rest is not set
  T mu[W] = {};        ///< what the rows are multiplied by when they are added to z
  double out[W] = {};  ///< |block mu|
};

/// Looks at the step of a pivot.
/// @param pivot    its block, not singular
/// @param z_here   components of z at its rows
/// @param rows     what is behind it, unscaled
/// @param z        components of z by column
/// @param touched  counter by column, of how often a component was looked at; may be null
template <class T, int W>
CondestStep<T, W> condest_look(CondestStrategy strategy, double kappa,
                               const PivotBlock<T, W>& pivot, const T (&z_here)[W],
                               const PivotRows<T, W>& rows, const T* z, int* touched);

/// Takes it: z(j) += sum of value(j) mu.
template <class T, int W>
void condest_take(const PivotRows<T, W>& rows, const T (&mu)[W], T* z) {
  for (int p = 0; p < rows.length; ++p) {
    T sum = product(rows.value[0][p], mu[0]);
    if constexpr (W == 2) sum += product(rows.value[1][p], mu[1]);
    z[rows.column[p]] += sum;
  }
}

/// The fixed form of the column pivoting: the sign of the larger sum, minus at a tie.  The step is
/// taken at once.
/// @param out  d mu
/// @return     mu, for condest_fixed_undo()
template <class T>
T condest_fixed(T d, T z_here, const PivotRows<T, 1>& rows, T* z, int* touched, T* out);
template <class T>
void condest_fixed_undo(T mu, const PivotRows<T, 1>& rows, T* z);

}  // namespace vlm::norv
