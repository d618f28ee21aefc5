/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv.h - public interface of the NORV iterative library.
 *
 * NORV is the multi-recursive iterative half of velmora.  Its sparse containers
 * also serve the preprocessing of the direct solver, which knows the routines
 * of smat, perm, permcycle, bitvec, prioq and jdxlist by a second name with the
 * prefix NORVMORA_ as well; both names are one routine.
 *
 * General rules
 * -------------
 * Integers are 32 bits, reals are doubles.  A complex value is two adjacent
 * doubles (real, imaginary); lengths and indices always count values, never
 * doubles.
 *
 * Indices are 0-based everywhere; smat_new_from() converts 1-based arrays in
 * place.
 *
 * Matrices are compressed rows; columns rise strictly inside a row.  A matrix
 * with `sym` set holds its upper triangle only (column >= row) and stands for
 * its symmetric completion; all operations act on the completed matrix unless
 * told otherwise.  A complex matrix with `sym` set is symmetric, not Hermitian.
 *
 * Ownership.  What a *_new* or *_copy* routine returns belongs to the caller
 * and goes back through the matching *_free or *_release.  Wrapping routines
 * (smat_new_from, vec_new_from, perm_new_from, bitvec_new_from) take no copy.
 *
 * The `dst` convention.  Most vec routines, and the products, write into an
 * existing vector `dst` and return it; a null `dst` is the order to allocate
 * the result.  `dst` may be one of the operands for elementwise routines; it
 * must not be an operand of a product or of a permuted copy.
 *
 * Failure.  A fault of the caller (null argument, dimensions that don't
 * agree, index out of range) is an assertion, in every build: the text of the
 * test goes to standard error and the process aborts.  Exhausted memory ends
 * the process with exit code 7.  Everything else is a return value.
 *
 * Messages and what the *_print routines print go to the file
 * "./velmora-ml.out", see the section on logging.
 *
 * The library is not reentrant: one thread runs it at a time.
 */
#ifndef VELMORA_NORV_H
#define VELMORA_NORV_H

/* Marks what the shared library exports, and routines with a printf format. */
#if defined(__GNUC__)
#define NORV_API __attribute__((visibility("default")))
#define NORV_PRINTF __attribute__((format(printf, 1, 2)))
#else
#define NORV_API
#define NORV_PRINTF
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * Records
 * ------------------------------------------------------------------------- */

typedef struct vec vec;
typedef struct perm perm;
typedef struct permcycle permcycle;
typedef struct bitvec bitvec;
typedef struct prioq prioq;
typedef struct jdxlist jdxlist;
typedef struct linop linop;
typedef struct smat smat;
typedef struct smat_col_index smat_col_index;
typedef struct dmat dmat;
typedef struct bmat bmat;
typedef struct sbmat sbmat;
typedef struct ldu ldu;

/* Dense vector. */
struct vec {
  unsigned int n;        /* current length, in values */
  double* v;             /* n doubles, or 2 n when complex */
  unsigned int capacity; /* values allocated */
  int is_complex;        /* 0 or 1 */
};

/* Permutation: the value at place i moves to place p[i]. */
struct perm {
  int n;
  int* p;
};

/* Permutation as a list of cycles: cycle c is elem[start[c]..start[c+1]-1],
 * and each member moves to the place of the next one. */
struct permcycle {
  int n;
  int ncyc;
  int* elem;  /* n members, cycle by cycle */
  int* start; /* ncyc + 1 */
};

/* Packed bit set: bit i is bit (i & 31) of word (i >> 5). */
struct bitvec {
  unsigned int size;  /* bits */
  unsigned int words; /* (size - 1) / 32 + 1 */
  int owner;          /* 1: v belongs to the record */
  unsigned int* v;
};

/* Indexed priority queue, a binary max-heap. */
typedef int pq_idx_t;
typedef double pq_prio_t;
struct prioq {
  pq_idx_t* oind;              /* heap: position to element */
  pq_prio_t* prio;             /* priority, by element */
  pq_idx_t* perm;              /* element to position, -1 while absent */
  unsigned int elems_prealloc; /* capacity; elements are 0..capacity-1 */
  int owner;                   /* 1: prio belongs to the record */
  unsigned int size;           /* live elements */
};

/* Small unordered index set.  A user appends with jdxlist_add(), or by
 * v[count++] = index as long as count is below capacity. */
struct jdxlist {
  int capacity;
  int count;
  int* v;
};

