// SPDX-License-Identifier: BSD-3-Clause
/// Products with an abstract operator: the allocation and the checks around its gemv.
#include "NORV/corelib/vec_common.hpp"

namespace {

/// op or its transpose times x, plus y where it is added to; y is made when null.
vec* apply(vec* y, const linop* op, bool transposed, const vec* x, bool added) {
  NORV_ASSERT(op != 0);
  NORV_ASSERT(op->tag == NORV_LINOP_TAG);
  vlm::require(x);
  const int m = transposed ? op->n : op->m, n = transposed ? op->m : op->n;
  NORV_ASSERT_TEXT(static_cast<unsigned>(n) == x->n, "linop->n == x->n");
  const linop_gemv_fn gemv = transposed ? op->gemv_trans : op->gemv;
  NORV_ASSERT(gemv != 0);
  const auto length = static_cast<unsigned>(m);
  if (y == nullptr) y = x->is_complex ? vec_new_zero_cpx(length) : vec_new_zero(length);
  NORV_ASSERT(y != x);
  NORV_ASSERT_TEXT(y->n == length, "linop->m == y->n");
  gemv(1.0, added ? 1.0 : 0.0, op->data, x, y);
  return y;
}

}  // namespace

vec* linop_vecmul(vec* y, const linop* op, const vec* x) { return apply(y, op, false, x, false); }

vec* linop_vecmul_trans(vec* y, const linop* op, const vec* x) {
  return apply(y, op, true, x, false);
}

vec* linop_vecaddmul(vec* y, const linop* op, const vec* x) { return apply(y, op, false, x, true); }

vec* linop_vecaddmul_trans(vec* y, const linop* op, const vec* x) {
  return apply(y, op, true, x, true);
}

vec* linop_calc_residual(vec* r, const linop* op, const vec* x, const vec* b) {
  NORV_ASSERT_TEXT(op != 0, "linop != 0");
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT_TEXT(static_cast<unsigned>(op->m) == x->n, "linop->m == x->n");
  NORV_ASSERT_TEXT(static_cast<unsigned>(op->m) == b->n, "linop->m == b->n");
  r = vec_copy(r, b);
  op->gemv(-1.0, 1.0, op->data, x, r);
  return r;
}
