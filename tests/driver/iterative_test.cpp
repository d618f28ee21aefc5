// SPDX-License-Identifier: BSD-3-Clause
// The iterative road: every phase, its results and its failures, by two handles and two threads.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <functional>
#include <string>
#include <thread>

#include "caller.hpp"
#include "gallery.hpp"
#include "norv.h"
#include "norv_log.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

/// A caller in iterative mode, with levels small enough that there are several.
class IterativeCaller : public Caller {
 public:
  explicit IterativeCaller(const Matrix& matrix, int nrhs_wanted = 1)
      : Caller(matrix.mtype, matrix.ia, matrix.ja, matrix.a), m(matrix) {
    init(1);
    dparm[1] = 1e-9;
    dparm[2] = 60;
    dparm[4] = 1e-3;
    dparm[5] = 1e-3;
    nrhs = nrhs_wanted;
    b = random_vector(m, nrhs, 7);
    x.assign(b.size(), 0.0);
    b_ptr = b.data();
    x_ptr = x.data();
  }
  /// The largest ||b - A x|| / ||b|| of the right-hand sides, of which `rhs` are the ones of the
  /// call.
  double relative_residual(const std::vector<double>& rhs, const std::vector<double>& solution) {
    const std::vector<double> y = product(m, solution, nrhs);
    const std::size_t length = rhs.size() / static_cast<std::size_t>(nrhs);
    double worst = 0;
    for (std::size_t first = 0; first < rhs.size(); first += length) {
      double r2 = 0, b2 = 0;
      for (std::size_t k = first; k < first + length; ++k) {
        r2 += (rhs[k] - y[k]) * (rhs[k] - y[k]);
        b2 += rhs[k] * rhs[k];
      }
      worst = std::fmax(worst, std::sqrt(r2 / b2));
    }
    return worst;
  }
  const Matrix m;
};

std::vector<Matrix> systems() {
  return {shifted_laplacian(14, 1.3, true, 3),
          random_indefinite(300, 0.02, 0.0, 4),
          random_indefinite(300, 0.02, 0.3, 5),
          helmholtz(14, 4.0, true, 6),
          random_indefinite(200, 0.03, 0.0, 7, 6),
          convection_diffusion(14, 2.0, 8),
          badly_scaled(200, 2, 9)};
}

TEST(Iterative, EveryPhaseSolves) {
  NorvLog log(0);
  unsetenv("OMP_NUM_THREADS");  // which is no matter on this road
  int ordered = 0;
  for (const Matrix& m : systems()) {
    SCOPED_TRACE(m.n);
    IterativeCaller c(m);
    const std::vector<double> b = c.b;
    const auto ia = c.ia, ja = c.ja;
    const auto a = c.a;
    ASSERT_EQ(c.run(13), 0);
    EXPECT_LT(c.relative_residual(b, c.x), 1e-9);
    EXPECT_GT(c.iparm(18), 0);
    EXPECT_GE(c.dparm[34], 0);
    if (m.mtype == -2) {  // of the preconditioner, where little has been dropped
      EXPECT_EQ(c.iparm(22) + c.iparm(23), m.n);
      EXPECT_NEAR(c.iparm(23), dense_inertia(to_dense(m)).negative, 3);
    }
    const std::vector<double> solution = c.x;
    const auto counts = std::array{c.iparm(14), c.iparm(18), c.iparm(22), c.iparm(23)};
    for (const int phase : {33, 23, 22, 33, 12, 33, 11, 22, 33}) {
      SCOPED_TRACE(phase);
      std::fill(c.x.begin(), c.x.end(), 0.0);
      ASSERT_EQ(c.run(phase), 0);
      if (phase % 10 == 3) {
        EXPECT_LT(c.relative_residual(b, c.x), 1e-9);
      }
      EXPECT_EQ(counts, (std::array{c.iparm(14), c.iparm(18), c.iparm(22), c.iparm(23)}));
    }
    if (m.mtype != 11) {  // another order, another factor
      c.dparm[10] = 1;
      ASSERT_EQ(c.run(12), 0);
      std::fill(c.x.begin(), c.x.end(), 0.0);
      ASSERT_EQ(c.run(33), 0);
      EXPECT_LT(c.relative_residual(b, c.x), 1e-9);
      EXPECT_NE(c.x, solution);
      ordered += counts != std::array{c.iparm(14), c.iparm(18), c.iparm(22), c.iparm(23)};
    }
    // The last solution as a starting guess is at once good enough; so is it in b.
    c.iparm(6) = 1;
    ASSERT_EQ(c.run(33), 0);
    EXPECT_LT(c.relative_residual(b, c.b), 1e-9);
    EXPECT_TRUE(ia == c.ia && ja == c.ja && a == c.a);
    EXPECT_EQ(c.run(0), 0);
    EXPECT_EQ(c.run(-1), 0);
    EXPECT_TRUE(c.empty());
  }
  EXPECT_GT(ordered, 0);
}

