// SPDX-License-Identifier: BSD-3-Clause
// Whole solves through the public entry: every type, order and pivot rule, one and many
// right-hand sides, several threads.
#include <gtest/gtest.h>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

bool has_inertia(int mtype) { return mtype == 2 || mtype == -2 || mtype == 4 || mtype == -4; }
bool has_pivot_choice(int mtype) { return mtype == -2 || mtype == -4 || mtype == 6; }

class Solve : public testing::TestWithParam<int> {};

/// Complex diagonal systems are solved without counting.
bool has_counts(const Matrix& m) { return has_inertia(m.mtype) && (m.nnz() > m.n || !m.complex()); }

Inertia inertia_of(const Matrix& m) {
  if (m.positive >= 0) return {m.positive, m.negative};
  return has_inertia(m.mtype) ? dense_inertia(to_dense(m)) : Inertia{};
}

void expect_inertia(Session& s, const Inertia& right) {
  EXPECT_EQ(s.iparm(22), right.positive);
  EXPECT_EQ(s.iparm(23), right.negative);
}

// Orders 0 to 2 are the library's, 3 is a random one of the caller's.
TEST_P(Solve, EveryOrderAndPivotRuleGivesASmallBackwardError) {
  const int mtype = GetParam();
  for (const Matrix& m : well_conditioned(mtype)) {
    const Inertia right = inertia_of(m);
    for (int order = 0; order <= 3; ++order)
      for (int pivoting = 0; pivoting <= (has_pivot_choice(mtype) ? 1 : 0); ++pivoting) {
        SCOPED_TRACE(m.name + " order " + std::to_string(order) + " pivoting " +
                     std::to_string(pivoting));
        Session s(m);
        s.iparm(8) = 10;
        s.iparm(21) = pivoting;
        s.iparm(2) = std::min(order, 2);
        if (order == 3) {
          s.iparm(5) = 1;
          s.perm = Rng(3).permutation(m.n);
        }
        ASSERT_EQ(s.run(12), 0);
        const std::vector<double> b = random_vector(m, 3, 4);
        const std::vector<double> x = s.solve(b, 3);
        ASSERT_EQ(s.error, 0);
        EXPECT_LE(componentwise_error(m, x, b, 3), 1e-14);
        if (has_counts(m) && s.iparm(14) == 0) expect_inertia(s, right);
      }
  }
}

// The library's defaults as velmorainit leaves them, everything in one call.
TEST_P(Solve, DefaultsInOneCall) {
  for (const Matrix& m : well_conditioned(GetParam())) {
    SCOPED_TRACE(m.name);
    Session s(m);
    const std::vector<double> b = random_vector(m, 1, 5);
    const std::vector<double> x = s.solve(b, 1, 13);
    ASSERT_EQ(s.error, 0);
    EXPECT_LE(normwise_error(m, x, b), 1e-13);
    EXPECT_LE(s.iparm(7), std::max(2, s.iparm(8)));
  }
}

TEST_P(Solve, ManyRightHandSidesAndThreads) {
  const int mtype = GetParam();
  const std::vector<Matrix> list = well_conditioned(mtype);
  // The analysis is told of one right-hand side; the solves bring more.
  for (const std::size_t which : {list.size() / 2, list.size() - 1}) {
    const Matrix& m = list[which];
    for (const int threads : {1, 2, 4}) {
      Session s(m, threads);
      ASSERT_EQ(s.run(12), 0);
      for (const int nrhs : {1, 2, 3, 7, 64}) {
        SCOPED_TRACE(m.name + " threads " + std::to_string(threads) + " nrhs " +
                     std::to_string(nrhs));
        std::vector<double> b = random_vector(m, nrhs, 6);
        const std::size_t column = b.size() / nrhs;
        if (nrhs > 2) std::fill_n(b.begin() + 2 * column, column, 0.0);
        s.iparm(8) = 5;
        const std::vector<double> x = s.solve(b, nrhs);
        EXPECT_LE(componentwise_error(m, x, b, nrhs), 1e-14);
        for (std::size_t k = 2 * column; nrhs > 2 && k < 3 * column; ++k) ASSERT_EQ(x[k], 0.0);
      }
    }
  }
}

