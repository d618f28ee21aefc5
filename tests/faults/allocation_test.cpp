// SPDX-License-Identifier: BSD-3-Clause
// Each allocation of a call fails once: the call ends with the memory error and its bytes, loses
// nothing, and the handle goes on to the answer that it would have given.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "allocations.hpp"
#include "caller.hpp"
#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "graph/compress.hpp"
#include "ordering/dissect.hpp"

namespace vlm::test {
namespace {

/// What the message of the calling thread's last call says a failed allocation asked for.
long long told_bytes() {
  char text[1024];
  velmora_last_message(text, sizeof text);
  const char* at = std::strstr(text, "size to allocate: ");
  long long bytes = -1;
  if (at != nullptr) std::sscanf(at, "size to allocate: %lld bytes", &bytes);
  return bytes;
}

struct Setting {
  int index, value;
};

struct Case {
  Matrix matrix;
  std::vector<Setting> iparm;
  int threads = 1, nrhs = 1;
  bool may_recover = false;  ///< a call may reach its answer in another way
};

std::string name_of(const Case& c) {
  std::string name = c.matrix.name + " type " + std::to_string(c.matrix.mtype) + ", threads " +
                     std::to_string(c.threads);
  for (const Setting& s : c.iparm)
    name += ", iparm(" + std::to_string(s.index) + ") " + std::to_string(s.value);
  return name;
}

void prepare(Caller& c, const Case& as) {
  c.iparm(3) = as.threads;
  for (const Setting& s : as.iparm) c.iparm(s.index) = s.value;
  c.nrhs = as.nrhs;
  c.iparm(40) = 1;  // a solve tells its errors then
  const auto length = static_cast<std::size_t>(2 * c.n * as.nrhs);
  c.b.resize(length);
  c.x.assign(length, 0);
  for (std::size_t k = 0; k < length; ++k) c.b[k] = std::cos(static_cast<double>(k));
  c.perm.assign(static_cast<std::size_t>(c.n), 0);
  c.b_ptr = c.b.data();
  c.x_ptr = c.x.data();
  c.perm_ptr = c.perm.data();
}

/// Runs the phases one after the other; each allocation of phase number `tested` fails once
/// before.  @return allocations that could fail
int sweep(const Case& as, const std::vector<int>& phases, std::size_t tested) {
  int k = 1, spared = 0;
  std::vector<double> good, good_a;
  std::vector<int> good_perm;
  {
    Caller c(as.matrix.mtype, as.matrix.ia, as.matrix.ja, as.matrix.a);
    prepare(c, as);
    for (const int phase : phases) EXPECT_EQ(c.run(phase), 0);
    good = c.x;
    good_a = c.a;
    good_perm = c.perm;
  }
  for (bool more = true; more; ++k) {
    Caller c(as.matrix.mtype, as.matrix.ia, as.matrix.ja, as.matrix.a);
    prepare(c, as);
    const long long before = allocations::live();
    for (std::size_t p = 0; p < phases.size(); ++p) {
      if (p == tested) {
        allocations::arm(k);
        c.run(phases[p]);
        const allocations::Fault fault = allocations::disarm();
        more = fault.happened;
        // Work space of a sort, say, may be done without.
        if (c.error == 0 && (!more || as.may_recover || ++spared <= 8)) continue;
        EXPECT_EQ(c.error, -2) << "allocation " << k;
        EXPECT_EQ(told_bytes(), static_cast<long long>(fault.bytes)) << "allocation " << k;
      }
      EXPECT_EQ(c.run(phases[p]), 0) << "after the failure of allocation " << k;
    }
    double error = 0;
    for (std::size_t i = 0; i < good.size(); ++i)
      error = std::max(error, std::abs(c.x[i] - good[i]));
    for (std::size_t i = 0; i < good_a.size(); ++i)
      error = std::max(error, std::abs(c.a[i] - good_a[i]));
    EXPECT_LE(error, as.threads == 1 && !as.may_recover ? 0 : 1e-8) << "allocation " << k;
    EXPECT_TRUE(c.perm == good_perm) << "allocation " << k;
    c.run(-1);
    EXPECT_EQ(allocations::live(), before) << "allocation " << k;
    if (::testing::Test::HasFailure()) return k;
  }
  return k - 2;
}

/// @return allocations that could fail
int sweep_phases(const Case& c) {
  SCOPED_TRACE(name_of(c));
  int total = 0;
  for (std::size_t p = 0; p < 3; ++p) total += sweep(c, {11, 22, 33}, p);
  return total;
}

TEST(Allocation, EveryTypeOrderingAndMatching) {
  // Two threads share what has domains: the second one of each type.
  const Matrix matrices[][2] = {
      {structurally_symmetric(2, 1), random_structurally_symmetric(210, 2, 1)},
      {elasticity3d(2, 2), poisson2d(15)},
      {saddle_point(2, 3), tridiagonal(210, 3)},
      {structurally_symmetric(2, 4, 3), random_structurally_symmetric(210, 2, 4, 3)},
      {magnetic_laplacian(3, 0, 5), random_spd(210, 2, 5, 4)},
      {magnetic_laplacian(3, 1.3, 6), tridiagonal(210, 6, -4)},
      {helmholtz(6, 0.7, true, 7), tridiagonal(210, 7, 6)},
      {random_unsymmetric(40, 3, 1, 8), random_unsymmetric(210, 2, 1, 8)},
      {random_unsymmetric(40, 3, 1, 9, 13), random_unsymmetric(210, 2, 1, 9, 13)}};
  for (const auto& [small, large] : matrices) {
    const int t = small.mtype;
    const bool matched = t == -2 || t == -4 || t == 6 || t > 10;
    for (const int ordering : {0, 1, 2}) {
      for (const int matching : matched ? std::vector<int>{0, 1, 2, 3, 4} : std::vector<int>{0})
        EXPECT_GT(sweep_phases({small, {{2, ordering}, {11, 1}, {13, matching}}, 1}), 50);
      sweep_phases({large, {{2, ordering}}, 2});
      if (HasFailure()) return;
    }
  }
}

// What options add to a call.
TEST(Allocation, Options) {
  const Matrix kkt = saddle_point(2, 1), wind = convection_diffusion(6, 5, 2);
  const Case cases[] = {{kkt, {{40, 2}, {8, 3}}, 1, 3},
                        {kkt, {{40, 2}, {8, -3}}, 1, 12},
                        {kkt, {{10, 12}, {21, 0}, {8, 3}, {11, 1}, {13, 2}}},
                        {kkt, {{29, 1}, {8, 5}}},
                        {kkt, {{33, 1}, {21, 1}, {6, 1}}},
                        {wind, {{12, 1}, {8, 4}, {40, 2}}},
                        {wind, {{38, 30}}},
                        {poisson2d(5), {{5, -1}}},
                        {poisson2d(15), {{28, 1}}, 2}};
  for (const Case& c : cases) {
    sweep_phases(c);
    sweep(c, {13}, 0);
    if (HasFailure()) return;
  }
}

// The order of a grid that is cut, which comes back in perm: after a failure it is the same.
TEST(Allocation, AnalysisByDissection) {
  const Matrix grid = structurally_symmetric(10, 1, 3);
  Adjacency graph;
  ladjun_velmora({grid.n, View<const int>(grid.ia), View<const int>(grid.ja)}, {}, graph);
  DissectionTrace trace;
  dissect(compress_graph(graph).graph, {.operation_cost = 8, .trace = &trace});
  ASSERT_GE(trace.pieces.size(), 3U) << "the grid is not cut";
  for (const int threads : {1, 2})
    EXPECT_GT(sweep({grid, {{5, -1}}, threads}, {11}, 0), 200) << threads << " threads";
}

// Phases and options that go on from a factor.
TEST(Allocation, WhatFollowsAFactor) {
  const Matrix grid = poisson2d(6), kkt = saddle_point(2, 1), wind = convection_diffusion(6, 5, 2);
  for (const Matrix& m : {grid, kkt, wind, helmholtz(5, 0.7, true, 7)})
    for (const int store : {0, 1, 2}) sweep({m, {{36, store}}}, {12, -22}, 1);
  for (const Matrix& m : {grid, kkt, wind})
    for (const std::size_t phase : {0, 1}) sweep({m, {{4, -102}}}, {13, 23}, phase);
}

// A solve that goes on until it is good finds its way around what fails, or says what it lacked.
TEST(Allocation, SolvesThatGoOn) {
  const Case krylov{random_indefinite(60, 0.2, 1.0, 1), {{10, 1}, {21, 0}, {42, 1}}, 1, 1, true};
  Case anew{expanded(tridiagonal(40, 1)), {{42, 1}}, 1, 1, true};
  for (int i = 0; i < anew.matrix.n; ++i)  // no pivots on the diagonal: another factor
    for (int p = anew.matrix.ia[i] - 1; p < anew.matrix.ia[i + 1] - 1; ++p)
      if (anew.matrix.ja[p] == i + 1) anew.matrix.a[p] = 0;
  for (const Case& c : {krylov, anew}) {
    SCOPED_TRACE(name_of(c));
    Caller plain(c.matrix.mtype, c.matrix.ia, c.matrix.ja, c.matrix.a);
    prepare(plain, c);
    EXPECT_EQ(plain.run(13), 0);
    EXPECT_GE(plain.iparm(43), c.matrix.mtype == 1 ? 3 : 2);
    sweep(c, {13}, 0);
  }
}

// Each schedule of a factorization, and of a solve, that is worth its threads.
TEST(Allocation, ThreadsThatPay) {
  const Matrix grid = poisson3d(9);
  const Case cases[] = {{grid, {}, 2},
                        {grid, {{34, 1}}, 2},
                        {grid, {{24, 0}, {25, 0}}, 2},
                        {expanded(grid, 11), {}, 2, 16}};
  for (const Case& c : cases) {
    SCOPED_TRACE(name_of(c));
    EXPECT_GE(sweep(c, {11, 22, 33}, 1), 1);
    sweep(c, {11, 22, 33}, 2);
  }
}

/// Scaled permutation: n entries, off the diagonal.
Caller make_exchange(int n) {
  std::vector<int> ia{1}, ja;
  for (int i = 1; i <= n; ++i) {
    ia.push_back(i + 1);
    ja.push_back(n + 1 - i);
  }
  return Caller(11, std::move(ia), std::move(ja),
                std::vector<double>(static_cast<std::size_t>(n), 2));
}

/// Each allocation of an inversion fails once: factor and matrix stay as they were, and the next
/// inversion gives what the first one would have.  @return allocations that could fail
int sweep_inversion(const Case& as) {
  std::vector<double> good;
  for (int k = 0;; ++k) {  // none fails at first
    Caller c(as.matrix.mtype, as.matrix.ia, as.matrix.ja, as.matrix.a);
    c.ja.resize(2 * c.ja.size());  // room for the full form
    c.a.resize(2 * c.a.size());
    c.ja_ptr = c.ja.data();
    c.a_ptr = c.a.data();
    prepare(c, as);
    EXPECT_EQ(c.run(12), 0);
    const std::vector<double> matrix = c.a;
    const long long before = allocations::live();
    allocations::arm(k);
    c.run(-22);
    const allocations::Fault fault = allocations::disarm();
    EXPECT_EQ(allocations::live(), before) << "allocation " << k;
    if (fault.happened) {
      EXPECT_EQ(c.error, -2) << "allocation " << k;
      EXPECT_EQ(told_bytes(), static_cast<long long>(fault.bytes)) << "allocation " << k;
      EXPECT_EQ(c.a, matrix) << "allocation " << k;
      EXPECT_EQ(c.run(33), 0) << "allocation " << k;
      EXPECT_EQ(c.run(-22), 0) << "allocation " << k;
    }
    if (k == 0) good = c.a;
    EXPECT_EQ(c.error, 0);
    double error = 0;
    for (std::size_t i = 0; i < good.size(); ++i)
      error = std::max(error, std::abs(c.a[i] - good[i]));
    EXPECT_LE(error, as.threads == 1 ? 0 : 1e-8) << "allocation " << k;
    if (::testing::Test::HasFailure() || (k > 0 && !fault.happened)) return k - 1;
  }
}

TEST(Allocation, SelectedInversion) {
  // A row permutation takes entries out of the factor's pattern, which are then solved for.
  for (const Matrix& m : {poisson2d(12), structurally_symmetric(4, 5, 3), badly_scaled(80, 1, 2),
                          magnetic_laplacian(5, 1.3, 9)})
    for (const int keeping : {0, 1, 2}) {
      const Case c{m, {{36, keeping}, {37, 1}}, 1};
      SCOPED_TRACE(name_of(c));
      EXPECT_GT(sweep_inversion(c), 8);
    }
  const Case threads{shifted_laplacian(12, 1.1, false, 3), {}, 3};
  SCOPED_TRACE(name_of(threads));
  EXPECT_GT(sweep_inversion(threads), 20);
}

TEST(Allocation, PermutedDiagonal) {
  Caller c = make_exchange(1000);
  allocations::arm(1);
  EXPECT_EQ(c.run(13), -2);
  const allocations::Fault fault = allocations::disarm();
  EXPECT_EQ(told_bytes(), static_cast<long long>(fault.bytes));
  EXPECT_EQ(c.run(13), 0);
  EXPECT_EQ(c.x[999], 0.5);
}

/// The errors of a call whose allocations fail in turn, the last one that of the whole call.
template <class Run>
std::vector<int> errors_of(Run run) {
  std::vector<int> errors;
  for (int k = 1; k < 1000; ++k) {
    allocations::arm(k);
    const int error = run();
    const bool failed = allocations::disarm().happened;
    errors.push_back(error);
    if (!failed) break;
  }
  return errors;
}

// What a call says needs memory of its own: without it the call ends as it does when silent.
TEST(Allocation, WordsAreNotWorthAFailure) {
  Caller wrong = make_tridiagonal(8, 11);
  ASSERT_EQ(wrong.run(11), 0);
  wrong.nrhs = -1;
  wrong.msglvl = 1;
  ::testing::internal::CaptureStdout();
  const std::vector<int> refused = errors_of([&] { return wrong.run(23); });
  ::testing::internal::GetCapturedStdout();
  for (const int error : refused) EXPECT_EQ(error, -1);
  EXPECT_GE(refused.size(), 2U);

  const std::string prefix = ::testing::TempDir() + "velmora_a_long_prefix_of_dump_files";
  setenv("VELMORA_WRITE_PREFIX", prefix.c_str(), 1);
  setenv("VELMORA_WRITE_SOL", "1", 1);
  Caller c = make_tridiagonal(8, 2);
  c.msglvl = 1;
  c.iparm(40) = 1;
  ::testing::internal::CaptureStdout();
  const std::vector<int> errors = errors_of([&] { return c.run(13); });
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(errors.back(), 0);
  for (const int error : errors) EXPECT_TRUE(error == 0 || error == -2) << error;
  std::remove((prefix + "_000-phase-13.iajaa").c_str());
  unsetenv("VELMORA_WRITE_SOL");
  unsetenv("VELMORA_WRITE_PREFIX");
}

/// What body returns in a process of its own; 99 when that ends in another way.
template <class Body>
int in_child(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 99;
}

// Tables made by the first call of a process, and the thread that a forked one works on.
TEST(Allocation, FirstCallOfAProcess) {
#ifdef VELMORA_EMULATED
  GTEST_SKIP() << "forks are those of an emulator";
#endif
  for (const int threads : {1, 2})
    for (int k = 1, done = 0; done == 0; ++k) {
      done = in_child([&] {
        Caller c = make_tridiagonal(8, 11);
        c.iparm(3) = threads;
        allocations::arm(k);
        c.run(13);
        const allocations::Fault fault = allocations::disarm();
        if (!fault.happened) return c.error == 0 ? 1 : 2;
        if (c.error != -2 || told_bytes() != static_cast<long long>(fault.bytes)) return 3;
        return c.run(13) == 0 ? 0 : 4;
      });
      ASSERT_LE(done, 1) << "allocation " << k << ", threads " << threads;
    }
}

}  // namespace
}  // namespace vlm::test
