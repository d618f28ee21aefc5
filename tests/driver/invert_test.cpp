// SPDX-License-Identifier: BSD-3-Clause
// Phase -22 as a call: what it refuses, what it leaves in the handle and in the caller's arrays,
// where the factor goes meanwhile.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "caller.hpp"
#include "gallery.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

Caller caller_of(const Matrix& m) { return Caller(m.mtype, m.ia, m.ja, m.a); }

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// Largest residual of a solve with the right-hand side of ones, by a plain solve.
double residual(Caller& c, const Matrix& m) {
  c.iparm(8) = 0;
  c.b.assign(c.b.size(), 1.0);
  c.x.assign(c.x.size(), -77.0);
  EXPECT_EQ(c.run(33), 0);
  const std::size_t length = static_cast<std::size_t>(m.n) * m.nvals();
  return normwise_error(m, {c.x.begin(), c.x.begin() + length}, std::vector<double>(length, 1.0));
}

/// The folder of temporary files for the time of a scope.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::string& path) {
    if (const char* before = std::getenv("TMPDIR")) before_ = before;
    setenv("TMPDIR", path.c_str(), 1);
  }
  ~TemporaryFolder() {
    if (before_.empty())
      unsetenv("TMPDIR");
    else
      setenv("TMPDIR", before_.c_str(), 1);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

 private:
  std::string before_;
};

