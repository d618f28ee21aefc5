// SPDX-License-Identifier: BSD-3-Clause
// Sparsification, constraint blocks, block diagonals, complex bridges, triangular triples.
#include <gtest/gtest.h>

#include <string>

#include "norv_log.hpp"
#include "smat_dense.hpp"

using namespace vlm::test;

namespace {

TEST(SmatSparsify, FilterKeepsLargeEntriesAndTheDiagonal) {
  NorvLog log;
  RandomContainers random(31);
  for (int type = 0; type < 4; ++type) {
    const Smat A = random.matrix(20, 20, type, 0.5, true);
    const Picture P = picture(A);
    const unsigned before = A->nnz;
    smat_filter(0.5, A.get());
    EXPECT_TRUE(well_formed(A));
    EXPECT_NEAR_PICTURE(picture(A), mapped(P, [](int i, int j, cplx v) {
                          return i == j || std::abs(v) > 0.5 ? v : 0.0;
                        }));
    char text[200];
    std::snprintf(text, sizeof text, "Matrix has %d from %d non-zero values left (%5.1f%%).\n",
                  int(A->nnz), int(before), 100.0 * A->nnz / before);
    EXPECT_EQ(log.take(), std::string("[VELMORA/ML]>> ") + text);
    EXPECT_LT(A->nnz, before);
  }
}

TEST(SmatSparsify, ByDiagonalWithAndWithoutCompensation) {
  RandomContainers random(32);
  for (int type = 0; type < 4; ++type) {
    const Smat A = random.matrix(30, 30, type, 0.5, true);
    const Picture P = picture(A);
    const double thresh = 0.8;
    const auto stays = [&](int i, int j) {
      return i == j || std::norm(P(i, j)) >= thresh * std::abs(P(i, i)) * std::abs(P(j, j));
    };
    const Smat B(smat_copy(A.get()));
    smat_sparsify_thresh_diag(thresh, B.get());
    EXPECT_TRUE(well_formed(B));
    EXPECT_LT(B->nnz, A->nnz);
    EXPECT_NEAR_PICTURE(picture(B),
                        mapped(P, [&](int i, int j, cplx v) { return stays(i, j) ? v : 0.0; }));
    if (!(type & 1)) continue;

    for (int is_complex = 0; is_complex <= type >> 1; ++is_complex) {
      const Vec target = random.vector(30, is_complex);
      const Smat C(smat_copy(A.get()));
      smat_sparsify_compens_sym(thresh, C.get(), target.get());
      EXPECT_TRUE(smat_equal_structure(B.get(), C.get()));
      EXPECT_LT(distance(picture(C) * picture(target), P * picture(target)), 1e-11);
      EXPECT_NEAR_PICTURE(
          mapped(picture(C), [&](int i, int j, cplx v) { return i == j ? P(i, i) : v; }),
          picture(B));
    }
    // Zeros in the target: what no diagonal entry can make up for stays.
    const Vec target = random.vector(30, 0);
    for (int i = 0; i < 10; ++i) target->v[i] = 0.0;
    const Smat C(smat_copy(A.get()));
    smat_sparsify_compens_sym(thresh, C.get(), target.get());
    EXPECT_LT(distance(picture(C) * picture(target), P * picture(target)), 1e-11);
    for (int i = 0; i < 30; ++i) {
      for (int j = i + 1; j < 30; ++j) {
        const bool one_end = (i < 10) != (j < 10);
        const bool stored = smat_has_ij_index(C.get(), unsigned(i), unsigned(j));
        EXPECT_EQ(stored, P(i, j) != 0.0 && (one_end || stays(i, j)));
      }
    }
  }
}

TEST(SmatSparsify, Simplify) {
  RandomContainers random(33);
  for (int type = 0; type < 4; ++type) {
    // Unknowns 0, 4, 5 of 8 are on their own; stored zeros don't couple.
    const Smat A = random.matrix(8, 8, type, 1.0);
    for (int i = 0; i < 8; ++i) {
      for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
        const int j = A->ja[k];
        const auto alone = [](int u) { return u == 0 || u == 4 || u == 5; };
        if (!alone(i) && !alone(j)) continue;
        for (int part = 0; part <= type >> 1; ++part) {
          A->a[(k << (type >> 1)) + part] = i == j && part == 0 ? 1.0 : 0.0;
        }
      }
    }
    bitvec* ident = bitvec_new(8);
    const Smat B(smat_simplify_ident(A.get(), ident));
    EXPECT_EQ(ident->v[0], (1u << 0) | (1u << 4) | (1u << 5));
    bitvec_release(ident);
    EXPECT_TRUE(well_formed(B));
    EXPECT_EQ(B->m, 5u);
    const int kept[] = {1, 2, 3, 6, 7};
    Picture P = picture(A);
    EXPECT_EQ(distance(picture(B), mapped(Picture(5, 5),
                                          [&](int i, int j, cplx) { return P(kept[i], kept[j]); })),
              0.0);
    const unsigned before = A->nnz;
    smat_simplify(A.get());
    EXPECT_TRUE(well_formed(A));
    EXPECT_EQ(before - A->nnz, type & 1 ? 18u : 36u);
    EXPECT_EQ(distance(picture(A), P), 0.0);
  }
}

