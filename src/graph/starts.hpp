// SPDX-License-Identifier: BSD-3-Clause
/// Starts of lists in one array, from their lengths.
#pragma once

#include <cstdint>
#include <limits>

#include "base/view.hpp"

namespace vlm {

/// Turns the length of list k, which stands at place k + 1, into the start of list k at place k,
/// from 1; the place behind the last list holds its end.
/// @param starts  in and out; the first place is 0 on entry  [lists + 1]
/// @return false when a start does not fit 32 bits
inline bool counts_to_starts(View<int> starts) {
  std::int64_t next = 1;
  for (int& start : starts) {
    next += start;
    if (next >= std::numeric_limits<int>::max()) return false;
    start = static_cast<int>(next);
  }
  return true;
}

}  // namespace vlm
