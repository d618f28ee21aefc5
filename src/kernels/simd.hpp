// SPDX-License-Identifier: BSD-3-Clause
/// Short vectors of the instruction set that this translation unit is compiled for.
///
/// Only compiler vector types and plain loops: a unit compiled for a wide instruction set
/// must not emit copies of library templates that the linker might prefer elsewhere.
#pragma once

#if defined(__AVX512F__)
#include <immintrin.h>
#endif

namespace vlm::VELMORA_ISA {

#if defined(__AVX512F__)
inline constexpr int vector_bytes = 64, tile_vectors = 3, tile_columns = 8;
#elif defined(__AVX2__)
inline constexpr int vector_bytes = 32, tile_vectors = 3, tile_columns = 4;
#else
inline constexpr int vector_bytes = 16, tile_vectors = 2, tile_columns = 4;
#endif

/// Vector of `width` values, for the ends of loops that a full one overshoots.
template <class T, int width>
struct Lanes {
  typedef T Vector __attribute__((vector_size(width * sizeof(T))));
  static inline Vector load(const T* p) {
    Vector v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
  }
  static inline void store(T* p, Vector v) { __builtin_memcpy(p, &v, sizeof v); }
  /// Sum of the two halves.
  static inline auto fold(Vector v) {
    typename Lanes<T, width / 2>::Vector low, high;
    __builtin_memcpy(&low, &v, sizeof low);
    __builtin_memcpy(&high, reinterpret_cast<const char*>(&v) + sizeof low, sizeof high);
    return low + high;
  }
};

/// to(0..count) -= from(0..count), with ever narrower vectors.
template <class T, int width>
inline void subtract_by_halves(T* to, const T* from, int count) {
  using L = Lanes<T, width>;
  for (; count >= width; count -= width, to += width, from += width)
    L::store(to, L::load(to) - L::load(from));
  if constexpr (width > 2) {
    if (count > 0) subtract_by_halves<T, width / 2>(to, from, count);
  } else {
    if (count > 0) *to -= *from;
  }
}

template <class T>
struct Simd {
  static constexpr int width = vector_bytes / static_cast<int>(sizeof(T));
  typedef T Vector __attribute__((vector_size(vector_bytes)));
  static constexpr bool masked = vector_bytes == 64;  ///< any part of a vector is one access

  static inline Vector load(const T* p) {
    Vector v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
  }
  static inline void store(T* p, Vector v) { __builtin_memcpy(p, &v, sizeof v); }
  /// All lanes x.  The subtraction of zero changes no value and is left out by the compiler, which
  /// an addition, turning -0 into 0, isn't.
  static inline Vector fill(T x) { return x - Vector{}; }
  /// a0, b0, a1, b1, ...: the first half of both, and the second.
  static inline Vector low_pairs(Vector a, Vector b) {
    Vector w;
    for (int i = 0; i < width; ++i) w[i] = i % 2 == 0 ? a[i / 2] : b[i / 2];
    return w;
  }
  static inline Vector high_pairs(Vector a, Vector b) {
    Vector w;
    for (int i = 0; i < width; ++i) w[i] = i % 2 == 0 ? a[(width + i) / 2] : b[(width + i) / 2];
    return w;
  }
#if defined(__AVX512F__)
  /// Lanes from.. of memory at p lose those of v; other lanes aren't touched.
  static inline void subtract(T* p, Vector v, int from, int count) {
    if constexpr (sizeof(T) == 8) {
      const auto some = static_cast<__mmask8>((0xffu >> (8 - count)) << from);
      _mm512_mask_storeu_pd(p, some, _mm512_sub_pd(_mm512_maskz_loadu_pd(some, p), v));
    } else {
      const auto some = static_cast<__mmask16>((0xffffu >> (16 - count)) << from);
      _mm512_mask_storeu_ps(p, some, _mm512_sub_ps(_mm512_maskz_loadu_ps(some, p), v));
    }
  }
#endif
  /// Adjacent lanes exchanged: real and imaginary parts where complex values lie in pairs.
  static inline Vector exchange_pairs(Vector v) {
    Vector w;
    for (int i = 0; i < width; ++i) w[i] = v[i ^ 1];
    return w;
  }
};

/// Sum of x(i) y(i) from i on, given the partial sums; halves the width as the end comes near.
template <class T, int width>
inline T finish_dot(typename Lanes<T, width>::Vector sum, const T* x, const T* y, int i, int m) {
  using L = Lanes<T, width>;
  for (; i + width <= m; i += width) sum += L::load(x + i) * L::load(y + i);
  if constexpr (width > 2) {
    return finish_dot<T, width / 2>(L::fold(sum), x, y, i, m);
  } else {
    T s = sum[0] + sum[1];
    if (i < m) s += x[i] * y[i];
    return s;
  }
}

}  // namespace vlm::VELMORA_ISA
