/// Triangular kernels: solve from the right, and Cholesky of a diagonal block.
///
/// Both work in strips of a few columns; what lies before a strip is applied by the update
/// kernel, so that all but the strips themselves runs in register tiles.
#pragma once

#include "gemm.hpp"

namespace vlm::VELMORA_ISA {

inline constexpr int strip = 8;

inline double magnitude(double x) { return __builtin_fabs(x); }
inline float magnitude(float x) { return __builtin_fabsf(x); }
inline double square_root(double x) { return __builtin_sqrt(x); }
inline float square_root(float x) { return __builtin_sqrtf(x); }

/// X(:,0..w) := X(:,0..w) op(L)^-1 for one strip.
template <class T>
inline void solve_strip(int m, int w, const T* l, long ldl, bool unit, bool transposed, T* x,
                        long ldx) {
  for (int c = 0; c < w; ++c) {
    const int j = transposed ? c : w - 1 - c;
    T* xj = x + j * ldx;
    for (int d = 0; d < c; ++d) {
      const int k = transposed ? d : w - 1 - d;
      const T f = transposed ? l[j + k * ldl] : l[k + j * ldl];
      const T* xk = x + k * ldx;
      for (int i = 0; i < m; ++i) xj[i] -= f * xk[i];
    }
    if (unit) continue;
    const T r = T(1) / l[j + j * ldl];
    for (int i = 0; i < m; ++i) xj[i] *= r;
  }
}

/// Rows of X small enough to stay in cache through all strips.
template <class T>
inline void solve_rows(const RightSolve<T>& s, T* x, int m) {
  const bool transposed = s.op == RightSolve<T>::Op::transposed;
  const int strips = (s.n + strip - 1) / strip;
  for (int number = 0; number < strips; ++number) {
    const int j = (transposed ? number : strips - 1 - number) * strip;
    const int w = s.n - j < strip ? s.n - j : strip;
    T* xj = x + static_cast<long>(j) * s.ldx;
    PanelUpdate<T> u;
    u.m = m;
    u.q = w;
    u.lda = u.ldc = s.ldx;
    u.c = xj;
    if (transposed) {  // columns before the strip are final
      u.k = j;
      u.a = x;
      u.b = s.l + j;
      u.b_row = 1;
      u.b_col = s.ldl;
    } else {           // columns behind the strip are final
      u.k = s.n - j - w;
      u.a = x + static_cast<long>(j + w) * s.ldx;
      u.b = s.l + (j + w) + static_cast<long>(j) * s.ldl;
      u.b_row = s.ldl;
      u.b_col = 1;
    }
    if (u.k > 0) update(u);
    solve_strip(m, w, s.l + j + static_cast<long>(j) * s.ldl, s.ldl, s.unit, transposed, xj,
                s.ldx);
  }
}

template <class T>
void solve_right(const RightSolve<T>& s) {
  constexpr int rows = 4 * tile_vectors * Simd<T>::width;
  for (int i = 0; i < s.m; i += rows) solve_rows(s, s.x + i, s.m - i < rows ? s.m - i : rows);
}

/// Unblocked Cholesky of one strip's diagonal block.
template <class T>
inline int cholesky_strip(int n, T* a, long lda) {
  for (int j = 0; j < n; ++j) {
    T d = a[j + j * lda];
    for (int k = 0; k < j; ++k) d -= a[j + k * lda] * a[j + k * lda];
    if (!(d > T(0))) return j + 1;
    d = square_root(d);
    a[j + j * lda] = d;
    const T r = T(1) / d;
    for (int i = j + 1; i < n; ++i) {
      T x = a[i + j * lda];
      for (int k = 0; k < j; ++k) x -= a[i + k * lda] * a[j + k * lda];
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
      update(u);
    }
    if (const int info = cholesky_strip(w, corner, lda); info != 0) return j + info;
    if (j + w < n) solve_strip(n - j - w, w, corner, lda, false, true, corner + w, lda);
  }
  return 0;
}

}  // namespace vlm::VELMORA_ISA
