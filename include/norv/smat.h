/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/smat.h - sparse matrices, real or complex, in compressed rows.
 */
#ifndef VELMORA_NORV_SMAT_H
#define VELMORA_NORV_SMAT_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Matrix types, the `type` argument of the constructors below. */
#define NORV_REAL_UNSYM 0
#define NORV_REAL_SYM 1
#define NORV_CPX_UNSYM 2
#define NORV_CPX_SYM 3

/* Sparse matrix, compressed rows. */
struct smat {
  unsigned int m;   /* rows */
  unsigned int n;   /* columns */
  int npos;         /* positive and negative eigenvalues, and    */
  int nneg;         /* perturbed pivots, as direct_factorize     */
  int nperturbed;   /* left them */
  unsigned int nnz; /* stored entries */
  int sym;          /* 1: upper triangle stored */
  int is_complex;   /* 0 or 1 */
  int* ia;          /* m + 1 row starts */
  int* ja;          /* nnz columns */
  double* a;        /* nnz values, or 2 nnz doubles when complex */
  linop op;         /* data: this record; name "new_mat" */
};

/* The entries of a matrix by column: column j has the places start[j] to
 * start[j+1]-1, each with the row of the entry and its position in ja and a. */
struct smat_col_index {
  unsigned int n; /* columns */
  int* start;     /* n + 1 */
  int* row;
  int* place;
};

/* ---------------------------------------------------------------------------
 * smat: construction and release
 * ------------------------------------------------------------------------- */

/* Header and zeroed ia; ja and a are null, nnz is 0.  `type` is one of the
 * matrix types above. */
NORV_API smat* smat_new(unsigned int m, unsigned int n, int type);
NORV_API smat* smat_new_cpx(unsigned int m, unsigned int n, int sym);
/* The same with nnz set and room for so many columns (ja), and then also for
 * values (a); there is one place more behind the last entry. */
NORV_API smat* smat_new_nnz_struct(unsigned int m, unsigned int n, unsigned int nnz, int type);
NORV_API smat* smat_new_nnz(unsigned int m, unsigned int n, unsigned int nnz, int type);

/* Wraps the caller's arrays.  base_index is 0 or 1; with base 1 ia and ja are
 * decremented in place and stay so until smat_to_fortran_indexing().  The
 * arrays still belong to the caller, so the header alone is released, with
 * free().  The second form takes `sym`, not a type. */
NORV_API smat* smat_new_from(unsigned int m, unsigned int n, int* ia, int* ja, double* a, int type,
                             int base_index);
NORV_API smat* smat_new_from_cpx(unsigned int m, unsigned int n, int* ia, int* ja, double* a,
                                 int sym, int base_index);

/* Factor of unknown size: ja and a for `estimate` entries times a fill factor
 * of 15, or the largest smaller one that can be had and counted in 32 bits;
 * a factor of 3 or more is then lowered by one.  nnz is 0; ja and a are null
 * when there is no memory at all.  Exit code 7 when the lowering fails. */
NORV_API smat* Lmat_new_nnz(unsigned int m, unsigned int n, unsigned int estimate, int type);

/* Coordinate input with 0-based indices in any order; rows come out sorted by
 * column, entries that occur twice stay twice.  For a symmetric type an entry
 * below the diagonal is taken as its mirror image. */
NORV_API smat* smat_new_from_coord(unsigned int m, unsigned int n, unsigned int nnz, const int* row,
                                   const int* col, const double* a, int type);
NORV_API smat* smat_ident(unsigned int n); /* real unsymmetric type */

/* Routines that change the number of stored entries in place may replace the
 * arrays, unless told otherwise: keep them off wrapped matrices.
 *
 * Releases arrays and header.  Null gives the warning "Trying to free NULL
 * matrix.". */
NORV_API void smat_free(smat* A);

/* Sets nnz and resizes ja and a, keeping their leading contents.  With nnz 0
 * there stays room for two doubles and one index. */
