/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * velmora/prepare.h - what comes before a factorization: the matrix's type, its upper triangle, and
 * whether there is memory.
 */
#ifndef VELMORA_PREPARE_H
#define VELMORA_PREPARE_H

#include "velmora.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Type of a matrix, by its pattern and values: the cheapest that is safe.  A matrix that equals its
 * adjoint and has a positive diagonal and positive 2x2 minors is told to be positive definite; a
 * factorization finds out whether it is.  Linear in the entries; keeps n integers and values.
 *   is_complex    1: each value is a pair of doubles                          in, by value
 *   form          0 all entries are there; 1 those on and above the diagonal of a symmetric matrix,
 *                 2 of a Hermitian one                                        in, by value
 *   start, index  the entries by rows, of form 0 also by columns, ascending without duplicates;
 *                 counted from 0 or 1, as start[0] says                       [n+1], in
 *   reason        receives one clause that belongs to the library; may be null  out
 * Returns mtype, or 0 where there is no memory.
 */
VELMORA_API int velmora_find_type(int n, int is_complex, int form, const int* start,
                                  const int* index, const double* value, const char** reason);

/*
 * The upper triangle as the symmetric and Hermitian types want it, with a full diagonal, from all
 * entries or from those on and above the diagonal.
 *   n to value  as for velmora_find_type(); entries before the diagonal of a line are skipped  in
 *   conjugated  1: conjugates complex values: Hermitian matrices by columns  in, by value
 *   ia, ja      row starts [n+1] and columns, from 1; null: the values alone  out
 *   a           values.  ja and a need room for the given entries, and n more  out
 * Returns the number of entries.
 */
VELMORA_API int velmora_upper_triangle(int n, int is_complex, int conjugated, const int* start,
                                       const int* index, const double* value, int* ia, int* ja,
                                       double* a);

/*
 * Whether the machine has the memory of a factorization: what is available beside the swap space,
 * the control group of the process, and the limit of its address space.  A phase 22 itself takes
 * what the system promises, and the system may end the process for it later.
 *   kilobytes  what is needed: iparm(17) after phase 11                       in, by value
 *   left       receives what is left, in KB; 0 where the system does not tell; may be null  out
 * Returns 0, also where the system does not tell or, without left, for less than 16 MB; or -2, and
 * velmora_last_message() has both figures.
 */
VELMORA_API int velmora_require_memory(long long kilobytes, long long* left);

#ifdef __cplusplus
}
#endif

#endif