/* Abstract linear operator.  gemv computes y = alpha A x + beta y, gemv_trans
 * the same with the transpose; y is allocated and must not be x. */
#define NORV_LINOP_TAG 0x25109500
typedef void (*linop_gemv_fn)(double alpha, double beta, const void* data, const vec* x, vec* y);
struct linop {
  int tag;    /* NORV_LINOP_TAG */
  int m;      /* rows */
  int n;      /* columns */
  void* data; /* handed to gemv */
  const char* name;
  linop_gemv_fn gemv;
  linop_gemv_fn gemv_trans;
};

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

/* Dense matrix, row-major: element (i,j) at a[i*n + j]. */
struct dmat {
  unsigned int m;
  unsigned int n;
  double* a;
  int* perm; /* pivots after dmat_lu, otherwise null */
};

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

/* Square matrix cut into nb by nb sparse blocks of unequal size; the diagonal
 * blocks are square. */
struct sbmat {
  unsigned int nb;  /* blocks in each direction */
  unsigned int n;   /* rows and columns of the whole matrix */
  unsigned int nnz; /* stored entries of all blocks together */
  int* sizes;       /* nb block sizes, with sum n */
  smat** blocks;    /* nb * nb, row-major, none of them null */
};

/* Triple of triangular factors and a diagonal. */
struct ldu {
  smat* L;
  smat* U;
  vec* D;
};

/* The entries of a matrix by column: column j has the places start[j] to
 * start[j+1]-1, each with the row of the entry and its position in ja and a. */
struct smat_col_index {
  unsigned int n; /* columns */
  int* start;     /* n + 1 */
  int* row;
  int* place;
};

/* Matrix types, the `type` argument of the constructors below. */
#define NORV_REAL_UNSYM 0
#define NORV_REAL_SYM 1
#define NORV_CPX_UNSYM 2
#define NORV_CPX_SYM 3

/* ---------------------------------------------------------------------------
 * Allocation.  All exit with code 7 when memory runs out, after a message on
 * standard output and "Backtrace not available.".  Release with free().
 * The number of bytes, count * size, is a 32-bit number: a larger request ends
 * the process in the same way.
 * ------------------------------------------------------------------------- */

NORV_API void* _norv_malloc(unsigned int count, unsigned int size);
NORV_API void* _norv_calloc(unsigned int count, unsigned int size);
NORV_API void* _norv_realloc(void* ptr, unsigned int count, unsigned int size);

/* ---------------------------------------------------------------------------
 * Logging.  Every message is appended to "./velmora-ml.out" of the current
 * directory, which is opened and closed for each one; standard error takes
 * over when it can't be opened.
 *
 *   level >= 1   error  "[VELMORA/ML]>> ERROR: text\n"
 *                warn   "[VELMORA/ML]>> WARNING: text\n"
 *                stat   "[VELMORA/ML]>> text\n"
 *   level >= 2   iter   "[VELMORA/ML]>> text\n"
 *                debug  the format as it stands; the library's own debug
 *                       messages are "[VELMORA/ML]>> \tNORV/corelib/<file>: text\n"
 * ------------------------------------------------------------------------- */

/* The level is 0 at first, which is silent.  norv_log_init() empties the file.  "Error while
 * opening file ./velmora-ml.out" goes to standard error when it can't be made. */
NORV_API void norv_log_init(void);
NORV_API void norv_debug_set_level(int level);
NORV_API int norv_debug_get_level(void);

/* printf-style messages of falling urgency, from errors to debugging output. */
NORV_API void _norv_print_error_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_warn_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_stat_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_iter_msg(const char* format, ...) NORV_PRINTF;
NORV_API void _norv_print_debug_msg(const char* format, ...) NORV_PRINTF;

/* Wall clock: start_timing() stores the time of day, get_time_span() gives the
 * seconds since then. */
struct timeval;
NORV_API void start_timing(struct timeval* tv);
NORV_API double get_time_span(const struct timeval* tv);

/* Error "Function not implemented.", then exit code 7. */
NORV_API void norv_not_implemented(void);

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

/* ---------------------------------------------------------------------------
 * vec.  Scalars come first, then dst, then operands.
 * ------------------------------------------------------------------------- */

