// SPDX-License-Identifier: BSD-3-Clause
// Permutations and their cycles, by their algebra.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "norv.h"
#include "norv_log.hpp"

namespace {

perm* random_perm(int n, std::mt19937& random) {
  perm* p = perm_new(n);
  perm_ident(p);
  std::shuffle(p->p, p->p + n, random);
  return p;
}

std::vector<int> places(const perm* p) { return {p->p, p->p + p->n}; }

TEST(Perm, InverseAndComposition) {
  std::mt19937 random(17);
  for (int n : {0, 1, 2, 9, 100}) {
    perm* p = random_perm(n, random);
    perm* q = random_perm(n, random);
    EXPECT_TRUE(perm_is_consistent(p));
    perm* inverse = perm_copy_invert(nullptr, p);
    perm* product = perm_copy(nullptr, p);
    perm_permute(product, inverse);
    EXPECT_TRUE(perm_is_ident(product));

    // (q after p) inverted is (p inverted) after (q inverted).
    perm_copy(product, p);
    perm_permute(product, q);
    for (int i = 0; i < n; ++i) ASSERT_EQ(product->p[i], q->p[p->p[i]]);
    perm_invert(product);
    perm_invert(q);
    perm_permute(q, inverse);
    EXPECT_TRUE(perm_equal(product, q));

    perm_copy(product, p);
    perm_mirror(product);
    for (int i = 0; i < n; ++i) ASSERT_EQ(product->p[i], n - 1 - p->p[i]);
    perm_mirror(product);
    EXPECT_TRUE(perm_equal(product, p));
    if (n > 1) {
      std::swap(product->p[0], product->p[1]);
      EXPECT_FALSE(perm_equal(product, p));
    }
    for (perm* each : {p, q, inverse, product}) perm_free(each);
  }
  perm_free(nullptr);
}

TEST(Perm, Fills) {
  int outside[3] = {2, 0, 1};
  perm* wrapped = perm_new_from(3, outside);
  perm* copy = perm_new_copy_from(3, outside);
  perm_range(wrapped, 4);
  EXPECT_EQ(std::vector<int>(outside, outside + 3), (std::vector<int>{4, 5, 6}));
  EXPECT_EQ(places(copy), (std::vector<int>{2, 0, 1}));
  EXPECT_FALSE(perm_is_ident(copy));
  perm_set(copy, -3);
  EXPECT_EQ(places(copy), (std::vector<int>{-3, -3, -3}));
  perm_clear(copy);
  EXPECT_EQ(places(copy), (std::vector<int>{0, 0, 0}));
  free(wrapped);
  perm_free(copy);
}

TEST(Perm, BlocksAndMarks) {
  std::mt19937 random(23);
  const int bs = 3, blocks = 20;
  perm* small = random_perm(blocks, random);
  perm* large = perm_new(bs * blocks);
  for (int i = 0; i < large->n; ++i) large->p[i] = small->p[i / bs] * bs + i % bs;
  perm* condensed = perm_copy_condense(nullptr, large, bs);
  EXPECT_TRUE(perm_equal(condensed, small));

  bitvec* marked = bitvec_new(blocks);
  for (unsigned i : {3u, 4u, 11u, 19u}) bitvec_set(marked, i);
  build_permutation(condensed, marked);
  int last[2] = {-1, 3};  // both groups keep their order
  for (int i = 0; i < blocks; ++i) {
    int& before = last[bitvec_is_set(marked, static_cast<unsigned>(i)) ? 0 : 1];
    EXPECT_EQ(condensed->p[i], ++before);
  }
  bitvec_release(marked);
  for (perm* each : {small, large, condensed}) perm_free(each);
}

TEST(Perm, ConsistencyIsReported) {
  NorvLog log;
  perm* p = perm_new(6);
  const int faulty[6] = {0, 7, 0, -1, 3, 3};
  std::copy_n(faulty, 6, p->p);
  EXPECT_FALSE(perm_is_consistent(p));
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> ERROR: Permutation contains 2 out-of-range elements (first:  1 -> 7)\n"
            "[VELMORA/ML]>> ERROR: Permutation contains 2 multiple element pairs (first: 2 -> 0)\n"
            "[VELMORA/ML]>> ERROR: Permutation is inconsistent!\n");
  perm_mirror(p);
  perm_print(p);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> perm of 6: 5 -2 5 6 2 2\n");
  perm_ident(p);
  EXPECT_TRUE(perm_is_consistent(p));
  EXPECT_EQ(log.take(), "");
  perm_free(p);
}

