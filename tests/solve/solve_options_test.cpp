// SPDX-License-Identifier: BSD-3-Clause
// What the control vector offers around a solve: permutations, counts, parts of a solve, several
// factors and handles, log-determinant.
#include <gtest/gtest.h>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// One matrix per type with kernels: more than one panel, not positive by construction.
std::vector<Matrix> one_of_each() {
  std::vector<Matrix> list;
  for (Matrix& m : std::vector<Matrix>{
           elasticity3d(4, 1), shifted_laplacian(14, 1.1, true, 2), structurally_symmetric(4, 3),
           structurally_symmetric(4, 3, 3), magnetic_laplacian(5, 0, 4),
           magnetic_laplacian(5, 1.7, 5), helmholtz(13, 0.6, true, 6),
           convection_diffusion(5, 4, 7), convection_diffusion(5, 4, 8, 13)})
    list.push_back(std::move(m));
  return list;
}

/// No matching, so that the factor is that of A itself.
void plain(Session& s) { s.iparm(11) = s.iparm(13) = 0; }

int panel_width(const Matrix& m) { return m.triangle() ? 80 : 128; }

std::int64_t counted_nonzeros(const Matrix& m, const std::vector<int>& perm) {
  const SymbolicReference ref = eliminate(m, perm);
  const SupernodeReference super = supernodes(ref, panel_width(m));
  const std::int64_t u =
      m.triangle() ? 1 : std::max<std::int64_t>(1, rectangle_entries(ref, super));
  return panel_entries(ref, super) + u;
}

TEST(SolveOptions, PermutationOutFitsTheCountAndComesBackIn) {
  for (const Matrix& m : one_of_each())
    for (const int order : {0, 1, 2}) {
      SCOPED_TRACE(m.name + " order " + std::to_string(order));
      Session out(m);
      plain(out);
      out.iparm(2) = order;
      out.iparm(5) = -1;
      ASSERT_EQ(out.analyse(), 0);
      ASSERT_TRUE(is_permutation(out.perm));
      EXPECT_EQ(out.iparm(18), counted_nonzeros(m, out.perm));

      Session in(m);
      plain(in);
      in.iparm(5) = 1;
      in.perm = out.perm;
      ASSERT_EQ(in.run(12), 0);
      EXPECT_EQ(in.iparm(18), out.iparm(18));
      EXPECT_EQ(in.perm, out.perm);
      const std::vector<double> b = random_vector(m, 1, 11);
      EXPECT_LE(normwise_error(m, in.solve(b), b), 1e-14);
    }
}

TEST(SolveOptions, CountOfKnownFactors) {
  const int n = 50;
  for (const Matrix& m : {tridiagonal(n, 1), expanded(tridiagonal(n, 1))}) {
    Session s(m);
    s.iparm(5) = 1;
    for (int i = 0; i < n; ++i) s.perm[i] = i + 1;
    ASSERT_EQ(s.analyse(), 0);
    EXPECT_EQ(s.iparm(18), m.triangle() ? 2 * n + 1 : 3 * n - 2);
  }
  const Matrix full = dense(n, 2);
  Session s(full);
  ASSERT_EQ(s.analyse(), 0);
  EXPECT_EQ(s.iparm(18), n * n + 1);
  // A value that is not negative stays as it was.
  s.iparm(18) = 12345;
  ASSERT_EQ(s.analyse(), 0);
  EXPECT_EQ(s.iparm(18), 12345);
}

TEST(SolveOptions, SolutionOverwritesTheRightHandSide) {
  for (const Matrix& m : one_of_each())
    for (const int refinement : {0, 3, -3}) {
      SCOPED_TRACE(m.name + " iparm(8) " + std::to_string(refinement));
      Session s(m);
      s.iparm(8) = refinement;
      ASSERT_EQ(s.run(12), 0);
      const std::vector<double> b = random_vector(m, 3, 12);
      const std::vector<double> x = s.solve(b, 3);
      s.iparm(6) = 1;
      EXPECT_LE(relative_difference(s.solve(b, 3), x), 1e-15);
      EXPECT_LE(normwise_error(m, x, b, 3), 1e-14);
    }
}

TEST(SolveOptions, ForwardAndTheRestComposeToTheSolve) {
  for (const Matrix& m : one_of_each())
    for (const int nrhs : {1, 4}) {
      SCOPED_TRACE(m.name + " nrhs " + std::to_string(nrhs));
      Session s(m);
      s.iparm(8) = 0;
      ASSERT_EQ(s.run(12), 0);
      s.iparm(14) = 0;
      const std::vector<double> b = random_vector(m, nrhs, 13);
      const std::vector<double> whole = s.solve(b, nrhs);
      s.iparm(26) = 1;
      const std::vector<double> half = s.solve(b, nrhs);
      EXPECT_GT(relative_difference(half, whole), 1e-6);
      s.iparm(26) = 2;
      EXPECT_LE(relative_difference(s.solve(half, nrhs), whole), 1e-14);
      EXPECT_EQ(s.iparm(7), 0);
    }
}

