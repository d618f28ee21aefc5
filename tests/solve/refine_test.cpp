// SPDX-License-Identifier: BSD-3-Clause
// Stopping rules of the refinement, with solvers whose error is known.
#include "solve/refine.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

#include "base/status.hpp"
#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace {

using vlm::test::cplx;
using vlm::test::Matrix;

/// A solve phase on a small matrix whose solver returns factor * A^{-1} rhs: with the factor
/// 1-e every step leaves e times the residual before.  The columns may have factors of their own.
struct Phase {
  Matrix m;
  int nrhs = 1;
  std::vector<double> factor;
  bool fail_at_second = false;
  vlm::RefineOptions options;
  vlm::RefineResult result;
  std::vector<double> b, x;
  int solves = 0;

  Phase(const Matrix& matrix, int refine, double solver_factor, int columns = 1)
      : m(matrix),
        nrhs(columns),
        factor(static_cast<std::size_t>(columns), solver_factor),
        options{.type = vlm::matrix_type(matrix.mtype), .due = true, .limit = refine} {
    b = vlm::test::random_vector(m, nrhs, 7);
    x.assign(b.size(), NAN);
  }

  int run() {
    const auto inverse = vlm::test::to_dense(options.transpose ? vlm::test::transposed(m) : m);
    // Exactly the promised room, so that a sanitizer sees a step beyond it.
    std::vector<double> cgs(vlm::refine_bytes(options, m.n, nrhs) / sizeof(double), NAN);
    std::vector<double> room(vlm::refine_room_bytes(options, m.n, nrhs) / sizeof(double), NAN);
    const vlm::RefineCall call{.options = options,
                               .matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()},
                               .n = m.n,
                               .nrhs = nrhs,
                               .b = b.data(),
                               .x = options.solution_in_b ? nullptr : x.data(),
                               .cgs_arr = cgs.data(),
                               .room = room.data()};
    solves = 0;
    const auto solve = [&](int columns, const double* in, double* out) {
      if (++solves == 2 && fail_at_second) return static_cast<int>(vlm::status_pivot);
      const auto count = static_cast<std::size_t>(m.n) * columns * m.nvals();
      const std::vector<double> rhs(in, in + count);
      std::vector<cplx> dense(static_cast<std::size_t>(m.n) * columns);
      for (std::size_t k = 0; k < dense.size(); ++k) dense[k] = vlm::test::vector_value(m, rhs, k);
      dense = vlm::test::dense_solve(inverse, dense, columns);
      for (std::size_t k = 0; k < dense.size(); ++k) {
        const cplx v = factor[k / static_cast<std::size_t>(m.n)] * dense[k];
        out[k * static_cast<std::size_t>(m.nvals())] = v.real();
        if (m.complex()) out[2 * k + 1] = v.imag();
      }
      return 0;
    };
    return vlm::refine_velmora(call, solve, result);
  }
};

Matrix small(int mtype = -2) { return vlm::test::dense(12, 3, mtype); }

TEST(Refinement, PlainSolveWhenNoneIsDue) {
  Phase none(small(), 3, 0.9);
  none.options.due = false;
  none.result.steps = 5;
  EXPECT_EQ(none.run(), 0);
  EXPECT_EQ(none.solves, 1);
  EXPECT_EQ(none.result.steps, 0);
}

