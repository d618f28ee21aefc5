// SPDX-License-Identifier: BSD-3-Clause
/// The classes of the incomplete LDL^T family, and the exported factor record.
#include <gtest/gtest.h>

#include "norv_log.hpp"
#include "norv_objects.hpp"
#include "smat_dense.hpp"

namespace {

using namespace vlm::test;

/// Symmetric with a heavy diagonal of both signs, or one sign.
Smat well_conditioned(RandomContainers& random, int n, int type, bool definite) {
  Smat A = random.matrix(unsigned(n), unsigned(n), type, 0.2, true);
  for (int i = 0; i < n; ++i) {
    double* const d = A->a + (A->ia[i] << A->is_complex);
    *d = definite || i % 3 ? 6 : -6;
  }
  return A;
}

/// Largest entry of b - A M^-1 b.
double residual(const Smat& A, precon* M, RandomContainers& random) {
  const Vec b = random.vector(A->m, A->is_complex);
  const Vec x(precon_solve(nullptr, M, b.get()));
  return distance(picture(A) * picture(x), picture(b));
}

/// Takes the thresholds away, so that the factor is exact.
void make_exact(precon* M, const std::string& name) {
  M->dparam[0] = 0;
  if (name == "ILDLT_BK") M->dparam[2] = 0;
  if (name.substr(0, 7) == "ILDLT_C" || name == "ILDLT_SP" || name == "PARILDLT") M->dparam[4] = 0;
}

TEST(IldltClasses, ExactFactorsSolve) {
  RandomContainers random(21);
  for (const std::string name :
       {"ILDLT_SP", "ILDLT_CP", "ILDLT_WS", "PARILDLT", "ILDLT_BK", "ILDLT", "ICHOL"})
    for (const int type : {NORV_REAL_SYM, NORV_CPX_SYM}) {
      if (type == NORV_CPX_SYM && name == "ICHOL") continue;
      const Smat A = well_conditioned(random, 40, type, name == "ICHOL");
      const Precon M(precon_new_by_name(name.c_str()));
      ASSERT_NE(M, nullptr) << name;
      make_exact(M.get(), name);
      if (name == "ILDLT_WS") M->dparam[4] = 0;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1) << name;
      EXPECT_LT(residual(A, M.get(), random), 1e-10) << name << " type " << type;
      EXPECT_GE(M->nnz, 40);
      if (type == NORV_REAL_SYM) {
        EXPECT_EQ(M->npos, name == "ICHOL" ? 40 : 26) << name;
        EXPECT_EQ(M->nneg, 40 - M->npos) << name;
      }
      // With result and right-hand side in one vector.
      const Vec b = random.vector(A->m, A->is_complex);
      const Vec x(precon_solve(nullptr, M.get(), b.get()));
      precon_solve(b.get(), M.get(), b.get());
      EXPECT_EQ(distance(picture(b), picture(x)), 0) << name;
      // A second setup replaces the first.
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_LT(residual(A, M.get(), random), 1e-10) << name;
    }
}

TEST(IldltClasses, DroppedFactorsStayClose) {
  RandomContainers random(2);
  const Smat A = well_conditioned(random, 60, NORV_REAL_SYM, false);
  for (const char* name : {"ILDLT_SP", "ILDLT_CP", "ILDLT_BK"}) {
    const Precon M(precon_new_by_name(name));
    M->dparam[0] = 0.05;
    precon_setup(M.get(), A.get());
    const double off = residual(A, M.get(), random);
    EXPECT_LT(off, 0.9) << name;
    EXPECT_GT(off, 1e-8) << name;
  }
}

TEST(IldltClasses, PermutedMemberOrdersFirst) {
  RandomContainers random(6);
  const Smat A = well_conditioned(random, 50, NORV_REAL_SYM, false);
  int entries[2];
  for (const int preordering : {0, 2}) {
    const Precon M(precon_ildltpm_create_param(0, 0, NORV_FILL_MAX_AVERAGE, 0, preordering));
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_LT(residual(A, M.get(), random), 1e-10) << preordering;
    entries[preordering / 2] = M->nnz;
  }
  EXPECT_NE(entries[0], entries[1]);
}

