// SPDX-License-Identifier: BSD-3-Clause
/// Scalar operations that differ between real and complex kinds.
#pragma once

#include "kernels/kernels.hpp"

namespace vlm::VELMORA_ISA {

inline double magnitude(double x) { return __builtin_fabs(x); }
inline float magnitude(float x) { return __builtin_fabsf(x); }
/// Sum of the parts' magnitudes: orders complex pivots as well as the modulus, without a root.
inline double magnitude(zcomplex x) { return __builtin_fabs(x.real()) + __builtin_fabs(x.imag()); }

inline double modulus(double x) { return __builtin_fabs(x); }
inline double modulus(float x) { return __builtin_fabs(static_cast<double>(x)); }
inline double modulus(zcomplex x) { return __builtin_hypot(x.real(), x.imag()); }

inline double real_part(double x) { return x; }
inline float real_part(float x) { return x; }
inline double real_part(zcomplex x) { return x.real(); }

inline double square_root(double x) { return __builtin_sqrt(x); }
inline float square_root(float x) { return __builtin_sqrtf(x); }

inline double conjugated(double x) { return x; }
inline float conjugated(float x) { return x; }
inline zcomplex conjugated(zcomplex x) { return {x.real(), -x.imag()}; }

/// Conjugate of a complex value where the flag asks for it.
template <class T>
inline T conjugated_if(T x, bool flag) {
  return flag ? conjugated(x) : x;
}

template <class T>
inline void swap_values(T& x, T& y) {
  const T t = x;
  x = y;
  y = t;
}

/// Replacement of a small pivot: the threshold, or `fallback` when there is none, in the
/// direction of the pivot's (real) sign.
template <class T>
inline T replacement(T pivot, double eps, double fallback) {
  const T r = T(eps == 0 ? fallback : eps);
  return real_part(pivot) < 0 ? -r : r;
}

}  // namespace vlm::VELMORA_ISA