TEST(Refinement, StepsEndWhereTheRulesSay) {
  struct Case {
    const char* what;
    int refine;
    double factor;
    int steps, status;
  };
  // A factor f leaves |1-f| of the residual; the plain solve counts as its first reduction.
  const Case cases[] = {
      {"one step as asked", 1, 0.99, 1, 0},
      {"limit reached while contracting", 5, 0.9, 5, 0},
      {"accumulator, limit reached", -5, 0.9, 5, 0},
      {"constant residual, three steps granted, limit 2", 2, 2.0, 2, 0},
      {"constant residual, limit 4", 4, 2.0, 4, 0},
      {"constant residual ends at step 4", 9, 2.0, 4, vlm::status_contraction},
      {"accumulator, constant residual", -9, 2.0, 4, vlm::status_contraction},
      {"diverging: first growth is forgiven", 9, 4.0, 4, vlm::status_contraction},
      {"diverging, limit 3", 3, 4.0, 3, 0},
      // 0.92: steps 1 to 3 are granted, 0.92^2 < 0.9 beats the start at step 2, so best is
      // 0.92^2; 0.92^3 is no contraction but granted; 0.92^4 < 0.9*0.92^2 goes on; step 5 ends.
      {"slow", 9, 0.08, 5, vlm::status_contraction},
      // The correction is nothing beside the solution: not contracting is no error.
      {"exact solver stagnates at rounding level", 9, 1.0, -1, 0},
      {"zero solution of a non-zero right-hand side", 9, 0.0, 4, vlm::status_contraction},
  };
  for (const Case& c : cases) {
    Phase phase(small(), c.refine, c.factor);
    EXPECT_EQ(phase.run(), c.status) << c.what;
    if (c.steps >= 0) {
      EXPECT_EQ(phase.result.steps, c.steps) << c.what;
    }
    EXPECT_EQ(phase.solves, 1 + phase.result.steps) << c.what;
    EXPECT_FALSE(phase.result.cut) << c.what;
  }
}

TEST(Refinement, PerturbedPivotsAskForTwoSteps) {
  Phase phase(small(), 0, 0.999);
  EXPECT_EQ(phase.run(), 0);
  EXPECT_EQ(phase.result.steps, 2);
  EXPECT_TRUE(phase.result.cut);
  EXPECT_LT(vlm::test::normwise_error(phase.m, phase.x, phase.b), 1e-8);

  Phase stuck(small(), 0, 1.95);
  EXPECT_EQ(stuck.run(), vlm::status_contraction);
  EXPECT_EQ(stuck.result.steps, 1);
  EXPECT_FALSE(stuck.result.cut);

  // A first solution worse than none does not take the second step away.
  Phase growing(small(), 0, 4.0);
  EXPECT_EQ(growing.run(), 0);
  EXPECT_EQ(growing.result.steps, 2);
}

TEST(Refinement, ReachesFullAccuracyForEveryTypeAndPlaceOfTheSolution) {
  for (const int mtype : vlm::test::all_mtypes) {
    for (const int refine : {8, -8}) {
      for (const int overwrite : {0, 1}) {
        for (const int transpose : {0, 1}) {
          if (transpose == 1 && mtype % 2 == 0) continue;
          for (const int nthreads : {1, 2}) {
            Phase phase(small(mtype), refine, 1.01, 3);
            phase.options.solution_in_b = overwrite == 1;
            phase.options.transpose = transpose == 1;
            phase.options.threads = nthreads;
            const auto rhs = phase.b;
            ASSERT_EQ(phase.run(), 0);
            const auto& solution = overwrite ? phase.b : phase.x;
            if (!overwrite) {
              EXPECT_EQ(phase.b, rhs);
            }
            EXPECT_LT(vlm::test::componentwise_error(phase.m, solution, rhs, 3, transpose), 1e-14)
                << "mtype " << mtype << " refine " << refine << " overwrite " << overwrite
                << " transpose " << transpose;
          }
        }
      }
    }
  }
}

double sum_of(const double* first, const double* last) {
  return std::accumulate(first, last, 0.0, [](double s, double v) { return s + std::abs(v); });
}

/// 1-norm of the residual of one column.
double residual(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
                int column) {
  const auto n = static_cast<std::ptrdiff_t>(m.n) * m.nvals();
  const auto part = [&](const auto& v) {
    return std::vector(v.begin() + n * column, v.begin() + n * (column + 1));
  };
  std::vector<double> r = vlm::test::product(m, part(x), 1);
  const std::vector<double> rhs = part(b);
  for (std::size_t k = 0; k < r.size(); ++k) r[k] -= rhs[k];
  return sum_of(r.data(), r.data() + n);
}