NORV_API void smat_realloc(smat* A, unsigned int nnz);

/* Shifts ia and ja in place from base 1 to base 0, and from base 0 to base 1. */
NORV_API void smat_to_c_indexing(smat* A);
NORV_API void smat_to_fortran_indexing(smat* A);

/* ---------------------------------------------------------------------------
 * smat: products
 * ------------------------------------------------------------------------- */

/* y = alpha A x + beta y, and with the transpose.  A is an smat; the routines
 * are what the record's own linop head calls.  With beta 0 the old contents of
 * y don't matter.  Vectors are complex exactly when A is. */
NORV_API void smat_gemv(double alpha, double beta, const void* A, const vec* x, vec* y);
NORV_API void smat_gemv_trans(double alpha, double beta, const void* A, const vec* x, vec* y);

/* y = A x, y = A'x, y += A x, y += A'x, real and complex. */
NORV_API vec* smat_vecmul(vec* y, const smat* A, const vec* x);
NORV_API vec* smat_vecmul_trans(vec* y, const smat* A, const vec* x);
NORV_API vec* smat_vecaddmul(vec* y, const smat* A, const vec* x);
NORV_API vec* smat_vecaddmul_trans(vec* y, const smat* A, const vec* x);
NORV_API vec* smat_vecmul_cpx(vec* y, const smat* A, const vec* x); /* complex only */
NORV_API vec* smat_vecmul_mkl(vec* y, const smat* A, const vec* x); /* second name of smat_vecmul */

/* Products of unsymmetric types as new matrices, rows sorted: A B, A B C,
 * A B C'. */
NORV_API smat* smat_matmul(const smat* A, const smat* B);
NORV_API smat* smat_matmul3(const smat* A, const smat* B, const smat* C);
NORV_API smat* smat_matmul3_ABCt(const smat* A, const smat* B, const smat* C);

/* B diag(d) B' for an unsymmetric type B, as a new matrix of symmetric type; d
 * is complex exactly when B is.  The second form takes for B the rows from nf
 * on and columns before nf of a saddle-point matrix K; d has nf values. */
NORV_API smat* smat_matmul_diag_BBt(const smat* B, const vec* d);
NORV_API smat* smat_matmul_diag_BBt_kkt(const smat* K, unsigned int nf, const vec* d);

/* r = b - A x; r may be null. */
NORV_API vec* smat_calc_residual(vec* r, const smat* A, const vec* x, const vec* b);

/* ---------------------------------------------------------------------------
 * smat: copies and transforms
 * ------------------------------------------------------------------------- */

/* Copies, transposes, permutations and the change between one and both
 * triangles also take a bare structure (a is null), which they keep bare. */
NORV_API smat* smat_copy(const smat* A);
NORV_API smat* smat_copy_structure(const smat* A);   /* values 0 */
NORV_API smat* smat_copy_trans(const smat* A);       /* new A' */
NORV_API void smat_trans(smat* A);                   /* in place */
NORV_API smat* smat_complex_to_real(const smat* A);  /* the real parts */
NORV_API smat* smat_copy_log(const smat* A);         /* log |a(i,j)|, real */
NORV_API smat* smat_copy_abs(const smat* A);         /* |a(i,j)|, real */
NORV_API smat* smat_copy_log_to_full(const smat* A); /* log |a(i,j)|, real, both triangles */

/* Both triangles of a symmetric matrix, as unsymmetric type: in place, and as
 * a new matrix.  A missing diagonal entry is reported as "Matrix has
 * incomplete diagonal!" and stays missing. */
NORV_API void smat_to_full_structure(smat* A);
NORV_API smat* smat_copy_full_structure(const smat* A);
/* Both triangles of a symmetric matrix without values (a is null).  *place, if
 * asked for, gets a new array with the position in A of each entry; release it
 * with free(). */
