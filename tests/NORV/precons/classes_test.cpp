// SPDX-License-Identifier: BSD-3-Clause
// Preconditioners of saddle points, of blocks, and approximate inverses: each against the dense
// matrix that it stands for.
#include "norv/classes.h"

#include <gtest/gtest.h>

#include <cmath>

#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

class Classes : public testing::Test {
 protected:
  void SetUp() override { setenv("OMP_NUM_THREADS", "1", 1); }
};
using SaddlePoints = Classes;
using Blocks = Classes;

/// The largest entry of M (M^-1 x) - x over x.
double defect(const Picture& M, precon* P, bool cpx) {
  const Vec x = filled(unsigned(M.n), cpx, 51), y(precon_solve(nullptr, P, x.get()));
  return distance(M * picture(y), picture(x)) / vec_inf_norm(x.get());
}

/// [A B'; B C] with the sizes of the blocks of a flow problem.
struct Saddle {
  Smat A = to_smat(stokes(5));
  int nc = int(smat_guess_constraint_size(A.get())), nf = int(A->m) - nc;
  Picture dense = picture(A);
};

/// The largest difference of y' M^-1 x and x' M^-T y, over the first.
double asymmetry(precon* P, unsigned n, bool cpx) {
  const Vec x = filled(n, cpx, 64), y = filled(n, cpx, 65),
            forward(precon_solve(nullptr, P, x.get())),
            backward(precon_solve_trans(nullptr, P, y.get()));
  const cplx a = (transposed(picture(y)) * picture(forward))(0, 0),
             b = (transposed(picture(x)) * picture(backward))(0, 0);
  return std::abs(a - b) / std::abs(a);
}

TEST_F(Blocks, TransposesAreTheirs) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(random_unsymmetric(60, 4, 1.2, 56, cpx ? 13 : 11));
    EXPECT_LT(asymmetry(prepared("BLOCKLU", A.get()).get(), 60, cpx), 1e-11);
    EXPECT_LT(asymmetry(prepared("LU", A.get()).get(), 60, cpx), 1e-11);
    for (const int inner : {7, 10})
      for (int variant = NORV_BLOCK_JACOBI; variant <= NORV_BLOCK_SOR; ++variant) {
        const Precon M(precon_block_gs_create_param(3, nullptr, inner, variant, 0.7));
        ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
        EXPECT_LT(asymmetry(M.get(), 60, cpx), 1e-11) << inner << ' ' << variant;
      }
  }
}

TEST_F(SaddlePoints, CpDirectKeepsTheDiagonalOfTheLeadingBlock) {
  const Saddle s;
  ASSERT_GT(s.nc, 5);
  for (const int asked : {-1, s.nc}) {
    const Precon M(precon_new_by_name("CP_DIRECT"));
    EXPECT_EQ(M->iparam[0], -1);
    M->iparam[0] = asked;
    for (int round = 0; round < 2; ++round) ASSERT_EQ(precon_setup(M.get(), s.A.get()), 1);
    const Picture K = mapped(s.dense, [&](int i, int j, cplx v) {
      return i != j && i < s.nf && j < s.nf ? cplx(0) : v;
    });
    EXPECT_LT(defect(K, M.get(), false), 1e-8);
  }
}

// [0 0 B1'; 0 D2 B2'; B1 B2 0] in the order of the unknowns: which columns make B1 is its own
// choice, so it is seen from the rows of A that M^-1 needs.
TEST_F(SaddlePoints, SchildersIsAConstraintPreconditioner) {
  const Matrix kkt = interior_point_kkt(6, 3, 52);
  const Smat A = to_smat(kkt);
  const int nc = int(smat_guess_constraint_size(A.get())), n = int(A->m), nf = n - nc;
  const Precon M(precon_schilders_create_param(nf));
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  const Picture dense = picture(A);
  const Vec x = filled(unsigned(n), false, 53), y(precon_solve(nullptr, M.get(), x.get()));
  const Picture image = dense * picture(y);
  for (int i = nf; i < n; ++i) EXPECT_NEAR(std::abs(image(i, 0) - x->v[i]), 0.0, 1e-8);  // B y1 = g
  // Rows of A: what M has there is B' y2, and D2 y1 on nf - nc of them.
  int with_diagonal = 0, without = 0;
  for (int i = 0; i < nf; ++i) {
    cplx coupling = 0;
    for (int k = nf; k < n; ++k) coupling += dense(i, k) * y->v[k];
    const double plain = std::abs(coupling - x->v[i]);
    const double diagonal = std::abs(coupling + dense(i, i) * y->v[i] - x->v[i]);
    EXPECT_LT(std::min(plain, diagonal), 1e-7) << i;
    ++(diagonal < 1e-7 ? with_diagonal : without);
  }
  EXPECT_EQ(without, nc);
  EXPECT_EQ(with_diagonal, nf - nc);
  // Symmetric, as the methods for symmetric systems want it.
  const Vec z = filled(unsigned(n), false, 54), w(precon_solve(nullptr, M.get(), z.get()));
  EXPECT_NEAR(vec_dot(z.get(), y.get()), vec_dot(w.get(), x.get()),
              1e-8 * vec_euclid_norm(y.get()));
  M->iparam[0] = n;
  EXPECT_EXIT(precon_setup(M.get(), A.get()), testing::ExitedWithCode(1), "");
}

