// SPDX-License-Identifier: BSD-3-Clause
/// The scalar kinds, and how the caller's doubles hold them: complex values are two of them.
///
/// The dense kernels have their own helpers (kernels/scalar.hpp), since a unit that is compiled
/// for one instruction set must not define what others share.
#pragma once

#include <complex>
#include <cstddef>
#include <type_traits>

namespace vlm {

using zcomplex = std::complex<double>;
using ccomplex = std::complex<float>;

template <class T>
inline constexpr bool is_complex_v = false;
template <class R>
inline constexpr bool is_complex_v<std::complex<R>> = true;

/// The double-precision kind in which values of a kind enter and leave.
template <class T>
using Wide = std::conditional_t<is_complex_v<T>, zcomplex, double>;

/// Conjugate of a value where the flag asks for it.
template <bool conjugate, class T>
inline T maybe_conj(T x) {
  if constexpr (conjugate && is_complex_v<T>)
    return std::conj(x);
  else
    return x;
}

/// Value k of a caller's array of doubles, as a T.
template <class T>
inline T value_at(const double* a, std::ptrdiff_t k) {
  if constexpr (is_complex_v<T>) {
    using R = typename T::value_type;
    return T(static_cast<R>(a[2 * k]), static_cast<R>(a[2 * k + 1]));
  } else {
    return static_cast<T>(a[k]);
  }
}

/// Writes value k of a caller's array of doubles.
template <class T>
inline void put_value(double* x, std::ptrdiff_t k, T v) {
  if constexpr (is_complex_v<T>) {
    x[2 * k] = v.real();
    x[2 * k + 1] = v.imag();
  } else {
    x[k] = static_cast<double>(v);
  }
}

}  // namespace vlm
