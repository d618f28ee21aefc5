// SPDX-License-Identifier: BSD-3-Clause
/// A set of positions that gives them up in ascending order: bits, and over each word of them a bit
/// that tells whether it has any, up to a single word.
#pragma once

#include <bit>
#include <cstdint>

#include "base/memory.hpp"

namespace vlm::norv {

class PositionSet {
 public:
  /// @param n  positions are 0 to n-1
  explicit PositionSet(int n) {
    std::size_t total = 0, starts[most_levels];
    for (std::size_t bits = n > 0 ? static_cast<std::size_t>(n) : 1;; bits = (bits + 63) / 64) {
      starts[levels_++] = total;
      total += (bits + 63) / 64;
      if (bits <= 64) break;
    }
    words_.assign(total, 0);
    for (int l = 0; l < levels_; ++l) level_[l] = words_.data() + starts[l];
  }
  PositionSet(const PositionSet&) = delete;
  PositionSet& operator=(const PositionSet&) = delete;

  bool empty() const { return *level_[levels_ - 1] == 0; }
  void insert(int position) {
    auto at = static_cast<std::uint32_t>(position);
    for (int l = 0; l < levels_; ++l) {
      std::uint64_t& word = level_[l][at / 64];
      const bool known = word != 0;
      word |= std::uint64_t{1} << at % 64;
      if (known) return;
      at /= 64;
    }
  }
  /// Takes the lowest one out; the set must have one.
  int take_first() {
    std::uint32_t at = 0;
    for (int l = levels_; l-- > 0;)
      at = at * 64 + static_cast<std::uint32_t>(std::countr_zero(level_[l][at]));
    const int first = static_cast<int>(at);
    for (int l = 0; l < levels_; ++l) {
      std::uint64_t& word = level_[l][at / 64];
      word &= word - 1;  // its lowest bit
      if (word != 0) break;
      at /= 64;
    }
    return first;
  }

 private:
  static constexpr int most_levels = 6;  // 64^6 > 2^31
  int levels_ = 0;
  std::uint64_t* level_[most_levels];
  Vector<std::uint64_t> words_;
};

}  // namespace vlm::norv