NORV_API smat* smat_sym_trans_pta(const smat* A, int** place);
/* Drops the strict lower triangle in place and sets sym; the arrays stay. */
NORV_API void smat_to_symmetric_structure(smat* A);
/* Adds explicit zeros in place until the pattern is symmetric. */
NORV_API void smat_symmetrize_structure(smat* A);

/* Sorts each row by column, values along, in place. */
NORV_API void smat_column_sort(smat* A);
/* Adds up entries of equal row and column, in place; rows must be sorted, the
 * arrays stay. */
NORV_API void smat_eliminate_double_entries(smat* A);

/* Permutations: row or column i of A becomes p[i].  Rows come out sorted; a
 * symmetric matrix stays one (entries that would fall below the diagonal are
 * mirrored).  smat_permute and smat_copy_permute act on both sides. */
NORV_API void smat_permute(smat* A, const perm* p);
NORV_API smat* smat_copy_permute(const smat* A, const perm* p);
NORV_API smat* smat_copy_permute_rows(const smat* A, const perm* p);
NORV_API void smat_permute_columns(smat* A, const perm* p);

/* ---------------------------------------------------------------------------
 * smat: sums and scaling.  Scaling vectors are real, also for a complex matrix.
 * ------------------------------------------------------------------------- */

/* New matrices over the union of the patterns, symmetric when both are. */
NORV_API smat* smat_add(const smat* A, const smat* B);
NORV_API smat* smat_sub(const smat* A, const smat* B);
NORV_API void smat_scale_scalar(double alpha, smat* A);
NORV_API void smat_scale(smat* A, const vec* left, const vec* right); /* l(i) a(i,j) r(j) */
NORV_API void smat_scale_left(smat* A, const vec* left);
/* a(i,j) exp(left(i) + right(j)): the vectors hold logarithms. */
NORV_API void smat_scale_exp(smat* A, const vec* left, const vec* right);
/* L A R with diagonal matrices; null stands for the identity. */
NORV_API void smat_scale_diag_matrix(smat* A, const smat* left, const smat* right);
NORV_API void smat_scale_diag(double alpha, smat* A); /* the diagonal alone */
/* Adds alpha (x y' + y x') to the stored entries; other places stay 0. */
NORV_API void smat_add_r2(double alpha, smat* A, const vec* x, const vec* y);
/* A + alpha I and A + diag(d), in place; missing entries are stored. */
NORV_API void smat_add_diag(smat* A, double alpha);
NORV_API void smat_add_diag_vec(smat* A, const vec* d);
NORV_API void smat_invert_diag(smat* A); /* a diagonal matrix to its inverse */

/* ---------------------------------------------------------------------------
 * smat: element access.  An entry that is not stored reads as 0.0.  In a
 * symmetric matrix (i,j) and (j,i) name the same entry.
 * ------------------------------------------------------------------------- */

NORV_API double smat_get_ij_elem(const smat* A, unsigned int i, unsigned int j); /* real A */
/* Real or complex; 1 when the entry is stored.  re or im may be null. */
NORV_API int smat_get_ij_elem_ex(const smat* A, unsigned int i, unsigned int j, double* re,
                                 double* im);
NORV_API int smat_has_ij_index(const smat* A, unsigned int i, unsigned int j); /* 0 or 1 */
/* The min(m, n) diagonal entries, complex when A is. */
NORV_API vec* smat_get_diag(vec* dst, const smat* A);

/* Entries in each row of the completed matrix, count has m places: all, those
 * left of the diagonal, those right of it. */
NORV_API void smat_get_row_nnzs(const smat* A, int* count);
NORV_API void smat_get_row_nnzs_L(const smat* A, int* count);
NORV_API void smat_get_row_nnzs_U(const smat* A, int* count);

/* The stored entries by column, rows rising. */
NORV_API smat_col_index* smat_col_index_new(const smat* A);
NORV_API void smat_col_index_free(smat_col_index* index); /* null is fine */

/* ---------------------------------------------------------------------------
 * smat: norms, comparison, printing.  Norms are those of the completed matrix
 * and take the modulus of a complex entry.
 * ------------------------------------------------------------------------- */