NORV_API vec* vec_new(unsigned int n); /* contents undefined */
NORV_API vec* vec_new_cpx(unsigned int n);
NORV_API vec* vec_new_zero(unsigned int n);
NORV_API vec* vec_new_zero_cpx(unsigned int n);
/* Wrap n values; release the header alone with free(). */
NORV_API vec* vec_new_from(unsigned int n, double* v);
NORV_API vec* vec_new_from_cpx(unsigned int n, double* v);
NORV_API void vec_release(vec* x); /* null is fine */
/* Sets the length, and reallocates only beyond the capacity. */
NORV_API vec* vec_resize(vec* x, unsigned int n);

NORV_API void vec_init(vec* x);  /* all values 0 */
NORV_API void vec_clear(vec* x); /* all values 0 */
/* All values alpha, or re + i im. */
NORV_API void vec_set(double alpha, vec* x);
NORV_API void vec_set_cpx(double re, double im, vec* x);
NORV_API void vec_rand(vec* x); /* rand() 2^-31, imaginary 0 */

/* dst = src, dst = the n values at v, dst = alpha src. */
NORV_API vec* vec_copy(vec* dst, const vec* src);
NORV_API vec* vec_copy_from(vec* dst, unsigned int n, const double* v);
NORV_API vec* vec_copy_scaled(double alpha, vec* dst, const vec* src);
NORV_API vec* vec_copy_scaled_cpx(double re, double im, vec* dst, const vec* src);

NORV_API void vec_scale(double alpha, vec* x);             /* x = alpha x */
NORV_API void vec_scale_vec(vec* x, const vec* s);         /* x(i) *= s(i) */
NORV_API void vec_scale_vec_squared(vec* x, const vec* s); /* x(i) *= s(i)^2 */
NORV_API void vec_scale_vec_recip(vec* x, const vec* s);   /* x(i) /= s(i) */
/* As vec_scale_vec and vec_scale_vec_squared, into dst. */
NORV_API vec* vec_copy_scale_vec(vec* dst, const vec* src, const vec* s);
NORV_API vec* vec_copy_scale_vec_squared(vec* dst, const vec* src, const vec* s);
NORV_API void vec_recip(vec* x);                           /* x(i) = 1/x(i) */
NORV_API void vec_sqrt(vec* x);                            /* x(i) = sqrt(x(i)) */
NORV_API void vec_apply_func(vec* x, double (*f)(double)); /* x(i) = f(x(i)) */

/* Inner product of real vectors. */
NORV_API double vec_dot(const vec* x, const vec* y);
/* sum x(i) y(i), no conjugation. */
NORV_API void vec_dot_cpx(const vec* x, const vec* y, double* re, double* im);
NORV_API double vec_1_norm(const vec* x);
NORV_API double vec_euclid_norm(const vec* x); /* real and complex */
NORV_API double vec_euclid_norm_cpx(const vec* x);
NORV_API double vec_inf_norm(const vec* x);
NORV_API double vec_min_norm(const vec* x); /* smallest |x(i)| */

/* dst = a + b, dst = a - b; below, sums with real or complex (_cpx) factors. */
NORV_API vec* vec_add(vec* dst, const vec* a, const vec* b);
NORV_API vec* vec_sub(vec* dst, const vec* a, const vec* b);
NORV_API vec* vec_mul(vec* dst, const vec* a, const vec* b);                /* elementwise */
NORV_API vec* vec_axpy(double alpha, vec* dst, const vec* x, const vec* y); /* alpha x + y */
NORV_API vec* vec_axpby(double alpha, double beta, vec* dst, const vec* x, const vec* y);
NORV_API vec* vec_axpy_cpx(double re, double im, vec* dst, const vec* x, const vec* y);
NORV_API vec* vec_axpby_cpx(double re, double im, double beta, vec* dst, const vec* x,
                            const vec* y);

/* Permutations of the places of a vector, by p and by its inverse. */
NORV_API vec* vec_copy_permute(vec* dst, const vec* src, const perm* p); /* dst[p[i]] = src[i] */
NORV_API vec* vec_copy_permute_inverse(vec* dst, const vec* src,
                                       const perm* p);    /* dst[i] = src[p[i]] */
NORV_API void vec_permute(vec* x, const perm* p);         /* in place */
NORV_API void vec_permute_inverse(vec* x, const perm* p); /* in place */
/* The same for blocks of bs values; p has n/bs places. */
NORV_API vec* vec_copy_block_permute(vec* dst, const vec* src, const perm* p, unsigned int bs);
NORV_API vec* vec_copy_block_permute_inverse(vec* dst, const vec* src, const perm* p,
                                             unsigned int bs);
