// SPDX-License-Identifier: BSD-3-Clause
// Solves that go on until the solution is good: all types, judged by the reference.
#include "driver/ladder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "caller.hpp"
#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

constexpr double good = 1e-10;

/// [D A^T; A 0] with a diagonal D over 18 orders of magnitude.
Matrix barrier(std::uint64_t seed) {
  constexpr int variables = 180, constraints = 80;
  Rng rng(seed);
  Builder builder("barrier", -2, variables + constraints);
  for (int i = 0; i < variables; ++i) builder.add(i, i, rng.log10_uniform(-9, 9));
  for (int k = 0; k < constraints; ++k) {  // full rank: each has a variable of its own
    builder.add(k, variables + k, rng.uniform(0.5, 1));
    for (int entry = 0; entry < 1; ++entry)
      builder.add(constraints + rng.below(variables - constraints), variables + k,
                  rng.uniform(-1, 1));
  }
  return builder.finish();
}

/// Small integers, a symmetric pattern, and zeros on the diagonal.
Matrix small_integers(int mtype, std::uint64_t seed) {
  constexpr int n = 60;
  Rng rng(seed);
  Builder builder("integers", mtype, n);
  const auto integer = [&rng, &builder] {
    const double re = rng.below(7) - 3, im = builder.complex() ? rng.below(7) - 3 : 0;
    return cplx(re, im);
  };
  for (int i = 0; i < n; ++i) builder.add(i, i, i % 3 == 0 ? cplx(0) : integer());
  std::set<std::pair<int, int>> seen;
  for (int k = 0; k < 4 * n; ++k) {
    const int i = rng.below(n), j = rng.below(n);
    if (i == j || !seen.insert({std::min(i, j), std::max(i, j)}).second) continue;
    builder.add(i, j, integer());
    builder.add(j, i, integer());
  }
  return builder.finish();
}

/// Columns of a linear program, as a basis of it has them: entries 1 and -1, a diagonal that is
/// scattered, and rows that many columns share.
Matrix basis(int mtype, int n, int share, std::uint64_t seed) {
  Rng rng(seed);
  Builder builder("basis", mtype, n);
  const std::vector<int> place = rng.permutation(n);
  std::set<std::pair<int, int>> seen;
  const auto put = [&](int i, int j) {
    if (seen.insert({i, j}).second) builder.add(i, j, rng.below(2) == 0 ? 1 : -1);
  };
  for (int j = 0; j < n; ++j) {
    put(place[static_cast<std::size_t>(j)] - 1, j);
    put(rng.below(n / 10), j);
    for (int entry = 0; entry < share; ++entry) put(rng.below(n), j);
  }
  return builder.finish();
}

/// Random matrices that strain the pivoting of a type.
std::vector<Matrix> hard(int mtype, std::uint64_t seed) {
  switch (mtype) {
    case 1:
    case 3:
      return {small_integers(mtype, seed),
              expanded(random_indefinite(80, 0.06, 0.8, seed, mtype == 1 ? -2 : 6), mtype)};
    case 2:
    case 4:
      return {random_spd(100, 4, seed, mtype)};
    case 11:
    case 13:
      return {random_unsymmetric(120, 3, 0, seed, mtype),
              badly_scaled(100, 9, seed, mtype),
              basis(mtype, 300, 1, seed),
              basis(mtype, 250, 2, seed),
              basis(mtype, 250, 3, seed),
              expanded(random_indefinite(80, 0.06, 0.8, seed, mtype == 11 ? -2 : 6), mtype)};
    default: {
      std::vector<Matrix> found = {random_indefinite(120, 0.04, 0.9, seed, mtype),
                                   random_indefinite(60, 0.2, 0.5, seed, mtype)};
      if (mtype == -2) {
        found.push_back(barrier(seed));
        found.push_back(interior_point_kkt(6, 14, seed));
        found.push_back(saddle_point(4, seed));
      }
      return found;
    }
  }
}

/// Singular, or too close to it for the reference to tell.
bool is_singular(const Matrix& m) {
  return (m.name.starts_with("random") || m.name == "integers" || m.name == "basis") &&
         !(dense_condition(to_dense(m)) < 1e7);
}

