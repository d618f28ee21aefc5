// SPDX-License-Identifier: BSD-3-Clause
// The Krylov methods beside SQMR: every one with what it fits, residuals by plain sums; how they
// end; least squares against dense solutions.
#include "NORV/solvers/krylov.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "norv/interface.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

/// What a method presumes of a matrix.
enum class Class { definite, hermitian_definite, indefinite, hermitian, unsymmetric };

struct Problem {
  const char* name;
  Class kind;
  Matrix matrix;
};

std::vector<Problem> family() {
  return {{"poisson", Class::definite, poisson2d(17)},
          {"plate", Class::definite, plate(9, 3)},
          {"complex definite", Class::hermitian_definite, expanded(random_spd(200, 5, 4, 4))},
          {"indefinite", Class::indefinite, shifted_laplacian(9, 0.9, true, 5)},
          {"hermitian", Class::hermitian, expanded(magnetic_laplacian(6, 2.3, 6))},
          {"convection", Class::unsymmetric, convection_diffusion(15, 2.0, 7)},
          {"complex", Class::unsymmetric, convection_diffusion(12, 1.0, 8, 13)},
          {"random", Class::unsymmetric, random_unsymmetric(150, 4, 0.8, 9)},
          {"structurally symmetric", Class::unsymmetric, structurally_symmetric(5, 10)},
          {"poisson, both triangles", Class::definite, expanded(poisson2d(17))},
          {"flow", Class::indefinite, stokes(6)}};
}

bool fits(const std::string& method, const Problem& p) {
  const bool definite = p.kind == Class::definite || p.kind == Class::hermitian_definite;
  if (method == "PCG" || method == "PCG2") return definite;
  if (method == "MINRES" || method == "SYMMLQ") return p.kind != Class::unsymmetric;
  if (method == "SQMR") return !p.matrix.complex() && p.kind != Class::unsymmetric;
  if (method == "GS") return false;  // by itself, below
  return true;
}

/// The matrices of a preconditioner, and whether a symmetric one has a symmetric inverse.
enum class Takes { any, full, upper, symmetric, saddle };
struct PreconRow {
  const char* name;
  Takes takes;
  bool symmetric;
};
constexpr PreconRow precons[] = {
    {"DUMMY", Takes::any, true},       {"DIAG", Takes::any, true},
    {"MPS_DIAG", Takes::any, true},    {"LU", Takes::any, true},
    {"SPAIONE", Takes::any, true},     {"SPAINDIAG", Takes::any, true},
    {"XFSAI", Takes::symmetric, true}, {"MFSAI", Takes::symmetric, true},
    {"ILUT", Takes::full, false},      {"ILU0", Takes::full, false},
    {"ILUC", Takes::full, false},      {"SOR", Takes::full, false},
    {"BLOCKLU", Takes::full, false},   {"BLOCKGS", Takes::full, false},
    {"AML", Takes::full, true},        {"AMG", Takes::full, true},
    {"SMAGGR", Takes::full, true},     {"ICHOL", Takes::upper, true},
    {"ILDLT", Takes::upper, true},     {"ILDLT_BK", Takes::upper, true},
    {"ILDLT_CP", Takes::upper, true},  {"ILDLT_SP", Takes::upper, true},
    {"ILDLT_WS", Takes::upper, true},  {"PARILDLT", Takes::upper, true},
    {"MILDLT", Takes::upper, true},    {"CP_DIRECT", Takes::saddle, true},
    {"AUGBLOCK", Takes::saddle, true}};

