// SPDX-License-Identifier: BSD-3-Clause
/// Real and complex values in arrays of doubles, and their products by the plain formula.  The
/// operator of std::complex repairs infinite parts of products with NaN by a call, which keeps
/// loops from being vectorized.
#pragma once

#include "base/scalar.hpp"

namespace vlm {

/// The values of an array of doubles as T: one double or two adjacent ones each.
template <class T>
T* values_as(double* a) {
  return reinterpret_cast<T*>(a);
}
template <class T>
const T* values_as(const double* a) {
  return reinterpret_cast<const T*>(a);
}

inline double product(double a, double b) { return a * b; }
inline zcomplex product(double a, const zcomplex& b) { return {a * b.real(), a * b.imag()}; }
inline zcomplex product(const zcomplex& a, double b) { return {a.real() * b, a.imag() * b}; }
inline zcomplex product(const zcomplex& a, const zcomplex& b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}

/// s += a b.
template <class T>
inline void add_product(T& s, const T& a, const T& b) {
  s += product(a, b);
}

}  // namespace vlm