// A^T x = b takes the preconditioner of A.
TEST(Iterative, SolvesWithTheTranspose) {
  for (const Matrix& m : {convection_diffusion(14, 2.0, 8), badly_scaled(200, 2, 9)}) {
    IterativeCaller c(m);
    ASSERT_EQ(c.run(12), 0);
    c.iparm(12) = 1;
    ASSERT_EQ(c.run(33), 0);
    IterativeCaller other(transposed(m));
    EXPECT_LT(other.relative_residual(c.b, c.x), 1e-9);
    EXPECT_GT(c.relative_residual(c.b, c.x), 1e-3);
  }
}

// With no dropping at all the levels hold an exact factor: its inertia is that of the matrix, and
// the preconditioner alone is the solution.
// The residual that BiCGStab carries along runs ahead of the true one near rounding, and where
// large iterates came before.
TEST(Iterative, WhatIsCalledSolvedIsSolved) {
  int solved = 0, refused = 0;
  for (const double tolerance : {1e-9, 1e-13, 1e-15, 1e-16})
    for (const double peclet : {0.0, 40.0, 400.0}) {
      SCOPED_TRACE(std::to_string(tolerance) + " at " + std::to_string(peclet));
      IterativeCaller c(convection_diffusion(9, peclet, 5));
      c.dparm[1] = tolerance;
      c.dparm[0] = 300;  // iterations
      c.dparm[4] = 0.3;
      const std::vector<double> rhs = c.b;
      const int error = c.run(13);
      (error == 0 ? solved : refused) += 1;
      if (error == 0) {
        EXPECT_LE(c.relative_residual(rhs, c.x), 10.5 * tolerance);
      }
    }
  EXPECT_GE(solved, 3);
  EXPECT_GE(refused, 1);
}

TEST(Iterative, NothingDropped) {
  NorvLog log(0);
  for (const Matrix& m : systems()) {
    IterativeCaller c(m);
    c.dparm[4] = c.dparm[5] = c.dparm[6] = 0;
    c.dparm[7] = 100;  // rows are postponed to further levels
    ASSERT_EQ(c.run(13), 0);
    EXPECT_LE(c.dparm[34], m.mtype == 11 ? 1 : 0);  // BiCGStab has to take it in a step
    EXPECT_LT(c.relative_residual(c.b, c.x), 1e-9);
    if (m.mtype != -2) continue;
    const Inertia inertia = dense_inertia(to_dense(m));
    EXPECT_EQ(c.iparm(22), inertia.positive);
    EXPECT_EQ(c.iparm(23), inertia.negative);
  }
}

// Dropped entries that still act once make a preconditioner of the same size better.
TEST(Iterative, SecondOrderDropping) {
  NorvLog log(0);
  const auto iterations = [](double second) {
    IterativeCaller c(shifted_laplacian(16, 0.4, false, 3));
    c.dparm[2] = 500;
    c.dparm[4] = 0.005;
    c.dparm[5] = 0.002;
    c.dparm[6] = 0;
    c.dparm[7] = 10;
    c.dparm[9] = second;
    EXPECT_EQ(c.run(13), 0);
    EXPECT_LT(c.relative_residual(c.b, c.x), 1e-9);
    return c.dparm[34];
  };
  EXPECT_LT(iterations(0.1), 0.7 * iterations(0));
}

