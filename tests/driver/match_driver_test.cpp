// SPDX-License-Identifier: BSD-3-Clause
/// What the matching hands to the analysis and to the numeric phases, by type and mode.
#include "driver/match_driver.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "gallery.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

/// The options that a matching reads, and its results.
struct MatchingRun {
  const Matrix& m;
  Options options;
  std::vector<int> perm;
  std::vector<double> scale;
  MatchedOrder matched;

  MatchingRun(const Matrix& matrix, int mode) : m(matrix), perm(m.n), scale(2 * m.n) {
    options.mtype = m.mtype;
    options.type = &matrix_type(m.mtype);
    options.n = m.n;
    options.symmetric = m.triangle();
    options.matching = mode;
    options.scaled = true;
  }
  Outcome go() {
    return run_matching({m.n, m.ia.data(), m.ja.data(), m.a.data()}, options, perm.data(),
                        scale.data(), matched);
  }
  /// Calls visit(row, column, magnitude in the scaled, permuted matrix), 0-based.
  template <class Visit>
  void for_each_scaled(Visit visit) const {
    std::vector<int> place(m.n);
    for (int i = 0; i < m.n; ++i) place[perm[i] - 1] = i;
    for (int i = 0; i < m.n; ++i)
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
        const int j = m.ja[p] - 1;
        visit(place[i], j, scale[m.n + i] * std::abs(m.value(p)) * scale[j]);
      }
  }
};

TEST(MatchDriver, UnsymmetricTypesGetAUnitDiagonal) {
  for (const int mtype : {11, 13}) {
    const Matrix m = badly_scaled(120, 6, 3, mtype);
    for (const int mode : {1, 2, 3, 4}) {
      SCOPED_TRACE(testing::Message() << mtype << " mode " << mode);
      MatchingRun run(m, mode);
      ASSERT_FALSE(run.go());
      EXPECT_TRUE(is_permutation(run.perm));
      EXPECT_FALSE(run.matched.order.has_value());
      int units = 0;
      run.for_each_scaled([&](int i, int j, double magnitude) {
        EXPECT_LE(magnitude, 1 + 1e-12);
        units += i == j && magnitude > 1 - 1e-12;
      });
      EXPECT_EQ(units, m.n);
      run.options.scaled = false;
      const std::vector<int> scaled_perm = run.perm;
      ASSERT_FALSE(run.go());
      EXPECT_EQ(run.perm, scaled_perm);
      EXPECT_EQ(run.scale, std::vector<double>(2 * m.n, 1.0));
    }
    const Matrix bad = structurally_singular(60, 1, mtype);
    MatchingRun failing(bad, 1);
    const Outcome outcome = failing.go();
    EXPECT_EQ(outcome.error, error_matching);
    EXPECT_EQ(outcome.code, -59);
  }
}

/// Order, factors and pattern of a symmetric run; the trailing nodes are the Schur complement's.
void expect_symmetric(const MatchingRun& run) {
  const int n = run.m.n, leading = n - run.options.schur;
  std::vector<int> identity(n);
  std::iota(identity.begin(), identity.end(), 1);
  EXPECT_EQ(run.perm, identity);
  ASSERT_TRUE(run.matched.order.has_value());
  EXPECT_TRUE(are_inverse(run.matched.order->perm, run.matched.order->invp));
  for (int k = leading; k < n; ++k) EXPECT_EQ(run.matched.order->perm[k], k + 1);
  EXPECT_EQ(run.matched.order->ranges.back().last, n);
  for (int i = 0; i < n; ++i) EXPECT_EQ(run.scale[i], i < leading ? run.scale[n + i] : 1);
  std::vector<double> largest(n, 0);
  run.for_each_scaled([&](int i, int j, double magnitude) {
    if (j >= leading) return;
    EXPECT_LE(magnitude, 1 + 1e-12);
    largest[i] = std::max(largest[i], magnitude);
    largest[j] = std::max(largest[j], magnitude);
  });
  for (int i = 0; i < leading; ++i) EXPECT_NEAR(largest[i], 1, 1e-12);

  ASSERT_EQ(run.matched.padded.has_value(), run.options.matching % 2 == 0);
  if (!run.matched.padded) return;
  const Vector<int>&ia = run.matched.padded->ia, &ja = run.matched.padded->ja;
  for (int i = 0; i < n; ++i)
    EXPECT_TRUE(std::includes(ja.begin() + ia[i] - 1, ja.begin() + ia[i + 1] - 1,
                              run.m.ja.begin() + run.m.ia[i] - 1,
                              run.m.ja.begin() + run.m.ia[i + 1] - 1));
}

