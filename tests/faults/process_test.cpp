// SPDX-License-Identifier: BSD-3-Clause
// What belongs to the caller's process stays as it was in every call: random numbers, signals,
// floating-point state, standard output.
#include <fenv.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <thread>
#include <vector>

#include "gallery.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// Calls body(session, matrix) for every ordering, matching and number of threads.
template <class Body>
void for_all_ways(Body body) {
  for (const Matrix& m : {saddle_point(5, 1), random_unsymmetric(400, 4, 1, 2), poisson2d(40)})
    for (const int ordering : {0, 1, 2})
      for (const int matching : {0, 2})
        for (const int threads : {1, 2}) {
          SCOPED_TRACE(m.name + ", iparm(2) " + std::to_string(ordering) + ", iparm(13) " +
                       std::to_string(matching) + ", threads " + std::to_string(threads));
          Session s(m, threads);
          s.iparm(2) = ordering;
          s.iparm(11) = 1;
          s.iparm(13) = matching;
          s.iparm(40) = 2;
          body(s, m);
        }
}

void solve_well(Session& s, const Matrix& m) {
  const std::vector<double> b = random_vector(m, 2, 1);
  const std::vector<double> x = s.solve(b, 2, 13);
  EXPECT_EQ(s.error, 0);
  EXPECT_LE(normwise_error(m, x, b, 2), 1e-12);
}

TEST(Process, RandomNumbersGoOn) {
  for_all_ways([](Session& s, const Matrix& m) {
    std::vector<long> expected, found;
    const auto draw = [](std::vector<long>& into) {
      into.insert(into.end(), {std::rand(), random(), lrand48()});
    };
    const auto seed = [] {
      std::srand(5);
      srandom(6);
      srand48(7);
    };
    seed();
    draw(expected);
    draw(expected);
    seed();
    draw(found);
    solve_well(s, m);
    draw(found);
    EXPECT_EQ(found, expected);
  });
}

std::atomic<int> caught{0};

// The caller's handler gets every signal, and no other is left behind.
TEST(Process, SignalsReachTheirHandlers) {
  struct sigaction mine {};
  mine.sa_handler = [](int) { ++caught; };
  const int watched[] = {SIGTERM, SIGABRT, SIGINT, SIGUSR1};
  struct sigaction before[4];
  for (int k = 0; k < 4; ++k) sigaction(watched[k], &mine, &before[k]);
  const pthread_t caller = pthread_self();
  std::atomic<bool> stop{false};
  std::atomic<int> sent{0};
  caught = 0;
  std::thread sender([&] {
    while (!stop) {
      const int expected = ++sent;
      pthread_kill(caller, watched[sent % 4]);
      while (caught < expected && !stop) std::this_thread::yield();
    }
  });
  while (sent <= 20) for_all_ways(solve_well);
  stop = true;
  sender.join();
  EXPECT_EQ(caught, sent);
  for (int k = 0; k < 4; ++k) {
    struct sigaction now {};
    sigaction(watched[k], &before[k], &now);
    EXPECT_EQ(now.sa_handler, mine.sa_handler);
  }
}

// A caller may round as it likes, and have faulty operations trapped: those of a good system are
// none.
TEST(Process, FloatingPointStateIsTheCallers) {
#ifdef VELMORA_EMULATED
  GTEST_SKIP() << "an emulator traps nothing";
#endif
  for (const int rounding : {FE_TONEAREST, FE_UPWARD}) {
    fesetround(rounding);
#ifdef __GLIBC__
    feclearexcept(FE_ALL_EXCEPT);
    feenableexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW);
#endif
    for_all_ways([&](Session& s, const Matrix& m) {
      std::vector<double> b(static_cast<std::size_t>(m.n) * m.nvals(), 1), x(b.size());
      EXPECT_EQ(s.run(13, b.data(), x.data()), 0);
      EXPECT_EQ(fegetround(), rounding);
#ifdef __GLIBC__
      EXPECT_EQ(fegetexcept(), FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW);
#endif
    });
#ifdef __GLIBC__
    fedisableexcept(FE_ALL_EXCEPT);
#endif
    fesetround(FE_TONEAREST);
  }
}

// Level 0 means no word, whatever becomes of the call.
TEST(Process, SilenceIsKept) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  for_all_ways([&](Session& s, const Matrix& m) {
    std::vector<double> b(static_cast<std::size_t>(m.n), 1), x(b.size());
    s.run(22);
    s.run(44);
    s.run(13, b.data(), x.data());
    b[0] = nan;
    s.run(33, b.data(), x.data());
    s.run(33, nullptr, x.data());
    Matrix bad = m;
    bad.a[0] = nan;
    s.use(bad);
    s.run(22);
    bad = m;
    std::fill(bad.a.begin(), bad.a.end(), 0.0);
    s.run(13, x.data(), b.data());  // a useless solution
    s.use(m);
    s.run(0);
  });
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace vlm::test
