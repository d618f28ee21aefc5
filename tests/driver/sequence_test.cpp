// SPDX-License-Identifier: BSD-3-Clause
// Sequences of matrices: what callers see of the decisions over them.  Measured
// times are replaced in the factor's record where an outcome would hang on them.
#include "driver/sequence.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "caller.hpp"
#include "driver/factor_store.hpp"
#include "gallery.hpp"
#include "matrices.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// The same pattern with values of either sign that have nothing to do with it.
Matrix unrelated(const Matrix& m) {
  Matrix out = m;
  for (std::size_t k = 0; k < out.a.size(); ++k)
    out.a[k] = 3 * std::sin(1.0 + 5.0 * static_cast<double>(k * k));
  return out;
}

std::vector<Matrix> one_of_each() {
  return {random_spd(150, 4, 3),
          shifted_laplacian(13, 1.1, true, 2),
          structurally_symmetric(4, 3),
          structurally_symmetric(4, 3, 3),
          random_spd(150, 4, 3, 4),
          random_indefinite(120, 0.05, 0, 5, -4),
          helmholtz(12, 0.6, true, 6),
          convection_diffusion(5, 4, 7),
          convection_diffusion(5, 4, 8, 13)};
}

/// Replaces what the last factorization took: nothing on this machine takes as long.
void pretend_factorization_took(Session& s, double seconds) {
  factor_table(s.handle())[s.mnum - 1].seconds = seconds;
}

/// A session with a factor of m and a solve that found iterations affordable.
void prepare(Session& s, const Matrix& m) {
  s.iparm(33) = 1;  // dparm(33) tells factors apart
  ASSERT_EQ(s.run(12), 0);
  pretend_factorization_took(s, 1e6);
  s.solve(random_vector(m, 1, 3));
  ASSERT_EQ(s.error, 0);
}

TEST(Sequence, KeptFactorsSolveTheNewSystems) {
  for (const Matrix& m : one_of_each())
    for (const int k : {1, 2, -1, -2})
      for (const int threads : {1, 2}) {
        SCOPED_TRACE(m.name + " K " + std::to_string(k) + " threads " + std::to_string(threads));
        Session s(m, threads);
        s.iparm(4) = k;
        prepare(s, m);
        const double determinant = s.dparm(33);
        for (int step = 1; step <= 3; ++step) {
          const Matrix now = moved(m, 0.002 * step);
          s.use(now);
          for (const int overwrite : {0, 1})
            for (const int transpose : {0, 1}) {
              if (transpose == 1 && m.triangle()) continue;
              const std::vector<double> b =
                  random_vector(m, 3, 20 + static_cast<unsigned>(2 * step + overwrite));
              s.iparm(6) = overwrite;
              s.iparm(12) = transpose;
              pretend_factorization_took(s, 1e6);
              const std::vector<double> x = s.solve(b, 3, 23);
              ASSERT_EQ(s.error, 0);
              EXPECT_GT(s.iparm(20), 1);
              EXPECT_LT(s.iparm(20), 40);
              EXPECT_EQ(s.iparm(7), 0);
              EXPECT_EQ(s.dparm(33), determinant);
              EXPECT_LE(normwise_error(now, x, b, 3, transpose == 1), 1e-12);
            }
          s.iparm(6) = s.iparm(12) = 0;
        }
        s.use(m);
      }
}

// A smooth sequence takes fewer iterations with the solutions of its earlier steps than its last
// matrix does by itself; a call of another shape forgets them.
TEST(Sequence, EarlierSolutionsSaveIterations) {
  int together = 0, alone = 0;
  for (const Matrix& m : one_of_each()) {
    SCOPED_TRACE(m.name);
    const std::vector<double> b = random_vector(m, 2, 8);
    const auto count_after = [&](int first) {
      Session s(m);
      s.iparm(4) = -1;
      EXPECT_EQ(s.run(12), 0);
      for (int step = first; step <= 6; ++step) {
        const Matrix now = moved(m, 0.002 * step);
        s.use(now);
        EXPECT_LE(normwise_error(now, s.solve(b, 2, 23), b, 2), 1e-12);
        s.use(m);
      }
      return s.iparm(20);
    };
    const int last = count_after(1), single = count_after(6);
    EXPECT_LE(last, single);
    together += last;
    alone += single;

    Session s(m);
    s.iparm(4) = -1;
    ASSERT_EQ(s.run(12), 0);
    const Matrix now = moved(m, 0.01);
    s.use(now);
    const auto count = [&](int nrhs) {
      EXPECT_LE(normwise_error(now, s.solve(random_vector(m, nrhs, 8), nrhs, 23),
                               random_vector(m, nrhs, 8), nrhs),
                1e-12);
      return s.iparm(20);
    };
    const int first = count(2);
    EXPECT_GT(first, 1);
    EXPECT_EQ(count(2), 1);
    EXPECT_GT(count(1), 1);
    EXPECT_EQ(count(2), first);
    s.use(m);
  }
  EXPECT_LT(together, 0.8 * alone);
}

