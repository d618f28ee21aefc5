// SPDX-License-Identifier: BSD-3-Clause
// Factored approximate inverses: exact on whole patterns, the best rows on given ones, definite for
// definite matrices, and what becomes of weak pivots.
#include <gtest/gtest.h>

#include <cmath>

#include "norv/classes.h"
#include "norv/krylov.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

/// The matrices: definite, indefinite, with zeros on the diagonal, complex symmetric.
std::vector<Matrix> family() {
  return {poisson2d(6), shifted_laplacian(4, 1.3, false, 3), stokes(4), interior_point_kkt(4, 2, 5),
          helmholtz(6, 0.9, true, 4)};
}

/// |b - A M^-1 b| / |b|.
double defect(const Smat& A, precon* M) {
  const Vec b = filled(A->m, A->is_complex, 61), x(precon_solve(nullptr, M, b.get()));
  return residual_by_rows(A.get(), x.get(), b.get());
}

TEST(Fsai, IsExactOnWholePatterns) {
  for (const Matrix& m : family())
    for (const bool upper : {true, false}) {
      const Smat A = to_smat(upper ? m : expanded(m));
      const auto exact = [&](const char* name, int place, int value) {
        SCOPED_TRACE(m.name + " " + name + " " + std::to_string(place) + " " +
                     std::to_string(value) + (upper ? " upper" : " full"));
        const Precon M(precon_new_by_name(name));
        M->iparam[2] = NORV_FSAI_INVERSE;
        M->dparam[3] = 1e-10;  // no pivot is replaced
        M->iparam[place] = value;
        for (int round = 0; round < 2; ++round) ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
        // The iterative forms end at a thousandth.
        const bool iterates = place == 1 && value != NORV_FSAI_QR && value != NORV_FSAI_DIRECT;
        EXPECT_LT(defect(A, M.get()), iterates ? 0.5 : 1e-6);
        EXPECT_EQ(M->nperturbed, 0);
      };
      for (const int solution : {NORV_FSAI_QR, NORV_FSAI_DIRECT}) exact("XFSAI", 1, solution);
      for (int pivots = NORV_FSAI_GIVEN; pivots <= NORV_FSAI_TRIED_MONITORED; ++pivots)
        exact("MFSAI", 3, pivots);
      if (m.name.find("poisson") != std::string::npos)
        for (const int solution : {NORV_FSAI_RESTRICTED_LSQR, NORV_FSAI_LSQR, NORV_FSAI_ITERATIVE})
          exact("XFSAI", 1, solution);
    }
}

/// x of a dense system, by elimination with the largest pivot of a column.
std::vector<cplx> dense_solution(Picture A, std::vector<cplx> b) {
  const int n = A.n;
  for (int k = 0; k < n; ++k) {
    int best = k;
    for (int i = k; i < n; ++i)
      if (std::abs(A(i, k)) > std::abs(A(best, k))) best = i;
    for (int j = 0; j < n; ++j) std::swap(A(k, j), A(best, j));
    std::swap(b[std::size_t(k)], b[std::size_t(best)]);
    for (int i = k + 1; i < n; ++i) {
      const cplx factor = A(i, k) / A(k, k);
      for (int j = k; j < n; ++j) A(i, j) -= factor * A(k, j);
      b[std::size_t(i)] -= factor * b[std::size_t(k)];
    }
  }
  for (int k = n - 1; k >= 0; --k) {
    for (int j = k + 1; j < n; ++j) b[std::size_t(k)] -= A(k, j) * b[std::size_t(j)];
    b[std::size_t(k)] /= A(k, k);
  }
  return b;
}

