// SPDX-License-Identifier: BSD-3-Clause
// Calls on different handles at the same time: from threads, from a parallel region, and from a
// forked process.
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// Small matrices of all types, and a few large enough for a team of threads.
struct Systems {
  std::vector<Matrix> small, large;
  Systems()
      : large{poisson3d(13), saddle_point(8, 2), convection_diffusion(13, 2.0, 10),
              magnetic_laplacian(12, 1.3, 9)} {
    for (const int mtype : all_mtypes)
      for (Matrix& m : well_conditioned(mtype)) small.push_back(std::move(m));
  }
};

/// Analyses, factors and solves; @return the worst error of the solutions, 1 where a call failed.
double solve_all_ways(const Matrix& m, int threads, int nrhs, std::uint64_t seed) {
  Session s(m, threads);
  if (m.mtype == -2) s.iparm(11) = s.iparm(13) = s.iparm(21) = 1;
  const std::vector<double> b = random_vector(m, nrhs, seed);
  double worst = 0;
  for (const int phase : {13, 33, 23, 33}) {
    const std::vector<double> x = s.solve(b, nrhs, phase);
    if (s.error != 0 || s.iparm(3) != threads) return 1;
    worst = std::max(worst, normwise_error(m, x, b, nrhs));
  }
  return worst;
}

/// Solves `count` systems four times each, starting at another one in each thread.
void work(const Systems& systems, int thread, int threads, int count) {
  for (int k = 0; k < count; ++k) {
    const bool large = k % 100 == 50;
    const std::vector<Matrix>& from = large ? systems.large : systems.small;
    const Matrix& m = from[static_cast<std::size_t>(k * (thread + 1)) % from.size()];
    ASSERT_LE(solve_all_ways(m, threads, 1 + k % 3, static_cast<std::uint64_t>(k)), 1e-9)
        << m.name << " in thread " << thread << " at " << k;
  }
}

int threads_of_the_process() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                        std::filesystem::directory_iterator()));
}

TEST(ManyCallers, TwoThreadsWithAHandleEach) {
  const Systems systems;
  omp_set_num_threads(3);  // calls hold to their own number, and this one stays
  std::thread other(work, std::cref(systems), 0, 2, 1250);
  work(systems, 1, 1, 1250);
  other.join();
  EXPECT_EQ(omp_get_max_threads(), 3);
}

// A call with one thread stays on the thread that made it.
TEST(ManyCallers, InsideAParallelRegion) {
  const Systems systems;
  std::atomic<int> before{0}, after{0}, calls{0};
#pragma omp parallel num_threads(2)
  {
#pragma omp single
    before = threads_of_the_process();
    work(systems, omp_get_thread_num(), 1, 1250);
    calls += omp_get_num_threads();
#pragma omp barrier
#pragma omp single
    after = threads_of_the_process();
  }
  EXPECT_EQ(calls, 4);
  EXPECT_EQ(after, before);
  // More threads than the region's member may have: a team of one does all the work.
#pragma omp parallel num_threads(2)
  EXPECT_LE(solve_all_ways(systems.large[omp_get_thread_num()], 4, 2, 7), 1e-9);
}

// One reads what the other has finished to write; nothing else is shared.
TEST(ManyCallers, TeamsOfTwoCallersAtOnce) {
  const Systems systems;
  const auto caller = [&](std::size_t first) {
    for (std::size_t k = 0; k < systems.large.size(); ++k)
      EXPECT_LE(solve_all_ways(systems.large[(first + k) % systems.large.size()], 3, 20, k), 1e-9);
  };
  std::thread other(caller, 2);
  caller(0);
  other.join();
}

// A forked process has none of the sanitizer's threads, and qemu starts none there.
#if !defined(VELMORA_SANITIZED) && !defined(VELMORA_EMULATED)
TEST(ManyCallers, AForkedProcessCallsAgain) {
  const Systems systems;
  ASSERT_LE(solve_all_ways(systems.large[0], 2, 20, 1), 1e-9);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);  // the team of the parent's threads would be waited for without end
    const bool good = solve_all_ways(systems.large[0], 2, 20, 1) <= 1e-9 &&
                      solve_all_ways(systems.large[2], 1, 2, 2) <= 1e-9;
    _exit(good ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_LE(solve_all_ways(systems.large[1], 2, 20, 3), 1e-9);
}
#endif

}  // namespace
}  // namespace vlm::test
