/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/interface.h - the phases of velmora() with iparm(32) 1, for callers of their own.
 *
 * What velmora() does with a preconditioner on its handle, IterativeNorvScalar() does with one that
 * the process keeps.  Here bad options, exhausted memory and a failing inner solve end the process;
 * through velmora() they are errors.
 */
#ifndef VELMORA_NORV_INTERFACE_H
#define VELMORA_NORV_INTERFACE_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Parameters and results of a solve, below. */
typedef struct NorvPars NorvPars;
typedef struct NorvInfo NorvInfo;

/* Parameters of a solve. */
struct NorvPars {
  int method;          /* 0 PCG 1 BICGSTAB 2 GMRES 3 GMRESDR 4 QMR 5 SQMR */
  int maxiter;         /* iteration limit */
  int non_improvement; /* stagnation limit */
  int restart;         /* GMRES, GMRESDR */
  double epsilon;      /* tolerance */
  int stop_crit;       /* see norv/solver.h */
  int reserved;        /* not read */
  int rescale;         /* without effect */
  int precon;          /* 0 none 1 DIAG 2 ILDLT_BK 3 ILDLT_PM 5 MILDLT
                          6 AUGBLOCK 8 ILUT 9 ILUC 11 MPS_DIAG */
  double drop_tol;     /* dropping threshold of the factor */
  int condest_strat;   /* estimate of the inverse factor, see norv/condest.h */
  double bk_fill;      /* ILDLT_BK: its fill strategy */
  double kappa;        /* bound on the rows of the inverse factor */
  int max_levels;      /* MILDLT: levels */
  int min_level_size;  /* and the smallest one that is factored incompletely */
  double max_fill;     /* fill limit, a multiple of the average row length */
  double schur_drop;   /* dropping threshold of the Schur complement */
  double pivot_1x1;    /* scalar pivots below it are delayed */
  double pivot_2x2;    /* threshold of 2x2 pivots */
  int fill_max_mode;   /* 0 */
  int msglvl;          /* message level, 0 or 1 */
  struct perm* perm;   /* released by FreeNorvPars */
  void* array;         /* released by FreeNorvPars */
};

/* Results of a solve. */
struct NorvInfo {
  int iterations;
  double relres;   /* relative residual, or the residual when b is 0 */
  double reserved; /* not written */
  int factor_size; /* ILDLT_PM only */
  double zero;     /* 0.0 */
  double memory;   /* estimate, KBytes */
};

/* The records that a call of velmora() in iterative mode leaves behind; for callers of
 * IterativeNorvScalar() to use as well. */
NORV_API extern NorvPars norvPars;
NORV_API extern NorvInfo norvInfo;

/* mode 0: defaults of a MILDLT/SQMR run; other: a variant whose precon must be
 * set afterwards.  All three return 1. */
NORV_API int InitNorvPars(int mode, NorvPars* pars);
NORV_API int SetNorvPars(NorvPars* pars, int method, int maxiter, int non_improvement, int restart,
                         int stop_crit, int reserved, int rescale, int precon_code,
                         int fill_max_mode, int msglvl, double epsilon, double drop_tol, int fill);
NORV_API int FreeNorvPars(NorvPars* pars);

/* One phase (11, 12, 13, 22, 23, 33, -1) on a matrix in 1-based compressed
 * rows, with the upper triangle alone unless mtype is 11.  ia and ja are
 * shifted during the call and come back as they were, on every return.
 * mode is 3.  x is starting guess and solution, and b the solution as well when solution_in_b is 1.
 * One preconditioner per process is kept between calls.  expected_neg is read: a computed number of
 * negative eigenvalues within 0.1 % below to 0.05 % above it is taken for it.  The outputs are
 * written by the phases that know them, each may be null.  Returns 0, 3 when an object can't be
 * made, or the status of SQMR. */
NORV_API int IterativeNorvScalar(int mode, NorvPars* pars, int n, int is_complex, int mtype,
                                 int* ia, int* ja, double* a, double* b, int phase,
                                 int solution_in_b, double* x, NorvInfo* info,
                                 const int* expected_neg, int* perturbed_out, int* pos_out,
                                 int* neg_out, int* nnz_out, double* relres_out, int* iters_out);

/* Termination hook: norms of right-hand side and residual, length, arrays of x
 * and of the residual, iteration number; not 0 ends the iteration.  While it
 * is set, it alone decides, beside maxiter, in SQMR and BiCGStab, in all solves of the process. */
typedef int (*norv_ipopt_fn)(double norm_b, double norm_r, int n, double* x, double* r,
                             int iteration);
NORV_API int SetIpoptCallbackFunction(norv_ipopt_fn fn); /* null: off; returns 1 */
NORV_API int ipopt_test_function_(int* flag);            /* flag 1 when set; returns 1 */
/* Calls the hook and stores its answer in result, 0 without a hook; returns 1. */
NORV_API int ipopt_terminate_(int* result, const int* iteration, const int* n, const double* norm_b,
                              const double* norm_r, double* x, double* r);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_INTERFACE_H */
