// SPDX-License-Identifier: BSD-3-Clause
/// Multilevel LDL^T: exact without dropping, whatever the levels; inertia; what phases 22 and 23
/// keep; the ends of the hierarchy.
#include "NORV/multilevel/mildlt.hpp"

#include <numeric>

#include "norv/ildlt.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"
#include "reference.hpp"
#include "smat_dense.hpp"

namespace {

using namespace vlm::test;

struct Settings {
  double kappa = 5, max_fill = 0, drop = 0, schur_drop = 0;
  int preordering = 3, max_levels = 10, min_level_size = 3, compensation = 0;
};

Precon create(const Settings& s, int is_complex) {
  return Precon(precon_mildlt_create_param(s.kappa, s.max_fill, s.drop, s.schur_drop, 1e-8, 0.616,
                                           1, s.preordering, s.max_levels, s.min_level_size, 1,
                                           s.compensation, nullptr, 3, 2, 1, is_complex));
}

Smat indefinite(RandomContainers& random, int n, int type, double density) {
  Smat A = random.matrix(unsigned(n), unsigned(n), type, density, true);
  for (int i = 0; i < n; ++i)
    if (random.number() < 0)
      for (int part = 0; part <= A->is_complex; ++part)
        A->a[(A->ia[i] << A->is_complex) + part] = 0;
  return A;
}

double residual(const Smat& A, precon* M, RandomContainers& random) {
  const Vec b = random.vector(A->m, A->is_complex);
  const Vec x(precon_solve(nullptr, M, b.get()));
  double size = 1;
  for (const cplx& v : picture(x).v) size = std::max(size, std::abs(v));
  return distance(picture(A) * picture(x), picture(b)) / size;
}

Inertia inertia(const Smat& A) {
  vlm::test::Dense D;
  D.n = int(A->m);
  const Picture P = picture(A);
  D.a.assign(P.v.begin(), P.v.end());
  return dense_inertia(D);
}

class MildltTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("OMP_NUM_THREADS", "1", 0); }
  RandomContainers random{31};
};

TEST_F(MildltTest, ExactWithoutDropping) {
  for (const int type : {NORV_REAL_SYM, NORV_CPX_SYM})
    for (int preordering = 0; preordering <= 4; ++preordering)
      for (int run = 0; run < 6; ++run) {
        const Smat A = indefinite(random, 30 + 20 * run, type, 0.2);
        const Smat before(smat_copy(A.get()));
        Settings s;
        s.preordering = preordering;
        const Precon M = create(s, A->is_complex);
        ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
        EXPECT_LT(residual(A, M.get(), random), 1e-9) << preordering << " run " << run;
        EXPECT_TRUE(smat_equal_same_sym(A.get(), before.get()));
        if (type == NORV_REAL_SYM && M->nperturbed == 0) {
          EXPECT_EQ((Inertia{M->npos, M->nneg}), inertia(A)) << preordering << " run " << run;
        }
      }
}

TEST_F(MildltTest, SeveralLevelsAreReported) {
  NorvLog log(1);
  const Smat A = indefinite(random, 200, NORV_REAL_SYM, 0.05);
  Settings s;
  s.kappa = 2;
  s.max_levels = 3;
  const Precon M = create(s, 0);
  precon_setup(M.get(), A.get());
  const std::string text = log.take();
  for (const char* part :
       {"Setting up MILDL^T ML precon ...", "Factorizing level 0 ...", "Factorizing level 1 ...",
        "Factorizing coarse grid matrix ...", " Level Summary:", "  Level 2: ", "tot. nnz.:",
        "Total number of negative eig.:     ", "secs (3 levels)."})
    EXPECT_NE(text.find(part), std::string::npos) << part;
  EXPECT_EQ(text.find("Factorizing level 2"), std::string::npos);
  EXPECT_LT(residual(A, M.get(), random), 1e-9);
}

