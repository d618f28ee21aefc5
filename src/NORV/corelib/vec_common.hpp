// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the vec family share: checks, the dst convention, typed access.
#pragma once

#include <omp.h>

#include "NORV/corelib/base.hpp"
#include "base/thread_guard.hpp"
#include "base/vector_primitives.hpp"

namespace vlm {

/// Traps a null or damaged record.
inline void require(const vec* v) {
  NORV_ASSERT(v != 0);
  NORV_ASSERT(v->is_complex == 0 || v->is_complex == 1);
}

/// Doubles that the values of a vector take.
inline std::uint64_t doubles(const vec* x) { return x->n * doubles_per_value(x->is_complex); }

/// dst, whose shape must fit, or a new vector when it is null.
inline vec* destination(vec* dst, unsigned n, int is_complex) {
  if (!dst) return is_complex ? vec_new_cpx(n) : vec_new(n);
  NORV_ASSERT(dst->n == n);
  NORV_ASSERT(dst->is_complex == is_complex);
  return dst;
}

/// Threads for a loop over so many values: the caller's, where the vector is long, and one inside
/// of a parallel region.
inline int loop_threads(std::size_t count) {
  constexpr std::size_t worth_a_team = 100000;
  return count < worth_a_team || omp_in_parallel() ? 1 : count_threads();
}

/// The sum of part(first, last) over a cut of 0..count-1 into one piece a thread, in the order of
/// the threads, so that it depends on their number only.
template <class Part>
auto sum_of_parts(std::size_t count, const Part& part) {
  return sum_over_team(loop_threads(count), [&](int thread, int team) {
    const auto bound = [&](int t) {
      return count * static_cast<std::size_t>(t) / static_cast<std::size_t>(team);
    };
    return part(bound(thread), bound(thread + 1));
  });
}

/// The same without a sum.
template <class Part>
void for_parts(std::size_t count, const Part& part) {
  sum_of_parts(count, [&](std::size_t first, std::size_t last) {
    part(first, last);
    return 0.0;
  });
}

template <class T>
T* values(vec* x) {
  return values_as<T>(x->v);
}
template <class T>
const T* values(const vec* x) {
  return values_as<T>(x->v);
}

}  // namespace vlm
