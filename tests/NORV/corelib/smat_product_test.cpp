// SPDX-License-Identifier: BSD-3-Clause
// Products of sparse matrices with vectors and with each other, against dense loops.
#include <gtest/gtest.h>
#include <omp.h>

#include "smat_dense.hpp"

using namespace vlm::test;

namespace {

struct Shape {
  unsigned m, n;
};
constexpr Shape kShapes[] = {{1, 1}, {1, 9}, {9, 1}, {0, 3}, {7, 7}, {23, 40}, {40, 23}};

TEST(SmatProduct, VectorsOfEveryKindAndShape) {
  RandomContainers random(5);
  for (int type = 0; type < 4; ++type) {
    for (auto [m, n] : kShapes) {
      if (type & 1) n = m;
      SCOPED_TRACE(testing::Message() << "type " << type << ", " << m << " x " << n);
      const int cpx = type >> 1;
      const Smat A = random.matrix(m, n, type, 0.4);
      const Vec x = random.vector(n, cpx), z = random.vector(m, cpx);
      const Picture P = picture(A), Pt = transposed(P);

      const Vec ax(smat_vecmul(nullptr, A.get(), x.get()));
      EXPECT_NEAR_PICTURE(picture(ax), P * picture(x));
      const Vec atz(smat_vecmul_trans(nullptr, A.get(), z.get()));
      EXPECT_NEAR_PICTURE(picture(atz), Pt * picture(z));

      const Vec y(vec_copy(nullptr, z.get()));
      EXPECT_EQ(smat_vecaddmul(y.get(), A.get(), x.get()), y.get());
      EXPECT_NEAR_PICTURE(picture(y), combined(1, P * picture(x), 1, picture(z)));
      smat_vecmul_mkl(y.get(), A.get(), x.get());
      EXPECT_NEAR_PICTURE(picture(y), picture(ax));
      const Vec w(vec_copy(nullptr, x.get()));
      smat_vecaddmul_trans(w.get(), A.get(), z.get());
      EXPECT_NEAR_PICTURE(picture(w), combined(1, Pt * picture(z), 1, picture(x)));

      // Through the embedded operator.
      vec_copy(y.get(), z.get());
      A->op.gemv(-0.5, 3.0, A->op.data, x.get(), y.get());
      EXPECT_NEAR_PICTURE(picture(y), combined(-0.5, P * picture(x), 3, picture(z)));
      vec_copy(w.get(), x.get());
      A->op.gemv_trans(2.0, -1.0, A->op.data, z.get(), w.get());
      EXPECT_NEAR_PICTURE(picture(w), combined(2, Pt * picture(z), -1, picture(x)));

      // With beta 0 the old contents don't matter.
      for (unsigned k = 0; k < (m << cpx); ++k) y->v[k] = NAN;
      smat_gemv(1.5, 0.0, A.get(), x.get(), y.get());
      EXPECT_NEAR_PICTURE(picture(y), combined(1.5, P * picture(x), 0, P * picture(x)));

      if (m != n) continue;
      const Vec r(smat_calc_residual(nullptr, A.get(), x.get(), z.get()));
      EXPECT_NEAR_PICTURE(picture(r), combined(1, picture(z), -1, P * picture(x)));
    }
  }
}

TEST(SmatProduct, LongRowsOnTeams) {
  // The larger ones have more entries than the 400000 below which a product stays on one thread.
  RandomContainers random(6);
  const int threads_before = omp_get_max_threads();
  for (int type = 0; type < 4; ++type) {
    for (unsigned n : {150u, type & 1 ? 950u : 680u}) {
      const Smat A = random.matrix(n, n, type, 0.9);
      const Vec x = random.vector(n, type >> 1), z = random.vector(n, type >> 1);
      const Picture P = picture(A), ax = P * picture(x), atx = transposed(P) * picture(x);
      for (int nthreads : {1, 2, 3}) {
        SCOPED_TRACE(testing::Message() << "type " << type << ", " << n << " rows, " << nthreads);
        omp_set_num_threads(nthreads);
        const Vec y(smat_vecmul(nullptr, A.get(), x.get()));
        EXPECT_LT(distance(picture(y), ax), 1e-11);
        if (type >> 1) {
          smat_vecmul_cpx(y.get(), A.get(), x.get());
          EXPECT_LT(distance(picture(y), ax), 1e-11);
        }
        vec_copy(y.get(), z.get());
        smat_gemv_trans(-0.5, 3.0, A.get(), x.get(), y.get());
        EXPECT_LT(distance(picture(y), combined(-0.5, atx, 3, picture(z))), 1e-11);
        const Vec again(vec_copy(nullptr, z.get()));
        smat_gemv_trans(-0.5, 3.0, A.get(), x.get(), again.get());
        EXPECT_TRUE(vec_equal(y.get(), again.get()));
      }
    }
  }
  omp_set_num_threads(threads_before);
}

TEST(SmatProduct, Matrices) {
  RandomContainers random(7);
  for (int type : {0, 2}) {
    for (double density : {0.05, 0.3, 1.0}) {
      const Smat A = random.matrix(13, 21, type, density), B = random.matrix(21, 8, type, density);
      const Smat C = random.matrix(8, 17, type, density), D = random.matrix(17, 8, type, density);
      const Smat AB(smat_matmul(A.get(), B.get()));
      EXPECT_TRUE(well_formed(AB));
      EXPECT_NEAR_PICTURE(picture(AB), picture(A) * picture(B));
      const Smat ABC(smat_matmul3(A.get(), B.get(), C.get()));
      EXPECT_NEAR_PICTURE(picture(ABC), picture(A) * picture(B) * picture(C));
      const Smat ABDt(smat_matmul3_ABCt(A.get(), B.get(), D.get()));
      EXPECT_NEAR_PICTURE(picture(ABDt), picture(A) * picture(B) * transposed(picture(D)));

      const Vec d = random.vector(21, type >> 1);
      const Smat AdAt(smat_matmul_diag_BBt(A.get(), d.get()));
      EXPECT_TRUE(well_formed(AdAt));
      EXPECT_TRUE(AdAt->sym);
      EXPECT_NEAR_PICTURE(picture(AdAt), picture(A) * diagonal(d.get()) * transposed(picture(A)));
    }
    // The same product out of a saddle-point matrix of either storage.
    const Vec d = random.vector(9, type >> 1);
    for (int sym : {0, 1}) {
      const Smat K = random.matrix(14, 14, type + sym, 0.4);
      const Picture B = window(picture(K), 9, 14, 0, 9);
      const Smat S(smat_matmul_diag_BBt_kkt(K.get(), 9, d.get()));
      EXPECT_NEAR_PICTURE(picture(S), B * diagonal(d.get()) * transposed(B));
    }
  }
}

TEST(SmatProductDeathTest, FaultsOfTheCaller) {
  RandomContainers random(8);
  const Smat A = random.matrix(4, 6, 0, 0.5), Z = random.matrix(6, 6, 2, 0.5);
  const Vec x = random.vector(6, 0), b = random.vector(5, 0);
  EXPECT_DEATH(smat_vecmul(nullptr, A.get(), b.get()), "A->n == x->n");
  EXPECT_DEATH(smat_vecmul(x.get(), Z.get(), x.get()), "A->is_complex == x->is_complex");
  EXPECT_DEATH(smat_vecmul(x.get(), A.get(), x.get()), "y != x");
  EXPECT_DEATH(smat_matmul(A.get(), A.get()), "A->n == B->m");
  EXPECT_DEATH(smat_calc_residual(nullptr, nullptr, x.get(), b.get()), "A != 0");
  EXPECT_DEATH(smat_calc_residual(nullptr, A.get(), nullptr, b.get()), "x != 0");
  EXPECT_DEATH(smat_calc_residual(nullptr, A.get(), x.get(), nullptr), "b != 0");
  EXPECT_DEATH(smat_calc_residual(nullptr, A.get(), x.get(), x.get()), "A->m == x->n");
  const Smat S = random.matrix(6, 6, 0, 0.5);
  EXPECT_DEATH(smat_calc_residual(nullptr, S.get(), x.get(), b.get()), "A->m == b->n");
}

}  // namespace