TEST_F(MildltTest, SmallMatricesGoToTheDirectSolver) {
  NorvLog log(1);
  const Smat A = indefinite(random, 40, NORV_REAL_SYM, 0.2);
  Settings s;
  s.min_level_size = 40;
  s.drop = 0.5;  // would spoil an incomplete level
  const Precon M = create(s, 0);
  precon_setup(M.get(), A.get());
  EXPECT_EQ(log.take().find("Factorizing level"), std::string::npos);
  EXPECT_LT(residual(A, M.get(), random), 1e-10);
  EXPECT_EQ((Inertia{M->npos, M->nneg}), inertia(A));
}

TEST_F(MildltTest, LevelWithoutPivotsLeavesAllToTheDirectSolver) {
  // Scaled diagonal entries below the threshold and no neighbour to pair with: a zero diagonal in
  // the natural order, coupled in a ring of steps of 3.
  const int n = 40;
  std::vector<int> i, j;
  std::vector<double> a;
  for (int k = 0; k < n; ++k) {
    i.push_back(k), j.push_back(k), a.push_back(0.001);
    const int l = (k + n / 2) % n;
    if (k < l) i.push_back(k), j.push_back(l), a.push_back(1);
  }
  const Smat A(smat_new_from_coord(n, n, unsigned(i.size()), i.data(), j.data(), a.data(), 1));
  Settings s;
  s.preordering = 0;
  const Precon M = create(s, 0);
  NorvLog log(1);
  precon_setup(M.get(), A.get());
  EXPECT_NE(log.take().find("secs (2 levels)."), std::string::npos);
  EXPECT_LT(residual(A, M.get(), random), 1e-12);
  EXPECT_EQ(M->npos, n / 2);
  EXPECT_EQ(M->nneg, n / 2);
}

TEST_F(MildltTest, RefactorizationKeepsOrderAndScaling) {
  Smat A = indefinite(random, 150, NORV_REAL_SYM, 0.05);
  Settings s;
  s.drop = 0.01;
  s.schur_drop = 0.01;
  const Precon M = create(s, 0);
  precon_setup(M.get(), A.get());
  const Vec b = random.vector(A->m, 0);
  const Vec x(precon_solve(nullptr, M.get(), b.get()));
  const int entries = M->nnz;
  for (const int phase : {22, 23}) {
    precon_free(M.get(), phase);
    M->phase = phase;
    precon_setup(M.get(), A.get());
    const Vec y(precon_solve(nullptr, M.get(), b.get()));
    EXPECT_EQ(distance(picture(x), picture(y)), 0) << phase;  // the same matrix: the same factor
    EXPECT_EQ(M->nnz, entries);
  }
  // Values under which a new matching would scale otherwise: the first level keeps its factors, so
  // the preconditioner of 2 A is half of that of A to the last bit.
  smat_scale_scalar(2, A.get());
  precon_free(M.get(), 22);
  M->phase = 22;
  M->dparam[0] = 0;  // exact
  M->dparam[1] = 0;
  precon_setup(M.get(), A.get());
  EXPECT_LT(residual(A, M.get(), random), 1e-9);
}

TEST_F(MildltTest, CompensationTargetsGoThroughTheLevels) {
  Smat A = random.matrix(120, 120, NORV_REAL_SYM, 0.05, true);
  for (int i = 0; i < 120; ++i) A->a[A->ia[i]] += 3;
  const Vec target(vec_new(120));
  for (int i = 0; i < 120; ++i) target->v[i] = 1 + 0.1 * random.number();
  // B^-1 t = A t, so B applied to A t gives t although entries are dropped.  1x1 pivots only: a
  // positive threshold of 0 for pairs.
  const Precon M(precon_mildlt_create_param(1.5, 0, 0.05, 0, 1e-8, 0.0, 1, 3, 4, 3, 1, 1,
                                            target.get(), 3, 2, 1, 0));
  precon_setup(M.get(), A.get());
  const Vec b(smat_vecmul(nullptr, A.get(), target.get()));
  const Vec x(precon_solve(nullptr, M.get(), b.get()));
  EXPECT_LT(distance(picture(x), picture(target)), 1e-8);
  const Vec other = random.vector(120, 0);
  const Vec y(precon_solve(nullptr, M.get(), other.get()));
  EXPECT_GT(distance(picture(A) * picture(y), picture(other)), 1e-6);  // something was dropped
}

