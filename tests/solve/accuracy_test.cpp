// SPDX-License-Identifier: BSD-3-Clause
// Backward errors against the reference, bounds against the true error, and the verdicts.
#include "solve/accuracy.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <string>
#include <vector>

#include "base/status.hpp"
#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();
using wide = std::complex<long double>;

/// op(A) as a dense array by columns, rows divided by a power of two near their largest entry.
std::vector<wide> scaled_rows(const Matrix& m, bool transpose, std::vector<wide>& b) {
  const Dense d = to_dense(m);
  const auto n = static_cast<std::size_t>(m.n);
  std::vector<wide> a(n * n);
  for (int i = 0; i < m.n; ++i) {
    long double size = 0;
    for (int j = 0; j < m.n; ++j)
      size = std::max(size, std::abs(wide(transpose ? d(j, i) : d(i, j))));
    const long double scale = std::exp2(-std::floor(std::log2(size)));
    for (int j = 0; j < m.n; ++j)
      a[static_cast<std::size_t>(j) * n + static_cast<std::size_t>(i)] =
          wide(transpose ? d(j, i) : d(i, j)) * scale;
    for (std::size_t k = static_cast<std::size_t>(i); k < b.size(); k += n) b[k] *= scale;
  }
  return a;
}

/// A^-1 b by elimination with partial pivoting in extended precision.
std::vector<wide> exact_solution(const Matrix& m, const std::vector<double>& rhs, int nrhs,
                                 bool transpose) {
  const auto n = static_cast<std::size_t>(m.n), columns = static_cast<std::size_t>(nrhs);
  std::vector<wide> x(n * columns);
  for (std::size_t k = 0; k < x.size(); ++k) x[k] = wide(vector_value(m, rhs, k));
  std::vector<wide> a = scaled_rows(m, transpose, x);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t p = k;
    for (std::size_t i = k; i < n; ++i)
      if (std::norm(a[k * n + i]) > std::norm(a[k * n + p])) p = i;
    for (std::size_t j = 0; j < n; ++j) std::swap(a[j * n + k], a[j * n + p]);
    for (std::size_t c = 0; c < columns; ++c) std::swap(x[c * n + k], x[c * n + p]);
    for (std::size_t i = k + 1; i < n; ++i) {
      if (a[k * n + i] == wide(0)) continue;
      const wide l = a[k * n + i] / a[k * n + k];
      for (std::size_t j = k; j < n; ++j) a[j * n + i] -= l * a[j * n + k];
      for (std::size_t c = 0; c < columns; ++c) x[c * n + i] -= l * x[c * n + k];
    }
  }
  for (std::size_t c = 0; c < columns; ++c)
    for (std::size_t i = n; i-- > 0;) {
      for (std::size_t j = i + 1; j < n; ++j) x[c * n + i] -= a[j * n + i] * x[c * n + j];
      x[c * n + i] /= a[i * n + i];
    }
  return x;
}

/// max|x - x*| / max|x|, the largest over the right-hand sides.
double true_error(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
                  int nrhs, bool transpose) {
  const std::vector<wide> exact = exact_solution(m, b, nrhs, transpose);
  const auto n = static_cast<std::size_t>(m.n);
  double worst = 0;
  for (std::size_t first = 0; first < exact.size(); first += n) {
    long double error = 0, size = 0;
    for (std::size_t k = first; k < first + n; ++k) {
      error = std::max(error, std::abs(wide(vector_value(m, x, k)) - exact[k]));
      size = std::max(size, std::abs(wide(vector_value(m, x, k))));
    }
    worst = std::max(worst, static_cast<double>(error / size));
  }
  return worst;
}

