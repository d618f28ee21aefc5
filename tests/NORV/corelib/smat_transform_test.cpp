// SPDX-License-Identifier: BSD-3-Clause
// Construction, copies, transforms, permutations, splits and sums, against dense pictures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "norv_log.hpp"
#include "smat_dense.hpp"

using namespace vlm::test;

extern "C" {
smat* NORVMORA_smat_copy_permute(const smat*, const perm*);
smat* NORVMORA_smat_sym_trans_pta(const smat*, int**);
}

namespace {

TEST(SmatNew, HeaderHasItsOwnOperator) {
  for (int type = 0; type < 4; ++type) {
    const Smat A(smat_new(3, 5, type));
    EXPECT_EQ(A->sym, type & 1);
    EXPECT_EQ(A->is_complex, type >> 1);
    EXPECT_EQ(A->nnz, 0u);
    EXPECT_EQ(A->ja, nullptr);
    EXPECT_EQ(A->a, nullptr);
    EXPECT_EQ(std::vector<int>(A->ia, A->ia + 4), std::vector<int>(4, 0));
    EXPECT_EQ(A->op.tag, NORV_LINOP_TAG);
    EXPECT_STREQ(A->op.name, "new_mat");
    const Smat B(smat_copy(A.get()));
    EXPECT_TRUE(well_formed(B));  // the operator names B, not A
  }
  EXPECT_DEATH(smat_new_nnz_struct(2, 2, 2, 4), "type == 0 \\|\\| type == 1");
}

TEST(SmatNew, BaseOneArraysAreShiftedInPlaceAndBack) {
  int ia[] = {1, 3, 4}, ja[] = {1, 2, 2};
  double a[] = {1, 2, 3, 4, 5, 6};
  smat* A = smat_new_from(2, 2, ia, ja, a, NORV_REAL_SYM, 1);
  EXPECT_EQ(A->nnz, 3u);
  EXPECT_EQ(A->ia, ia);
  EXPECT_EQ(ia[0], 0);
  EXPECT_EQ(ja[2], 1);
  EXPECT_TRUE(smat_is_consistent(A));
  EXPECT_DEATH(smat_to_c_indexing(A), "mat->ia\\[0\\] == 1");
  smat_to_fortran_indexing(A);
  EXPECT_EQ(ia[2], 4);
  EXPECT_EQ(ja[0], 1);
  EXPECT_DEATH(smat_to_fortran_indexing(A), "mat->ia\\[0\\] == 0");
  smat_to_c_indexing(A);
  std::free(A);
  A = smat_new_from_cpx(2, 2, ia, ja, a, 1, 0);
  EXPECT_EQ(A->is_complex, 1);
  EXPECT_EQ(picture(A)(1, 0), cplx(3, 4));
  std::free(A);
  EXPECT_DEATH(smat_new_from(2, 2, ia, ja, a, 0, 2), "base_index == 0 \\|\\| base_index == 1");
}

TEST(SmatNew, FactorOfUnknownSize) {
  NorvLog log;
  Smat L(Lmat_new_nnz(10, 10, 100, NORV_CPX_SYM));
  EXPECT_EQ(L->nnz, 0u);
  L->ja[1400] = 1;  // a fill of 15, lowered to 14
  L->a[2 * 1400 + 1] = 1.0;
  const std::string prefix = "[VELMORA/ML]>> \tNORV/corelib/smat: ";
  EXPECT_EQ(log.take(), prefix + "Trying to allocate matrix with fill-in of 15 ... success\n" +
                            prefix + "Re-allocate matrix with fill-in of 15 ... \n" + prefix +
                            "Re-allocate matrix with final fill-in of 14 ... \n");
  // More than 32-bit row starts can count: no fill of 1 or more fits.
  L.reset(Lmat_new_nnz(10, 10, 4000000000u, NORV_REAL_UNSYM));
  EXPECT_EQ(L->ja, nullptr);
  EXPECT_EQ(L->a, nullptr);
  EXPECT_NE(log.take().find("fill-in of 1 ... failed"), std::string::npos);
}

TEST(SmatNew, Realloc) {
  RandomContainers random(1);
  const Smat A = random.matrix(6, 6, NORV_CPX_UNSYM, 1.0);
  const cplx last = value(A->a, 1, 4);
  smat_realloc(A.get(), 5);
  EXPECT_EQ(A->nnz, 5u);
  EXPECT_EQ(value(A->a, 1, 4), last);
  smat_realloc(A.get(), 500);
  EXPECT_EQ(value(A->a, 1, 4), last);
  smat_realloc(A.get(), 0);
  EXPECT_EQ(A->nnz, 0u);
  A->a[1] = A->ja[0] = 0;
}

TEST(SmatTransform, CopiesAndTransposes) {
  RandomContainers random(2);
  for (int type = 0; type < 4; ++type) {
    for (unsigned m : {1u, 8u, 30u}) {
      const unsigned n = type & 1 ? m : m / 2 + 4;
      const Smat A = random.matrix(m, n, type, 0.3);
      const Picture P = picture(A);
      EXPECT_TRUE(smat_equal_same_sym(A.get(), Smat(smat_copy(A.get())).get()));
      const Smat zeros(smat_copy_structure(A.get()));
      EXPECT_TRUE(smat_equal_structure(A.get(), zeros.get()));
      EXPECT_EQ(smat_maxval(zeros.get()), 0.0);

      const Smat T(smat_copy_trans(A.get()));
      EXPECT_TRUE(well_formed(T));
      EXPECT_NEAR_PICTURE(picture(T), transposed(P));
      smat_trans(T.get());
      EXPECT_TRUE(well_formed(T));
      EXPECT_TRUE(smat_equal_same_sym(T.get(), A.get()));

      const Smat abs(smat_copy_abs(A.get()));
      EXPECT_EQ(abs->is_complex, 0);
      EXPECT_NEAR_PICTURE(picture(abs), mapped(P, [](int, int, cplx v) { return std::abs(v); }));
      const Smat log(smat_copy_log_to_full(A.get()));
      EXPECT_EQ(log->sym, 0);
      EXPECT_TRUE(well_formed(log));
      EXPECT_NEAR_PICTURE(picture(log), mapped(P, [](int, int, cplx v) {
                            return v == 0.0 ? 0.0 : std::log(std::abs(v));
                          }));
      if (type >> 1) {
        const Smat real(smat_complex_to_real(A.get()));
        EXPECT_NEAR_PICTURE(picture(real), mapped(P, [](int, int, cplx v) { return v.real(); }));
      }
    }
  }
}

TEST(SmatTransform, TrianglesAndBothTriangles) {
  RandomContainers random(3);
  NorvLog log;
  for (int type : {1, 3}) {
    const Smat A = random.matrix(25, 25, type, 0.2, true);
    const Smat full(smat_copy_full_structure(A.get()));
    EXPECT_TRUE(well_formed(full));
    EXPECT_EQ(full->sym, 0);
    EXPECT_NEAR_PICTURE(picture(full), picture(A));
    EXPECT_TRUE(smat_equal(full.get(), A.get()));
    EXPECT_FALSE(smat_equal_same_sym(full.get(), A.get()));

    int* place = nullptr;
    const Smat pattern(NORVMORA_smat_sym_trans_pta(A.get(), &place));
    EXPECT_TRUE(smat_equal_structure(pattern.get(), full.get()));
    EXPECT_EQ(pattern->a, nullptr);
    for (std::size_t k = 0; k < full->nnz; ++k) {
      EXPECT_EQ(value(full->a, type >> 1, k), value(A->a, type >> 1, std::size_t(place[k])));
    }
    std::free(place);

    // A bare structure stays bare.
    const Perm p = random.permutation(25);
    Smat moved(smat_copy_permute(pattern.get(), p.get()));
    smat_trans(moved.get());
    perm_invert(p.get());
    smat_permute(moved.get(), p.get());
    smat_to_symmetric_structure(moved.get());
    EXPECT_TRUE(smat_is_consistent(moved.get()));
    EXPECT_TRUE(smat_equal_structure(moved.get(), A.get()));
    moved.reset(smat_copy(moved.get()));
    smat_to_full_structure(moved.get());
    EXPECT_TRUE(smat_equal_structure(moved.get(), full.get()));
    EXPECT_EQ(moved->a, nullptr);

    smat_to_symmetric_structure(full.get());
    EXPECT_TRUE(smat_equal_same_sym(full.get(), A.get()));
    EXPECT_EQ(log.take(), "");

    // A missing diagonal entry is told and stays missing.
    const Smat H = random.matrix(6, 6, type, 0.0);
    smat_to_full_structure(H.get());
    EXPECT_EQ(log.take(), "[VELMORA/ML]>> WARNING: Matrix has incomplete diagonal!\n");
    EXPECT_EQ(H->nnz, 0u);
  }
  for (int type : {0, 2}) {
    const Smat A = random.matrix(20, 20, type, 0.15);
    const Picture P = picture(A);
    smat_symmetrize_structure(A.get());
    EXPECT_TRUE(well_formed(A));
    EXPECT_NEAR_PICTURE(picture(A), P);
    EXPECT_TRUE(smat_equal_structure(A.get(), Smat(smat_copy_trans(A.get())).get()));
  }
}

TEST(SmatTransform, SortingAndRepairs) {
  NorvLog log;
  RandomContainers random(4);
  for (int is_complex : {0, 1}) {
    // Long rows with many double entries, in coordinates.
    std::vector<int> row, col;
    std::vector<double> a;
    for (int k = 0; k < 400; ++k) {
      row.push_back(random.below(5));
      col.push_back(random.below(60));
      for (int part = 0; part <= is_complex; ++part) a.push_back(random.number());
    }
    const Smat A(smat_new_from_coord(5, 60, 400, row.data(), col.data(), a.data(), 2 * is_complex));
    const Picture P = picture(A);
    EXPECT_EQ(A->nnz, 400u);
    log.take();
    smat_eliminate_double_entries(A.get());
    EXPECT_TRUE(well_formed(A));
    EXPECT_NEAR_PICTURE(picture(A), P);
    const std::string text = log.take();
    EXPECT_NE(text.find("\tNORV/corelib/smat_utils: Double entry: a("), std::string::npos);
    const std::string summary = "WARNING: Matrix had " + std::to_string(400 - int(A->nnz)) +
                                " inconsistent multiple entries.  Values were ADDED!\n";
    EXPECT_NE(text.find(summary), std::string::npos);
    smat_eliminate_double_entries(A.get());
    EXPECT_EQ(log.take(), "");

    const Smat B = random.matrix(7, 7, 2 * is_complex + 1, 0.0);
    smat_insert_zero_diags(B.get());
    EXPECT_EQ(B->nnz, 7u);
    EXPECT_EQ(smat_maxval(B.get()), 0.0);
    EXPECT_TRUE(smat_is_consistent(B.get()));
    EXPECT_NE(log.take().find(is_complex ? "Filled in 7 missing COMPLEX diagonal entries."
                                         : "Filled in 7 missing diagonal entries."),
              std::string::npos);
  }
}

TEST(SmatTransform, Permutations) {
  RandomContainers random(9);
  for (int type = 0; type < 4; ++type) {
    const Smat A = random.matrix(31, 31, type, 0.3, type & 1);
    const Perm p = random.permutation(31);
    const Picture P = picture(A);
    const auto moved = [&](const Picture& Q, bool r, bool c) {
      Picture R(Q.m, Q.n);
      for (int i = 0; i < Q.m; ++i)
        for (int j = 0; j < Q.n; ++j) R(r ? p->p[i] : i, c ? p->p[j] : j) = Q(i, j);
      return R;
    };
    const Smat B(NORVMORA_smat_copy_permute(A.get(), p.get()));
    EXPECT_TRUE(well_formed(B));
    EXPECT_EQ(B->sym, A->sym);
    EXPECT_NEAR_PICTURE(picture(B), moved(P, true, true));
    perm_invert(p.get());
    smat_permute(B.get(), p.get());
    EXPECT_TRUE(smat_equal_same_sym(A.get(), B.get()));
    if (type & 1) continue;
    const Smat R(smat_copy_permute_rows(A.get(), p.get()));
    EXPECT_NEAR_PICTURE(picture(R), moved(P, true, false));
    smat_permute_columns(A.get(), p.get());
    EXPECT_TRUE(well_formed(A));
    EXPECT_NEAR_PICTURE(picture(A), moved(P, false, true));
  }
}

TEST(SmatSplit, SplitsRecombine) {
  RandomContainers random(10);
  for (int type : {0, 2}) {
    const Smat A = random.matrix(17, 11, type, 0.4);
    for (unsigned m1 : {0u, 5u, 17u}) {
      for (unsigned n1 : {0u, 4u, 11u}) {
        smat *a11, *a12, *a21, *a22, *top, *bottom, *left, *right;
        smat_split(A.get(), m1, n1, &a11, &a12, &a21, &a22);
        smat_vert_split(A.get(), m1, &top, &bottom);
        smat_horiz_split(A.get(), n1, &left, &right);
        const Smat b11(a11), b12(a12), b21(a21), b22(a22), t(top), b(bottom), l(left), r(right);
        const Smat top2(smat_append_col(a11, a12)), bottom2(smat_append_col(a21, a22));
        EXPECT_TRUE(smat_equal_same_sym(top, top2.get()));
        EXPECT_TRUE(smat_equal_same_sym(bottom, bottom2.get()));
        EXPECT_TRUE(smat_equal_same_sym(A.get(), Smat(smat_append_row(top, bottom)).get()));
        EXPECT_TRUE(smat_equal_same_sym(A.get(), Smat(smat_append_col(left, right)).get()));
      }
    }
  }
  for (int type = 0; type < 4; ++type) {
    const Smat A = random.matrix(12, 12, type, 0.5);
    const Picture P = picture(A);
    for (int nf : {0, 7, 12}) {
      smat *f, *c, *b, *bt;
      smat_fc_split(A.get(), unsigned(nf), &f, &c, &b, &bt);
      const Smat F(f), C(c), B(b), BT(bt);
      EXPECT_EQ(F->sym, type & 1);
      EXPECT_EQ(C->sym, type & 1);
      for (const smat* part : {f, c, b, bt}) EXPECT_TRUE(well_formed(part));
      EXPECT_NEAR_PICTURE(picture(F), window(P, 0, nf, 0, nf));
      EXPECT_NEAR_PICTURE(picture(C), window(P, nf, 12, nf, 12));
      EXPECT_NEAR_PICTURE(picture(B), window(P, nf, 12, 0, nf));
      EXPECT_NEAR_PICTURE(picture(BT), window(P, 0, nf, nf, 12));

      // Put back into an empty matrix, over what was there before.
      const Smat G = random.matrix(12, 12, type, 0.0);
      smat_insert_at(G.get(), 0, 0, f);
      smat_insert_at(G.get(), unsigned(nf), unsigned(nf), c);
      if (!(type & 1)) {
        smat_insert_at(G.get(), unsigned(nf), 0, b);
        smat_insert_at(G.get(), 0, unsigned(nf), bt);
        EXPECT_TRUE(smat_equal_same_sym(G.get(), A.get()));
      }
      smat_scale_scalar(5.0, f);
      smat_insert_at(G.get(), 0, 0, f);
      EXPECT_NEAR_PICTURE(window(picture(G), 0, nf, 0, nf), picture(F));
    }
  }
}

TEST(SmatScale, SumsAndDiagonals) {
  RandomContainers random(11);
  for (int type = 0; type < 4; ++type) {
    const int cpx = type >> 1;
    const Smat A = random.matrix(15, 15, type, 0.3);
    const Picture P = picture(A);
    for (int sym : {0, 1}) {
      const Smat B = random.matrix(15, 15, 2 * cpx + sym, 0.3);
      const Smat sum(smat_add(A.get(), B.get())), difference(smat_sub(A.get(), B.get()));
      EXPECT_TRUE(well_formed(sum));
      EXPECT_EQ(sum->sym, A->sym & B->sym);
      EXPECT_NEAR_PICTURE(picture(sum), combined(1, P, 1, picture(B)));
      EXPECT_NEAR_PICTURE(picture(difference), combined(1, P, -1, picture(B)));
    }
    const Vec d = random.vector(15, cpx), s = random.vector(15, 0);
    Smat B(smat_copy(A.get()));
    smat_add_diag_vec(B.get(), d.get());
    smat_add_diag(B.get(), 2.5);
    smat_add_diag_vec(B.get(), s.get());
    EXPECT_TRUE(well_formed(B));
    const Picture D = combined(1, diagonal(d.get()), 1, diagonal(s.get()));
    EXPECT_NEAR_PICTURE(picture(B), mapped(combined(1, P, 1, D), [](int i, int j, cplx v) {
                          return i == j ? v + 2.5 : v;
                        }));
    smat_scale_diag(0.25, B.get());
    EXPECT_NEAR(std::abs(picture(B)(4, 4) - 0.25 * (P(4, 4) + D(4, 4) + 2.5)), 0.0, 1e-14);

    // Scaling; on both sides alike it keeps symmetry.
    const Picture S = diagonal(s.get());
    B.reset(smat_copy(A.get()));
    smat_scale(B.get(), s.get(), s.get());
    EXPECT_NEAR_PICTURE(picture(B), S * P * S);
    B.reset(smat_copy(A.get()));
    smat_scale_exp(B.get(), s.get(), s.get());
    EXPECT_NEAR_PICTURE(picture(B), mapped(P, [&](int i, int j, cplx v) {
                          return std::exp(s->v[i]) * std::exp(s->v[j]) * v;
                        }));
    const Smat I = random.matrix(15, 15, 2 * cpx, 0.0);
    smat_add_diag_vec(I.get(), d.get());
    B.reset(smat_copy(A.get()));
    smat_scale_diag_matrix(B.get(), I.get(), I.get());
    smat_invert_diag(I.get());
    smat_scale_diag_matrix(B.get(), I.get(), I.get());
    EXPECT_LT(distance(picture(B), P), 1e-10);
    if (type & 1) continue;
    smat_scale_left(B.get(), s.get());
    EXPECT_LT(distance(picture(B), S * P), 1e-10);

    const Vec x = random.vector(15, cpx);
    B.reset(smat_copy(A.get()));
    smat_add_r2(3.0, B.get(), x.get(), d.get());
    const Picture xdt = picture(x) * transposed(picture(d));
    const Picture update = combined(3, xdt, 3, transposed(xdt));
    EXPECT_NEAR_PICTURE(picture(B), mapped(P, [&](int i, int j, cplx v) {
                          return v == 0.0 ? v : v + update(i, j);
                        }));
  }
}

}  // namespace