/// Whether a preconditioner keeps what the method presumes.
bool fits(const std::string& method, const PreconRow& M, const Problem& p) {
  const std::string name = M.name;
  const bool definite_M =
      method == "PCG" || method == "PCG2" || method == "MINRES" || method == "SYMMLQ";
  const bool definite = p.kind == Class::definite || p.kind == Class::hermitian_definite;
  const bool hermitian = p.kind == Class::hermitian || p.kind == Class::hermitian_definite;
  const bool flow = std::string(p.name) == "flow";
  // BICGSTAB meets a breakdown with CP_DIRECT; GMRES measures after the preconditioner, too far
  // off.
  if (M.takes == Takes::saddle)
    return flow && !definite_M &&
           ((name == "AUGBLOCK" && method != "GMRESDR") ||
            (name == "CP_DIRECT" && (method == "GMRESDR" || method == "SQMR")));
  if (flow) return !definite_M && (name == "LU" || name == "MFSAI" || name == "ILDLT_SP");
  if (M.takes == Takes::full && p.matrix.triangle()) return false;
  if (M.takes == Takes::upper && !p.matrix.triangle()) return false;
  if (M.takes == Takes::symmetric && p.kind != Class::definite) return false;
  if ((name == "ICHOL" || name == "ILDLT") && !definite) return false;
  if ((name == "AML" || name == "AMG" || name == "SMAGGR") && p.kind != Class::definite)
    return false;
  if (name == "DUMMY") return true;
  if (method == "SQMR" && !M.symmetric) return false;
  if (definite_M && !(definite && M.symmetric)) return false;
  if (hermitian) return name == "DIAG";
  if (method == "QMR" && (name == "AML" || name == "AMG" || name == "SMAGGR")) return false;
  // On a whole matrix these are not symmetric.
  const bool whole = !p.matrix.triangle() && (name == "SPAIONE" || name == "SPAINDIAG");
  return !(whole && definite_M);
}

class EveryMethod : public testing::TestWithParam<const char*> {};

TEST_P(EveryMethod, SolvesWithWhatItFits) {
  const std::string method = GetParam();
  int solved = 0;
  setenv("OMP_NUM_THREADS", "1", 1);
  for (const Problem& p : family()) {
    if (!fits(method, p)) continue;
    const Smat A = to_smat(p.matrix);
    const bool cpx = p.matrix.complex();
    const Vec b = filled(A->m, cpx, 1);
    for (const PreconRow& row : precons) {
      if (!fits(method, row, p)) continue;
      SCOPED_TRACE(std::string(p.name) + " " + row.name);
      const Precon M(precon_new_by_name(row.name));
      if (std::string(row.name) == "SMAGGR") M->iparam[0] = 1, M->iparam[2] = 30;
      if (std::string(row.name) == "AMG") M->iparam[2] = 30;
      ASSERT_EQ(precon_setup(M.get(), A.get()), 1);
      for (const unsigned seed : {0u, 2u}) {  // from zero, and from a guess
        const Vec x = seed == 0 ? zeros(A->m, cpx) : filled(A->m, cpx, seed);
        const Solver s(solver_new(method.c_str()));
        solver_set_precon(s.get(), M.get());
        solver_set_epsilon(s.get(), 1e-10);
        solver_set_maxiter(s.get(), 3000);
        solver_set_residual_history(s.get());
        const int count = solver_solve(s.get(), A.get(), x.get(), b.get());
        EXPECT_EQ(count, s->iters);
        EXPECT_LT(count, 3000);
        EXPECT_LT(s->res, 1e-10);
        // MINRES, SYMMLQ and GMRES measure the residual in the preconditioner's norm.
        EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()),
                  row.takes == Takes::saddle ? 1e-7 : 1e-8);
        if (count > 0) {
          ASSERT_EQ(int(s->history->n), count);
          EXPECT_LT(s->history->v[count - 1], 1e-10);
        }
        ++solved;
      }
    }
  }
  EXPECT_GE(solved, 12);
}
INSTANTIATE_TEST_SUITE_P(Krylov, EveryMethod,
                         testing::Values("PCG", "PCG2", "BICGSTAB", "GMRES", "GMRESDR", "QMR",
                                         "MINRES", "SYMMLQ", "SQMR"),
                         [](const auto& each) { return std::string(each.param); });

using Full = KrylovResult (*)(const KrylovProblem&);
struct Named {
  const char* name;
  Full solve;
};
constexpr Named full_forms[] = {{"PCG", pcg},
                                {"BICGSTAB", bicgstab},
                                {"QMR", qmr},
                                {"GMRES", gmres},
                                {"GMRESDR", gmres_deflated}};

