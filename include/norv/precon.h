/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/precon.h - the frame of the preconditioners, and the simple ones.
 *
 * One record serves as class and as instance: `create` copies a class record into fresh memory,
 * which is how the default parameters get there.  A user may fill a record of his own, with name,
 * apply and, where wanted, apply_trans and free, and data for himself: solvers only go through
 * precon_solve(), precon_solve_trans() and the name.
 */
#ifndef VELMORA_NORV_PRECON_H
#define VELMORA_NORV_PRECON_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Parameters of a class: real ones, integers. */
#define NORV_PRECON_DPARAMS 16
#define NORV_PRECON_IPARAMS 16

/* A preconditioner, and the class of one. */
typedef struct precon precon;
struct precon {
  char name[32];
  /* result = M^-1 x; result is allocated, has x's length and is not x. */
  vec* (*apply)(vec* result, precon* M, const vec* x);
  vec* (*apply_trans)(vec* result, precon* M, const vec* x); /* null: none */
  precon* (*create)(void);
  int (*setup)(precon* M, smat* A); /* null: nothing to set up; 0: failed */
  /* Releases what data holds, and the record unless `phase` keeps it: -1 releases all.  Null:
   * precon_free() frees the record alone. */
  void (*free)(precon* M, int phase);
  void* data;                         /* factors */
  double dparam[NORV_PRECON_DPARAMS]; /* parameters, see the class */
  int iparam[NORV_PRECON_IPARAMS];
  int nnz;        /* results of setup: nonzeros of the factors, INT_MAX where there are more; */
  int npos;       /* positive pivots, 0 for complex, */
  int nneg;       /* the negative ones, */
  int nperturbed; /* and perturbed pivots */
  int phase;      /* step of velmora() that the setup stands for, 11 or less: from scratch */
  int is_complex; /* 0 or 1 */
};

/* Instance with default parameters, by the name of the class in any case; null when there is none.
 * In the order of the search:
 *
 *   DUMMY XFSAI MFSAI AUGBLOCK CP_DIRECT SPAINDIAG SPAIONE ILUT ILU0 ILUC LU
 *   DIAG SOR AML AMG BLOCKLU BLOCKGS ICHOL PARILDLT ILDLT_CP ILDLT_SP ILDLT_WS
 *   ILDLT_BK ILDLT MILDLT SAINV BAINV SCHILDERS SMAGGR MPS_DIAG
 *
 * They are those of this header, of norv/classes.h, of norv/multilevel.h and of norv/ildlt.h. */
NORV_API precon* precon_new_by_name(const char* name);

/* 1 on success, 0 when the setup failed.  A must live as long as M for the classes that keep the
 * matrix (LU and the others over the direct solver). */
NORV_API int precon_setup(precon* M, smat* A);
/* M^-1 b.  result may be null or b itself; a null M copies b. */
NORV_API vec* precon_solve(vec* result, precon* M, const vec* b);
/* M^-T b; aborts with a message for a class without it. */
NORV_API vec* precon_solve_trans(vec* result, precon* M, const vec* b);
/* Releases M; phase -1 all of it, others what a setup in that phase of velmora() makes anew.  A
 * null M is fine. */
NORV_API void precon_free(precon* M, int phase);

/* M = I; the diagonal of A, where a 0 counts as 1; A itself, by the direct solver. */
NORV_API precon* precon_dummy_create(void);
NORV_API precon* precon_diag_create(void);
NORV_API precon* precon_lu_create(void);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_PRECON_H */
