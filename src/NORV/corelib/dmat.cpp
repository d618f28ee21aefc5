// SPDX-License-Identifier: BSD-3-Clause
/// Dense matrices, real and row-major: making, copying, scaling, and products by plain loops.
///
/// What goes through the BLAS and LAPACK stands in dmat_lapack.cpp.
#include <algorithm>
#include <cmath>

#include "NORV/corelib/dmat_common.hpp"
#include "NORV/corelib/smat_rows.hpp"

using vlm::count;
using vlm::require;
using vlm::row;

namespace {

/// The diagonal of a diagonal matrix of size n.
vlm::Buffer<double> diagonal(const smat* D, unsigned n) {
  NORV_ASSERT(D != 0);
  NORV_ASSERT(D->m == n && D->n == n);
  vlm::Buffer<double> d(n, 0.0);
  NORV_ASSERT(!D->is_complex);
  vlm::norv::for_each_entry(vlm::norv::rows<double>(D), [&](int i, int j, double value) {
    NORV_ASSERT_TEXT(i == j, "D is diagonal");
    d[static_cast<std::size_t>(i)] += value;
  });
  return d;
}

/// a(i,j) := left(i) a(i,j) right(j); null leaves a side alone.
void scale_rows_and_columns(dmat* A, const double* left, const double* right) {
  for (std::size_t i = 0; i < A->m; ++i) {
    double* const a = row(A, i);
    const double factor = left ? left[i] : 1.0;
    for (std::size_t j = 0; j < A->n; ++j) a[j] *= right ? factor * right[j] : factor;
  }
}

}  // namespace

void dmat_init(dmat* A, unsigned int m, unsigned int n) {
  NORV_ASSERT(A != 0);
  *A = {m, n, vlm::allocate_cleared<double>(static_cast<std::uint64_t>(m) * n), nullptr};
}

void dmat_init_value(dmat* A, unsigned int m, unsigned int n, double value) {
  dmat_init(A, m, n);
  std::fill_n(A->a, count(A), value);
}

void dmat_init_from(dmat* A, unsigned int m, unsigned int n, double* a) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(a != 0 || m == 0 || n == 0);
  *A = {m, n, a, nullptr};
}

dmat* dmat_new(unsigned int m, unsigned int n) {
  dmat* A = vlm::allocate<dmat>(1);
  dmat_init(A, m, n);
  return A;
}

dmat* dmat_new_from(unsigned int m, unsigned int n, double* a) {
  dmat* A = vlm::allocate<dmat>(1);
  dmat_init_from(A, m, n, a);
  return A;
}

void dmat_free(dmat* A) {
  if (!A) return;
  vlm::release_block(A->perm);
  vlm::release_block(A->a);
  vlm::release_block(A);
}

void dmat_free_struct(dmat* A) { vlm::release_block(A); }

void dmat_clear(dmat* A) {
  require(A);
  std::fill_n(A->a, count(A), 0.0);
}

void dmat_ident(dmat* A) {
  dmat_clear(A);
  for (unsigned i = 0; i < std::min(A->m, A->n); ++i) row(A, i)[i] = 1.0;
}

dmat* dmat_from_smat(const smat* A) {
  NORV_ASSERT(A != 0);
  dmat* dst = dmat_new(A->m, A->n);
  smat_into_dmat(dst, A);
  return dst;
}

void smat_into_dmat(dmat* dst, const smat* A) {
  NORV_ASSERT(A != 0);
  require(dst);
  NORV_ASSERT(dst->m == A->m && dst->n == A->n);
  NORV_ASSERT(!A->is_complex);
  dmat_clear(dst);
  vlm::norv::for_each_entry(vlm::norv::rows<double>(A), [dst](int i, int j, double value) {
    row(dst, static_cast<std::size_t>(i))[j] += value;
  });
}

dmat* dmat_get_diag_block_from_smat(dmat* dst, const smat* A, unsigned int first,
                                    unsigned int size) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(!A->is_complex);
  NORV_ASSERT(first <= A->m && size <= A->m - first);
  NORV_ASSERT(first <= A->n && size <= A->n - first);
  dst = vlm::destination(dst, size, size);
  dmat_clear(dst);
  for (unsigned i = first; i < first + size; ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const auto j = static_cast<unsigned>(A->ja[k]);
      if (j < first || j >= first + size) continue;
      row(dst, i - first)[j - first] += A->a[k];
      if (A->sym && j != i) row(dst, j - first)[i - first] += A->a[k];
    }
  }
  return dst;
}

dmat* dmat_copy(const dmat* A) {
  require(A);
  dmat* copy = dmat_new(A->m, A->n);
  dmat_copy_to(copy, A);
  return copy;
}

void dmat_copy_to(dmat* dst, const dmat* src) {
  require(dst);
  require(src);
  NORV_ASSERT(dst->m == src->m && dst->n == src->n);
  if (dst != src) std::copy_n(src->a, count(src), dst->a);
}

void dmat_trans(dmat* A) {
  require(A);
  vlm::Buffer<double> values(count(A));
  std::copy_n(A->a, count(A), values.data());
  const dmat old{A->m, A->n, values.data(), nullptr};
  std::swap(A->m, A->n);
  dmat_copy_trans_to(A, &old);
}