// A definite matrix between diagonal matrices is solved by the old factor between others.
TEST(Sequence, ScaledMatricesTakeAScaledFactor) {
  for (const int mtype : {2, 4})
    for (const int level : {0, 2}) {
      SCOPED_TRACE("type " + std::to_string(mtype) + " level " + std::to_string(level));
      const Matrix m = random_spd(80, 4, 3, mtype);
      Session s(m, 2);
      s.iparm(4) = -2;
      s.iparm(40) = level;
      ASSERT_EQ(s.run(12), 0);
      for (const std::uint64_t seed : {1, 2}) {
        const Matrix now = gallery::with_new_values(m, seed);
        const std::vector<double> b = random_vector(m, 3, 5);
        s.use(now);
        EXPECT_LE(normwise_error(now, s.solve(b, 3, 23), b, 3), 1e-12);
        EXPECT_LE(s.iparm(20), 2);
        if (level == 2) {
          EXPECT_NEAR(s.dparm(42), dense_condition(to_dense(now)), 0.7 * s.dparm(42));
        }
        s.use(m);
      }
    }
}

// Where a solve with a kept factor goes on, the figures are still those of the matrix of the call.
TEST(Sequence, LadderMeasuresTheMatrixOfTheCall) {
  const auto asks = [](Session& s, int option) {
    s.iparm(4) = option;
    s.iparm(40) = 2;
    s.iparm(42) = 1;
    s.dparm(44) = 1e-11;
  };
  for (const Matrix& m : one_of_each()) {
    SCOPED_TRACE(m.name);
    Matrix now = m;  // the session's at its end
    Session s(m);
    s.iparm(4) = -31;  // iterations end with three digits
    prepare(s, m);
    asks(s, -31);
    double scale = 1;
    for (int step = 1; step <= 2; ++step) {
      scale *= 0.7;
      now = moved(m, 0.01 * step);
      for (double& v : now.a) v *= scale;
      const std::vector<double> b = random_vector(m, 1, 20 + static_cast<unsigned>(step));
      Session reference(now);
      ASSERT_EQ(reference.run(12), 0);
      asks(reference, 0);
      reference.solve(b);
      s.use(now);
      const std::vector<double> x = s.solve(b);
      ASSERT_EQ(s.error, 0);
      EXPECT_LE(normwise_error(now, x, b, 1), 1e-11);
      EXPECT_LE(s.dparm(41), 1e-11);
      EXPECT_NEAR(s.dparm(42), reference.dparm(42), 1e-3 * reference.dparm(42)) << step;
    }
  }
}

/// A chain, whose inverse is large, and a node by itself, which `own` couples to nothing else: the
/// condition is its own as soon as it is small.
Matrix chain_and_node(int mtype, double own) {
  constexpr int length = 60;
  Builder builder("chain", mtype, length + 1);
  for (int i = 0; i < length; ++i) {
    builder.add(i, i, 2.01);
    if (i == 0) continue;
    builder.add(i - 1, i, builder.complex() ? cplx(-1, 0.1) : cplx(-1));
    if (mtype % 2 != 0) builder.add(i, i - 1, builder.complex() ? cplx(-0.9, -0.1) : cplx(-0.9));
  }
  builder.add(length, length, own);
  return builder.finish();
}

// A factor of other values knows nothing of the condition.
TEST(Sequence, AKeptFactorTellsNoCondition) {
  for (const int mtype : all_mtypes)
    for (const int option : {0, -1})
      for (const int climbs : {0, 1}) {
        SCOPED_TRACE("type " + std::to_string(mtype) + " iparm(4) " + std::to_string(option) +
                     (climbs != 0 ? " climbs" : ""));
        const Matrix m = chain_and_node(mtype, 1), now = chain_and_node(mtype, 1e-9);
        const std::vector<double> b = random_vector(m, 2, 4);
        Session s(m);
        s.iparm(8) = 30;
        s.iparm(40) = 2;
        s.iparm(42) = climbs;
        s.iparm(4) = option;
        ASSERT_EQ(s.run(12), 0);
        const double condition = dense_condition(to_dense(now));
        for (int turn = 0; turn < 2; ++turn) {
          s.use(now);
          s.solve(b, 2);
          if (s.iparm(41) >= 0) {  // else the iteration has failed, and tells nothing
            EXPECT_GE(s.dparm(42), 0.1 * condition) << turn;
          }
          if (climbs != 0) {
            EXPECT_EQ(s.error, 0) << turn;
            EXPECT_LE(s.dparm(42), 10 * condition) << turn;
          }
          s.use(m);
          s.solve(b, 2);
          EXPECT_EQ(s.error, 0) << turn;
          EXPECT_LE(s.dparm(42), 1e5) << turn;
        }
      }
}

