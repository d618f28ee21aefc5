/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/bmat.h - sparse matrices of dense square blocks, and matrices cut into sparse blocks.
 */
#ifndef VELMORA_NORV_BMAT_H
#define VELMORA_NORV_BMAT_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Block compressed rows with square blocks of size bn. */
struct bmat {
  unsigned int m;    /* block rows */
  unsigned int n;    /* block columns */
  unsigned int nzb;  /* stored blocks */
  unsigned int bn;   /* block size */
  unsigned int bdim; /* bn * bn */
  int* ia;
  int* ja;
  double* a; /* nzb blocks, each row-major */
  int sym;
  int reserved;
  linop op; /* m*bn by n*bn, name "B" */
};

/* ---------------------------------------------------------------------------
 * bmat: real.  With `sym` only blocks with column >= row are stored, the
 * diagonal ones in full.
 * ------------------------------------------------------------------------- */

NORV_API bmat* bmat_new(unsigned int m, unsigned int n, unsigned int bn, int sym);
NORV_API bmat* bmat_new_nzb(unsigned int m, unsigned int n, unsigned int nzb, unsigned int bn,
                            int sym); /* blocks 0, ia 0 */
/* Wraps the caller's arrays; release the header with free(). */
NORV_API bmat* bmat_new_from(unsigned int m, unsigned int n, unsigned int bn, int* ia, int* ja,
                             double* a, int sym);
/* Sets nzb and resizes ja and a, keeping their leading contents. */
NORV_API void bmat_realloc(bmat* B, unsigned int nzb);
NORV_API void bmat_free(bmat* B); /* null is fine */

/* Block form of a real matrix whose dimensions are multiples of bn: every block
 * with a stored entry is stored, in rising columns.  Back again, what is 0
 * inside a block is not stored, except on the diagonal of a symmetric matrix. */
NORV_API bmat* bmat_new_from_smat(const smat* A, unsigned int bn);
NORV_API smat* bmat_to_smat(const bmat* B);
/* Header without values that shares ia and ja; m, n and nnz count blocks.
 * Release it with free(). */
NORV_API smat* bmat_fake_smat(const bmat* B);
NORV_API bmat* bmat_copy_full_structure(const bmat* B); /* both triangles, sym 0 */

/* y = alpha B x + beta y, and with the transpose; B is a bmat. */
NORV_API void bmat_gemv(double alpha, double beta, const void* B, const vec* x, vec* y);
NORV_API void bmat_gemv_trans(double alpha, double beta, const void* B, const vec* x, vec* y);

/* 1 / sqrt |b(i,i)|, and 1 where the diagonal entry is 0 or not stored. */
NORV_API vec* bmat_get_diag_scaling(vec* dst, const bmat* B);
NORV_API void bmat_scale(bmat* B, const vec* left, const vec* right); /* l(i) b(i,j) r(j) */

/* Entry of the completed matrix, 0.0 where none is stored; i, j count entries. */
NORV_API double bmat_get_ij_elem(const bmat* B, unsigned int i, unsigned int j);
/* Stored block in block row i, block column j, or null. */
NORV_API double* bmat_get_ij_block(const bmat* B, unsigned int i, unsigned int j);
NORV_API void bmat_print_ij(const bmat* B, unsigned int i, unsigned int j);
NORV_API void bmat_print(const bmat* B);
NORV_API void bmat_print_raw(const bmat* B);

/* 1 when equal: same storage and values; the completed matrices have the same
 * values, entries that are not stored counting as 0. */
NORV_API int bmat_equal(const bmat* A, const bmat* B);
NORV_API int bmat_equal_smat(const bmat* B, const smat* A);

/* 1 when sound, otherwise 0 after messages in the log. */
NORV_API int bmat_check_ia(const bmat* B); /* an empty block row is a fault */
NORV_API int bmat_check_ja(const bmat* B);
NORV_API int bmat_check_structural_symmetry(const bmat* B); /* nothing below the diagonal */

/* Square matrix cut into nb by nb sparse blocks of unequal size; the diagonal
 * blocks are square. */
struct sbmat {
  unsigned int nb;  /* blocks in each direction */
  unsigned int n;   /* rows and columns of the whole matrix */
  unsigned int nnz; /* stored entries of all blocks together */
  int* sizes;       /* nb block sizes, with sum n */
  smat** blocks;    /* nb * nb, row-major, none of them null */
};

/* ---------------------------------------------------------------------------
 * sbmat
 * ------------------------------------------------------------------------- */

/* nb sizes for m rows: m / nb each, and the last block takes the remainder;
 * release with free().  The sizes are told in the log. */
NORV_API int* smat_find_blocks(const smat* A, unsigned int nb);
/* Copy of a square matrix in blocks; sizes (nb values with sum m) is copied.
 * The blocks have unsymmetric type and together hold both triangles. */
NORV_API sbmat* sbmat_new(const smat* A, unsigned int nb, const int* sizes);
NORV_API void sbmat_free(sbmat* S); /* null is fine */

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_BMAT_H */
