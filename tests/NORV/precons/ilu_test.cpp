// SPDX-License-Identifier: BSD-3-Clause
// Incomplete LU, sweeps and the matched diagonal: exact where nothing is dropped, the transposed
// application against the plain one, limits, patterns, pivots.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include "NORV/precons/lu_factor.hpp"
#include "NORV/precons/position_set.hpp"
#include "norv/classes.h"
#include "norv/krylov.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

using norv::FullRows;
using norv::LuFactor;

/// y'(M^-1 x) and (M^-T y)'x, without conjugation, are one number.
void expect_transposed(precon* M, unsigned n, bool cpx) {
  const Vec x = filled(n, cpx, 31), y = filled(n, cpx, 32);
  const Vec mx(precon_solve(nullptr, M, x.get())), my(precon_solve_trans(nullptr, M, y.get()));
  const cplx a = (transposed(picture(y)) * picture(mx))(0, 0);
  const cplx b = (transposed(picture(my)) * picture(x))(0, 0);
  EXPECT_LT(std::abs(a - b), 1e-10 * (std::abs(a) + vec_euclid_norm(mx.get()))) << M->name;
}

/// A random matrix, with a weak diagonal where asked for.
Smat unsymmetric(int type, bool weak) {
  const int cpx = type == NORV_CPX_UNSYM;
  return to_smat(weak ? badly_scaled(120, 3, 33, cpx ? 13 : 11)
                      : random_unsymmetric(120, 4, 0.9, 34, cpx ? 13 : 11));
}

TEST(Ilu, WithoutDroppingItSolves) {
  for (const int type : {NORV_REAL_UNSYM, NORV_CPX_UNSYM})
    for (const bool weak : {false, true})
      for (const char* name : {"ILUT", "ILUC"})
        for (const int style : {0, 1}) {
          SCOPED_TRACE(testing::Message() << name << type << weak << style);
          const Smat A = unsymmetric(type, weak);
          for (const int order : {0, 1}) {
            const Precon M(name[3] == 'T' ? precon_ilut_create_param(0.0, int(A->n))
                                          : precon_iluc_create_param(0.0, 0.0, 0.0, style));
            M->iparam[9] = order;
            ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
            ASSERT_EQ(precon_setup(M.get(), A.get()), 1);  // again, in place of the first
            const Vec b = filled(A->n, type == NORV_CPX_UNSYM, 35);
            const Vec x(precon_solve(nullptr, M.get(), b.get()));
            EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()), 1e-9);
            expect_transposed(M.get(), A->n, type == NORV_CPX_UNSYM);
            EXPECT_EQ(M->nperturbed, 0);
            EXPECT_GT(M->nnz, int(A->nnz));
          }
        }
}

template <class T>
Picture product_of(const LuFactor<T>& f) {
  Picture L(f.n, f.n), U(f.n, f.n);
  for (int i = 0; i < f.n; ++i) {
    L(i, i) = 1.0;
    U(i, i) = 1.0 / cplx(f.pivot[std::size_t(i)]);
    for (auto p = f.L.start[std::size_t(i)]; p < f.L.start[std::size_t(i) + 1]; ++p)
      (f.L_by_columns ? L(f.L.index[p], i) : L(i, f.L.index[p])) = f.L.value[p];
    for (auto p = f.U.start[std::size_t(i)]; p < f.U.start[std::size_t(i) + 1]; ++p)
      U(i, f.U.index[p]) = f.U.value[p];
  }
  return L * U;
}

// What makes it ILU(0): on the pattern the product is the matrix, and nothing else is stored.
TEST(Ilu, ZeroFillAgreesOnThePattern) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(structurally_symmetric(4, 36, cpx ? 3 : 1));
    const Picture dense = picture(A);
    const auto check = [&](auto kind) {
      using T = decltype(kind);
      const LuFactor<T> f = norv::factorize_ilu0(norv::full_rows<T>(A.get(), {}));
      EXPECT_EQ(f.entries(), A->nnz);
      const Picture LU = product_of(f);
      double off = 0, outside = 0;
      for (int i = 0; i < LU.m; ++i)
        for (int j = 0; j < LU.n; ++j)
          (dense(i, j) != 0.0 ? off : outside) =
              std::max(dense(i, j) != 0.0 ? off : outside, std::abs(LU(i, j) - dense(i, j)));
      EXPECT_LT(off, 1e-11);
      EXPECT_GT(outside, 1e-6);  // what was left out
    };
    if (cpx)
      check(zcomplex{});
    else
      check(double{});
    const Precon M = prepared("ILU0", A.get());
    expect_transposed(M.get(), A->n, cpx);
  }
}

