// SPDX-License-Identifier: BSD-3-Clause
#include "matching/logarithms.hpp"

#include <bit>
#include <cstdint>

namespace vlm {
namespace {

// ln 2 as a sum; the first part has 32 bits, so that its product with an exponent is exact.
constexpr double ln2_high = 0x1.62e42feep-1, ln2_low = 0x1.a39ef35793c76p-33;
constexpr std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }
constexpr std::uint64_t root_half = bits_of(0x1.6a09e667f3bcdp-1);

// All choices are sums and shifts of bits: a condition would keep the loop from becoming vectors.
inline double logarithm(double x) {
  const std::uint64_t denormal = ((bits_of(x) >> 52) - 1) >> 63;  // 1 or 0
  const std::uint64_t shift = (~denormal + 1) & 54;
  const std::uint64_t bits = bits_of(x * std::bit_cast<double>((1023 + shift) << 52));
  const std::uint64_t k = (bits - root_half + (std::uint64_t{1024} << 52)) >> 52;  // e + 1024
  const double m = std::bit_cast<double>(bits - (k << 52) + (std::uint64_t{1024} << 52));
  // The last bits of a number as large as 2^52 are an integer without a conversion.
  const double e = std::bit_cast<double>((k + 2048 - shift) | bits_of(0x1p52)) - (0x1p52 + 3072);
  const double f = m - 1, s = f / (m + 1), z = s * s;
  double sum = 2.0 / 21;
  sum = sum * z + 2.0 / 19;
  sum = sum * z + 2.0 / 17;
  sum = sum * z + 2.0 / 15;
  sum = sum * z + 2.0 / 13;
  sum = sum * z + 2.0 / 11;
  sum = sum * z + 2.0 / 9;
  sum = sum * z + 2.0 / 7;
  sum = sum * z + 2.0 / 5;
  sum = sum * z + 2.0 / 3;
  // 2 s = f - s f, and f is exact
  return e * ln2_high + (f + (s * (sum * z - f) + e * ln2_low));
}

// Four numbers at a time where the processor can, without fused operations: the same
// bits as two at a time.
#if defined(__x86_64__)
__attribute__((target("avx2"))) void take_by_fours(double* x, std::size_t n) {
#pragma omp simd
  for (std::size_t k = 0; k < n; ++k) x[k] = logarithm(x[k]);
}
#endif

}  // namespace

void take_logarithms(double* x, std::size_t n) {
#if defined(__x86_64__)
  static const bool wide = __builtin_cpu_supports("avx2") != 0;
  if (wide) return take_by_fours(x, n);
#endif
#pragma omp simd
  for (std::size_t k = 0; k < n; ++k) x[k] = logarithm(x[k]);
}

}  // namespace vlm
