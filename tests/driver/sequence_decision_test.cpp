// SPDX-License-Identifier: BSD-3-Clause
// Sequences of matrices: the decisions by given times.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <vector>

#include "driver/sequence.hpp"

namespace vlm::test {
namespace {

TEST(SequenceDecision, OptionIsMethodAndTolerance) {
  struct Case {
    int entry, k;
    double tolerance;
  };
  for (const Case c : {Case{0, 0, 1e-12},
                       {2, 2, 1e-12},
                       {-1, -1, 1e-12},
                       {31, 1, 1e-3},
                       {-31, -1, 1e-3},
                       {60, 0, 1e-6},
                       {109, 9, 1e-10}}) {
    const StabilisedOption option = stabilised_option(c.entry);
    EXPECT_EQ(option.k, c.k);
    EXPECT_DOUBLE_EQ(option.tolerance, c.tolerance);
  }
  EXPECT_EQ(stabilised_option(std::numeric_limits<int>::min()).k, -8);
}

TEST(SequenceDecision, BudgetComesFromTheTimes) {
  struct Case {
    int k;
    double factor, solve;
    int most, judged_from;
  };
  for (const Case c : {Case{1, 10, 1, 14, 8},
                       {2, 10, 1, 28, 15},
                       {1, 0, 1, 1, 1},
                       {1, 1e3, 1, 100, 51},
                       {1, 1, 1e-10, 0, 1},
                       {3, 1, 2e-10, 100, 51},
                       {-1, 1e3, 1, 150, 76},
                       {-2, 0, 0, 150, 76},
                       {1, -1e9, 1, 0, 1}}) {
    const IterationLimits limits = iteration_limits(c.k, {c.factor, c.solve, 2});
    EXPECT_EQ(limits.most, c.most) << c.k << " " << c.factor;
    EXPECT_EQ(limits.judged_from, c.judged_from) << c.k << " " << c.factor;
  }
  // Steps that cost less than a factorization; K < 0 may take them all.
  EXPECT_LT(iteration_limits(1, {10, 1, 2}).affordable, 5);
  EXPECT_GT(iteration_limits(1, {10, 1, 1}).affordable, 5);
  EXPECT_GT(iteration_limits(-1, {10, 1, 1}).affordable, 1e9);
}

/// A sequence in which a kept factor takes `counts` iterations at one step after the other,
/// negative for a failure; a factorization is worth `worth` solves.  @return the steps that factor
std::vector<int> factored(int k, double worth, const std::vector<int>& counts) {
  ReuseHistory history;
  const MeasuredTimes times{worth, 1, 1};
  std::vector<int> steps;
  int figure = 0, age = 0;
  for (int step = 0; step < static_cast<int>(counts.size()); ++step) {
    const auto solve = [&](int count, bool fresh) {
      const IterationResult result{.count = std::abs(count), .code = count < 0 ? -2 : 0};
      note_solve(history, iteration_limits(k, times), times, result, fresh);
      figure = result.figure();
    };
    const auto factor = [&] {
      note_factorization(history);
      steps.push_back(step);
      age = 0;
      solve(1, true);
    };
    if (step == 0 || !keeps_factor(history, k, figure)) {
      factor();
      continue;
    }
    solve(counts[static_cast<std::size_t>(age++)], false);
    if (figure < 0 && k > 0) factor();
  }
  return steps;
}

TEST(SequenceDecision, FactorsAreKeptWhileTheyPay) {
  // Nothing measured yet, then no change at all.
  EXPECT_EQ(factored(1, 40, std::vector<int>(10, 2)), (std::vector<int>{0}));
  // Too few iterations are affordable.
  EXPECT_EQ(factored(1, 2, {1, 1, 1, 1}), (std::vector<int>{0, 1, 2, 3}));
  // Each step takes more than the one before: the time for each step is least with five of them.
  EXPECT_EQ(factored(1, 40, {5, 9, 13, 17, 21, 25, 29, 33}), (std::vector<int>{0, 5}));
  // A factor that fails at once is tried again after 1, 2, 4, 8 and 16 steps.
  std::vector<int> always;
  for (int step = 0; step < 60; ++step) always.push_back(step);
  EXPECT_EQ(factored(1, 40, std::vector<int>(60, -4)), always);
  int tries = 0;
  ReuseHistory history;
  const MeasuredTimes times{40, 1, 1};
  for (int step = 0; step < 60; ++step) {
    if (keeps_factor(history, 1, 0)) {
      ++tries;
      note_solve(history, iteration_limits(1, times), times, {4, -2, 0}, false);
    }
    note_factorization(history);
    note_solve(history, iteration_limits(1, times), times, {1, 0, 0}, true);
  }
  EXPECT_EQ(tries, 7);
  // A success that takes longer than a factorization counts as one that failed.
  EXPECT_EQ(factored(1, 10, {13, 13, 13, 13, 13, 13, 13, 13}), (std::vector<int>{0, 2, 4, 5, 7}));
  // With K below 0 only a failure leads to another factor.
  EXPECT_EQ(factored(-1, 0, {90, 90, 90, 90}), (std::vector<int>{0}));
  EXPECT_EQ(factored(-1, 40, {9, -9, 9, 9}), (std::vector<int>{0, 3}));
}

}  // namespace
}  // namespace vlm::test