TEST(Ilu, LimitsHold) {
  const Smat A = to_smat(convection_diffusion(10, 1.0, 37));
  const FullRows<double> rows = norv::full_rows<double>(A.get(), {});
  const auto longest = [](const norv::Triangle<double>& t) {
    std::int64_t most = 0;
    for (std::size_t i = 0; i + 1 < t.start.size(); ++i)
      most = std::max(most, t.start[i + 1] - t.start[i]);
    return most;
  };
  for (const int fill : {1, 4}) {
    const LuFactor<double> f = norv::factorize_ilut(rows, 0.0, fill);
    EXPECT_EQ(longest(f.L), fill);
    EXPECT_EQ(longest(f.U), fill);
    const LuFactor<double> c = norv::factorize_iluc(rows, {0.0, fill, 0.0, true});
    EXPECT_EQ(longest(c.L), fill);
    EXPECT_EQ(longest(c.U), fill);
    EXPECT_GT(c.dropped, 0);
  }
  std::int64_t before = std::numeric_limits<std::int64_t>::max();
  double distance_before = -1;
  for (const double drop : {1e-4, 1e-2, 1e-1}) {  // coarser factors are smaller and further off
    const LuFactor<double> f = norv::factorize_iluc(rows, {drop, -1, 0.0, true});
    const double off = distance(product_of(f), picture(A));
    EXPECT_LT(f.entries(), before);
    EXPECT_GT(off, distance_before);
    before = f.entries();
    distance_before = off;
  }
}

// A circuit: rows exchanged at random leave an order in which factors fill and are no use.
TEST(Ilu, MinimumDegreeSavesFillAndSteps) {
  const Smat A = to_smat(circuit(2000, 6));
  const Vec b = filled(A->n, false, 44);
  int nnz[2], steps[2];
  for (const int own_order : {0, 1}) {
    const Precon M(precon_iluc_create_param(1e-4, 10, 1e-8, 1));
    M->iparam[9] = own_order ? 2 : 0;
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    nnz[own_order] = M->nnz;
    const Vec x = zeros(A->n, false);
    const Solver s(solver_new("BICGSTAB"));
    solver_set_precon(s.get(), M.get());
    solver_set_maxiter(s.get(), 300);
    steps[own_order] = solver_solve(s.get(), A.get(), x.get(), b.get());
    if (!own_order) {
      EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()), 1e-7);
    }
  }
  EXPECT_LT(nnz[0], 0.7 * nnz[1]);
  EXPECT_LE(steps[0], steps[1]);
}

// Positions come out as from a sorted set, whatever is put in between.
TEST(Ilu, PositionsAscend) {
  for (const int n : {1, 64, 65, 5000, 300000}) {
    std::mt19937 random(static_cast<unsigned>(n));
    norv::PositionSet set(n);
    std::set<int> reference;
    for (int step = 0; step < 3000; ++step) {
      ASSERT_EQ(set.empty(), reference.empty());
      if (!reference.empty() && random() % 3 == 0) {
        ASSERT_EQ(set.take_first(), *reference.begin());
        reference.erase(reference.begin());
      } else {
        const int position = static_cast<int>(random() % static_cast<unsigned>(n));
        set.insert(position);
        reference.insert(position);
      }
    }
  }
}

TEST(Ilu, ReplacesZeroPivots) {
  const int row[] = {0, 0, 1, 1, 2}, col[] = {0, 1, 0, 1, 2};
  const double a[] = {0, 1, 1, 0, 2};
  const Smat A(smat_new_from_coord(3, 3, 5, row, col, a, NORV_REAL_UNSYM));
  for (const char* name : {"ILUT", "ILU0", "ILUC"}) {
    const Precon M(precon_new_by_name(name));
    M->iparam[8] = 2;  // no matching
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_GE(M->nperturbed, 1) << name;
    const Vec b = filled(3, false, 38), x(precon_solve(nullptr, M.get(), b.get()));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isfinite(x->v[i]));
    M->iparam[8] = 0;  // which takes the large entries instead
    ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
    EXPECT_EQ(M->nperturbed, 0) << name;
    precon_solve(x.get(), M.get(), b.get());
    EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()), 1e-15) << name;
  }
}

