/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/classes.h - classes of preconditioners beside incomplete LDL^T: sweeps, incomplete LU, forms
 * for saddle points, blocks, approximate inverses.
 *
 * create makes an instance with the defaults, create_param one with parameters; both are changed in
 * dparam and iparam before precon_setup().  Matrices are real or complex unless told otherwise.
 * A class that "keeps the matrix" needs it as long as it is applied.
 */
#ifndef VELMORA_NORV_CLASSES_H
#define VELMORA_NORV_CLASSES_H

#include "norv/precon.h"

#ifdef __cplusplus
extern "C" {
#endif

/* SOR sweeps from a zero start; both triangles stored; keeps the matrix.
 *   dparam[0] omega 1      iparam[0] sweeps 1 */
NORV_API precon* precon_sor_create(void);

/* The entries that a weighted matching selects, one in each row and column: M is the matrix that has
 * nothing else.  For a symmetric matrix, its scaling factors, M^-1 = S^2.  A matrix of deficient
 * structural rank takes the diagonal. */
NORV_API precon* precon_mps_diag_create(void);

/* Incomplete LU; both triangles stored.  A weighted matching brings large entries to the diagonal
 * and scales, where some diagonal entry is smaller than a hundredth of its row's largest.
 * Rows and columns are then exchanged alike for an order of minimum degree, as the matching has left
 * no order of the caller's.
 *   iparam[8]  matching: 0 where it helps, 1 always, 2 never
 *   iparam[9]  minimum degree: 0 where there is a matching, 1 always, 2 never
 *
 * ILUT  by rows with a threshold and a limit of entries (Y. Saad, ILUT: a dual threshold incomplete
 *       LU factorization, 1994)
 *   dparam[0] drop 1e-4: entries below drop times the norm of their row go
 *   iparam[0] fill 30: entries of a row of L, and of U
 * ILU0  on the pattern of the matrix
 * ILUC  by rows of U and columns of L (N. Li, Y. Saad and E. Chow, Crout versions of ILU for general
 *       sparse matrices, 2003)
 *   dparam[0] drop 0.005   dparam[1] fill 10: a multiple of the average row, <= 0: no limit
 *   dparam[2] pivot 1e-8: smaller pivots are replaced
 *   iparam[0] drop style 1: 0 against the pivot, 1 by the growth of the inverse factors
 *   iparam[1] fill strategy 1: the limit is a multiple of the average row; 0: a number of entries */
NORV_API precon* precon_ilut_create(void);
NORV_API precon* precon_ilut_create_param(double drop, int fill);
NORV_API precon* precon_ilu0_create(void);
NORV_API precon* precon_iluc_create(void);
NORV_API precon* precon_iluc_create_param(double drop, double fill, double pivot, int drop_style);

/* Saddle points [A B'; B C], upper triangle stored, by the direct solver.
 *
 * CP_DIRECT  constraint preconditioner [diag(A) B'; B C]
 *   iparam[0] number of constraints, -1: guessed, see smat_guess_constraint_size()
 * SCHILDERS  [0 0 B1'; 0 D2 B2'; B1 B2 0] where a matching chooses the square block B1 of B and D2 is
 *            the diagonal of A beside it (W. Schilders, Solution of indefinite linear systems using
 *            an LQ decomposition for the linear constraints, 2009); real
 *   iparam[0] number of rows of A
 * AUGBLOCK   [A B'; B -W] with W = gamma I, by conjugate gradients on K = A + B' W^-1 B with an
 *            incomplete factor; real, A + B' W^-1 B positive definite */
NORV_API precon* precon_cp_direct_create(void);
NORV_API precon* precon_schilders_create(void);
NORV_API precon* precon_schilders_create_param(int nf);
NORV_API precon* precon_augblock_create(void);

/* Diagonal blocks of consecutive rows; both triangles stored.
 *
 * BLOCKLU  block incomplete LU on up to 4 blocks: complements take the diagonal of the blocks before
 *   iparam[0] blocks 3     iparam[1..4] their sizes, all 0: equal ones
 * BLOCKGS  sweeps over the blocks, whose systems a preconditioner of their own solves
 *   dparam[0] omega 1      iparam[0] blocks 3
 *   iparam[1] row of the inner class in the order of precon_new_by_name(): 10 LU, 7 ILUT
 *   iparam[2] NORV_BLOCK_..., default GS      iparam[3..15] sizes, all 0: equal ones */
#define NORV_BLOCK_JACOBI 0 /* blocks alone */
#define NORV_BLOCK_GS 1     /* forward */
#define NORV_BLOCK_SGS 2    /* forward and backward */
#define NORV_BLOCK_SOR 3    /* forward, omega times as far */
NORV_API precon* precon_blocklu_create(void);
NORV_API precon* precon_blocklu_create_param(int num_blocks, const int* sizes);
NORV_API precon* precon_block_gs_create(void);
NORV_API precon* precon_block_gs_create_param(int num_blocks, const int* sizes, int inner,
                                              int variant, double omega);

/* Approximate inverses, applied as products; either storage.
 *
 * SPAIONE    min || A M - I || column by column on the pattern of A (M. Grote and T. Huckle, Parallel
 *            preconditioning with sparse approximate inverses, 1997); for a symmetric matrix its
 *            symmetric part.  Two set-ups give the same M: with the rows that a column touches alone,
 *            and, for small matrices, with all rows.
 * SPAINDIAG  the same on a band
 *   iparam[0] diagonals on each side 1; n >= 2 times it plus 1 */
NORV_API precon* precon_spaione_create(void);
NORV_API int precon_spaione_setup_sparse(precon* M, smat* A);
NORV_API int precon_spaione_setup_dense(precon* M, smat* A);
NORV_API precon* precon_spaindiag_create(void);
NORV_API precon* precon_spaindiag_create_param(int n_diag);

/* Factored approximate inverses of symmetric matrices, G' D^-1 G with G unit lower triangular and 1x1
 * and 2x2 blocks in D, applied as products; either storage.  Each row of G solves a small system on
 * its own pattern (L. Kolotilina and A. Yeremin, Factorized sparse approximate inverse
 * preconditionings, 1993).  For a definite matrix M is definite.  Sizes are those of the matrix
 * scaled by the largest entries of its rows.
 *
 * XFSAI  2x2 pivots from a matching       MFSAI  pivots and rows are watched, and may wait
 *   dparam[0] threshold 0.001: couplings, or gains of a row's entry, below it are left out of patterns
 *   dparam[1] drop 0: smaller entries of G go
 *   dparam[2] fill: entries of a row of G as a multiple of the average row, <= 0: no limit; 2, 6
 *   dparam[3] pivot 0.01: smaller pivots are replaced, or wait
 *   dparam[4] MFSAI: largest entry of a row of G that is no reason to wait, 10
 *   iparam[0] steps of the pattern 4       iparam[4] most entries of a row of G 50, 0: no limit
 *   iparam[1] NORV_FSAI_... for the small systems, DIRECT
 *   iparam[2] NORV_FSAI_... for the patterns, ADAPTIVE
 *   iparam[3] XFSAI: 2x2 pivots, 0 where the diagonal is weak, 1 always, 2 never
 *             MFSAI: NORV_FSAI_... for the pivots, TRIED_MONITORED */
#define NORV_FSAI_QR 0              /* least squares over all rows that a pattern touches */
#define NORV_FSAI_RESTRICTED_LSQR 1 /* the square system on a pattern, by LSQR */
#define NORV_FSAI_LSQR 2            /* least squares, by LSQR */
#define NORV_FSAI_ITERATIVE 4       /* the square system, by conjugate residuals */
#define NORV_FSAI_DIRECT 5          /* the square system, by elimination; 3 is not offered */
#define NORV_FSAI_POWER 0           /* rows within so many steps in the graph */
#define NORV_FSAI_INVERSE 1         /* all that a path joins, so that M is exact: small matrices */
#define NORV_FSAI_ADAPTIVE 2        /* grown in so many rounds by the rows that promise most */
#define NORV_FSAI_GIVEN 0           /* pivots from a matching where the diagonal is weak, */
#define NORV_FSAI_GIVEN_DELAYED 1   /* small ones wait until all others are done, */
#define NORV_FSAI_GIVEN_MONITORED 2 /* or those with large rows of G */
#define NORV_FSAI_TRIED 3           /* 1x1, or 2x2 with the strongest coupling; small ones wait, */
#define NORV_FSAI_TRIED_MONITORED 4 /* and those with large rows of G */
NORV_API precon* precon_xfsai_create(void);
NORV_API precon* precon_mfsai_create(void);

/* Stand-ins for factors that this version lacks: their setup is an error message and fails. */
NORV_API precon* precon_sainv_create(void);
NORV_API precon* precon_bainv_create(void);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_CLASSES_H */
