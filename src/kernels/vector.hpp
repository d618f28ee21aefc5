// SPDX-License-Identifier: BSD-3-Clause
/// Panel times vector: the kernels of a solve with one right-hand side.  They are bound by
/// the reading of the panel, so each pass takes several columns.
#pragma once

#include <cstdint>

#include "kernels/gemm.hpp"
#include "kernels/scalar.hpp"

namespace vlm::VELMORA_ISA {

/// Asks for what a sweep reads later, so many columns of a panel on and a page at least: short columns
/// end before the processor has foreseen them.  Panels lie one behind the other in the order of the
/// sweeps, so that the beginning of the next one is met, too.
struct AheadInMemory {
  std::intptr_t bytes;  ///< from what is read now; negative on the way back

  AheadInMemory(int columns, std::intptr_t column_bytes, int direction) {
    constexpr std::intptr_t page = 4096;
    const std::intptr_t way = columns * column_bytes;
    bytes = direction * (way > page ? way : page);
  }
  /// No pointer is formed: the place may lie outside the factor.
  void fetch(const void* at) const {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::intptr_t>(at) + bytes),
                       0, 2);
  }
};

/// Dot product of complex values from the sums up to entry i, the rest taken one by one.
template <class Vector>
inline zcomplex finish_complex_dot(Vector like, Vector unlike, const double* a, const double* t,
                                   int i, int length, bool conjugate) {
  double rr = 0, ii = 0, ri = 0, ir = 0;
  for (int k = 0; k < Simd<double>::width; k += 2) {
    rr += like[k];
    ii += like[k + 1];
    ri += unlike[k];
    ir += unlike[k + 1];
  }
  for (; i < length; i += 2) {
    rr += a[i] * t[i];
    ii += a[i + 1] * t[i + 1];
    ri += a[i] * t[i + 1];
    ir += a[i + 1] * t[i];
  }
  return conjugate ? zcomplex(rr + ii, ri - ir) : zcomplex(rr - ii, ri + ir);
}

/// y(c) -= sum of op(A(:,c)) t for NC columns, which share the reading of t.  Of complex values
/// the products of like and of unlike parts gather in two vectors, whose even and odd lanes are
/// told apart at the end.
template <class T, int NC>
inline void subtract_dots(int m, const T* a, long lda, bool conjugate, const T* t, T* y,
                          int direction) {
  using R = typename Kind<T>::Real;
  using S = Simd<R>;
  constexpr int parts = Kind<T>::parts;
  const long ld = lda * parts;
  const int length = m * parts;
  const R* ar = reinterpret_cast<const R*>(a);
  const R* tr = reinterpret_cast<const R*>(t);
  typename S::Vector like[NC] = {}, unlike[NC] = {};
  const AheadInMemory ahead(NC, ld * static_cast<std::intptr_t>(sizeof(R)), direction);
  int i = 0;
  for (; i + S::width <= length; i += S::width) {
    const typename S::Vector tv = S::load(tr + i);
    for (int c = 0; c < NC; ++c) ahead.fetch(ar + i + c * ld);
    for (int c = 0; c < NC; ++c) like[c] += S::load(ar + i + c * ld) * tv;
    if constexpr (parts == 2) {
      const typename S::Vector exchanged = S::exchange_pairs(tv);
      for (int c = 0; c < NC; ++c) unlike[c] += S::load(ar + i + c * ld) * exchanged;
    }
  }
  for (int c = 0; c < NC; ++c) {
    if constexpr (parts == 1)
      y[c] -= finish_dot<T, S::width>(like[c], a + c * lda, t, i, m);
    else
      y[c] -= finish_complex_dot(like[c], unlike[c], ar + c * ld, tr, i, length, conjugate);
  }
}

/// From the last column to the first, as a backward sweep goes through the factor.
template <class T>
void multiply_transposed(int m, int n, const T* a, int lda_int, bool conjugate, const T* t, T* y) {
  const long lda = lda_int;
  int j = n;
  const auto columns = [&]<int count> {
    j -= count;
    subtract_dots<T, count>(m, a + j * lda, lda, conjugate, t, y + j, -1);
  };
  while (j >= 4) columns.template operator()<4>();
  if (j >= 2) columns.template operator()<2>();
  if (j == 1) columns.template operator()<1>();
}

/// x -= A f for rows i to m of NC real columns, with ever narrower vectors.
template <class T, int NC, int width>
inline void subtract_real_columns(int i, int m, const T* a, long lda, const T* f, T* x) {
  using L = Lanes<T, width>;
  const AheadInMemory ahead(NC, lda * static_cast<std::intptr_t>(sizeof(T)), 1);
  for (; i + width <= m; i += width) {
    auto v = L::load(x + i);
    for (int c = 0; c < NC; ++c) {
      ahead.fetch(a + i + c * lda);
      v -= L::load(a + i + c * lda) * f[c];
    }
    L::store(x + i, v);
  }
  if constexpr (width > 2) {
    if (i < m) subtract_real_columns<T, NC, width / 2>(i, m, a, lda, f, x);
  } else if (i < m) {
    for (int c = 0; c < NC; ++c) x[i] -= a[i + c * lda] * f[c];
  }
}