TEST_P(Solve, RefactorizationEqualsAFreshOne) {
  for (const Matrix& m : well_conditioned(GetParam())) {
    SCOPED_TRACE(m.name);
    const Matrix other = with_new_values(m, 7);
    const std::vector<double> b = random_vector(m, 2, 8);
    Session fresh(other), again(m);
    for (Session* s : {&fresh, &again}) {
      s->iparm(13) = s->iparm(11) = 0;  // a matching belongs to the values of the analysis
      s->iparm(8) = 0;
      ASSERT_EQ(s->run(12), 0);
    }
    again.use(other);
    ASSERT_EQ(again.factor(), 0);
    EXPECT_EQ(again.iparm(14), fresh.iparm(14));
    EXPECT_EQ(again.iparm(22), fresh.iparm(22));
    EXPECT_EQ(again.iparm(23), fresh.iparm(23));
    EXPECT_LE(relative_difference(again.solve(b, 2), fresh.solve(b, 2)), 1e-13);
  }
}

Matrix small_random(int mtype, int n, std::uint64_t seed) {
  switch (mtype) {
    case 2:
    case 4:
      return random_spd(n, 3, seed, mtype);
    case 1:
    case 3:
      return random_structurally_symmetric(n, 3, seed, mtype);
    case 11:
    case 13:
      return random_unsymmetric(n, 2, 0.5, seed, mtype);
    default:
      return random_indefinite(n, 0.5, 0.2, seed, mtype);
  }
}

// Sizes at which every loop has its first and last steps, and structures of every shape.
TEST_P(Solve, ManySmallRandomSystems) {
  for (int n = 1; n <= 12; ++n)
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
      const Matrix m = small_random(GetParam(), n, 100 * n + seed);
      if (dense_condition(to_dense(m)) > 1e6) continue;
      SCOPED_TRACE(m.name + " seed " + std::to_string(100 * n + seed));
      Session s(m);
      s.iparm(8) = 5;
      s.iparm(21) = 1;
      const std::vector<double> b = random_vector(m, 2, seed);
      const std::vector<double> x = s.solve(b, 2, 13);
      ASSERT_EQ(s.error, 0);
      if (s.iparm(14) == 0) {
        EXPECT_LE(normwise_error(m, x, b, 2), 1e-14);
        if (has_counts(m)) expect_inertia(s, inertia_of(m));
      }
    }
}

std::string type_name(const testing::TestParamInfo<int>& info) {
  return (info.param < 0 ? "minus" : "type") + std::to_string(std::abs(info.param));
}
INSTANTIATE_TEST_SUITE_P(Types, Solve, testing::ValuesIn(all_mtypes), type_name);

// Large enough for many panels, several domains and threads that share the work.
TEST(SolveLarge, SameAnswerWithEveryThreadCount) {
  for (const Matrix& m : {poisson3d(18), elasticity3d(9, 1), shifted_laplacian(70, 0.7, true, 2),
                          interior_point_kkt(30, 3, 4)}) {
    const std::vector<double> b = random_vector(m, 2, 9);
    for (const int threads : {1, 2, 4})
      for (const int levels : {0, 1}) {
        SCOPED_TRACE(m.name + " threads " + std::to_string(threads) + " levels " +
                     std::to_string(levels));
        Session s(m, threads);
        s.iparm(24) = s.iparm(25) = levels;
        s.iparm(21) = m.mtype == -2;
        s.iparm(8) = 5;
        ASSERT_EQ(s.run(12), 0);
        const std::vector<double> x = s.solve(b, 2);
        EXPECT_LE(componentwise_error(m, x, b, 2), 1e-14);
        if (m.positive >= 0 && s.iparm(14) == 0) expect_inertia(s, inertia_of(m));
      }
  }
}

}  // namespace
}  // namespace vlm::test
