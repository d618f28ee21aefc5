/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/direct.h - the bridge to the direct solver.
 *
 * A record wraps one factorization of an smat by velmora(), with a handle and control vectors of
 * its own.  The environment variable OMP_NUM_THREADS gives the threads and must be set: without
 * it, and on every error of the direct solver, the process ends with exit code 9.  Reached through
 * velmora() with iparm(32) 1, the threads are those of iparm(3), the environment is not read, and
 * an error is that call's error.
 *
 * A is factorized in place of its arrays (they are shifted to base 1 and back during each call) and
 * must live until direct_free().  It may be real or complex, unsymmetric or symmetric.
 */
#ifndef VELMORA_NORV_DIRECT_H
#define VELMORA_NORV_DIRECT_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A factorization, below. */
typedef struct direct_factorization direct_factorization;

/* A factorization: matrix, workspace of the direct solver, user's permutation. */
struct direct_factorization {
  char name[16]; /* "VELMORA" */
  smat* A;
  void* work;
  struct perm* perm; /* inverse of the user's permutation, base 1, or null */
  int (*solve)(direct_factorization* f, vec* x, const vec* b);
  void (*free)(direct_factorization* f);
};

/* Zeroed record, which direct_free() takes as well. */
NORV_API direct_factorization* direct_factorization_new(void);
/* Analysis and factorization.  For a real symmetric A also fills its npos, nneg and nperturbed; for
 * others they are 0.  A diagonal matrix gets 10^-iparm(10) where its diagonal is 0, for good. */
NORV_API direct_factorization* direct_factorize(smat* A);
/* name "VELMORA" in any case; otherwise an error message and null. */
NORV_API direct_factorization* direct_factorize_using(smat* A, const char* name);
/* Entries of the factors L and U, and memory that analysis and factors hold, KBytes; 0 for null f.
 */
NORV_API double direct_factor_entries(const direct_factorization* f);
NORV_API double direct_factor_kilobytes(const direct_factorization* f);
/* x = A^-1 b, x may be b.  0; -1 for null f. */
NORV_API int direct_solve(direct_factorization* f, vec* x, const vec* b);
/* The same for nrhs vectors that lie one behind the other in x and b, of nrhs n values. */
NORV_API int direct_solve_multiple_rhs(direct_factorization* f, vec* x, const vec* b, int nrhs);
NORV_API void direct_free(direct_factorization* f); /* null is fine */
/* All three in a row; 0, or -1 for another name. */
NORV_API int direct_fact_solve(smat* A, vec* x, const vec* b);
NORV_API int direct_fact_solve_using(smat* A, vec* x, const vec* b, const char* name);

/* Control vectors (64 each) and matrix type for A: -2, 11, 6 or 13. */
NORV_API void velmora_set_default(const smat* A, int* iparm, double* dparm, int* mtype);
/* "index:value,index:value,..." into iparm, indices 0-based.  Stops with a warning in the log at
 * what is no such pair. */
NORV_API void velmora_set_custom_iparam(const char* string, int* iparm);

/* x = A^-T b, x may be b. */
NORV_API int norv_velmora_solve_trans(direct_factorization* f, vec* x, const vec* b);
/* The steps: a record with control vectors, and with a permutation under which A is ordered, p[i]
 * the place of row i; analysis, also with such a permutation and iparm entries as above, either of
 * them null where not wanted; numerical factorization of A, which may be another matrix of the same
 * pattern; solves.  The last form of the solve asks the direct solver for its stabilised solve, an
 * old factor being the preconditioner; it ends as a failed solve where this version has none. */
NORV_API direct_factorization* norv_velmora_setup(smat* A, const perm* p);
NORV_API direct_factorization* norv_velmora_analyse(smat* A);
NORV_API direct_factorization* norv_velmora_analyse_iparam(smat* A, const perm* p,
                                                           const char* custom);
NORV_API void norv_velmora_factorize(direct_factorization* f, smat* A);
NORV_API int norv_velmora_solve(direct_factorization* f, vec* x, const vec* b);
NORV_API int norv_velmora_solve_multiple_rhs(direct_factorization* f, vec* x, const vec* b,
                                             int nrhs);
NORV_API int norv_velmora_solve_iterative(direct_factorization* f, vec* x, const vec* b);
NORV_API int norv_velmora_fact_solve(smat* A, vec* x, const vec* b);
NORV_API void norv_velmora_free(direct_factorization* f);

/* Memory, entries of the factors, inertia and perturbed pivots; steps of refinement.  Through the
 * log. */
NORV_API void velmora_print_fact_stats(const int* iparm);
NORV_API void velmora_print_solv_stats(const int* iparm);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_DIRECT_H */
