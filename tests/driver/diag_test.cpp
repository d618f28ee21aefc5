// SPDX-License-Identifier: BSD-3-Clause
// Matrices with exactly n stored entries: solved at once, without handle.
#include <gtest/gtest.h>

#include <limits>

#include "caller.hpp"

namespace vlm::test {
namespace {

using Values = std::vector<double>;

Values head(const Values& v, std::size_t count) { return {v.begin(), v.begin() + count}; }

TEST(Diagonal, SolvesAndReports) {
  Caller c(-2, {1, 2, 3, 4}, {1, 2, 3}, {2, -4, 5});
  c.b = {2, 4, 5};
  c.b_ptr = c.b.data();
  c.iparm(15) = c.iparm(16) = c.iparm(17) = c.iparm(20) = 9;
  EXPECT_EQ(c.run(13), 0);
  EXPECT_EQ(head(c.x, 3), (Values{1, -1, 1}));
  EXPECT_EQ(c.b, (Values{2, 4, 5}));
  EXPECT_EQ(c.iparm(22), 2);
  EXPECT_EQ(c.iparm(23), 1);
  EXPECT_EQ(c.iparm(18), 3);
  EXPECT_EQ(c.iparm(19), 0);
  EXPECT_EQ(c.iparm(12), -1);
  for (const int k : {15, 16, 17, 20}) EXPECT_EQ(c.iparm(k), 0) << k;
  EXPECT_TRUE(c.empty());
  // Nothing was held, and the mark in iparm(12) says so.
  EXPECT_EQ(c.run(0), 0);
  EXPECT_EQ(c.run(-1), 0);
}

TEST(Diagonal, PermutedWithSeveralRightHandSidesInPlace) {
  Caller c(11, {1, 2, 3}, {2, 1}, {2, 4});
  c.nrhs = 2;
  c.iparm(6) = 1;
  c.b = {2, 4, 6, 8};
  c.b_ptr = c.b.data();
  EXPECT_EQ(c.run(33), 0);
  EXPECT_EQ(head(c.x, 4), (Values{1, 1, 2, 3}));
  EXPECT_EQ(c.b, (Values{1, 1, 2, 3}));
}

TEST(Diagonal, ComplexValues) {
  for (const int mtype : {3, 4, -4, 6, 13}) {
    Caller c(mtype, {1, 2, 3}, {2, 1}, {0, 2, 3, 4});
    c.iparm(22) = c.iparm(23) = 5;
    c.b = {0, 4, 25, 0};
    c.b_ptr = c.b.data();
    EXPECT_EQ(c.run(23), 0);
    EXPECT_NEAR(c.x[0], 3, 1e-15) << mtype;
    EXPECT_NEAR(c.x[1], -4, 1e-15) << mtype;
    EXPECT_NEAR(c.x[2], 2, 1e-15) << mtype;
    EXPECT_NEAR(c.x[3], 0, 1e-15) << mtype;
    EXPECT_EQ(c.iparm(22), 5);  // no signs to count
    c.iparm(6) = 1;
    EXPECT_EQ(c.run(33), 0);
    EXPECT_EQ(c.b, head(c.x, 4));
  }
}

// A scaled permutation is not symmetric, and the settings last through all phases.
TEST(Diagonal, Transposed) {
  for (const int mtype : {1, 3, 11, 13}) {
    const bool complex = mtype == 3 || mtype == 13;
    Caller c(mtype, {1, 2, 3, 4}, {2, 3, 1}, complex ? Values{0, 2, 4, 0, 0, 5} : Values{2, 4, 5});
    // A' e = (a(3), a(1), a(2)) where A e = a.
    c.b = complex ? Values{0, 5, 0, 2, 4, 0} : Values{5, 2, 4};
    c.b_ptr = c.b.data();
    const Values ones = complex ? Values{1, 0, 1, 0, 1, 0} : Values{1, 1, 1};
    c.iparm(12) = 1;
    for (const int phase : {11, 22, 33, 33, 23, 13}) {
      EXPECT_EQ(c.run(phase), 0);
      if (phase % 10 == 3) {
        EXPECT_EQ(head(c.x, ones.size()), ones) << mtype << " " << phase;
      }
      c.x.assign(c.x.size(), -77);
    }
    EXPECT_EQ(c.iparm(12), -2);
    EXPECT_EQ(c.run(-1), 0);
    // The mark means the same to a matrix that is not diagonal: (2 1; 0 4)' x = (2, 5).
    Caller d(11, {1, 3, 4}, {1, 2, 2}, {2, 1, 4});
    d.iparm(12) = -2;
    d.b = {2, 5};
    d.b_ptr = d.b.data();
    EXPECT_EQ(d.run(13), 0);
    EXPECT_NEAR(d.x[0], 1, 1e-15);
    EXPECT_NEAR(d.x[1], 1, 1e-15);
  }
}

// The two halves of a solve give the solution together; of a Cholesky factor each is a root.
TEST(Diagonal, HalfSolves) {
  for (const int mtype : {2, -2, 11})
    for (const int transposed : {0, 1}) {
      Caller c(mtype, {1, 2, 3}, {1, 2}, {4, 9});
      c.iparm(12) = transposed;
      c.b = {8, 27};
      c.b_ptr = c.b.data();
      c.iparm(6) = 1;
      c.iparm(26) = 1;
      EXPECT_EQ(c.run(13), 0);
      EXPECT_EQ(c.b, mtype == 2 ? (Values{4, 9}) : (Values{8, 27}));
      c.iparm(26) = 2;
      EXPECT_EQ(c.run(33), 0);
      EXPECT_EQ(c.b, (Values{2, 3}));
      c.iparm(26) = -1;  // both halves
      EXPECT_EQ(c.run(33), 0);
      EXPECT_EQ(c.b, (Values{0.5, 1.0 / 9 * 3}));
    }
}

// The analysis of a diagonal matrix replaces what the handle held: no factor is left that
// velmora_schur() would write beyond the arrays that iparm(39) tells.
TEST(Diagonal, ReplacesWhatTheHandleHeld) {
  for (const int phase : {11, 12, 13})
    for (const int road : {0, 2}) {  // shortcut, and past it
      Caller c = make_tridiagonal(12, -2);
      c.iparm(38) = 4;
      ASSERT_EQ(c.run(12), 0);
      ASSERT_GT(c.iparm(39), 8);
      Caller d(-2, {1, 2, 3}, {1, 2}, {2, 4});
      d.pt = c.pt;
      d.iparm(39) = c.iparm(39);
      d.iparm(32) = road;
      ASSERT_EQ(d.run(phase), 0);
      EXPECT_EQ(d.iparm(39), 0);
      double s = 7;
      int is = 7, js = 7;
      velmora_schur(d.pt, &d.maxfct, &d.mnum, &d.mtype, &s, &is, &js);
      EXPECT_TRUE(s == 7 && is == 7 && js == 7);
      d.iparm(32) = 0;
      EXPECT_EQ(c.run(22), -7);  // its analysis is gone
      EXPECT_EQ(d.run(33), 0);
      EXPECT_EQ(d.x[1], 0.25);
      EXPECT_EQ(d.run(-1), 0);
      EXPECT_TRUE(c.empty());
    }
  // A factorization is of the matrix that was analysed, and the handle goes on with it.
  Caller c = make_tridiagonal(3, -2);
  ASSERT_EQ(c.run(12), 0);
  Caller d(-2, {1, 2, 3, 4}, {1, 2, 3}, {2, 4, 8});
  d.pt = c.pt;
  EXPECT_EQ(d.run(22), -7);
  EXPECT_EQ(d.run(23), -7);
  EXPECT_EQ(c.run(33), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
  EXPECT_EQ(d.run(33), 0);  // a solve is of the matrix that it is given
  EXPECT_EQ(d.x[2], 0.125);
}

// Wrong rows by phase: 33 and 23 give -7, 12, 13 and 22 tell the row.
TEST(Diagonal, WrongRowsByPhase) {
  struct Case {
    const char* what;
    std::vector<int> ia, ja;
    Values a;
    int by_row;  // error of the phases 12, 13, 22
    const char* message;
  };
  const Case cases[] = {
      {"zero entry",
       {1, 2, 3, 4},
       {1, 2, 3},
       {2, 0, 5},
       -2,
       "row 2\n*** what to do: that row holds a zero"},
      {"row without entry",
       {1, 2, 2, 4},
       {1, 2, 3},
       {2, 3, 5},
       2,
       "row 2\n*** what to do: give that row one entry"},
      {"two entries",
       {1, 3, 4, 4},
       {1, 2, 3},
       {2, 3, 5},
       1,
       "row 1\n*** what to do: give that row one entry"},
  };
  for (const int mtype : {2, 11, 6})
    for (const Case& wrong : cases)
      for (const int phase : {11, 12, 13, 22, 23, 33}) {
        SCOPED_TRACE(std::string(wrong.what) + " phase " + std::to_string(phase));
        Values a = wrong.a;
        if (mtype == 6) a = {a[0], 0, a[1], 0, a[2], 0};
        Caller c(mtype, wrong.ia, wrong.ja, a);
        const int expected = phase == 11 ? 0 : phase == 23 || phase == 33 ? -7 : wrong.by_row;
        const std::string text = c.run_and_read(phase);
        const std::string line =
            std::string("something wrong with diagonal matrix ") + wrong.message;
        EXPECT_EQ(text.find(line) != std::string::npos, phase != 11) << text;
        EXPECT_EQ(text.empty(), phase == 11);
        EXPECT_EQ(c.error, expected);
        EXPECT_EQ(c.x[0], -77);
        if (mtype != 6 && phase != 11) {
          EXPECT_EQ(c.iparm(22), std::abs(wrong.by_row) - 1);
          EXPECT_EQ(c.iparm(23), 0);
        }
      }
}

TEST(Diagonal, ColumnsOutsideAreNotWrittenTo) {
  for (const int column : {0, -5, 3, 1000000}) {
    Caller c(11, {1, 2, 3}, {1, column}, {2, 4});
    EXPECT_EQ(c.run(13), 2);
    EXPECT_EQ(c.x, Values(c.x.size(), -77));
  }
}

// A column that stands in two rows leaves another one empty; a value that is no number has no
// reciprocal.
TEST(Diagonal, RowsThatDoNotSolve) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  for (const int phase : {12, 13, 22, 23, 33}) {
    Caller c(11, {1, 2, 3, 4}, {1, 3, 1}, {2, 4, 8});
    const std::string text = c.run_and_read(phase);
    EXPECT_EQ(c.error, -6);
    EXPECT_NE(text.find("row 3\n"), std::string::npos) << text;
    EXPECT_EQ(c.x[0], -77);
    for (const double value : {nan, inf, -inf})
      for (const int mtype : {2, 13}) {
        Caller d(mtype, {1, 2}, {1}, mtype == 13 ? Values{1, value} : Values{value});
        EXPECT_EQ(d.run(phase), -4);
        EXPECT_EQ(d.x[0], -77);
      }
  }
}

// What is not a whole and well-formed diagonal call is refused by the driver.
TEST(Diagonal, WrongCallsGoToTheDriver) {
  Caller c(-2, {1, 2, 3}, {1, 2}, {2, 4});
  EXPECT_EQ(c.run(14), -7);
  EXPECT_EQ(c.run(34), -7);
  c.x_ptr = nullptr;
  EXPECT_NE(c.run_and_read(13).find("argument number 15 is a null pointer"), std::string::npos);
  EXPECT_EQ(c.error, -1);
  // Accepted by the check, but no type: never an answer.
  c.x_ptr = c.x.data();
  for (const int mtype : {5, -5, -1, -3, -6, -11}) {
    c.mtype = mtype;
    EXPECT_EQ(c.run(13), -3) << mtype;
    EXPECT_EQ(c.x[0], -77);
  }
  // The iterative road is taken even by a diagonal matrix.
  c.mtype = -2;
  c.iparm(32) = 1;
  EXPECT_NE(c.run_and_read(13).find("dparam(4)"), std::string::npos);  // which it reads
  EXPECT_EQ(c.error, -1);
  c.iparm(32) = 0;
}

TEST(Diagonal, LargeSystemsOnSeveralThreads) {
  const int n = 40000;
  std::vector<int> ia(n + 1), ja(n);
  Values a(n);
  for (int i = 0; i < n; ++i) {
    ia[i] = i + 1;
    ja[i] = n - i;
    a[i] = i + 1;
  }
  ia[n] = n + 1;
  Caller c(11, ia, ja, a);
  c.nrhs = 2;
  c.iparm(3) = 3;
  for (int i = 0; i < n; ++i) {
    c.b[i] = 3.0 * (i + 1);
    c.b[n + i] = -5.0 * (i + 1);
  }
  ASSERT_EQ(c.run(13), 0);
  for (int i = 0; i < n; ++i) {
    ASSERT_DOUBLE_EQ(c.x[i], 3);
    ASSERT_DOUBLE_EQ(c.x[n + i], -5);
  }
}

}  // namespace
}  // namespace vlm::test
