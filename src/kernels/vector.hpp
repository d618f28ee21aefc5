/// Panel times vector: the kernels of a solve with one right-hand side.  They are bound by
/// the reading of the panel, so each pass takes several columns.
#pragma once

#include "simd.hpp"

namespace vlm::VELMORA_ISA {

template <class T, int NC>
inline void add_columns(int m, const T* a, long lda, const T* x, T* t, bool first) {
  T f[NC];
  for (int c = 0; c < NC; ++c) f[c] = x[c];
  if (first) {
    for (int i = 0; i < m; ++i) {
      T s = a[i] * f[0];
      for (int c = 1; c < NC; ++c) s += a[i + c * lda] * f[c];
      t[i] = s;
    }
  } else {
    for (int i = 0; i < m; ++i) {
      T s = t[i];
      for (int c = 0; c < NC; ++c) s += a[i + c * lda] * f[c];
      t[i] = s;
    }
  }
}

template <class T>
void multiply(int m, int n, const T* a, int lda_int, const T* x, T* __restrict t) {
  const long lda = lda_int;
  int j = 0;
  for (; j + 4 <= n; j += 4) add_columns<T, 4>(m, a + j * lda, lda, x + j, t, j == 0);
  if (j + 2 <= n) {
    add_columns<T, 2>(m, a + j * lda, lda, x + j, t, j == 0);
    j += 2;
  }
  if (j < n) add_columns<T, 1>(m, a + j * lda, lda, x + j, t, j == 0);
}

template <class T, int NC>
inline void dot_columns(int m, const T* a, long lda, const T* t, T* y) {
  using S = Simd<T>;
  typename S::Vector acc[NC] = {};
  int i = 0;
  for (; i + S::width <= m; i += S::width) {
    const typename S::Vector tv = S::load(t + i);
    for (int c = 0; c < NC; ++c) acc[c] += S::load(a + i + c * lda) * tv;
  }
  for (int c = 0; c < NC; ++c) {
    T s = T(0);
    for (int v = 0; v < S::width; ++v) s += acc[c][v];
    for (int r = i; r < m; ++r) s += a[r + c * lda] * t[r];
    y[c] -= s;
  }
}

template <class T>
void multiply_transposed(int m, int n, const T* a, int lda_int, const T* t, T* y) {
  const long lda = lda_int;
  int j = 0;
  for (; j + 4 <= n; j += 4) dot_columns<T, 4>(m, a + j * lda, lda, t, y + j);
  if (j + 2 <= n) {
    dot_columns<T, 2>(m, a + j * lda, lda, t, y + j);
    j += 2;
  }
  if (j < n) dot_columns<T, 1>(m, a + j * lda, lda, t, y + j);
}

/// x := L^-1 x for a lower triangle.
template <class T>
void solve_lower(int n, const T* l, int ldl_int, bool unit, T* x) {
  const long ldl = ldl_int;
  for (int j = 0; j < n; ++j) {
    const T* lj = l + j * ldl;
    if (!unit) x[j] /= lj[j];
    const T f = x[j];
    for (int i = j + 1; i < n; ++i) x[i] -= lj[i] * f;
  }
}

/// x := L^-T x for a lower triangle.
template <class T>
void solve_lower_transposed(int n, const T* l, int ldl_int, bool unit, T* x) {
  const long ldl = ldl_int;
  for (int j = n - 1; j >= 0; --j) {
    const T* lj = l + j * ldl;
    if (j + 1 < n) dot_columns<T, 1>(n - j - 1, lj + j + 1, ldl, x + j + 1, x + j);
    if (!unit) x[j] /= lj[j];
  }
}

}  // namespace vlm::VELMORA_ISA