/// x -= op(A) f for m rows and NC columns.  Of complex values each entry meets both parts of f,
/// and one exchange of the sums' lanes brings the products to their places.
template <class T, int NC>
inline void subtract_columns(int m, const T* a, long lda, bool conjugate, const T* f, T* x) {
  int i = 0;
  if constexpr (Kind<T>::parts == 2) {
    using S = Simd<typename Kind<T>::Real>;
    typename S::Vector fr[NC], fi[NC], real_sign = S::fill(1), imaginary_sign = S::fill(1);
    for (int k = 0; k < S::width; k += 2) {
      if (conjugate)
        real_sign[k + 1] = -1;
      else
        imaginary_sign[k] = -1;
    }
    for (int c = 0; c < NC; ++c) {
      fr[c] = S::fill(f[c].real());
      fi[c] = S::fill(f[c].imag());
    }
    const AheadInMemory ahead(NC, lda * static_cast<std::intptr_t>(sizeof(T)), 1);
    const auto* ar = reinterpret_cast<const typename Kind<T>::Real*>(a);
    auto* xr = reinterpret_cast<typename Kind<T>::Real*>(x);
    for (; 2 * i + S::width <= 2 * m; i += S::width / 2) {
      typename S::Vector by_real = {}, by_imaginary = {};
      for (int c = 0; c < NC; ++c) {
        ahead.fetch(ar + 2 * (i + c * lda));
        const typename S::Vector v = S::load(ar + 2 * (i + c * lda));
        by_real += v * fr[c];
        by_imaginary += v * fi[c];
      }
      S::store(xr + 2 * i, S::load(xr + 2 * i) - by_real * real_sign -
                               S::exchange_pairs(by_imaginary) * imaginary_sign);
    }
  }
  if constexpr (Kind<T>::parts == 1) {
    subtract_real_columns<T, NC, Simd<T>::width>(0, m, a, lda, f, x);
  } else {
    for (; i < m; ++i) {
      T v = x[i];
      for (int c = 0; c < NC; ++c) v -= conjugated_if(a[i + c * lda], conjugate) * f[c];
      x[i] = v;
    }
  }
}

template <class T>
void subtract_product(int m, int n, const T* a, int lda, const T* x, T* t) {
  const std::ptrdiff_t ld = lda;
  int j = 0;
  for (; j + 4 <= n; j += 4) subtract_columns<T, 4>(m, a + j * ld, ld, false, x + j, t);
  for (; j < n; ++j) subtract_columns<T, 1>(m, a + j * ld, ld, false, x + j, t);
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
  subtract_columns<T, NC>(s.rows - j0 - NC, l + NC, ld, s.conjugate, f, x + NC);
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
    subtract_dots<T, 1>(j, lj, 0, s.conjugate, s.x, s.x + j, 1);
    if (!s.unit) s.x[j] /= conjugated_if(lj[j], s.conjugate);
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
      subtract_dots<T, 1>(s.rows - end, l + end, ld, s.conjugate, x + end, x + end - 1, -1);
      if (!s.unit) x[end - 1] /= conjugated_if(l[end - 1], s.conjugate);
    }
    for (; end > 0; end -= 4) {  // four columns share the rows below their triangle
      const int j0 = end - 4;
      const T* l = s.l + j0 * ld;
      subtract_dots<T, 4>(s.rows - end, l + end, ld, s.conjugate, x + end, x + j0, -1);
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

/// Largest magnitude of real values, in vectors.
template <class R>
inline R largest_real(long n, const R* x) {
  using S = Simd<R>;
  typename S::Vector most = {};
  long i = 0;
  for (; i + S::width <= n; i += S::width) {
    const auto v = S::load(x + i);
    const auto size = v < S::fill(0) ? -v : v;
    most = size > most ? size : most;
  }
  R out = 0;
  for (int k = 0; k < S::width; ++k) out = most[k] > out ? most[k] : out;
  for (; i < n; ++i) out = magnitude(x[i]) > out ? magnitude(x[i]) : out;
  return out;
}

template <class T>
double largest(std::ptrdiff_t n, const T* x) {
  using R = typename Kind<T>::Real;
  return static_cast<double>(largest_real(n * Kind<T>::parts, reinterpret_cast<const R*>(x)));
}

}  // namespace vlm::VELMORA_ISA
