// SPDX-License-Identifier: BSD-3-Clause
// The solver record, operators, and SQMR in its forms against dense solutions.
#include "NORV/solvers/solvers.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include "norv/interface.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"
#include "smat_dense.hpp"

namespace vlm::test {
namespace {

/// Symmetric indefinite: a path with diagonal entries of both signs, at least `gap` off zero.
Smat indefinite(int n, bool cpx, double gap = 2.5) {
  std::vector<int> row, col;
  std::vector<double> a;
  const auto add = [&](int i, int j, double re, double im) {
    row.push_back(i), col.push_back(j), a.push_back(re);
    if (cpx) a.push_back(im);
  };
  for (int i = 0; i < n; ++i) {
    add(i, i, (i % 3 == 0 ? -1 : 1) * (gap + i % 7), 0.5);
    if (i + 1 < n) add(i, i + 1, 1.0, 0.25);
    if (i + 10 < n) add(i, i + 10, 0.5, -0.5);
  }
  return Smat(smat_new_from_coord(n, n, unsigned(row.size()), row.data(), col.data(), a.data(),
                                  cpx ? NORV_CPX_SYM : NORV_REAL_SYM));
}

Vec filled(unsigned n, bool cpx, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> number(-1, 1);
  Vec x(cpx ? vec_new_cpx(n) : vec_new(n));
  for (unsigned i = 0; i < n * (1 + cpx); ++i) x->v[i] = number(random);
  return x;
}

double relative_residual(const smat* A, const vec* x, const vec* b) {
  const Vec r(smat_calc_residual(nullptr, A, x, b));
  return vec_euclid_norm(r.get()) / vec_euclid_norm(b);
}

Precon diagonal(smat* A) {
  Precon M(precon_diag_create());
  EXPECT_EQ(precon_setup(M.get(), A), 1);
  return M;
}

TEST(SolverFrame, RecordAndTable) {
  NorvLog log(1);
  const char* const names[] = {"GS",   "BICGSTAB", "QMR",     "SQMR",   "QMRPACK", "PCG",
                               "PCG2", "GMRES",    "GMRESDR", "SYMMLQ", "MINRES"};
  const Solver s(solver_new("sqmr"));
  EXPECT_STREQ(s->name, "SQMR");
  EXPECT_EQ(s->epsilon, 1e-8);
  EXPECT_EQ(s->maxiter, 100);
  for (int row = 0; row < 11; ++row)
    EXPECT_EQ(solver_set_method_by_name(s.get(), names[row]), row + 1);
  EXPECT_EQ(solver_set_method_by_name(s.get(), "GMR"), 0);
  EXPECT_STREQ(s->name, "MINRES");  // unchanged
  EXPECT_EQ(log.take(), "");
  const Solver unknown(solver_new("CGNE"));
  EXPECT_STREQ(unknown->name, "BICGSTAB");
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> ERROR: Solver `CGNE' unknown, using BICGSTAB!\n");
}

TEST(SolverFrame, HistoryEndsWithTheIterations) {
  for (const bool cpx : {false, true}) {
    const Smat A = indefinite(200, cpx);
    const Precon M = diagonal(A.get());
    const Vec b = filled(200, cpx, 1), x(cpx ? vec_new_zero_cpx(200) : vec_new_zero(200));
    const Solver s(solver_new("SQMR"));
    solver_set_precon(s.get(), M.get());
    solver_set_epsilon(s.get(), 1e-10);
    solver_set_residual_history(s.get());
    for (int round = 0; round < 2; ++round) {  // the second begins again with a whole history
      vec_clear(x.get());
      const int count = solver_solve(s.get(), A.get(), x.get(), b.get());
      EXPECT_EQ(count, s->iters);
      EXPECT_LT(count, 100);
      ASSERT_EQ(int(s->history->n), count);
      EXPECT_EQ(s->history->v[count - 1], s->res);
      EXPECT_LT(s->res, 1e-10);
      EXPECT_NEAR(relative_residual(A.get(), x.get(), b.get()), s->res, 1e-12);
    }
  }
}

TEST(Linop, ProductsAndResidual) {
  const Smat A = indefinite(30, false);
  const Vec x = filled(30, false, 2), b = filled(30, false, 3);
  const Vec y(linop_vecmul(nullptr, &A->op, x.get())),
      expected(smat_vecmul(nullptr, A.get(), x.get()));
  EXPECT_TRUE(vec_equal(y.get(), expected.get()));
  EXPECT_TRUE(vec_equal(Vec(linop_vecmul_trans(nullptr, &A->op, x.get())).get(), expected.get()));
  linop_vecaddmul(y.get(), &A->op, x.get());
  linop_vecaddmul_trans(y.get(), &A->op, x.get());
  vec_scale(3.0, expected.get());
  EXPECT_TRUE(vec_equal_up_to(y.get(), expected.get(), 1e-13));
  const Vec r(linop_calc_residual(nullptr, &A->op, x.get(), b.get()));
  EXPECT_TRUE(
      vec_equal(r.get(), Vec(smat_calc_residual(nullptr, A.get(), x.get(), b.get())).get()));
  const Vec shorter(vec_new_zero(29));
  EXPECT_DEATH(linop_calc_residual(nullptr, &A->op, x.get(), shorter.get()), "linop->m == b->n");
}

enum class Form { main, karst, right, operation };
constexpr Form forms[] = {Form::main, Form::karst, Form::right, Form::operation};

/// One solve; maxiter stagnation steps.
int run(Form form, double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
        int maxiter, int* status, int criterion = 0, int non_improvement = 1 << 20) {
  switch (form) {
    case Form::main:
      return solve_sqmr_param(epsilon, A, x, xbest, b, M, maxiter, non_improvement, status,
                              criterion, nullptr);
    case Form::karst:
      return solve_sqmr_param_karst(epsilon, A, x, xbest, b, M, maxiter, non_improvement, status,
                                    criterion, nullptr);
    case Form::right:
      return solve_sqmr_right_param(epsilon, A, x, xbest, b, M, maxiter, non_improvement, status,
                                    criterion, nullptr);
    default:
      *status = 0;
      return solve_sqmr_lo_param(epsilon, &A->op, x, b, M, maxiter, criterion, nullptr);
  }
}

TEST(Sqmr, EveryFormSolves) {
  for (const Form form : forms)
    for (const bool cpx : {false, true})
      for (const bool preconditioned : {false, true}) {
        const Smat A = indefinite(500, cpx);
        const Precon M = preconditioned ? diagonal(A.get()) : nullptr;
        const Vec b = filled(500, cpx, 4), x = filled(500, cpx, 5), best = filled(500, cpx, 6);
        int status = -1;
        const int count =
            run(form, 1e-10, A.get(), x.get(), best.get(), b.get(), M.get(), 400, &status);
        EXPECT_GT(count, 3);
        EXPECT_LT(count, 200);
        EXPECT_EQ(status, 0);
        EXPECT_LT(relative_residual(A.get(), x.get(), b.get()), 2e-10)
            << int(form) << cpx << preconditioned;
        if (form != Form::operation) {
          EXPECT_TRUE(vec_equal(x.get(), best.get()));
        }
      }
}

// In exact arithmetic n steps are enough: with few distinct eigenvalues, few.
TEST(Sqmr, EndsWithTheNumberOfEigenvalues) {
  std::vector<int> index(60);
  std::iota(index.begin(), index.end(), 0);
  std::vector<double> d(60);
  for (int i = 0; i < 60; ++i) d[i] = std::vector<double>{-3, 0.5, 2, 7}[i % 4];
  const Smat A(
      smat_new_from_coord(60, 60, 60, index.data(), index.data(), d.data(), NORV_REAL_SYM));
  const Vec b = filled(60, false, 7);
  for (const Form form : forms) {
    const Vec x(vec_new_zero(60));
    int status = 0;
    EXPECT_EQ(run(form, 1e-12, A.get(), x.get(), nullptr, b.get(), nullptr, 50, &status), 4);
    for (int i = 0; i < 60; ++i) EXPECT_NEAR(x->v[i], b->v[i] / d[i], 1e-10);
  }
}

/// Inverse of A, by the dense reference, as a preconditioner of a user's own.
TEST(Sqmr, TheFirstSolution) {
  const Smat A = indefinite(20, false);
  const Vec b = filled(20, false, 8), x = filled(20, false, 9), best(vec_new(20));
  precon exact{};
  dmat* const lu = dmat_from_smat(A.get());
  dmat_lu(lu);
  exact.data = lu;
  exact.apply = [](vec* y, precon* M, const vec* r) {
    dmat_lu_solve(static_cast<dmat*>(M->data), y->v, r->v);
    return y;
  };
  int status = 1;
  EXPECT_EQ(run(Form::main, 1e-8, A.get(), x.get(), best.get(), b.get(), &exact, 10, &status), 0);
  EXPECT_EQ(status, 0);
  EXPECT_LT(relative_residual(A.get(), x.get(), b.get()), 1e-13);
  EXPECT_TRUE(vec_equal(x.get(), best.get()));
  // Criterion 2 compares this residual with itself.
  vec_clear(x.get());
  EXPECT_EQ(run(Form::main, 0.5, A.get(), x.get(), nullptr, b.get(), &exact, 10, &status, 2), 1);
  EXPECT_EQ(run(Form::main, 1.5, A.get(), x.get(), nullptr, b.get(), &exact, 10, &status, 2), 0);
  dmat_free(lu);
  // Without iterations the preconditioner's word is taken.
  EXPECT_EQ(run(Form::main, 1e-8, A.get(), x.get(), best.get(), b.get(), nullptr, 0, &status), 0);
  EXPECT_TRUE(vec_equal(x.get(), b.get()));
  EXPECT_TRUE(vec_equal(best.get(), b.get()));
}

TEST(Sqmr, ZeroRightHandSideAndExactGuess) {
  for (const bool cpx : {false, true}) {
    const Smat A = indefinite(20, cpx);
    const Vec zero(cpx ? vec_new_zero_cpx(20) : vec_new_zero(20));
    for (const Form form : {Form::main, Form::karst}) {
      const Vec x = filled(20, cpx, 10), best = filled(20, cpx, 11);
      int status = 1;
      EXPECT_EQ(run(form, 1e-8, A.get(), x.get(), best.get(), zero.get(), nullptr, 10, &status), 0);
      EXPECT_EQ(status, 0);
      EXPECT_EQ(vec_inf_norm(x.get()), 0.0);
      EXPECT_EQ(vec_inf_norm(best.get()), 0.0);
    }
  }
  // Integers, so that the residual of the exact guess is 0.
  const Smat A = indefinite(20, false, 4);
  for (unsigned k = 0; k < A->nnz; ++k) A->a[k] = std::ceil(A->a[k]);
  const Vec x(vec_new(20)), best(vec_new_zero(20));
  for (int i = 0; i < 20; ++i) x->v[i] = i - 7;
  const Vec b(smat_vecmul(nullptr, A.get(), x.get()));
  NorvLog log(1);
  int status = 1;
  EXPECT_EQ(run(Form::main, 1e-8, A.get(), x.get(), best.get(), b.get(), nullptr, 10, &status), 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(vec_equal(x.get(), best.get()));
  EXPECT_NE(log.take().find("The solution is already correct"), std::string::npos);
}

// A guess with a residual above that of 0, or none at all, is dropped once.
TEST(Sqmr, DropsABadGuess) {
  const Smat A = indefinite(100, false);
  const Vec b = filled(100, false, 12), from_zero(vec_new_zero(100));
  int status = 0;
  const int expected =
      run(Form::main, 1e-9, A.get(), from_zero.get(), nullptr, b.get(), nullptr, 300, &status);
  for (const double value : {1e3, double(NAN), double(INFINITY)}) {
    NorvLog log(1);
    const Vec x(vec_new(100));
    vec_set(value, x.get());
    EXPECT_EQ(run(Form::main, 1e-9, A.get(), x.get(), nullptr, b.get(), nullptr, 300, &status),
              expected);
    EXPECT_TRUE(vec_equal(x.get(), from_zero.get()));
    const std::string text = log.take(), restart = "[SQMR restart)...]";
    ASSERT_NE(text.find(restart), std::string::npos);
    EXPECT_EQ(text.find(restart), text.rfind(restart));
  }
  NorvLog log(1);
  const Vec x(vec_new_zero(100));  // its relative residual is 1
  run(Form::main, 1e-9, A.get(), x.get(), nullptr, b.get(), nullptr, 300, &status);
  EXPECT_EQ(log.take().find("restart"), std::string::npos);
}

TEST(Sqmr, StatusOfEachEnd) {
  const Smat A = indefinite(300, false);
  const Vec b = filled(300, false, 13);
  const auto solve = [&](int maxiter, int* status, double epsilon = 1e-9) {
    const Vec x(vec_new_zero(300));
    return run(Form::main, epsilon, A.get(), x.get(), nullptr, b.get(), nullptr, maxiter, status);
  };
  int status = 0;
  const int needed = solve(500, &status);
  EXPECT_EQ(status, NORV_SQMR_OK);
  EXPECT_EQ(solve(needed + 1, &status), needed);
  EXPECT_EQ(status, NORV_SQMR_OK);
  EXPECT_EQ(solve(needed, &status), needed);  // converges in the last step
  EXPECT_EQ(status, NORV_SQMR_LIMIT);
  EXPECT_EQ(solve(needed - 1, &status), needed);
  EXPECT_EQ(status, NORV_SQMR_LIMIT);
  // A criterion that is none never stops.
  const Vec x(vec_new_zero(300));
  EXPECT_EQ(run(Form::main, 1.0, A.get(), x.get(), nullptr, b.get(), nullptr, 7, &status, 3), 8);

  // q'Aq = 0 and r'M^-1 r = 0 in the first step.
  const int row[] = {0, 0, 1}, col[] = {0, 1, 1};
  const double a[] = {0, 1, 0};
  const Smat swap(smat_new_from_coord(2, 2, 3, row, col, a, NORV_REAL_SYM));
  const Vec e(vec_new_zero(2)), y(vec_new_zero(2));
  e->v[0] = 1;
  EXPECT_EQ(run(Form::main, 1e-8, swap.get(), y.get(), nullptr, e.get(), nullptr, 9, &status), 1);
  EXPECT_EQ(status, NORV_SQMR_SIGMA_ZERO);
  precon exchange{};
  exchange.apply = [](vec* result, precon*, const vec* r) {
    result->v[0] = 2 * r->v[1], result->v[1] = 2 * r->v[0];
    return result;
  };
  EXPECT_EQ(run(Form::main, 1e-8, swap.get(), y.get(), nullptr, e.get(), &exchange, 9, &status), 1);
  EXPECT_EQ(status, NORV_SQMR_RHO_ZERO);
}

// With a singular matrix and b outside of its range the residual stands still.
TEST(Sqmr, StagnatesAfterTheWindow) {
  std::vector<int> index(50);
  std::iota(index.begin(), index.end(), 0);
  std::vector<double> d(50);
  for (int i = 0; i < 50; ++i) d[i] = i == 0 ? 1e-14 : (i % 2 ? 1.0 : -1.0) * i;
  const Smat A(
      smat_new_from_coord(50, 50, 50, index.data(), index.data(), d.data(), NORV_REAL_SYM));
  Vec b(vec_new(50));
  vec_set(1.0, b.get());
  for (const int non_improvement : {1, 25, 26}) {
    const Vec x(vec_new_zero(50));
    int status = 0;
    const int count = run(Form::main, 1e-15, A.get(), x.get(), nullptr, b.get(), nullptr, 45,
                          &status, 0, non_improvement);
    EXPECT_GE(count, 26);
    if (non_improvement == 1) {
      EXPECT_EQ(status, NORV_SQMR_STAGNATION);
    }
    if (non_improvement == 26) {
      EXPECT_EQ(status, NORV_SQMR_LIMIT);
    }  // more than the window holds
  }
}

// The older forms end when the best residual is not bettered: here one entry of b is out of reach.
TEST(Sqmr, OlderFormsCountSteps) {
  std::vector<int> index(300);
  std::iota(index.begin(), index.end(), 0);
  std::vector<double> d(300);
  for (int i = 0; i < 300; ++i) d[i] = (i % 2 ? 1.0 : -1.0) * i;
  const Smat A(
      smat_new_from_coord(300, 300, 300, index.data(), index.data(), d.data(), NORV_REAL_SYM));
  const Vec b = filled(300, false, 14);
  for (const Form form : {Form::karst, Form::right}) {
    const Vec x(vec_new_zero(300));
    int status = 0;
    const int count =
        run(form, 1e-12, A.get(), x.get(), nullptr, b.get(), nullptr, 5000, &status, 0, 40);
    EXPECT_EQ(status, 1);
    EXPECT_GT(count, 40);
    EXPECT_LT(count, 5000);
  }
}

struct Hook {
  static inline int calls, last;
  static inline double norm_b, norm_r;
  static int stop_at_5(double nb, double nr, int n, double* x, double* r, int iteration) {
    ++calls, last = iteration, norm_b = nb, norm_r = nr;
    double sum = 0;
    for (int i = 0; i < n; ++i) sum += r[i] * r[i];
    EXPECT_NEAR(std::sqrt(sum), nr, 1e-12 * nb);
    EXPECT_NE(x, nullptr);
    return iteration == 5;
  }
};

TEST(Sqmr, TheHookAloneDecides) {
  const Smat A = indefinite(300, false);
  const Vec b = filled(300, false, 15), x(vec_new_zero(300));
  int flag = 7;
  EXPECT_EQ(ipopt_test_function_(&flag), 1);
  EXPECT_EQ(flag, 0);
  Hook::calls = 0;
  EXPECT_EQ(SetIpoptCallbackFunction(Hook::stop_at_5), 1);
  ipopt_test_function_(&flag);
  int status = 1;
  const int count = run(Form::main, 1e30, A.get(), x.get(), nullptr, b.get(), nullptr, 50, &status);
  const int limited =
      run(Form::main, 1e30, A.get(), x.get(), nullptr, b.get(), nullptr, 3, &status);
  SetIpoptCallbackFunction(nullptr);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(count, 5);
  EXPECT_EQ(limited, 4);
  EXPECT_EQ(status, NORV_SQMR_LIMIT);
  EXPECT_EQ(Hook::calls, 6 + 4);
  EXPECT_EQ(Hook::norm_b, vec_euclid_norm(b.get()));
  int result = 7;
  const int iteration = 5, n = 0;
  const double norm = 1;
  ipopt_terminate_(&result, &iteration, &n, &norm, &norm, nullptr, nullptr);
  EXPECT_EQ(result, 0);  // it is off
}

TEST(Sqmr, TellsEveryStep) {
  const Smat A = indefinite(300, false);
  const Vec b = filled(300, false, 16), x(vec_new_zero(300));
  std::vector<double> told;
  norv_set_progress(
      [](void* data, int iteration, double relres) {
        auto& list = *static_cast<std::vector<double>*>(data);
        EXPECT_EQ(iteration, int(list.size()));
        list.push_back(relres);
      },
      &told);
  const int count = solve_sqmr(1e-8, A.get(), x.get(), b.get(), nullptr, 100, nullptr);
  norv_set_progress(nullptr, nullptr);
  ASSERT_EQ(int(told.size()), count + 1);
  EXPECT_EQ(told.front(), 1.0);
  EXPECT_LT(told.back(), 1e-8);
}

TEST(SqmrDeathTest, TellsTheCallersFaults) {
  const Smat A = indefinite(5, false);
  const Vec b(vec_new_zero(5)), x(vec_new_zero(5)), other(vec_new_zero(6));
  EXPECT_DEATH(solve_sqmr(1e-8, nullptr, x.get(), b.get(), nullptr, 1, nullptr), "A != 0");
  EXPECT_DEATH(solve_sqmr(1e-8, A.get(), other.get(), b.get(), nullptr, 1, nullptr),
               "A->m == x->n");
  EXPECT_DEATH(solve_sqmr(1e-8, A.get(), x.get(), other.get(), nullptr, 1, nullptr),
               "A->m == b->n");
}

}  // namespace
}  // namespace vlm::test