TEST(Iterative, SeveralRightHandSides) {
  NorvLog log(0);
  for (const Matrix& m : systems()) {
    IterativeCaller c(m, 3);
    ASSERT_EQ(c.run(13), 0);
    EXPECT_LT(c.relative_residual(c.b, c.x), 1e-9);
    const double all = c.dparm[34];
    double each = 0;
    for (int k = 0; k < 3; ++k) {
      IterativeCaller one(m);
      std::copy_n(c.b.begin() + long(one.b.size()) * k, one.b.size(), one.b.begin());
      ASSERT_EQ(one.run(13), 0);
      each += one.dparm[34];
      EXPECT_TRUE(std::equal(one.x.begin(), one.x.end(), c.x.begin() + long(one.x.size()) * k));
    }
    EXPECT_EQ(all, each);
  }
}

TEST(Iterative, TellsWhatItDidAtLevel1) {
  NorvLog log(0);
  const Matrix m = shifted_laplacian(14, 1.3, true, 3);
  IterativeCaller c(m);
  c.dparm[33] = 77;
  ASSERT_EQ(c.run(13), 0);
  EXPECT_EQ(c.dparm[33], 77);  // silent
  EXPECT_EQ(log.take(), "");
  const double iterations = c.dparm[34];
  const int negative = c.iparm(23);

  std::fill(c.x.begin(), c.x.end(), 0.0);
  const std::string printed = c.run_and_read(13);
  ASSERT_EQ(c.error, 0);
  EXPECT_NE(printed.find("   Fill: "), std::string::npos);
  EXPECT_NEAR(c.dparm[33], c.relative_residual(c.b, c.x), 1e-12);
  EXPECT_EQ(c.dparm[34], iterations);
  EXPECT_EQ(norvInfo.iterations, int(iterations));
  EXPECT_EQ(norvInfo.relres, c.dparm[33]);
  EXPECT_NEAR(norvInfo.memory, (96.0 * m.n + 368) / 1024, 1e-9);
  EXPECT_EQ(norvPars.method, 5);
  EXPECT_EQ(norvPars.precon, 5);
  EXPECT_EQ(norvPars.min_level_size, 60);
  EXPECT_EQ(norvPars.max_fill, 10);
  EXPECT_EQ(norvPars.schur_drop, 1e-3);
  const std::string text = log.take();
  for (const char* line : {"MaxItersNoImprovement is 25", "Accuracy after first solution",
                           "Residual against original matrix:", "IterativeNorvScalar: status 0."})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  EXPECT_EQ(norv_debug_get_level(), 0);

  // A count close to the expected one is taken for it, above the smallest level only.
  const std::string eigenvalues = "Eigenvalue distribution: Dimension 196 Neg. ";
  for (const int off : {0, 3}) {
    c.iparm(48) = negative + off;
    c.run_and_read(22);
    EXPECT_EQ(c.iparm(23), negative);
    EXPECT_NE(log.take().find(eigenvalues + std::to_string(negative + off)), std::string::npos);
  }
}

/// A call that fails, and what it says; the handle then goes on as if it had not been made.
struct Failure {
  const char* name;
  std::function<void(IterativeCaller&)> spoil;
  int phase, error;
  const char* said;
};