// Nor does a factor that the ladder made of other values.
TEST(Sequence, ASecondFactorTellsNoConditionOfOtherValues) {
  const auto with_node = [](Matrix m, double own) {
    ++m.n;
    m.ia.push_back(m.ia.back() + 1);
    m.ja.push_back(m.n);
    m.a.push_back(own);
    return m;
  };
  int made = 0;
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const Matrix block = random_indefinite(120, 0.05, 0.5, seed, -2);
    const Matrix m = with_node(block, 1), now = with_node(block, 1e-9);
    if (!(dense_condition(to_dense(m)) < 1e5)) continue;
    const std::vector<double> b = random_vector(m, 1, 4);
    Session s(m);
    s.iparm(10) = 1;  // large perturbations of 1x1 pivots
    s.iparm(21) = 0;
    s.iparm(40) = 2;
    s.iparm(42) = 1;
    s.solve(b, 1, 13);
    ASSERT_EQ(s.error, 0);
    if (s.iparm(43) < rung_double) continue;  // the caller's factor has done it
    ++made;
    EXPECT_LE(s.dparm(42), 1e7);
    for (const int option : {0, -1}) {
      s.iparm(4) = option;
      s.use(now);
      const std::vector<double> x = s.solve(b);
      EXPECT_EQ(s.error, 0);
      EXPECT_GE(s.dparm(42), 1e8);
      EXPECT_LE(componentwise_error(now, x, b), 1e-12);
      s.use(m);
      s.solve(b);
      EXPECT_EQ(s.error, 0);
      EXPECT_LE(s.dparm(42), 1e7);
    }
  }
  EXPECT_GE(made, 3);
}

TEST(Sequence, NewFactorsComeWhenTheyAreDue) {
  const Matrix m = one_of_each()[7], now = moved(m, 0.01), far = unrelated(m);
  const std::vector<double> b = random_vector(m, 2, 4);
  Session s(m);
  // Whether a call factors; it finds that the factor at hand took very long.
  const auto factors = [&](const Matrix& matrix, int phase) {
    constexpr double very_long = 1e6;
    s.use(matrix);
    std::vector<double> rhs = b, x(b.size());
    const bool solves = phase % 10 == 3;
    if (!s.empty()) pretend_factorization_took(s, very_long);
    EXPECT_EQ(s.run(phase, solves ? rhs.data() : nullptr, solves ? x.data() : nullptr, 2), 0);
    if (solves) {
      EXPECT_LE(normwise_error(matrix, x, b, 2), 1e-12);
    }
    return factor_table(s.handle())->seconds < very_long;
  };
  s.iparm(4) = 1;
  EXPECT_TRUE(factors(m, 12));
  // Nothing is affordable right after a factorization, until a solve has measured.
  EXPECT_TRUE(factors(now, 22));
  EXPECT_FALSE(factors(now, 33));
  EXPECT_FALSE(factors(m, 23));
  EXPECT_GT(s.iparm(20), 1);
  // Phase 22 keeps the factor as well, and phase 33 iterates.
  EXPECT_FALSE(factors(now, 22));
  EXPECT_FALSE(factors(m, 33));
  // A negative iparm(20) asks for a factor, and so does iparm(4) 0.
  s.iparm(20) = -1;
  EXPECT_TRUE(factors(m, 22));
  EXPECT_EQ(s.iparm(20), 0);
  EXPECT_FALSE(factors(m, 33));
  s.iparm(4) = 0;
  EXPECT_TRUE(factors(now, 23));
  s.iparm(4) = 1;
  EXPECT_FALSE(factors(now, 33));
  // A matrix for which the factor is no use: it fails, and the call factors.
  EXPECT_TRUE(factors(far, 23));
  EXPECT_GT(s.iparm(20), 0);
  // The next one gets a factor at once, whatever was measured.
  EXPECT_FALSE(factors(far, 33));
  EXPECT_TRUE(factors(m, 23));
  // Phase 33 of a matrix number without a factor makes one.
  s.iparm(4) = -1;
  EXPECT_EQ(s.run(0), 0);
  EXPECT_TRUE(factors(far, 33));
  s.use(m);
}