TEST_F(MildltTest, RefusesWhatIsNoOption) {
  const Smat A = indefinite(random, 10, NORV_REAL_SYM, 0.3);
  const auto set_up = [&](int place, int option) {
    const Precon M = create({}, 0);
    M->iparam[place] = option;
    precon_setup(M.get(), A.get());
  };
  using ::testing::ExitedWithCode;
  EXPECT_EXIT(set_up(1, 5), ExitedWithCode(1), "");
  EXPECT_EXIT(set_up(8, 0), ExitedWithCode(1), "");
  const Smat U = random.matrix(10, 10, NORV_REAL_UNSYM, 0.5, true);
  EXPECT_DEATH(
      {
        const Precon M = create({}, 0);
        precon_setup(M.get(), U.get());
      },
      "A->sym");
}

// A later setup with other values finds other rows on the lower levels: their orders still serve,
// and the factor is exact without dropping.
TEST_F(MildltTest, OrdersOfAllLevelsServeOtherValues) {
  NorvLog log(0);
  for (const int type : {NORV_REAL_SYM, NORV_CPX_SYM})
    for (const double change : {0.0, 1e-3, 0.1, 10.0}) {
      SCOPED_TRACE(change);
      const Smat A = indefinite(random, 300, type, 0.03);
      Settings s;
      s.kappa = 2;
      s.max_levels = 4;
      const Precon M = create(s, A->is_complex);
      M->phase = 12;
      precon_setup(M.get(), A.get());
      for (unsigned k = 0; k < A->nnz << A->is_complex; ++k)
        A->a[k] *= 1 + change * random.number();
      precon_free(M.get(), 22);
      M->phase = 22;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      EXPECT_LT(residual(A, M.get(), random), 1e-8);
    }
}

// A diagonal matrix has no analysis, and so no order of its own.
TEST_F(MildltTest, DiagonalCoarsestLevel) {
  NorvLog log(0);
  std::vector<int> i(40);
  std::iota(i.begin(), i.end(), 0);
  std::vector<double> a(40);
  for (int k = 0; k < 40; ++k) a[k] = k % 2 ? 2.0 : -1.0;
  const Smat A(smat_new_from_coord(40, 40, 40, i.data(), i.data(), a.data(), 1));
  Settings s;
  s.min_level_size = 40;
  const Precon M = create(s, 0);
  for (const int phase : {12, 22}) {
    M->phase = phase;
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_LT(residual(A, M.get(), random), 1e-12);
    EXPECT_EQ(M->nneg, 20);
    precon_free(M.get(), 22);
  }
}

/// A level of the rows 10, 20, ... of a larger matrix: a chain with the off-diagonal entries e.
vlm::norv::UpperRows<double> chain(const std::vector<double>& e) {
  const int n = int(e.size()) + 1;
  std::vector<int> i, j;
  std::vector<double> a;
  for (int k = 0; k < n; ++k) {
    i.push_back(k), j.push_back(k), a.push_back(k == 2 ? 4 : 1);
    if (k + 1 < n) i.push_back(k), j.push_back(k + 1), a.push_back(e[k]);
  }
  const Smat A(smat_new_from_coord(unsigned(n), unsigned(n), unsigned(i.size()), i.data(), j.data(),
                                   a.data(), 1));
  return vlm::norv::permuted_upper<double>(A.get(), nullptr, nullptr);
}

