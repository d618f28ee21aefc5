// SPDX-License-Identifier: BSD-3-Clause
/// Permutations: the value at place i moves to place p[i].
#include <algorithm>
#include <numeric>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

namespace {

unsigned length(const perm* p) { return static_cast<unsigned>(p->n); }

/// Whether a value is a place of a permutation of n.
bool in_range(int value, int n) { return value >= 0 && value < n; }

perm* new_header(int n, int* p) {
  perm* header = vlm::allocate<perm>(1);
  *header = {n, p};
  return header;
}

/// dst, or a new permutation of n when it is null.
perm* destination(perm* dst, int n) {
  if (!dst) return perm_new(n);
  NORV_ASSERT(dst->n == n);
  return dst;
}

}  // namespace

perm* perm_new(int n) {
  NORV_ASSERT(n >= 0);
  return new_header(n, vlm::allocate_cleared<int>(static_cast<unsigned>(n)));
}

perm* perm_new_from(int n, int* p) {
  NORV_ASSERT(n >= 0);
  NORV_ASSERT(p != 0 || n == 0);
  return new_header(n, p);
}

perm* perm_new_copy_from(int n, const int* p) {
  NORV_ASSERT(p != 0 || n == 0);
  perm* copy = perm_new(n);
  std::copy_n(p, n, copy->p);
  return copy;
}

void perm_free(perm* p) {
  if (!p) return;
  vlm::release_block(p->p);
  vlm::release_block(p);
}

void perm_set(perm* p, int value) {
  NORV_ASSERT(p != 0);
  std::fill_n(p->p, p->n, value);
}

void perm_clear(perm* p) { perm_set(p, 0); }

void perm_ident(perm* p) { perm_range(p, 0); }

void perm_range(perm* p, int first) {
  NORV_ASSERT(p != 0);
  std::iota(p->p, p->p + p->n, first);
}

perm* perm_copy(perm* dst, const perm* src) {
  NORV_ASSERT(src != 0);
  dst = destination(dst, src->n);
  if (dst != src) std::copy_n(src->p, src->n, dst->p);
  return dst;
}

perm* perm_copy_invert(perm* dst, const perm* src) {
  NORV_ASSERT(src != 0);
  NORV_ASSERT(dst != src);
  dst = destination(dst, src->n);
  for (int i = 0; i < src->n; ++i) {
    NORV_ASSERT(in_range(src->p[i], src->n));
    dst->p[src->p[i]] = i;
  }
  return dst;
}

void perm_invert(perm* p) {
  NORV_ASSERT(p != 0);
  vlm::Buffer<int> copy(length(p));
  std::copy_n(p->p, p->n, copy.data());
  const perm old{p->n, copy.data()};
  perm_copy_invert(p, &old);
}

void perm_mirror(perm* p) {
  NORV_ASSERT(p != 0);
  for (int i = 0; i < p->n; ++i) p->p[i] = p->n - 1 - p->p[i];
}

void perm_permute(perm* p, const perm* q) {
  NORV_ASSERT(p != 0 && q != 0);
  NORV_ASSERT(p != q);
  NORV_ASSERT(p->n == q->n);
  for (int i = 0; i < p->n; ++i) {
    NORV_ASSERT(in_range(p->p[i], q->n));
    p->p[i] = q->p[p->p[i]];
  }
}

perm* perm_copy_condense(perm* dst, const perm* src, int bs) {
  NORV_ASSERT(src != 0);
  NORV_ASSERT(bs > 0);
  NORV_ASSERT(src->n % bs == 0);
  dst = destination(dst, src->n / bs);
  for (int block = 0; block < dst->n; ++block) {
    const int* places = src->p + block * bs;
    NORV_ASSERT(places[0] % bs == 0);
    for (int k = 1; k < bs; ++k) NORV_ASSERT(places[k] == places[0] + k);
    dst->p[block] = places[0] / bs;
  }
  return dst;
}

perm* build_permutation(perm* dst, const bitvec* marked) {
  NORV_ASSERT(marked != 0);
  const unsigned n = marked->size;
  dst = destination(dst, static_cast<int>(n));
  int next = 0;
  for (const int wanted : {1, 0})
    for (unsigned i = 0; i < n; ++i)
      if (bitvec_is_set(marked, i) == wanted) dst->p[i] = next++;
  return dst;
}

int perm_equal(const perm* a, const perm* b) {
  NORV_ASSERT(a != 0 && b != 0);
  return std::equal(a->p, a->p + a->n, b->p, b->p + b->n);
}

int perm_is_ident(const perm* p) {
  NORV_ASSERT(p != 0);
  for (int i = 0; i < p->n; ++i)
    if (p->p[i] != i) return 0;
  return 1;
}

int perm_is_consistent(const perm* p) {
  NORV_ASSERT(p != 0);
  bitvec* seen = bitvec_new(length(p));
  int outside = 0, first_outside = 0, repeated = 0, first_repeated = 0;
  for (int i = 0; i < p->n; ++i) {
    const int value = p->p[i];
    if (!in_range(value, p->n)) {
      if (outside++ == 0) first_outside = i;
    } else if (bitvec_is_set(seen, static_cast<unsigned>(value))) {
      if (repeated++ == 0) first_repeated = i;
    } else {
      bitvec_set(seen, static_cast<unsigned>(value));
    }
  }
  bitvec_release(seen);
  if (outside > 0)
    _norv_print_error_msg("Permutation contains %d out-of-range elements (first:  %d -> %d)",
                          outside, first_outside, p->p[first_outside]);
  if (repeated > 0)
    _norv_print_error_msg("Permutation contains %d multiple element pairs (first: %d -> %d)",
                          repeated, first_repeated, p->p[first_repeated]);
  if (outside == 0 && repeated == 0) return 1;
  _norv_print_error_msg("Permutation is inconsistent!");
  return 0;
}

void perm_print(const perm* p) {
  NORV_ASSERT(p != 0);
  vlm::MessageText text;
  text.add("perm of %d:", p->n);
  for (int i = 0; i < p->n; ++i) text.add(" %d", p->p[i]);
  _norv_print_stat_msg("%s", text.c_str());
}

NORVMORA_PERM(NORVMORA_ALIAS)