NORV_API double smat_frobenius_norm(const smat* A);
NORV_API double smat_1_norm(const smat* A);       /* largest column sum */
NORV_API double smat_inf_norm(const smat* A);     /* largest row sum */
NORV_API double smat_row_sum_norm(const smat* A); /* second name of smat_inf_norm */
NORV_API double smat_maxval(const smat* A);       /* largest |a(i,j)| */
NORV_API vec* smat_col_1_norms(vec* dst, const smat* A);
NORV_API vec* smat_col_inf_norms(vec* dst, const smat* A);
NORV_API vec* smat_row_1_norms(vec* dst, const smat* A);
NORV_API vec* smat_row_inf_norms(vec* dst, const smat* A);

/* 1 when equal: values and pattern of the completed matrices; the same with
 * equal storage required; pattern as stored alone. */
NORV_API int smat_equal(const smat* A, const smat* B);
NORV_API int smat_equal_same_sym(const smat* A, const smat* B);
NORV_API int smat_equal_structure(const smat* A, const smat* B);

/* Through the log: rows with values; the pattern with one character a place;
 * the record with its arrays; the norms of b - A x. */
NORV_API void smat_print(const smat* A);
NORV_API void smat_print_named(const smat* A, const char* name);
NORV_API void smat_print_structure(const smat* A);
NORV_API void smat_print_raw(const smat* A);
NORV_API void print_residual(const smat* A, const vec* x, const vec* b);

/* ---------------------------------------------------------------------------
 * smat: checks.  1 when sound, otherwise 0 after messages in the log.
 * ------------------------------------------------------------------------- */

/* smat_check_ia() and smat_check_ja(), and for a symmetric matrix the other two. */
NORV_API int smat_is_consistent(const smat* A);
/* The first two tests, |a(i,j)| <= 1.001 and |a(i,i)| >= 0.998. */
NORV_API int smat_is_mps_consistent(const smat* A);
NORV_API int smat_check_ia(const smat* A); /* an empty row is a fault */
NORV_API int smat_check_ja(const smat* A);
NORV_API int smat_check_diagonal(const smat* A);            /* missing is a fault, zero a warning */
NORV_API int smat_check_structural_symmetry(const smat* A); /* nothing below the diagonal */

/* ---------------------------------------------------------------------------
 * smat: sparsification, splitting, assembly
 * ------------------------------------------------------------------------- */

/* These four keep the diagonal, and the arrays with their size.
 *
 * Drops |a(i,j)| <= thresh off the diagonal, in place. */
NORV_API void smat_filter(double thresh, smat* A);
/* Symmetric matrices, in place: drops a(i,j)^2 < thresh |a(i,i)| |a(j,j)| off
 * the diagonal and puts what is dropped on the diagonal so that A target
 * doesn't change.  An entry stays where the target is 0 in its row or column
 * alone. */
NORV_API void smat_sparsify_compens_sym(double thresh, smat* A, const vec* target);
/* Unsymmetric or symmetric, in place: drops as above without compensation. */
NORV_API void smat_sparsify_thresh_diag(double thresh, smat* A);
/* In place: drops stored zeros off the diagonal. */
NORV_API void smat_simplify(smat* A);
/* New matrix without the unknowns on which A acts as the identity: a stored 1
 * on the diagonal and nothing but zeros in the row and the column.  Their bits
 * are set in ident, which has m bits; the others keep their order. */
NORV_API smat* smat_simplify_ident(const smat* A, bitvec* ident);

/* The four blocks of A cut at row and column nf:
 *     [ F   BT ]   F  nf x nf, symmetric when A is
 *     [ B   C  ]   C  (m-nf) x (m-nf), symmetric when A is
 * B and BT are unsymmetric types; for a symmetric A, B is the transpose of
 * BT.  Rows keep their order.  A null address skips that block. */