/// Positive definite, so that every method takes it.
Smat definite() { return to_smat(poisson2d(14)); }

TEST(KrylovEnds, ByEachCriterion) {
  const Smat A = definite();
  const Vec b = filled(A->m, false, 3);
  vec_scale(50.0, b.get());
  const double norm_b = vec_euclid_norm(b.get());
  for (const Named& each : full_forms) {
    SCOPED_TRACE(each.name);
    const auto run = [&](int criterion, double epsilon, const Vec& x) {
      return each.solve(
          {epsilon, A.get(), x.get(), nullptr, b.get(), nullptr, 500, 500, criterion, nullptr, 60});
    };
    for (const int criterion : {0, 1, 2}) {
      const Vec x = filled(A->m, false, 4);
      vec_scale(3.0, x.get());
      const double initial = residual_by_rows(A.get(), x.get(), b.get()) * norm_b;
      const double scale = criterion == 0 ? norm_b : criterion == 1 ? 1.0 : initial;
      const KrylovResult result = run(criterion, 1e-6, x);
      EXPECT_EQ(result.end, KrylovEnd::solved);
      EXPECT_GT(result.iterations, 5);
      const double reached = residual_by_rows(A.get(), x.get(), b.get()) * norm_b / scale;
      EXPECT_LT(reached, 1.01e-6);
      EXPECT_GT(reached, 1e-11);  // it stopped there, and not by another criterion
      const Vec y = filled(A->m, false, 4);
      vec_scale(3.0, y.get());
      EXPECT_GT(run(criterion, 1e-7, y).iterations, result.iterations);
    }
    const Vec x = zeros(A->m, false);  // no criterion
    const KrylovResult never =
        each.solve({0.5, A.get(), x.get(), nullptr, b.get(), nullptr, 7, 7, 3, nullptr, 60});
    EXPECT_EQ(never.iterations, 7);
    EXPECT_EQ(never.end, KrylovEnd::limit);
  }
}

TEST(KrylovEnds, ByTheLimit) {
  const Smat A = definite();
  const Vec b = filled(A->m, false, 5);
  for (const Named& each : full_forms) {
    SCOPED_TRACE(each.name);
    const auto run = [&](int maxiter) {
      const Vec x = zeros(A->m, false), best = filled(A->m, false, 6);
      const KrylovResult result = each.solve(
          {1e-8, A.get(), x.get(), best.get(), b.get(), nullptr, maxiter, maxiter, 0, nullptr, 60});
      EXPECT_TRUE(vec_equal(x.get(), best.get()));
      return result;
    };
    const int needed = run(500).iterations;
    EXPECT_EQ(run(needed).end, KrylovEnd::solved);
    EXPECT_EQ(run(needed).iterations, needed);
    EXPECT_EQ(run(needed - 1).end, KrylovEnd::limit);
    EXPECT_EQ(run(needed - 1).iterations, needed - 1);
    EXPECT_EQ(run(0).iterations, 0);
  }
}

// b has a part outside of the range of A, which no step takes off.
TEST(KrylovEnds, ByStagnation) {
  std::vector<int> index(300);
  std::iota(index.begin(), index.end(), 0);
  std::vector<double> d(300);
  for (int i = 0; i < 300; ++i) d[std::size_t(i)] = i;
  const Smat A(smat_new_from_coord(300, 300, 300, index.data(), index.data(), d.data(), 0));
  const Vec b = filled(300, false, 7);
  for (const Named& each : full_forms) {
    SCOPED_TRACE(each.name);
    const bool window = std::string(each.name).substr(0, 5) == "GMRES";
    const auto run = [&](int non_improvement) {
      const Vec x = zeros(300, false), best = filled(300, false, 6);
      const KrylovResult result = each.solve({1e-14, A.get(), x.get(), best.get(), b.get(), nullptr,
                                              4000, non_improvement, 0, nullptr, 40});
      EXPECT_TRUE(vec_equal(x.get(), best.get()));
      return result;
    };
    const KrylovResult result = run(window ? 5 : 40);
    EXPECT_EQ(result.end, KrylovEnd::stagnation);
    EXPECT_GE(result.iterations, window ? 6 : 41);
    EXPECT_LT(result.iterations, 4000);
    if (window) {
      EXPECT_NE(run(6).end, KrylovEnd::stagnation);  // the window has 5 places
    }
  }
}

