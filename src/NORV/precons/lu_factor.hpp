// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete factors L U, their sweeps, and the factorizations that make them.
#pragma once

#include <cstdint>

#include "NORV/precons/full_rows.hpp"
#include "base/growing.hpp"

namespace vlm::norv {

/// A strict triangle, rows or columns one after the other.
template <class T>
struct Triangle {
  Vector<std::int64_t> start;  ///< [n+1]
  Growing<int> index;          ///< ascending
  Growing<T> value;

  std::int64_t entries() const { return start.empty() ? 0 : start.back(); }
};

/// L is unit lower triangular.
template <class T>
struct LuFactor {
  int n = 0;
  Triangle<T> L, U;           ///< U by rows
  bool L_by_columns = false;  ///< L otherwise by rows
  Vector<T> pivot;            ///< [n] reciprocals of the diagonal of U
  int perturbed = 0, first_perturbed = -1;
  std::int64_t dropped = 0, seen = 0;  ///< entries that were left out, of how many
  double norm_L = 0, norm_U = 0;       ///< largest entries

  std::int64_t entries() const { return L.entries() + U.entries() + n; }
};

/// y := (L U)^-1 y, and with the transpose.   [n], in and out
template <class T>
void solve(const LuFactor<T>& factor, T* y);
template <class T>
void solve_trans(const LuFactor<T>& factor, T* y);

/// By rows with a threshold, relative to the norm of a row, and at most `fill` entries in a row of
/// either factor (Y. Saad, ILUT: a dual threshold incomplete LU factorization, 1994).
template <class T>
LuFactor<T> factorize_ilut(const FullRows<T>& A, double drop, int fill);

/// On the pattern of the matrix and its diagonal.
template <class T>
LuFactor<T> factorize_ilu0(const FullRows<T>& A);

struct IlucOptions {
  double drop;
  int most;         ///< entries of a row of U and of a column of L; negative: no limit
  double pivot;     ///< smaller pivots are replaced
  bool by_inverse;  ///< entries are weighed by the growth of the inverse factors
};

/// By rows of U and columns of L side by side (N. Li, Y. Saad and E. Chow, Crout versions of ILU
/// for general sparse matrices, 2003).
template <class T>
LuFactor<T> factorize_iluc(const FullRows<T>& A, const IlucOptions& options);

}  // namespace vlm::norv
