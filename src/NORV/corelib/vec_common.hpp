// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the vec family share: checks, the dst convention, typed access.
#pragma once

#include "NORV/corelib/base.hpp"

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

template <class T>
T* values(vec* x) {
  return values_as<T>(x->v);
}
template <class T>
const T* values(const vec* x) {
  return values_as<T>(x->v);
}

}  // namespace vlm
