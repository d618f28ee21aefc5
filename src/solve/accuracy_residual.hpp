// SPDX-License-Identifier: BSD-3-Clause
/// Residuals in extended precision, from which a solve tells the error of a solution.
///
/// b - A x with products and sums in long double, as in Wilkinson's refinement (Rounding Errors in
/// Algebraic Processes, 1963): what remains of a nearly exact solution is the residual itself and
/// not the rounding errors of its terms.  One entry of A after the other, one thread; as accurate
/// as the platform's long double, extended_roundoff.
#pragma once

#include <complex>
#include <cstddef>
#include <limits>

#include "base/amuxy.hpp"
#include "base/scalar.hpp"

namespace vlm {

inline constexpr double extended_roundoff =
    static_cast<double>(std::numeric_limits<long double>::epsilon() / 2);

template <class T>
using Extended = std::conditional_t<is_complex_v<T>, std::complex<long double>, long double>;

/// The residual of one right-hand side, divided by `unit` before it is rounded to double, so that
/// its entries are within range whatever the units of the system.
/// @param sum  room for n sums                                   [n]
/// @param r    (b - A x) / unit                                  [n], out
/// @return unit, a power of two; 1 for a residual 0 or without a size
template <class T>
double extended_residual(const SparseProduct& product, const T* x, const T* b, Extended<T>* sum,
                         T* r);

}  // namespace vlm
