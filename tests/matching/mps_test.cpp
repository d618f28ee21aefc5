// SPDX-License-Identifier: BSD-3-Clause
/// Unsymmetric matching against brute force, scalings against their defining inequality, and
/// inputs that have no perfect matching or no proper numbers.
#include "matching/mps.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numeric>
#include <random>

#include "matching/logarithms.hpp"
#include "matching/mps_constraint.hpp"

namespace vlm {
namespace {

using Dense = std::vector<Vector<double>>;

/// Compressed rows, 1-based, of the entries of a dense matrix that aren't zero.  With only the
/// upper triangle, or when asked for, zeros on the diagonal are stored.
struct Csr {
  Vector<int> ia{1}, ja;
  Vector<double> a;

  explicit Csr(const Dense& dense, bool upper = false, bool diagonal = false) {
    for (std::size_t i = 0; i < dense.size(); ++i) {
      for (std::size_t j = upper ? i : 0; j < dense.size(); ++j) {
        if (dense[i][j] == 0 && !(i == j && (upper || diagonal))) continue;
        ja.push_back(static_cast<int>(j) + 1);
        a.push_back(dense[i][j]);
      }
      ia.push_back(static_cast<int>(ja.size()) + 1);
    }
  }
  MatchInput input(bool upper = false) const {
    return {static_cast<int>(ia.size()) - 1, ia.data(), ja.data(), a.data(), upper};
  }
};

/// Values over some decades; a draw below `density` decides whether an entry is there.  Few
/// different magnitudes, if asked for, make many ties.
Dense random_matrix(std::mt19937& gen, int n, double density, bool ties) {
  std::uniform_real_distribution<double> unit(0, 1);
  Dense d(n, Vector<double>(n, 0));
  for (auto& row : d)
    for (double& x : row)
      if (unit(gen) < density)
        x = (unit(gen) < 0.5 ? -1 : 1) *
            (ties ? std::ldexp(1.0, static_cast<int>(unit(gen) * 3)) : std::exp(10 * unit(gen)));
  return d;
}

/// Largest sum of logarithms over all permutations, -inf when each one meets a zero.
double best_product(const Dense& d) {
  const int n = static_cast<int>(d.size());
  Vector<int> p(n);
  std::iota(p.begin(), p.end(), 0);
  double best = -std::numeric_limits<double>::infinity();
  do {
    double sum = 0;
    for (int j = 0; j < n; ++j) sum += std::log(std::fabs(d[p[j]][j]));
    best = std::max(best, sum);
  } while (std::next_permutation(p.begin(), p.end()));
  return best;
}

void expect_permutation(Vector<int> p) {
  std::sort(p.begin(), p.end());
  for (std::size_t i = 0; i < p.size(); ++i) ASSERT_EQ(p[i], static_cast<int>(i));
}

/// Every entry of M = P R A C at most 1, the diagonal of magnitude 1, as the numeric phases form
/// it from the stored permutation and factors.
void expect_scaled(const Dense& d, const MatchResult& result, int mtype) {
  const int n = static_cast<int>(d.size());
  Vector<int> perm(n);
  Vector<double> scale(2 * n);
  rr33adcopy(ScaleMode::scale, n, result.perm.data(), result.u.data(), result.v.data(), mtype, 0,
             perm.data(), scale.data());
  const double *c = scale.data(), *r = c + n;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      const int k = perm[i] - 1;
      const double m = std::fabs(r[k] * d[k][j] * c[j]);
      EXPECT_LE(m, 1 + 1e-12) << i << ' ' << j;
      if (i == j) {
        EXPECT_NEAR(m, 1, 1e-12) << i;
      }
    }
}

TEST(Matching, OptimalAgainstAllPermutations) {
  int full = 0, deficient = 0;
  for (unsigned seed = 0; seed < 900; ++seed) {
    std::mt19937 gen(seed);
    const int n = 1 + static_cast<int>(seed % 7);
    const Dense d = random_matrix(gen, n, seed % 3 ? 0.45 : 0.9, seed % 2);
    const double best = best_product(d);
    const Csr csr(d);
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const MatchResult result = mps_velmora(csr.input());
    ASSERT_EQ(static_cast<int>(result.perm.size()), n);
    expect_permutation(result.perm);
    if (std::isinf(best)) {
      ++deficient;
      EXPECT_LT(result.count, n);
      EXPECT_TRUE(result.u.empty());
      int present = 0;
      for (int j = 0; j < n; ++j) present += d[result.perm[j]][j] != 0;
      EXPECT_GE(present, result.count);
    } else {
      ++full;
      ASSERT_EQ(result.count, n);
      double sum = 0;
      for (int j = 0; j < n; ++j) sum += std::log(std::fabs(d[result.perm[j]][j]));
      EXPECT_NEAR(sum, best, 1e-10);
      expect_scaled(d, result, 11);
    }
  }
  EXPECT_GT(full, 200);
  EXPECT_GT(deficient, 200);
}

// Large enough for long augmenting paths and a heap of some depth.
TEST(Matching, DualsAreFeasibleAndTightOnLargerMatrices) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 gen(seed);
    const int n = 150;
    Dense d = random_matrix(gen, n, 0.04, seed % 2);
    for (int j = 0; j < n; ++j)
      d[(j * 7 + 3) % n][j] = 1e-3;  // a transversal that isn't involutory
    const Csr csr(d);
    mps_csr cost = csr_create_log(csr.input());
    MatchState state = kuhn_munkres_init(cost);
    EXPECT_LT(state.count, n);
    ASSERT_EQ(kuhn_munkres(cost, state), n);
    for (int i = 0; i < n; ++i)
      for (int p = cost.rowptr[i]; p < cost.rowptr[i + 1]; ++p) {
        const int j = cost.col[p];
        const double slack = state.u[i] + state.v[j] - cost.val[p];
        EXPECT_GE(slack, -1e-12);
        if (state.match[j] == i) {
          EXPECT_NEAR(slack, 0, 1e-12);
        }
        EXPECT_GE(state.v[j], 0);
      }
    expect_scaled(d, mps_velmora(csr.input()), 11);
  }
}