TEST(IldltClasses, FillLimitOfBunchKaufman) {
  RandomContainers random(6);
  const Smat A = well_conditioned(random, 50, NORV_REAL_SYM, true);
  const Precon M(precon_ildlt_bk_create_param(3, 0, 1e-4, 0, 0, 0));
  precon_setup(M.get(), A.get());
  EXPECT_LE(M->nnz, 50 + 3 * 50);  // three entries a row beside the diagonal
  EXPECT_GT(M->nnz, 50 + 2 * 50);
}

TEST(IldltClasses, PartsNeedTheirOrder) {
  RandomContainers random(31);
  NorvLog log(2);
  const Smat A = well_conditioned(random, 60, NORV_REAL_SYM, false);
  const Precon M(precon_new_by_name("PARILDLT"));
  M->iparam[7] = 1;
  EXPECT_EQ(precon_setup(M.get(), A.get()), 0);
  EXPECT_NE(log.take().find("Need a `metis_partinf2' reordering and partitioning!"),
            std::string::npos);
  M->iparam[7] = 5;
  ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
  const std::string text = log.take();
  for (const char* part : {"Setting up incomplete LDL^T PARILDLT (drop: ", "::  fact part (",
                           ":: setup sepr (", "[PARILDLT finished.  nnz(L): xxx,  mat: "})
    EXPECT_NE(text.find(part), std::string::npos) << part;
}

TEST(IldltClasses, RefuseWhatIsNoOption) {
  RandomContainers random(1);
  const Smat A = well_conditioned(random, 5, NORV_REAL_SYM, false);
  const auto set_up = [&](const char* name, int place, int value) {
    const Precon M(precon_new_by_name(name));
    M->iparam[place] = value;
    precon_setup(M.get(), A.get());
  };
  using ::testing::ExitedWithCode;
  EXPECT_EXIT(set_up("ILDLT_SP", 1, 2), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_SP", 1, 7), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_SP", 3, 0), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_SP", 3, 2), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_SP", 3, 9), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_CP", 3, 3), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_BK", 0, 2), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up("ILDLT_BK", 1, 1), ExitedWithCode(1), "");
  EXPECT_DEATH(set_up("ILDLT_SP", 0, 2), "fill_strategy == NORV_FILL_MAX_AVERAGE");
  const Smat C = well_conditioned(random, 5, NORV_CPX_SYM, false);
  EXPECT_DEATH(
      {
        const Precon M(precon_new_by_name("ILDLT_SP"));
        M->iparam[3] = NORV_2X2_DOMINANCE;
        precon_setup(M.get(), C.get());
      },
      "1 == 0");
}