void dmat_copy_trans_to(dmat* dst, const dmat* src) {
  require(dst);
  require(src);
  NORV_ASSERT(dst != src);
  NORV_ASSERT(dst->m == src->n && dst->n == src->m);
  for (std::size_t i = 0; i < src->m; ++i)
    for (std::size_t j = 0; j < src->n; ++j) row(dst, j)[i] = row(src, i)[j];
}

void dmat_copy_to_full_from_sym(dmat* dst, const dmat* src) {
  require(src);
  NORV_ASSERT(src->m == src->n);
  dmat_copy_to(dst, src);
  dense_U_to_full(dst->n, dst->a);
}

void dmat_copy_to_sym_from_full(dmat* dst, const dmat* src) {
  require(src);
  NORV_ASSERT(src->m == src->n);
  dmat_copy_to(dst, src);
  for (std::size_t i = 0; i < dst->m; ++i) std::fill_n(row(dst, i), i, 0.0);
}

void dense_U_to_full(unsigned int n, double* a) {
  NORV_ASSERT(a != 0 || n == 0);
  const std::size_t width = n;
  for (std::size_t i = 0; i < width; ++i)
    for (std::size_t j = 0; j < i; ++j) a[i * width + j] = a[j * width + i];
}

double dmat_inf_norm(const dmat* A) {
  require(A);
  double norm = 0.0;
  for (std::size_t i = 0; i < A->m; ++i) {
    double sum = 0.0;
    for (std::size_t j = 0; j < A->n; ++j) sum += std::abs(row(A, i)[j]);
    norm = vlm::larger(norm, sum);
  }
  return norm;
}

int dmat_equal(const dmat* A, const dmat* B) {
  require(A);
  require(B);
  return A->m == B->m && A->n == B->n && std::equal(A->a, A->a + count(A), B->a);
}

void dmat_print(const dmat* A) {
  require(A);
  vlm::MessageText text;
  text.add("dmat of %u x %u", A->m, A->n);
  for (std::size_t i = 0; i < A->m; ++i) {
    text.add("\n");
    for (std::size_t j = 0; j < A->n; ++j) text.add("%15.8f ", row(A, i)[j]);
  }
  _norv_print_stat_msg("%s", text.c_str());
}

void dmat_scale_scalar(double alpha, dmat* A) {
  require(A);
  for (std::size_t k = 0; k < count(A); ++k) A->a[k] *= alpha;
}

void dmat_scale(dmat* A, const vec* left, const vec* right) {
  require(A);
  vlm::require_real(left, A->m);
  vlm::require_real(right, A->n);
  scale_rows_and_columns(A, left->v, right->v);
}

void dmat_scale_left(dmat* A, const vec* left) {
  require(A);
  vlm::require_real(left, A->m);
  scale_rows_and_columns(A, left->v, nullptr);
}

void dmat_smat_scale_right(dmat* A, const smat* D) {
  require(A);
  scale_rows_and_columns(A, nullptr, diagonal(D, A->n).data());
}

void dmat_smat_scale_left(const smat* D, dmat* A) {
  require(A);
  scale_rows_and_columns(A, diagonal(D, A->m).data(), nullptr);
}

dmat* dmat_add(dmat* dst, const dmat* A, const dmat* B) {
  require(A);
  require(B);
  NORV_ASSERT(A->m == B->m && A->n == B->n);
  dst = vlm::destination(dst, A->m, A->n);
  for (std::size_t k = 0; k < count(A); ++k) dst->a[k] = A->a[k] + B->a[k];
  return dst;
}

void dmat_gemv(double alpha, double beta, const dmat* A, const vec* x, vec* y) {
  require(A);
  vlm::require_real(x, A->n);
  vlm::require_real(y, A->m);
  NORV_ASSERT(x != y);
  vlm::scale_or_clear(beta, y->v, y->n);
  for (std::size_t i = 0; i < A->m; ++i) {
    const double* const a = row(A, i);
    double sum = 0.0;
    for (std::size_t j = 0; j < A->n; ++j) sum += a[j] * x->v[j];
    y->v[i] += alpha * sum;
  }
}

dmat* dmat_matmul(dmat* dst, const dmat* A, const dmat* B) {
  require(A);
  require(B);
  NORV_ASSERT(A->n == B->m);
  NORV_ASSERT(dst == 0 || (dst != A && dst != B));
  dst = vlm::destination(dst, A->m, B->n);
  dmat_clear(dst);
  for (std::size_t i = 0; i < A->m; ++i) {
    double* const c = row(dst, i);
    for (std::size_t k = 0; k < A->n; ++k) {
      const double factor = row(A, i)[k];
      const double* const b = row(B, k);
      for (std::size_t j = 0; j < B->n; ++j) c[j] += factor * b[j];
    }
  }
  return dst;
}

void dmat_add_5x5(double* c, const double* a, const double* b) {
  for (unsigned k = 0; k < 25; ++k) c[k] = a[k] + b[k];
}

void dmat_matmul_5x5(double* c, const double* a, const double* b) {
  std::fill_n(c, 25, 0.0);
  for (unsigned i = 0; i < 5; ++i) vlm::add_block_product_trans<5>(c + 5 * i, b, a + 5 * i);
}

void gemv_5x5(double* y, const double* a, const double* x) { vlm::add_block_product<5>(y, a, x); }

void gemv_trans_5x5(double* y, const double* a, const double* x) {
  vlm::add_block_product_trans<5>(y, a, x);
}
