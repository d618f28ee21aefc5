/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/solver.h - the frame of the Krylov solvers, and SQMR.
 */
#ifndef VELMORA_NORV_SOLVER_H
#define VELMORA_NORV_SOLVER_H

#include "norv/precon.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A method with its parameters, below. */
typedef struct solver solver;

/* ---------------------------------------------------------------------------
 * Krylov solvers
 * ------------------------------------------------------------------------- */

/* Stopping criteria; every comparison is strict, any other value never stops. */
#define NORV_SC_REL_RESIDUAL 0 /* ||r|| / ||b|| < epsilon */
#define NORV_SC_RESIDUAL 1     /* ||r|| < epsilon */
#define NORV_SC_REDUCTION 2    /* ||r|| < ||r0|| epsilon */

/* Names of the criteria, by their numbers. */
NORV_API extern const char* const norv_sc_names[3];

/* Solves A x = b from the starting guess x; M and s may be null.  Returns the iteration count. */
typedef int (*solve_method)(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                            solver* s);

/* A method with its parameters. */
struct solver {
  solve_method method;
  void* param;
  const char* name;
  struct precon* precon; /* may be null */
  double epsilon;
  int maxiter;
  double res;   /* out: relative residual */
  int iters;    /* out: iterations */
  vec* history; /* residual history, or null */
};

/* epsilon 1e-8, maxiter 100.  An unknown name gives an error message and
 * BICGSTAB. */
NORV_API solver* solver_new(const char* name);
/* 1-based row in the order GS BICGSTAB QMR SQMR QMRPACK PCG PCG2 GMRES GMRESDR
 * SYMMLQ MINRES, any case; 0 and no change when there is no such solver.  The methods beside SQMR
 * are those of norv/krylov.h; QMRPACK is an error message, and leaves x as it was, when it runs. */
NORV_API int solver_set_method_by_name(solver* s, const char* name);
/* Parameters of the solve; param is for methods of the user's own. */
NORV_API void solver_set_epsilon(solver* s, double epsilon);
NORV_API void solver_set_maxiter(solver* s, int maxiter);
NORV_API void solver_set_precon(solver* s, precon* M);
NORV_API void solver_set_param(solver* s, void* param);
/* Keeps maxiter relative residuals, so set the limit first. */
NORV_API void solver_set_residual_history(solver* s);
/* Runs the method; the history has then as many values as there were iterations. */
NORV_API int solver_solve(solver* s, smat* A, vec* x, const vec* b);
NORV_API void solver_free(solver* s); /* null is fine */

/* What a step of the solvers tells: after each iteration of a solve that the calling thread runs,
 * also inside velmora(), with its number and its relative residual.  A solve begins with iteration
 * 0.  Null, the default, is nobody. */
typedef void (*norv_progress_fn)(void* data, int iteration, double relative_residual);
/* Sets it for the calling thread. */
NORV_API void norv_set_progress(norv_progress_fn fn, void* data);

/* ---------------------------------------------------------------------------
 * SQMR, the simplified quasi-minimal residual method, for symmetric indefinite
 * systems and symmetric preconditioners (Freund and Nachtigal, A new
 * Krylov-subspace method for symmetric indefinite linear systems, 1994).
 *
 *   epsilon          tolerance of the stopping criterion
 *   x                starting guess, and result                         [n], in, out
 *   xbest            result on every return, or null                    [n], out
 *   M                preconditioner, or null
 *   non_improvement  stagnation limit, see the forms
 *   status           out, one of the values below; may be null
 *   s                receives relative residual, count and history, or null
 *
 * A and the vectors are all real or all complex; complex matrices are
 * symmetric, not Hermitian.  They return the iteration count.
 * ------------------------------------------------------------------------- */

/* status of solve_sqmr_param(). */
#define NORV_SQMR_OK 0
#define NORV_SQMR_LIMIT (-100)      /* iteration limit, also when its last step converged */
#define NORV_SQMR_STAGNATION (-101) /* the residual doesn't change any more */
#define NORV_SQMR_SIGMA_ZERO (-102) /* q'Aq = 0 for the search direction q */
#define NORV_SQMR_RHO_ZERO (-103)   /* r'M^-1 r = 0 for the residual r */

/* Short form: criterion 0, stagnation limit 5. */
NORV_API int solve_sqmr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                        solver* s);
/* The form that velmora() uses.  First tries M^-1 b.  A starting guess whose residual is larger
 * than b, or not a number, is replaced by 0.  Stagnation: from step 26 on, non_improvement of the
 * last 25 quotients of successive residuals lie within 0.001 of 1 (0.01 below a relative residual
 * of 1e-8). */
NORV_API int solve_sqmr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                              int maxiter, int non_improvement, int* status, int stop_crit,
                              solver* s);
/* Older form: monitors the residual of the recursion, and stops after non_improvement steps that
 * are no better than the best before.  status 0, 1: limit, stagnation or q'Aq = 0, 2: r'M^-1 r = 0.
 */
NORV_API int solve_sqmr_param_karst(double epsilon, smat* A, vec* x, vec* xbest, const vec* b,
                                    precon* M, int maxiter, int non_improvement, int* status,
                                    int stop_crit, solver* s);
/* Preconditioned from the right: minimizes over the residuals of A M^-1.  Otherwise as the older
 * form. */
NORV_API int solve_sqmr_right_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b,
                                    precon* M, int maxiter, int non_improvement, int* status,
                                    int stop_crit, solver* s);
/* On an operator; ends when |r'M^-1 r| or |q'Aq| is below 1e-32. */
NORV_API int solve_sqmr_lo_param(double epsilon, const linop* A, vec* x, const vec* b, precon* M,
                                 int maxiter, int stop_crit, solver* s);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_SOLVER_H */
