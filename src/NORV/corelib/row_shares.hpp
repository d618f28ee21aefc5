// SPDX-License-Identifier: BSD-3-Clause
/// Rows of a matrix shared out among threads by their entries.
#pragma once

#include <algorithm>
#include <cstdint>

#include "base/sparse_product.hpp"
#include "base/vector_primitives.hpp"

namespace vlm::norv {

/// First row of a part of m rows, such that all parts have about as many entries; m for part
/// `parts`.
/// @param ia  row starts [m+1], the first one 0
inline int first_row(const int* ia, int m, int part, int parts) {
  if (part == parts) return m;
  return static_cast<int>(std::lower_bound(ia, ia + m, std::int64_t{ia[m]} * part / parts) - ia);
}

/// Threads for a walk over the rows that does so much work, in entries.
inline int row_threads(std::int64_t work) {
  constexpr std::int64_t worth_a_team = 50000;
  return work < worth_a_team ? 1 : sparse::threads_offered();
}

/// f(thread, first, last) for the share of rows of each thread.
template <class F>
void for_row_shares(const int* ia, int m, int nthreads, const F& f) {
  sum_over_team(nthreads, [&](int thread, int team) {
    f(thread, first_row(ia, m, thread, team), first_row(ia, m, thread + 1, team));
    return 0.0;
  });
}

}  // namespace vlm::norv