NORV_API vec* vec_concat(vec* dst, const vec* a, const vec* b); /* a, then b */

/* Comparisons: 1 when they hold, else 0; vec_equal is exact. */
NORV_API int vec_equal_up_to(const vec* a, const vec* b, double tol); /* |a(i)-b(i)| <= tol */
NORV_API int vec_equal(const vec* a, const vec* b);
NORV_API int vec_check_positive(const vec* x);            /* all >= 0 */
NORV_API int vec_check_bound(const vec* x, double bound); /* all |x(i)| <= bound */

/* "Inf_Norm of Vector %e", then all values below 27 of them, otherwise the
 * first 13, " ... " and the last 13; through the log. */
NORV_API void vec_print(const vec* x);
NORV_API void vec_print_named(const vec* x, const char* name);
NORV_API void vec_print_full(const vec* x);

/* Principal square root of re + i im. */
NORV_API void norv_cpx_sqrt(double re, double im, double* out_re, double* out_im);

/* ---------------------------------------------------------------------------
 * perm
 * ------------------------------------------------------------------------- */

NORV_API perm* perm_new(int n);              /* all entries 0 */
NORV_API perm* perm_new_from(int n, int* p); /* wraps */
NORV_API perm* perm_new_copy_from(int n, const int* p);
NORV_API void perm_free(perm* p);           /* header and array; null is fine */
NORV_API void perm_set(perm* p, int value); /* all entries */
NORV_API void perm_clear(perm* p);          /* all entries 0 */
NORV_API void perm_ident(perm* p);          /* p[i] = i */
NORV_API perm* perm_copy(perm* dst, const perm* src);
NORV_API perm* perm_copy_invert(perm* dst, const perm* src);
NORV_API void perm_invert(perm* p);                 /* in place */
NORV_API void perm_mirror(perm* p);                 /* p[i] = n-1-p[i] */
NORV_API void perm_permute(perm* p, const perm* q); /* p[i] = q[p[i]] */
NORV_API int perm_equal(const perm* a, const perm* b);
NORV_API int perm_is_ident(const perm* p);
NORV_API int perm_is_consistent(const perm* p); /* 0 after error messages */
NORV_API void perm_print(const perm* p);

NORV_API void perm_range(perm* p, int first); /* p[i] = first + i */
/* Permutation of blocks: dst[i] = src[i*bs] / bs.  src keeps each block of bs
 * neighbours together and in order. */
NORV_API perm* perm_copy_condense(perm* dst, const perm* src, int bs);
/* Marked places to the front, the others behind them, each group in its order. */
NORV_API perm* build_permutation(perm* dst, const bitvec* marked);

/* Cycles in the order of their smallest members, each beginning with it. */
NORV_API permcycle* permcycle_new_from(const perm* p);
NORV_API perm* permcycle_to_new_perm(const permcycle* c);
/* Cuts every cycle into pairs of neighbours (c1,c2), (c3,c4), ...; a cycle of
 * odd length first gives up c1 as a cycle of its own. */
NORV_API permcycle* permcycle_split_2(const permcycle* c);
/* For cycles of at most 2 members: dst[i] is the number of the cycle of i. */
NORV_API perm* permcycle_map_2_cycles(perm* dst, const permcycle* c);
NORV_API void permcycle_free(permcycle* c); /* null is fine */

/* ---------------------------------------------------------------------------
 * bitvec.  Ranges are half open, [from, to).
 * ------------------------------------------------------------------------- */

NORV_API bitvec* bitvec_new(unsigned int size); /* all bits clear */
NORV_API bitvec* bitvec_new_from(unsigned int size, unsigned int* words);
NORV_API void bitvec_release(bitvec* bv); /* null is fine */
NORV_API bitvec* bitvec_copy(const bitvec* bv);
NORV_API void bitvec_copy_to(bitvec* dst, const bitvec* src);
NORV_API void bitvec_clear(bitvec* bv);
NORV_API int bitvec_is_zero(const bitvec* bv);
NORV_API void bitvec_invert(bitvec* bv);
NORV_API void bitvec_print(const bitvec* bv);
NORV_API void bitvec_set(bitvec* bv, unsigned int bit);
NORV_API void bitvec_unset(bitvec* bv, unsigned int bit);
NORV_API int bitvec_is_set(const bitvec* bv, unsigned int bit); /* 0 or not 0 */
/* First clear bit at or after from, size when there is none. */
NORV_API unsigned int bitvec_first_zero(const bitvec* bv, unsigned int from);
/* Sets a range; the first form returns how many bits were newly set. */
NORV_API unsigned int bitvec_add_range(bitvec* bv, unsigned int from, unsigned int to);
NORV_API void bitvec_set_range(bitvec* bv, unsigned int from, unsigned int to);
/* Fast clearing without a bound check.  The range form clears whole words,
 * from the word of `from` to the word of `to` inclusive, so neighbours in
 * those words are lost; `to` names the last bit wanted. */