// Scaling rows and columns by anything leaves the best permutation and the scaled matrix alone.
TEST(Matching, InvariantUnderRowAndColumnScaling) {
  std::mt19937 gen(5);
  const int n = 60;
  Dense d = random_matrix(gen, n, 0.1, false);
  for (int j = 0; j < n; ++j) d[(j + 11) % n][j] = 3;
  Dense scaled = d;
  std::uniform_real_distribution<double> exponent(-30, 30);
  Vector<double> r(n), c(n);
  for (int i = 0; i < n; ++i)
    r[i] = std::pow(10, exponent(gen)), c[i] = std::pow(10, exponent(gen));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) scaled[i][j] *= r[i] * c[j];
  const MatchResult plain = mps_velmora(Csr(d).input()), other = mps_velmora(Csr(scaled).input());
  EXPECT_EQ(plain.perm, other.perm);
  expect_scaled(scaled, other, 11);
}

TEST(Matching, GreedyStart) {
  {  // identity: all rows at once, unit scaling
    const MatchResult result = mps_velmora(Csr({{1, 0}, {0, 1}}).input());
    EXPECT_EQ(result.perm, (Vector<int>{0, 1}));
    EXPECT_EQ(result.u, (Vector<double>{0, 0}));
    EXPECT_EQ(result.v, (Vector<double>{0, 0}));
  }
  {  // of two equal entries the later one wins
    const mps_csr cost = csr_create_log(Csr({{1, 1}, {0.5, 0.5}}).input());
    const MatchState state = kuhn_munkres_init(cost);
    EXPECT_EQ(state.match, (Vector<int>{1, 0}));
  }
  {  // row 2 only reaches column 3, whose owner, row 1, moves over to column 1
    const mps_csr cost = csr_create_log(Csr({{4, 0, 4}, {0, 0, 4}, {0, 4, 0}}).input());
    const MatchState state = kuhn_munkres_init(cost);
    EXPECT_EQ(state.count, 3);
    EXPECT_EQ(state.match, (Vector<int>{0, 2, 1}));
  }
}

