// SPDX-License-Identifier: BSD-3-Clause
// bitvec against std::vector<bool>, and jdxlist against std::set.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "norv.h"
#include "norv_log.hpp"

namespace {

using Bits = std::vector<bool>;

void expect_equal(const bitvec* bv, const Bits& model) {
  ASSERT_EQ(bv->size, model.size());
  for (unsigned i = 0; i < bv->size; ++i)
    ASSERT_EQ(bitvec_is_set(bv, i) != 0, model[i]) << "bit " << i << " of " << bv->size;
  // Bits behind the size stay clear.
  if (bv->size % 32) {
    ASSERT_EQ(bv->v[bv->words - 1] >> (bv->size % 32), 0u);
  }
}

unsigned first_zero(const Bits& model, unsigned from) {
  while (from < model.size() && model[from]) ++from;
  return from;
}

TEST(Bitvec, BehavesAsAnArrayOfFlags) {
  std::mt19937 random(7);
  for (unsigned size : {0u, 1u, 31u, 32u, 33u, 64u, 200u}) {
    bitvec* bv = bitvec_new(size);
    Bits model(size, false);
    EXPECT_EQ(bv->words, (size + 31) / 32);
    EXPECT_EQ(bv->owner, 1);
    EXPECT_TRUE(bitvec_is_zero(bv));
    for (int step = 0; step < 300; ++step) {
      unsigned from = random() % (size + 1), to = random() % (size + 1);
      if (from > to) std::swap(from, to);
      switch (random() % 5) {
        case 0:
          if (from < size) bitvec_set(bv, from), model[from] = true;
          break;
        case 1:
          if (from < size) bitvec_unset(bv, from), model[from] = false;
          break;
        case 2: {
          unsigned fresh = 0;
          for (unsigned i = from; i < to; ++i) fresh += !model[i], model[i] = true;
          ASSERT_EQ(bitvec_add_range(bv, from, to), fresh);
          break;
        }
        case 3:
          bitvec_invert(bv);
          model.flip();
          break;
        default:
          if (to < size) bitvec_unset_sloppily(bv, to), model[to] = false;
      }
      ASSERT_NO_FATAL_FAILURE(expect_equal(bv, model));
      ASSERT_EQ(bitvec_first_zero(bv, from), first_zero(model, from));
      ASSERT_EQ(bitvec_is_zero(bv) != 0, model == Bits(size, false));
    }
    bitvec* copy = bitvec_copy(bv);
    bitvec_clear(bv);
    EXPECT_TRUE(bitvec_is_zero(bv));
    expect_equal(copy, model);
    bitvec_copy_to(bv, copy);
    expect_equal(bv, model);
    bitvec_release(copy);
    bitvec_release(bv);
  }
  bitvec_release(nullptr);
}

TEST(Bitvec, SloppyRangeTakesItsNeighboursAlong) {
  unsigned words[4] = {~0u, ~0u, ~0u, ~0u};
  bitvec* bv = bitvec_new_from(128, words);
  EXPECT_EQ(bv->owner, 0);
  bitvec_unset_range_sloppily(bv, 40, 70);  // words 1 and 2 as a whole
  EXPECT_EQ(words[0], ~0u);
  EXPECT_EQ(words[1], 0u);
  EXPECT_EQ(words[2], 0u);
  EXPECT_EQ(words[3], ~0u);
  bitvec_set_range(bv, 64, 65);
  bitvec_unset_range_sloppily(bv, 70, 128);  // the end of the last word is no word of its own
  EXPECT_EQ(words[2] | words[3], 0u);
  bitvec_release(bv);
  EXPECT_EQ(words[0], ~0u);  // wrapped words live on
}

TEST(BitvecDeathTest, ChecksItsBounds) {
  bitvec* bv = bitvec_new(40);
  bitvec* other = bitvec_new(41);
  EXPECT_DEATH(bitvec_set(bv, 40), "bit < bv->size");
  EXPECT_DEATH(bitvec_unset(bv, 40), "bit < bv->size");
  EXPECT_DEATH(bitvec_is_set(bv, ~0u), "bit < bv->size");
  EXPECT_DEATH(bitvec_add_range(bv, 3, 41), "to <= bv->size");
  EXPECT_DEATH(bitvec_copy_to(bv, other), "dst->size == src->size");
  bitvec_release(bv);
  bitvec_release(other);
}

TEST(Bitvec, Prints) {
  NorvLog log;
  bitvec* bv = bitvec_new(5);
  bitvec_set_range(bv, 1, 3);
  bitvec_print(bv);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> bitvec of 5: 01100\n");
  bitvec_release(bv);
}

TEST(Jdxlist, BehavesAsASet) {
  std::mt19937 random(11);
  for (int capacity : {0, 1, 5, 100}) {
    jdxlist* l = jdxlist_new(capacity);
    std::set<int> model;
    for (int step = 0; step < 500; ++step) {
      const int idx = static_cast<int>(random() % 30);
      if (random() % 2 && !model.count(idx)) {
        jdxlist_add(l, idx);
        model.insert(idx);
      } else {
        ASSERT_EQ(jdxlist_contains(l, idx), static_cast<int>(model.count(idx)));
        ASSERT_EQ(jdxlist_contains_remove(l, idx), static_cast<int>(model.erase(idx)));
      }
      ASSERT_EQ(std::set<int>(l->v, l->v + l->count), model);
      ASSERT_EQ(l->count, static_cast<int>(model.size()));
      ASSERT_LE(l->count, l->capacity);
    }
    jdxlist_free(l);
  }
  jdxlist_free(nullptr);
}

TEST(Jdxlist, LastElementMovesIntoTheHole) {
  NorvLog log;
  jdxlist* l = jdxlist_new(4);
  for (int idx : {10, 20, 30, 40}) l->v[l->count++] = idx;
  EXPECT_EQ(jdxlist_contains_remove(l, 20), 1);
  EXPECT_EQ(std::vector<int>(l->v, l->v + l->count), (std::vector<int>{10, 40, 30}));
  EXPECT_EQ(jdxlist_contains_remove(l, 30), 1);  // in the last place: nothing moves
  EXPECT_EQ(std::vector<int>(l->v, l->v + l->count), (std::vector<int>{10, 40}));
  EXPECT_EQ(jdxlist_contains_remove(l, 30), 0);
  jdxlist_print_as_int(l);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> jdxlist of 2: 10 40\n");
  jdxlist_free(l);
}

}  // namespace