/// Largest row sum of |A| times that of |A^-1|.
double row_condition(const Matrix& m, bool transpose) {
  const Dense a = to_dense(transpose ? transposed(m) : m);
  std::vector<cplx> unit(a.a.size());
  for (std::size_t i = 0; i < unit.size(); i += static_cast<std::size_t>(a.n) + 1) unit[i] = 1;
  const Dense inverse{a.n, dense_solve(a, unit, a.n)};
  double size = 0, inverse_size = 0;
  for (int i = 0; i < a.n; ++i) {
    double row = 0, inverse_row = 0;
    for (int j = 0; j < a.n; ++j) {
      row += std::abs(a(i, j));
      inverse_row += std::abs(inverse(i, j));
    }
    size = std::max(size, row);
    inverse_size = std::max(inverse_size, inverse_row);
  }
  return size * inverse_size;
}

/// A solution that is off by about `error`, measured with an exact solver.
struct Measured {
  Accuracy accuracy;
  std::vector<double> b, x;
  int solves = 0, status = 0;

  Measured(const Matrix& m, int level, bool transpose, int nrhs, int threads, double error) {
    const Dense a = to_dense(transpose ? transposed(m) : m);
    Dense t = a;
    for (int i = 0; i < m.n; ++i)
      for (int j = 0; j < m.n; ++j) t(i, j) = a(j, i);
    const auto solver = [&](const Dense& dense) {
      return [&](int columns, const double* in, double* out) {
        ++solves;
        const auto count = static_cast<std::size_t>(m.n) * columns;
        const std::vector<double> rhs(in, in + count * m.nvals());
        std::vector<cplx> v(count);
        for (std::size_t k = 0; k < count; ++k) v[k] = vector_value(m, rhs, k);
        v = dense_solve(dense, v, columns);
        for (std::size_t k = 0; k < count; ++k) {
          out[k * m.nvals()] = v[k].real();
          if (m.complex()) out[2 * k + 1] = v[k].imag();
        }
        return 0;
      };
    };
    const SolveStep solve = solver(a), transposed_solve = solver(t);
    x = random_vector(m, nrhs, 4);
    b = product(m, x, nrhs, transpose);
    const std::vector<double> noise = random_vector(m, nrhs, 5);
    for (std::size_t k = 0; k < x.size(); ++k) x[k] *= 1 + error * noise[k];
    const AccuracyOptions options{.type = matrix_type(m.mtype),
                                  .transpose = transpose,
                                  .level = level,
                                  .solution_in_b = true,
                                  .threads = threads};
    // Exactly the promised room, so that a sanitizer sees a step beyond it.
    std::vector<double> room(accuracy_bytes(options, m.n, nrhs) / sizeof(double), nan);
    double* work = room.data();
    std::vector<double> in_place = b;
    const double* const kept = keep_rhs(options, m.n, nrhs, in_place.data(), work);
    in_place = x;
    const AccuracyCall call{.options = options,
                            .matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()},
                            .nrhs = nrhs,
                            .b = kept,
                            .x = in_place.data(),
                            .solve = solve,
                            .transpose = transposed_solve,
                            .work = work};
    status = measure_accuracy(call, accuracy);
  }
};

TEST(Accuracy, AgreesWithTheReference) {
  for (const int mtype : all_mtypes) {
    for (const Matrix& m : {dense(12, 3, mtype), well_conditioned(mtype).back()}) {
      for (const bool transpose : {false, true}) {
        if (transpose && m.triangle()) continue;
        for (const int nrhs : {1, 6}) {
          SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " nrhs " + std::to_string(nrhs) +
                       (transpose ? " transposed" : ""));
          const Measured off(m, 2, transpose, nrhs, 2, 1e-5);
          ASSERT_EQ(off.status, 0);
          const Accuracy& found = off.accuracy;
          const double normwise = normwise_error(m, off.x, off.b, nrhs, transpose);
          const double componentwise = componentwise_error(m, off.x, off.b, nrhs, transpose);
          EXPECT_NEAR(found.normwise, normwise, 1e-6 * normwise);
          EXPECT_NEAR(found.componentwise, componentwise, 1e-6 * componentwise);
          EXPECT_EQ(found.verdict, verdict_useless);
          const double condition = row_condition(m, transpose);
          EXPECT_LE(found.condition, condition * (1 + 1e-6));
          EXPECT_GE(found.condition, condition / 3);
          const double error = true_error(m, off.x, off.b, nrhs, transpose);
          EXPECT_GE(found.bound, error * (1 - 1e-9));
          EXPECT_LE(found.bound, error * 2.1);
          EXPECT_LE(off.solves, 10 + 2 * (nrhs / accuracy_block));
          EXPECT_EQ(Measured(m, 1, transpose, nrhs, 1, 1e-5).solves, 0);
        }
      }
    }
  }
}

