// SPDX-License-Identifier: BSD-3-Clause
// Gauss-Seidel sweeps entry by entry; least squares against the normal equations.
#include <gtest/gtest.h>

#include <cmath>

#include "norv/krylov.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

// ---- sweeps -----------------------------------------------------------------------------

TEST(GaussSeidel, SweepsAsTheTriangleSays) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(random_unsymmetric(40, 4, 1.5, 18, cpx ? 13 : 11));
    const Vec b = filled(40, cpx, 19), start = filled(40, cpx, 20);
    const Picture dense = picture(A);
    // What a sweep must leave, entry by entry.
    const auto expected = [&](double omega, int from, int to, bool back) {
      Picture x = picture(start);
      const Picture rhs = picture(b);
      const auto relax = [&](int i, double by) {
        cplx rest = rhs(i, 0);
        for (int j = 0; j < 40; ++j) rest -= dense(i, j) * x(j, 0);
        x(i, 0) += by * rest / dense(i, i);
      };
      for (int i = from; i < to; ++i) relax(i, omega);
      for (int i = 39; back && i >= 0; --i) relax(i, 1.0);
      return x;
    };
    const auto swept = [&](auto routine) {
      const Vec x(vec_copy(nullptr, start.get()));
      routine(x.get());
      return picture(x);
    };
    EXPECT_NEAR_PICTURE(swept([&](vec* x) { gs_iter(A.get(), x, b.get()); }),
                        expected(1, 0, 40, false));
    EXPECT_NEAR_PICTURE(swept([&](vec* x) { sgs_iter(A.get(), x, b.get()); }),
                        expected(1, 0, 40, true));
    EXPECT_NEAR_PICTURE(swept([&](vec* x) { sor_iter(A.get(), x, b.get(), 1.4); }),
                        expected(1.4, 0, 40, false));
    EXPECT_NEAR_PICTURE(swept([&](vec* x) { gs_iter_from_to(A.get(), x, b.get(), 7, 23); }),
                        expected(1, 7, 23, false));
    const Vec x = zeros(40, cpx);
    const int count = solve_gs(1e-9, A.get(), x.get(), b.get(), nullptr, 400, nullptr);
    EXPECT_LT(count, 400);
    EXPECT_LE(residual_by_rows(A.get(), x.get(), b.get()) * vec_euclid_norm(b.get()), 1.001e-9);
  }
  const Smat triangle = to_smat(poisson2d(6));
  const Vec b = filled(triangle->m, false, 21), x = zeros(triangle->m, false);
  EXPECT_DEATH(solve_gs(1e-9, triangle.get(), x.get(), b.get(), nullptr, 5, nullptr), "!A->sym");
}

// ---- least squares ----------------------------------------------------------------------

/// The residual's part in the range of A: 0 for a solution of least squares.
double normal_residual(const Picture& A, const vec* x, const vec* b, double damp) {
  const Picture r = combined(1.0, picture(b), -1.0, A * picture(x));
  const Picture adjoint = mapped(transposed(A), [](int, int, cplx v) { return std::conj(v); });
  return distance(adjoint * r,
                  mapped(picture(x), [&](int, int, cplx v) { return damp * damp * v; }));
}

TEST(Lsqr, MeetsTheNormalEquations) {
  RandomContainers random(22);
  for (const int type : {NORV_REAL_UNSYM, NORV_CPX_UNSYM})
    for (const auto& [m, n] : {std::pair{40u, 15u}, {15u, 40u}, {25u, 25u}})
      for (const bool trans : {false, true})
        for (const double damp : {0.0, 0.7}) {
          SCOPED_TRACE(testing::Message()
                       << type << ' ' << m << ' ' << n << ' ' << trans << ' ' << damp);
          const int cpx = type == NORV_CPX_UNSYM;
          const Smat A = random.matrix(m, n, type, 0.4, true);
          const Vec b = random.vector(trans ? n : m, cpx), x = random.vector(trans ? m : n, cpx);
          const int istop = lsqr(A.get(), x.get(), b.get(), trans, damp, 1e-13, 1e-13, 0.0, 1000);
          EXPECT_GE(istop, 1);
          EXPECT_LE(istop, 5);
          const Picture op = trans ? transposed(picture(A)) : picture(A);
          EXPECT_LT(normal_residual(op, x.get(), b.get(), damp), 1e-9);
          if (damp == 0 && x->n > b->n) {  // of smallest norm: x is in the range of the adjoint
            const Vec y = random.vector(b->n, cpx);
            const Smat At(smat_copy_trans(A.get()));
            if (cpx) {
              for (unsigned k = 0; k < At->nnz; ++k) At->a[2 * k + 1] *= -1;
            }
            lsqr(At.get(), y.get(), x.get(), trans, 0.0, 1e-13, 1e-13, 0.0, 1000);
            EXPECT_LT(
                distance(mapped(transposed(op), [](int, int, cplx v) { return std::conj(v); }) *
                             picture(y),
                         picture(x)),
                1e-8);
          }
        }
}

