// SPDX-License-Identifier: BSD-3-Clause
/// The running estimate against computation by hand and against whole inverses.
#include "NORV/precons/condest.hpp"

#include "norv/condest.h"
#include "smat_dense.hpp"

namespace {

using namespace vlm::norv;
using namespace vlm::test;

/// One row behind position k with its state, as the exported routines take it.
struct Row {
  explicit Row(int n, int k_)
      : k(k_), values(std::size_t(n)), est(vec_new_zero(unsigned(2 * n))), cnt(perm_new(2 * n)) {
    values[std::size_t(k)] = 2;  // the pivot
  }
  void put(int j, double v, double z) {
    list.push_back(j);
    values[std::size_t(j)] = v;
    est->v[j + delays] = z;
  }
  double look(int strategy, double kappa = 1e300) {
    return cond_Lk11_delayed_est(kappa, list.data(), values.data(), int(list.size()), strategy,
                                 est.get(), cnt.get(), k, &mu, delays, &out, 0);
  }
  int k, delays = 0;
  std::vector<double> values;
  std::vector<int> list;
  Vec est;
  Perm cnt;
  double mu = -7, out = -7;
};

/// d = 2, z_k = 0.5: plus 0.25, minus -0.75.  Rows (1, 2) on z (0.5, -1): plus gives (0.75, -0.5),
/// minus (-0.25, -2.5): sums 1.25 and 2.75.
Row example() {
  Row r(6, 1);
  r.est->v[1] = 0.5;
  r.put(3, 1, 0.5);
  r.put(4, 2, -1);
  r.put(0, 100, 0);  // left of the position: ignored
  return r;
}

TEST(Condest, MaxChangeTakesTheLargerSum) {
  Row r = example();
  EXPECT_DOUBLE_EQ(r.look(0), 1.5);  // |d mu| = 2 * 0.75
  EXPECT_DOUBLE_EQ(r.mu, -0.75);
  EXPECT_DOUBLE_EQ(r.out, 1.5);
  EXPECT_EQ(r.cnt->p[3], 1);
  EXPECT_EQ(r.cnt->p[0], 0);
  EXPECT_DOUBLE_EQ(r.look(1), 3);  // step and value times d
  EXPECT_DOUBLE_EQ(r.mu, -1.5);
  EXPECT_DOUBLE_EQ(r.out, 3);
  EXPECT_DOUBLE_EQ(r.look(2), 1.5 + 2.75 / 2);  // and the mean of the sum
  Row empty(4, 1);
  empty.est->v[1] = 0.5;
  EXPECT_DOUBLE_EQ(empty.look(0), 1.5);  // the larger step
  EXPECT_DOUBLE_EQ(empty.mu, -0.75);
}

TEST(Condest, OrlundWeighsGrowthAgainstTheSum) {
  Row r = example();
  // Minus has the larger sum; its growth: 0.25 from 0.5 no change, 2.5 from 1 grows: +1.  Plus:
  // 0.75 from 0.5 none, 0.5 from 1: none.  Bound: max(1.5, 2.5).
  EXPECT_DOUBLE_EQ(r.look(3), 2.5);
  EXPECT_DOUBLE_EQ(r.mu, -0.75);
  EXPECT_DOUBLE_EQ(r.out, 1.5);
  // Beyond kappa nothing is chosen.
  r.out = -7;
  EXPECT_DOUBLE_EQ(r.look(3, 2), 2.5);
  EXPECT_EQ(r.mu, 0);
  EXPECT_EQ(r.out, -7);
  // More components grow on the side of the smaller sum: that side is taken.
  Row s(8, 0);
  s.values[0] = 1;
  s.k = 1;
  s.values[1] = 1;
  s.est->v[1] = 0;      // plus 1, minus -1
  s.put(2, 10, -0.5);   // plus 9.5, minus 10.5: both grow
  s.put(3, 0.7, 0.05);  // plus 0.75 grows, minus 0.65 grows
  s.put(4, 0.45, 0.2);  // plus 0.65 grows, minus 0.25 does not
  EXPECT_DOUBLE_EQ(s.look(3), 9.5);
  EXPECT_DOUBLE_EQ(s.mu, 1);
  // An empty row: |1 - z_k| within kappa, minus for the two others.
  Row empty(4, 1);
  empty.est->v[1] = 0.5;
  EXPECT_DOUBLE_EQ(empty.look(3), 0.5);
  EXPECT_DOUBLE_EQ(empty.look(4), 1.5);
}

TEST(Condest, OrlundTwoMeasuresAgainstEntries) {
  // z = 0: against z everything grows on both sides; against |d v| = 2|v| nothing does, and the
  // side of the larger sum stays.
  Row r(5, 1);
  r.est->v[1] = 0.5;               // plus 0.25, minus -0.75
  r.put(2, 4, 0);                  // plus 1, minus 3; reference 8: both shrink
  r.put(3, 1, 3);                  // plus 3.25, minus 2.25; reference 2: none
  EXPECT_DOUBLE_EQ(r.look(4), 3);  // minus: sum 5.25 against 4.25, max(1.5, 3)
  EXPECT_DOUBLE_EQ(r.look(5), 3 + 5.25 / 2);
}

TEST(Condest, SlotsMoveWithTheDelays) {
  Row r = example(), moved(6, 1);
  moved.delays = 2;
  moved.est->v[3] = 0.5;
  moved.put(3, 1, 0.5);
  moved.put(4, 2, -1);
  EXPECT_EQ(moved.look(3), r.look(3));
  EXPECT_EQ(moved.cnt->p[5], 1);
  cond_Lk11_delayed_commit(0, moved.values.data(), 2, moved.list.data(), moved.est.get(),
                           moved.cnt.get(), 1, &moved.mu, 2);
  EXPECT_DOUBLE_EQ(moved.est->v[5], 0.5 - 0.75);
  EXPECT_DOUBLE_EQ(moved.est->v[6], -1 - 1.5);
  // The first position clears all, whatever was there.
  Row first(4, 0);
  first.put(2, 1, 9);
  EXPECT_DOUBLE_EQ(first.look(3), 1);
  EXPECT_EQ(first.est->v[2], 0);
}

TEST(Condest, ComplexStepsUseModuli) {
  const int list[] = {1};
  const double values[] = {0, 2, 3, 4};  // d = 2i, v = 3 + 4i
  Vec est(vec_new_zero_cpx(4));
  Perm cnt(perm_new(4));
  double mu[2], out = 0;
  const double bound =
      cond_Lk11_delayed_est(1e300, list, values, 1, 3, est.get(), cnt.get(), 0, mu, 0, &out, 1);
  EXPECT_DOUBLE_EQ(out, 1);
  EXPECT_DOUBLE_EQ(bound, 2.5);  // |v / d|
  EXPECT_DOUBLE_EQ(mu[0], 0);
  EXPECT_DOUBLE_EQ(mu[1], -0.5);
  EXPECT_DEATH(
      cond_Lk11_delayed_est(1e300, list, values, 1, 4, est.get(), cnt.get(), 0, mu, 0, &out, 1),
      "is_complex == 0");
}

TEST(Condest, PairsSolveTheirBlock) {
  // Block [1 2; 2 1], z = (0.5, 0): right-hand side (0.5, 1) for ++ and so on.
  const PivotBlock<double, 2> block{1, 2, 1};
  const double here[2] = {0.5, 0};
  const int column[] = {0};
  const double first[] = {1}, second[] = {-1}, z[] = {0.25};
  const PivotRows<double, 2> rows{1, column, {first, second}};
  const auto step =
      condest_look<double, 2>(CondestStrategy::max_change_1, 1e300, block, here, rows, z, nullptr);
  // mu1 - mu2 = -(rhs1 - rhs2): ++ 0.5, +- -1.5, -+ 2.5, -- 0.5; with z: 0.75, 1.25, 2.75, 0.75.
  double image[2];
  block.apply(step.mu, image);
  EXPECT_NEAR(image[0], -1.5, 1e-14);
  EXPECT_NEAR(image[1], 1, 1e-14);
  EXPECT_NEAR(step.bound, 1.5, 1e-14);
  const auto orlund =
      condest_look<double, 2>(CondestStrategy::orlund_1, 1e300, block, here, rows, z, nullptr);
  EXPECT_NEAR(orlund.bound, 2.75, 1e-14);
}

TEST(Condest, FixedFormTakesAndGivesBack) {
  const int column[] = {0, 1};
  const double value[] = {1, 2};
  double z[] = {0.5, -1}, out;
  const PivotRows<double, 1> rows{2, column, {value}};
  const double mu = condest_fixed(2.0, 0.5, rows, z, nullptr, &out);
  EXPECT_DOUBLE_EQ(mu, -0.75);
  EXPECT_DOUBLE_EQ(out, -1.5);
  EXPECT_DOUBLE_EQ(z[1], -2.5);
  condest_fixed_undo(mu, rows, z);
  EXPECT_DOUBLE_EQ(z[0], 0.5);
  EXPECT_DOUBLE_EQ(z[1], -1);
}

TEST(Condest, WholeFactorEstimateIsALowerBound) {
  RandomContainers random(8);
  for (int run = 0; run < 20; ++run) {
    const int n = 15;
    const Smat L = random.matrix(n, n, NORV_REAL_SYM, 0.3);
    smat* strict = L.get();  // row k: columns right of k
    for (int i = 0; i < n; ++i)
      for (int p = strict->ia[i]; p < strict->ia[i + 1]; ++p)
        if (strict->ja[p] == i) strict->a[p] = 0;
    // Largest row sum of L^-1, row by row of the columns.
    std::vector<double> sums(L->m);
    for (int c = 0; c < n; ++c) {
      std::vector<double> x(std::size_t(n), 0.0);
      x[std::size_t(c)] = 1;
      for (int k = 0; k < n; ++k) {
        for (int p = strict->ia[k]; p < strict->ia[k + 1]; ++p)
          x[std::size_t(strict->ja[p])] -= strict->a[p] * x[std::size_t(k)];
        sums[std::size_t(k)] += std::fabs(x[std::size_t(k)]);
      }
    }
    const double norm = *std::max_element(sums.begin(), sums.end());
    const double estimate = condest_L_simple(strict);
    EXPECT_LE(estimate, norm * (1 + 1e-12));
    EXPECT_GE(estimate, norm / n);
  }
}

}  // namespace
