// SPDX-License-Identifier: BSD-3-Clause
/// Small unordered index sets; searches are linear.
#include <algorithm>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

jdxlist* jdxlist_new(int capacity) {
  NORV_ASSERT(capacity >= 0);
  jdxlist* l = vlm::allocate<jdxlist>(1);
  *l = {capacity, 0, vlm::allocate<int>(static_cast<unsigned>(capacity))};
  return l;
}

void jdxlist_free(jdxlist* l) {
  if (!l) return;
  vlm::release_block(l->v);
  vlm::release_block(l);
}

void jdxlist_add(jdxlist* l, int idx) {
  NORV_ASSERT(l != 0);
  if (l->count >= l->capacity) {
    const std::uint64_t larger =
        std::max<std::uint64_t>(4, 2u * static_cast<unsigned>(l->capacity));
    l->v = vlm::reallocate(l->v, larger);
    l->capacity = static_cast<int>(larger);
  }
  l->v[l->count++] = idx;
}

void jdxlist_print_as_int(const jdxlist* l) {
  NORV_ASSERT(l != 0);
  vlm::MessageText text;
  text.add("jdxlist of %d:", l->count);
  for (int k = 0; k < l->count; ++k) text.add(" %d", l->v[k]);
  _norv_print_stat_msg("%s", text.c_str());
}

int jdxlist_contains(const jdxlist* l, int idx) {
  NORV_ASSERT(l != 0);
  return std::find(l->v, l->v + l->count, idx) != l->v + l->count;
}

int jdxlist_contains_remove(jdxlist* l, int idx) {
  NORV_ASSERT(l != 0);
  int* const place = std::find(l->v, l->v + l->count, idx);
  if (place == l->v + l->count) return 0;
  *place = l->v[--l->count];
  return 1;
}

NORVMORA_JDXLIST(NORVMORA_ALIAS)
