/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/krylov.h - the Krylov methods beside SQMR, sweeps, least squares.
 *
 * All take real and complex matrices.  x is starting guess and result; with b = 0 and x = 0 they
 * return at once.  A guess that meets the criterion is returned as it is.  Where a short form is the
 * only one its criterion is the relative residual.
 */
#ifndef VELMORA_NORV_KRYLOV_H
#define VELMORA_NORV_KRYLOV_H

#include "norv/solver.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * Short forms: criterion 0, no stagnation limit.  They return the iteration count.
 *
 *   epsilon  tolerance of the criterion
 *   A, x, b  all real or all complex; x is starting guess and result        [n], in, out
 *   M        preconditioner, or null
 *   maxiter  limit, the count at it is maxiter
 *   s        receives relative residual, count and history, or null
 * ------------------------------------------------------------------------- */

NORV_API int solve_bicgstab(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                            solver* s);
/* M needs a transposed application. */
NORV_API int solve_qmr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                       solver* s);
NORV_API int solve_pcg(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                       solver* s);
/* The same recurrence under its own name in the messages. */
NORV_API int solve_pcg2(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                        solver* s);
/* restart 100 */
NORV_API int solve_gmres(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                         solver* s);
/* restart 50 */
NORV_API int solve_gmresdr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                           solver* s);
/* QMR with look-ahead is not available: an error message, x stays, 0. */
NORV_API int solve_qmrpack(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                           solver* s);

/* ---------------------------------------------------------------------------
 * Full forms
 *
 *   xbest            result on every return, or null                        [n], out
 *   non_improvement  stagnation limit: steps that are no better than the best before; for the
 *                    GMRES forms quotients of successive residuals near 1 among the last 5 (within
 *                    0.001, or 0.01 below a relative residual of 1e-8), looked at from step 6 on,
 *                    so that limits above 5 never stop them
 *   stop_crit        NORV_SC_..., see norv/solver.h
 *
 * Every one ends early when a number that it must divide by is 0 or none.
 * ------------------------------------------------------------------------- */

/* Conjugate gradients (Hestenes and Stiefel 1952), for positive definite A and M.  A complex matrix
 * that stores its upper triangle is taken as symmetric, one that stores both as Hermitian. */
NORV_API int solve_pcg_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                             int maxiter, int non_improvement, int stop_crit, solver* s);
/* BiCGStab, preconditioned from the right (van der Vorst 1992).  Criterion 0 looks at the half step,
 * 1 and 2 at the residual that the step before left.  The optimiser's hook decides where it is set. */
NORV_API int solve_bicgstab_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b,
                                  precon* M, int maxiter, int non_improvement, int stop_crit,
                                  solver* s);
/* QMR with coupled two-term recurrences, without look-ahead (Freund and Nachtigal 1994). */
NORV_API int solve_qmr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                             int maxiter, int non_improvement, int stop_crit, solver* s);
/* GMRES(restart), preconditioned from the left (Saad and Schultz 1986); residuals and norms of b are
 * those after the preconditioner. */
NORV_API int solve_gmres_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                               int maxiter, int non_improvement, int stop_crit, int restart,
                               solver* s);
/* The same with deflated restarting (Morgan 2002): a fifth of the cycle is kept as harmonic Ritz
 * vectors.  The longest cycle is 1000. */
NORV_API int solve_gmresdr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b,
                                 precon* M, int maxiter, int non_improvement, int stop_crit,
                                 int restart, solver* s);

/* ---------------------------------------------------------------------------
 * MINRES and SYMMLQ (Paige and Saunders 1975), for symmetric indefinite A (complex: Hermitian, both
 * triangles stored) and positive definite M.  Both first test that A and M are symmetric and M is
 * definite, and tell in the log how they ended.  Residuals are measured as sqrt(r' M^-1 r).
 * ------------------------------------------------------------------------- */

NORV_API int solve_minres(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                          solver* s);
NORV_API int solve_symmlq(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                          solver* s);
/* (A - shift I) x = b. */
NORV_API int solve_symmlq_shift(double epsilon, double shift, smat* A, vec* x, const vec* b,
                                precon* M, int maxiter, solver* s);

/* ---------------------------------------------------------------------------
 * Gauss-Seidel, for matrices with both triangles stored.  A row without a diagonal entry, or with 0
 * there, keeps its unknown.
 * ------------------------------------------------------------------------- */

/* Sweeps until ||b - A x|| <= epsilon, the norm itself; M is not used.  At message level 2 each step
 * is a line on standard output. */
NORV_API int solve_gs(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                      solver* s);
/* One sweep over x: all rows, rows from..to-1, forward and backward, relaxed by omega. */
NORV_API void gs_iter(const smat* A, vec* x, const vec* b);
NORV_API void gs_iter_from_to(const smat* A, vec* x, const vec* b, unsigned int from,
                              unsigned int to);
NORV_API void sgs_iter(const smat* A, vec* x, const vec* b);
NORV_API void sor_iter(const smat* A, vec* x, const vec* b, double omega);

/* ---------------------------------------------------------------------------
 * LSQR (Paige and Saunders, LSQR: an algorithm for sparse linear equations and sparse least squares,
 * 1982): min ||A x - b||^2 + damp^2 ||x||^2, or with the transpose.
 *
 *   x            the solution, of smallest norm where there are several     [n, trans: m], out
 *   trans        not 0: A'
 *   damp         0 for plain least squares
 *   atol, btol   relative errors of A and of b, for which the result may count as exact
 *   conlim       limit of the condition number, 0: none
 *   itnlim       limit of iterations
 *
 * At message level 1 and above the course of the solve goes to standard output.  Returns
 *   0  x = 0 is exact
 *   1  A x = b is solved, as atol and btol ask   4  the same, as rounding allows
 *   2  it is solved in the sense of least squares   5  the same, as rounding allows
 *   3  the condition number has exceeded conlim  6  it is too large for the arithmetic
 *   7  the limit of iterations was reached
 * ------------------------------------------------------------------------- */

NORV_API int lsqr(const smat* A, vec* x, const vec* b, int trans, double damp, double atol,
                  double btol, double conlim, int itnlim);

/* Some rows of a matrix, and the columns that occur in them: a smaller matrix that isn't copied. */
typedef struct rs_info rs_info;
struct rs_info {
  struct perm* row_lst; /* the rows */
  int col_cnt;          /* columns that occur */
  int* col_lst;         /* [col_cnt] which, in the order in which they occur */
  int* col_place;       /* [n] place of a column in col_lst, or -1 */
};

/* For matrices with n columns, no rows yet. */
NORV_API rs_info* rs_info_new(const smat* A);
/* Takes these rows of A, an smat with both triangles stored, in place of those before.  Costs as
 * much as the rows have entries. */
NORV_API void rs_info_setup(rs_info* rs, const smat* A, int count, const int* rows);
NORV_API void rs_info_free(rs_info* rs); /* null is fine */
/* y = A(rows, columns) x and its transpose; x has col_cnt values and y as many as there are rows, or
 * the other way round. */
NORV_API void smat_gemv_rs(const smat* A, const rs_info* rs, const vec* x, vec* y);
NORV_API void smat_gemv_trans_rs(const smat* A, const rs_info* rs, const vec* x, vec* y);
/* lsqr() on such rows. */
NORV_API int lsqr_rs(const smat* A, const rs_info* rs, vec* x, const vec* b, int trans, double damp,
                     double atol, double btol, double conlim, int itnlim);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_KRYLOV_H */
