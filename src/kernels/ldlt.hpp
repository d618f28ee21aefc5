/// LDL^T of a diagonal block with pivoting inside the block and perturbed small pivots.
///
/// Bunch-Kaufman: Bunch and Kaufman, "Some stable methods for calculating inertia and solving
/// symmetric linear systems", 1977.  A column without an entry above the threshold gets its
/// diagonal replaced, never an error (static pivoting; Li and Demmel, 1998).  Interchanges
/// are applied to whole rows of the block, so that P A P^T = L D L^T holds with one P.
#pragma once

#include "triangle.hpp"

namespace vlm::VELMORA_ISA {

template <class T>
inline void swap_values(T& x, T& y) {
  const T t = x;
  x = y;
  y = t;
}

/// Symmetric interchange of p < q in a lower triangle, rows of finished columns included.
template <class T>
inline void interchange(int n, T* a, long lda, int p, int q) {
  for (int k = 0; k < p; ++k) swap_values(a[p + k * lda], a[q + k * lda]);
  swap_values(a[p + p * lda], a[q + q * lda]);
  for (int k = p + 1; k < q; ++k) swap_values(a[k + p * lda], a[q + k * lda]);
  for (int i = q + 1; i < n; ++i) swap_values(a[i + p * lda], a[i + q * lda]);
}

template <class T>
inline T replacement(const BlockPivots<T>& stats) {
  return stats.eps == 0 ? T(1e-8) : T(stats.eps);
}

/// Eliminates column k with the 1x1 pivot d = a(k,k).
template <class T>
inline void eliminate_one(int n, T* a, long lda, int k) {
  const T r = T(1) / a[k + k * lda];
  T* ak = a + k * lda;
  for (int j = k + 1; j < n; ++j) {
    const T f = ak[j] * r;
    if (f == T(0)) continue;
    T* aj = a + j * lda;
    for (int i = j; i < n; ++i) aj[i] -= ak[i] * f;
  }
  for (int i = k + 1; i < n; ++i) ak[i] *= r;
}

/// Eliminates columns k, k+1 with a 2x2 pivot.  The pivot's off-diagonal element moves above
/// the diagonal, so that the strict lower triangle is that of the unit L.
template <class T>
inline void eliminate_two(int n, T* a, long lda, int k) {
  T *a0 = a + k * lda, *a1 = a + (k + 1) * lda;
  const T d21 = a0[k + 1];
  const T d11 = a1[k + 1] / d21, d22 = a0[k] / d21;
  const T f = T(1) / (d11 * d22 - T(1)) / d21;
  for (int j = k + 2; j < n; ++j) {
    const T w0 = f * (d11 * a0[j] - a1[j]), w1 = f * (d22 * a1[j] - a0[j]);
    T* aj = a + j * lda;
    for (int i = j; i < n; ++i) aj[i] -= a0[i] * w0 + a1[i] * w1;
    a0[j] = w0;
    a1[j] = w1;
  }
  a1[k] = d21;
  a0[k + 1] = T(0);
}

template <class T>
inline void count_one(T d, bool zero_is_negative, BlockPivots<T>& stats) {
  if (d < T(0) || (zero_is_negative && !(d > T(0)))) ++stats.negative;
  else ++stats.positive;
  if (stats.want_logdet) stats.logdet += __builtin_log(static_cast<double>(magnitude(d)));
}

template <class T>
inline void count_two(T d11, T d21, T d22, BlockPivots<T>& stats) {
  const T t = T(1) / ((d22 / d21) * (d11 / d21) - T(1));
  if (!(t > T(0))) {
    ++stats.positive;
    ++stats.negative;
  } else if (d11 > T(0) && d22 > T(0)) {
    stats.positive += 2;
  } else {
    stats.negative += 2;
  }
  if (stats.want_logdet) {
    const double scale = static_cast<double>(d21);
    const double det = (static_cast<double>(d11) / scale) * (static_cast<double>(d22) / scale) - 1;
    stats.logdet += __builtin_log(__builtin_fabs(det)) + 2 * __builtin_log(__builtin_fabs(scale));
  }
}

/// Choice of one Bunch-Kaufman step.
struct PivotChoice {
  int place = 0;       ///< row to bring to the front
  int size = 1;
  bool small = false;  ///< no entry of the column is above the threshold
};

template <class T>
inline PivotChoice choose_pivot(int n, const T* a, long lda, int k, T threshold) {
  const T alpha = T(0.6403882032022076);  // (1 + sqrt 17) / 8 balances the growth of both sizes
  const T* ak = a + k * lda;
  const T akk = magnitude(ak[k]);
  T colmax = T(0);
  int imax = k;
  for (int i = k + 1; i < n; ++i)
    if (magnitude(ak[i]) > colmax) {
      colmax = magnitude(ak[i]);
      imax = i;
    }
  if (akk <= threshold && colmax <= threshold) return {k, 1, true};
  if (imax == k || akk >= alpha * colmax) return {k, 1, false};
  T rowmax = T(0);
  for (int j = k; j < imax; ++j)
    if (magnitude(a[imax + j * lda]) > rowmax) rowmax = magnitude(a[imax + j * lda]);
  for (int i = imax + 1; i < n; ++i)
    if (magnitude(a[i + imax * lda]) > rowmax) rowmax = magnitude(a[i + imax * lda]);
  if (akk >= alpha * colmax * (colmax / rowmax)) return {k, 1, false};
  if (magnitude(a[imax + imax * lda]) >= alpha * rowmax) return {imax, 1, false};
  return {imax, 2, false};
}

template <class T>
void ldlt(int n, T* a, int lda_int, int* pivot, BlockPivots<T>& stats) {
  const long lda = lda_int;
  const T threshold = T(stats.eps);
  for (int k = 0; k < n;) {
    const PivotChoice choice = choose_pivot(n, a, lda, k, threshold);
    T& d = a[k + k * lda];
    if (choice.small) {
      d = d < T(0) ? -replacement(stats) : replacement(stats);
      ++stats.perturbed;
    }
    const int front = k + choice.size - 1;
    if (choice.place != front) interchange(n, a, lda, front, choice.place);
    if (choice.size == 1) {
      pivot[k] = choice.place + 1;
      count_one(d, false, stats);
      eliminate_one(n, a, lda, k);
    } else {
      pivot[k] = pivot[k + 1] = -(choice.place + 1);
      count_two(d, a[k + 1 + k * lda], a[k + 1 + (k + 1) * lda], stats);
      eliminate_two(n, a, lda, k);
    }
    k += choice.size;
  }
}

template <class T>
void ldlt_diagonal(int n, T* a, int lda_int, int* pivot, BlockPivots<T>& stats) {
  const long lda = lda_int;
  const T threshold = T(stats.eps);
  for (int k = 0; k < n; ++k) {
    int best = k;
    for (int i = k + 1; i < n; ++i)  // the last of equal magnitudes wins
      if (magnitude(a[i + i * lda]) >= magnitude(a[best + best * lda])) best = i;
    if (best != k) interchange(n, a, lda, k, best);
    pivot[k] = best + 1;
    T& d = a[k + k * lda];
    if (magnitude(d) <= threshold) {
      d = d < T(0) ? -replacement(stats) : replacement(stats);
      ++stats.perturbed;
    }
    count_one(d, true, stats);
    eliminate_one(n, a, lda, k);
  }
}

}  // namespace vlm::VELMORA_ISA