// G^T D^-1 G with rows that solve A(J,J) g = -A(J,i) on the neighbours before, built densely.
TEST(Fsai, RowsSolveTheirSystems) {
  for (const Matrix& m : {poisson2d(5), helmholtz(5, 0.5, true, 4)}) {
    const Smat A = to_smat(m);
    const int n = m.n;
    const Picture dense = picture(A);
    Picture G(n, n), DG(n, n);
    for (int i = 0; i < n; ++i) {
      std::vector<int> J;
      for (int j = 0; j < i; ++j) {
        bool near = dense(i, j) != 0.0;
        for (int k = 0; k < n; ++k) near = near || (dense(i, k) != 0.0 && dense(k, j) != 0.0);
        if (near) J.push_back(j);
      }
      const int width = int(J.size());
      Picture B(width, width);
      std::vector<cplx> rhs(J.size());
      for (int p = 0; p < width; ++p) {
        rhs[std::size_t(p)] = -dense(J[std::size_t(p)], i);
        for (int q = 0; q < width; ++q) B(p, q) = dense(J[std::size_t(p)], J[std::size_t(q)]);
      }
      const std::vector<cplx> g = dense_solution(B, rhs);
      cplx d = dense(i, i);
      G(i, i) = 1;
      for (int p = 0; p < width; ++p) {
        G(i, J[std::size_t(p)]) = g[std::size_t(p)];
        d += g[std::size_t(p)] * dense(J[std::size_t(p)], i);
      }
      for (int j = 0; j < n; ++j) DG(i, j) = G(i, j) / d;
    }
    const Picture expected = transposed(G) * DG;
    for (const int solution : {NORV_FSAI_DIRECT, NORV_FSAI_ITERATIVE, NORV_FSAI_RESTRICTED_LSQR}) {
      const Precon M(precon_xfsai_create());
      M->iparam[0] = 2;
      M->iparam[1] = solution;
      M->iparam[2] = NORV_FSAI_POWER;
      M->dparam[0] = M->dparam[2] = 0;
      M->iparam[4] = 0;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      const Vec x = filled(unsigned(n), m.complex(), 62),
                y(precon_solve(nullptr, M.get(), x.get())),
                z(precon_solve_trans(nullptr, M.get(), x.get()));
      EXPECT_LT(distance(picture(y), expected * picture(x)),
                (solution == NORV_FSAI_DIRECT ? 1e-12 : 1e-2) * vec_inf_norm(y.get()));
      EXPECT_TRUE(vec_equal(y.get(), z.get()));
    }
  }
}

int steps(const char* method, const Smat& A, precon* M) {
  const Vec b = filled(A->m, A->is_complex, 63), x = zeros(A->m, A->is_complex);
  const Solver s(solver_new(method));
  solver_set_maxiter(s.get(), 1000);
  solver_set_precon(s.get(), M);
  const int count = solver_solve(s.get(), A.get(), x.get(), b.get());
  EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()), 1e-6);
  return count;
}

TEST(Fsai, HelpsConjugateGradients) {
  for (const Matrix& m : {poisson2d(30), elasticity3d(4, 1), plate(12, 3)}) {
    SCOPED_TRACE(m.name);
    const Smat A = to_smat(m);
    const int plain = steps("PCG", A, prepared("DIAG", A.get()).get());
    for (const char* name : {"XFSAI", "MFSAI"}) {
      const Precon M = prepared(name, A.get());
      EXPECT_EQ(M->npos, m.n);
      EXPECT_EQ(M->nneg + M->nperturbed, 0);
      EXPECT_LT(steps("PCG", A, M.get()), plain / 2);
      // A limit of entries, and dropping, make it smaller.
      const int entries = M->nnz;
      M->iparam[4] = 3;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_LE(M->nnz, 4 * m.n);
      M->iparam[4] = 50;
      M->dparam[1] = 0.1;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_LT(M->nnz, entries);
      EXPECT_EQ(M->npos, m.n);
    }
  }
}

TEST(Fsai, WatchedPivotsSolveSaddlePoints) {
  const Smat A = to_smat(stokes(12));
  const int constraints = int(smat_guess_constraint_size(A.get()));
  const Precon M = prepared("MFSAI", A.get());
  EXPECT_NEAR(M->nneg, constraints, 1);  // the pressure is determined but for a constant
  EXPECT_LT(steps("SQMR", A, M.get()), 300);
}

TEST(Fsai, RefusesWhatItCannotDo) {
  NorvLog log(1);
  const Smat wind = to_smat(convection_diffusion(5, 2.0, 7));
  const Precon M(precon_xfsai_create());
  EXPECT_EQ(precon_setup(M.get(), wind.get()), 0);
  EXPECT_NE(log.take().find("XFSAI needs a symmetric matrix."), std::string::npos);
  const Smat A = to_smat(poisson2d(4));
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  const std::string told = log.take();
  for (const char* line : {"Setting up XFSAI preconditioner (4, 0.00, 0.00, 2.00)...",
                           "    Using Sub-system direct solution.", "NOT using prescribed 2x2",
                           "Number of perturbed 1x1:      0"})
    EXPECT_NE(told.find(line), std::string::npos) << line;
  const auto refused = [&](int place, int value) {
    const Precon bad(precon_xfsai_create());
    bad->iparam[place] = value;
    EXPECT_EXIT(precon_setup(bad.get(), A.get()), testing::ExitedWithCode(1), "");
  };
  refused(0, 0);
  refused(1, 3);
  refused(2, 3);
  refused(3, 5);
}

}  // namespace
}  // namespace vlm::test