TEST(Ladder, SolvesRandomSystemsOfAllTypes) {
  int climbed = 0;
  for (const int mtype : all_mtypes)
    for (std::uint64_t seed = 1; seed <= 12; ++seed)
      for (const Matrix& m : hard(mtype, seed)) {
        if (is_singular(m)) continue;
        SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " seed " + std::to_string(seed));
        const bool transpose = !m.triangle() && seed % 2 == 0;
        const int nrhs = seed % 3 == 0 ? 3 : 1;
        const auto b = random_vector(m, nrhs, seed);
        Session s(m);
        s.iparm(42) = 1;
        s.iparm(40) = seed % 4 == 0 ? 2 : 0;
        s.iparm(29) = seed % 5 == 0;
        s.iparm(12) = transpose;
        const auto x = s.solve(b, nrhs, 13);
        EXPECT_EQ(s.error, 0);
        EXPECT_TRUE(s.iparm(41) == 0 || s.iparm(41) == 1) << s.iparm(41);
        EXPECT_LE(componentwise_error(m, x, b, nrhs, transpose), good) << "rung " << s.iparm(43);
        EXPECT_LE(s.dparm(41), 1e-12);
        if (s.iparm(43) > 0) ++climbed;
      }
  EXPECT_GT(climbed, 50) << "the systems are no test of the ladder";
}

TEST(Ladder, BarrierSystemsThatTheDefaultsGetWrong) {
  int wrong = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    const Matrix m = barrier(seed);
    const auto b = random_vector(m, 1, seed);
    Session s(m), defaults(m);
    const auto plain = defaults.solve(b, 1, 13);
    if (!(componentwise_error(m, plain, b) <= 1e-8)) ++wrong;
    s.iparm(42) = 1;
    const auto x = s.solve(b, 1, 13);
    EXPECT_EQ(s.error, 0) << seed;
    EXPECT_LE(componentwise_error(m, x, b), good) << seed;
  }
  EXPECT_GT(wrong, 30);
}

TEST(Ladder, LeavesWhatTheCallerHas) {
  const Matrix m = barrier(4);
  const auto b = random_vector(m, 1, 4);
  Session s(m);
  s.iparm(5) = -1;
  ASSERT_EQ(s.analyse(), 0);
  ASSERT_EQ(s.factor(), 0);
  const auto two = random_vector(m, 2, 7);
  s.solve(two, 2);
  ASSERT_EQ(s.factor(), 0);  // whose memory has the work space of two columns
  const auto plain = s.solve(b);
  const auto perm = s.perm;
  const int perturbed = s.iparm(14), memory = s.iparm(17);
  s.iparm(40) = 2;  // the caller's factor gives no bound, another one has to
  s.iparm(42) = 1;
  const auto x = s.solve(b);
  ASSERT_EQ(s.error, 0);
  const int rung = s.iparm(43);
  ASSERT_GE(rung, static_cast<int>(rung_robust));
  EXPECT_GT(s.iparm(17), memory) << "the second factor is counted";
  EXPECT_EQ(s.perm, perm);
  EXPECT_EQ(s.iparm(14), perturbed);
  // The second factor serves the next solve, and two columns as well.
  const auto again = s.solve(b);
  EXPECT_LE(componentwise_error(m, x, b), good);
  EXPECT_LE(componentwise_error(m, again, b), good);
  EXPECT_EQ(s.solve(b), again);
  EXPECT_EQ(s.iparm(43), rung);
  EXPECT_LE(componentwise_error(m, s.solve(two, 2), two, 2), good);
  // In b as well as in x.
  s.iparm(6) = 1;
  EXPECT_EQ(s.solve(b), again);
  s.iparm(6) = 0;
  s.iparm(40) = s.iparm(42) = 0;
  EXPECT_EQ(s.solve(b), plain);
  EXPECT_EQ(s.iparm(43), rung) << "written only where it is asked for";
  // New values end it.
  const Matrix other = with_new_values(m, 5);
  s.use(other);
  ASSERT_EQ(s.factor(), 0);
  EXPECT_LE(s.iparm(17), memory);
  s.iparm(42) = 1;
  EXPECT_LE(componentwise_error(other, s.solve(b), b), good);
  EXPECT_EQ(s.run(0), 0);
  EXPECT_EQ(s.run(-1), 0);
  EXPECT_TRUE(s.empty());
}