TEST(MatchDriver, SymmetricTypesGetAnOrder) {
  for (const Matrix& m :
       {saddle_point(4, 1), random_indefinite(80, 0.1, 0.7, 2, -2),
        random_indefinite(80, 0.1, 0.7, 3, -4), random_indefinite(80, 0.1, 0.7, 4, 6)})
    for (const int mode : {1, 2, 3, 4})
      for (const int order : {0, 1, 2}) {
        SCOPED_TRACE(testing::Message()
                     << m.name << ' ' << m.mtype << " mode " << mode << " order " << order);
        MatchingRun run(m, mode);
        run.options.order = OrderMethod(order);
        ASSERT_FALSE(run.go());
        if (mode < 3) {
          expect_symmetric(run);
        } else {
          ASSERT_TRUE(run.matched.order.has_value());
          EXPECT_TRUE(are_inverse(run.matched.order->perm, run.matched.order->invp));
        }
      }
}

// The nodes behind the leading block are neither matched nor scaled nor moved.
TEST(MatchDriver, SchurComplementStaysOutside) {
  const Matrix m = shifted_laplacian(8, 0.4, true, 5);
  for (const int mode : {1, 2}) {
    MatchingRun run(m, mode);
    run.options.schur = 15;
    ASSERT_FALSE(run.go());
    expect_symmetric(run);
  }
}

// Nodes without a diagonal entry find their partners next to them: with minimum degree or
// dissection, one of each pair x(k), y(k) of [0 D; D 0] would be as good a neighbour as another.
TEST(MatchDriver, PartnersAreNeighbours) {
  const int pairs = 30;
  Builder builder("coupled pairs", -2, 2 * pairs);
  for (int k = 0; k < pairs; ++k) {
    builder.add(k, pairs + k, 10);
    if (k + 1 < pairs) builder.add(k, pairs + k + 1, 1);
    if (k + 7 < pairs) builder.add(k, k + 7, 1);
  }
  const Matrix m = builder.finish();
  for (const int mode : {1, 3})
    for (const int order : {0, 1, 2}) {
      MatchingRun run(m, mode);
      run.options.order = OrderMethod(order);
      ASSERT_FALSE(run.go());
      for (int k = 0; k < pairs; ++k)
        EXPECT_EQ(std::abs(run.matched.order->invp[k] - run.matched.order->invp[pairs + k]), 1);
    }
}

TEST(MatchDriver, IncompleteSymmetricMatchingsAndUserOrders) {
  for (const int mtype : {-2, -4, 6}) {
    const Matrix bad = structurally_singular(60, 1, mtype);
    MatchingRun run(bad, 2);
    ASSERT_FALSE(run.go());
    EXPECT_TRUE(are_inverse(run.matched.order->perm, run.matched.order->invp));
    EXPECT_EQ(run.scale, std::vector<double>(2 * bad.n, 1.0));
  }
  const Matrix m = saddle_point(3, 1);
  MatchingRun run(m, 1);
  run.options.user_order = true;
  ASSERT_FALSE(run.go());
  EXPECT_FALSE(run.matched.order.has_value());
  EXPECT_NE(run.scale, std::vector<double>(2 * m.n, 1.0));
}

// Fewer than nine compressed nodes keep their numbers under nested dissection.
TEST(MatchDriver, TinyCompressedGraphs) {
  const Matrix m = arrow(8, true, 1);
  MatchingRun run(m, 1);
  ASSERT_FALSE(run.go());
  const MatchInput input{m.n, m.ia.data(), m.ja.data(), m.a.data(), true};
  Vector<int> expected = reordering_matching_sym2x2(input, mps_velmora(input).perm).node;
  for (int& node : expected) ++node;
  EXPECT_EQ(run.matched.order->perm, expected);
}

}  // namespace
}  // namespace vlm::test