NORV_API void smat_fc_split(const smat* A, unsigned int nf, smat** F, smat** C, smat** B,
                            smat** BT);
/* Unsymmetric A: all four blocks; top and bottom; left and right. */
NORV_API void smat_split(const smat* A, unsigned int m1, unsigned int n1, smat** A11, smat** A12,
                         smat** A21, smat** A22);
NORV_API void smat_vert_split(const smat* A, unsigned int m1, smat** top, smat** bottom);
NORV_API void smat_horiz_split(const smat* A, unsigned int n1, smat** left, smat** right);
/* Unsymmetric types, new matrices [A; B] and [A B]. */
NORV_API smat* smat_append_row(const smat* A, const smat* B);
NORV_API smat* smat_append_col(const smat* A, const smat* B);

/* Stores the entries of B in A, in place, with B's first entry at (i0, j0); what
 * A has there is replaced.  For symmetric types i0 = j0. */
NORV_API void smat_insert_at(smat* A, unsigned int i0, unsigned int j0, const smat* B);

/* Stores a zero where a diagonal entry is missing, in place. */
NORV_API void smat_insert_zero_diags(smat* A);
NORV_API void smat_insert_zero_diags_cpx(smat* A);

/* ---------------------------------------------------------------------------
 * smat: analysis
 * ------------------------------------------------------------------------- */

/* Saddle-point matrix: m - i for the first row i < m-1 whose entry at or right
 * of the diagonal is its last one and at most 1e-8 in magnitude; 0 if none. */
NORV_API unsigned int smat_guess_constraint_size(const smat* A);
/* Rows with |a(i,i)| <= thresh and 1..max_len entries in the strict lower part
 * of the completed matrix. */
NORV_API bitvec* smat_get_precious_rows(const smat* A, double thresh, int max_len);
/* Range of magnitudes by decades, and the decade above which nine tenths of the
 * entries lie as a hint for a dropping threshold, through the log.  The range
 * must not span more than 100 decades. */
NORV_API void smat_profile_matrix(const smat* A);

/* Rows, columns with |a(i,i)| >= the sum of the other moduli. */
NORV_API unsigned int smat_get_num_diag_dominant_rows(const smat* A);
NORV_API unsigned int smat_get_num_diag_dominant_cols(const smat* A);
/* Copy whose leading nf by nf block keeps only its diagonal. */
NORV_API smat* smat_diagonalize_11(const smat* A, unsigned int nf);

/* Scaling vectors 1 / sqrt of the largest modulus in the row, and of |a(i,i)|; 1
 * where that is 0. */
NORV_API vec* smat_get_inf_norm_scaling(vec* dst, const smat* A);
NORV_API vec* smat_get_diag_scaling(vec* dst, const smat* A);

/* Blocks of size bs; the last one of a line may be smaller.
 * Diagonal blocks of a real symmetric matrix, stored in full; the inverse of
 * such a block-diagonal matrix, and its symmetric inverse square root.  The
 * inverses are null, after an error message, when a block is singular, or not
 * positive definite. */
NORV_API smat* smat_get_sym_block_diag(const smat* A, unsigned int bs);
NORV_API smat* smat_inv_sym_block_diag(const smat* D, unsigned int bs);
NORV_API smat* smat_invroot_sym_block_diag(const smat* D, unsigned int bs);
/* One entry for every block that holds one: its entry of largest modulus, with
 * sign.  A symmetric matrix gives a symmetric one. */
NORV_API smat* smat_block_condense_max(const smat* A, unsigned int bs);

/* ---------------------------------------------------------------------------
 * smat: complex matrices as real ones of twice the size.  The entry x + iy is
 * the block [x -y; y x], so that both act alike on interleaved vectors.
 * ------------------------------------------------------------------------- */

NORV_API smat* smat_cpx_to_2x2(const smat* A); /* unsymmetric type */
/* Unsymmetric type of even size; the left column of each block is read. */
NORV_API smat* smat_2x2_to_cpx(const smat* A);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_SMAT_H */