TEST(Iterative, FailuresLeaveTheHandleUsable) {
  NorvLog log(0);
  const Matrix m = shifted_laplacian(14, 1.3, true, 3);
  const Failure failures[] = {
      {"type", [](auto& c) { c.mtype = 13; }, 11, -1, "does not cover matrix type 13"},
      {"type", [](auto& c) { c.mtype = -4; }, 12, -1, "does not cover matrix type -4"},
      {"dparm", [](auto& c) { c.dparm[0] = NAN; }, 33, -1, "dparam(1) is out of bounds"},
      {"dparm", [](auto& c) { c.dparm[3] = 1e10; }, 13, -1, "dparam(4) is out of bounds"},
      {"dparm", [](auto& c) { c.dparm[9] = 1.1; }, 22, -1, "dparam(10) is out of bounds"},
      {"dparm", [](auto& c) { c.dparm[10] = -1; }, 22, -1, "dparam(11) is out of bounds"},
      {"null", [](auto& c) { c.ja_ptr = nullptr; }, 33, -1, "argument number 9 is a null"},
      {"null", [](auto& c) { c.x_ptr = nullptr; }, 33, -1, "argument number 15 is a null"},
      {"nrhs", [](auto& c) { c.nrhs = 0; }, 33, -1, "nb_new  0"},
      {"pattern", [](auto& c) { c.ja[1] += c.ja[2] - c.ja[1] > 1 ? 1 : -1; }, 22, -1, "pattern"},
      {"column", [](auto& c) { c.ja[1] = 400; }, 33, -1, "Matrix not consistent!"},
      {"value", [](auto& c) { c.a[5] = INFINITY; }, 22, -4, "a(6) is NaN or infinity"},
      {"value", [](auto& c) { c.b[7] = NAN; }, 23, -4, "infinity in row 8"},
      {"limit", [](auto& c) { c.dparm[0] = 1, c.dparm[1] = 1e-15; }, 33, -100,
       "no convergence within dparam(1) iterations"},
  };
  IterativeCaller fresh(m);
  ASSERT_EQ(fresh.run(13), 0);
  for (const Failure& failure : failures) {
    SCOPED_TRACE(failure.name);
    IterativeCaller c(m);
    const auto kept_ja = c.ja;
    const auto kept_a = c.a, kept_b = c.b;
    const auto dparm = c.dparm;
    ASSERT_EQ(c.run(12), 0);
    failure.spoil(c);
    const std::string said = c.run_and_read(failure.phase);
    EXPECT_EQ(c.error, failure.error);
    EXPECT_NE(said.find(failure.said), std::string::npos) << said;
    EXPECT_NE(said.find("*** what to do: "), std::string::npos) << said;
    c.mtype = m.mtype, c.dparm = dparm, c.nrhs = 1;
    c.ja = kept_ja, c.a = kept_a, c.b = kept_b;
    c.ja_ptr = c.ja.data(), c.x_ptr = c.x.data();
    std::fill(c.x.begin(), c.x.end(), 0.0);
    ASSERT_EQ(c.run(33), 0);
    EXPECT_EQ(c.x, fresh.x);
  }
  log.take();
}

TEST(Iterative, AMatrixWithoutADiagonalEntryIsRefused) {
  NorvLog log(0);
  const Matrix m = shifted_laplacian(14, 1.3, true, 3);
  IterativeCaller c(m);
  c.ja[0] = 2;  // the row is (1,2), (1,3)
  c.ja[1] = 3;
  EXPECT_NE(c.run_and_read(13).find("Matrix not consistent!"), std::string::npos);
  EXPECT_EQ(c.error, -1);
  EXPECT_NE(c.run_and_read(22).find("*** error"), std::string::npos);  // there is no preconditioner
  c.ja = c.m.ja;
  c.ja_ptr = c.ja.data();
  EXPECT_EQ(c.run(13), 0);
}

// The roads don't mix: each handle goes on with the work of its last analysis alone.
TEST(Iterative, ChangesOfTheRoad) {
  NorvLog log(0);
  IterativeCaller c(shifted_laplacian(14, 1.3, true, 3));
  ASSERT_EQ(c.run(12), 0);
  c.iparm(32) = 0;
  EXPECT_NE(c.run(22), 0);
  ASSERT_EQ(c.run(13), 0);
  EXPECT_LT(c.relative_residual(c.b, c.x), 1e-10);
  c.iparm(32) = 1;
  EXPECT_NE(c.run(33), 0);
  EXPECT_NE(c.run(22), 0);
  ASSERT_EQ(c.run(12), 0);
  ASSERT_EQ(c.run(33), 0);
  c.iparm(32) = 0;
  EXPECT_EQ(c.run(-1), 0);  // releases whatever there is
  EXPECT_TRUE(c.empty());
}