TEST(Refinement, EachColumnReceivesItsBestIterate) {
  for (const int mtype : {-2, 13}) {
    for (const int refine : {1, 3, -3}) {
      for (const bool overwrite : {false, true}) {
        Phase phase(small(mtype), refine, 1.0, 3);
        phase.factor = {4.0, 0.9, 1.5};  // residuals times 3, 0.1, 0.5 a step
        phase.options.solution_in_b = overwrite;
        const auto rhs = phase.b;
        phase.run();
        const auto& x = overwrite ? phase.b : phase.x;
        const double left[] = {3, std::pow(0.1, std::abs(refine) + 1),
                               std::pow(0.5, std::abs(refine) + 1)};
        const auto n = static_cast<std::ptrdiff_t>(rhs.size()) / 3;
        for (int k = 0; k < 3; ++k) {
          const double size = sum_of(rhs.data() + n * k, rhs.data() + n * (k + 1));
          EXPECT_NEAR(residual(phase.m, x, rhs, k) / size, left[k], 1e-9) << refine << " " << k;
        }
      }
    }
  }
}

/// [D A^T; A 0] with a diagonal D over `decades` orders of magnitude.
Matrix barrier(int variables, int constraints, double decades, std::uint64_t seed) {
  vlm::test::Rng rng(seed);
  vlm::test::Builder builder("barrier", -2, variables + constraints);
  for (int i = 0; i < variables; ++i)
    builder.add(i, i, rng.log10_uniform(-decades / 2, decades / 2));
  for (int k = 0; k < constraints; ++k)
    for (int entry = 0; entry < 2; ++entry)
      builder.add(rng.below(variables), variables + k, rng.uniform(-1, 1));
  return builder.finish();
}

TEST(Refinement, NeverMakesAPerturbedSolveWorse) {
  std::vector<Matrix> matrices{vlm::test::interior_point_kkt(8, 18, 1)};
  for (std::uint64_t seed = 1; seed <= 20; ++seed) matrices.push_back(barrier(140, 120, 18, seed));
  for (const Matrix& m : matrices) {
    const auto b = vlm::test::random_vector(m, 2, 5);
    vlm::test::Session s(m);
    ASSERT_EQ(s.run(12), 0);
    s.iparm(34) = 1;  // without refinement
    const auto plain = s.solve(b, 2);
    EXPECT_EQ(s.iparm(7), 0);
    s.iparm(34) = 0;
    for (const int steps : {1, 2, 10}) {
      s.iparm(8) = steps;
      const auto x = s.solve(b, 2);
      for (int k = 0; k < 2; ++k)
        EXPECT_LE(residual(m, x, b, k), residual(m, plain, b, k) * (1 + 1e-6)) << steps;
    }
  }
}

TEST(Refinement, ZeroRightHandSides) {
  for (const int refine : {0, 1, 9, -9}) {
    Phase zero(small(), refine, 2.0);
    std::ranges::fill(zero.b, 0.0);
    EXPECT_EQ(zero.run(), 0) << refine;
    EXPECT_EQ(zero.x, std::vector<double>(zero.b.size(), 0.0)) << refine;

    Phase one(small(), refine, 1.001, 3);
    const auto n = static_cast<std::size_t>(one.m.n);
    std::fill_n(one.b.begin() + static_cast<std::ptrdiff_t>(n), n, 0.0);
    EXPECT_EQ(one.run(), 0) << refine;
    for (std::size_t k = 0; k < n; ++k) EXPECT_EQ(one.x[n + k], 0.0) << refine;
    EXPECT_LT(vlm::test::normwise_error(one.m, one.x, one.b, 3), 1e-5) << refine;
  }
}

TEST(Refinement, FailuresAndNansEndTheLoop) {
  Phase failing(small(), 5, 0.9);
  failing.fail_at_second = true;
  EXPECT_EQ(failing.run(), vlm::status_pivot);
  EXPECT_EQ(failing.solves, 2);

  Phase bad(small(), 50, 1.0);
  bad.b[3] = NAN;
  bad.run();
  EXPECT_LE(bad.result.steps, 4);
  EXPECT_TRUE(std::isnan(bad.x[0]));
}

}  // namespace
