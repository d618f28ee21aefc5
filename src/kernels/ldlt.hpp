// SPDX-License-Identifier: BSD-3-Clause
/// LDL^T and LDL^H of a diagonal block with pivoting inside the block and perturbed small
/// pivots.
///
/// Bunch-Kaufman: Bunch and Kaufman, "Some stable methods for calculating inertia and solving
/// symmetric linear systems", 1977.  A column without an entry above the threshold gets its
/// diagonal replaced, never an error (static pivoting; Li and Demmel, 1998).  Interchanges
/// are applied to whole rows of the block, so that P A P^T = L D L^T holds with one P.
#pragma once

#include "kernels/triangle.hpp"

namespace vlm::VELMORA_ISA {

/// One diagonal block; `hermitian` decides where a mirrored element is a conjugate.
template <class T, bool hermitian>
struct SymmetricBlock {
  int n;
  T* a;
  long lda;
  BlockPivots<T>& stats;

  using Real = typename Kind<T>::Real;
  static constexpr bool has_signs = hermitian || Kind<T>::parts == 1;

  static T mirror(T x) { return hermitian ? conjugated(x) : x; }
  T* column(int j) const { return a + j * lda; }
  T& diagonal(int j) const { return a[j + j * lda]; }

  /// Symmetric interchange of p < q, rows of finished columns included.
  void interchange(int p, int q) const {
    for (int k = 0; k < p; ++k) swap_values(a[p + k * lda], a[q + k * lda]);
    swap_values(diagonal(p), diagonal(q));
    for (int k = p + 1; k < q; ++k) {
      const T x = a[k + p * lda];
      a[k + p * lda] = mirror(a[q + k * lda]);
      a[q + k * lda] = mirror(x);
    }
    a[q + p * lda] = mirror(a[q + p * lda]);
    for (int i = q + 1; i < n; ++i) swap_values(a[i + p * lda], a[i + q * lda]);
  }

  /// Drops what rounding left in the imaginary part of a Hermitian diagonal.  Kept, it would
  /// pass through 2x2 pivots into the following panels and grow from one to the next.
  void make_real(int j) const {
    if constexpr (hermitian) diagonal(j) = T(real_part(diagonal(j)));
  }

  void perturb(int k) const {
    diagonal(k) = replacement(diagonal(k), stats.eps, 1e-8);
    ++stats.perturbed;
  }

  /// Eliminates column k with the 1x1 pivot a(k,k).
  void eliminate_one(int k) const {
    const T r = T(1) / diagonal(k);
    T* ak = column(k);
    for (int j = k + 1; j < n; ++j) {
      const T f = mirror(ak[j]) * r;
      T* aj = column(j);
      for (int i = j; i < n; ++i) aj[i] -= ak[i] * f;
      make_real(j);
    }
    for (int i = k + 1; i < n; ++i) ak[i] *= r;
  }

  /// Eliminates columns k, k+1 with a 2x2 pivot.  The pivot's off-diagonal element moves above
  /// the diagonal, so that the strict lower triangle is that of the unit L.
  void eliminate_two(int k) const {
    T *a0 = column(k), *a1 = column(k + 1);
    const T d21 = a0[k + 1], d12 = mirror(d21);
    const T p = a1[k + 1] / d21, q = a0[k] / d12;  // scaled so that nothing overflows
    const T f = T(1) / (p * q - T(1));
    const T f0 = f / d12, f1 = f / d21;
    for (int j = k + 2; j < n; ++j) {
      const T w0 = f0 * (p * a0[j] - a1[j]), w1 = f1 * (q * a1[j] - a0[j]);
      const T c0 = mirror(w0), c1 = mirror(w1);
      T* aj = column(j);
      for (int i = j; i < n; ++i) aj[i] -= a0[i] * c0 + a1[i] * c1;
      make_real(j);
      a0[j] = w0;
      a1[j] = w1;
    }
    a1[k] = d21;
    a0[k + 1] = T(0);
  }

  /// @param doubtful  the pivot was replaced, so that its sign is one of rounding
  void count_one(int k, bool zero_is_negative, bool doubtful) const {
    const T d = diagonal(k);
    if (has_signs) {
      const auto x = real_part(d);
      const bool negative = x < 0 || (zero_is_negative && !(x > 0));
      ++(negative ? stats.negative : stats.positive);
      if (doubtful) {
        ++stats.doubtful;
        stats.doubtful_positive += negative ? 0 : 1;
      }
    }
    if (stats.want_logdet) stats.logdet += __builtin_log(modulus(d));
  }