/// Saddle-point matrix [F B'; B 0] with m constraints, upper triangle or both.
Smat saddle(RandomContainers& random, unsigned n, unsigned m, int type, double corner) {
  const Smat F = random.matrix(n, n, type, 0.3, true), B = random.matrix(m, n, type & 2, 0.5);
  Smat K = random.matrix(n + m, n + m, type, 0.0);
  smat_add_diag(K.get(), corner);
  smat_insert_at(K.get(), 0, 0, F.get());
  const Smat Bt(smat_copy_trans(B.get()));
  if (type & 1) {
    Bt->sym = 1;  // only its place above the diagonal matters
    Smat shifted(smat_new_nnz(n + m, n + m, Bt->nnz, type));
    std::copy_n(Bt->ia, n + 1, shifted->ia);
    std::fill_n(shifted->ia + n, m + 1, int(Bt->nnz));
    for (unsigned k = 0; k < Bt->nnz; ++k) shifted->ja[k] = Bt->ja[k] + int(n);
    std::copy_n(Bt->a, std::size_t(Bt->nnz) << K->is_complex, shifted->a);
    smat_insert_at(K.get(), 0, 0, shifted.get());
  } else {
    smat_insert_at(K.get(), 0, n, Bt.get());
    smat_insert_at(K.get(), n, 0, B.get());
  }
  return K;
}

TEST(SmatAnalysis, ConstraintBlock) {
  NorvLog log;
  RandomContainers random(34);
  for (int type = 0; type < 4; ++type) {
    const Smat K = saddle(random, 12, 5, type, 1e-8);
    EXPECT_EQ(smat_guess_constraint_size(K.get()), 5u);
    EXPECT_EQ(log.take(), "[VELMORA/ML]>> Constraint size:  5\n");
    EXPECT_EQ(smat_guess_constraint_size(saddle(random, 12, 5, type, 2e-8).get()), 0u);
    // The last row alone is no constraint block.
    EXPECT_EQ(smat_guess_constraint_size(saddle(random, 12, 1, type, 0.0).get()), 0u);
    EXPECT_EQ(smat_guess_constraint_size(saddle(random, 12, 2, type, 0.0).get()), 2u);

    const Picture P = picture(K);
    const Smat D(smat_diagonalize_11(K.get(), 12));
    EXPECT_TRUE(well_formed(D));
    EXPECT_EQ(distance(picture(D),
                       mapped(P, [](int i, int j,
                                    cplx v) { return i != j && i < 12 && j < 12 ? 0.0 : v; })),
              0.0);

    // Constraint rows have small diagonals and few entries to their left.
    bitvec* precious = smat_get_precious_rows(K.get(), 1e-6, 4);
    for (int i = 0; i < 17; ++i) {
      int below = 0;
      for (int j = 0; j < i; ++j) below += P(i, j) != 0.0;
      EXPECT_EQ(bitvec_is_set(precious, unsigned(i)) != 0, i >= 12 && below >= 1 && below <= 4);
    }
    bitvec_release(precious);
    EXPECT_NE(log.take().find("Number of potentially precious rows:  "), std::string::npos);
    const Smat H = random.matrix(4, 4, type, 0.0);
    EXPECT_DEATH(smat_get_precious_rows(H.get(), 1.0, 1), "A->ja\\[j\\] == i");
  }
}

