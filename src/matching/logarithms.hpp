// SPDX-License-Identifier: BSD-3-Clause
/// Natural logarithms of whole arrays.
///
/// The loop has no branches, so that compilers turn it into short vectors.  With x = 2^e m, m
/// between sqrt(1/2) and sqrt(2), and s = (m - 1) / (m + 1), log m = 2 s (1 + s^2/3 + s^4/5 + ...);
/// s^2 is below 0.03, and the terms up to s^20 leave less than a rounding.
#pragma once

#include <cstddef>

namespace vlm {

/// Replaces positive finite numbers, denormal ones among them, by their logarithms; 1 by 0.  The
/// result of a number does not depend on what stands beside it.  Errors are at most 2 units in the last place.
/// @param x  [n], in and out
void take_logarithms(double* x, std::size_t n);

}  // namespace vlm