TEST_F(SaddlePoints, AugblockIsTheRegularizedMatrix) {
  const Saddle s;
  const Precon M = prepared("AUGBLOCK", s.A.get());
  const Picture regularized = mapped(s.dense, [&](int i, int j, cplx v) {
    return i >= s.nf && j >= s.nf ? cplx(i == j ? -1.0 : 0.0) : v;
  });
  EXPECT_LT(defect(regularized, M.get(), false), 1e-7);
  int told = 0;  // the inner iteration tells nobody
  norv_set_progress([](void* data, int, double) { ++*static_cast<int*>(data); }, &told);
  const Vec b = filled(s.A->m, false, 55), x = zeros(s.A->m, false);
  int status = 0;
  const int count = solve_sqmr_param(1e-9, s.A.get(), x.get(), nullptr, b.get(), M.get(), 200, 200,
                                     &status, 0, nullptr);
  norv_set_progress(nullptr, nullptr);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(told, count + 1);
  EXPECT_LT(residual_by_rows(s.A.get(), x.get(), b.get()), 1e-8);
}

/// The parts of a picture in blocks with these starts for which keep(block row, block column).
template <class Keep>
Picture blocks_of(const Picture& A, const std::vector<int>& starts, Keep keep) {
  const auto number = [&](int i) {
    return int(std::upper_bound(starts.begin(), starts.end(), i) - starts.begin()) - 1;
  };
  return mapped(A, [&](int i, int j, cplx v) { return keep(number(i), number(j)) ? v : cplx(0); });
}

TEST_F(Blocks, SweepsAreTheirTriangles) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(random_unsymmetric(60, 4, 1.2, 56, cpx ? 13 : 11));
    const Picture dense = picture(A);
    const int sizes[] = {20, 10, 30};
    const std::vector<int> starts = {0, 20, 30};
    const auto part = [&](auto keep) { return blocks_of(dense, starts, keep); };
    const Picture D = part([](int i, int j) { return i == j; });
    const Picture lower = part([](int i, int j) { return j <= i; });
    const auto made = [&](int variant, double omega) {
      Precon M(precon_block_gs_create_param(3, sizes, 10, variant, omega));
      for (int round = 0; round < 2; ++round) EXPECT_EQ(precon_setup(M.get(), A.get()), 1);
      return M;
    };
    EXPECT_LT(defect(D, made(NORV_BLOCK_JACOBI, 1).get(), cpx), 1e-11);
    EXPECT_LT(defect(lower, made(NORV_BLOCK_GS, 1).get(), cpx), 1e-11);
    const double omega = 0.7;
    const Picture relaxed = combined(1.0, lower, 1 / omega - 1, D);
    EXPECT_LT(defect(relaxed, made(NORV_BLOCK_SOR, omega).get(), cpx), 1e-11);
    // Forward and backward: M^-1 = L^-1 + U^-1 - U^-1 A L^-1 with L, U the triangles with D.
    const Precon sgs = made(NORV_BLOCK_SGS, 1), forward = made(NORV_BLOCK_GS, 1);
    const Vec x = filled(60, cpx, 57), y(precon_solve(nullptr, sgs.get(), x.get())),
              half(precon_solve(nullptr, forward.get(), x.get()));
    const Picture upper = part([](int i, int j) { return j >= i; });
    const Picture rest = combined(1.0, picture(x), -1.0, dense * picture(half));
    EXPECT_LT(distance(upper * combined(1.0, picture(y), -1.0, picture(half)), rest), 1e-11);
    EXPECT_STREQ(sgs->name, "BLOCK-SGS");
  }
  NorvLog log(1);
  const Smat A = to_smat(random_unsymmetric(60, 4, 1.2, 56));
  const Precon unknown(precon_block_gs_create_param(3, nullptr, 10, 9, 1.0));
  EXPECT_EQ(precon_setup(unknown.get(), A.get()), 0);
  EXPECT_NE(log.take().find("Unknown method."), std::string::npos);
  const Precon other(precon_block_gs_create_param(3, nullptr, 5, NORV_BLOCK_GS, 1.0));
  EXPECT_EQ(precon_setup(other.get(), A.get()), 0);
  EXPECT_NE(log.take().find("not supported."), std::string::npos);
}

