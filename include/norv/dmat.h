/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/dmat.h - dense matrices, real and row-major.
 */
#ifndef VELMORA_NORV_DMAT_H
#define VELMORA_NORV_DMAT_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Dense matrix, row-major: element (i,j) at a[i*n + j]. */
struct dmat {
  unsigned int m;
  unsigned int n;
  double* a;
  int* perm; /* pivots after dmat_lu, otherwise null */
};

/* ---------------------------------------------------------------------------
 * dmat: dense blocks, real.  The dst convention is that of the vec routines.
 * dst must not be an operand of a product or of a transposing copy.
 * ------------------------------------------------------------------------- */

/* Fill a header that the caller owns: room for m * n values that are 0, or that
 * are `value`, or the caller's own array.  The first two allocate A->a. */
NORV_API void dmat_init(dmat* A, unsigned int m, unsigned int n);
NORV_API void dmat_init_value(dmat* A, unsigned int m, unsigned int n, double value);
NORV_API void dmat_init_from(dmat* A, unsigned int m, unsigned int n, double* a);
NORV_API dmat* dmat_new(unsigned int m, unsigned int n);                 /* values 0 */
NORV_API dmat* dmat_new_from(unsigned int m, unsigned int n, double* a); /* wraps */
NORV_API void dmat_free(dmat* A);        /* header, a, perm; null is fine */
NORV_API void dmat_free_struct(dmat* A); /* header only */
NORV_API void dmat_clear(dmat* A);       /* values 0 */
NORV_API void dmat_ident(dmat* A);       /* 1 on the diagonal, else 0 */

/* Both triangles of a real smat, new and into an existing matrix. */
NORV_API dmat* dmat_from_smat(const smat* A);
NORV_API void smat_into_dmat(dmat* dst, const smat* A);
/* The square block of A that begins at row and column `first`; both triangles. */
NORV_API dmat* dmat_get_diag_block_from_smat(dmat* dst, const smat* A, unsigned int first,
                                             unsigned int size);

NORV_API dmat* dmat_copy(const dmat* A);                      /* values alone, perm is null */
NORV_API void dmat_copy_to(dmat* dst, const dmat* src);       /* values alone */
NORV_API void dmat_trans(dmat* A);                            /* in place */
NORV_API void dmat_copy_trans_to(dmat* dst, const dmat* src); /* dst = src' */
/* Symmetric matrices: the upper triangle of src into both triangles of dst, and
 * the upper triangle alone, with 0 below it.  dst may be src. */
NORV_API void dmat_copy_to_full_from_sym(dmat* dst, const dmat* src);
NORV_API void dmat_copy_to_sym_from_full(dmat* dst, const dmat* src);
/* The upper triangle of a row-major n by n array into the lower one. */
NORV_API void dense_U_to_full(unsigned int n, double* a);

NORV_API double dmat_inf_norm(const dmat* A);          /* largest row sum */
NORV_API int dmat_equal(const dmat* A, const dmat* B); /* same shape and values */
NORV_API void dmat_print(const dmat* A);               /* through the log */

/* Scaling; left(i) a(i,j) right(j).  The smat forms take a diagonal matrix, of
 * which a missing entry is 0: A := A D and A := D A. */
NORV_API void dmat_scale_scalar(double alpha, dmat* A);
NORV_API void dmat_scale(dmat* A, const vec* left, const vec* right);
NORV_API void dmat_scale_left(dmat* A, const vec* left);
NORV_API void dmat_smat_scale_right(dmat* A, const smat* D);
NORV_API void dmat_smat_scale_left(const smat* D, dmat* A);

NORV_API dmat* dmat_add(dmat* dst, const dmat* A, const dmat* B); /* dst may be A or B */
/* y = alpha A x + beta y: plain loops, and through the BLAS.  With beta 0 the
 * old contents of y don't matter. */
NORV_API void dmat_gemv(double alpha, double beta, const dmat* A, const vec* x, vec* y);
NORV_API void dmat_gemv_blas(double alpha, double beta, const dmat* A, const vec* x, vec* y);
/* A B by plain loops, for small blocks; A B and A B' through the BLAS. */
NORV_API dmat* dmat_matmul(dmat* dst, const dmat* A, const dmat* B);
NORV_API dmat* dmat_matmul_blas(dmat* dst, const dmat* A, const dmat* B);
NORV_API dmat* dmat_matmul_ABt(dmat* dst, const dmat* A, const dmat* B);
/* C = alpha A B + beta C. */
NORV_API void dmat_dgemm(double alpha, const dmat* A, const dmat* B, double beta, dmat* C);
/* Blocks of 5 by 5, row-major, unrolled: C = A + B, C = A B, y += A x, y += A'x. */
NORV_API void dmat_add_5x5(double* c, const double* a, const double* b);
NORV_API void dmat_matmul_5x5(double* c, const double* a, const double* b);
NORV_API void gemv_5x5(double* y, const double* a, const double* x);
NORV_API void gemv_trans_5x5(double* y, const double* a, const double* x);

/* LU with partial pivoting, in place; A is square.  perm takes the pivots of
 * the LAPACK factorization of the transpose (1-based).  A singular matrix is
 * reported as a warning and makes the solution infinite or not a number. */
NORV_API void dmat_lu(dmat* A);
/* x = A^-1 b with the factor of dmat_lu; n values each, x may be b. */
NORV_API void dmat_lu_solve(const dmat* LU, double* x, const double* b);
/* Inverse in place, of a general and of a symmetric matrix.  The second reads
 * the upper triangle and writes both.  1, or 0 for a singular matrix, whose
 * contents are then undefined. */
NORV_API int dmat_invert(dmat* A);
NORV_API int dmat_invert_sym(dmat* A);
/* x (n values) with the least ||A x - b||, b has m >= n values.  1, or 0 when A
 * has not full column rank; x is then undefined. */
NORV_API int dmat_solve_least_squares(const dmat* A, double* x, const double* b);
/* Eigenvalues.  Symmetric: rising, from the upper triangle, lambda real.  Of
 * A x = lambda B x: lambda complex, infinite where B is singular.  1, or 0 when
 * the iteration fails. */
NORV_API int dmat_sym_eigenvalues(const dmat* A, vec* lambda);
NORV_API int dmat_generalized_eigenvalues(const dmat* A, const dmat* B, vec* lambda);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_DMAT_H */
