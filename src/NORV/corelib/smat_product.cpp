// SPDX-License-Identifier: BSD-3-Clause
/// Products of a sparse matrix and a vector, and the residual.
///
/// A product reads ia, ja and a once and runs at the speed of memory; large ones use as many
/// threads as OpenMP offers.

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"
#include "base/sparse_product.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

using sparse::Access;

/// Columns rise in a row, so the diagonal entry of a triangle leads.
constexpr sparse::Format format{.base = 0, .diagonal = sparse::Diagonal::leading, .several = false};

/// y := alpha op(A) x + beta y on records whose sizes agree.
void multiply(const smat* A, bool transposed, double alpha, const vec* x, double beta, vec* y) {
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const Rows<T> R = rows<T>(A);
    const sparse::Rows<format, int, T> stored{R.m, R.n, R.ia, R.ja, R.a};
    T* const values = values_as<T>(y->v);
    const sparse::Operands<T> op{
        .alpha = alpha, .x = values_as<T>(x->v), .beta = beta, .z = values, .y = values};
    if (A->sym)
      sparse::multiply<Access::triangle>(stored, op);
    else if (transposed)
      sparse::multiply<Access::columns>(stored, op);
    else
      sparse::multiply<Access::rows>(stored, op);
  });
}

/// The checks of y = op(A) x for an op(A) of m rows and n columns, and y when there is none yet,
/// zero where it is added to.
vec* product_result(vec* y, const smat* A, bool transposed, const vec* x) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  const unsigned m = transposed ? A->n : A->m;
  if (transposed)
    NORV_ASSERT(A->m == x->n);
  else
    NORV_ASSERT(A->n == x->n);
  NORV_ASSERT(A->is_complex == x->is_complex);
  if (!y) return A->is_complex ? vec_new_zero_cpx(m) : vec_new_zero(m);
  NORV_ASSERT(y != x);
  NORV_ASSERT_TEXT(m == y->n, transposed ? "A->n == y->n" : "A->m == y->n");
  NORV_ASSERT(A->is_complex == y->is_complex);
  return y;
}

/// op(A) x + beta y, in y or a new vector.
vec* apply(const smat* A, bool transposed, const vec* x, double beta, vec* y) {
  y = product_result(y, A, transposed, x);
  multiply(A, transposed, 1.0, x, beta, y);
  return y;
}

}  // namespace

void smat_gemv(double alpha, double beta, const void* data, const vec* x, vec* y) {
  const smat* A = static_cast<const smat*>(data);
  NORV_ASSERT(y != 0);
  multiply(A, false, alpha, x, beta, product_result(y, A, false, x));
}

void smat_gemv_trans(double alpha, double beta, const void* data, const vec* x, vec* y) {
  const smat* A = static_cast<const smat*>(data);
  NORV_ASSERT(y != 0);
  multiply(A, true, alpha, x, beta, product_result(y, A, true, x));
}

vec* smat_vecmul(vec* y, const smat* A, const vec* x) { return apply(A, false, x, 0.0, y); }

vec* smat_vecmul_trans(vec* y, const smat* A, const vec* x) { return apply(A, true, x, 0.0, y); }

vec* smat_vecaddmul(vec* y, const smat* A, const vec* x) { return apply(A, false, x, 1.0, y); }

vec* smat_vecaddmul_trans(vec* y, const smat* A, const vec* x) { return apply(A, true, x, 1.0, y); }

vec* smat_vecmul_cpx(vec* y, const smat* A, const vec* x) {
  NORV_ASSERT(A->is_complex);
  return smat_vecmul(y, A, x);
}

vec* smat_vecmul_mkl(vec* y, const smat* A, const vec* x) { return smat_vecmul(y, A, x); }

vec* smat_calc_residual(vec* r, const smat* A, const vec* x, const vec* b) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT(A->m == x->n);
  NORV_ASSERT(A->m == b->n);
  r = vec_copy(r, b);
  smat_gemv(-1.0, 1.0, A, x, r);
  return r;
}

NORVMORA_SMAT_PRODUCT(NORVMORA_ALIAS)
