// SPDX-License-Identifier: BSD-3-Clause
/// LU of a diagonal block with complete pivoting and perturbed small pivots.
///
/// The search is the costly part: each elimination step notes the largest magnitude of every
/// column that it updates, so that the next search reads one value a column and scans one
/// column.
#pragma once

#include "kernels/scalar.hpp"
#include "kernels/simd.hpp"

namespace vlm::VELMORA_ISA {

/// y -= f x, and the largest magnitude of the result.
template <class T>
inline auto subtract_and_max(int m, T f, const T* x, T* y) {
  using Real = decltype(magnitude(T()));
  Real largest = 0;
  for (int i = 0; i < m; ++i) {
    y[i] -= f * x[i];
    const Real v = magnitude(y[i]);
    largest = v > largest ? v : largest;
  }
  return largest;
}

/// The same in vectors for real kinds, where the search would otherwise dominate.
template <class R>
inline R subtract_and_max_real(int m, R f, const R* x, R* y) {
  using S = Simd<R>;
  const auto fv = S::fill(f);
  typename S::Vector largest = {};
  int i = 0;
  for (; i + S::width <= m; i += S::width) {
    const auto v = S::load(y + i) - fv * S::load(x + i);
    S::store(y + i, v);
    const auto size = v < S::fill(0) ? -v : v;
    largest = size > largest ? size : largest;
  }
  R out = 0;
  for (int k = 0; k < S::width; ++k) out = largest[k] > out ? largest[k] : out;
  for (; i < m; ++i) {
    y[i] -= f * x[i];
    out = magnitude(y[i]) > out ? magnitude(y[i]) : out;
  }
  return out;
}
inline double subtract_and_max(int m, double f, const double* x, double* y) {
  return subtract_and_max_real(m, f, x, y);
}
inline float subtract_and_max(int m, float f, const float* x, float* y) {
  return subtract_and_max_real(m, f, x, y);
}

/// Largest threshold that the single-precision form ignores: float cannot tell such pivots
/// from rounding.
template <class T>
inline double usable_threshold(double eps) {
  return sizeof(T) == sizeof(float) && eps <= 5e-8 ? 0.0 : eps;
}

/// Eliminates column k and notes the largest magnitudes of the columns behind it.
template <class T, class Real>
inline void eliminate_lu(int n, T* a, long lda, int k, Real* column_max) {
  T* ak = a + k * lda;
  for (int i = k + 1; i < n; ++i) ak[i] /= ak[k];
  for (int j = k + 1; j < n; ++j) {
    T* aj = a + j * lda;
    column_max[j] = subtract_and_max(n - k - 1, aj[k], ak + k + 1, aj + k + 1);
  }
}

template <class T>
void lu_complete(int n, T* a, int lda_int, int* row, int* column, T* work, BlockPivots<T>& stats) {
  using Real = decltype(magnitude(T()));
  const long lda = lda_int;
  const double eps = usable_threshold<T>(stats.eps);
  const double fallback = sizeof(T) == sizeof(float) ? 1e-8 : 1e-13;
  Real* column_max = reinterpret_cast<Real*>(work);
  for (int j = 0; j < n; ++j) {
    Real largest = 0;
    for (int i = 0; i < n; ++i) {
      const Real v = magnitude(a[i + j * lda]);
      largest = v > largest ? v : largest;
    }
    column_max[j] = largest;
  }
  for (int k = 0; k < n; ++k) {
    int jp = k;
    Real best = 0;
    for (int j = k; j < n; ++j)  // the last of equal magnitudes wins
      if (column_max[j] >= best) {
        best = column_max[j];
        jp = j;
      }
    int ip = k;
    for (int i = k; i < n; ++i)
      if (magnitude(a[i + jp * lda]) == best) ip = i;
    row[k] = ip + 1;
    column[k] = jp + 1;
    if (ip != k)
      for (int j = 0; j < n; ++j) swap_values(a[k + j * lda], a[ip + j * lda]);
    if (jp != k) {
      for (int i = 0; i < n; ++i) swap_values(a[i + k * lda], a[i + jp * lda]);
      swap_values(column_max[k], column_max[jp]);
    }
    T& d = a[k + k * lda];
    if (static_cast<double>(magnitude(d)) <= eps) {
      d = replacement(d, eps, fallback);
      ++stats.perturbed;
    }
    if (stats.want_logdet) stats.logdet += __builtin_log(modulus(d));
    eliminate_lu(n, a, lda, k, column_max);
  }
}

}  // namespace vlm::VELMORA_ISA
