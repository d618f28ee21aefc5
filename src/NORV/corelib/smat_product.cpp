// SPDX-License-Identifier: BSD-3-Clause
/// Products of a sparse matrix and a vector, and the residual.
///
/// Three kernels carry them all: by rows (each result is one dot product), by columns (each row
/// is scattered, the transpose), and symmetric (each stored entry off the diagonal acts twice).
/// A product reads ia, ja and a once and runs at the speed of memory.

#include <algorithm>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

namespace vlm::norv {

namespace {

/// Sum of a[k] x[ja[k]] over k = begin .. end-1.  Four partial sums: one alone waits for each
/// addition to finish.
inline double gather(const Rows<double>& A, int begin, int end, const double* __restrict x) {
  const int* __restrict ja = A.ja;
  const double* __restrict a = A.a;
  double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
  int k = begin;
  for (; k + 4 <= end; k += 4) {
    s0 += a[k] * x[ja[k]];
    s1 += a[k + 1] * x[ja[k + 1]];
    s2 += a[k + 2] * x[ja[k + 2]];
    s3 += a[k + 3] * x[ja[k + 3]];
  }
  for (; k < end; ++k) s0 += a[k] * x[ja[k]];
  return (s0 + s1) + (s2 + s3);
}

/// The same for complex values, which the vector unit takes as pairs: a is summed up times the
/// real and times the imaginary part of x, and the two sums are joined at the end.
inline zcomplex gather(const Rows<zcomplex>& A, int begin, int end, const zcomplex* x) {
  using Pair = double __attribute__((vector_size(16)));
  const auto pair = [](const zcomplex& z) { return Pair{z.real(), z.imag()}; };
  Pair re0{}, im0{}, re1{}, im1{};
  int k = begin;
  for (; k + 2 <= end; k += 2) {
    const zcomplex &x0 = x[A.ja[k]], &x1 = x[A.ja[k + 1]];
    re0 += pair(A.a[k]) * x0.real();
    im0 += pair(A.a[k]) * x0.imag();
    re1 += pair(A.a[k + 1]) * x1.real();
    im1 += pair(A.a[k + 1]) * x1.imag();
  }
  if (k < end) {
    re0 += pair(A.a[k]) * x[A.ja[k]].real();
    im0 += pair(A.a[k]) * x[A.ja[k]].imag();
  }
  re0 += re1;
  im0 += im1;
  return {re0[0] - im0[1], re0[1] + im0[0]};
}

/// y := beta y; a beta of 0 overwrites whatever stands there.
template <typename T>
void scale_result(int n, double beta, T* y) {
  if (beta == 0.0) {
    std::fill_n(y, n, T{});
  } else if (beta != 1.0) {
    for (int i = 0; i < n; ++i) y[i] *= beta;
  }
}

/// y := alpha A x + beta y for the stored entries.
template <typename T>
void multiply_by_rows(const Rows<T>& A, double alpha, const T* x, double beta, T* __restrict y) {
  int begin = A.ia[0];
  for (int i = 0; i < A.m; ++i) {
    const int end = A.ia[i + 1];
    const T sum = alpha * gather(A, begin, end, x);
    y[i] = beta == 0.0 ? sum : sum + beta * y[i];
    begin = end;
  }
}

/// y := alpha A'x + beta y for the stored entries.
template <typename T>
void multiply_by_columns(const Rows<T>& A, double alpha, const T* __restrict x, double beta,
                         T* __restrict y) {
  scale_result(A.n, beta, y);
  for (int i = 0; i < A.m; ++i) {
    const T xi = alpha * x[i];
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) y[A.ja[k]] = madd(y[A.ja[k]], A.a[k], xi);
  }
}

/// y := alpha A x + beta y for a symmetric matrix, of which the upper triangle is stored.
template <typename T>
void multiply_symmetric(const Rows<T>& A, double alpha, const T* __restrict x, double beta,
                        T* __restrict y) {
  scale_result(A.m, beta, y);
  for (int i = 0; i < A.m; ++i) {
    const T xi = alpha * x[i];
    T sum{};
    int k = A.ia[i];
    const int end = A.ia[i + 1];
    T on_diagonal{};
    for (; k < end && A.ja[k] == i; ++k) on_diagonal += A.a[k];  // rises: the diagonal is first
    for (; k < end; ++k) {
      const int j = A.ja[k];
      const T v = A.a[k];
      sum = madd(sum, v, x[j]);
      y[j] = madd(y[j], v, xi);
    }
    y[i] = madd(y[i] + alpha * sum, on_diagonal, xi);
  }
}

/// y := alpha op(A) x + beta y on records whose sizes agree.
void multiply(const smat* A, bool transposed, double alpha, const vec* x, double beta, vec* y) {
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const T* xv = values_as<T>(x->v);
    T* yv = values_as<T>(y->v);
    if (A->sym) {
      multiply_symmetric(rows<T>(A), alpha, xv, beta, yv);
    } else if (transposed) {
      multiply_by_columns(rows<T>(A), alpha, xv, beta, yv);
    } else {
      multiply_by_rows(rows<T>(A), alpha, xv, beta, yv);
    }
  });
}

/// The checks of A x, and y when there is none yet, zero where it is added to.
vec* product_result(vec* y, const smat* A, const vec* x) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(A->n == x->n);
  NORV_ASSERT(A->is_complex == x->is_complex);
  if (!y) return A->is_complex ? vec_new_zero_cpx(A->m) : vec_new_zero(A->m);
  NORV_ASSERT(y != x);
  NORV_ASSERT(A->m == y->n);
  NORV_ASSERT(A->is_complex == y->is_complex);
  return y;
}

/// The same for A'x.
vec* trans_product_result(vec* y, const smat* A, const vec* x) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(A->m == x->n);
  NORV_ASSERT(A->is_complex == x->is_complex);
  if (!y) return A->is_complex ? vec_new_zero_cpx(A->n) : vec_new_zero(A->n);
  NORV_ASSERT(y != x);
  NORV_ASSERT(A->n == y->n);
  NORV_ASSERT(A->is_complex == y->is_complex);
  return y;
}

/// op(A) x + beta y, in y or a new vector.
vec* apply(const smat* A, bool transposed, const vec* x, double beta, vec* y) {
  y = transposed ? trans_product_result(y, A, x) : product_result(y, A, x);
  multiply(A, transposed, 1.0, x, beta, y);
  return y;
}

}  // namespace

}  // namespace vlm::norv

using namespace vlm;
using namespace vlm::norv;

extern "C" {

void smat_gemv(double alpha, double beta, const void* data, const vec* x, vec* y) {
  const smat* A = static_cast<const smat*>(data);
  NORV_ASSERT(y != 0);
  multiply(A, false, alpha, x, beta, product_result(y, A, x));
}

void smat_gemv_trans(double alpha, double beta, const void* data, const vec* x, vec* y) {
  const smat* A = static_cast<const smat*>(data);
  NORV_ASSERT(y != 0);
  multiply(A, true, alpha, x, beta, trans_product_result(y, A, x));
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

}  // extern "C"

NORVMORA_SMAT_PRODUCT(NORVMORA_ALIAS)
