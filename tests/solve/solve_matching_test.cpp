// SPDX-License-Identifier: BSD-3-Clause
// Weighted matching, scaling, transposed systems and single precision, through whole solves.
#include <gtest/gtest.h>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

bool has_matching(int mtype) { return mtype % 2 == 0 ? mtype != 2 && mtype != 4 : mtype > 10; }

/// Matching, scaling, Bunch-Kaufman: the settings for hard indefinite systems.
void robust(Session& s) {
  s.iparm(11) = 1;
  s.iparm(13) = 2;
  s.iparm(21) = 1;
}

TEST(SolveMatching, EveryModeKeepsTheBackwardErrorSmall) {
  for (const int mtype : {-2, -4, 6, 11, 13}) {
    for (const Matrix& m : well_conditioned(mtype))
      for (const int order : {0, 1, 2})
        for (const int scaling : {0, 1})
          for (const int mode : {1, 2, 3, 4}) {
            if (!m.triangle() && mode > 1) continue;  // the other modes shape 2x2 pivots
            SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " order " +
                         std::to_string(order) + " scaling " + std::to_string(scaling) + " mode " +
                         std::to_string(mode));
            Session s(m);
            s.iparm(2) = order;
            s.iparm(8) = 10;
            s.iparm(11) = scaling;
            s.iparm(13) = mode;
            s.iparm(21) = 1;
            ASSERT_EQ(s.run(12), 0);
            const std::vector<double> b = random_vector(m, 3, 1);
            EXPECT_LE(componentwise_error(m, s.solve(b, 3), b, 3), 1e-14);
          }
  }
}

TEST(SolveMatching, RecoversHiddenScalingsAndPermutations) {
  for (const int mtype : {11, 13}) {
    for (const Matrix& m : {badly_scaled(150, 3, 1, mtype), badly_scaled(150, 8, 2, mtype)})
      for (const int nrhs : {1, 40}) {
        SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
        Session s(m);  // matching and scaling are the defaults
        ASSERT_EQ(s.run(12), 0);
        EXPECT_EQ(s.iparm(14), 0);
        // The right-hand side of a solution whose terms are of the same size as the rows.
        const std::vector<double> b = product(m, random_vector(m, nrhs, 3), nrhs);
        EXPECT_LE(componentwise_error(m, s.solve(b, nrhs), b, nrhs), 1e-13);
      }
  }
  const Matrix m = circuit(400, 4);
  Session s(m);
  ASSERT_EQ(s.run(12), 0);
  const std::vector<double> b = random_vector(m, 1, 5);
  EXPECT_LE(normwise_error(m, s.solve(b), b), 1e-13);
}

TEST(SolveMatching, OptimizationSystemsOver16Decades) {
  for (const Matrix& m : {interior_point_kkt(12, 16, 1), interior_point_kkt(20, 16, 2),
                          saddle_point(9, 3), random_indefinite(150, 0.04, 1.0, 4)})
    for (const int mode : {1, 2, 3, 4})
      for (const int threads : {1, 3}) {
        SCOPED_TRACE(m.name + " mode " + std::to_string(mode));
        Session s(m, threads);
        robust(s);
        s.iparm(13) = mode;
        s.iparm(8) = 3;
        ASSERT_EQ(s.run(12), 0);
        const std::vector<double> b = random_vector(m, 1, 6);
        EXPECT_LE(normwise_error(m, s.solve(b), b), 1e-10);
        if (s.iparm(14) == 0) {
          const Inertia right =
              m.positive >= 0 ? Inertia{m.positive, m.negative} : dense_inertia(to_dense(m));
          EXPECT_EQ(s.iparm(22), right.positive);
          EXPECT_EQ(s.iparm(23), right.negative);
        }
      }
}

TEST(SolveMatching, LogDeterminantWithScaling) {
  for (const int mtype : {-2, -4, 6, 11, 13}) {
    const Matrix m =
        mtype > 10 ? badly_scaled(60, 3, 1, mtype) : random_indefinite(60, 0.2, 0.5, 3, mtype);
    SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
    Session s(m);
    s.iparm(33) = s.iparm(11) = s.iparm(13) = s.iparm(21) = 1;
    ASSERT_EQ(s.run(12), 0);
    ASSERT_EQ(s.iparm(14), 0);
    const double right = dense_log_abs_det(to_dense(m));
    EXPECT_NEAR(s.dparm(33), right, 1e-9 * (1 + std::abs(right)));
  }
}

