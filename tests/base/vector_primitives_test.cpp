// SPDX-License-Identifier: BSD-3-Clause
// Sums, copies and updates of vectors against plain loops, on both sides of the length from which
// a team is used.
#include "base/vector_primitives.hpp"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(VectorPrimitives, AgreeWithPlainLoopsOnEveryTeam) {
  for (const std::size_t length : {0, 1, 7, 16, 99999, 100000, 100003}) {
    // Quarters of small integers: every sum is exact in any order.
    std::mt19937 random(static_cast<unsigned>(length));
    std::vector<double> x(length), old(length);
    for (double& v : x) v = static_cast<int>(random() % 4001) / 4.0 - 500;
    for (double& v : old) v = static_cast<int>(random() % 4001) / 4.0 - 500;
    double sum = 0;
    std::vector<double> updated = old;
    for (std::size_t k = 0; k < length; ++k) {
      sum += std::abs(x[k]);
      updated[k] += x[k];
    }
    for (const int nthreads : {1, 2, 3}) {
      SCOPED_TRACE(testing::Message() << "length " << length << " threads " << nthreads);
      std::vector<double> y = old;
      EXPECT_EQ(vlm::sum_of_absolutes(length, x.data(), nthreads), sum);
      EXPECT_EQ(vlm::sum8_16(length, x.data(), y.data(), nthreads), sum);
      EXPECT_EQ(y, updated);
      EXPECT_EQ(vlm::conv8_16(length, x.data(), y.data(), nthreads), sum);
      EXPECT_EQ(y, x);
    }
  }
}

TEST(VectorPrimitives, OneThreadOpensNoRegion) {
  const auto level = [](int, int) { return static_cast<double>(omp_get_level()); };
  EXPECT_EQ(vlm::sum_over_team(1, level), 0.0);
  EXPECT_GE(vlm::sum_over_team(2, level), 1.0);
}

}  // namespace
