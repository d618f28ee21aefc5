// SPDX-License-Identifier: BSD-3-Clause
// Inertia with its certainty: signs that are called certain are those of LAPACK's eigenvalues.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gallery.hpp"
#include "numeric/tiny_pivots.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

struct Factored {
  int error, positive, negative, doubtful, doubtful_positive;

  Factored(const Matrix& m, const std::vector<std::pair<int, int>>& options, int threads = 1) {
    Session s(m, threads);
    for (const auto& [entry, value] : options) s.iparm(entry) = value;
    error = s.run(12);
    positive = s.iparm(22);
    negative = s.iparm(23);
    doubtful = s.iparm(44);
    doubtful_positive = s.iparm(45);
  }
  /// The doubtful signs explain what differs.
  bool admits(const Inertia& exact) const {
    const int sure_positive = positive - doubtful_positive;
    const int sure_negative = negative - (doubtful - doubtful_positive);
    return exact.positive >= sure_positive && exact.negative >= sure_negative;
  }
};

using Options = std::vector<std::pair<int, int>>;
const Options pivotings[] = {{{21, 0}, {13, 0}, {11, 0}},
                             {{21, 1}, {13, 0}, {11, 0}},
                             {{21, 1}, {13, 2}, {11, 1}, {10, 13}},
                             {{21, 0}, {13, 0}, {11, 0}, {10, 300}}};

TEST(Inertia, CertainSignsAreRight) {
  int certain = 0;
  for (const int mtype : {-2, -4})
    for (std::uint64_t seed = 1; seed <= 10; ++seed)
      for (const Matrix& m : {random_indefinite(90, 0.06, 0.3, seed, mtype),
                              random_indefinite(60, 0.2, 0.9, seed, mtype), dense(30, seed, mtype)})
        for (const Options& options : pivotings) {
          const Dense d = to_dense(m);
          if (!(dense_condition(d) < 1e6)) continue;
          const Factored f(m, options);
          ASSERT_EQ(f.error, 0);
          EXPECT_TRUE(f.admits(dense_inertia(d)))
              << m.name << " type " << mtype << " seed " << seed << " doubtful " << f.doubtful;
          if (f.doubtful == 0) ++certain;
        }
  EXPECT_GT(certain, 60);
}

TEST(Inertia, ZeroEigenvaluesHaveDoubtfulSigns) {
  for (std::uint64_t seed = 1; seed <= 5; ++seed) {
    Rng rng(seed);
    Builder builder("laplacian", -2, 40);
    for (int i = 0; i < 40; ++i) {
      builder.edge(i, (i + 1) % 40, rng.uniform(1, 2));
      builder.edge(i, (i + 11) % 40, rng.uniform(1, 2));
    }
    const Matrix m = builder.finish();
    for (const Options& options : pivotings) {
      const Factored f(m, options);
      EXPECT_GE(f.doubtful, 1) << seed;
      EXPECT_TRUE(f.admits({39, 0})) << seed;
    }
    const Factored single(m, {{29, 1}, {10, 300}});
    EXPECT_GE(single.doubtful, 1) << "as float rounds";
  }
}

TEST(Inertia, SmallIsNotDoubtful) {
  // Entries over 24 orders of magnitude, but each pivot exact beside what it is formed from.
  Rng rng(3);
  Builder builder("graded", -2, 60);
  for (int i = 0; i < 60; ++i) {
    const double size = std::pow(10.0, 12 - 0.4 * i);
    builder.add(i, i, i % 3 == 0 ? -size : size);
    if (i > 0) builder.add(i - 1, i, 0.1 * size);
  }
  const Matrix m = builder.finish();
  const Factored f(m, {{10, 30}});
  EXPECT_EQ(f.doubtful, 0);
  EXPECT_EQ(f.negative, 20);
}

TEST(Inertia, GrowthCountsInEveryScheduleAndFamily) {
  // Pivots of 1e-12 that no threshold replaces, beside entries of 1: updates of 1e12.
  const int n = 400;
  Rng rng(5);
  for (const int mtype : {-2, -4, 1, 3}) {
    Builder builder("growing", mtype, n);
    for (int i = 0; i < n / 2; ++i) {
      builder.add(i, i, 1e-12);
      for (int k = 0; k < 3; ++k) {
        const int j = n / 2 + rng.below(n / 2);
        builder.add(i, j, 1);
        if (mtype > 0) builder.add(j, i, 1);
      }
    }
    for (int i = n / 2; i < n; ++i) builder.add(i, i, 2);
    const Matrix m = builder.finish();
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) order[static_cast<std::size_t>(i)] = i + 1;
    for (const int threads : {1, 2})
      for (const int scheme : {0, 1}) {
        Session s(m, threads);
        s.perm = order;
        for (const auto& [entry, value] :
             Options{{5, 1}, {10, 14}, {11, 0}, {13, 0}, {21, 0}, {24, scheme}, {30, 1}})
          s.iparm(entry) = value;
        s.iparm(40) = 1;
        const auto b = random_vector(m, 1, 2);
        s.iparm(8) = 20;
        s.solve(b, 1, 13);
        EXPECT_EQ(s.iparm(14), 0);
        EXPECT_NE(s.iparm(41), 0) << "type " << mtype << ": growth is not good";
        if (mtype < 0) {
          EXPECT_GT(s.iparm(44), 10) << threads << " threads, scheme " << scheme;
        }
      }
  }
}

}  // namespace
}  // namespace vlm::test
