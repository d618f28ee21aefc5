// SPDX-License-Identifier: BSD-3-Clause
/// Products and residuals of the caller's matrix, products with its absolute values.
///
/// The product of sparse_product.hpp for every matrix type.  Vectors are n by nrhs, column after
/// column, complex values as two doubles.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"

namespace vlm {

/// The matrix and how it is to be applied.
struct SparseProduct {
  InputMatrix matrix;
  int mtype = 11;
  bool transpose = false;  ///< apply the transpose (never conjugated)
  int nthreads = 1;
};

/// Bytes of the work area that products with matrices of n rows need; may be 0.
std::size_t amuxy_work_bytes(int n, int mtype, bool transpose, int nthreads);

/// y = A x.
/// @param x     n by nrhs, in
/// @param y     n by nrhs, out; must not overlap x
/// @param work  amuxy_work_bytes() bytes
void amuxy_velmora(const SparseProduct& product, int nrhs, const double* x, double* y,
                   double* work);

/// r = rhs - A x.
/// @param x     n by nrhs, in
/// @param rhs   n by nrhs, in
/// @param r     n by nrhs, out; must not overlap x or rhs
/// @param work  amuxy_work_bytes() bytes
/// @return sum of absolute values of the doubles of r
double amuxy_res_velmora(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                         double* r, double* work);

/// y = |A| x, with the absolute values of the entries of A.
/// @param x, y  n by nrhs, in and out
/// @param work  amuxy_work_bytes() bytes
void amuxy_abs_velmora(const SparseProduct& product, int nrhs, const double* x, double* y,
                       double* work);

}  // namespace vlm