TEST(Sequence, FailuresNameThemselves) {
  const Matrix m = one_of_each()[1], far = unrelated(m);
  const std::vector<double> b = random_vector(m, 1, 4);
  for (const int overwrite : {0, 1}) {
    Session s(m);
    s.iparm(4) = -1;
    s.iparm(6) = overwrite;
    prepare(s, m);
    s.use(far);
    for (const int phase : {23, 33}) {
      s.iparm(4) = phase == 23 ? -1 : 1;
      pretend_factorization_took(s, 1e6);
      factor_table(s.handle())->history.failed = false;
      s.iparm(20) = 0;
      std::vector<double> rhs = b, x(b.size());
      EXPECT_EQ(s.run(phase, rhs.data(), x.data()), -4);
      EXPECT_LT(s.iparm(20), -10);
      EXPECT_EQ(rhs, b);  // also where the solution was to go there
    }
    // The next numeric call factors, also with K below 0 and iparm(20) forgotten.
    s.iparm(4) = -1;
    s.iparm(20) = 0;
    const double determinant = s.dparm(33);
    EXPECT_LE(normwise_error(far, s.solve(b, 1, 23), b), 1e-12);
    EXPECT_NE(s.dparm(33), determinant);
    // No iteration is affordable: a factorization that took no time.
    s.iparm(4) = 1;
    pretend_factorization_took(s, -1e9);
    s.solve(b);
    EXPECT_EQ(s.error, -4);
    EXPECT_EQ(s.iparm(20), -5);
    EXPECT_LE(normwise_error(far, s.solve(b, 1, 23), b), 1e-12);
    EXPECT_EQ(s.error, 0);
    s.use(m);
  }
}

TEST(Sequence, MessagesAndReport) {
  Caller c = make_tridiagonal(300, -2);
  c.b.assign(300, 1.0);
  c.x.assign(300, 0.0);
  c.iparm(4) = -1;
  ASSERT_EQ(c.run(13), 0);
  const auto holds = [](const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  };
  c.iparm(4) = 1;
  std::string text = c.run_and_read(33);
  EXPECT_TRUE(holds(text, " < Hybrid Solver VELMORA with CGS/CG Iteration >\n")) << text;
  EXPECT_TRUE(holds(text, "cgx iterations 1\n")) << text;
  EXPECT_FALSE(holds(text, "BLAS performance")) << text;
  c.iparm(4) = -1;
  text = c.run_and_read(33);
  EXPECT_FALSE(holds(text, "Hybrid Solver")) << text;
  EXPECT_TRUE(holds(text, "      Time cgs    : ")) << text;

  for (std::size_t k = 0; k < c.a.size(); ++k) c.a[k] *= 3 * std::sin(1.0 + 5.0 * double(k * k));
  text = c.run_and_read(23);
  EXPECT_EQ(c.error, -4);
  const std::string figure = std::to_string(c.iparm(20));
  EXPECT_TRUE(holds(text,
                    "*** error VELMORA  (numerical_factorization ) error_num= -3\n"
                    "*** error velmora: cgs error iparam(20) " +
                        figure +
                        "\n*** what to do: call phase 23: after this failure it "
                        "factors the new matrix\n"))
      << text;
  EXPECT_EQ(c.run(23), 0);
}

// The figures describe the matrix of the call, not the one of the factor.
TEST(Sequence, AccuracyIsThatOfTheSolution) {
  for (const Matrix& m : one_of_each())
    for (const int transpose : {0, 1}) {
      if (transpose == 1 && m.triangle()) continue;
      SCOPED_TRACE(m.name);
      const Matrix now = moved(m, 0.02);
      const std::vector<double> b = random_vector(m, 2, 4);
      Session kept(m), fresh(now);
      for (Session* s : {&kept, &fresh}) {
        s->iparm(12) = transpose;
        s->iparm(33) = 1;
        ASSERT_EQ(s->run(12), 0);
        s->iparm(40) = 2;
      }
      kept.iparm(4) = -1;
      kept.use(now);
      const double determinant = kept.dparm(33);
      const std::vector<double> x = kept.solve(b, 2, 23), right = fresh.solve(b, 2);
      EXPECT_EQ(kept.dparm(33), determinant);
      EXPECT_EQ(kept.error, 0);
      EXPECT_EQ(kept.iparm(41), fresh.iparm(41));
      // dparm(41) is the componentwise error, but for rows that nearly vanish.
      EXPECT_LE(kept.dparm(41), 1e-10);
      EXPECT_LE(kept.dparm(41), componentwise_error(now, x, b, 2, transpose == 1) * 2);
      EXPECT_NEAR(kept.dparm(42) / fresh.dparm(42), 1, 0.1);
      EXPECT_LE(relative_difference(x, right), kept.dparm(43) + fresh.dparm(43));
      EXPECT_LE(kept.dparm(43), 1e-6);
      kept.use(m);
    }
}

}  // namespace
}  // namespace vlm::test
