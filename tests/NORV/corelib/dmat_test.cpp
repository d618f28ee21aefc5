// SPDX-License-Identifier: BSD-3-Clause
// Dense matrices by their algebra, on random, square and oblong, empty and 1 by 1 cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <memory>
#include <vector>

#include "norv_log.hpp"
#include "smat_dense.hpp"

using namespace vlm::test;

namespace {

struct Free {
  void operator()(dmat* A) const { dmat_free(A); }
};
using Dmat = std::unique_ptr<dmat, Free>;

double& at(dmat* A, unsigned i, unsigned j) { return A->a[i * A->n + j]; }
double at(const Dmat& A, unsigned i, unsigned j) { return A->a[i * A->n + j]; }

class DmatTest : public ::testing::Test {
 protected:
  RandomContainers random{2024};
  Dmat matrix(unsigned m, unsigned n) {
    Dmat A(dmat_new(m, n));
    std::generate_n(A->a, m * n, [this] { return random.number(); });
    return A;
  }
  Dmat symmetric(unsigned n) {
    Dmat A = matrix(n, n);
    dense_U_to_full(n, A->a);
    return A;
  }
  Vec vector(unsigned n) { return random.vector(n, 0); }
};

/// Largest difference of two matrices; infinite for different shapes.
double distance(const Dmat& A, const Dmat& B) {
  if (A->m != B->m || A->n != B->n) return std::numeric_limits<double>::infinity();
  double largest = 0.0;
  for (unsigned k = 0; k < A->m * A->n; ++k) {
    if (std::isnan(A->a[k]) || std::isnan(B->a[k])) return std::numeric_limits<double>::infinity();
    largest = std::max(largest, std::abs(A->a[k] - B->a[k]));
  }
  return largest;
}

Dmat identity(unsigned n) {
  Dmat I(dmat_new(n, n));
  dmat_ident(I.get());
  return I;
}

TEST_F(DmatTest, ProductsAgreeWithTheirDefinition) {
  const unsigned shapes[][3] = {{0, 0, 0}, {1, 1, 1}, {3, 0, 2}, {0, 4, 3}, {5, 5, 5}, {7, 4, 9}};
  for (const auto& [m, k, n] : shapes) {
    const Dmat A = matrix(m, k), B = matrix(k, n), C0 = matrix(m, n);
    Dmat expected(dmat_new(m, n));
    for (unsigned i = 0; i < m; ++i)
      for (unsigned j = 0; j < n; ++j)
        for (unsigned l = 0; l < k; ++l) at(expected.get(), i, j) += at(A, i, l) * at(B, l, j);
    Dmat Bt(dmat_new(n, k));
    dmat_copy_trans_to(Bt.get(), B.get());
    const Dmat loops(dmat_matmul(nullptr, A.get(), B.get()));
    const Dmat blas(dmat_matmul_blas(nullptr, A.get(), B.get()));
    const Dmat transposed(dmat_matmul_ABt(nullptr, A.get(), Bt.get()));
    EXPECT_LE(distance(loops, expected), 1e-14);
    EXPECT_LE(distance(blas, expected), 1e-14);
    EXPECT_LE(distance(transposed, expected), 1e-14);

    Dmat C(dmat_copy(C0.get()));  // alpha A B + beta C
    dmat_dgemm(2.0, A.get(), B.get(), -3.0, C.get());
    dmat_scale_scalar(2.0, expected.get());
    Dmat scaled(dmat_copy(C0.get()));
    dmat_scale_scalar(-3.0, scaled.get());
    const Dmat sum(dmat_add(nullptr, expected.get(), scaled.get()));
    EXPECT_LE(distance(C, sum), 1e-14);

    for (double beta : {0.0, 1.0, 0.5}) {
      const Vec x = vector(k), y = vector(m), z(vec_copy(nullptr, y.get()));
      Vec expected_y(vec_copy_scaled(beta, nullptr, y.get()));
      for (unsigned i = 0; i < m; ++i)
        for (unsigned j = 0; j < k; ++j) expected_y->v[i] += 1.5 * at(A, i, j) * x->v[j];
      // What y held doesn't matter when it is not asked for.
      if (beta == 0.0) vec_set(std::nan(""), y.get()), vec_set(std::nan(""), z.get());
      dmat_gemv(1.5, beta, A.get(), x.get(), y.get());
      dmat_gemv_blas(1.5, beta, A.get(), x.get(), z.get());
      EXPECT_TRUE(vec_equal_up_to(y.get(), expected_y.get(), 1e-14));
      EXPECT_TRUE(vec_equal_up_to(z.get(), expected_y.get(), 1e-14));
    }
  }
}

TEST_F(DmatTest, BlocksOfFive) {
  const Dmat A = matrix(5, 5), B = matrix(5, 5), C(dmat_new(5, 5));
  const Dmat product(dmat_matmul(nullptr, A.get(), B.get()));
  dmat_matmul_5x5(C->a, A->a, B->a);
  EXPECT_LE(distance(C, product), 1e-15);
  const Dmat sum(dmat_add(nullptr, A.get(), B.get()));
  dmat_add_5x5(C->a, A->a, B->a);
  EXPECT_TRUE(dmat_equal(C.get(), sum.get()));
  const Vec x = vector(5), y0 = vector(5), y(vec_copy(nullptr, y0.get()));
  gemv_5x5(y->v, A->a, x->v);
  Vec expected(vec_copy(nullptr, y0.get()));
  dmat_gemv(1.0, 1.0, A.get(), x.get(), expected.get());
  EXPECT_TRUE(vec_equal_up_to(y.get(), expected.get(), 1e-15));
  vec_copy(y.get(), y0.get());
  gemv_trans_5x5(y->v, A->a, x->v);
  dmat_trans(A.get());
  vec_copy(expected.get(), y0.get());
  dmat_gemv(1.0, 1.0, A.get(), x.get(), expected.get());
  EXPECT_TRUE(vec_equal_up_to(y.get(), expected.get(), 1e-15));
}

TEST_F(DmatTest, FactorsSolveAndInvert) {
  for (unsigned n : {0u, 1u, 2u, 5u, 80u}) {
    const Dmat A = matrix(n, n), LU(dmat_copy(A.get())), inverse(dmat_copy(A.get()));
    const Vec x = vector(n), b(vec_new(n)), solution(vec_new(n));
    dmat_gemv(1.0, 0.0, A.get(), x.get(), b.get());
    dmat_lu(LU.get());
    dmat_lu_solve(LU.get(), solution->v, b->v);
    EXPECT_TRUE(vec_equal_up_to(solution.get(), x.get(), 1e-9));
    dmat_lu_solve(LU.get(), b->v, b->v);  // in place
    EXPECT_TRUE(vec_equal(solution.get(), b.get()));

    ASSERT_TRUE(dmat_invert(inverse.get()));
    const Dmat product(dmat_matmul(nullptr, A.get(), inverse.get()));
    EXPECT_LE(distance(product, identity(n)), 1e-9);

    // The lower triangle is not read.
    const Dmat S = symmetric(n), upper(dmat_copy(S.get()));
    for (unsigned i = 0; i < n; ++i)
      for (unsigned j = 0; j < i; ++j) at(upper.get(), i, j) = std::nan("");
    ASSERT_TRUE(dmat_invert_sym(upper.get()));
    const Dmat symmetric_product(dmat_matmul(nullptr, S.get(), upper.get()));
    EXPECT_LE(distance(symmetric_product, identity(n)), 1e-9);
  }
  NorvLog log;
  const Dmat singular(dmat_new(3, 3)), again(dmat_new(3, 3));
  dmat_lu(singular.get());
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> WARNING: Dense matrix is singular (pivot 0 is zero).\n");
  EXPECT_FALSE(dmat_invert(again.get()));
  dmat_clear(again.get());
  EXPECT_FALSE(dmat_invert_sym(again.get()));
}

TEST_F(DmatTest, LeastSquares) {
  const unsigned shapes[][2] = {{0, 0}, {3, 0}, {1, 1}, {6, 6}, {40, 7}, {150, 90}};
  for (const auto& [m, n] : shapes) {
    const Dmat A = matrix(m, n), saved(dmat_copy(A.get()));
    const Vec b = vector(m), x(vec_new(n)), gradient(vec_new(n));
    ASSERT_TRUE(dmat_solve_least_squares(A.get(), x->v, b->v));
    EXPECT_TRUE(dmat_equal(A.get(), saved.get()));
    dmat_gemv(-1.0, 1.0, A.get(), x.get(), b.get());
    dmat_trans(A.get());
    dmat_gemv(1.0, 0.0, A.get(), b.get(), gradient.get());  // A'(b - A x) vanishes
    EXPECT_LE(vec_inf_norm(gradient.get()), 1e-11);
  }
  const Dmat deficient = matrix(6, 3);
  for (unsigned i = 0; i < 6; ++i) at(deficient.get(), i, 2) = 2.0 * at(deficient, i, 0);
  const Vec b = vector(6), x = vector(3);
  EXPECT_FALSE(dmat_solve_least_squares(deficient.get(), x->v, b->v));
}

TEST_F(DmatTest, Eigenvalues) {
  for (unsigned n : {0u, 1u, 6u, 40u}) {
    // Known eigenvalues under a random similarity that keeps symmetry: H D H, H a reflection.
    Dmat H = identity(n);
    const Vec u = vector(n), d(vec_new(n));
    const double norm = vec_euclid_norm(u.get());
    for (unsigned i = 0; i < n; ++i) {
      d->v[i] = i + 1.0;
      for (unsigned j = 0; j < n; ++j) at(H.get(), i, j) -= 2.0 * u->v[i] * u->v[j] / (norm * norm);
    }
    const Dmat HD(dmat_copy(H.get()));
    const Vec ones(vec_new(n));
    vec_set(1.0, ones.get());
    dmat_scale(HD.get(), ones.get(), d.get());
    const Dmat S(dmat_matmul(nullptr, HD.get(), H.get()));
    const Vec lambda(vec_new(n));
    ASSERT_TRUE(dmat_sym_eigenvalues(S.get(), lambda.get()));
    EXPECT_TRUE(vec_equal_up_to(lambda.get(), d.get(), 1e-11));

    // The pencil (B S, B) has the eigenvalues of S.
    const Dmat B = matrix(n, n), BS(dmat_matmul(nullptr, B.get(), S.get()));
    const Vec pairs(vec_new_cpx(n));
    ASSERT_TRUE(dmat_generalized_eigenvalues(BS.get(), B.get(), pairs.get()));
    std::vector<double> real(n);
    for (unsigned i = 0; i < n; ++i) {
      real[i] = pairs->v[2 * i];
      EXPECT_NEAR(pairs->v[2 * i + 1], 0.0, 1e-6);
    }
    std::sort(real.begin(), real.end());
    for (unsigned i = 0; i < n; ++i) EXPECT_NEAR(real[i], d->v[i], 1e-6);
  }
  // A rotation, and a pencil with an infinite eigenvalue.
  Dmat A(dmat_new(2, 2)), B = identity(2);
  at(A.get(), 0, 1) = -3.0;
  at(A.get(), 1, 0) = 3.0;
  const Vec pairs(vec_new_cpx(2)), real(vec_new(2));
  ASSERT_TRUE(dmat_generalized_eigenvalues(A.get(), B.get(), pairs.get()));
  EXPECT_NEAR(pairs->v[0], 0.0, 1e-14);
  EXPECT_NEAR(std::abs(pairs->v[1]), 3.0, 1e-14);
  EXPECT_EQ(pairs->v[3], -pairs->v[1]);
  dmat_ident(A.get());
  at(B.get(), 1, 1) = 0.0;
  ASSERT_TRUE(dmat_generalized_eigenvalues(A.get(), B.get(), pairs.get()));
  EXPECT_TRUE(std::isinf(pairs->v[0]) || std::isinf(pairs->v[2]));
  at(A.get(), 0, 0) = std::nan("");
  EXPECT_FALSE(dmat_generalized_eigenvalues(A.get(), B.get(), pairs.get()));
  EXPECT_FALSE(dmat_sym_eigenvalues(A.get(), real.get()));
}

TEST_F(DmatTest, TransposesCopiesAndTriangles) {
  const Dmat A = matrix(4, 7), T(dmat_copy(A.get()));
  dmat_trans(T.get());
  ASSERT_EQ(T->m, 7u);
  for (unsigned i = 0; i < 4; ++i)
    for (unsigned j = 0; j < 7; ++j) EXPECT_EQ(at(A, i, j), at(T, j, i));
  dmat_trans(T.get());
  EXPECT_TRUE(dmat_equal(T.get(), A.get()));
  T->a[5] += 1.0;
  EXPECT_FALSE(dmat_equal(T.get(), A.get()));

  const Dmat S = symmetric(6), U(dmat_new(6, 6));
  dmat_copy_to_sym_from_full(U.get(), S.get());
  for (unsigned i = 0; i < 6; ++i)
    for (unsigned j = 0; j < 6; ++j) EXPECT_EQ(at(U, i, j), j < i ? 0.0 : at(S, i, j));
  dmat_copy_to_full_from_sym(U.get(), U.get());
  EXPECT_TRUE(dmat_equal(U.get(), S.get()));

  dmat header;
  dmat_init_value(&header, 2, 3, -2.5);
  EXPECT_EQ(dmat_inf_norm(&header), 7.5);
  EXPECT_EQ(header.perm, nullptr);
  free(header.a);
  double outside[4] = {1, 2, -3, 4};
  dmat* wrapped = dmat_new_from(2, 2, outside);
  const Vec left = vector(2), right = vector(2);
  dmat_scale(wrapped, left.get(), right.get());
  EXPECT_EQ(outside[2], -3 * left->v[1] * right->v[0]);
  dmat_init_from(&header, 2, 2, outside);
  const double before = outside[1];
  dmat_scale_left(&header, left.get());
  EXPECT_EQ(outside[1], before * left->v[0]);
  dmat_free_struct(wrapped);
  dmat_free(nullptr);
}

/// A 4 by 4 smat on arrays of its own, upper triangle or general.
struct Sparse {
  int ia[5] = {0, 3, 4, 6, 7};
  int ja[7] = {0, 1, 3, 1, 2, 3, 3};
  double a[7] = {1, 2, 3, 4, 5, 6, 7};
  smat record{};
  explicit Sparse(int sym) {
    record.m = record.n = 4;
    record.nnz = 7;
    record.sym = sym;
    record.ia = ia;
    record.ja = ja;
    record.a = a;
  }
};

TEST_F(DmatTest, TakesValuesFromSparseMatrices) {
  const double upper[4][4] = {{1, 2, 0, 3}, {0, 4, 0, 0}, {0, 0, 5, 6}, {0, 0, 0, 7}};
  for (int sym : {0, 1}) {
    const Sparse sparse(sym);
    const Dmat A(dmat_from_smat(&sparse.record));
    for (unsigned i = 0; i < 4; ++i)
      for (unsigned j = 0; j < 4; ++j)
        EXPECT_EQ(at(A, i, j), sym && j < i ? upper[j][i] : upper[i][j]);
    for (unsigned first = 0; first <= 4; ++first) {
      const unsigned size = 4 - first;
      const Dmat block(dmat_get_diag_block_from_smat(nullptr, &sparse.record, first, size));
      for (unsigned i = 0; i < size; ++i)
        for (unsigned j = 0; j < size; ++j) EXPECT_EQ(at(block, i, j), at(A, first + i, first + j));
    }
  }
  Sparse diagonal(1);
  const int starts[5] = {0, 1, 2, 2, 3}, columns[3] = {0, 1, 3};  // entry (2,2) counts as 0
  std::copy_n(starts, 5, diagonal.ia);
  std::copy_n(columns, 3, diagonal.ja);
  const Dmat D(dmat_from_smat(&diagonal.record)), A = matrix(4, 4);
  const Dmat AD(dmat_matmul(nullptr, A.get(), D.get())), DA(dmat_matmul(nullptr, D.get(), A.get()));
  const Dmat scaled(dmat_copy(A.get()));
  dmat_smat_scale_right(scaled.get(), &diagonal.record);
  EXPECT_TRUE(dmat_equal(scaled.get(), AD.get()));
  dmat_copy_to(scaled.get(), A.get());
  dmat_smat_scale_left(&diagonal.record, scaled.get());
  EXPECT_TRUE(dmat_equal(scaled.get(), DA.get()));
}

TEST_F(DmatTest, TrapsFaultsAndPrints) {
  const Dmat A = matrix(3, 4), B = matrix(3, 4);
  const Sparse general(0);
  EXPECT_DEATH(dmat_matmul(nullptr, A.get(), B.get()), "A->n == B->m");
  EXPECT_DEATH(dmat_dgemm(1.0, A.get(), B.get(), 0.0, A.get()), "A->n == B->m");
  EXPECT_DEATH(dmat_lu(A.get()), "A->m == A->n");
  EXPECT_DEATH(dmat_solve_least_squares(A.get(), nullptr, nullptr), "A->m >= A->n");
  EXPECT_DEATH(dmat_smat_scale_right(A.get(), &general.record), "D is diagonal");
  EXPECT_DEATH(dmat_clear(nullptr), "A != 0");
  EXPECT_EXIT(dmat_new(30000, 30000), ::testing::ExitedWithCode(7), "");
  EXPECT_EXIT(dmat_new(~0u, ~0u), ::testing::ExitedWithCode(7), "");
  NorvLog log;
  const Dmat I = identity(2);
  dmat_print(I.get());
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> dmat of 2 x 2\n     1.00000000      0.00000000 \n"
            "     0.00000000      1.00000000 \n");
}

}  // namespace