TEST(Lsqr, EndsAsItsNumbersSay) {
  RandomContainers random(23);
  const Smat A = random.matrix(30, 12, NORV_REAL_UNSYM, 0.5, true);
  const Vec x = random.vector(12, 0), zero(vec_new_zero(30)), b = random.vector(30, 0);
  EXPECT_EQ(lsqr(A.get(), x.get(), zero.get(), 0, 0, 1e-10, 1e-10, 0, 100), 0);
  EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
  const Vec image(smat_vecmul(nullptr, A.get(), random.vector(12, 0).get()));
  EXPECT_EQ(lsqr(A.get(), x.get(), image.get(), 0, 0, 1e-10, 1e-10, 0, 100), 1);
  EXPECT_EQ(lsqr(A.get(), x.get(), b.get(), 0, 0, 1e-10, 1e-10, 0, 100), 2);
  EXPECT_EQ(lsqr(A.get(), x.get(), b.get(), 0, 0, 1e-10, 1e-10, 1.5, 100), 3);
  EXPECT_EQ(lsqr(A.get(), x.get(), b.get(), 0, 0, 1e-10, 1e-10, 0, 2), 7);
  const Vec other(vec_new_zero(13));
  EXPECT_DEATH(lsqr(A.get(), other.get(), b.get(), 0, 0, 1e-10, 1e-10, 0, 2), "x->n");
}

// A set of rows is the matrix of those rows and the columns that they hold.
TEST(Lsqr, OnRows) {
  RandomContainers random(24);
  for (const int type : {NORV_REAL_UNSYM, NORV_CPX_UNSYM}) {
    const int cpx = type == NORV_CPX_UNSYM;
    const Smat A = random.matrix(30, 50, type, 0.05, true);
    rs_info* const rs = rs_info_new(A.get());
    for (const std::vector<int>& rows : {std::vector<int>{4, 17, 2}, {29, 0, 11, 12, 5}}) {
      rs_info_setup(rs, A.get(), int(rows.size()), rows.data());
      Picture part(int(rows.size()), rs->col_cnt);
      const Picture whole = picture(A);
      double inside = 0, all = 0;
      for (int i = 0; i < part.m; ++i) {
        for (int j = 0; j < part.n; ++j)
          inside += std::norm(part(i, j) = whole(rows[std::size_t(i)], rs->col_lst[j]));
        for (int j = 0; j < 50; ++j) all += std::norm(whole(rows[std::size_t(i)], j));
      }
      EXPECT_DOUBLE_EQ(inside, all);  // no column is missing
      const Vec x = random.vector(unsigned(part.n), cpx), y = random.vector(unsigned(part.m), cpx);
      const Vec image = random.vector(unsigned(part.m), cpx),
                back = random.vector(unsigned(part.n), cpx);
      smat_gemv_rs(A.get(), rs, x.get(), image.get());
      smat_gemv_trans_rs(A.get(), rs, y.get(), back.get());
      EXPECT_NEAR_PICTURE(picture(image), part * picture(x));
      EXPECT_NEAR_PICTURE(picture(back), transposed(part) * picture(y));
      EXPECT_EQ(lsqr_rs(A.get(), rs, x.get(), y.get(), 0, 0, 1e-13, 1e-13, 0, 200), 1);
      EXPECT_LT(distance(part * picture(x), picture(y)), 1e-9);
      EXPECT_DEATH(smat_gemv_rs(A.get(), rs, y.get(), image.get()), "rs->col_cnt == x->n");
    }
    rs_info_free(rs);
  }
  rs_info_free(nullptr);
}

}  // namespace
}  // namespace vlm::test