TEST(Preordering, InheritedOrder) {
  using vlm::norv::inherit_order;
  constexpr int n = 500, m = 30;
  std::vector<double> e(m - 1, 0.5);
  e[1] = 3, e[2] = -8;  // row 2 has row 3 as its strongest neighbour
  const auto A = chain(e);
  vlm::Vector<int> row;
  for (int k = 0; k < m; ++k) row.push_back(10 * k);
  // The order knows all rows but 20, and row 300 besides, from the last to the first.
  vlm::norv::KeptOrder kept;
  for (int k = 0; k <= m; ++k)
    if (k != 2) kept.row.push_back(10 * k);
  for (int k = 0; k < m; ++k) kept.order.place.push_back(m - 1 - k), kept.order.scale.push_back(1);
  const auto level = inherit_order(A, row, kept, n);
  ASSERT_EQ(level.place.size(), std::size_t{m});
  for (int k = 0; k < m; ++k)
    EXPECT_EQ(level.place[k], k == 2 ? m - 3 : k == 3 ? m - 4 : m - 1 - k);
  for (int k = 0; k < m; ++k) EXPECT_EQ(level.scale[k], k == 2 ? 1.0 / 8 : 1) << k;

  kept.order.scale.clear();  // an order alone
  EXPECT_EQ(inherit_order(A, row, kept, n).place, level.place);
  kept.order.scale.assign(m, 1e-3);  // which no longer fits
  EXPECT_TRUE(inherit_order(A, row, kept, n).empty());
  kept.order.scale.assign(m, 1);
  for (int k = 10; k < 14; ++k) row[k] += 1;  // too many that it doesn't know
  EXPECT_TRUE(inherit_order(A, row, kept, n).empty());
}

/// Matrices whose diagonals are zero, matched in pairs: the order puts partners side by side and
/// scales matched entries to 1.
TEST(Preordering, MatchedOrderKeepsPartnersTogether) {
  RandomContainers random(8);
  const int n = 60;
  std::vector<int> i, j;
  std::vector<double> a;
  const Perm p = random.permutation(n);
  for (int k = 0; k < n; k += 2) {
    const int u = std::min(p->p[k], p->p[k + 1]), v = std::max(p->p[k], p->p[k + 1]);
    i.push_back(u), j.push_back(v), a.push_back(std::pow(10, 3 * random.number()));
  }
  for (int k = 0; k < n; ++k) i.push_back(k), j.push_back(k), a.push_back(0);
  const Smat A(smat_new_from_coord(n, n, unsigned(i.size()), i.data(), j.data(), a.data(), 1));
  for (const auto style :
       {vlm::norv::Preordering::metis_matched, vlm::norv::Preordering::amd_matched}) {
    const vlm::norv::LevelOrder order =
        vlm::norv::order_level(vlm::norv::permuted_upper<double>(A.get(), nullptr, nullptr), style);
    for (int k = 0; k < n; k += 2) {
      const int u = p->p[k], v = p->p[k + 1];
      EXPECT_EQ(order.place[u] / 2, order.place[v] / 2);
      EXPECT_NEAR(order.scale[u] * order.scale[v] *
                      std::fabs(smat_get_ij_elem(A.get(), unsigned(u), unsigned(v))),
                  1, 1e-12);
    }
  }
}

TEST(Preordering, EquilibrationBringsLargestEntriesToOne) {
  RandomContainers random(8);
  const int n = 50;
  const Smat A = random.matrix(n, n, NORV_REAL_SYM, 0.2, true);
  for (unsigned k = 0; k < A->nnz; ++k) A->a[k] *= std::pow(10, 4 * random.number());
  const auto order =
      vlm::norv::order_level(vlm::norv::permuted_upper<double>(A.get(), nullptr, nullptr),
                             vlm::norv::Preordering::amd_equilibrated);
  const Picture P = picture(A);
  for (int r = 0; r < n; ++r) {
    double largest = 0;
    for (int c = 0; c < n; ++c)
      largest = std::max(largest, std::abs(P(r, c)) * order.scale[r] * order.scale[c]);
    EXPECT_NEAR(largest, 1, 0.1) << r;
  }
}

}  // namespace
