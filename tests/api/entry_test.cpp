// SPDX-License-Identifier: BSD-3-Clause
// Exported names, defaults, queries, and arguments that a phase does not need.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

#include "base/thread_guard.hpp"
#include "caller.hpp"

namespace vlm::test {
namespace {

TEST(Entry, QueriesNeedNothing) {
  int error = -5, phase = -2, iparm[64] = {};
  velmora(nullptr, nullptr, nullptr, nullptr, &phase, nullptr, nullptr, nullptr, nullptr, nullptr,
          nullptr, iparm, nullptr, nullptr, nullptr, &error, nullptr);
  EXPECT_EQ(error, 18);
  EXPECT_EQ(iparm[0], 23);
  phase = -3;
  velmora(nullptr, nullptr, nullptr, nullptr, &phase, nullptr, nullptr, nullptr, nullptr, nullptr,
          nullptr, nullptr, nullptr, nullptr, nullptr, &error, nullptr);
  EXPECT_EQ(error, 500000);
}

TEST(Entry, EverySpellingIsTheSameOperation) {
  decltype(&velmora) const run[] = {velmora, velmora_, VELMORA, VELMORA_};
  decltype(&velmorainit) const init[] = {velmorainit, velmorainit_, VELMORAINIT, VELMORAINIT_};
  decltype(&velmora_residual)
      const residual[] = {velmora_residual, velmora_residual_, VELMORA_RESIDUAL, VELMORA_RESIDUAL_};
  for (int k = 0; k < 4; ++k) {
    void* pt[64];
    int iparm[64], mtype = 11, solver = 0, error = 1, n = 2, nrhs = 1, phase = 13, one = 1,
                   zero = 0;
    double dparm[64];
    const int ia[] = {1, 2, 3}, ja[] = {1, 2};
    const double a[] = {2, 4};
    double b[] = {2, 8}, x[2] = {}, y[2], normb, normr;
    init[k](pt, &mtype, &solver, iparm, dparm, &error);
    EXPECT_EQ(error, 0);
    iparm[2] = 1;
    run[k](pt, &one, &one, &mtype, &phase, &n, a, ia, ja, nullptr, &nrhs, iparm, &zero, b, x,
           &error, dparm);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(x[1], 2);
    x[0] = 2.5;  // residual 3
    residual[k](&mtype, &n, a, ia, ja, b, x, y, &normb, &normr);
    EXPECT_EQ(y[0], 5);
    EXPECT_DOUBLE_EQ(normb, std::sqrt(68.0));
    EXPECT_DOUBLE_EQ(normr, 3);
  }
  velmora_exist_parallel();
  VELMORA_EXIST_PARALLEL_();
  velmora_ipopt_newinterface_();
  VELMORA_IPOPT_NEWINTERFACE();
}

TEST(EntryDeathTest, ResidualOfAnotherTypeEndsTheProcess) {
  const int mtype = 1, n = 0;
  double norm;
  EXPECT_EXIT(velmora_residual(&mtype, &n, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               &norm, &norm),
              ::testing::ExitedWithCode(1), "");
}

TEST(Entry, DefaultsByTypeAndSolver) {
  struct Row {
    int mtype, p8, p10, p11, p13, p21;
  };
  constexpr Row rows[] = {{1, 1, 13, 0, 0, 0}, {3, 1, 13, 0, 0, 0},  {2, 1, 0, 0, 0, 0},
                          {4, 1, 0, 0, 0, 0},  {-2, 1, 8, 0, 0, 0},  {-4, 1, 8, 1, 2, 1},
                          {6, 1, 8, 1, 2, 1},  {11, 2, 12, 1, 1, 0}, {13, 2, 12, 1, 1, 0}};
  for (const Row& row : rows)
    for (const int solver : {0, 1, 10, 11}) {
      SCOPED_TRACE("mtype " + std::to_string(row.mtype) + " solver " + std::to_string(solver));
      void* pt[64];
      std::fill_n(pt, 64, &pt);
      std::array<int, 64> iparm, expected{};
      iparm.fill(99);
      std::array<double, 64> dparm;
      dparm.fill(99);
      int error = 9;
      velmorainit(pt, &row.mtype, &solver, iparm.data(), dparm.data(), &error);
      EXPECT_EQ(error, 0);
      for (const void* word : pt) EXPECT_EQ(word, nullptr);
      const bool iterative =
          (solver == 1 || solver == 11) && (row.mtype == -2 || row.mtype == 6 || row.mtype == 11);
      const auto entry = [&](int k) -> int& { return expected[static_cast<std::size_t>(k - 1)]; };
      entry(1) = 1;
      entry(2) = 2;
      entry(3) = 99;
      entry(18) = entry(19) = -1;
      entry(24) = entry(25) = 1;
      entry(8) = row.p8;
      entry(10) = row.p10;
      entry(11) = row.p11;
      entry(13) = row.p13;
      entry(21) = row.p21;
      entry(32) = iterative ? 1 : 0;
      entry(35) = solver >= 10 ? 10 : 0;
      EXPECT_EQ(iparm, expected);
      EXPECT_EQ(dparm[0], iterative ? 300 : 99);
      EXPECT_EQ(dparm[8], iterative ? 25 : 99);
      EXPECT_EQ(dparm[63], iterative ? 0 : 99);
    }
}

// With iparm(1) 0 the analysis loads another set of defaults.
TEST(Entry, DefaultsOfTheDriver) {
  struct Row {
    int mtype, p10, p11, p13, p21;
  };
  constexpr Row rows[] = {{2, 0, 0, 0, 0},  {-2, 8, 0, 0, 1},  {-4, 8, 0, 0, 1}, {6, 8, 0, 0, 1},
                          {1, 13, 0, 0, 0}, {11, 13, 1, 1, 0}, {13, 13, 1, 1, 0}};
  for (const Row& row : rows) {
    Caller c = make_tridiagonal(6, row.mtype);
    c.iparm_array.fill(0);
    c.iparm(7) = c.iparm(8) = c.iparm(24) = 5;
    c.iparm(15) = 4;
    const int error = c.run(11);
    EXPECT_EQ(error, 0) << row.mtype;
    EXPECT_EQ(c.iparm(1), 0);
    EXPECT_EQ(c.iparm(2), 2);
    EXPECT_GE(c.iparm(3), 1);
    EXPECT_EQ(c.iparm(7), 0);
    EXPECT_EQ(c.iparm(8), 0);
    EXPECT_EQ(c.iparm(10), row.p10);
    EXPECT_EQ(c.iparm(11), row.p11);
    EXPECT_EQ(c.iparm(13), row.p13);
    EXPECT_EQ(c.iparm(21), row.p21);
    EXPECT_EQ(c.iparm(24), 0);
    EXPECT_EQ(c.iparm(52), 1);
  }
}

TEST(Entry, NullArraysThatAPhaseDoesNotNeed) {
  Caller c = make_tridiagonal(8, -2);
  c.perm_ptr = nullptr;
  c.a_ptr = nullptr;
  c.b_ptr = c.x_ptr = nullptr;
  EXPECT_EQ(c.run(11), 0);
  c.a_ptr = c.a.data();
  EXPECT_EQ(c.run(22), 0);
  c.b_ptr = c.b.data();
  c.iparm(6) = 1;
  EXPECT_EQ(c.run(33), 0);
  EXPECT_EQ(c.x[0], -77);
  c.iparm(8) = 0;  // a solve without refinement reads no matrix
  c.a_ptr = nullptr;
  c.ia_ptr = c.ja_ptr = nullptr;
  c.iparm(6) = 0;
  c.x_ptr = c.x.data();
  EXPECT_EQ(c.run(33), 0);
  EXPECT_NE(c.x[0], -77);
  c.b_ptr = c.x_ptr = nullptr;
  EXPECT_EQ(c.run(0), 0);
  EXPECT_EQ(c.run(-1), 0);
  EXPECT_TRUE(c.empty());
}

TEST(Entry, NullArraysThatAPhaseNeeds) {
  struct Case {
    int phase, position;
    void (*remove)(Caller&);
  };
  const Case cases[] = {
      {11, 1, [](Caller& c) { c.pt = nullptr; }},
      {11, 8, [](Caller& c) { c.ia_ptr = nullptr; }},
      {11, 9, [](Caller& c) { c.ja_ptr = nullptr; }},
      {12, 7, [](Caller& c) { c.a_ptr = nullptr; }},
      {11, 7, [](Caller& c) { c.iparm(13) = 1, c.a_ptr = nullptr; }},
      {13, 14, [](Caller& c) { c.b_ptr = nullptr; }},
      {13, 15, [](Caller& c) { c.x_ptr = nullptr; }},
      {11, 10, [](Caller& c) { c.iparm(5) = -1, c.perm_ptr = nullptr; }},
      {11, 10, [](Caller& c) { c.iparm(31) = 1, c.perm_ptr = nullptr; }},
  };
  for (const Case& wrong : cases) {
    Caller c = make_tridiagonal(8, -2);
    wrong.remove(c);
    const std::string text = c.run_and_read(wrong.phase);
    const std::string line =
        "argument number " + std::to_string(wrong.position) + " is a null pointer";
    EXPECT_NE(text.find(line), std::string::npos) << text;
    EXPECT_EQ(c.error, -1);
  }
}

std::string last_message(int length = 1024) {
  std::vector<char> text(1024, '?');
  velmora_last_message(text.data(), length);
  EXPECT_EQ(std::count(text.begin(), text.end(), '?'),
            1024 - std::ssize(std::string(text.data())) - 1);
  return text.data();
}

// The message of a failure is the text printed at level 1, also in silence; each thread has its
// own, a success ends it, and a release does not.
TEST(Entry, LastMessage) {
  Caller c = make_tridiagonal(8, -2);
  ASSERT_EQ(c.run(12), 0);
  EXPECT_EQ(last_message(), "");
  c.iparm(6) = 2;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(c.run(22), -7);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  const std::string text = last_message();
  EXPECT_EQ(c.run_and_read(22).find(text + "\n"), 0U);
  EXPECT_NE(
      text.find("error_num= 10\n*** Input check: iparam(6) 2 (out of bounds)\n*** what to do: "),
      std::string::npos);
  EXPECT_EQ(last_message(8), text.substr(0, 7));
  velmora_last_message(nullptr, 8);
  char untouched = '?';
  velmora_last_message(&untouched, 0);
  EXPECT_EQ(untouched, '?');
  std::thread([] { EXPECT_EQ(last_message(), ""); }).join();
  EXPECT_EQ(c.run(0), 0);
  EXPECT_EQ(last_message(), text);
  c.iparm(6) = 0;
  EXPECT_EQ(c.run(22), 0);
  EXPECT_EQ(last_message(), "");
  velmora(c.pt, &c.maxfct, &c.mnum, &c.mtype, &c.mnum, &c.n, nullptr, nullptr, nullptr, nullptr,
          nullptr, nullptr, nullptr, nullptr, nullptr, &c.error, nullptr);
  EXPECT_EQ(c.error, -1);
  EXPECT_NE(last_message().find("argument number 12 is a null pointer"), std::string::npos);
}

// A plain solve returns 0 whatever happens; why nothing was solved is in the message.
TEST(Entry, SilentSolvesTellTheirReason) {
  struct Case {
    const char* reason;
    void (*spoil)(Caller&);
  };
  const Case cases[] = {
      {"argument number 14 is a null pointer", [](Caller& c) { c.b_ptr = nullptr; }},
      {"nb_new  0  ido 33", [](Caller& c) { c.nrhs = 0; }},
#ifndef VELMORA_SANITIZED  // the sanitizers replace malloc
      {"insufficient_memory", [](Caller& c) { c.nrhs = std::numeric_limits<int>::max(); }},
#endif
  };
#ifndef VELMORA_SANITIZED
  const LimitedMemory limited;
#endif
  for (const Case& wrong : cases) {
    Caller c = make_tridiagonal(10, -2);
    ASSERT_EQ(c.run(12), 0);
    wrong.spoil(c);
    EXPECT_EQ(c.run(33), 0);
    EXPECT_EQ(c.x[0], -77);
    EXPECT_NE(last_message().find(wrong.reason), std::string::npos) << last_message();
  }
}

TEST(Entry, ErrorsHaveTexts) {
  std::set<std::string> texts;
  for (int error = -10; error <= 1; ++error) texts.insert(velmora_error_text(error));
  EXPECT_EQ(texts.size(), 12U);
  EXPECT_EQ(velmora_error_text(7), velmora_error_text(1));
  EXPECT_EQ(velmora_error_text(std::numeric_limits<int>::min()), velmora_error_text(-10));
}

// The thread counts hold for the call only.
TEST(Entry, ThreadCountsAreRestored) {
  const int omp_before = omp_get_max_threads();
  for (const int outside : {1, 2, 3}) {
    omp_set_num_threads(outside);
    for (const int inside : {1, 2, 5}) {
      Caller c = make_tridiagonal(40, -2);
      c.iparm(3) = inside;
      EXPECT_EQ(c.run(13), 0);
      EXPECT_EQ(c.iparm(3), inside);
      EXPECT_EQ(omp_get_max_threads(), outside);
    }
    {
      const ThreadGuard guard;
      EXPECT_EQ(omp_get_max_threads(), 1);
    }
    EXPECT_EQ(omp_get_max_threads(), outside);
    // Below 1 the count that the runtime gives is written back.
    Caller c = make_tridiagonal(8, -2);
    c.iparm(3) = 0;
    EXPECT_EQ(c.run(11), 0);
    EXPECT_EQ(c.iparm(3), outside);
  }
  omp_set_num_threads(omp_before);
}

TEST(Entry, CallsFromAParallelRegion) {
  int errors = 0, threads = 0;
#pragma omp parallel num_threads(2)
#pragma omp single
  {
    Caller c = make_tridiagonal(30, -2);
    c.iparm(3) = 0;
    errors = c.run(13);
    threads = c.iparm(3);
  }
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(threads, omp_get_max_active_levels() > 1 ? omp_get_max_threads() : 1);
}

}  // namespace
}  // namespace vlm::test
