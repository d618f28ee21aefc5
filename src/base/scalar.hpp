// SPDX-License-Identifier: BSD-3-Clause
/// The scalar kinds, and how the caller's doubles hold them: complex values are two of them.
#pragma once

#include <complex>

namespace vlm {

using zcomplex = std::complex<double>;
using ccomplex = std::complex<float>;

template <class T>
inline constexpr bool is_complex_v = false;
template <class R>
inline constexpr bool is_complex_v<std::complex<R>> = true;

/// Conjugate of a value where the flag asks for it.
template <bool conjugate, class T>
inline T maybe_conj(T x) {
  if constexpr (conjugate && is_complex_v<T>)
    return std::conj(x);
  else
    return x;
}

}  // namespace vlm