TEST(Ladder, ColumnsCountByThemselves) {
  const Matrix m = barrier(8);
  auto b = random_vector(m, 3, 2);
  std::fill_n(b.begin() + m.n, m.n, 0.0);
  Session s(m);
  s.iparm(42) = 1;
  const auto x = s.solve(b, 3, 13);
  EXPECT_LE(componentwise_error(m, x, b, 3), good);
  EXPECT_TRUE(std::all_of(x.begin() + m.n, x.begin() + 2 * m.n, [](double v) { return v == 0; }));
  b[5] = std::nan("");
  s.solve(b, 3);
  EXPECT_EQ(s.error, -4);
  EXPECT_EQ(s.iparm(41), 2);
}

TEST(Ladder, ZeroPivotsAndWhatIsNotDefinite) {
  for (const int mtype : {1, 3}) {
    Builder builder("zeros", mtype, 4);
    for (int i = 0; i < 4; ++i) builder.add(i, i, 0);
    for (const auto& [i, j] : {std::pair{0, 1}, {1, 2}, {2, 3}}) {
      builder.add(i, j, 2);
      builder.add(j, i, 3 + i);
    }
    const Matrix m = builder.finish();
    const auto b = random_vector(m, 1, 1);
    Session s(m);
    s.iparm(30) = 2;  // narrow panels, whose blocks are singular
    s.iparm(42) = 1;
    const auto x = s.solve(b, 1, 13);
    EXPECT_EQ(s.error, 0) << mtype;
    EXPECT_LE(componentwise_error(m, x, b), good) << mtype;
    EXPECT_LE(componentwise_error(m, s.solve(b), b), good) << mtype;
  }
  const Matrix indefinite = dense(10, 2, -2);
  Matrix claimed = indefinite;
  claimed.mtype = 2;
  Session s(claimed);
  s.iparm(42) = 1;
  s.solve(random_vector(claimed, 1, 1), 1, 13);
  EXPECT_EQ(s.error, -4) << "the caller said definite";
}

TEST(Ladder, SingularSystemsAreUseless) {
  // A graph Laplacian; its right-hand side is consistent, and then not.
  Builder builder("laplacian", -2, 30);
  Rng rng(4);
  for (int i = 0; i < 30; ++i) {
    builder.edge(i, (i + 1) % 30, rng.uniform(1, 2));
    builder.edge(i, (i + 7) % 30, rng.uniform(1, 2));
  }
  const Matrix m = builder.finish();
  for (const bool consistent : {true, false}) {
    auto b = product(m, random_vector(m, 1, 3));
    if (!consistent) b[0] += 1;
    Session s(m);
    s.iparm(40) = 2;
    s.iparm(42) = 1;
    s.solve(b, 1, 13);
    EXPECT_EQ(s.error, -4) << consistent;
    EXPECT_EQ(s.iparm(41), 2) << consistent;
    EXPECT_GE(s.iparm(44), 1) << "the zero eigenvalue has a sign";
    EXPECT_EQ(s.iparm(22) + s.iparm(23), 30);
    const std::vector<double> zero(b.size(), 0.0);
    EXPECT_EQ(s.solve(zero), zero);
    EXPECT_EQ(s.iparm(41), 2) << "a solution 0 says nothing of a singular matrix";
  }
}

TEST(Ladder, TargetAndReport) {
  const Matrix m = barrier(4);
  const auto b = random_vector(m, 1, 4);
  Session s(m);
  s.iparm(42) = 1;
  s.dparm(44) = 0.9999;  // anything will do
  s.solve(b, 1, 13);
  EXPECT_EQ(s.iparm(43), 0);
  s.dparm(44) = 0;
  s.iparm(40) = 2;
  s.msglvl = 1;
  ::testing::internal::CaptureStdout();
  s.solve(b);
  const std::string report = ::testing::internal::GetCapturedStdout();
  for (const char* line : {"backward error of the solve as asked for", "after Krylov refinement",
                           "with matching, scaling, small perturbation", "verdict: 0 good",
                           "number of positive eigenvalues"})
    EXPECT_NE(report.find(line), std::string::npos) << line << "\n" << report;
}

}  // namespace
}  // namespace vlm::test
