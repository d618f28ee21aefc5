/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/sort.h - sorting of numbers and of the rows of matrices and factors.
 */
#ifndef VELMORA_NORV_SORT_H
#define VELMORA_NORV_SORT_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------------------
 * Rows: columns in rising order with their values along; integers and reals in
 * rising order; rows of a factor.
 * ------------------------------------------------------------------------- */

NORV_API void sort_row_insert(int n, int is_complex, double* values, int* columns);
NORV_API void sort_row_qs(int n, int is_complex, double* values, int* columns);
NORV_API void sort_int_array(int n, int* v);
NORV_API void qsort_int(int n, int* v);
NORV_API void isort_int(int n, int* v); /* by insertion, for few */
NORV_API void qsort_real(int n, double* v);

/* Entries by falling magnitude, indices along.  Complex entries go by modulus.  The second routine
 * only brings the k largest to the front, in no particular order, in O(n). */
NORV_API void sort_factor_row_by_abs_value(int n, int is_complex, double* values, int* indices);
NORV_API void split_factor_row_by_abs_value(int n, int is_complex, double* values, int* indices,
                                            int k);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_SORT_H */
