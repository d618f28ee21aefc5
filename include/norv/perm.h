/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/perm.h - permutations and their cycles.
 */
#ifndef VELMORA_NORV_PERM_H
#define VELMORA_NORV_PERM_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Permutation: the value at place i moves to place p[i]. */
struct perm {
  int n;
  int* p;
};

/* Permutation as a list of cycles: cycle c is elem[start[c]..start[c+1]-1],
 * and each member moves to the place of the next one. */
struct permcycle {
  int n;
  int ncyc;
  int* elem;  /* n members, cycle by cycle */
  int* start; /* ncyc + 1 */
};

/* ---------------------------------------------------------------------------
 * perm
 * ------------------------------------------------------------------------- */

NORV_API perm* perm_new(int n);              /* all entries 0 */
NORV_API perm* perm_new_from(int n, int* p); /* wraps */
NORV_API perm* perm_new_copy_from(int n, const int* p);
NORV_API void perm_free(perm* p);           /* header and array; null is fine */
NORV_API void perm_set(perm* p, int value); /* all entries */
NORV_API void perm_clear(perm* p);          /* all entries 0 */
NORV_API void perm_ident(perm* p);          /* p[i] = i */
NORV_API perm* perm_copy(perm* dst, const perm* src);
NORV_API perm* perm_copy_invert(perm* dst, const perm* src);
NORV_API void perm_invert(perm* p);                 /* in place */
NORV_API void perm_mirror(perm* p);                 /* p[i] = n-1-p[i] */
NORV_API void perm_permute(perm* p, const perm* q); /* p[i] = q[p[i]] */
NORV_API int perm_equal(const perm* a, const perm* b);
NORV_API int perm_is_ident(const perm* p);
NORV_API int perm_is_consistent(const perm* p); /* 0 after error messages */
NORV_API void perm_print(const perm* p);

NORV_API void perm_range(perm* p, int first); /* p[i] = first + i */
/* Permutation of blocks: dst[i] = src[i*bs] / bs.  src keeps each block of bs
 * neighbours together and in order. */
NORV_API perm* perm_copy_condense(perm* dst, const perm* src, int bs);
/* Marked places to the front, the others behind them, each group in its order. */
NORV_API perm* build_permutation(perm* dst, const bitvec* marked);

/* Cycles in the order of their smallest members, each beginning with it. */
NORV_API permcycle* permcycle_new_from(const perm* p);
NORV_API perm* permcycle_to_new_perm(const permcycle* c);
/* Cuts every cycle into pairs of neighbours (c1,c2), (c3,c4), ...; a cycle of
 * odd length first gives up c1 as a cycle of its own. */
NORV_API permcycle* permcycle_split_2(const permcycle* c);
/* For cycles of at most 2 members: dst[i] is the number of the cycle of i. */
NORV_API perm* permcycle_map_2_cycles(perm* dst, const permcycle* c);
NORV_API void permcycle_free(permcycle* c); /* null is fine */

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_PERM_H */