/// Files of this process may not grow beyond some bytes: a disk that is full.
class FullDisk {
 public:
  FullDisk() : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit lowered{4096, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lowered);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST(Inversion, KeepsTheFactorWhereAskedTo) {
  const std::string folder = ::testing::TempDir() + "velmora_inversion";
  std::filesystem::create_directory(folder);
  const TemporaryFolder temporary(folder);
  for (const Matrix& m : {shifted_laplacian(7, 1.1, false, 3), structurally_symmetric(5, 6, 3),
                          magnetic_laplacian(6, 1.3, 9)}) {
    std::vector<double> first;
    for (const int keeping : {0, 1, 2}) {
      SCOPED_TRACE(m.name + " keeping " + std::to_string(keeping));
      Caller c = caller_of(m);
      ASSERT_EQ(c.run(12), 0);
      c.iparm(36) = keeping;
      ASSERT_EQ(c.run(-22), 0);
      EXPECT_TRUE(std::filesystem::is_empty(folder));
      if (first.empty()) first = c.a;
      EXPECT_EQ(c.a, first);
      EXPECT_NE(c.a, m.a);
      if (keeping > 0) {
        EXPECT_LE(residual(c, m), 1e-12);
        // Refinement would take the inverse for the matrix.
        c.iparm(8) = 2;
        c.x.assign(c.x.size(), -77.0);
        EXPECT_TRUE(contains(c.run_and_read(33), "a is the inverse of matrix number 1"));
        EXPECT_EQ(c.error, -1);
        EXPECT_EQ(c.x.front(), -77.0);
        // So would one that iterates with an old factor, or climbs to a better one.
        c.iparm(4) = 61;
        EXPECT_EQ(c.run(33), -7);
        c.iparm(4) = 0;
        c.iparm(40) = c.iparm(42) = 1;
        EXPECT_EQ(c.run(33), -7);
        c.iparm(40) = c.iparm(42) = 0;
        // So would a solve that factors, here for want of the right precision.
        if (m.mtype == -2) {
          c.iparm(29) = 1;
          EXPECT_EQ(c.run(33), -7);
          c.iparm(29) = 0;
        }
        ASSERT_EQ(c.run(-22), 0);
        EXPECT_EQ(c.a, first);
        c.a = m.a;
        c.iparm(8) = 2;
        EXPECT_EQ(c.run(33), 0);
        EXPECT_NE(c.x.front(), -77.0);
      } else {
        c.iparm(8) = 0;
        EXPECT_TRUE(contains(c.run_and_read(33), "the inverse of matrix number 1 replaced"));
        EXPECT_EQ(c.error, -1);
        c.a = m.a;
        EXPECT_EQ(c.run(33), -7);  // with the matrix there, too
        EXPECT_EQ(c.run(-22), -7);
        EXPECT_EQ(c.x.front(), -77.0);
        EXPECT_EQ(c.run(22), 0);
      }
      c.a = m.a;
      EXPECT_LE(residual(c, m), 1e-12);
    }
  }
  std::filesystem::remove(folder);
}

TEST(Inversion, AFullDiskLeavesTheFactor) {
  const Matrix m = poisson2d(20);
  Caller c = caller_of(m);
  ASSERT_EQ(c.run(12), 0);
  c.iparm(36) = 2;
  const auto fails = [&] {
    EXPECT_TRUE(contains(c.run_and_read(-22), "no room in TMPDIR for a factor of"));
    EXPECT_EQ(c.error, -2);
    EXPECT_EQ(c.a, m.a);
    EXPECT_LE(residual(c, m), 1e-13);
  };
  {
    const TemporaryFolder temporary("/nowhere/at/all");
    fails();
  }
  {
    const FullDisk full;
    fails();
  }
  EXPECT_EQ(c.run(-22), 0);
}

TEST(Inversion, WrongCallsChangeNothing) {
  const Matrix m = poisson2d(12);
  Caller c = caller_of(m);
  EXPECT_EQ(c.run(-22), -7);  // no handle
  EXPECT_TRUE(c.empty());
  ASSERT_EQ(c.run(11), 0);
  EXPECT_TRUE(contains(c.run_and_read(-22), "matrix number 1 has no factor"));
  c.maxfct = 1;
  ASSERT_EQ(c.run(22), 0);
  struct Fault {
    const char* line;
    void (*spoil)(Caller&);
  };
  const Fault faults[] = {
      {"matrix_number_new 0 ido -22", [](Caller& x) { x.mnum = 0; }},
      {"matrix_number_in 2", [](Caller& x) { x.mnum = 2; }},
      {"matrix_type_new -2 _old 2", [](Caller& x) { x.mtype = -2; }},
      {"neqns_new 143 _old 144", [](Caller& x) { x.n = 143; }},
      {"iparam(36) -1", [](Caller& x) { x.iparm(36) = -1; }},
      {"iparam(37) 2", [](Caller& x) { x.iparm(37) = 2; }},
      {"argument number 7", [](Caller& x) { x.a_ptr = nullptr; }},
      {"argument number 8", [](Caller& x) { x.ia_ptr = nullptr; }},
      {"argument number 9", [](Caller& x) { x.ja_ptr = nullptr; }},
      {"ia, ja are not the pattern", [](Caller& x) { ++x.ja[1]; }},
      {"ia(neqns+1)_new", [](Caller& x) { ++x.ia.back(); }},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.line);
    const auto iparm = c.iparm_array;
    fault.spoil(c);
    const std::string text = c.run_and_read(-22);
    EXPECT_TRUE(contains(text, fault.line)) << text;
    EXPECT_FALSE(contains(text, "internal error")) << text;
    EXPECT_EQ(c.error, -1);
    c.iparm_array = iparm;
    c.mnum = 1, c.mtype = 2, c.n = m.n;
    c.ia = m.ia;
    c.ja = m.ja;
    c.a_ptr = c.a.data(), c.ia_ptr = c.ia.data(), c.ja_ptr = c.ja.data();
    EXPECT_EQ(c.a, m.a);
    EXPECT_LE(residual(c, m), 1e-13);
  }
  Caller schur = caller_of(m);
  schur.iparm(38) = 100;
  ASSERT_EQ(schur.run(12), 0);
  EXPECT_TRUE(contains(schur.run_and_read(-22), "Schur complement has no inverse"));
  EXPECT_EQ(schur.a, m.a);
}

// Each matrix number has its own factor, and its own say in what became of it.
TEST(Inversion, OfOneOfSeveralFactors) {
  const Matrix first = poisson2d(10), second = with_new_values(first, 3);
  Caller c = caller_of(first);
  c.maxfct = 2;
  ASSERT_EQ(c.run(12), 0);
  c.mnum = 2;
  c.a = second.a;
  ASSERT_EQ(c.run(22), 0);
  ASSERT_EQ(c.run(-22), 0);
  EXPECT_EQ(c.run(33), -7);
  c.mnum = 1;
  EXPECT_LE(residual(c, first), 1e-13);
  c.mnum = 2;
  c.a = second.a;
  ASSERT_EQ(c.run(22), 0);
  EXPECT_LE(residual(c, second), 1e-13);
  EXPECT_EQ(c.run(0), 0);
  EXPECT_EQ(c.run(-22), -7);
}

