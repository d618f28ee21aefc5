// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the dmat and bmat families share: checks, the dst convention, and the
/// kernels on small square blocks, whose size is a constant of the instance so that the
/// compiler unrolls them.
#pragma once

#include <algorithm>

#include "NORV/corelib/base.hpp"

namespace vlm {

/// Values of a dense matrix.
inline std::uint64_t count(const dmat* A) { return static_cast<std::uint64_t>(A->m) * A->n; }

/// Row i of a dense matrix.
inline double* row(dmat* A, std::size_t i) { return A->a + i * A->n; }
inline const double* row(const dmat* A, std::size_t i) { return A->a + i * A->n; }

/// Traps a null or damaged record.
inline void require(const dmat* A) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(A->a != 0 || count(A) == 0);
}

/// Traps a vector that is missing, complex, or of another length.
inline void require_real(const vec* x, std::uint64_t n) {
  NORV_ASSERT(x != 0);
  NORV_ASSERT(x->n == n);
  NORV_ASSERT(!x->is_complex);
}

/// dst, whose shape must fit, or a new matrix when it is null.
inline dmat* destination(dmat* dst, unsigned m, unsigned n) {
  if (!dst) return dmat_new(m, n);
  NORV_ASSERT(dst->m == m && dst->n == n);
  return dst;
}

/// y := beta y, where beta 0 wipes out whatever y held.
inline void scale_or_clear(double beta, double* y, std::size_t n) {
  if (beta == 0.0)
    std::fill_n(y, n, 0.0);
  else if (beta != 1.0)
    for (std::size_t i = 0; i < n; ++i) y[i] *= beta;
}

/// y += A x for a row-major block of size N.
template <unsigned N>
inline void add_block_product(double* y, const double* a, const double* x) {
  for (unsigned i = 0; i < N; ++i) {
    double sum = y[i];
    for (unsigned j = 0; j < N; ++j) sum += a[i * N + j] * x[j];
    y[i] = sum;
  }
}

/// y += A'x for a row-major block of size N.
template <unsigned N>
inline void add_block_product_trans(double* y, const double* a, const double* x) {
  for (unsigned i = 0; i < N; ++i)
    for (unsigned j = 0; j < N; ++j) y[j] += a[i * N + j] * x[i];
}

/// The same for a block of size n; size 5 goes to its own instance.
inline void add_block_product(unsigned n, double* y, const double* a, const double* x) {
  if (n == 5) return add_block_product<5>(y, a, x);
  for (std::size_t i = 0; i < n; ++i) {
    double sum = y[i];
    for (std::size_t j = 0; j < n; ++j) sum += a[i * n + j] * x[j];
    y[i] = sum;
  }
}
inline void add_block_product_trans(unsigned n, double* y, const double* a, const double* x) {
  if (n == 5) return add_block_product_trans<5>(y, a, x);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) y[j] += a[i * n + j] * x[i];
}

}  // namespace vlm
