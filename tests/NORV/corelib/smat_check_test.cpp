// SPDX-License-Identifier: BSD-3-Clause
// Checks with the texts they report, entry access, norms, comparison and printing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "norv_log.hpp"
#include "smat_dense.hpp"

using namespace vlm::test;

namespace {

const std::string kError = "[VELMORA/ML]>> ERROR: ", kWarning = "[VELMORA/ML]>> WARNING: ",
                  kStat = "[VELMORA/ML]>> ";

/// A matrix over arrays of the test, with header released at the end.
struct Wrapped {
  std::vector<int> ia, ja;
  std::vector<double> a;
  smat* A;

  Wrapped(unsigned n, std::vector<int> starts, std::vector<int> columns, int type,
          std::vector<double> v = {})
      : ia(std::move(starts)), ja(std::move(columns)), a(std::move(v)) {
    if (a.empty()) a.assign(ja.size() << (type >> 1), 1.0);
    A = smat_new_from(unsigned(ia.size()) - 1, n, ia.data(), ja.data(), a.data(), type, 0);
  }
  ~Wrapped() { std::free(A); }
};

TEST(SmatCheck, RowStarts) {
  NorvLog log;
  {
    Wrapped w(3, {0, 1, 1, 1, 2}, {0, 1}, 0);  // two empty rows
    EXPECT_FALSE(smat_check_ia(w.A));
    EXPECT_EQ(log.take(), kWarning + "ia[2] (1) <= ia[1] (1)\n" + kWarning +
                              "Matrix has 2 non-increasing rows.\n");
    EXPECT_FALSE(smat_is_consistent(w.A));
    log.take();
  }
  Wrapped w(2, {0, 1, 2}, {0, 1}, 0);
  EXPECT_TRUE(smat_check_ia(w.A));
  EXPECT_EQ(log.take(), "");
  w.A->nnz = 3;
  EXPECT_FALSE(smat_check_ia(w.A));
  EXPECT_EQ(log.take(), kError + "Matrix nnz not consistent!\n");
  w.A->nnz = 2;
  w.ia[0] = -1;
  EXPECT_FALSE(smat_check_ia(w.A));
  EXPECT_EQ(log.take(), kError + "ia[0] != 0\n");
}

TEST(SmatCheck, Columns) {
  NorvLog log;
  Wrapped w(4, {0, 3, 6}, {0, 2, 2, 3, 1, 4}, 0);
  EXPECT_FALSE(smat_check_ja(w.A));
  EXPECT_EQ(log.take(), kError + "ja[1] (2) >= ja[2] (2) in row 0\n" + kError +
                            "ja[5] out of bounds: 4 (>= 4)\n" + kError +
                            "Matrix has 1 out-of-bounds elements.\n" + kError +
                            "Matrix has 2 elements in wrong order.\n");
  EXPECT_FALSE(smat_is_consistent(w.A));
  w.ja = {0, 1, 2, -1, 1, 3};
  w.A->ja = w.ja.data();
  EXPECT_FALSE(smat_check_ja(w.A));
}

TEST(SmatCheck, SymmetryAndDiagonal) {
  NorvLog log;
  Wrapped low(3, {0, 1, 3, 5}, {0, 0, 1, 1, 2}, 1);
  EXPECT_FALSE(smat_is_consistent(low.A));
  EXPECT_EQ(log.take(), kError + "Symmetric matrix has element (1, 0) in lower part.\n" + kError +
                            "Symmetric matrix has 2 elements in lower part.\n");
  for (int type : {1, 3}) {
    Wrapped missing(3, {0, 2, 3, 4}, {0, 1, 2, 2}, type);
    EXPECT_FALSE(smat_is_consistent(missing.A));
    EXPECT_EQ(log.take(), kError + "Matrix has 1 missing diagonal elements (first: 1).\n");
    missing.A->sym = 0;  // without symmetry the diagonal may be missing
    EXPECT_TRUE(smat_is_consistent(missing.A));

    Wrapped zero(2, {0, 1, 2}, {0, 1}, type,
                 type == 1 ? std::vector<double>{1, 0} : std::vector<double>{1, 0, 0, 0});
    EXPECT_TRUE(smat_is_consistent(zero.A));
    EXPECT_EQ(log.take(), kWarning + "Matrix has 1 zero diagonal elements (first: 1).\n");
  }
}

TEST(SmatCheck, ScaledByAMatching) {
  NorvLog log;
  Wrapped good(2, {0, 2, 4}, {0, 1, 0, 1}, 0, {0.998, -1.001, 0.0, -1.0});
  EXPECT_TRUE(smat_is_mps_consistent(good.A));
  EXPECT_EQ(log.take(), "");
  Wrapped bad(2, {0, 2, 4}, {0, 1, 0, 1}, 0, {0.99, 1.01, NAN, 1.0});
  EXPECT_FALSE(smat_is_mps_consistent(bad.A));
  const std::string head = kError + "MPS consistency failed for index ";
  EXPECT_EQ(log.take(), head + "(0, 0, 9.900000e-01) of matrix...\n" + head +
                            "(0, 1, 1.010000e+00) of matrix...\n" + head +
                            "(1, 0, nan) of matrix...\n");
}

TEST(SmatAccess, EntriesRowLengthsAndColumnIndex) {
  RandomContainers random(21);
  for (int type = 0; type < 4; ++type) {
    const unsigned n = type & 1 ? 14 : 19;
    const Smat A = random.matrix(14, n, type, 0.4);
    const Picture P = picture(A);
    const Vec d(smat_get_diag(nullptr, A.get()));
    std::vector<int> all(14), left(14), right(14);
    smat_get_row_nnzs(A.get(), all.data());
    smat_get_row_nnzs_L(A.get(), left.data());
    smat_get_row_nnzs_U(A.get(), right.data());
    for (int i = 0; i < P.m; ++i) {
      int count = 0;
      for (int j = 0; j < P.n; ++j) {
        const bool stored = P(i, j) != 0.0;
        double re = -1, im = -1;
        EXPECT_EQ(smat_get_ij_elem_ex(A.get(), unsigned(i), unsigned(j), &re, &im), stored);
        EXPECT_EQ(cplx(re, im), P(i, j));
        EXPECT_EQ(smat_has_ij_index(A.get(), unsigned(i), unsigned(j)), stored);
        if (type < 2) {
          EXPECT_EQ(smat_get_ij_elem(A.get(), unsigned(i), unsigned(j)), P(i, j).real());
        }
        if (j == i) {
          EXPECT_EQ(left[i], count);
          EXPECT_EQ(value(d->v, d->is_complex, std::size_t(i)), P(i, i));
          count = 0;
        }
        if (j != i) count += stored;
      }
      EXPECT_EQ(right[i], count);
      EXPECT_EQ(all[i], left[i] + right[i] + (P(i, i) != 0.0));
    }
    smat_col_index* index = smat_col_index_new(A.get());
    Picture Q(P.m, P.n);
    for (int j = 0; j < P.n; ++j) {
      for (int k = index->start[j]; k < index->start[j + 1]; ++k) {
        EXPECT_TRUE(k == index->start[j] || index->row[k - 1] < index->row[k]);
        const cplx v = value(A->a, A->is_complex, std::size_t(index->place[k]));
        Q(index->row[k], j) = v;
        if (A->sym) Q(j, index->row[k]) = v;
      }
    }
    EXPECT_EQ(distance(P, Q), 0.0);
    smat_col_index_free(index);
    EXPECT_DEATH(smat_has_ij_index(A.get(), 14, 0), "i < A->m");
  }
}

TEST(SmatNorms, OfTheCompletedMatrix) {
  RandomContainers random(22);
  for (int type = 0; type < 4; ++type) {
    for (unsigned m : {1u, 16u}) {
      const unsigned n = type & 1 ? m : m + 5;
      const Smat A = random.matrix(m, n, type, 0.4);
      const Picture P = picture(A);
      Picture row1(int(m), 1), col1(int(n), 1), rowi(int(m), 1), coli(int(n), 1);
      double frobenius = 0.0, largest = 0.0, norm1 = 0.0, normi = 0.0;
      for (int i = 0; i < P.m; ++i) {
        for (int j = 0; j < P.n; ++j) {
          const double v = std::abs(P(i, j));
          row1(i, 0) += v;
          col1(j, 0) += v;
          rowi(i, 0) = std::max(rowi(i, 0).real(), v);
          coli(j, 0) = std::max(coli(j, 0).real(), v);
          frobenius += v * v;
          largest = std::max(largest, v);
        }
      }
      for (const cplx& v : row1.v) normi = std::max(normi, v.real());
      for (const cplx& v : col1.v) norm1 = std::max(norm1, v.real());
      EXPECT_NEAR_PICTURE(picture(Vec(smat_row_1_norms(nullptr, A.get()))), row1);
      EXPECT_NEAR_PICTURE(picture(Vec(smat_col_1_norms(nullptr, A.get()))), col1);
      EXPECT_NEAR_PICTURE(picture(Vec(smat_row_inf_norms(nullptr, A.get()))), rowi);
      EXPECT_NEAR_PICTURE(picture(Vec(smat_col_inf_norms(nullptr, A.get()))), coli);
      EXPECT_NEAR(smat_frobenius_norm(A.get()), std::sqrt(frobenius), 1e-13);
      EXPECT_NEAR(smat_maxval(A.get()), largest, 1e-15);
      EXPECT_NEAR(smat_1_norm(A.get()), norm1, 1e-13);
      EXPECT_NEAR(smat_inf_norm(A.get()), normi, 1e-13);
      EXPECT_EQ(smat_row_sum_norm(A.get()), smat_inf_norm(A.get()));
    }
  }
  Wrapped big(2, {0, 2}, {0, 1}, 0, {3e200, 4e200});  // squares overflow, the norm doesn't
  EXPECT_NEAR(smat_frobenius_norm(big.A) / 5e200, 1.0, 1e-15);
  big.a[0] = NAN;
  EXPECT_TRUE(std::isnan(smat_maxval(big.A)));
  EXPECT_TRUE(std::isnan(smat_inf_norm(big.A)));
}

TEST(SmatNorms, ComparisonSeesValuesPatternAndStorage) {
  RandomContainers random(23);
  const Smat A = random.matrix(9, 9, NORV_REAL_SYM, 0.4, true);
  Smat B(smat_copy(A.get()));
  B->a[3] += 1e-15;
  EXPECT_TRUE(smat_equal_structure(A.get(), B.get()));
  EXPECT_FALSE(smat_equal(A.get(), B.get()));
  B.reset(smat_copy_full_structure(A.get()));
  EXPECT_TRUE(smat_equal(A.get(), B.get()));
  EXPECT_TRUE(smat_equal(B.get(), A.get()));
  EXPECT_FALSE(smat_equal_structure(A.get(), B.get()));
  smat_scale_scalar(2.0, B.get());
  EXPECT_FALSE(smat_equal(A.get(), B.get()));
  EXPECT_FALSE(smat_equal(A.get(), Smat(smat_ident(8)).get()));
}

TEST(SmatPrint, ThroughTheLog) {
  NorvLog log;
  Wrapped w(3, {0, 2, 2}, {0, 2}, 0, {1.5, -2.0});
  smat_print_raw(w.A);
  EXPECT_EQ(log.take(), kStat + "*A     = { 2, 3, 2, non-symmetric };\n" + kStat +
                            "A->ia  = { 0, 2, 2 };\n" + kStat + "A->ja  = { 0, 2 };\n" + kStat +
                            "A->a   = { 1.5, -2 };\n");
  smat_print_structure(w.A);
  EXPECT_EQ(log.take(), kStat + "   0: *.*\n" + kStat + "   1: ...\n");
  smat_print_named(w.A, "W");
  const std::string text = log.take();
  EXPECT_NE(text.find(kStat + "W: 2 x 3, nnz 2, non-symmetric\n"), std::string::npos);
  EXPECT_NE(text.find("  2: -2.00000000e+00\n"), std::string::npos);

  const Smat I(smat_ident(4));
  const Vec x(vec_new_zero(4)), b(vec_new(4));
  vec_set(2.0, b.get());
  print_residual(I.get(), x.get(), b.get());
  EXPECT_EQ(log.take(), kStat + "Residual:  4.000000e+00,  relative:  1.000000e+00\n");
  norv_debug_set_level(0);
  smat_print(I.get());
  EXPECT_EQ(log.take(), "");
  norv_debug_set_level(1);
  smat_free(nullptr);
  EXPECT_EQ(log.take(), kWarning + "Trying to free NULL matrix.\n");
}

}  // namespace