TEST(Matching, SymmetricInputEqualsItsFullStructure) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 gen(seed);
    const int n = 30;
    Dense d = random_matrix(gen, n, 0.12, seed % 2);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < i; ++j) d[i][j] = d[j][i];
    const MatchResult full = mps_velmora(Csr(d).input());
    const MatchResult upper = mps_velmora(Csr(d, true).input(true));
    EXPECT_EQ(full.count, upper.count);
    EXPECT_EQ(full.perm, upper.perm);
    if (full.count == n) {
      EXPECT_EQ(full.u, upper.u);
      // one factor per index keeps all entries at most 1 and the matched ones at 1
      Vector<int> perm(n);
      Vector<double> scale(2 * n);
      rr33adcopy(ScaleMode::scale, n, full.perm.data(), full.u.data(), full.v.data(), -2, 0,
                 perm.data(), scale.data());
      for (int i = 0; i < n; ++i) EXPECT_EQ(scale[i], scale[n + i]);
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
          const double m = std::fabs(scale[i] * d[i][j] * scale[j]);
          EXPECT_LE(m, 1 + 1e-12);
          if (full.perm[j] == i) {
            EXPECT_NEAR(m, 1, 1e-12);
          }
        }
    }
  }
}

TEST(Matching, ZerosAreAbsentAndOutsidersPassedOver) {
  // explicit zeros on the diagonal, and a leading block of 2 out of 3
  const Vector<int> ia{1, 4, 7, 10}, ja{1, 2, 3, 1, 2, 3, 1, 2, 3};
  const Vector<double> a{0, 2, 9, 5, 0, 9, 9, 9, 9};
  const MatchResult result = mps_velmora({2, ia.data(), ja.data(), a.data(), false});
  EXPECT_EQ(result.count, 2);
  EXPECT_EQ(result.perm, (Vector<int>{1, 0}));
}

TEST(Matching, DeficientMatchingsBecomePermutations) {
  // rows 1 and 3 empty; columns 2 and 4 empty
  const MatchResult result =
      mps_velmora(Csr({{0, 0, 0, 0}, {1, 0, 2, 0}, {0, 0, 0, 0}, {3, 0, 0, 0}}).input());
  EXPECT_EQ(result.count, 2);
  EXPECT_EQ(result.perm[0], 3);
  EXPECT_EQ(result.perm[2], 1);
  expect_permutation(result.perm);

  // chains 0 -> 2 -> 1 and a lone 3: each is closed on itself
  Vector<int> match{2, -1, 1, -1};
  EXPECT_EQ(expand_matching(match), 2);
  EXPECT_EQ(match, (Vector<int>{2, 0, 1, 3}));

  const MatchResult nothing = mps_velmora({0, match.data(), nullptr, nullptr, false});
  EXPECT_EQ(nothing.count, 0);
}

// A NaN is matched where nothing else is left, an infinity first of all; neither spoils the
// others' scaling or keeps the search from ending.
TEST(Matching, ImproperNumbers) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const MatchResult avoid = mps_velmora(Csr({{nan, 1e-200}, {1e-200, nan}}).input());
  EXPECT_EQ(avoid.perm, (Vector<int>{1, 0}));
  const MatchResult forced = mps_velmora(Csr({{nan, 0}, {0, inf}}).input());
  EXPECT_EQ(forced.count, 2);
  const MatchResult wins = mps_velmora(Csr({{1, inf}, {inf, 1e300}}).input());
  EXPECT_EQ(wins.perm, (Vector<int>{1, 0}));
  for (unsigned seed = 0; seed < 30; ++seed) {
    std::mt19937 gen(seed);
    Dense d = random_matrix(gen, 40, 0.15, seed % 2);
    for (int k = 0; k < 60; ++k) d[gen() % 40][gen() % 40] = k % 3 ? nan : inf;
    const MatchResult result = mps_velmora(Csr(d).input());
    expect_permutation(result.perm);
    for (double x : result.u) EXPECT_TRUE(std::isfinite(x));
    for (double x : result.v) EXPECT_TRUE(std::isfinite(x));
  }
}

TEST(Matching, ComplexMagnitudes) {
  const Vector<double> a{3, -4, 1e200, 1e200, 0, 1e-200, 0, 0};
  const Vector<double> magnitude = convert2abs(4, a.data());
  for (int k = 0; k < 4; ++k)
    EXPECT_DOUBLE_EQ(magnitude[k], std::abs(std::complex<double>(a[2 * k], a[2 * k + 1])));
}

