// SPDX-License-Identifier: BSD-3-Clause
// Block matrices and cut matrices against the dense picture of the sparse matrix they come from.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "norv_log.hpp"
#include "smat_dense.hpp"

using namespace vlm::test;

namespace {

struct Free {
  void operator()(dmat* A) const { dmat_free(A); }
  void operator()(bmat* B) const { bmat_free(B); }
  void operator()(sbmat* S) const { sbmat_free(S); }
};
using Dmat = std::unique_ptr<dmat, Free>;
using Bmat = std::unique_ptr<bmat, Free>;

/// Random sparse matrix; a symmetric one has its diagonal stored, the first entry as a zero.
Smat sparse(unsigned m, unsigned n, bool sym, RandomContainers& random) {
  Smat A = random.matrix(m, n, sym ? NORV_REAL_SYM : NORV_REAL_UNSYM, 0.25, sym);
  if (sym && m > 0) A->a[0] = 0.0;
  return A;
}

struct Case {
  unsigned m, n, bn;
  bool sym;
  friend std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << c.m << " x " << c.n << " blocks of " << c.bn << (c.sym ? ", symmetric" : "");
  }
};

class BmatTest : public ::testing::TestWithParam<Case> {
 protected:
  RandomContainers random{99};
  Case c = GetParam();
  Smat A = sparse(c.m * c.bn, c.n* c.bn, c.sym, random);
  Dmat dense{dmat_from_smat(A.get())};
  Bmat B{bmat_new_from_smat(A.get(), c.bn)};
};

TEST_P(BmatTest, HoldsWhatTheSparseMatrixHolds) {
  for (unsigned i = 0; i < dense->m; ++i)
    for (unsigned j = 0; j < dense->n; ++j)
      ASSERT_EQ(bmat_get_ij_elem(B.get(), i, j), dense->a[i * dense->n + j]) << i << " " << j;
  EXPECT_TRUE(bmat_equal_smat(B.get(), A.get()));
  EXPECT_TRUE(bmat_check_ja(B.get()));
  EXPECT_TRUE(!c.sym || bmat_check_structural_symmetry(B.get()));
  const Smat back(bmat_to_smat(B.get()));
  EXPECT_TRUE(smat_equal_same_sym(back.get(), A.get()));

  const Bmat full(bmat_copy_full_structure(B.get()));
  EXPECT_TRUE(bmat_check_ja(full.get()));
  EXPECT_FALSE(full->sym);
  EXPECT_TRUE(bmat_equal_smat(full.get(), A.get()));
  EXPECT_EQ(bmat_equal(full.get(), B.get()) != 0, !c.sym);

  if (A->nnz == 0) return;
  A->a[A->nnz - 1] += 1.0;
  EXPECT_FALSE(bmat_equal_smat(B.get(), A.get()));
  A->a[A->nnz - 1] -= 1.0;
  B->a[std::size_t{B->nzb} * B->bdim - 1] += 1.0;
  EXPECT_FALSE(bmat_equal_smat(B.get(), A.get()));
}

TEST_P(BmatTest, ProductsAgreeWithTheDenseOnes) {
  EXPECT_EQ(B->op.tag, NORV_LINOP_TAG);
  EXPECT_EQ(B->op.m, static_cast<int>(dense->m));
  EXPECT_EQ(B->op.n, static_cast<int>(dense->n));
  EXPECT_STREQ(B->op.name, "B");
  for (bool trans : {false, true}) {
    if (trans) dmat_trans(dense.get());
    for (double beta : {0.0, 1.0, -0.5}) {
      const Vec x = random.vector(dense->n, 0), y = random.vector(dense->m, 0);
      const Vec expected(vec_copy(nullptr, y.get()));
      dmat_gemv(1.75, beta, dense.get(), x.get(), expected.get());
      if (beta == 0.0) vec_set(std::nan(""), y.get());
      (trans ? B->op.gemv_trans : B->op.gemv)(1.75, beta, B->op.data, x.get(), y.get());
      EXPECT_TRUE(vec_equal_up_to(y.get(), expected.get(), 1e-12));
    }
  }
}

