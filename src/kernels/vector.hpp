/// Panel times vector: the kernels of a solve with one right-hand side.  They are bound by
/// the reading of the panel, so each pass takes several columns.
#pragma once

#include "gemm.hpp"
#include "scalar.hpp"

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

/// y(c) -= sum of op(A(:,c)) t for NC columns.
template <class T, int NC>
inline void dot_columns(int m, const T* a, long lda, bool conjugate, const T* t, T* y) {
  if constexpr (Kind<T>::parts == 1) {
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
  } else {
    for (int c = 0; c < NC; ++c) {
      T s = T(0);
      const T* ac = a + c * lda;
      if (conjugate)
        for (int i = 0; i < m; ++i) s += conjugated(ac[i]) * t[i];
      else
        for (int i = 0; i < m; ++i) s += ac[i] * t[i];
      y[c] -= s;
    }
  }
}

template <class T>
void multiply_transposed(int m, int n, const T* a, int lda_int, bool conjugate, const T* t, T* y) {
  const long lda = lda_int;
  int j = 0;
  for (; j + 4 <= n; j += 4) dot_columns<T, 4>(m, a + j * lda, lda, conjugate, t, y + j);
  if (j + 2 <= n) {
    dot_columns<T, 2>(m, a + j * lda, lda, conjugate, t, y + j);
    j += 2;
  }
  if (j < n) dot_columns<T, 1>(m, a + j * lda, lda, conjugate, t, y + j);
}

/// Forward substitution, by columns of L where they are contiguous and else by its rows.
template <class T>
void solve_lower(const TriangleSolve<T>& s) {
  T* x = s.x;
  for (int j = 0; j < s.n; ++j) {
    const T d = s.l[static_cast<long>(j) * s.l_row + static_cast<long>(j) * s.l_col];
    if (s.l_row == 1) {
      if (!s.unit) x[j] /= conjugated_if(d, s.conjugate);
      const T f = x[j];
      const T* lj = s.l + static_cast<long>(j) * s.l_col;
      for (int i = j + 1; i < s.n; ++i) x[i] -= conjugated_if(lj[i], s.conjugate) * f;
    } else {
      dot_columns<T, 1>(j, s.l + static_cast<long>(j) * s.l_row, 0, s.conjugate, x, x + j);
      if (!s.unit) x[j] /= conjugated_if(d, s.conjugate);
    }
  }
}

/// Backward substitution with the transposed triangle.
template <class T>
void solve_lower_transposed(const TriangleSolve<T>& s) {
  T* x = s.x;
  for (int j = s.n - 1; j >= 0; --j) {
    const T d = s.l[static_cast<long>(j) * s.l_row + static_cast<long>(j) * s.l_col];
    if (s.l_row == 1) {
      const T* lj = s.l + static_cast<long>(j) * s.l_col;
      if (j + 1 < s.n) dot_columns<T, 1>(s.n - j - 1, lj + j + 1, 0, s.conjugate, x + j + 1, x + j);
      if (!s.unit) x[j] /= conjugated_if(d, s.conjugate);
    } else {
      if (!s.unit) x[j] /= conjugated_if(d, s.conjugate);
      const T f = x[j];
      const T* lj = s.l + static_cast<long>(j) * s.l_row;
      for (int i = 0; i < j; ++i) x[i] -= conjugated_if(lj[i], s.conjugate) * f;
    }
  }
}

}  // namespace vlm::VELMORA_ISA