TEST(SmatAnalysis, DominanceScalingAndProfile) {
  NorvLog log;
  const Smat A(smat_ident(3));
  smat_scale_scalar(-4.0, A.get());
  const double off[] = {4.0, 0.25};
  const int row[] = {0, 2}, col[] = {1, 1};
  const Smat E(smat_new_from_coord(3, 3, 2, row, col, off, NORV_REAL_UNSYM));
  const Smat B(smat_add(A.get(), E.get()));  // [-4 4 0; 0 -4 0; 0 1/4 -4]
  EXPECT_EQ(smat_get_num_diag_dominant_rows(B.get()), 3u);
  EXPECT_EQ(smat_get_num_diag_dominant_cols(B.get()), 2u);
  const Vec d(smat_get_diag_scaling(nullptr, B.get())),
      r(smat_get_inf_norm_scaling(nullptr, E.get()));
  EXPECT_EQ(std::vector<double>(d->v, d->v + 3), (std::vector<double>{0.5, 0.5, 0.5}));
  EXPECT_EQ(std::vector<double>(r->v, r->v + 3), (std::vector<double>{0.5, 1.0, 2.0}));

  smat_profile_matrix(B.get());
  EXPECT_EQ(log.take(),
            "[VELMORA/ML]>> max_diag: 4.000000e+00,  min_diag: 4.000000e+00\n"
            "[VELMORA/ML]>> max_mat:  4.000000e+00,  min_mat:  2.500000e-01\n"
            "[VELMORA/ML]>> Need 2 buckets\n"
            "[VELMORA/ML]>> Dropping threshold might be: 4.000000e-02\n");
  B->a[0] = 1e150;
  EXPECT_DEATH(smat_profile_matrix(B.get()), "bucket < 100");
}

TEST(SmatBlocks, DiagonalBlocksAndTheirFunctions) {
  NorvLog log;
  RandomContainers random(35);
  for (unsigned bs : {1u, 2u, 3u, 5u, 11u}) {
    const Smat A = random.matrix(11, 11, NORV_REAL_SYM, 0.7);
    const Picture P = picture(A);
    const auto block_part = [&](const Picture& Q) {
      return mapped(Q, [&](int i, int j, cplx v) { return i / int(bs) == j / int(bs) ? v : 0.0; });
    };
    const Smat D(smat_get_sym_block_diag(A.get(), bs));
    EXPECT_TRUE(smat_is_consistent(D.get()));
    EXPECT_EQ(distance(picture(D), block_part(P)), 0.0);

    smat_add_diag(D.get(), 6.0);  // positive definite by dominance
    const Picture I = picture(Smat(smat_ident(11)));
    const Smat inverse(smat_inv_sym_block_diag(D.get(), bs));
    EXPECT_NEAR_PICTURE(picture(D) * picture(inverse), I);
    const Smat root(smat_invroot_sym_block_diag(D.get(), bs));
    EXPECT_NEAR_PICTURE(picture(root) * picture(D) * picture(root), I);
    smat_scale_scalar(-1.0, D.get());
    EXPECT_NEAR_PICTURE(picture(Smat(smat_inv_sym_block_diag(D.get(), bs))),
                        combined(-1, picture(inverse), 0, I));
    log.take();
    EXPECT_EQ(smat_invroot_sym_block_diag(D.get(), bs), nullptr);
    EXPECT_EQ(log.take(), "[VELMORA/ML]>> ERROR: Diagonal block 0 is not positive definite.\n");
    smat_scale_scalar(0.0, D.get());
    EXPECT_EQ(smat_inv_sym_block_diag(D.get(), bs), nullptr);
    EXPECT_EQ(log.take(), "[VELMORA/ML]>> ERROR: Diagonal block 0 is singular.\n");
  }
  for (int type = 0; type < 4; ++type) {
    const Smat A = random.matrix(14, type & 1 ? 14 : 9, type, 0.15);
    const Picture P = picture(A);
    const Smat C(smat_block_condense_max(A.get(), 4));
    EXPECT_TRUE(well_formed(C));
    Picture Q(4, type & 1 ? 4 : 3);
    for (int i = 0; i < P.m; ++i)
      for (int j = 0; j < P.n; ++j)
        if (std::abs(P(i, j)) > std::abs(Q(i / 4, j / 4))) Q(i / 4, j / 4) = P(i, j);
    EXPECT_EQ(distance(picture(C), Q), 0.0);
  }
}