TEST(KrylovEnds, ByBreakdown) {
  const int row[] = {0, 1}, col[] = {1, 0};
  const double a[] = {1, 1};
  const Smat swap(smat_new_from_coord(2, 2, 2, row, col, a, NORV_REAL_UNSYM));
  const Vec e(vec_new_zero(2));
  e->v[0] = 1;
  for (const Named& each : full_forms) {
    SCOPED_TRACE(each.name);
    const Vec x(vec_new_zero(2)), best = filled(2, false, 6);
    const KrylovResult result = each.solve(
        {1e-12, swap.get(), x.get(), best.get(), e.get(), nullptr, 50, 50, 0, nullptr, 10});
    EXPECT_TRUE(vec_equal(x.get(), best.get()));
    if (std::string(each.name).substr(0, 5) == "GMRES") {  // it goes on
      EXPECT_EQ(result.end, KrylovEnd::solved);
      EXPECT_EQ(x->v[1], 1.0);
    } else {
      EXPECT_EQ(result.end, KrylovEnd::breakdown);
      EXPECT_EQ(result.iterations, 1);
      EXPECT_EQ(x->v[0], 0.0);
    }
  }
  // An operator that is zero ends GMRES, with x as it was.
  const double none[] = {0, 0};
  const Smat zero(smat_new_from_coord(2, 2, 2, row, row, none, NORV_REAL_UNSYM));
  const Vec x(vec_new_zero(2));
  EXPECT_EQ(
      gmres({1e-12, zero.get(), x.get(), nullptr, e.get(), nullptr, 50, 50, 0, nullptr, 10}).end,
      KrylovEnd::breakdown);
  EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
}

// Zero right-hand side, exact guess, and a guess that is no number.
TEST(KrylovEnds, AtOnce) {
  const Smat A = to_smat(expanded(poisson2d(6)));
  const Vec zero = zeros(36, false), guess(vec_new(36));
  for (int i = 0; i < 36; ++i) guess->v[i] = i - 7;
  const Vec b(smat_vecmul(nullptr, A.get(), guess.get()));
  for (const char* name :
       {"GS", "BICGSTAB", "QMR", "PCG", "PCG2", "GMRES", "GMRESDR", "SYMMLQ", "MINRES"}) {
    SCOPED_TRACE(name);
    const Solver s(solver_new(name));
    const Vec x = zeros(36, false);
    EXPECT_EQ(solver_solve(s.get(), A.get(), x.get(), zero.get()), 0);
    EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
    EXPECT_EQ(s->res, 0.0);
    vec_copy(x.get(), guess.get());
    EXPECT_EQ(solver_solve(s.get(), A.get(), x.get(), b.get()), 0);
    EXPECT_TRUE(vec_equal(x.get(), guess.get()));
  }
  for (const Named& each : full_forms) {
    SCOPED_TRACE(each.name);
    const Vec x = zeros(36, false), best = filled(36, false, 6);
    each.solve({1e-8, A.get(), x.get(), best.get(), zero.get(), nullptr, 50, 50, 0, nullptr, 10});
    EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
    EXPECT_EQ(vec_inf_norm(best.get()), 0.0);
  }
}

TEST(Qmrpack, IsNotAvailable) {
  NorvLog log(1);
  const Smat A = definite();
  const Vec x = filled(A->m, false, 8), before(vec_copy(nullptr, x.get()));
  const Solver s(solver_new("QMRPACK"));
  EXPECT_EQ(solver_solve(s.get(), A.get(), x.get(), before.get()), 0);
  EXPECT_TRUE(vec_equal(x.get(), before.get()));
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> ERROR: QMRPACK not available.\n");
}

