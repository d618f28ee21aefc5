/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/ildlt.h - incomplete LDL^T factors of symmetric matrices, and their multilevel form.
 */
#ifndef VELMORA_NORV_ILDLT_H
#define VELMORA_NORV_ILDLT_H

#include "norv/precon.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An incomplete factor, below. */
typedef struct ildlt_info ildlt_info;

/* Options of the pivoting family. */
#define NORV_FILL_MAX_AVERAGE 1 /* fill limit by the average row length */
#define NORV_DROP_DIAG 0
#define NORV_DROP_INVERSE 1
#define NORV_DELAY_IGNORE 0
#define NORV_DELAY_PERTURB 1
#define NORV_DELAY_SCHUR 2
#define NORV_2X2_TRIDIAGONAL 1
#define NORV_2X2_DOMINANCE 3

/* Instances with the parameters of their classes.
 *   stpiv     1x1 and 2x2 pivots; bad pivots are delayed
 *   colpiv    the partner of a 2x2 pivot may stand anywhere in the row
 *   wspiv     rows with bad pivots stay where they are, cut off from those behind them
 *   parildlt  without 2x2 pivots; subtrees of a nested dissection side by side, on the threads of
 *             the process, then the separators.  iparam[7] is 5, the kind of the order (others
 *             fail the setup), iparam[8] the number of domains, 4.  The factor depends on the
 *             domains, not on the threads.
 *   bk        2x2 pivots of neighbours, small pivots are perturbed
 *   ildltpm   ordered first, no 2x2 pivots
 *   ldlt      neither, no fill limit
 *   cholesky  the same for positive definite matrices; a pivot that isn't positive aborts */
NORV_API precon* precon_ildlt_stpiv_create(void);
NORV_API precon* precon_ildlt_colpiv_create(void);
NORV_API precon* precon_ildlt_wspiv_create(void);
NORV_API precon* precon_parildlt_create(void);
NORV_API precon* precon_ildlt_bk_create(void);
NORV_API precon* precon_ildltpm_create(void);
NORV_API precon* precon_ldlt_create(void);
NORV_API precon* precon_cholesky_create(void);

/* Incomplete LDL^T with 2x2 pivots of neighbours and without delays; with a permutation and
 * without 2x2 pivots.  fill_strategy 0 limits a row to `fill` entries.  strategy_2x2: 0 none, 2
 * neighbours.  preordering: 0 none, otherwise as for the levels of the multilevel form, 1 to 4. */
NORV_API precon* precon_ildlt_bk_create_param(double fill, double drop, double pivot,
                                              int fill_strategy, int drop_style, int strategy_2x2);
NORV_API precon* precon_ildltpm_create_param(double drop, double fill, int fill_strategy,
                                             int drop_style, int preordering);

/* Incomplete LDL^T with 1x1 and 2x2 pivots.
 *   drop       dropping threshold, 0 keeps all entries that are not 0
 *   max_fill   fill limit as a multiple of the average row length; <= 0: none
 *   kappa      bound on the rows of the inverse factor; <= 0: none
 *   compens    0 none, 1 compensate the diagonal for `target`
 *   target     vector of n, or null */
NORV_API precon* precon_ildlt_stpiv_create_param(double drop, double max_fill, double pivot_1x1,
                                                 double pivot_2x2, double kappa, int fill_strategy,
                                                 int drop_style, int delay_mode, int strategy_2x2,
                                                 int compens, vec* target, int condest_strat);

/* Multilevel form of the same; the first with the parameters of the class. */
NORV_API precon* precon_mildlt_create(void);
NORV_API precon* precon_mildlt_create_param(double kappa, double max_fill, double drop,
                                            double schur_drop, double pivot_1x1, double pivot_2x2,
                                            int fill_strategy, int level_preordering,
                                            int max_levels, int min_level_size, int drop_style,
                                            int compens, vec* target, int condest_strat,
                                            int delay_mode, int strategy_2x2, int is_complex);

/* ---------------------------------------------------------------------------
 * The incomplete factor itself
 *
 * L holds the unit lower factor by rows of its transpose: row k has the
 * columns right of k, without the diagonal.  A 2x2 pivot in rows k, k+1 has
 * its bit set in is_pivot22 at k, stores D(k), E(k), D(k+1), and keeps both
 * rows of L in row k, row k+1 being empty: the entries of row k stand in pairs
 * of slots p, p+1 with the column in ja[p] and the values of rows k and k+1 in
 * a[p], a[p+1].
 *
 * With do_schur the delayed rows end up last: the rows from n - delay_cnt on
 * are the Schur complement (upper triangle; off-diagonal in L, not scaled,
 * diagonal in D).  In terms of the permuted matrix A(p[i],p[j]) := a(i,j):
 * A = L D L' on the leading rows and columns.
 * ------------------------------------------------------------------------- */

struct ildlt_info {
  vec* D;        /* n */
  vec* E;        /* n, second value of each 2x2 pivot */
  smat* L;       /* see above */
  int delay_cnt; /* size of the Schur complement */
  bitvec* is_pivot22;
  struct perm* perm; /* the symmetric permutation */
  int own_perm;      /* 1: perm was made here */
  vec* work1;        /* for the solve */
  vec* work2;
  int npos; /* pivots by sign, 0 for complex */
  int nneg;
  int is_complex;
};

/* Factorizes the symmetric matrix A, which is not changed.  info is a zeroed
 * record; its perm may be preset to the symmetric permutation under which A is
 * to be factorized, and is updated by delays; when null, an identity is made.
 * Returns 1 on success, 0 otherwise. */
NORV_API int precon_ildlt_stpiv_factorize(double drop, double max_fill, double pivot_1x1,
                                          double pivot_2x2, double kappa, ildlt_info* info,
                                          int fill_strategy, int drop_style, int delay_mode,
                                          int strategy_2x2, int compens, const vec* target,
                                          int condest_strat, int do_schur, smat* A);
/* Cuts the factor after row nf < n: V (nf by n-nf, both rows of a 2x2 pivot
 * expanded) is the coupling taken off L, S the Schur complement as a symmetric
 * matrix.  The two matrices are new.  With nf = n both come back null. */
NORV_API void precon_ildlt_stpiv_fc_split(ildlt_info* info, unsigned int nf, smat** V, smat** S);
/* Releases what the record holds, not the record. */
NORV_API void precon_ildlt_stpiv_fact_free(ildlt_info* info, int phase);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_ILDLT_H */
