// SPDX-License-Identifier: BSD-3-Clause
/// Scalar operations of the factorizations, real and complex under one name.
#pragma once

#include <cmath>

#include "NORV/corelib/smat_rows.hpp"
#include "base/values.hpp"

namespace vlm::norv {

using vlm::product;

inline double divide(double a, double b) { return a / b; }
inline zcomplex divide(const zcomplex& a, const zcomplex& b) { return quotient(a, b); }

/// |a|; without the detours of hypot, since entries of a scaled matrix don't overflow when squared.
inline double magnitude(double a) { return std::fabs(a); }
inline double magnitude(const zcomplex& a) {
  return std::sqrt(a.real() * a.real() + a.imag() * a.imag());
}

}  // namespace vlm::norv