TEST(SmatCpx, RealFormActsAlikeOnInterleavedVectors) {
  RandomContainers random(36);
  for (int type : {2, 3}) {
    const Smat A = random.matrix(9, type == 3 ? 9 : 13, type, 0.4);
    const Smat R(smat_cpx_to_2x2(A.get()));
    EXPECT_TRUE(well_formed(R));
    const Vec x = random.vector(A->n, 1), y(smat_vecmul(nullptr, A.get(), x.get()));
    vec* flat = vec_new_from(2 * A->n, x->v);
    const Vec z(smat_vecmul(nullptr, R.get(), flat));
    std::free(flat);
    for (unsigned k = 0; k < 2 * A->m; ++k) EXPECT_NEAR(z->v[k], y->v[k], 1e-13);
    const Smat back(smat_2x2_to_cpx(R.get()));
    EXPECT_TRUE(smat_equal(back.get(), A.get()));
    smat_simplify(R.get());  // a block with one stored row or column is still a block
    EXPECT_EQ(distance(picture(Smat(smat_2x2_to_cpx(R.get()))), picture(A)), 0.0);
  }
}

TEST(Ldu, SplitsAndSweeps) {
  RandomContainers random(37);
  for (int type = 0; type < 4; ++type) {
    for (unsigned n : {1u, 12u}) {
      const Smat A = random.matrix(n, n, type, 0.3, true);
      ldu* f = smat_to_ldu(A.get());
      EXPECT_EQ(f->L == nullptr, A->sym == 1);
      EXPECT_TRUE(smat_equal_same_sym(A.get(), Smat(ldu_to_smat(f)).get()));

      const Vec b = random.vector(n, type >> 1);
      const Picture I = picture(Smat(smat_ident(n))), D = diagonal(f->D);
      const Picture u = combined(1, I, 1, picture(f->U));
      const auto solves = [&](vec* (*solve)(vec*, const ldu*, const vec*), const Picture& M) {
        const Vec x(solve(nullptr, f, b.get()));
        EXPECT_LT(distance(M * picture(x), picture(b)), 1e-10);
        const Vec same(vec_copy(nullptr, b.get()));  // in place
        EXPECT_EQ(solve(same.get(), f, same.get()), same.get());
        EXPECT_EQ(distance(picture(same), picture(x)), 0.0);
      };
      solves(ldu_fw_bw_solve_udut, u * D * transposed(u));
      solves(ldu_fw_bw_solve_ldlt_V1, transposed(u) * D * u);
      if (f->L) {
        const Picture l = combined(1, I, 1, picture(f->L));
        solves(ldu_fw_bw_solve_ldu, l * D * u);
        solves(ldu_fw_bw_solve_ldlt, l * D * transposed(l));
      }
      ldu_free(f);
    }
  }
  ldu* f = ldu_new_dim(3, 2, 4, 1);
  EXPECT_EQ(f->U->nnz, 4u);
  EXPECT_EQ(f->D->is_complex, 1);
  ldu_free(f);
  ldu_free(ldu_new());
  ldu_free(nullptr);
}

}  // namespace
