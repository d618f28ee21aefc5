// SPDX-License-Identifier: BSD-3-Clause
// Sparse products and residuals against the plain reference, for every type and team.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/amuxy.hpp"
#include "base/residual.hpp"
#include "gallery.hpp"
#include "reference.hpp"

namespace {

using vlm::test::Matrix;

vlm::InputMatrix input(const Matrix& m) { return {m.n, m.ia.data(), m.ja.data(), m.a.data()}; }

Matrix small_sample(int mtype) {
  switch (mtype) {
    case 1:
    case 3:
      return vlm::test::structurally_symmetric(2, 5, mtype);
    case 2:
    case 4:
      return vlm::test::random_spd(17, 4, 5, mtype);
    case 11:
    case 13:
      return vlm::test::random_unsymmetric(17, 4, 0.5, 5, mtype);
    default:
      return vlm::test::random_indefinite(17, 0.3, 0.5, 5, mtype);
  }
}

/// More entries than the 400000 below which a product stays on one thread.
Matrix large_sample(int mtype) { return vlm::test::dense(mtype % 2 == 0 ? 900 : 640, 5, mtype); }

double sum_of(const std::vector<double>& v) {
  double sum = 0;
  for (const double x : v) sum += std::abs(x);
  return sum;
}

TEST(Products, AgreeWithTheReference) {
  for (const int mtype : vlm::test::all_mtypes) {
    for (const bool large : {false, true}) {
      const Matrix m = large ? large_sample(mtype) : small_sample(mtype);
      // The large ones: rows shared by the threads, then whole columns dealt to them.
      const auto counts = large ? std::vector{1, 2, 4} : std::vector{1, 2, 3, 4, 11};
      for (const int nrhs : counts) {
        const auto x = vlm::test::random_vector(m, nrhs, 1);
        const auto b = vlm::test::random_vector(m, nrhs, 2);
        for (const bool transpose : {false, true}) {
          const auto expected = vlm::test::product(m, x, nrhs, transpose);
          auto residual = b;
          for (std::size_t k = 0; k < b.size(); ++k) residual[k] -= expected[k];
          for (const int nthreads : {1, 2, 3}) {
            SCOPED_TRACE(testing::Message()
                         << "mtype " << mtype << " n " << m.n << " nrhs " << nrhs << " transpose "
                         << transpose << " threads " << nthreads);
            const vlm::SparseProduct product{input(m), mtype, transpose, nthreads};
            std::vector<double> work(
                vlm::amuxy_work_bytes(m.n, mtype, transpose, nthreads) / sizeof(double), NAN);
            std::vector<double> y(x.size(), NAN);
            const double sum =
                vlm::amuxy_res_velmora(product, nrhs, x.data(), b.data(), y.data(), work.data());
            EXPECT_LT(vlm::test::relative_difference(y, residual), 1e-14);
            EXPECT_NEAR(sum, sum_of(residual), 1e-12 * sum);
          }
        }
      }
    }
  }
}

TEST(Products, ColumnsDoNotTouchEachOther) {
  // A zero column stays exactly zero beside one that overflows, also among four read at once.
  for (const int mtype : {-2, 11, 6}) {
    const Matrix m = small_sample(mtype);
    const int nrhs = 4;
    const auto length = static_cast<std::size_t>(m.n) * m.nvals();
    std::vector<double> x(nrhs * length, 0.0), zero(x), y(x.size(), NAN);
    for (std::size_t k = 0; k < length; ++k) x[2 * length + k] = 1e308;
    vlm::amuxy_res_velmora({input(m), mtype, false, 1}, nrhs, x.data(), zero.data(), y.data(),
                           nullptr);
    std::fill_n(y.begin() + static_cast<std::ptrdiff_t>(2 * length), length, 0.0);
    EXPECT_EQ(y, std::vector<double>(y.size(), 0.0)) << mtype;
  }
}

TEST(Residual, NormsOfRealAndComplexSystems) {
  for (const int mtype : {2, -2, 11, 6, 13}) {
    for (const Matrix& m : vlm::test::well_conditioned(mtype)) {
      const auto x = vlm::test::random_vector(m, 1, 3);
      const auto b = vlm::test::random_vector(m, 1, 4);
      const auto expected = vlm::test::product(m, x);
      double squares = 0, rhs_squares = 0;
      for (std::size_t k = 0; k < b.size(); ++k) {
        squares += (expected[k] - b[k]) * (expected[k] - b[k]);
        rhs_squares += b[k] * b[k];
      }
      std::vector<double> y(b.size(), NAN);
      const auto norms = (m.complex() ? vlm::velmora_residual_c : vlm::velmora_residual_r)(
          mtype, input(m), b.data(), x.data(), y.data());
      EXPECT_LT(vlm::test::relative_difference(y, expected), 1e-14) << m.name;
      EXPECT_NEAR(norms.residual, std::sqrt(squares), 1e-13 * norms.residual) << m.name;
      EXPECT_NEAR(norms.rhs, std::sqrt(rhs_squares), 1e-13 * norms.rhs) << m.name;
    }
  }
}

TEST(Residual, FirstEntryOfATriangleRowIsItsDiagonal) {
  const std::vector<int> ia = {1, 3, 4}, ja = {2, 1, 2};
  const std::vector<double> a = {10, 100, 1000}, x = {1, 2}, b = {0, 0};
  std::vector<double> y(2);
  const vlm::InputMatrix m{2, ia.data(), ja.data(), a.data()};
  vlm::velmora_residual_r(2, m, b.data(), x.data(), y.data());
  // 10 as the diagonal of row 1; 100 counts on both sides of (1,1).
  EXPECT_EQ(y[0], 10.0 + 100.0 + 100.0);
  EXPECT_EQ(y[1], 2000.0);
  const auto none =
      vlm::velmora_residual_r(2, {0, ia.data(), ja.data(), a.data()}, b.data(), x.data(), y.data());
  EXPECT_EQ(none.residual, 0.0);
  EXPECT_EQ(none.rhs, 0.0);
}

}  // namespace