TEST_P(BmatTest, Scaling) {
  const Vec left = random.vector(dense->m, 0), right = random.vector(dense->n, 0);
  const Vec* other = c.sym ? &left : &right;  // keeps a symmetric matrix symmetric
  bmat_scale(B.get(), left.get(), other->get());
  dmat_scale(dense.get(), left.get(), other->get());
  for (unsigned i = 0; i < dense->m; ++i)
    for (unsigned j = 0; j < dense->n; ++j)
      ASSERT_NEAR(bmat_get_ij_elem(B.get(), i, j), dense->a[i * dense->n + j], 1e-15);
  if (c.m != c.n) return;
  const Vec d(bmat_get_diag_scaling(nullptr, B.get()));
  for (unsigned i = 0; i < dense->m; ++i) {
    const double pivot = std::abs(dense->a[i * dense->n + i]);
    EXPECT_NEAR(d->v[i] * d->v[i] * (pivot == 0.0 ? 1.0 : pivot), 1.0, 1e-12);
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, BmatTest,
                         ::testing::Values(Case{0, 0, 3, false}, Case{1, 1, 1, false},
                                           Case{1, 1, 5, true}, Case{4, 6, 2, false},
                                           Case{6, 3, 5, false}, Case{7, 7, 1, true},
                                           Case{5, 5, 3, true}, Case{4, 4, 5, true}));

TEST(Bmat, ChecksReportWhatIsWrong) {
  NorvLog log;
  int ia[4] = {0, 2, 2, 3}, ja[3] = {1, 0, 2};
  double a[3] = {1, 2, 3};
  bmat* B = bmat_new_from(3, 3, 1, ia, ja, a, 1);
  B->nzb = 4;
  EXPECT_FALSE(bmat_check_ia(B));
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> WARNING: ia[2] (2) <= ia[1] (2)\n"
            "[VELMORA/ML]>> WARNING: Matrix has 1 non-increasing rows.\n"
            "[VELMORA/ML]>> ERROR: Matrix nzb not consistent! ia[3]=3, nzb=4.\n");
  EXPECT_FALSE(bmat_check_ja(B));
  EXPECT_NE(log.take().find("ja[0] (1) >= ja[1] (0) in row 0"), std::string::npos);
  ja[2] = 0;
  EXPECT_FALSE(bmat_check_structural_symmetry(B));
  EXPECT_NE(log.take().find("Symmetric matrix has element (2, 0) in lower part."),
            std::string::npos);
  smat* structure = bmat_fake_smat(B);
  EXPECT_EQ(structure->ia, ia);
  EXPECT_EQ(structure->ja, ja);
  EXPECT_EQ(structure->nnz, 3u);
  free(structure);
  free(B);
}

TEST(Bmat, PrintsThroughTheLog) {
  NorvLog log;
  int ia[2] = {0, 1}, ja[1] = {1};
  double a[4] = {1, 2, 3, 4};
  bmat* B = bmat_new_from(1, 2, 2, ia, ja, a, 0);
  const std::string block =
      "\n     1.00000000      2.00000000 \n     3.00000000      4.00000000 \n";
  bmat_print_ij(B, 0, 1);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> block (0, 1)" + block);
  bmat_print_ij(B, 0, 0);
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> block (0, 0) is not stored\n");
  bmat_print(B);
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> bmat of 1 x 2 blocks of size 2, 1 stored\nblock (0, 1)" + block);
  bmat_print_raw(B);
  EXPECT_EQ(log.take().substr(0, 92),
            "[VELMORA/ML]>> *B     = { 1, 2, 1, 2, non-symmetric };\nia     = { 0 1 };\n"
            "ja     = { 1 };\na  ");
  free(B);
}

