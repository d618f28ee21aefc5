// SPDX-License-Identifier: BSD-3-Clause
/// Permutations as lists of cycles: each member of a cycle moves to the place of the next one.
#include <algorithm>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

namespace {

/// Empty list with room for the members and for one cycle per member.
permcycle* new_list(int n) {
  const auto count = static_cast<std::uint64_t>(n);
  permcycle* c = vlm::allocate<permcycle>(1);
  *c = {n, 0, vlm::allocate<int>(count), vlm::allocate<int>(count + 1)};
  c->start[0] = 0;
  return c;
}

/// Ends the open cycle; `members` have been stored so far.
void close_cycle(permcycle* c, int members) { c->start[++c->ncyc] = members; }

}  // namespace

permcycle* permcycle_new_from(const perm* p) {
  NORV_ASSERT(p != 0);
  permcycle* c = new_list(p->n);
  bitvec* seen = bitvec_new(static_cast<unsigned>(p->n));
  int members = 0;
  for (int first = 0; first < p->n; ++first) {
    if (bitvec_is_set(seen, static_cast<unsigned>(first))) continue;
    int i = first;
    do {
      // bitvec_is_set() also traps a value out of range.
      NORV_ASSERT_TEXT(!bitvec_is_set(seen, static_cast<unsigned>(i)), "perm_is_consistent(p)");
      bitvec_set(seen, static_cast<unsigned>(i));
      c->elem[members++] = i;
      i = p->p[i];
    } while (i != first);
    close_cycle(c, members);
  }
  bitvec_release(seen);
  return c;
}

perm* permcycle_to_new_perm(const permcycle* c) {
  NORV_ASSERT(c != 0);
  perm* p = perm_new(c->n);
  for (int cycle = 0; cycle < c->ncyc; ++cycle) {
    const int first = c->start[cycle], last = c->start[cycle + 1] - 1;
    for (int k = first; k < last; ++k) p->p[c->elem[k]] = c->elem[k + 1];
    p->p[c->elem[last]] = c->elem[first];
  }
  return p;
}

permcycle* permcycle_split_2(const permcycle* c) {
  NORV_ASSERT(c != 0);
  permcycle* split = new_list(c->n);
  std::copy_n(c->elem, c->n, split->elem);
  for (int cycle = 0; cycle < c->ncyc; ++cycle) {
    int k = c->start[cycle];
    const int behind = c->start[cycle + 1];
    if ((behind - k) % 2 == 1) close_cycle(split, ++k);
    for (; k < behind; k += 2) close_cycle(split, k + 2);
  }
  return split;
}

perm* permcycle_map_2_cycles(perm* dst, const permcycle* c) {
  NORV_ASSERT(c != 0);
  if (!dst) dst = perm_new(c->n);
  NORV_ASSERT(dst->n == c->n);
  for (int cycle = 0; cycle < c->ncyc; ++cycle) {
    NORV_ASSERT(c->start[cycle + 1] - c->start[cycle] <= 2);
    for (int k = c->start[cycle]; k < c->start[cycle + 1]; ++k) dst->p[c->elem[k]] = cycle;
  }
  return dst;
}

void permcycle_free(permcycle* c) {
  if (!c) return;
  vlm::release_block(c->elem);
  vlm::release_block(c->start);
  vlm::release_block(c);
}

NORVMORA_PERMCYCLE(NORVMORA_ALIAS)
