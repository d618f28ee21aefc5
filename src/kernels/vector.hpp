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

/// Sum of op(a(i)) t(i).
template <class T>
inline T dot(int m, const T* a, bool conjugate, const T* t) {
  if constexpr (Kind<T>::parts == 1) {
    typename Lanes<T, Simd<T>::width>::Vector zero = {};
    return finish_dot<T, Simd<T>::width>(zero, a, t, 0, m);
  } else {
    T s = T(0);
    if (conjugate)
      for (int i = 0; i < m; ++i) s += conjugated(a[i]) * t[i];
    else
      for (int i = 0; i < m; ++i) s += a[i] * t[i];
    return s;
  }
}

/// y(c) -= sum of op(A(:,c)) t for NC columns, which share the reading of t.
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
    for (int c = 0; c < NC; ++c) y[c] -= finish_dot<T, S::width>(acc[c], a + c * lda, t, i, m);
  } else {
    for (int c = 0; c < NC; ++c) y[c] -= dot(m, a + c * lda, conjugate, t);
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

/// Forward step of NC columns of a trapezoid: their triangle, then all rows below at once.
template <class T, int NC>
inline void forward_columns(const TriangleSolve<T>& s, int j0) {
  const long ld = s.l_col;
  const T* l = s.l + j0 + j0 * ld;
  T* x = s.x + j0;
  T f[NC];
  for (int j = 0; j < NC; ++j) {
    T v = x[j];
    for (int k = 0; k < j; ++k) v -= conjugated_if(l[j + k * ld], s.conjugate) * f[k];
    f[j] = s.unit ? v : v / conjugated_if(l[j + j * ld], s.conjugate);
    x[j] = f[j];
  }
  const int m = s.rows - j0;
  for (int i = NC; i < m; ++i) {
    T v = x[i];
    for (int j = 0; j < NC; ++j) v -= conjugated_if(l[i + j * ld], s.conjugate) * f[j];
    x[i] = v;
  }
}

/// Forward substitution, by columns of L where they are contiguous and else by its rows.
template <class T>
void solve_lower(const TriangleSolve<T>& s) {
  if (s.l_row == 1) {
    int j = 0;
    for (; j + 4 <= s.n; j += 4) forward_columns<T, 4>(s, j);
    for (; j < s.n; ++j) forward_columns<T, 1>(s, j);
    return;
  }
  for (int j = 0; j < s.n; ++j) {
    const T* lj = s.l + static_cast<long>(j) * s.l_row;
    T v = s.x[j] - dot(j, lj, s.conjugate, s.x);
    s.x[j] = s.unit ? v : v / conjugated_if(lj[j], s.conjugate);
  }
}

/// Backward substitution with the transposed trapezoid.
template <class T>
void solve_lower_transposed(const TriangleSolve<T>& s) {
  T* x = s.x;
  if (s.l_row == 1) {
    const long ld = s.l_col;
    int end = s.n;
    for (; end % 4 != 0; --end) {
      const T* l = s.l + (end - 1) * ld;
      T v = x[end - 1] - dot(s.rows - end, l + end, s.conjugate, x + end);
      x[end - 1] = s.unit ? v : v / conjugated_if(l[end - 1], s.conjugate);
    }
    for (; end > 0; end -= 4) {  // four columns share the rows below their triangle
      const int j0 = end - 4;
      const T* l = s.l + j0 * ld;
      dot_columns<T, 4>(s.rows - end, l + end, ld, s.conjugate, x + end, x + j0);
      for (int j = 3; j >= 0; --j) {
        T v = x[j0 + j];
        for (int k = j + 1; k < 4; ++k)
          v -= conjugated_if(l[j0 + k + j * ld], s.conjugate) * x[j0 + k];
        x[j0 + j] = s.unit ? v : v / conjugated_if(l[j0 + j + j * ld], s.conjugate);
      }
    }
    return;
  }
  for (int j = s.n - 1; j >= 0; --j) {
    const T* lj = s.l + static_cast<long>(j) * s.l_row;
    if (!s.unit) x[j] /= conjugated_if(lj[j], s.conjugate);
    const T f = x[j];
    for (int i = 0; i < j; ++i) x[i] -= conjugated_if(lj[i], s.conjugate) * f;
  }
}

}  // namespace vlm::VELMORA_ISA
