/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/condest.h - running estimates of the rows of an inverse factor.
 */
#ifndef VELMORA_NORV_CONDEST_H
#define VELMORA_NORV_CONDEST_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * Running estimate of the rows of the inverse factor
 *
 * est (2n values) and cnt (2n counters) are cleared when k is 0.  `values` is
 * the gathered row, addressed by column; `list` names the len columns that are
 * occupied.  The est form changes nothing but cnt, scratch and out; commit
 * takes the step over into est.
 * strategy: 0..2 "max change 1..3", 3..5 "Orlund 1..3".
 * ------------------------------------------------------------------------- */

NORV_API double cond_Lk11_delayed_est(double kappa, const int* list, const double* values, int len,
                                      int strategy, vec* est, perm* cnt, int k, double* scratch,
                                      int delay_cnt, double* out, int is_complex);
NORV_API void cond_Lk11_delayed_commit(int is_complex, const double* values, int len,
                                       const int* list, vec* est, perm* cnt, int k,
                                       const double* scratch, int delay_cnt);
/* Whole-matrix estimate of a finished unit factor, stored as in norv/ildlt.h. */
NORV_API double condest_L_simple(const smat* L);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_CONDEST_H */