TEST(PermDeathTest, TrapsFaultsOfTheCaller) {
  perm* p = perm_new(3);
  perm* q = perm_new(4);
  EXPECT_DEATH(perm_permute(p, q), "p->n == q->n");
  EXPECT_DEATH(perm_copy(p, q), "dst->n == n");
  EXPECT_DEATH(permcycle_new_from(p), "perm_is_consistent\\(p\\)");
  for (int i = 0; i < 3; ++i) p->p[i] = (i + 1) % 3;
  permcycle* c = permcycle_new_from(p);
  EXPECT_DEATH(permcycle_map_2_cycles(nullptr, c), "<= 2");
  permcycle_free(c);
  perm_set(p, 3);
  EXPECT_DEATH(perm_invert(p), "in_range");
  EXPECT_DEATH(permcycle_new_from(p), "bit < bv->size");
  EXPECT_DEATH(perm_new(-1), "n >= 0");
  EXPECT_EXIT(perm_new(0x7fffffff), ::testing::ExitedWithCode(7), "");
  perm_free(p);
  perm_free(q);
}

TEST(Permcycle, GoesThereAndBack) {
  std::mt19937 random(29);
  for (int n : {0, 1, 2, 7, 60}) {
    perm* p = random_perm(n, random);
    permcycle* c = permcycle_new_from(p);
    ASSERT_EQ(c->start[c->ncyc], n);
    for (int k = 0, smallest = -1; k < c->ncyc; ++k) {
      ASSERT_LT(smallest, c->elem[c->start[k]]);
      smallest = c->elem[c->start[k]];
      for (int i = c->start[k]; i < c->start[k + 1]; ++i) {
        const bool last = i + 1 == c->start[k + 1];
        ASSERT_EQ(p->p[c->elem[i]], c->elem[last ? c->start[k] : i + 1]);
        ASSERT_GE(c->elem[i], smallest);
      }
    }
    perm* back = permcycle_to_new_perm(c);
    EXPECT_TRUE(perm_equal(back, p));
    perm_free(back);

    permcycle* pairs = permcycle_split_2(c);
    ASSERT_EQ(pairs->start[pairs->ncyc], n);
    perm* map = permcycle_map_2_cycles(nullptr, pairs);
    for (int i = 0; i < n; ++i) ASSERT_LT(map->p[i], pairs->ncyc);
    back = permcycle_to_new_perm(pairs);
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(back->p[back->p[i]], i);         // pairs and single members only
      EXPECT_EQ(map->p[back->p[i]], map->p[i]);  // partners share a number
      EXPECT_TRUE(back->p[i] == i || back->p[i] == p->p[i] || p->p[back->p[i]] == i);
    }
    perm_free(back);
    perm_free(map);
    permcycle_free(pairs);
    permcycle_free(c);
    perm_free(p);
  }
  permcycle_free(nullptr);
}

TEST(Permcycle, OddCyclesGiveUpTheirFirstMember) {
  // (0 1 2 3 4)(5 6 7 8)
  int images[9] = {1, 2, 3, 4, 0, 6, 7, 8, 5};
  perm* p = perm_new_from(9, images);
  permcycle* c = permcycle_new_from(p);
  permcycle* pairs = permcycle_split_2(c);
  EXPECT_EQ(std::vector<int>(pairs->start, pairs->start + pairs->ncyc + 1),
            (std::vector<int>{0, 1, 3, 5, 7, 9}));
  EXPECT_EQ(std::vector<int>(pairs->elem, pairs->elem + 9),
            (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
  permcycle_free(pairs);
  permcycle_free(c);
  free(p);
}

}  // namespace