TEST(SolveMatching, StructurallySingular) {
  for (const int mtype : {11, 13}) {
    SCOPED_TRACE(mtype);
    const Matrix bad = structurally_singular(60, 1, mtype);
    const Matrix good = random_unsymmetric(80, 4, 0.5, 2, mtype);
    Session s(bad);
    s.perm.resize(80);
    EXPECT_EQ(s.run(12), -6);
    s.use(good);
    const std::vector<double> b = random_vector(good, 1, 3);
    const std::vector<double> x = s.solve(b, 1, 13);
    EXPECT_EQ(s.error, 0);
    EXPECT_LE(normwise_error(good, x, b), 1e-14);
  }
  for (const int mtype : {-2, -4, 6}) {
    SCOPED_TRACE(mtype);
    const Matrix bad = structurally_singular(60, 1, mtype);
    Session s(bad);
    robust(s);
    ASSERT_EQ(s.run(12), 0);
    EXPECT_GT(s.iparm(14), 0);
    for (const double v : s.solve(random_vector(bad, 1, 4))) ASSERT_TRUE(std::isfinite(v));
  }
}

TEST(SolveTransposed, EqualsSolvingTheExplicitTranspose) {
  for (const int mtype : {1, 3, 11, 13}) {
    for (const Matrix& m : well_conditioned(mtype))
      for (const int matching : {0, 1}) {
        if (matching == 1 && !has_matching(mtype)) continue;
        for (const int nrhs : {1, 4}) {
          SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " matching " +
                       std::to_string(matching) + " nrhs " + std::to_string(nrhs));
          const Matrix explicit_transpose = transposed(m);
          const std::vector<double> b = random_vector(m, nrhs, 7);
          Session s(m), t(explicit_transpose);
          for (Session* one : {&s, &t}) {
            one->iparm(8) = 5;
            one->iparm(11) = one->iparm(13) = matching;
            ASSERT_EQ(one->run(12), 0);
          }
          const std::vector<double> straight = s.solve(b, nrhs);
          s.iparm(12) = 1;
          const std::vector<double> x = s.solve(b, nrhs);
          EXPECT_LE(componentwise_error(m, x, b, nrhs, true), 1e-14);
          EXPECT_LE(relative_difference(x, t.solve(b, nrhs)), 1e-9);
          // The two halves compose, and the factor still solves the straight system.
          s.iparm(8) = 0;
          const std::vector<double> plain = s.solve(b, nrhs);
          s.iparm(26) = 1;
          const std::vector<double> half = s.solve(b, nrhs);
          s.iparm(26) = 2;
          EXPECT_LE(relative_difference(s.solve(half, nrhs), plain), 1e-13);
          s.iparm(26) = s.iparm(12) = 0;
          s.iparm(8) = 5;
          EXPECT_LE(relative_difference(s.solve(b, nrhs), straight), 1e-13);
        }
      }
  }
}

TEST(SolveSingle, RefinementBringsDoubleAccuracy) {
  for (const int mtype : {1, -2, 11}) {
    for (const Matrix& m : well_conditioned(mtype)) {
      if (m.nnz() == m.n) continue;  // diagonal systems need no factor
      for (const int nrhs : {1, 3}) {
        SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
        const std::vector<double> b = random_vector(m, nrhs, 8);
        Session s(m), reference(m);
        s.iparm(29) = 1;
        s.iparm(21) = reference.iparm(21) = 1;
        ASSERT_EQ(s.run(12), 0);
        ASSERT_EQ(reference.run(12), 0);
        EXPECT_LE(s.iparm(17), reference.iparm(17));
        s.iparm(8) = 0;
        if (s.iparm(14) == 0 && m.n > 10) {
          const double plain = normwise_error(m, s.solve(b, nrhs), b, nrhs);
          EXPECT_GT(plain, 1e-12);  // it is single precision
          EXPECT_LT(plain, 1e-4);
        }
        s.iparm(8) = 20;
        EXPECT_LE(componentwise_error(m, s.solve(b, nrhs), b, nrhs), 1e-14);
      }
    }
  }
}

}  // namespace
}  // namespace vlm::test
