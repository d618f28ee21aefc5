// SPDX-License-Identifier: BSD-3-Clause
/// Small dense systems of the approximate inverses, column-major and in the caller's arrays.
#pragma once

#include <cstddef>

#include "NORV/precons/scalars.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

/// min || A x - b || by Gram-Schmidt with a second pass; A, m by n, and b are overwritten.  A
/// column that depends on those before gets 0.
/// @param r  scratch
template <class T>
void least_squares(int m, int n, T* a, T* b, Vector<T>& r, T* x);

/// A x = b by Gaussian elimination with pivots from whole columns; A, n by n, and b, n by nrhs, are
/// overwritten, b by x.  A column without a pivot gets 0.
template <class T>
void eliminate(int n, int nrhs, T* a, T* b);

/// min || A x - b || from x = 0, A m by n: LSQR (C. Paige and M. Saunders, LSQR: an algorithm for
/// sparse linear equations and sparse least squares, 1982), until the gradient has fallen by
/// `tolerance` or n + 2 steps are done.
template <class T>
void dense_lsqr(int m, int n, const T* a, const T* b, double tolerance, Vector<T>& work, T* x);

/// A x = b from x = 0 by conjugate residuals for a matrix that is its own transpose, in bilinear
/// products (E. Stiefel, Relaxationsmethoden bester Strategie, 1955), until the residual has fallen
/// by `tolerance` or n + 2 steps are done.
template <class T>
void conjugate_residuals(int n, const T* a, const T* b, double tolerance, Vector<T>& work, T* x);

}  // namespace vlm::norv