// Restarts lose what deflation keeps: the small eigenvalues.
TEST(GmresDr, NeedsFewerStepsThanPlainRestarts) {
  for (const bool cpx : {false, true}) {
    Smat A = to_smat(poisson2d(40));
    if (cpx) {  // times a phase
      Smat turned(smat_new_nnz(A->m, A->n, A->nnz, NORV_CPX_SYM));
      std::copy_n(A->ia, A->m + 1, turned->ia);
      std::copy_n(A->ja, A->nnz, turned->ja);
      for (unsigned k = 0; k < A->nnz; ++k)
        turned->a[2 * k] = 0.6 * A->a[k], turned->a[2 * k + 1] = 0.8 * A->a[k];
      A = std::move(turned);
    }
    const Vec b = filled(A->m, cpx, 9);
    int count[2];
    for (const int deflated : {0, 1}) {
      const Vec x = zeros(A->m, cpx);
      const KrylovProblem p{1e-9, A.get(), x.get(), nullptr, b.get(), nullptr,
                            5000, 5000,    0,       nullptr, 20};
      const KrylovResult result = deflated ? gmres_deflated(p) : gmres(p);
      EXPECT_EQ(result.end, KrylovEnd::solved);
      EXPECT_LT(residual_by_rows(A.get(), x.get(), b.get()), 2e-9);
      count[deflated] = result.iterations;
    }
    EXPECT_LT(count[1], 0.8 * count[0]) << cpx;
  }
}

// The residual of GMRES without restart never grows and ends with the number of eigenvalues.
TEST(Gmres, EndsWithTheNumberOfEigenvalues) {
  std::vector<int> index(60);
  std::iota(index.begin(), index.end(), 0);
  std::vector<double> d(60);
  for (int i = 0; i < 60; ++i)
    d[std::size_t(i)] = std::vector<double>{-3, 0.5, 2, 7}[std::size_t(i % 4)];
  const Smat A(smat_new_from_coord(60, 60, 60, index.data(), index.data(), d.data(), 0));
  const Vec b = filled(60, false, 10);
  for (const char* name : {"GMRES", "GMRESDR", "MINRES", "SYMMLQ"}) {
    const Vec x = zeros(60, false);
    const Solver s(solver_new(name));
    EXPECT_EQ(solver_solve(s.get(), A.get(), x.get(), b.get()), 4) << name;
    for (int i = 0; i < 60; ++i) EXPECT_NEAR(x->v[i], b->v[i] / d[std::size_t(i)], 1e-9) << name;
  }
}

struct HookCalls {
  static inline int calls;
  static int stop_at_4(double, double norm_r, int n, double*, double* r, int iteration) {
    ++calls;
    double sum = 0;
    for (int i = 0; i < n; ++i) sum += r[i] * r[i];
    EXPECT_NEAR(std::sqrt(sum), norm_r, 1e-10);
    return iteration == 4;
  }
};

TEST(Bicgstab, TheHookAloneDecides) {
  const Smat A = definite();
  const Vec b = filled(A->m, false, 12), x = zeros(A->m, false), best = zeros(A->m, false);
  SetIpoptCallbackFunction(HookCalls::stop_at_4);
  HookCalls::calls = 0;
  const int count =
      solve_bicgstab_param(1e30, A.get(), x.get(), best.get(), b.get(), nullptr, 50, 0, 1, nullptr);
  SetIpoptCallbackFunction(nullptr);
  EXPECT_EQ(count, 0);  // a guess that meets the criterion needs no step
  SetIpoptCallbackFunction(HookCalls::stop_at_4);
  const int steps = solve_bicgstab_param(1e-30, A.get(), x.get(), best.get(), b.get(), nullptr, 50,
                                         0, 1, nullptr);
  SetIpoptCallbackFunction(nullptr);
  EXPECT_EQ(steps, 4);
  EXPECT_EQ(HookCalls::calls, 4);
  EXPECT_TRUE(vec_equal(x.get(), best.get()));
}

}  // namespace
}  // namespace vlm::test
