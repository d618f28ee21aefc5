// SPDX-License-Identifier: BSD-3-Clause
// Arrays and options that no good caller passes: refused with a message, or clamped; always in
// finite time, and the handle goes on.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "caller.hpp"
#include "driver/input_scan.hpp"

namespace vlm::test {
namespace {

constexpr int least = std::numeric_limits<int>::min(), most = std::numeric_limits<int>::max();

/// The first row of the tridiagonal matrix holds, for a right-hand side of ones.
bool solves(Caller& c, int phase) {
  std::fill(c.x.begin(), c.x.end(), -77.0);
  const std::size_t nvals = c.a.size() / c.ja.size();
  return c.run(phase) == 0 && std::abs(4 * c.x[0] - c.x[nvals] - 1) < 1e-13;
}

struct Spoiled {
  const char* line;
  void (*spoil)(Caller&);
};

/// In each phase that reads the matrix; a solve returns 0 and leaves x alone.
void refuse_everywhere(const Spoiled& wrong, std::initializer_list<int> phases) {
  SCOPED_TRACE(wrong.line);
  for (const int mtype : {-2, 11}) {
    Caller c = make_tridiagonal(10, mtype);
    ASSERT_EQ(c.run(12), 0);
    const auto ia = c.ia, ja = c.ja;
    for (const int phase : phases) {
      SCOPED_TRACE(phase);
      wrong.spoil(c);
      c.x[0] = -77;
      const std::string text = c.run_and_read(phase);
      EXPECT_EQ(c.error, phase == 33 ? 0 : -1);
      EXPECT_NE(text.find(wrong.line), std::string::npos) << text;
      EXPECT_EQ(c.x[0], -77);
      c.ia = ia;
      c.ja = ja;
      EXPECT_TRUE(solves(c, 33));
    }
  }
}

TEST(MatrixCheck, ArraysThatAreNoMatrix) {
  const Spoiled cases[] = {
      {"ia(1) is 0, but ia(1) is 1",
       [](Caller& c) {
         for (int& start : c.ia) --start;
         for (int& column : c.ja) --column;
       }},
      {", but ia(1) is 1 and ia does not fall", [](Caller& c) { c.ia[3] = c.ia[4] = 2000000000; }},
      {"ia(4) is -9, but ia(1) is 1 and ia does not fall", [](Caller& c) { c.ia[3] = -9; }},
      {"ja(1) is 0, outside of the columns", [](Caller& c) { c.ja[0] = 0; }},
      {" is 11, outside of the columns", [](Caller& c) { c.ja.back() = 11; }},
      {"are incompatible", [](Caller& c) { --c.ia.back(); }},
  };
  for (const Spoiled& wrong : cases) {
    if (wrong.line[0] == 'a') {
      refuse_everywhere(wrong, {22, 23, 33});  // a pattern that may be analysed
    } else {
      refuse_everywhere(wrong, {11, 13, 22, 23, 33});
    }
  }
  // 0-based arrays of n + 1 entries look like a diagonal matrix.
  Caller c(-2, {0, 2, 3}, {0, 1, 1}, {2, 1, 2});
  for (const int phase : {11, 13}) {
    EXPECT_NE(c.run_and_read(phase).find("ia(1) is 0"), std::string::npos);
    EXPECT_EQ(c.error, -1);
  }
}

// As many entries as the analysed matrix has, at other places.
TEST(MatrixCheck, AnotherPatternIsNotFactored) {
  const Spoiled other{"ia, ja are not the pattern of the analysis", [](Caller& c) {
                        ++c.ja[static_cast<std::size_t>(c.ia[4] - 2)];  // last of row 4
                      }};
  refuse_everywhere(other, {22, 23});
  Caller c = make_tridiagonal(10, 11);
  ASSERT_EQ(c.run(11), 0);
  other.spoil(c);
  EXPECT_NE(c.run_and_read(33).find(other.line), std::string::npos);  // would factor
  EXPECT_EQ(c.x[0], -77);
}

TEST(MatrixCheck, ChecksumTellsPatternsApart) {
  std::vector<int> ia{1, 20, 40}, ja(39);
  for (int k = 0; k < 39; ++k) ja[k] = k + 1;
  const InputMatrix m{2, ia.data(), ja.data(), nullptr};
  const std::uint64_t sum = pattern_checksum(m);
  for (int bit = 0; bit < 31; ++bit)
    for (int k = 0; k < 39; ++k) {
      ja[k] ^= 1 << bit;
      EXPECT_NE(pattern_checksum(m), sum);
      const int l = (k + 16) % 39;  // the next word of the same lane, mostly
      ja[l] ^= 1 << bit;
      EXPECT_NE(pattern_checksum(m), sum);
      ja[l] ^= 1 << bit;
      ja[k] ^= 1 << bit;
    }
  std::swap(ja[0], ja[16]);
  EXPECT_NE(pattern_checksum(m), sum);
  std::swap(ja[0], ja[16]);
  ++ia[1];
  EXPECT_NE(pattern_checksum(m), sum);
}

// In the matrix of any type an error that names the place, where values are loaded; in the
// right-hand side they come back.
TEST(MatrixCheck, ValuesThatAreNoNumbers) {
  for (const int mtype : {1, 2, -2, 3, 4, -4, 6, 11, 13})
    for (const double value :
         {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()})
      for (const int threads : {1, 2}) {
        SCOPED_TRACE(std::to_string(mtype) + " " + std::to_string(value));
        Caller c = make_tridiagonal(300, mtype);
        c.iparm(3) = threads;
        ASSERT_TRUE(solves(c, 13));
        const std::size_t nvals = c.a.size() / c.ja.size();
        double& last = c.a[nvals * 401 - 1];  // of a(401)
        const double before = std::exchange(last, value);
        for (const int phase : {22, 23, 12, 13}) {
          const std::string text = c.run_and_read(phase);
          EXPECT_EQ(c.error, -4);
          EXPECT_NE(text.find("a(401) is NaN or infinity\n"), std::string::npos) << text;
        }
        c.x[0] = -77;
        EXPECT_EQ(c.run(33), 0);  // there is no factor, and none can be made
        EXPECT_EQ(c.x[0], -77);
        c.iparm(8) = 1000000000;
        last = before;
        c.b[nvals * 5] = value;
        EXPECT_EQ(c.run(13), 0);
        EXPECT_FALSE(std::isfinite(c.x[nvals * 5]));
        c.b[nvals * 5] = 1;
        EXPECT_TRUE(solves(c, 33));
      }
}

// No value of an option hangs or overflows; what a call refuses it says.
TEST(MatrixCheck, ExtremeOptions) {
  for (const int mtype : {-2, 1, 11})
    for (int k = 1; k <= 64; ++k)
      for (const int value : {least, -1000000, 3, 1000000, most - 1, most}) {
        SCOPED_TRACE("iparm(" + std::to_string(k) + ") " + std::to_string(value));
        Caller c = make_tridiagonal(40, mtype);
        c.iparm(k) = value;
        for (const int phase : {13, 22, 33}) c.run(phase);
        c.iparm(32) = 0;
        EXPECT_EQ(c.run(-1), 0);
      }
  // Values beyond what can be used do what the last usable ones do.
  for (const int k : {8, 10, 30})
    for (const int value : {least, most}) {
      Caller c = make_tridiagonal(40, -2);
      c.iparm(k) = value;
      EXPECT_TRUE(solves(c, 13)) << k;
    }
}

}  // namespace
}  // namespace vlm::test