TEST_F(Blocks, BlockLuIsExactWhereComplementsAre) {
  for (const bool cpx : {false, true}) {
    // Leading blocks that are diagonal have exact complements.
    const Smat full = to_smat(random_unsymmetric(45, 5, 1.5, 58, cpx ? 13 : 11));
    Smat A(smat_copy(full.get()));
    unsigned put = 0;
    int begin = 0;
    const int width = 1 + cpx;
    for (int i = 0; i < 45; ++i) {
      const int end = A->ia[i + 1];
      for (int k = begin; k < end; ++k) {
        const int j = A->ja[k];
        if (i != j && i < 30 && j < 30) continue;
        A->ja[put] = j;
        for (int c = 0; c < width; ++c) A->a[int(put) * width + c] = A->a[k * width + c];
        ++put;
      }
      begin = end;
      A->ia[i + 1] = int(put);
    }
    A->nnz = put;
    const Precon M = prepared("BLOCKLU", A.get());
    EXPECT_LT(defect(picture(A), M.get(), cpx), 1e-10);
    const Precon general = prepared("BLOCKLU", full.get());
    EXPECT_GT(defect(picture(full), general.get(), cpx), 1e-6);  // elsewhere an approximation
  }
}

// The columns of M are solutions of least squares: A'(A m - e) vanishes on the pattern.
TEST(ApproximateInverses, ColumnsAreLeastSquares) {
  RandomContainers random(59);
  for (const int type : {NORV_REAL_UNSYM, NORV_REAL_SYM, NORV_CPX_UNSYM, NORV_CPX_SYM}) {
    const bool cpx = type >= NORV_CPX_UNSYM;
    Smat A = random.matrix(40, 40, type, 0.08, true);
    smat_add_diag(A.get(), 3.0);
    const Picture dense = picture(A),
                  adjoint =
                      mapped(transposed(dense), [](int, int, cplx v) { return std::conj(v); });
    const auto columns = [&](precon* M) {
      Picture P(40, 40);
      for (int j = 0; j < 40; ++j) {
        const Vec e = zeros(40, cpx);
        e->v[cpx ? 2 * j : j] = 1;
        const Picture m = picture(Vec(precon_solve(nullptr, M, e.get())));
        for (int i = 0; i < 40; ++i) P(i, j) = m(i, 0);
      }
      return P;
    };
    const Precon pattern = prepared("SPAIONE", A.get()), band(precon_spaindiag_create_param(2));
    ASSERT_EQ(precon_setup(band.get(), A.get()), 1);
    const Precon all(precon_spaione_create());
    ASSERT_EQ(precon_spaione_setup_dense(all.get(), A.get()), 1);
    EXPECT_LT(distance(columns(pattern.get()), columns(all.get())), 1e-12);
    if (type & 1) {  // the symmetric part
      EXPECT_LT(distance(columns(pattern.get()), transposed(columns(pattern.get()))), 1e-13);
      continue;
    }
    for (const bool by_band : {false, true}) {
      const Picture P = columns(by_band ? band.get() : pattern.get());
      Picture rest = dense * P;
      for (int i = 0; i < 40; ++i) rest(i, i) -= 1.0;
      const Picture normal = adjoint * rest;
      int inside = 0;
      for (int i = 0; i < 40; ++i)
        for (int j = 0; j < 40; ++j) {
          const bool in = by_band ? std::abs(i - j) <= 2 : dense(i, j) != 0.0;
          inside += in;
          EXPECT_LT(std::abs(in ? normal(i, j) : P(i, j)), 1e-11) << i << ' ' << j;
        }
      EXPECT_EQ((by_band ? band : pattern)->nnz, inside);
    }
  }
  const Smat small = random.matrix(4, 4, NORV_REAL_UNSYM, 0.5, true);
  const Precon wide(precon_spaindiag_create_param(2));
  EXPECT_DEATH(precon_setup(wide.get(), small.get()), "n >= 2\\*n_diag \\+ 1");
}

TEST(StandIns, SayThatTheyAreNone) {
  const Smat A = to_smat(poisson2d(3));
  for (const std::string name : {"SAINV", "BAINV"}) {
    NorvLog log(1);
    const Precon M(precon_new_by_name(name.c_str()));
    ASSERT_NE(M, nullptr);
    EXPECT_EQ(precon_setup(M.get(), A.get()), 0);
    EXPECT_NE(log.take().find(name + " is not available!"), std::string::npos);
  }
}

}  // namespace
}  // namespace vlm::test