TEST(Bmat, TrapsFaultsAndGrows) {
  RandomContainers random(1);
  const Smat A = sparse(4, 6, false, random), Z = random.matrix(4, 4, NORV_CPX_UNSYM, 0.5);
  EXPECT_DEATH(bmat_new_from_smat(A.get(), 3), "A->m % bn == 0");
  EXPECT_DEATH(bmat_new_from_smat(A.get(), 4), "A->n % bn == 0");
  EXPECT_DEATH(bmat_new_from_smat(Z.get(), 2), "!A->is_complex");
  EXPECT_DEATH(bmat_new(2, 3, 2, 1), "!sym \\|\\| m == n");
  EXPECT_EXIT(bmat_new_nzb(2, 2, 1u << 30, 60000, 0), ::testing::ExitedWithCode(7), "");
  const Bmat B(bmat_new_from_smat(A.get(), 2)), fresh(bmat_new(2, 3, 2, 0));
  const double first = B->a[0];
  bmat_realloc(B.get(), B->nzb + 10);
  EXPECT_EQ(B->a[0], first);
  EXPECT_EQ(bmat_get_ij_elem(fresh.get(), 3, 5), 0.0);
  EXPECT_DEATH(bmat_get_ij_elem(B.get(), 4, 0), "i < vlm::rows\\(B\\)");
  bmat_free(nullptr);
}

TEST(Sbmat, BlocksMakeUpTheMatrix) {
  RandomContainers random(4);
  for (int type = 0; type < 4; ++type) {
    const bool is_complex = type >> 1;
    const Smat A = random.matrix(11, 11, type, 0.25, type & 1);
    const Smat full(smat_copy_full_structure(A.get()));
    for (const std::vector<int>& sizes :
         {std::vector<int>{11}, {3, 0, 8}, {1, 2, 3, 5}, std::vector<int>(11, 1)}) {
      const auto nb = static_cast<unsigned>(sizes.size());
      const std::unique_ptr<sbmat, Free> S(sbmat_new(A.get(), nb, sizes.data()));
      EXPECT_EQ(S->n, 11u);
      EXPECT_EQ(S->nnz, full->nnz);
      // Back to coordinates, and from them to one matrix.
      std::vector<int> row, column;
      std::vector<double> a;
      for (int r = 0, i0 = 0; r < static_cast<int>(nb); i0 += sizes[r++]) {
        for (int k = 0, j0 = 0; k < static_cast<int>(nb); j0 += sizes[k++]) {
          const smat* block = S->blocks[r * static_cast<int>(nb) + k];
          ASSERT_EQ(block->m, static_cast<unsigned>(sizes[r]));
          ASSERT_EQ(block->n, static_cast<unsigned>(sizes[k]));
          ASSERT_EQ(block->ia[block->m], static_cast<int>(block->nnz));
          for (int i = 0; i < sizes[r]; ++i) {
            for (int p = block->ia[i]; p < block->ia[i + 1]; ++p) {
              row.push_back(i0 + i);
              column.push_back(j0 + block->ja[p]);
              const int width = is_complex ? 2 : 1;
              a.insert(a.end(), block->a + p * width, block->a + (p + 1) * width);
            }
          }
        }
      }
      const Smat joined(smat_new_from_coord(11, 11, static_cast<unsigned>(row.size()), row.data(),
                                            column.data(), a.data(), is_complex ? 2 : 0));
      EXPECT_TRUE(smat_equal_same_sym(joined.get(), full.get()));
    }
  }
}

TEST(Sbmat, EqualBlocksAndTheRemainder) {
  NorvLog log;
  RandomContainers random(8);
  const Smat A = sparse(10, 10, false, random), oblong = sparse(10, 9, false, random);
  int* sizes = smat_find_blocks(A.get(), 3);
  EXPECT_EQ(std::vector<int>(sizes, sizes + 3), (std::vector<int>{3, 3, 4}));
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> block 0: 3\n[VELMORA/ML]>> block 1: 3\n[VELMORA/ML]>> block 2: 4\n");
  EXPECT_DEATH(sbmat_new(oblong.get(), 3, sizes), "A->m == A->n");
  sizes[0] = 2;
  EXPECT_DEATH(sbmat_new(A.get(), 3, sizes), "sum == A->m");
  free(sizes);
  sizes = smat_find_blocks(A.get(), 12);
  EXPECT_EQ(sizes[0], 0);
  EXPECT_EQ(sizes[11], 10);
  free(sizes);
  sbmat_free(nullptr);
}

}  // namespace