/// Reflected diagonal with entries from 1 down to 10^-decades: all entries stored.
Matrix reflected(int mtype, double decades, std::uint64_t seed) {
  constexpr int n = 40;
  Rng rng(seed);
  Builder builder("reflected", mtype, n);
  const bool complex = builder.complex(), triangle = mtype % 2 == 0;
  std::vector<cplx> u(n), v(n);
  double size_u = 0, size_v = 0;
  for (int i = 0; i < n; ++i) {
    u[i] = rng.centred(complex && mtype != 6);
    v[i] = triangle ? u[i] : rng.centred(complex);
    size_u += std::norm(u[i]);
    size_v += std::norm(v[i]);
  }
  const auto reflector = [](const std::vector<cplx>& w, double size, int i, int j) {
    return (i == j ? 1.0 : 0.0) - 2.0 * w[i] * std::conj(w[j]) / size;
  };
  for (int i = 0; i < n; ++i)
    for (int j = triangle ? i : 0; j < n; ++j) {
      cplx sum = 0;
      for (int k = 0; k < n; ++k) {
        const double sign = mtype != 2 && mtype != 4 && k % 3 == 1 ? -1 : 1;
        sum += reflector(u, size_u, i, k) * sign * std::pow(10.0, -decades * k / (n - 1)) *
               reflector(v, size_v, k, j);
      }
      builder.add(i, j, triangle && i == j && mtype != 6 ? cplx(sum.real()) : sum);
    }
  return builder.finish();
}

/// [D A^T; A 0] with a diagonal D over 18 orders of magnitude.
Matrix barrier(std::uint64_t seed) {
  Rng rng(seed);
  Builder builder("barrier", -2, 130);
  for (int i = 0; i < 70; ++i) builder.add(i, i, rng.log10_uniform(-9, 9));
  for (int k = 70; k < 130; ++k)
    for (int entry = 0; entry < 2; ++entry) builder.add(rng.below(70), k, rng.uniform(-1, 1));
  return builder.finish();
}

/// Bounds of solves through the entry point, counted.
struct Bounds {
  int usable = 0, wide = 0;

  int solve(const Matrix& m, int nrhs = 1, bool transpose = false, bool single = false,
            int steps = 2) {
    const auto b = random_vector(m, nrhs, 3);
    Session s(m);
    s.iparm(8) = steps;
    s.iparm(12) = transpose;
    s.iparm(29) = single;
    s.iparm(40) = 2;
    const auto x = s.solve(b, nrhs, 13);
    SCOPED_TRACE(m.name + " type " + std::to_string(m.mtype) + (single ? " single" : ""));
    const double error = true_error(m, x, b, nrhs, transpose), bound = s.dparm(43);
    if (std::isfinite(error)) {
      EXPECT_GE(bound, error);
    }
    const int verdict = s.iparm(41);
    EXPECT_EQ(s.error, verdict == 2 ? -4 : 0);
    if (verdict == 2) {
      EXPECT_TRUE(s.dparm(41) > 1e-10 || bound == HUGE_VAL);
      return verdict;
    }
    ++usable;
    if (bound > 10 * error) ++wide;
    return verdict;
  }
};

