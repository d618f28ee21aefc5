/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/multilevel.h - multigrid hierarchies: block elimination, Ruge-Stueben, smoothed aggregation.
 *
 * A hierarchy is made from a matrix alone.  Used as a solver it cycles until the residual is small;
 * as a preconditioner it applies one cycle.  The coarsest level goes to the direct solver
 * (norv/direct.h), so the environment variable OMP_NUM_THREADS must be set outside of velmora().
 *
 * Matrices are square, real or complex, with both triangles stored (sym 0) and rows sorted, and
 * must live as long as the hierarchy.  Where a matrix is its own transpose so is a cycle, as
 * conjugate gradients want it, if as many sweeps follow the coarse correction as precede it (the
 * default) and the smoother is Gauss-Seidel.
 *
 * Setup and cycles use as many threads as OpenMP offers; a result depends on that number only.
 * Faults of the caller are assertions, unknown methods and strategies end the process with exit
 * code 1, exhausted memory with 7, an error of the direct solver with 9.
 */
#ifndef VELMORA_NORV_MULTILEVEL_H
#define VELMORA_NORV_MULTILEVEL_H

#include "norv/precon.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A hierarchy with its parameters, below; what its levels are is not public. */
typedef struct aml aml;
typedef struct aml_level aml_level;
typedef struct aml_params aml_params;

/* Parameters, to be set between _new and _setup.  The letters tell who reads one: L aml_setup(),
 * R amg_setup_matrix(), S smaggr_setup_matrix(). */
struct aml_params {
  int projection_method;    /* L: 0 Galerkin, R A P; 1 Schur complement with the inverse below */
  double sparsify_fact;     /* L: coarse entries with a(i,j)^2 < this |a(i,i)| |a(j,j)| are dropped;
                               S: change of the threshold from level to level */
  double sparsify_base;     /* S: a coupling is strong when |a(i,j)|^2 > t^2 |a(i,i)| |a(j,j)| with
                               t = base fact^level, a tenth of it for blocks, or when it is large
                               beside the others of its row and column */
  double omega;             /* S: smoothing of the prolongation; 1 is the step 2 / (largest
                               eigenvalue) */
  double strong_pos;        /* R: a positive coupling is strong from this part of the largest one */
  double strong_neg;        /* R: the same for negative couplings, and their largest */
  int coarsening_method;    /* L: what is eliminated: 0 single unknowns, greedily, 1 small groups */
  int coarsening_bis_bsize; /* L: size of these groups */
  int aff_inversion_method; /* L: 0 inverse of the diagonal */
  int smoothing_method; /* L: 0 none, 1 ILUT, 2 Gauss-Seidel; R, S: 1 ILUT, others Gauss-Seidel */
  int pre_smooth;       /* sweeps before and after the coarse correction, */
  int pst_smooth;       /* at least one for R and S */
  double ilut_thresh;   /* parameters of an ILUT smoother */
  int ilut_fill;
  int correction_method; /* L: 0 coarse grid correction, 1 the eliminated unknowns are solved for
                            as well */
};

/* A hierarchy. */
struct aml {
  aml_level* levels; /* null before the setup */
  int num_levels;    /* after setup, the coarsest one included */
  int max_levels;
  int min_size; /* a level of at most this size is the coarsest */
  aml_params params;
};

/* Block elimination: unknowns that don't couple with each other are eliminated, the others are the
 * next level.  Defaults: 5 levels, min_size 100, sparsify_fact 1e-4, ILUT (1e-3, 30) as smoother
 * without sweeps, correction 1. */
NORV_API aml* aml_new(void);
/* Returns 1 on success.  Can be called again, with another matrix too. */
NORV_API int aml_setup(aml* h, smat* A);
/* One cycle from zero, x = B b; x may be null. */
NORV_API vec* aml_solve(aml* h, vec* x, const vec* b);
/* Cycles from x until |b - A x| / |b| < epsilon, and returns how many; maxiter when it isn't
 * reached. */
NORV_API int solve_aml(aml* h, vec* x, const vec* b, double epsilon, int maxiter);
/* The parameters, to the log. */
NORV_API void aml_param_print(const aml_params* params);
/* Null is fine. */
NORV_API void aml_free(aml* h);

/* Classical multigrid after Ruge and Stueben: the coarse unknowns are some of the fine ones.
 * Defaults: 25 levels, min_size 500, strong_pos 0.25, strong_neg 0.25, one sweep before and after.
 */
NORV_API aml* amg_new(void);
/* With a block_size above 1, unknowns that follow each other in groups of so many are coarsened
 * together, and each is interpolated from its like; the block size must divide the order.  Returns
 * 1 on success, 0 after an error message. */
NORV_API int amg_setup_matrix(aml* h, smat* A, int block_size);
/* As solve_aml(). */
NORV_API int amg_solve(aml* h, vec* x, const vec* b, double epsilon, int maxiter);
NORV_API void amg_free(aml* h);

/* Smoothed aggregation.  Defaults: 5 levels, min_size 10000, sparsify_base 0.08, sparsify_fact 0.5,
 * omega 2/3, two sweeps before and after. */
NORV_API aml* smaggr_new(void);
/* A block_size that doesn't divide the order counts as 1. */
NORV_API int smaggr_setup_matrix(aml* h, smat* A, int block_size);
NORV_API int smaggr_solve(aml* h, vec* x, const vec* b, double epsilon, int maxiter);
NORV_API void smaggr_free(aml* h);

/* Vectors that the coarse levels of smoothed aggregation shall represent: those that A nearly maps
 * to zero.  Without them each unknown of a block is constant.  count vectors of n values, one after
 * the other, are copied; 0 of them restores the default.  For setups with a matrix of order n. */
NORV_API void smaggr_set_modes(aml* h, unsigned int n, int count, const double* modes);
/* The rigid body modes of a body in 2 or 3 dimensions, 3 or 6 of them: displacements of its nodes,
 * dim values a node.  coordinates: dim values a node.  modes: room for 3 * 2 or 6 * 3 values a
 * node.  Returns how many. */
NORV_API int norv_rigid_body_modes(int dim, unsigned int nodes, const double* coordinates,
                                   double* modes);

/* The three as preconditioners, with their defaults and parameters in the records:
 *   AML     iparam max_levels, min_size, pre_smooth, pst_smooth, smoothing_method,
 *           correction_method, ilut_fill; dparam sparsify_fact, ilut_thresh.  By default one level,
 *           a direct solve.
 *   AMG     iparam block size, max_levels, min_size, pre_smooth, pst_smooth; dparam strong_pos,
 *           strong_neg
 *   SMAGGR  iparam block size, max_levels, min_size, pre_smooth, pst_smooth; dparam sparsify_base,
 *           sparsify_fact, omega.  Block size 5 by default. */
NORV_API precon* precon_aml_create(void);
NORV_API precon* precon_amg_create(void);
NORV_API precon* precon_smaggr_create(void);
/* With more than one level the smoother is ILUT and the correction 1, as aml_new() has them. */
NORV_API precon* precon_aml_create_param(int max_levels, int min_size, int pre_smooth,
                                         int pst_smooth);
/* strong_pos = strong, strong_neg = strong / 2. */
NORV_API precon* precon_amg_create_param(double strong, int block_size, int max_levels,
                                         int min_size);
NORV_API precon* precon_smaggr_create_param(int block_size, int max_levels, int min_size);
/* smaggr_set_modes() for the class. */
NORV_API void precon_smaggr_set_modes(precon* M, unsigned int n, int count, const double* modes);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_MULTILEVEL_H */