TEST(Matching, StoredFactors) {
  const Vector<int> perm{2, 0, 1};
  const Vector<double> u{1, 2, 3}, v{-1, 5000, 0.5};
  Vector<int> store(3);
  Vector<double> scale(6);
  const auto run = [&](ScaleMode mode, int mtype, int nschur) {
    rr33adcopy(mode, 3, perm.data(), u.data(), v.data(), mtype, nschur, store.data(), scale.data());
  };
  const Vector<double> ones(6, 1.0);
  run(ScaleMode::permute, 11, 0);
  EXPECT_EQ(store, (Vector<int>{3, 1, 2}));
  EXPECT_EQ(scale, ones);
  run(ScaleMode::scale, 13, 0);
  EXPECT_DOUBLE_EQ(scale[0], std::exp(-1));
  EXPECT_DOUBLE_EQ(scale[5], std::exp(3));
  EXPECT_TRUE(std::isfinite(scale[1]));
  run(ScaleMode::scale, -2, 1);  // place 1 holds index 3, which belongs to the trailing block
  EXPECT_EQ(scale[0], 1);
  EXPECT_DOUBLE_EQ(scale[2], std::exp(1.75));
  EXPECT_EQ(scale[5], scale[2]);
}

/// Saddle-point matrix [D B'; B 0], and the least total cost of giving each constraint an
/// unknown of its own, over all choices.
struct Saddle {
  int nf, nc;
  Dense dense;

  Saddle(unsigned seed, int leading, int constraints, double density)
      : nf(leading), nc(constraints), dense(nf + nc, Vector<double>(nf + nc, 0)) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int i = 0; i < nf; ++i) dense[i][i] = unit(gen) < 0.2 ? 0 : std::exp(20 * unit(gen) - 10);
    for (int i = 0; i + 1 < nf; ++i) dense[i][i + 1] = dense[i + 1][i] = 0.1;
    for (int k = nf; k < nf + nc; ++k)
      for (int i = 0; i < nf; ++i)
        if (unit(gen) < density) dense[k][i] = dense[i][k] = std::exp(4 * unit(gen));
  }
  double cost(int k, int i) const {
    const double weight = dense[i][i] != 0 ? 0.5 * std::log(dense[i][i]) : 0;
    return weight - std::log(dense[nf + k][i]);
  }
  double best(int k, Vector<char>& used) const {
    if (k == nc) return 0;
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < nf; ++i) {
      if (used[i] || dense[nf + k][i] == 0) continue;
      used[i] = 1;
      least = std::min(least, cost(k, i) + best(k + 1, used));
      used[i] = 0;
    }
    return least;
  }
};

TEST(ConstrainedMatching, LeastCostAgainstAllChoices) {
  int full = 0, deficient = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    const bool upper = seed % 2;
    SCOPED_TRACE(seed);
    const Saddle s(seed, 3 + static_cast<int>(seed % 4), 1 + static_cast<int>(seed % 3),
                   seed % 5 ? 0.6 : 0.25);
    const int n = s.nf + s.nc;
    const Csr csr(s.dense, upper, true);
    const int nc = guess_constraint_size(csr.input(upper));
    if (nc != s.nc) continue;  // the last leading row may look like a constraint, too
    MatchResult result;
    ASSERT_TRUE(constrained_matching(csr.input(upper), result));
    expect_permutation(result.perm);
    Vector<char> used(s.nf, 0);
    const double least = s.best(0, used);
    double cost = 0;
    for (int i = 0; i < n; ++i) EXPECT_EQ(result.perm[result.perm[i]], i);  // only exchanges
    int free_constraints = 0;
    for (int k = 0; k < s.nc; ++k) {
      const int i = result.perm[s.nf + k];
      if (i >= s.nf) {
        EXPECT_EQ(i, s.nf + k);
        ++free_constraints;
        continue;
      }
      ASSERT_NE(s.dense[s.nf + k][i], 0);
      cost += s.cost(k, i);
    }
    if (std::isinf(least)) {
      ++deficient;
      EXPECT_GT(free_constraints, 0);
      for (double u : result.u) EXPECT_EQ(u, 0);
    } else {
      ++full;
      EXPECT_EQ(free_constraints, 0);
      EXPECT_NEAR(cost, least, 1e-10);
      // the scaled matrix: pivots of 1, the rest of B and the diagonal of F below
      const auto scaled = [&](int k, int l) {
        return std::exp(result.u[k] + result.u[l]) * s.dense[k][l];
      };
      EXPECT_EQ(result.u, result.v);
      for (int i = 0; i < s.nf; ++i) {
        for (int k = s.nf; k < n; ++k) EXPECT_LE(scaled(k, i), 1 + 1e-12);
        EXPECT_LE(scaled(i, i), 1 + 1e-12);
        const int partner = result.perm[i];
        EXPECT_NEAR(scaled(i, partner), partner == i && s.dense[i][i] == 0 ? 0 : 1, 1e-12);
      }
    }
  }
  EXPECT_GT(full, 50);
  EXPECT_GT(deficient, 10);
}