TEST(Accuracy, BoundsHoldAndAreNarrow) {
  Bounds bounds;
  for (const int mtype : all_mtypes) {
    for (const Matrix& m : well_conditioned(mtype)) {
      if (m.n > 130 || m.nnz() == m.n) continue;
      EXPECT_EQ(bounds.solve(m), 0) << m.name;
      if (!m.triangle()) {
        EXPECT_EQ(bounds.solve(m, 3, true), 0) << m.name;
      }
      if (matrix_type(mtype).single) {
        EXPECT_LE(bounds.solve(m, 1, false, true, 4), 0) << m.name;
      }
    }
    for (const std::uint64_t seed : {1, 2}) {
      EXPECT_LE(bounds.solve(reflected(mtype, 8, seed), 2), 1) << mtype;
      // Definite and diagonal pivots: 12 decades may be too many for them.
      bounds.solve(reflected(mtype, 12, seed), 1, mtype % 2 != 0);
    }
  }
  for (std::uint64_t seed = 1; seed <= 12; ++seed) {
    bounds.solve(barrier(seed), 1, false, false, 10);
    bounds.solve(interior_point_kkt(5, 6 + static_cast<int>(seed), seed), 2);
  }
  EXPECT_GT(bounds.usable, 100);
  EXPECT_EQ(bounds.wide, 0);
}

/// A random matrix with zeros on its diagonal, in which two unknowns occur in one equation only.
Matrix two_leaves(int mtype, std::uint64_t seed) {
  Rng rng(seed);
  const int n = 8 + rng.below(60);
  const bool mirrored = mtype % 2 != 0;
  Builder builder("leaves", mtype, n);
  const auto couple = [&](int i, int j) {
    builder.add(i, j, rng.centred(builder.complex()));
    if (mirrored) builder.add(j, i, rng.centred(builder.complex()));
  };
  for (int i = 0; i < n - 2; ++i) {
    if (i % 4 == 0) builder.add(i, i, rng.uniform(1, 2));
    couple(i, (i + 1) % (n - 2));
    couple(i, (i + 2 + rng.below(n - 5)) % (n - 2));
  }
  couple(0, n - 2);
  couple(0, n - 1);
  return builder.finish();
}

// Replaced pivots make a factor of a singular matrix regular, and refinement finds one of its
// solutions: there is no bound on its distance from the others.
TEST(Accuracy, SingularSystemsHaveNoBound) {
  for (const int mtype : {1, -2, 3, -4, 6, 11, 13})
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
      const Matrix m = two_leaves(mtype, seed);
      const auto b = product(m, random_vector(m, 1, seed));
      Session s(m);
      s.iparm(29) = seed % 4 == 0 && matrix_type(mtype).single;
      s.iparm(40) = 2;
      s.solve(b, 1, 13);
      EXPECT_NE(s.error, 0) << mtype << " seed " << seed;
      EXPECT_TRUE(s.iparm(41) == verdict_useless || s.iparm(41) == verdict_none)
          << mtype << " seed " << seed << " bound " << s.dparm(43);
    }
}

// Residuals that are beyond the range of a single-precision factor are none for its solves.
TEST(Accuracy, UnitsOfTheRightHandSideMakeNoDifference) {
  for (const int mtype : all_mtypes)
    for (const bool single : {false, true}) {
      if (single && !matrix_type(mtype).single) continue;
      SCOPED_TRACE("type " + std::to_string(mtype) + (single ? " single" : ""));
      const Matrix m = reflected(mtype, 4, 1);
      const auto b = random_vector(m, 1, 3);
      std::vector<double> small = b;
      for (double& v : small) v *= 0x1p-100;
      Session s(m);
      s.iparm(8) = 4;
      s.iparm(29) = single;
      s.iparm(40) = 2;
      s.solve(b, 1, 13);
      const double bound = s.dparm(43), condition = s.dparm(42);
      const auto x = s.solve(small);
      EXPECT_LE(s.dparm(43), 10 * bound);  // refinement itself differs
      EXPECT_NEAR(s.dparm(42), condition, 0.01 * condition);
      EXPECT_GE(s.dparm(43), true_error(m, x, small, 1, false));
    }
}