// What the inner solver cannot factor is this call's error, with the inner words.
TEST(Iterative, AFailingInnerSolve) {
  NorvLog log(0);
  IterativeCaller c(shifted_laplacian(14, 1.3, true, 3));
  c.dparm[2] = 5000;  // the whole matrix goes to the direct solver
  for (double& value : c.a) value *= 1e305;
  const std::string said = c.run_and_read(13);
  if (c.error != 0) {
    EXPECT_TRUE(c.error == -4 || c.error == -3 || c.error <= -100) << said;
    EXPECT_NE(said.find("*** what to do: "), std::string::npos);
  }
  c.a = c.m.a;
  EXPECT_EQ(c.run(13), 0);
}

// Two handles work side by side as they do alone.
TEST(Iterative, TwoHandlesInTwoThreads) {
  NorvLog log(0);
  const Matrix matrices[] = {shifted_laplacian(16, 1.3, true, 3), helmholtz(15, 4.0, true, 6)};
  const auto work = [](IterativeCaller& c) {
    c.run(13);
    for (int round = 0; round < 5; ++round) {
      std::fill(c.x.begin(), c.x.end(), 0.0);
      c.run(round % 2 ? 23 : 33);
    }
  };
  IterativeCaller alone[] = {IterativeCaller(matrices[0]), IterativeCaller(matrices[1])};
  IterativeCaller beside[] = {IterativeCaller(matrices[0]), IterativeCaller(matrices[1])};
  for (IterativeCaller& c : alone) work(c);
  std::thread first(work, std::ref(beside[0])), second(work, std::ref(beside[1]));
  first.join();
  second.join();
  for (const int k : {0, 1}) {
    EXPECT_EQ(beside[k].error, 0);
    EXPECT_EQ(beside[k].x, alone[k].x);
    EXPECT_EQ(beside[k].iparm_array, alone[k].iparm_array);
  }
}

// Threads sweep parts of the factor; a solve with fewer of them gives the same bits.
TEST(Iterative, ThreadsShareTheSweeps) {
  NorvLog log(0);
  const Matrix m = shifted_laplacian(110, 0.02, true, 3);
  for (const int threads : {1, 2, 3}) {
    SCOPED_TRACE(threads);
    IterativeCaller c(m);
    c.iparm(3) = threads;
    c.dparm[2] = 500;
    ASSERT_EQ(c.run(12), 0);
    ASSERT_GT(c.iparm(18), 100000);
    ASSERT_EQ(c.run(33), 0);
    EXPECT_LT(c.relative_residual(c.b, c.x), 1e-8);
    const std::vector<double> first = c.x;
    c.iparm(3) = 1;  // a solve with fewer threads than the setup
    std::fill(c.x.begin(), c.x.end(), 0.0);
    ASSERT_EQ(c.run(33), 0);
    EXPECT_EQ(c.x, first);
    EXPECT_EQ(c.run(23), 0);
    EXPECT_LT(c.relative_residual(c.b, c.x), 1e-8);
  }
}

// The factor of the coarsest level, here of all rows, does not depend on which thread is first.
TEST(Iterative, RunsRepeatToTheBit) {
  NorvLog log(0);
  const Matrix m = shifted_laplacian(150, 1.3, true, 3);
  std::vector<double> first;
  for (int run = 0; run < 6; ++run) {
    IterativeCaller c(m);
    c.iparm(3) = 3;
    c.dparm[2] = m.n;
    ASSERT_EQ(c.run(13), 0);
    if (run == 0) first = c.x;
    EXPECT_EQ(c.x, first) << "run " << run;
  }
}