// The factor of a partial solve is a whole one.
TEST(Inversion, OfTheFactorOfAPartialSolve) {
  const Matrix m = poisson2d(15);
  Caller c = caller_of(m), partial = caller_of(m);
  partial.iparm(31) = 1;
  for (int k = 0; k < 5; ++k) partial.perm[static_cast<std::size_t>(k)] = 1;
  ASSERT_EQ(partial.run(12), 0);
  ASSERT_EQ(partial.run(-22), 0);
  ASSERT_EQ(c.run(12), 0);
  ASSERT_EQ(c.run(-22), 0);
  EXPECT_LE(relative_difference(partial.a, c.a), 1e-13);
}

TEST(Inversion, FullForm) {
  for (const Matrix& m : {poisson2d(9), random_indefinite(60, 0.1, 0.3, 2, 6),
                          magnetic_laplacian(5, 1.3, 9), structurally_symmetric(4, 6)}) {
    SCOPED_TRACE(m.name);
    Caller c = caller_of(m), full = caller_of(m);
    const std::size_t room = 2 * m.ja.size();
    full.ja.resize(room);
    full.a.resize(room * static_cast<std::size_t>(m.nvals()));
    full.ja_ptr = full.ja.data();
    full.a_ptr = full.a.data();
    full.iparm(37) = 1;
    full.iparm(36) = 1;
    for (Caller* call : {&c, &full}) {
      ASSERT_EQ(call->run(12), 0);
      ASSERT_EQ(call->run(-22), 0);
    }
    const Matrix triangle{
        .name = m.name, .mtype = m.mtype, .n = m.n, .ia = c.ia, .ja = c.ja, .a = c.a};
    const Matrix right = m.triangle() ? expanded(triangle) : triangle;
    EXPECT_EQ(full.ia, right.ia);
    EXPECT_TRUE(std::equal(right.ja.begin(), right.ja.end(), full.ja.begin()));
    EXPECT_TRUE(std::equal(right.a.begin(), right.a.end(), full.a.begin()));
    if (!m.triangle()) continue;
    // What stands there now is not the analysed pattern.
    EXPECT_EQ(full.run(22), -7);
    EXPECT_EQ(full.run(-22), -7);
  }
}

TEST(Inversion, DiagonalSystems) {
  Caller c(13, {1, 2, 3, 4, 5}, {2, 1, 3, 4}, {2, 0, 0, 4, 5, 0, 0, 1});
  EXPECT_EQ(c.run(-22), -7);
  ASSERT_EQ(c.run(12), 0);
  EXPECT_EQ(c.run(-22), 0);
  EXPECT_EQ(c.a, (std::vector<double>{0, -0.25, 0.5, 0, 0.2, 0, 0, -1}));
  // The inverse of a longer cycle has nothing on the pattern.
  Caller cycle(11, {1, 2, 3, 4}, {2, 3, 1}, {1, 2, 4});
  ASSERT_EQ(cycle.run(12), 0);
  EXPECT_EQ(cycle.run(-22), 0);
  EXPECT_EQ(cycle.a, (std::vector<double>{0, 0, 0}));
  Caller zero(-2, {1, 2, 3}, {1, 2}, {1, 3});
  ASSERT_EQ(zero.run(12), 0);
  zero.a[1] = 0;
  EXPECT_TRUE(contains(zero.run_and_read(-22), "diagonal matrix row 2"));
  EXPECT_EQ(zero.error, -7);
  EXPECT_EQ(zero.a, (std::vector<double>{1, 0}));
}

TEST(Inversion, PrintsItsTimesAtMessageLevelOne) {
  Caller c = caller_of(poisson2d(20));
  ASSERT_EQ(c.run(12), 0);
  c.iparm(36) = 1;
  const std::string text = c.run_and_read(-22);
  for (const char* line : {"[VELMORA]: Time for inverse  preprocessing",
                           "[VELMORA]: Time inverse factorization (nsup)",
                           "[VELMORA]: Time inverse factorization  (dom)",
                           "[VELMORA]: Time inverse inversion           "})
    EXPECT_TRUE(contains(text, line)) << text;
  ::testing::internal::CaptureStdout();
  c.run(-22);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace vlm::test