  void count_two(int k) const {
    const T d21 = column(k)[k + 1];
    const T d11 = diagonal(k), d22 = diagonal(k + 1);
    const T scaled = (d22 / d21) * (d11 / mirror(d21)) - T(1);  // det / |d21|^2
    if (has_signs) {
      if (!(real_part(scaled) > 0)) {
        ++stats.positive;
        ++stats.negative;
      } else if (real_part(d11) > 0 && real_part(d22) > 0) {
        stats.positive += 2;
      } else {
        stats.negative += 2;
      }
    }
    if (stats.want_logdet)
      stats.logdet += __builtin_log(modulus(scaled)) + 2 * __builtin_log(modulus(d21));
  }
};

/// Choice of one Bunch-Kaufman step.
struct PivotChoice {
  int place = 0;  ///< row to bring to the front
  int size = 1;
  bool small = false;  ///< no entry of the column is above the threshold
};

template <class T, bool hermitian>
inline PivotChoice choose_pivot(const SymmetricBlock<T, hermitian>& b, int k) {
  using Real = typename Kind<T>::Real;
  const Real alpha = Real(0.6403882032022076);  // (1 + sqrt 17) / 8 balances both growths
  const Real threshold = Real(b.stats.eps);
  const T* ak = b.column(k);
  const Real akk = magnitude(ak[k]);
  Real colmax = 0;
  int imax = k;
  for (int i = k + 1; i < b.n; ++i)
    if (magnitude(ak[i]) > colmax) {
      colmax = magnitude(ak[i]);
      imax = i;
    }
  if (akk <= threshold && colmax <= threshold) return {k, 1, true};
  if (imax == k || akk >= alpha * colmax) return {k, 1, false};
  Real rowmax = 0;
  for (int j = k; j < imax; ++j)
    if (magnitude(b.column(j)[imax]) > rowmax) rowmax = magnitude(b.column(j)[imax]);
  for (int i = imax + 1; i < b.n; ++i)
    if (magnitude(b.column(imax)[i]) > rowmax) rowmax = magnitude(b.column(imax)[i]);
  if (akk >= alpha * colmax * (colmax / rowmax)) return {k, 1, false};
  if (magnitude(b.diagonal(imax)) >= alpha * rowmax) return {imax, 1, false};
  return {imax, 2, false};
}

template <class T, bool hermitian>
inline void bunch_kaufman(const SymmetricBlock<T, hermitian>& b, int* pivot) {
  for (int k = 0; k < b.n;) {
    const PivotChoice choice = choose_pivot(b, k);
    if (choice.small) b.perturb(k);
    const int front = k + choice.size - 1;
    if (choice.place != front) b.interchange(front, choice.place);
    if (choice.size == 1) {
      pivot[k] = choice.place + 1;
      b.count_one(k, false, choice.small);
      b.eliminate_one(k);
    } else {
      pivot[k] = pivot[k + 1] = -(choice.place + 1);
      b.count_two(k);
      b.eliminate_two(k);
    }
    k += choice.size;
  }
}

template <class T, bool hermitian>
inline void diagonal_pivoting(const SymmetricBlock<T, hermitian>& b, int* pivot) {
  for (int k = 0; k < b.n; ++k) {
    int best = k;
    for (int i = k + 1; i < b.n; ++i)  // the last of equal magnitudes wins
      if (magnitude(b.diagonal(i)) >= magnitude(b.diagonal(best))) best = i;
    if (best != k) b.interchange(k, best);
    pivot[k] = best + 1;
    const bool small = magnitude(b.diagonal(k)) <= typename Kind<T>::Real(b.stats.eps);
    if (small) b.perturb(k);
    b.count_one(k, true, small);
    b.eliminate_one(k);
  }
}

/// Runs the step with the block's symmetry.
template <class T, class Step>
inline void with_symmetry(int n, T* a, int lda, BlockPivots<T>& stats, Step step) {
  if (Kind<T>::parts == 1 || !stats.hermitian) {
    step(SymmetricBlock<T, false>{n, a, lda, stats});
    return;
  }
  const SymmetricBlock<T, true> block{n, a, lda, stats};
  for (int j = 0; j < n; ++j) block.make_real(j);
  step(block);
}

template <class T>
void ldlt(int n, T* a, int lda, int* pivot, BlockPivots<T>& stats) {
  with_symmetry(n, a, lda, stats, [&](const auto& block) { bunch_kaufman(block, pivot); });
}

template <class T>
void ldlt_diagonal(int n, T* a, int lda, int* pivot, BlockPivots<T>& stats) {
  with_symmetry(n, a, lda, stats, [&](const auto& block) { diagonal_pivoting(block, pivot); });
}

}  // namespace vlm::VELMORA_ISA