TEST(Accuracy, AsksForNothingChangesNothing) {
  const Matrix m = barrier(2);
  const auto b = random_vector(m, 1, 5);
  Session s(m), measured(m);
  s.iparm(41) = 7;
  s.dparm(40) = s.dparm(43) = 7;
  s.solve(b, 1, 13);
  const auto x = s.solve(b);
  EXPECT_EQ(s.error, 0);
  EXPECT_EQ(s.iparm(41), 7);
  EXPECT_EQ(s.dparm(40), 7);
  EXPECT_EQ(s.dparm(43), 7);
  for (const int level : {1, 2}) {
    measured.iparm(40) = level;
    EXPECT_EQ(measured.solve(b, 1, level == 1 ? 13 : 33), x);
    EXPECT_EQ(measured.iparm(7), s.iparm(7));
    EXPECT_EQ(measured.iparm(41), 2);
    EXPECT_EQ(measured.error, -4);
    measured.iparm(6) = 1;
    EXPECT_EQ(measured.solve(b), x);
    EXPECT_EQ(measured.iparm(41), 2);
    measured.iparm(6) = 0;
  }
}

TEST(Accuracy, VerdictsAndErrors) {
  const Matrix m = interior_point_kkt(8, 14, 1);
  auto b = random_vector(m, 1, 5);
  Session s(m);
  s.iparm(40) = 1;
  s.iparm(8) = 10;
  s.solve(b, 1, 13);
  EXPECT_GT(s.iparm(14), 0);
  EXPECT_EQ(s.error, 0);
  EXPECT_EQ(s.iparm(41), verdict_nearby) << "repaired pivots";
  EXPECT_EQ(s.dparm(43), 0) << "a bound costs level 2";
  EXPECT_EQ(s.run(33, nullptr, b.data()), -7);
  EXPECT_EQ(s.run(33, b.data(), b.data(), 0), -7);
  EXPECT_EQ(s.iparm(41), verdict_none);
  s.iparm(8) = 0;
  s.iparm(34) = 1;  // no refinement
  for (const int level : {1, 2}) {
    s.iparm(40) = level;
    std::vector<double> bad = b;
    bad[7] = nan;
    s.solve(bad);
    EXPECT_EQ(s.error, -4);
    EXPECT_EQ(s.iparm(41), verdict_useless);
    EXPECT_FALSE(s.dparm(41) <= 1);
  }
  const std::vector<double> zero(b.size(), 0.0);
  EXPECT_EQ(s.solve(zero), zero);
  EXPECT_EQ(s.error, 0);
  EXPECT_LE(s.dparm(43), 1e-6) << "judged like a solution of ones";
}

TEST(Accuracy, NotANumberIsUseless) {
  for (const int mtype : all_mtypes) {
    const Matrix good = dense(20, 3, mtype);
    for (const double value : {nan, HUGE_VAL})
      for (const int place : {0, good.nnz() / 2, good.nnz() - 1})
        for (const int level : {1, 2}) {
          Matrix bad = good;
          bad.a[static_cast<std::size_t>(place) * bad.nvals()] = value;
          Session s(bad);
          s.iparm(40) = level;
          s.solve(random_vector(bad, 2, 1), 2, 13);
          EXPECT_NE(s.error, 0) << mtype << " entry " << place;
          EXPECT_TRUE(s.iparm(41) == verdict_useless || s.iparm(41) == verdict_none) << mtype;
        }
  }
}

TEST(Accuracy, NoVerdictWhereTheResidualSaysNothing) {
  const Matrix m = poisson2d(8);
  auto b = random_vector(m, 1, 5);
  struct Case {
    int entry, value;
  };
  for (const Case c : {Case{26, 1}, Case{31, 1}, Case{38, 50}}) {
    Session s(m);
    s.iparm(40) = 2;
    s.iparm(41) = 0;
    s.iparm(c.entry) = c.value;
    std::ranges::fill(s.perm, 1);
    s.solve(b, 1, 13);
    EXPECT_EQ(s.error, 0) << c.entry;
    EXPECT_EQ(s.iparm(41), verdict_none) << c.entry;
  }
  const Matrix diagonal = dense(1, 3, -2);
  Session s(diagonal);
  s.iparm(40) = 1;
  s.solve({1.0}, 1, 13);
  EXPECT_EQ(s.error, 0);
  EXPECT_EQ(s.iparm(41), verdict_none);
}

}  // namespace
}  // namespace vlm::test
