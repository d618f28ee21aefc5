// SPDX-License-Identifier: BSD-3-Clause
// prioq against a plain table of priorities, and its rule for equal priorities.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "norv.h"
#include "norv_log.hpp"

namespace {

using Model = std::map<int, double>;  // live elements with their priorities

double largest(const Model& model) {
  return std::max_element(model.begin(), model.end(),
                          [](auto& a, auto& b) { return a.second < b.second; })
      ->second;
}

/// Heap order, the inverse of every place, absence of everything else.
void expect_sound(const prioq* pq, const Model& model) {
  ASSERT_EQ(pq->size, model.size());
  unsigned live = 0;
  for (unsigned e = 0; e < pq->elems_prealloc; ++e) {
    if (pq->perm[e] < 0) continue;
    ++live;
    ASSERT_EQ(pq->oind[pq->perm[e]], static_cast<int>(e));
    ASSERT_EQ(pq->prio[e], model.at(static_cast<int>(e)));
  }
  ASSERT_EQ(live, pq->size);
  for (unsigned p = 1; p < pq->size; ++p)
    ASSERT_GE(pq->prio[pq->oind[(p - 1) / 2]], pq->prio[pq->oind[p]]);
}

void random_step(prioq* pq, Model& model, std::mt19937& random) {
  const int idx = static_cast<int>(random() % pq->elems_prealloc);
  const double prio = static_cast<double>(random() % 12);  // many equal ones
  const auto found = model.find(idx);
  switch (random() % 6) {
    case 0:
    case 1: {
      const bool stored = found == model.end() || found->second < prio;
      ASSERT_EQ(prioq_insert_replace_larger(pq, idx, prio), stored ? 1 : 0);
      if (stored) model[idx] = prio;
      break;
    }
    case 2:
      if (found == model.end()) prioq_insert(pq, idx, prio), model[idx] = prio;
      break;
    case 3:
      if (found != model.end()) pq_inc1(pq, idx), found->second += 1;
      break;
    case 4:
      if (found != model.end() && found->second >= 0) pq_dec1(pq, idx), found->second -= 1;
      break;
    default:
      if (model.empty()) break;
      ASSERT_EQ(pq_get_max_priority(pq), largest(model));
      const int top = pq_get_max_index(pq);
      ASSERT_EQ(model.at(top), largest(model));
      ASSERT_EQ(pq_remove_max(pq), top);
      model.erase(top);
  }
}

TEST(Prioq, BehavesAsATableOfPriorities) {
  std::mt19937 random(3);
  for (unsigned capacity : {1u, 2u, 10u, 77u}) {
    prioq* pq = prioq_new(capacity);
    Model model;
    for (int step = 0; step < 3000; ++step) {
      ASSERT_NO_FATAL_FAILURE(random_step(pq, model, random));
      ASSERT_NO_FATAL_FAILURE(expect_sound(pq, model));
      if (step % 1000 == 999) {
        prioq_clear(pq);
        model.clear();
        ASSERT_NO_FATAL_FAILURE(expect_sound(pq, model));
      }
    }
    pq_free(pq);
  }
  pq_free(nullptr);
}

TEST(Prioq, SortsAnArray) {
  std::mt19937 random(5);
  for (unsigned n : {0u, 1u, 2u, 50u}) {
    std::vector<double> values(n);
    Model model;
    for (unsigned i = 0; i < n; ++i) model[static_cast<int>(i)] = values[i] = random() % 9;
    prioq* pq = pq_new_from_array(values.data(), n);
    expect_sound(pq, model);
    std::vector<int> order(n, -1);
    pq_heap_sort(pq, order.data());
    EXPECT_EQ(pq->size, 0u);
    for (unsigned i = 1; i < n; ++i)
      EXPECT_GE(values[static_cast<unsigned>(order[i - 1])],
                values[static_cast<unsigned>(order[i])]);
    std::sort(order.begin(), order.end());
    for (unsigned i = 0; i < n; ++i) EXPECT_EQ(order[i], static_cast<int>(i));
    pq_free(pq);
  }
}

TEST(Prioq, EqualPrioritiesKeepTheirPlaces) {
  // All equal: the heap is the array, and each removal moves the last element to the root,
  // where it stays since no child is strictly larger.
  const double equal[5] = {1, 1, 1, 1, 1};
  prioq* pq = pq_new_from_array(equal, 5);
  EXPECT_EQ(std::vector<int>(pq->oind, pq->oind + 5), (std::vector<int>{0, 1, 2, 3, 4}));
  std::vector<int> order(5);
  pq_heap_sort(pq, order.data());
  EXPECT_EQ(order, (std::vector<int>{0, 4, 3, 2, 1}));
  pq_free(pq);

  // Two equal children above the moving element: the left one goes up.
  const double tie[4] = {9, 5, 5, 1};
  pq = pq_new_from_array(tie, 4);
  EXPECT_EQ(pq_remove_max(pq), 0);
  EXPECT_EQ(pq_get_max_index(pq), 1);
  pq_free(pq);
}

TEST(Prioq, ReplaceWithAnEqualPriorityChangesNothing) {
  prioq* pq = prioq_new(3);
  prioq_insert(pq, 2, 4.0);
  prioq_insert(pq, 0, 4.0);
  EXPECT_EQ(prioq_insert_replace_larger(pq, 0, 4.0), 0);
  EXPECT_EQ(prioq_insert_replace_larger(pq, 0, 3.0), 0);
  EXPECT_EQ(pq_get_max_index(pq), 2);
  EXPECT_EQ(pq->prio[0], 4.0);
  NorvLog log;
  pq_print(pq);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> prioq of 2: 2:4 0:4\n");
  pq_free(pq);
}

TEST(PrioqDeathTest, TrapsFaultsOfTheCaller) {
  prioq* pq = prioq_new(2);
  EXPECT_DEATH(pq_remove_max(pq), "pq->size > 0");
  EXPECT_DEATH(pq_inc1(pq, 1), "pq->perm\\[idx\\] >= 0");
  EXPECT_DEATH(prioq_insert_replace_larger(pq, 2, 1.0), "idx < \\(pq_idx_t\\) pq->elems_prealloc");
  prioq_insert(pq, 0, -0.5);
  EXPECT_DEATH(pq_dec1(pq, 0), "pq->prio\\[pq->oind\\[p_idx\\]\\] >= \\(pq_prio_t\\) 0");
  EXPECT_DEATH(prioq_insert(pq, 0, 1.0), "pq->perm\\[idx\\] < 0");
  prioq_insert(pq, 1, 1.0);
  EXPECT_DEATH(prioq_insert(pq, 1, 1.0), "pq->size < pq->elems_prealloc");
  pq_free(pq);
}

}  // namespace
