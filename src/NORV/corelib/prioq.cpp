// SPDX-License-Identifier: BSD-3-Clause
/// Indexed priority queue: a binary max-heap over element numbers, with the place of each
/// element kept beside it, so that a priority can change in O(log size).
///
/// The parent of place p is (p-1)/2.  Elements move up past strictly smaller parents only, and
/// down to the left child unless the right one is strictly larger, so equal priorities keep
/// their places wherever the heap allows it.
#include <algorithm>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

namespace {

void put(prioq* pq, unsigned place, pq_idx_t element) {
  pq->oind[place] = element;
  pq->perm[element] = static_cast<pq_idx_t>(place);
}

void shift_up(prioq* pq, unsigned place) {
  const pq_idx_t element = pq->oind[place];
  while (place > 0) {
    const unsigned parent = (place - 1) / 2;
    if (!(pq->prio[pq->oind[parent]] < pq->prio[element])) break;
    put(pq, place, pq->oind[parent]);
    place = parent;
  }
  put(pq, place, element);
}

void shift_down(prioq* pq, unsigned place) {
  const pq_idx_t element = pq->oind[place];
  while (2 * place + 1 < pq->size) {
    unsigned child = 2 * place + 1;
    if (child + 1 < pq->size && pq->prio[pq->oind[child + 1]] > pq->prio[pq->oind[child]]) ++child;
    if (!(pq->prio[pq->oind[child]] > pq->prio[element])) break;
    put(pq, place, pq->oind[child]);
    place = child;
  }
  put(pq, place, element);
}

/// Place of a live element; a fault of the caller otherwise.
unsigned place_of(const prioq* pq, pq_idx_t idx) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(idx >= 0);
  NORV_ASSERT_TEXT(idx < (pq_idx_t)pq->elems_prealloc, "idx < (pq_idx_t) pq->elems_prealloc");
  NORV_ASSERT(pq->perm[idx] >= 0);
  return static_cast<unsigned>(pq->perm[idx]);
}

}  // namespace

prioq* prioq_new(unsigned int capacity) {
  prioq* pq = vlm::allocate<prioq>(1);
  *pq = {vlm::allocate<pq_idx_t>(capacity),
         vlm::allocate<pq_prio_t>(capacity),
         vlm::allocate<pq_idx_t>(capacity),
         capacity,
         1,
         0};
  std::fill_n(pq->perm, capacity, -1);
  return pq;
}

prioq* pq_new_from_array(const pq_prio_t* values, unsigned int n) {
  NORV_ASSERT(values != 0 || n == 0);
  prioq* pq = prioq_new(n);
  std::copy_n(values, n, pq->prio);
  pq->size = n;
  for (unsigned place = 0; place < n; ++place) put(pq, place, static_cast<pq_idx_t>(place));
  for (unsigned place = n / 2; place-- > 0;) shift_down(pq, place);
  return pq;
}

void pq_free(prioq* pq) {
  if (!pq) return;
  if (pq->owner) vlm::release_block(pq->prio);
  vlm::release_block(pq->oind);
  vlm::release_block(pq->perm);
  vlm::release_block(pq);
}

pq_idx_t pq_get_max_index(const prioq* pq) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(pq->size > 0);
  return pq->oind[0];
}

pq_prio_t pq_get_max_priority(const prioq* pq) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(pq->size > 0);
  return pq->prio[pq->oind[0]];
}

pq_idx_t pq_remove_max(prioq* pq) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(pq->size > 0);
  const pq_idx_t top = pq->oind[0];
  pq->perm[top] = -1;
  pq->size--;
  if (pq->size > 0) {
    pq->oind[0] = pq->oind[pq->size];
    shift_down(pq, 0);
  }
  return top;
}

void pq_inc1(prioq* pq, pq_idx_t idx) {
  const unsigned p_idx = place_of(pq, idx);
  pq->prio[pq->oind[p_idx]] += 1.0;
  shift_up(pq, p_idx);
}

void pq_dec1(prioq* pq, pq_idx_t idx) {
  const unsigned p_idx = place_of(pq, idx);
  NORV_ASSERT_TEXT(pq->prio[pq->oind[p_idx]] >= (pq_prio_t)0,
                   "pq->prio[pq->oind[p_idx]] >= (pq_prio_t) 0");
  pq->prio[pq->oind[p_idx]] -= 1.0;
  shift_down(pq, p_idx);
}

void pq_heap_sort(prioq* pq, pq_idx_t* sorted) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(sorted != 0 || pq->size == 0);
  while (pq->size > 0) *sorted++ = pq_remove_max(pq);
}

void pq_print(const prioq* pq) {
  NORV_ASSERT(pq != 0);
  vlm::MessageText text;
  text.add("prioq of %u:", pq->size);
  for (unsigned place = 0; place < pq->size; ++place)
    text.add(" %d:%g", pq->oind[place], pq->prio[pq->oind[place]]);
  _norv_print_stat_msg("%s", text.c_str());
}

void prioq_insert(prioq* pq, pq_idx_t idx, pq_prio_t prio) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(pq->size < pq->elems_prealloc);
  NORV_ASSERT(idx >= 0);
  NORV_ASSERT_TEXT(idx < (pq_idx_t)pq->elems_prealloc, "idx < (pq_idx_t) pq->elems_prealloc");
  NORV_ASSERT(pq->perm[idx] < 0);
  pq->prio[idx] = prio;
  put(pq, pq->size, idx);
  shift_up(pq, pq->size++);
}

int prioq_insert_replace_larger(prioq* pq, pq_idx_t idx, pq_prio_t prio) {
  NORV_ASSERT(pq != 0);
  NORV_ASSERT(idx >= 0);
  NORV_ASSERT_TEXT(idx < (pq_idx_t)pq->elems_prealloc, "idx < (pq_idx_t) pq->elems_prealloc");
  if (pq->perm[idx] < 0) {
    prioq_insert(pq, idx, prio);
    return 1;
  }
  if (!(pq->prio[idx] < prio)) return 0;
  pq->prio[idx] = prio;
  shift_up(pq, static_cast<unsigned>(pq->perm[idx]));
  return 1;
}

void prioq_clear(prioq* pq) {
  NORV_ASSERT(pq != 0);
  for (unsigned place = 0; place < pq->size; ++place) pq->perm[pq->oind[place]] = -1;
  pq->size = 0;
}

NORVMORA_PRIOQ(NORVMORA_ALIAS)