TEST(SolveOptions, LogDeterminant) {
  for (const int mtype : all_mtypes) {
    for (const Matrix& m : well_conditioned(mtype)) {
      if (m.nnz() == m.n) continue;  // diagonal systems are solved without a factor
      for (const int pivoting : {0, 1}) {
        SCOPED_TRACE(m.name + " pivoting " + std::to_string(pivoting));
        Session s(m);
        s.iparm(33) = 1;
        s.iparm(21) = pivoting;
        ASSERT_EQ(s.run(12), 0);
        if (s.iparm(14) > 0) continue;
        const double right = dense_log_abs_det(to_dense(m));
        EXPECT_NEAR(s.dparm(33), right, 1e-9 * (1 + std::abs(right)));
      }
    }
  }
}

TEST(SolveOptions, SeveralMatricesUnderOneAnalysis) {
  for (const Matrix& m : one_of_each()) {
    SCOPED_TRACE(m.name);
    const std::vector<Matrix> list = {m, with_new_values(m, 21), with_new_values(m, 22)};
    const std::vector<double> b = random_vector(m, 2, 16);
    Session s(m);
    plain(s);
    s.maxfct = 3;
    ASSERT_EQ(s.analyse(), 0);
    for (int k = 1; k <= 3; ++k) {
      s.use(list[k - 1]);
      s.mnum = k;
      ASSERT_EQ(s.factor(), 0);
    }
    const auto solve_with = [&](int k) {
      s.use(list[k - 1]);
      s.mnum = k;
      return s.solve(b, 2);
    };
    for (const int k : {2, 1, 3})
      EXPECT_LE(normwise_error(list[k - 1], solve_with(k), b, 2), 1e-14) << "matrix " << k;
    s.mnum = 2;
    EXPECT_EQ(s.run(0), 0);
    for (const int k : {1, 3})
      EXPECT_LE(normwise_error(list[k - 1], solve_with(k), b, 2), 1e-14) << "matrix " << k;
    // A solve without a factor makes one first.
    EXPECT_LE(normwise_error(list[1], solve_with(2), b, 2), 1e-14);
    EXPECT_EQ(s.run(-1), 0);
    EXPECT_TRUE(s.empty());
  }
}

TEST(SolveOptions, HandlesDoNotDisturbEachOther) {
  std::vector<Matrix> list = one_of_each();
  std::vector<std::unique_ptr<Session>> sessions;
  sessions.reserve(list.size());
  for (const Matrix& m : list) sessions.push_back(std::make_unique<Session>(m));
  for (auto& s : sessions) ASSERT_EQ(s->analyse(), 0);
  for (auto& s : sessions) ASSERT_EQ(s->factor(), 0);
  sessions.front()->run(-1);
  for (std::size_t k = 1; k < list.size(); ++k) {
    const std::vector<double> b = random_vector(list[k], 1, 17);
    EXPECT_LE(normwise_error(list[k], sessions[k]->solve(b), b), 1e-14) << list[k].name;
  }
}

TEST(SolveOptions, RefinementStepsAreCounted) {
  const Matrix m = shifted_laplacian(12, 1.1, true, 2);
  const std::vector<double> b = random_vector(m, 1, 18);
  Session s(m);
  ASSERT_EQ(s.run(12), 0);
  ASSERT_EQ(s.iparm(14), 0);
  for (const int most : {0, 1, 2, -1, -2}) {
    s.iparm(8) = most;
    const std::vector<double> x = s.solve(b);
    // A positive limit takes no step from a residual of rounding, a negative one all of its steps.
    if (most <= 0)
      EXPECT_EQ(s.iparm(7), -most);
    else
      EXPECT_LE(s.iparm(7), 1);
    EXPECT_LE(componentwise_error(m, x, b), most == 0 ? 1e-12 : 1e-14);
  }
  // A claim that pivots were perturbed asks for the two automatic steps.
  s.iparm(8) = 0;
  s.iparm(14) = 3;
  s.solve(b);
  EXPECT_EQ(s.iparm(7), 2);
  EXPECT_EQ(s.iparm(20), -34);
  const std::vector<double> zero(b.size(), 0.0);
  s.iparm(8) = 4;
  EXPECT_EQ(s.solve(zero), zero);
}

}  // namespace
}  // namespace vlm::test
