// SPDX-License-Identifier: BSD-3-Clause
// Solves restricted to marked nodes, against whole ones: few and many marks, matchings, transposed
// systems, single steps, Schur complements.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "caller.hpp"
#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

struct Case {
  int marks, matching, threads, leading;
};

std::vector<int> random_marks(int n, int count, std::uint64_t seed) {
  std::vector<int> marks(static_cast<std::size_t>(n), 0);
  Rng rng(seed);
  while (std::count(marks.begin(), marks.end(), 1) < count) marks[rng.below(n)] = 1;
  return marks;
}

void set_up(Session& s, const Case& c) {
  s.iparm(8) = 0;  // as partial solves
  s.iparm(11) = c.matching > 0 ? 1 : 0;
  s.iparm(13) = c.matching;
  s.iparm(38) = c.leading;
}

constexpr double untouched = -77;

/// One partial solve; entries that it leaves alone hold `untouched`.
std::vector<double> solve_partly(Session& s, std::vector<double> b, int nrhs) {
  std::vector<double> x(b.size(), untouched);
  s.run(33, b.data(), x.data(), nrhs);
  EXPECT_EQ(s.error, 0);
  return x;
}

/// Expects the solution where `taken` says so, and elsewhere nothing.
void expect_part(const std::vector<double>& x, const std::vector<double>& right,
                 const std::function<bool(std::size_t)>& taken, double size) {
  for (std::size_t k = 0; k < x.size(); ++k) {
    if (taken(k)) {
      ASSERT_NEAR(x[k], right[k], 1e-11 * size) << k;
    } else {
      ASSERT_EQ(x[k], untouched) << k;
    }
  }
}

double largest(const std::vector<double>& v) {
  double size = 0;
  for (const double x : v) size = std::max(size, std::abs(x));
  return size;
}

void compare(const Matrix& m, const Case& c, int transposed, int nrhs) {
  SCOPED_TRACE(m.name + " marks " + std::to_string(c.marks) + " matching " +
               std::to_string(c.matching) + " threads " + std::to_string(c.threads) + " leading " +
               std::to_string(c.leading) + " transposed " + std::to_string(transposed) + " nrhs " +
               std::to_string(nrhs));
  Session part(m, c.threads), whole(m, c.threads);
  set_up(part, c);
  set_up(whole, c);
  part.iparm(31) = c.marks % 2 == 0 ? 1 : -2;  // any value but 0
  const std::vector<int> marks = part.perm = random_marks(m.n, c.marks, 14);
  part.iparm(12) = whole.iparm(12) = transposed;
  ASSERT_EQ(part.run(12), 0);
  ASSERT_EQ(whole.run(12), 0);
  part.iparm(14) = whole.iparm(14) = 0;
  const auto n = static_cast<std::size_t>(m.n), nv = static_cast<std::size_t>(m.nvals());
  const auto taken = [&](std::size_t k) {
    const std::size_t node = k / nv % n;
    const bool kept = c.leading > 0 && static_cast<int>(node) >= c.leading;
    return c.marks == 0 || marks[node] != 0 || kept;
  };
  std::vector<double> b = random_vector(m, nrhs, 15);
  for (std::size_t k = 0; k < b.size(); ++k)
    if (!taken(k)) b[k] = 0;
  const std::vector<double> right = whole.solve(b, nrhs);
  // Of a right-hand side nothing counts where there is no mark.
  std::vector<double> noise = b;
  for (std::size_t k = 0; k < b.size(); ++k)
    if (!taken(k)) noise[k] = 1e10;
  expect_part(solve_partly(part, noise, nrhs), right, taken, largest(right));

  // The two steps: with a complement of zeros between them as in a whole solve.
  part.iparm(26) = 1;
  std::vector<double> half = solve_partly(part, noise, nrhs);
  for (std::size_t k = 0; k < half.size() && c.leading > 0; ++k)
    if (static_cast<int>(k / nv % n) >= c.leading) half[k] = 0;
  part.iparm(26) = 2;
  expect_part(solve_partly(part, half, nrhs), right, taken, largest(right));
  part.iparm(26) = part.iparm(31) = 0;
  EXPECT_LE(relative_difference(part.solve(b, nrhs), right), 1e-11);
}

TEST(PartialSolve, GivesTheMarkedEntries) {
  for (const Matrix& m : std::vector<Matrix>{
           elasticity3d(4, 1), shifted_laplacian(14, 1.1, true, 2), structurally_symmetric(4, 3),
           structurally_symmetric(4, 3, 3), magnetic_laplacian(5, 0, 4),
           magnetic_laplacian(5, 1.7, 5), helmholtz(13, 0.6, true, 6),
           convection_diffusion(5, 4, 7), convection_diffusion(5, 4, 8, 13),
           random_unsymmetric(150, 5, 0.3, 82)}) {
    const bool matched = m.mtype == -2 || m.mtype == -4 || m.mtype == 6 || m.mtype > 10;
    for (const int marks : {0, 1, 12, m.n / 2})
      for (const int matching : {0, 1, 2}) {
        if (matching > 0 && !matched) continue;
        for (const int leading : {0, m.n - 9}) {
          compare(m, {marks, matching, 1, leading}, 0, 1);
          compare(m, {marks, matching, 2, leading}, m.triangle() ? 0 : 1, 3);
        }
      }
  }
}

// Factors that two threads make together, and many right-hand sides.
TEST(PartialSolve, LargerFactors) {
  for (const Matrix& m : {shifted_laplacian(13, 1.1, false, 2), convection_diffusion(12, 4, 5)})
    for (const int marks : {5, 300})
      for (const int nrhs : {1, 40}) compare(m, {marks, 0, 2, 0}, 0, nrhs);
}

// perm can't hold marks and an order at once.
TEST(PartialSolve, MarksBesideAGivenOrder) {
  Caller c = make_tridiagonal(10, 11);
  for (int i = 0; i < 10; ++i) c.perm[i] = i + 1;
  c.iparm(5) = 1;
  c.iparm(31) = 1;
  EXPECT_NE(c.run_and_read(12).find("perm is an order and marks at once"), std::string::npos);
  EXPECT_EQ(c.error, -1);
  c.iparm(5) = -1;
  EXPECT_EQ(c.run(12), 0);
  std::vector<int> order(c.perm.begin(), c.perm.begin() + 10);
  EXPECT_TRUE(is_permutation(order));
}

}  // namespace
}  // namespace vlm::test