TEST(IldltClasses, TellWhatTheyMeet) {
  RandomContainers random(3);
  const Smat A = well_conditioned(random, 8, NORV_REAL_SYM, false);
  EXPECT_DEATH(
      {
        const Precon M(precon_new_by_name("ICHOL"));
        precon_setup(M.get(), A.get());
      },
      "v->v\\[k\\] > 0.0");
  NorvLog log(2);
  const Smat U = random.matrix(8, 8, NORV_REAL_UNSYM, 0.5, true);
  const Precon chol(precon_new_by_name("ICHOL"));
  EXPECT_EQ(precon_setup(chol.get(), U.get()), 0);
  EXPECT_NE(log.take().find("Use Cholesky only with really symmetric matrices!"),
            std::string::npos);
  const Precon M(precon_new_by_name("ILDLT_SP"));
  EXPECT_EQ(precon_setup(M.get(), U.get()), 1);
  std::string text = log.take();
  EXPECT_NE(text.find("WARNING: Use ILDL^T only with really symmetric matrices!"),
            std::string::npos);
  M->iparam[2] = NORV_DELAY_PERTURB;
  M->dparam[3] = 5;
  precon_setup(M.get(), A.get());
  text = log.take();
  for (const char* part :
       {"Setting up incomplete LDL^T STPIV (drop: 1.0e-03, 1.0e+01;  1x1: 1.0e-08;  2x2: 1.0e-01)",
        "  - Use inverse-based dropping.", "  - Perturb scalar pivots smaller than 1.00e-08 ",
        "  - Tri-diagonal 2x2 pivoting (1.00e-01) ", "  - NO diagonal compensation.",
        "  - Postponing for |L^(-1)(k,:)| > kappa (5.00e+00).",
        "[ILDLT_STPIV finished.  nnz(L): ", "Number of negative eig.:            3"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
}

/// The factor record: L, D, coupling and Schur complement of a matrix with a delayed row.
TEST(IldltInfo, CutsIntoFactorCouplingAndSchurComplement) {
  RandomContainers random(12);
  for (const int type : {NORV_REAL_SYM, NORV_CPX_SYM}) {
    const int n = 30;
    Smat A = random.matrix(n, n, type, 0.6, true);
    for (int i = 0; i < n; i += 2)
      for (int part = 0; part <= A->is_complex; ++part)
        A->a[(A->ia[i] << A->is_complex) + part] *= 0.1;
    ildlt_info info{};
    const Perm p = random.permutation(n);
    info.perm = p.get();
    ASSERT_EQ(precon_ildlt_stpiv_factorize(0, 0, 1e-8, 0.8, 3, &info, 1, 1, 2, 1, 0, nullptr, 3, 1,
                                           A.get()),
              1);
    EXPECT_EQ(info.own_perm, 0);
    EXPECT_TRUE(perm_is_consistent(info.perm));
    ASSERT_GT(info.delay_cnt, 0);
    const int nf = n - info.delay_cnt;
    ASSERT_GT(nf, 1);
    smat *V = nullptr, *S = nullptr;
    precon_ildlt_stpiv_fc_split(&info, unsigned(nf), &V, &S);
    EXPECT_EQ(V->m, unsigned(nf));
    EXPECT_EQ(S->m, unsigned(info.delay_cnt));
    EXPECT_EQ(S->sym, 1);
    // [L 0; V' I] [D 0; 0 S] [L' V; 0 I]
    Picture L(n, n), D(n, n);
    for (int i = 0; i < n; ++i) L(i, i) = 1;
    const Picture R = picture(info.L), C = picture(V), T = picture(S);
    bool any_pair = false;
    for (int k = 0; k < nf; ++k) {
      D(k, k) = value(info.D->v, info.is_complex, std::size_t(k));
      const bool pair = bitvec_is_set(info.is_pivot22, unsigned(k));
      any_pair |= pair;
      for (int q = info.L->ia[k]; q < info.L->ia[k + 1]; q += pair ? 2 : 1) {
        L(info.L->ja[q], k) = value(info.L->a, info.is_complex, std::size_t(q));
        if (pair) L(info.L->ja[q], k + 1) = value(info.L->a, info.is_complex, std::size_t(q) + 1);
      }
      for (int j = nf; j < n; ++j) L(j, k) = C(k, j - nf);
      if (!pair) continue;
      D(k, k + 1) = D(k + 1, k) = value(info.E->v, info.is_complex, std::size_t(k));
      ++k;
      D(k, k) = value(info.D->v, info.is_complex, std::size_t(k));
      for (int j = nf; j < n; ++j) L(j, k) = C(k, j - nf);
    }
    EXPECT_TRUE(any_pair);
    for (int i = nf; i < n; ++i)
      for (int j = nf; j < n; ++j) D(i, j) = T(i - nf, j - nf);
    const Picture P = L * D * transposed(L), Q = picture(A);
    double worst = 0;
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        worst = std::max(worst, std::abs(P(info.perm->p[i], info.perm->p[j]) - Q(i, j)));
    EXPECT_LT(worst, 1e-9);
    smat_free(V);
    smat_free(S);
    precon_ildlt_stpiv_fact_free(&info, -1);
    EXPECT_EQ(info.L, nullptr);
  }
}

TEST(IldltInfo, WithoutDelaysNothingIsCutOff) {
  RandomContainers random(13);
  const Smat A = well_conditioned(random, 12, NORV_REAL_SYM, true);
  ildlt_info info{};
  precon_ildlt_stpiv_factorize(0, 0, 1e-8, 0.1, 0, &info, 1, 1, 2, 1, 0, nullptr, 3, 1, A.get());
  EXPECT_EQ(info.delay_cnt, 0);
  EXPECT_EQ(info.own_perm, 1);
  EXPECT_EQ(info.npos, 12);
  smat *V = A.get(), *S = A.get();
  precon_ildlt_stpiv_fc_split(&info, 12, &V, &S);
  EXPECT_EQ(V, nullptr);
  EXPECT_EQ(S, nullptr);
  precon_ildlt_stpiv_fact_free(&info, -1);
}

}  // namespace
