// SPDX-License-Identifier: BSD-3-Clause
// The iterative road with one allocation after the other failing: an error, nothing lost, and the
// next call solves.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "NORV/precons/factor_parts.hpp"
#include "NORV/precons/ildlt.hpp"
#include "allocations.hpp"
#include "caller.hpp"
#include "gallery.hpp"
#include "norv_log.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

void prepare(Caller& c, const Matrix& m, int threads) {
  c.init(1);
  c.iparm(3) = threads;
  c.dparm[1] = 1e-9;
  c.dparm[2] = 60;
  c.dparm[4] = c.dparm[5] = 1e-3;
  c.b = random_vector(m, 1, 7);
  c.x.assign(c.b.size(), 0.0);
  c.b_ptr = c.b.data();
  c.x_ptr = c.x.data();
}

/// Every `stride`-th allocation of each phase fails once.  @return how many did
int fail_in_turn(const Matrix& m, int threads, int stride) {
  {
    Caller c(m.mtype, m.ia, m.ja, m.a);
    prepare(c, m, threads);
    EXPECT_EQ(c.run(13), 0);  // what is made once is there
    c.run(-1);
  }
  int failures = 0;
  for (const int phase : {13, 23, 33}) {
    bool more = true;
    for (int k = 1; more; k += stride) {
      SCOPED_TRACE("phase " + std::to_string(phase) + ", allocation " + std::to_string(k));
      Caller c(m.mtype, m.ia, m.ja, m.a);
      prepare(c, m, threads);
      const long long before = allocations::live();
      EXPECT_EQ(phase != 13 ? c.run(12) : 0, 0);
      allocations::arm(k);
      const int error = c.run(phase);
      more = allocations::disarm().happened;
      if (error != 0) {
        ++failures;
        EXPECT_EQ(error, -2);
        // The handle takes a new analysis; a solve that failed can just be repeated.
        EXPECT_EQ(c.run(phase == 33 ? 33 : 13), 0);
      }
      EXPECT_LT(normwise_error(m, c.x, c.b), 1e-8);
      c.run(-1);
      EXPECT_EQ(allocations::live(), before);
      if (::testing::Test::HasFailure()) return failures;
    }
  }
  return failures;
}

TEST(IterativeFailure, EveryAllocationFailsOnce) {
  NorvLog log(0);
  // The larger one has a coarsest level that is factorized directly.
  for (const Matrix& m : {shifted_laplacian(14, 1.3, true, 3), shifted_laplacian(22, 1.3, true, 3),
                          helmholtz(14, 4.0, true, 6), badly_scaled(120, 2, 9)}) {
    SCOPED_TRACE(m.name);
    EXPECT_GT(fail_in_turn(m, 1, 1), 100);
  }
}

// A factor that is cut for threads stays whole when a part finds no memory.
TEST(IterativeFailure, EveryAllocationOfAFactorsParts) {
  norv::LdltFactor<double> f;
  f.n = 201;
  f.pivots = 200;
  f.start.push_back(0);
  for (int k = 0; k < f.pivots; ++k) {  // chains of ten that end in the last row
    *f.column.extend(1) = k % 10 == 9 ? 200 : k + 1;
    *f.value.extend(1) = 0.5;
    f.start.push_back(k + 1);
    f.d.push_back(2);
    f.e.push_back(0);
    f.is_pair.push_back(0);
  }
  Vector<double> whole(f.n, 1.0), y;
  norv::solve_forward(f, whole.data());
  int failures = 0;
  for (bool failed = true; failed; ++failures) {
    const long long before = allocations::live();
    allocations::arm(failures + 1);
    try {
      norv::FactorParts<double> parts(f);
      failed = allocations::disarm().happened;
      y.assign(f.n, 1.0);
      parts.forward(y.data(), 2);
    } catch (const AllocationFailure& failure) {
      EXPECT_EQ(failure.bytes, allocations::disarm().bytes);
      EXPECT_EQ(allocations::live(), before);
    }
  }
  EXPECT_GT(failures, 100);
  for (int i = 0; i < f.n; ++i) EXPECT_NEAR(y[i], whole[i], 1e-14 * std::abs(whole[i]));
}

// A factor large enough to be cut into parts: a sample of its allocations.
TEST(IterativeFailure, WithThreads) {
  NorvLog log(0);
  EXPECT_GT(fail_in_turn(shifted_laplacian(110, 0.02, true, 3), 2, 97), 20);
}

}  // namespace
}  // namespace vlm::test
