// SPDX-License-Identifier: BSD-3-Clause
/// Passes over the caller's matrix, see input_scan.hpp.
#include "driver/input_scan.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

namespace vlm {
namespace {

constexpr std::uint64_t odd = 0x9e3779b97f4a7c15;  // 2^64 over the golden ratio

std::uint64_t mix(std::uint64_t state, std::uint64_t word) {
  return std::rotl(state ^ word, 31) * odd;
}

/// Eight lanes, which wait for no other, take every eighth pair of 32-bit words.  A step of a lane
/// is a bijection of its state and of its word: one changed word always shows.
std::uint64_t mix_all(std::uint64_t seed, const void* array, std::ptrdiff_t count) {
  const char* const words = static_cast<const char*>(array);
  constexpr std::ptrdiff_t lanes = 8, block = 2 * lanes;
  std::array<std::uint64_t, lanes> state;
  for (std::ptrdiff_t k = 0; k < lanes; ++k) state[k] = mix(seed, static_cast<std::uint64_t>(k));
  std::ptrdiff_t at = 0;
  for (; at + block <= count; at += block) {
    std::array<std::uint64_t, lanes> pairs;
    std::memcpy(pairs.data(), words + at * sizeof(int), sizeof pairs);
    for (std::ptrdiff_t k = 0; k < lanes; ++k) state[k] = mix(state[k], pairs[k]);
  }
  for (; at < count; ++at) {
    std::uint32_t word;
    std::memcpy(&word, words + at * sizeof word, sizeof word);
    state[0] = mix(state[0], word);
  }
  for (const std::uint64_t lane : state) seed = mix(seed, lane);
  return seed;
}

}  // namespace

std::uint64_t pattern_checksum(const InputMatrix& matrix) {
  const std::uint64_t rows = mix_all(odd, matrix.ia, std::ptrdiff_t{matrix.n} + 1);
  return mix_all(rows, matrix.ja, matrix.nnz());
}

std::uint64_t values_checksum(const InputMatrix& matrix, int nvals) {
  return mix_all(odd, matrix.a, std::ptrdiff_t{matrix.nnz()} * nvals * 2);
}

std::ptrdiff_t first_not_finite(const InputMatrix& matrix, int nvals) {
  constexpr std::uint64_t exponent = 0x7ff0000000000000, one = 0x0010000000000000;
  constexpr std::ptrdiff_t block = 1024;
  const std::ptrdiff_t count = std::ptrdiff_t{matrix.nnz()} * nvals;
  for (std::ptrdiff_t from = 0; from < count; from += block) {
    const std::ptrdiff_t end = std::min(from + block, count);
    // An exponent of ones carries into the top bit; integers, for the compiler's vectors.
    std::uint64_t carried = 0;
    for (std::ptrdiff_t k = from; k < end; ++k)
      carried |= (std::bit_cast<std::uint64_t>(matrix.a[k]) & exponent) + one;
    if (carried >> 63 == 0) continue;
    for (std::ptrdiff_t k = from; k < end; ++k)
      if (!std::isfinite(matrix.a[k])) return k / nvals + 1;
  }
  return 0;
}

}  // namespace vlm
