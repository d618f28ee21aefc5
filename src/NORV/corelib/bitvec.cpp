// SPDX-License-Identifier: BSD-3-Clause
/// Packed bit sets.
///
/// Bit i lives in word i >> 5 at position i & 31 from the least significant bit; bits behind
/// the size are kept 0.  Ranges are half open and handled a word at a time.
#include <algorithm>
#include <bit>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

namespace {

constexpr unsigned word_bits = 32;

unsigned word_count(unsigned size) { return size == 0 ? 0 : (size - 1) / word_bits + 1; }

unsigned bit_mask(unsigned bit) { return 1u << (bit % word_bits); }

/// Bits of word w that lie in [from, to); the word holds at least one of them.
unsigned range_mask(unsigned w, unsigned from, unsigned to) {
  const unsigned first = w * word_bits;
  unsigned mask = ~0u;
  if (from > first) mask <<= from - first;
  const unsigned behind = to - first;
  if (behind < word_bits) mask &= (1u << behind) - 1;
  return mask;
}

bitvec* new_header(unsigned size, unsigned* words, int owner) {
  bitvec* bv = vlm::allocate<bitvec>(1);
  *bv = {size, word_count(size), owner, words};
  return bv;
}

}  // namespace

bitvec* bitvec_new(unsigned int size) {
  return new_header(size, vlm::allocate_cleared<unsigned>(word_count(size)), 1);
}

bitvec* bitvec_new_from(unsigned int size, unsigned int* words) {
  NORV_ASSERT(words != 0 || size == 0);
  return new_header(size, words, 0);
}

void bitvec_release(bitvec* bv) {
  if (!bv) return;
  if (bv->owner) vlm::release_block(bv->v);
  vlm::release_block(bv);
}

bitvec* bitvec_copy(const bitvec* bv) {
  NORV_ASSERT(bv != 0);
  bitvec* copy = new_header(bv->size, vlm::allocate<unsigned>(bv->words), 1);
  bitvec_copy_to(copy, bv);
  return copy;
}

void bitvec_copy_to(bitvec* dst, const bitvec* src) {
  NORV_ASSERT(dst != 0 && src != 0);
  NORV_ASSERT(dst->size == src->size);
  std::copy_n(src->v, src->words, dst->v);
}

void bitvec_clear(bitvec* bv) {
  NORV_ASSERT(bv != 0);
  std::fill_n(bv->v, bv->words, 0u);
}

int bitvec_is_zero(const bitvec* bv) {
  NORV_ASSERT(bv != 0);
  return std::all_of(bv->v, bv->v + bv->words, [](unsigned word) { return word == 0; });
}

void bitvec_invert(bitvec* bv) {
  NORV_ASSERT(bv != 0);
  for (unsigned w = 0; w < bv->words; ++w) bv->v[w] = ~bv->v[w];
  if (bv->words > 0) bv->v[bv->words - 1] &= range_mask(bv->words - 1, 0, bv->size);
}

void bitvec_print(const bitvec* bv) {
  NORV_ASSERT(bv != 0);
  vlm::MessageText text;
  text.add("bitvec of %u: ", bv->size);
  for (unsigned bit = 0; bit < bv->size; ++bit) text.add("%d", bitvec_is_set(bv, bit) != 0);
  _norv_print_stat_msg("%s", text.c_str());
}

void bitvec_set(bitvec* bv, unsigned int bit) {
  NORV_ASSERT(bv != 0);
  NORV_ASSERT(bit < bv->size);
  bv->v[bit / word_bits] |= bit_mask(bit);
}

void bitvec_unset(bitvec* bv, unsigned int bit) {
  NORV_ASSERT(bv != 0);
  NORV_ASSERT(bit < bv->size);
  bv->v[bit / word_bits] &= ~bit_mask(bit);
}

int bitvec_is_set(const bitvec* bv, unsigned int bit) {
  NORV_ASSERT(bv != 0);
  NORV_ASSERT(bit < bv->size);
  return (bv->v[bit / word_bits] & bit_mask(bit)) != 0;
}

unsigned int bitvec_first_zero(const bitvec* bv, unsigned int from) {
  NORV_ASSERT(bv != 0);
  NORV_ASSERT(from <= bv->size);
  for (unsigned w = from / word_bits; w < bv->words; ++w) {
    const unsigned clear = ~bv->v[w] & range_mask(w, from, bv->size);
    if (clear != 0) return w * word_bits + static_cast<unsigned>(std::countr_zero(clear));
  }
  return bv->size;
}

unsigned int bitvec_add_range(bitvec* bv, unsigned int from, unsigned int to) {
  NORV_ASSERT(bv != 0);
  NORV_ASSERT(from <= to);
  NORV_ASSERT(to <= bv->size);
  unsigned added = 0;
  if (from == to) return added;
  for (unsigned w = from / word_bits; w <= (to - 1) / word_bits; ++w) {
    const unsigned fresh = range_mask(w, from, to) & ~bv->v[w];
    added += static_cast<unsigned>(std::popcount(fresh));
    bv->v[w] |= fresh;
  }
  return added;
}

void bitvec_set_range(bitvec* bv, unsigned int from, unsigned int to) {
  bitvec_add_range(bv, from, to);
}

void bitvec_unset_sloppily(bitvec* bv, unsigned int bit) {
  bv->v[bit / word_bits] &= ~bit_mask(bit);
}

void bitvec_unset_range_sloppily(bitvec* bv, unsigned int from, unsigned int to) {
  // Stops at the last word, so that a `to` one behind the last bit is harmless.
  const unsigned behind = std::min(to / word_bits + 1, bv->words);
  for (unsigned w = from / word_bits; w < behind; ++w) bv->v[w] = 0;
}

NORVMORA_BITVEC(NORVMORA_ALIAS)
