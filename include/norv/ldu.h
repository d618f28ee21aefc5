/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/ldu.h - triangular factors with a diagonal, and their solves.
 */
#ifndef VELMORA_NORV_LDU_H
#define VELMORA_NORV_LDU_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Triple of triangular factors and a diagonal. */
struct ldu {
  smat* L;
  smat* U;
  vec* D;
};

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

#endif /* VELMORA_NORV_LDU_H */
