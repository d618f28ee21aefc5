// SPDX-License-Identifier: BSD-3-Clause
/// Triangular kernels: solve from the right, and Cholesky of a diagonal block.
///
/// Both work in strips of a few columns; what lies before a strip is applied by the update
/// kernel, so that all but the strips themselves runs in register tiles.
#pragma once

#include "kernels/gemm.hpp"
#include "kernels/scalar.hpp"

namespace vlm::VELMORA_ISA {

inline constexpr int strip = 8;

/// A strip's own triangle.
template <class T>
struct StripTriangle {
  const T* l;
  long l_row, l_col;
  bool unit, transposed, conjugate;
  T at(int j, int k) const { return conjugated_if(l[j * l_row + k * l_col], conjugate); }
};

/// X(:,0..w) := X(:,0..w) op(L)^-1 for one strip.
template <class T>
inline void solve_strip(int m, int w, StripTriangle<T> t, T* x, long ldx) {
  for (int c = 0; c < w; ++c) {
    const int j = t.transposed ? c : w - 1 - c;
    T* xj = x + j * ldx;
    for (int d = 0; d < c; ++d) {
      const int k = t.transposed ? d : w - 1 - d;
      const T f = t.transposed ? t.at(j, k) : t.at(k, j);
      const T* xk = x + k * ldx;
      for (int i = 0; i < m; ++i) xj[i] -= f * xk[i];
    }
    if (t.unit) continue;
    const T r = T(1) / t.at(j, j);
    for (int i = 0; i < m; ++i) xj[i] *= r;
  }
}

/// Rows of X few enough to stay in cache through all strips.
template <class T>
inline void solve_rows(const RightSolve<T>& s, T* x, int m) {
  const bool transposed = s.op == RightSolve<T>::Op::transposed;
  const int strips = (s.n + strip - 1) / strip;
  const auto element = [&](int j, int k) {
    return s.l + static_cast<long>(j) * s.l_row + static_cast<long>(k) * s.l_col;
  };
  for (int number = 0; number < strips; ++number) {
    const int j = (transposed ? number : strips - 1 - number) * strip;
    const int w = s.n - j < strip ? s.n - j : strip;
    T* xj = x + static_cast<long>(j) * s.ldx;
    PanelUpdate<T> u;
    u.m = m;
    u.q = w;
    u.lda = u.ldc = s.ldx;
    u.c = xj;
    u.conjugate = s.conjugate;
    u.space = s.space;
    if (transposed) {  // columns before the strip are final
      u.k = j;
      u.a = x;
      u.b = element(j, 0);
      u.b_row = s.l_row;
      u.b_col = s.l_col;
    } else {  // columns behind the strip are final
      u.k = s.n - j - w;
      u.a = x + static_cast<long>(j + w) * s.ldx;
      u.b = element(j + w, j);
      u.b_row = s.l_col;
      u.b_col = s.l_row;
    }
    if (u.k > 0) update(u);
    solve_strip(m, w,
                StripTriangle<T>{element(j, j), s.l_row, s.l_col, s.unit, transposed, s.conjugate},
                xj, s.ldx);
  }
}

template <class T>
void solve_right(const RightSolve<T>& s) {
  constexpr int rows = 4 * Kind<T>::vectors * lanes<T>;
  for (int i = 0; i < s.m; i += rows) solve_rows(s, s.x + i, s.m - i < rows ? s.m - i : rows);
}

/// Unblocked Cholesky of one strip's diagonal block.
template <class T>
inline int cholesky_strip(int n, T* a, long lda) {
  for (int j = 0; j < n; ++j) {
    auto d = real_part(a[j + j * lda]);
    for (int k = 0; k < j; ++k) d -= real_part(a[j + k * lda] * conjugated(a[j + k * lda]));
    if (!(d > 0)) return j + 1;
    d = square_root(d);
    a[j + j * lda] = T(d);
    const auto r = 1 / d;
    for (int i = j + 1; i < n; ++i) {
      T x = a[i + j * lda];
      for (int k = 0; k < j; ++k) x -= a[i + k * lda] * conjugated(a[j + k * lda]);
      a[i + j * lda] = x * r;
    }
  }
  return 0;
}

template <class T>
int cholesky(int n, T* a, int lda) {
  for (int j = 0; j < n; j += strip) {
    const int w = n - j < strip ? n - j : strip;
    T* corner = a + j + static_cast<long>(j) * lda;
    if (j > 0) {
      PanelUpdate<T> u;
      u.m = n - j;
      u.q = w;
      u.k = j;
      u.a = u.b = a + j;
      u.lda = u.b_col = u.ldc = lda;
      u.c = corner;
      u.lower = true;
      u.conjugate = true;
      update(u);
    }
    if (const int info = cholesky_strip(w, corner, lda); info != 0) return j + info;
    if (j + w < n)
      solve_strip(n - j - w, w, StripTriangle<T>{corner, 1, lda, false, true, true}, corner + w,
                  lda);
  }
  return 0;
}

}  // namespace vlm::VELMORA_ISA
