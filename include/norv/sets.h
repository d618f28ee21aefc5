/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv/sets.h - sets of indices: packed bits, a priority queue, a short list.
 */
#ifndef VELMORA_NORV_SETS_H
#define VELMORA_NORV_SETS_H

#include "norv/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Packed bit set: bit i is bit (i & 31) of word (i >> 5). */
struct bitvec {
  unsigned int size;  /* bits */
  unsigned int words; /* (size - 1) / 32 + 1 */
  int owner;          /* 1: v belongs to the record */
  unsigned int* v;
};

/* ---------------------------------------------------------------------------
 * bitvec.  Ranges are half open, [from, to).
 * ------------------------------------------------------------------------- */

NORV_API bitvec* bitvec_new(unsigned int size); /* all bits clear */
NORV_API bitvec* bitvec_new_from(unsigned int size, unsigned int* words);
NORV_API void bitvec_release(bitvec* bv); /* null is fine */
NORV_API bitvec* bitvec_copy(const bitvec* bv);
NORV_API void bitvec_copy_to(bitvec* dst, const bitvec* src);
NORV_API void bitvec_clear(bitvec* bv);
NORV_API int bitvec_is_zero(const bitvec* bv);
NORV_API void bitvec_invert(bitvec* bv);
NORV_API void bitvec_print(const bitvec* bv);
NORV_API void bitvec_set(bitvec* bv, unsigned int bit);
NORV_API void bitvec_unset(bitvec* bv, unsigned int bit);
NORV_API int bitvec_is_set(const bitvec* bv, unsigned int bit); /* 0 or not 0 */
/* First clear bit at or after from, size when there is none. */
NORV_API unsigned int bitvec_first_zero(const bitvec* bv, unsigned int from);
/* Sets a range; the first form returns how many bits were newly set. */
NORV_API unsigned int bitvec_add_range(bitvec* bv, unsigned int from, unsigned int to);
NORV_API void bitvec_set_range(bitvec* bv, unsigned int from, unsigned int to);
/* Fast clearing without a bound check.  The range form clears whole words,
 * from the word of `from` to the word of `to` inclusive, so neighbours in
 * those words are lost; `to` names the last bit wanted. */
NORV_API void bitvec_unset_sloppily(bitvec* bv, unsigned int bit);
NORV_API void bitvec_unset_range_sloppily(bitvec* bv, unsigned int from, unsigned int to);

/* Indexed priority queue, a binary max-heap. */
typedef int pq_idx_t;
typedef double pq_prio_t;
struct prioq {
  pq_idx_t* oind;              /* heap: position to element */
  pq_prio_t* prio;             /* priority, by element */
  pq_idx_t* perm;              /* element to position, -1 while absent */
  unsigned int elems_prealloc; /* capacity; elements are 0..capacity-1 */
  int owner;                   /* 1: prio belongs to the record */
  unsigned int size;           /* live elements */
};

/* ---------------------------------------------------------------------------
 * prioq
 * ------------------------------------------------------------------------- */

NORV_API prioq* prioq_new(unsigned int capacity);
/* n elements with the given priorities, which are copied. */
NORV_API prioq* pq_new_from_array(const pq_prio_t* values, unsigned int n);
NORV_API void pq_free(prioq* pq); /* null is fine */
NORV_API pq_idx_t pq_get_max_index(const prioq* pq);
NORV_API pq_prio_t pq_get_max_priority(const prioq* pq);
NORV_API pq_idx_t pq_remove_max(prioq* pq);     /* element of largest priority */
NORV_API void pq_inc1(prioq* pq, pq_idx_t idx); /* priority + 1 */
NORV_API void pq_dec1(prioq* pq, pq_idx_t idx); /* priority - 1 */
/* Empties the queue into sorted, which has room for pq->size elements, by
 * falling priority. */
NORV_API void pq_heap_sort(prioq* pq, pq_idx_t* sorted);
NORV_API void pq_print(const prioq* pq);
NORV_API void prioq_insert(prioq* pq, pq_idx_t idx, pq_prio_t prio);
/* 1 when idx was absent or had a smaller priority, and was stored; else 0. */
NORV_API int prioq_insert_replace_larger(prioq* pq, pq_idx_t idx, pq_prio_t prio);
NORV_API void prioq_clear(prioq* pq); /* costs O(size) */

/* Small unordered index set.  A user appends with jdxlist_add(), or by
 * v[count++] = index as long as count is below capacity. */
struct jdxlist {
  int capacity;
  int count;
  int* v;
};

/* ---------------------------------------------------------------------------
 * jdxlist
 * ------------------------------------------------------------------------- */

NORV_API jdxlist* jdxlist_new(int capacity);    /* count 0 */
NORV_API void jdxlist_free(jdxlist* l);         /* null is fine */
NORV_API void jdxlist_add(jdxlist* l, int idx); /* appends; grows when full */
NORV_API void jdxlist_print_as_int(const jdxlist* l);
NORV_API int jdxlist_contains(const jdxlist* l, int idx); /* 0 or 1 */
/* As above; on a hit the last index moves into the hole and count falls. */
NORV_API int jdxlist_contains_remove(jdxlist* l, int idx);

#ifdef __cplusplus
}
#endif

#endif /* VELMORA_NORV_SETS_H */
