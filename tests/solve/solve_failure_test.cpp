// SPDX-License-Identifier: BSD-3-Clause
// Matrices that cannot be solved, or not as they stand: they come back in finite time with an
// error, a perturbed pivot or a NaN, and the handle stays usable.
#include <gtest/gtest.h>

#include <limits>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();
const double inf = std::numeric_limits<double>::infinity();

bool all_finite(const std::vector<double>& v) {
  return std::all_of(v.begin(), v.end(), [](double x) { return std::isfinite(x); });
}

TEST(SolveFailure, NotANumberIsNeverAnAnswer) {
  for (const int mtype : all_mtypes) {
    const std::vector<Matrix> list = well_conditioned(mtype);
    for (const Matrix& good : {list[list.size() / 2], list.back()})
      for (const double value : {nan, inf, -inf})
        for (const int place : {0, 1, good.nnz() / 2, good.nnz() - 1})
          for (const int pivoting : {0, 1}) {
            if (good.nnz() <= place || good.nnz() == good.n) continue;
            SCOPED_TRACE(good.name + " type " + std::to_string(mtype) + " value " +
                         std::to_string(value) + " entry " + std::to_string(place));
            Matrix bad = good;
            bad.a[static_cast<std::size_t>(place) * good.nvals()] = value;
            Session s(bad);
            s.iparm(21) = pivoting;
            const std::vector<double> b = random_vector(bad, 1, 1);
            const std::vector<double> x = s.solve(b, 1, 13);
            EXPECT_TRUE(s.error != 0 || !all_finite(x));
            // The same handle takes a good matrix afterwards.
            s.use(good);
            const std::vector<double> y = s.solve(b, 1, 13);
            EXPECT_EQ(s.error, 0);
            EXPECT_LE(normwise_error(good, y, b), 1e-12);
          }
  }
}

TEST(SolveFailure, NotPositiveDefinite) {
  for (const Matrix& good : {elasticity3d(4, 1), poisson2d(12), magnetic_laplacian(4, 0, 1)}) {
    SCOPED_TRACE(good.name);
    Session s(good);
    const std::vector<double> b = random_vector(good, 1, 2);
    for (const double pivot : {0.0, -1.0}) {
      Matrix bad = good;
      bad.a[static_cast<std::size_t>(bad.ia[bad.n / 2] - 1) * bad.nvals()] = pivot;
      s.use(bad);
      EXPECT_EQ(s.run(12), -4);
      s.use(good);
      ASSERT_EQ(s.factor(), 0);
      EXPECT_LE(normwise_error(good, s.solve(b), b), 1e-14);
    }
  }
}

// Zero diagonal and nothing that pivoting on the diagonal could use.
TEST(SolveFailure, ZeroPivotsArePerturbedAndRefined) {
  for (const Matrix& m : {saddle_point(4, 1), random_indefinite(60, 0.2, 1.0, 2)}) {
    SCOPED_TRACE(m.name);
    Session s(m);
    s.iparm(21) = 0;
    s.iparm(5) = 1;
    for (int i = 0; i < m.n; ++i) s.perm[i] = m.n - i;  // zero block first
    ASSERT_EQ(s.run(12), 0);
    EXPECT_GT(s.iparm(14), 0);
    const int perturbed = s.iparm(14);
    s.iparm(8) = 0;
    std::vector<double> b = random_vector(m, 1, 3);
    s.solve(b);
    EXPECT_EQ(s.iparm(7), 2);  // the automatic steps
    EXPECT_EQ(s.iparm(14), perturbed);
  }
}

TEST(SolveFailure, SingularMatricesGiveFiniteNumbers) {
  for (const int mtype : {-2, -4, 6}) {
    Builder builder("null_rows", mtype, 40);
    for (int i = 0; i < 40; ++i)
      if (i % 10 != 3) {
        builder.add(i, i, 2);
        if (i % 10 != 2 && i + 1 < 40) builder.add(i, i + 1, 1);
      }
    const Matrix m = builder.finish();
    for (const int pivoting : {0, 1}) {
      SCOPED_TRACE(std::to_string(mtype) + " pivoting " + std::to_string(pivoting));
      Session s(m);
      s.iparm(21) = pivoting;
      s.iparm(11) = s.iparm(13) = 0;
      ASSERT_EQ(s.run(12), 0);
      EXPECT_EQ(s.iparm(14), 4);
      EXPECT_TRUE(all_finite(s.solve(random_vector(m, 1, 4))));
    }
  }
}

}  // namespace
}  // namespace vlm::test
