/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/linop.h - products with an operator, see norv/base.h for its record.
 */
#ifndef VELMORA_NORV_LINOP_H
#define VELMORA_NORV_LINOP_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * linop
 * ------------------------------------------------------------------------- */

/* y = op x and y = op'x, y += op x and y += op'x; y may be null. */
NORV_API vec* linop_vecmul(vec* y, const linop* op, const vec* x);
NORV_API vec* linop_vecmul_trans(vec* y, const linop* op, const vec* x);
NORV_API vec* linop_vecaddmul(vec* y, const linop* op, const vec* x);
NORV_API vec* linop_vecaddmul_trans(vec* y, const linop* op, const vec* x);
/* r = b - op x; r may be null. */
NORV_API vec* linop_calc_residual(vec* r, const linop* op, const vec* x, const vec* b);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_LINOP_H */