NORV_API void bitvec_unset_sloppily(bitvec* bv, unsigned int bit);
NORV_API void bitvec_unset_range_sloppily(bitvec* bv, unsigned int from, unsigned int to);

/* ---------------------------------------------------------------------------
 * prioq
 * ------------------------------------------------------------------------- */

NORV_API prioq* prioq_new(unsigned int capacity);
/* n elements with the given priorities, which are copied. */
NORV_API prioq* pq_new_from_array(const pq_prio_t* values, unsigned int n);
NORV_API void pq_free(prioq* pq); /* null is fine */
NORV_API pq_idx_t pq_get_max_index(const prioq* pq);
NORV_API pq_prio_t pq_get_max_priority(const prioq* pq);
NORV_API pq_idx_t pq_remove_max(prioq* pq);     /* element of largest priority */
NORV_API void pq_inc1(prioq* pq, pq_idx_t idx); /* priority + 1 */
NORV_API void pq_dec1(prioq* pq, pq_idx_t idx); /* priority - 1 */
/* Empties the queue into sorted, which has room for pq->size elements, by
 * falling priority. */
NORV_API void pq_heap_sort(prioq* pq, pq_idx_t* sorted);
NORV_API void pq_print(const prioq* pq);
NORV_API void prioq_insert(prioq* pq, pq_idx_t idx, pq_prio_t prio);
/* 1 when idx was absent or had a smaller priority, and was stored; else 0. */
NORV_API int prioq_insert_replace_larger(prioq* pq, pq_idx_t idx, pq_prio_t prio);
NORV_API void prioq_clear(prioq* pq); /* costs O(size) */

/* ---------------------------------------------------------------------------
 * jdxlist
 * ------------------------------------------------------------------------- */

NORV_API jdxlist* jdxlist_new(int capacity);    /* count 0 */
NORV_API void jdxlist_free(jdxlist* l);         /* null is fine */
NORV_API void jdxlist_add(jdxlist* l, int idx); /* appends; grows when full */
NORV_API void jdxlist_print_as_int(const jdxlist* l);
NORV_API int jdxlist_contains(const jdxlist* l, int idx); /* 0 or 1 */
/* As above; on a hit the last index moves into the hole and count falls. */
NORV_API int jdxlist_contains_remove(jdxlist* l, int idx);

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

/* ---------------------------------------------------------------------------
 * ldu
 * ------------------------------------------------------------------------- */

/* L and U hold the strict triangles, in unsymmetric type; their diagonals are
 * understood to be 1 in the solves. */
NORV_API ldu* ldu_new(void); /* all null */
/* Order n, room for entries in L and U with rows still empty, D zero. */
NORV_API ldu* ldu_new_dim(unsigned int n, unsigned int nnz_L, unsigned int nnz_U, int is_complex);
NORV_API void ldu_free(ldu* f); /* what is set, and the record; null is fine */
/* A = L + D + U.  For a symmetric A, L stays null, and back again. */
NORV_API ldu* smat_to_ldu(const smat* A);
NORV_API smat* ldu_to_smat(const ldu* f);
NORV_API void ldu_print(const ldu* f); /* through the log */

/* x = M^-1 b; x may be null or b.  With l = I + L and u = I + U, M is
 *   ldu      l D u
 *   udut     u D u'
 *   ldlt_V1  u'D u   the lower factor stored by columns, in U
 *   ldlt     l D l'  the lower factor stored by rows, in L */
NORV_API vec* ldu_fw_bw_solve_ldu(vec* x, const ldu* f, const vec* b);
NORV_API vec* ldu_fw_bw_solve_udut(vec* x, const ldu* f, const vec* b);
NORV_API vec* ldu_fw_bw_solve_ldlt_V1(vec* x, const ldu* f, const vec* b);
NORV_API vec* ldu_fw_bw_solve_ldlt(vec* x, const ldu* f, const vec* b);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_H */