TEST(ConstrainedMatching, NoConstraintsAndHugeDuals) {
  MatchResult result;
  EXPECT_FALSE(constrained_matching(Csr({{1, 2}, {2, 1}}, true).input(true), result));
  // more constraints than leading unknowns
  EXPECT_FALSE(
      constrained_matching(Csr({{1, 2, 3}, {2, 0, 0}, {3, 0, 0}}, true).input(true), result));
  // a factor beyond 2^512 is refused: all of them become 1
  Vector<int> match;
  Vector<double> u(2), v(1);
  mps_csr b;
  b.n = 1;
  b.ncol = 2;
  b.rowptr = {0, 1};
  b.col = {0};
  b.val = {std::log(1e-200)};
  EXPECT_EQ(unsym_reordering_mps(b, {0, 0}, match, u, v), 1);
  EXPECT_EQ(match, (Vector<int>{0, -1}));
  EXPECT_EQ(u, (Vector<double>{0, 0}));
  EXPECT_EQ(v, (Vector<double>{0}));
}

TEST(Mps, LogarithmsAreThoseOfTheLibrary) {
  Vector<double> x{DBL_TRUE_MIN, std::nextafter(DBL_MIN, 0.0), DBL_MIN, 1, DBL_MAX};
  std::mt19937_64 random(1);
  for (int e = -1074; e < 1024; ++e)
    for (int k = 0; k < 7; ++k)
      x.push_back(std::max(DBL_TRUE_MIN, std::ldexp(1 + (random() >> 12) * 0x1p-52, e)));
  for (int k = -50; k <= 50; ++k) x.push_back(1 + k * 0x1p-40);
  Vector<double> log = x;
  take_logarithms(log.data(), log.size());
  for (std::size_t k = 0; k < x.size(); ++k) EXPECT_DOUBLE_EQ(log[k], std::log(x[k])) << x[k];
  EXPECT_EQ(log[3], 0);
}

// Large enough for parts on several threads, with both triangles and with one.
TEST(Mps, SameOnAnyNumberOfThreads) {
  const int n = 14000;
  std::mt19937_64 random(2);
  Vector<int> ia{1}, ja;
  Vector<double> a;
  for (int i = 0; i < n; ++i) {
    for (int j = i, k = 0; j < n && k < 8; ++k, j += 1 + static_cast<int>(random() % 900)) {
      ja.push_back(j + 1);
      a.push_back(std::ldexp(1.0 + random() % 5, static_cast<int>(random() % 20) + (k == 0) * 12));
    }
    ia.push_back(static_cast<int>(ja.size()) + 1);
  }
  for (const bool upper : {false, true}) {
    MatchInput input{n, ia.data(), ja.data(), a.data(), upper};
    const mps_csr cost = csr_create_log(input);
    const MatchResult one = mps_velmora(input);
    EXPECT_EQ(one.count, n);
    for (const int threads : {2, 3, 5, 8}) {
      input.threads = threads;
      const mps_csr other = csr_create_log(input);
      EXPECT_TRUE(other.rowptr == cost.rowptr && other.col == cost.col && other.val == cost.val &&
                  other.logmax == cost.logmax && other.path_bound == cost.path_bound)
          << threads;
      const MatchResult result = mps_velmora(input);
      EXPECT_TRUE(result.perm == one.perm && result.u == one.u && result.v == one.v) << threads;
    }
  }
}

}  // namespace
}  // namespace vlm