TEST(Ilu, RefusesBadOptionsAndTriangles) {
  NorvLog log(1);
  const Smat A = unsymmetric(NORV_REAL_UNSYM, false), triangle = to_smat(poisson2d(4));
  const Precon C(precon_iluc_create()), T(precon_ilut_create());
  EXPECT_EQ(precon_setup(C.get(), triangle.get()), 0);
  EXPECT_NE(log.take().find("ILUC needs full matrix structure!"), std::string::npos);
  EXPECT_DEATH(precon_setup(T.get(), triangle.get()), "!A->sym");
  C->iparam[1] = 7;
  EXPECT_EXIT(precon_setup(C.get(), A.get()), testing::ExitedWithCode(1), "");
  T->iparam[0] = -1;
  EXPECT_EXIT(precon_setup(T.get(), A.get()), testing::ExitedWithCode(1), "");
}

TEST(Sor, IsTheSweepFromZero) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(random_unsymmetric(60, 4, 1.2, 39, cpx ? 13 : 11));
    const Vec b = filled(60, cpx, 40);
    for (const int sweeps : {1, 3}) {
      const Precon M(precon_sor_create());
      EXPECT_EQ(M->dparam[0], 1.0);
      EXPECT_EQ(M->iparam[0], 1);
      M->dparam[0] = 0.8;
      M->iparam[0] = sweeps;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      const Vec x(precon_solve(nullptr, M.get(), b.get())), y = zeros(60, cpx);
      for (int k = 0; k < sweeps; ++k) sor_iter(A.get(), y.get(), b.get(), 0.8);
      EXPECT_TRUE(vec_equal(x.get(), y.get()));
      expect_transposed(M.get(), 60, cpx);
    }
  }
}

// Unsymmetric: M is the matrix of the matched entries.  Symmetric: M^-1 scales to entries of at
// most 1, with the square of the factors.
TEST(MpsDiag, DividesByTheMatchedEntries) {
  for (const bool cpx : {false, true}) {
    const Smat A = to_smat(badly_scaled(50, 2, 41, cpx ? 13 : 11));
    const Precon M = prepared("MPS_DIAG", A.get());
    const Picture dense = picture(A);
    for (int i = 0; i < 50; ++i) {
      const Vec e = zeros(50, cpx);
      e->v[cpx ? 2 * i : i] = 1;
      const Vec x(precon_solve(nullptr, M.get(), e.get()));
      int at = -1, count = 0;
      for (int j = 0; j < 50; ++j)
        if (value(x->v, cpx, std::size_t(j)) != 0.0) at = j, ++count;
      ASSERT_EQ(count, 1);
      EXPECT_LT(std::abs(dense(i, at) * value(x->v, cpx, std::size_t(at)) - 1.0), 1e-14);
    }
    expect_transposed(M.get(), 50, cpx);
    const Smat S = to_smat(random_indefinite(50, 0.3, 0.5, 42, cpx ? 6 : -2));
    const Precon D = prepared("MPS_DIAG", S.get());
    Vec ones = zeros(50, cpx);
    for (int i = 0; i < 50; ++i) ones->v[cpx ? 2 * i : i] = 1;
    const Vec d(precon_solve(nullptr, D.get(), ones.get()));
    double largest = 0;
    const Picture s = picture(S);
    for (int i = 0; i < 50; ++i)
      for (int j = 0; j < 50; ++j)
        largest = std::max(
            largest, std::abs(s(i, j)) * std::sqrt(std::abs(value(d->v, cpx, std::size_t(i))) *
                                                   std::abs(value(d->v, cpx, std::size_t(j)))));
    EXPECT_NEAR(largest, 1.0, 1e-9);
  }
  const Smat deficient = to_smat(structurally_singular(20, 43));
  NorvLog log(1);
  const Precon M = prepared("MPS_DIAG", deficient.get());
  EXPECT_NE(log.take().find("NOT using MPS scaling."), std::string::npos);
}

}  // namespace
}  // namespace vlm::test