// The exported form on the caller's own record, with the preconditioner of the process.
TEST(Iterative, ScalarInterface) {
  NorvLog log(0);
  setenv("OMP_NUM_THREADS", "1", 1);
  const Matrix m = shifted_laplacian(14, 1.3, true, 3);
  IterativeCaller c(m);
  NorvPars pars;
  NorvInfo info{};
  InitNorvPars(0, &pars);
  pars.msglvl = 0;
  pars.min_level_size = 60;
  pars.epsilon = 1e-9;
  int perturbed = -7, positive = -7, negative = -7, nnz = -7, iterations = -7;
  const int expected = 0;
  double relres = -7;
  const auto phase = [&](int number) {
    return IterativeNorvScalar(3, &pars, m.n, 0, -2, c.ia.data(), c.ja.data(), c.a.data(),
                               c.b.data(), number, 0, c.x.data(), &info, &expected, &perturbed,
                               &positive, &negative, &nnz, &relres, &iterations);
  };
  EXPECT_EQ(phase(12), 0);
  EXPECT_EQ(positive + negative, m.n);
  EXPECT_GT(nnz, 0);
  EXPECT_EQ(iterations, -7);
  EXPECT_EQ(phase(33), 0);
  EXPECT_LT(c.relative_residual(c.b, c.x), 1e-8);
  EXPECT_GE(iterations, 0);
  EXPECT_EQ(relres, -7);
  EXPECT_EQ(c.ia, m.ia);
  EXPECT_EQ(c.ja, m.ja);
  const auto refused = [&](const char* said) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(phase(13), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              std::string("\n IterativeNorvScalar: ") + said);
    EXPECT_EQ(c.ia, m.ia);
    InitNorvPars(0, &pars);
    pars.msglvl = 0;
  };
  pars.stop_crit = 3;
  refused("Stopping criterion unknown.");
  pars.fill_max_mode = 1;
  refused("fill_max_mode unknown.");
  pars.precon = 4;
  refused("Preconditioner unfeasible for scalar iterative solver.");
  pars.precon = 0;
  pars.method = 6;
  refused("Solver type unfeasible for scalar iterative solver.");
  pars.precon = 1;  // the diagonal
  EXPECT_LE(phase(13), 0);
  pars.precon = 9;  // wants both triangles; a setup that fails ends phase 22 alone
  EXPECT_EQ(phase(12), 0);
  EXPECT_EQ(phase(22), 3);
  pars.precon = 0;
  pars.maxiter = 400;
  const int prepared = phase(13);  // without a preconditioner
  EXPECT_EQ(phase(33), prepared);
  EXPECT_EQ(phase(-1), 0);
}

TEST(NorvParsRecord, Defaults) {
  NorvPars pars;
  EXPECT_EQ(InitNorvPars(0, &pars), 1);
  EXPECT_TRUE(pars.method == 5 && pars.maxiter == 190 && pars.non_improvement == 25 &&
              pars.restart == 100 && pars.epsilon == 1e-6 && pars.stop_crit == 0 &&
              pars.precon == 5 && pars.drop_tol == 0.01 && pars.condest_strat == 3);
  EXPECT_TRUE(pars.bk_fill == 1.0 && pars.kappa == 50.0 && pars.max_levels == 10 &&
              pars.min_level_size == 5000 && pars.max_fill == 4.0 && pars.schur_drop == 0.01 &&
              pars.pivot_1x1 == 1e-8 && pars.pivot_2x2 == 0.616 && pars.msglvl == 2);
  InitNorvPars(1, &pars);
  EXPECT_TRUE(pars.precon == 4 && pars.epsilon == 1e-11 && pars.drop_tol == 0 &&
              pars.schur_drop == 0 && pars.method == 5);
  EXPECT_EQ(SetNorvPars(&pars, 2, 7, 8, 9, 1, 0, 0, 3, 0, 1, 1e-3, 0.5, 6), 1);
  EXPECT_TRUE(pars.method == 2 && pars.maxiter == 7 && pars.non_improvement == 8 &&
              pars.restart == 9 && pars.stop_crit == 1 && pars.precon == 3 && pars.msglvl == 1 &&
              pars.epsilon == 1e-3 && pars.drop_tol == 0.5 && pars.max_fill == 6.0);
  pars.perm = perm_new(4);
  pars.array = _norv_malloc(4, 8);
  EXPECT_EQ(FreeNorvPars(&pars), 1);
  EXPECT_TRUE(pars.perm == nullptr && pars.array == nullptr);
}

}  // namespace
}  // namespace vlm::test
