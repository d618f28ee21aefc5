// SPDX-License-Identifier: BSD-3-Clause
// Input check, order of the phases, messages, release and memory figures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "caller.hpp"
#include "gallery.hpp"

namespace vlm::test {
namespace {

using Change = void (*)(Caller&);

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// A handle with a factor: maxfct 2, matrix number 1, n 10, type -2.
void factor(Caller& c) {
  c.maxfct = 2;
  ASSERT_EQ(c.run(12), 0);
}

struct Fault {
  int phase;
  Change change;
  int code;
  const char* line;
};

// Each wrong call on a handle in use: its message, -1 with messages and -7 without; and the
// handle goes on as if the call had not been made.
TEST(InputCheck, WrongCallsOnAUsedHandle) {
  const Fault faults[] = {
      {34, [](Caller&) {}, 1, "*** Input check: ido_new 34 (out of bounds) "},
      {22, [](Caller& c) { c.maxfct = 3; }, 2,
       "*** Input check: max_fac_store_new 3 _old 2 are incompatible"},
      {22, [](Caller& c) { c.mnum = 3; }, 3,
       "*** Input check: max_fac_store_in 2 matrix_number_in 3"},
      {22, [](Caller& c) { c.mnum = 0; }, 4,
       "*** Input check: matrix_number_new 0 ido 22 are incompatible"},
      {12, [](Caller& c) { c.mnum = 0; }, 4,
       "*** Input check: matrix_number_new 0 ido 12 are incompatible"},
      {22, [](Caller& c) { c.mtype = 7; }, 15,
       "*** Input check: matrix_type_new 7 (out of bounds)"},
      {22, [](Caller& c) { c.mtype = -13; }, 15,
       "*** Input check: matrix_type_new -13 (out of bounds)"},
      {22, [](Caller& c) { c.mtype = 11; }, 5,
       "*** Input check: matrix_type_new 11 _old -2 are incompatible"},
      {22, [](Caller& c) { c.n = 1000000000; }, 6,
       "*** Input check: neqns_new 1000000000 _old 10 are incompatible"},
      {11, [](Caller& c) { c.n = 0; }, 7, "*** Input check: neqns_new 0"},
      {22, [](Caller& c) { c.ia[10] = 19; }, 8,
       "*** Input check: ia(neqns+1)_new 18 _old 19 are incompatible"},
      {33, [](Caller& c) { c.nrhs = 0, c.iparm(32) = 2; }, 9,
       "*** Input check: nb_new  0  ido 33 are incompatible"},
      {23, [](Caller& c) { c.nrhs = -1; }, 9,
       "*** Input check: nb_new  -1  ido 23 are incompatible"},
      {22, [](Caller& c) { c.iparm(6) = 2; }, 10, "*** Input check: iparam(6) 2 (out of bounds)"},
      {11, [](Caller& c) { c.iparm(2) = 3; }, 11,
       "*** Input check: preprocessing 3 (out of bounds)"},
      {11, [](Caller& c) { c.iparm(3) = 100000; }, 12,
       "*** Input check: internal error, counted # threads 100000"},
      {33, [](Caller& c) { c.iparm(4) = 61, c.iparm(26) = 1; }, 17,
       "*** Input check: iparam(4) 61, but the solve or the factor is a partial one"},
      {22, [](Caller& c) { c.iparm(4) = -2, c.iparm(31) = 1; }, 17,
       "*** Input check: iparam(4) -2, but the solve or the factor is a partial one"},
      {12, [](Caller& c) { c.iparm(4) = 1, c.iparm(38) = 5; }, 17,
       "*** Input check: iparam(4) 1, but the solve or the factor is a partial one"},
      {14, [](Caller&) {}, 20, "*** wrong controlstep parameter ido 14"},
      {1, [](Caller&) {}, 20, "*** wrong controlstep parameter ido 1"},
      {0, [](Caller& c) { c.mnum = 0; }, 100, "*** error velmora: wrong matrix number, clean 0"},
      {0, [](Caller& c) { c.mnum = 3; }, 100, "*** error velmora: wrong matrix number, clean 3"},
      {22, [](Caller& c) { c.iparm(32) = 1; }, 100000,
       "*** error velmora: clean impossible (ido?)"},
      {12, [](Caller& c) { c.iparm(32) = 1; }, 47, "*** Input check: dparam(4) is out of bounds"},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.line);
    Caller c = make_tridiagonal(10, -2);
    factor(c);
    const auto iparm = c.iparm_array;
    const auto ia = c.ia;
    const int kept[] = {c.maxfct, c.mnum, c.mtype, c.n, c.nrhs};
    fault.change(c);
    EXPECT_EQ(c.run(fault.phase), -7);
    const std::string text = c.run_and_read(fault.phase);
    EXPECT_EQ(c.error, -1);
    EXPECT_TRUE(contains(text, "*** error VELMORA  (sequence_ido,parameters ) error_num= " +
                                   std::to_string(fault.code) + "\n" + fault.line + "\n"))
        << text;

    c.iparm_array = iparm;
    c.ia = ia;
    c.maxfct = kept[0], c.mnum = kept[1], c.mtype = kept[2], c.n = kept[3], c.nrhs = kept[4];
    EXPECT_EQ(c.run(33), 0);
    EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
  }
}

TEST(InputCheck, NegativePhasesThatFail) {
  Caller c = make_tridiagonal(10, -2);
  for (const bool used : {false, true}) {
    if (used) factor(c);
    for (const int phase : {-10, -5}) {
      EXPECT_EQ(c.run(phase), -7) << phase;
      EXPECT_TRUE(contains(c.run_and_read(phase), "*** error velmora: internal error \n"));
      EXPECT_EQ(c.error, -1) << phase;
      EXPECT_EQ(c.empty(), !used);
    }
  }
  EXPECT_EQ(c.run(33), 0);
}

TEST(InputCheck, TooFewEntries) {
  Caller c = make_tridiagonal(5, -2);
  c.ia = {1, 2, 3, 4, 5, 5};
  const std::string text = c.run_and_read(11);
  EXPECT_EQ(c.error, -1);
  EXPECT_TRUE(contains(text, "error_num= 8\n")) << text;
}

// Which type may follow which on one analysis.
TEST(InputCheck, TypesThatMayFollow) {
  struct Pair {
    int first, second;
    bool accepted;
  };
  for (const Pair& pair : {Pair{2, -2, true},
                           {-2, 2, true},
                           {2, 3, true},
                           {2, 11, false},
                           {2, 6, false},
                           {2, 1, false},
                           {-2, 13, false}}) {
    Caller c = make_tridiagonal(10, pair.first);
    c.a.resize(2 * c.a.size());
    c.a_ptr = c.a.data();
    ASSERT_EQ(c.run(12), 0);
    c.mtype = pair.second;
    const std::string text = c.run_and_read(22);
    EXPECT_EQ(contains(text, "error_num= 5\n"), !pair.accepted)
        << pair.first << " " << pair.second << text;
    // Storage of another kind passes the check and ends in the numeric phase.
    const int expected = !pair.accepted ? -1 : pair.second == 3 ? -4 : 0;
    EXPECT_EQ(c.error, expected);
  }
}

TEST(InputCheck, CodesThatNameNoTypeFailInTheAnalysis) {
  for (const int mtype : {5, -5, -1, -3, -6, -11}) {
    Caller c = make_tridiagonal(10, mtype);
    EXPECT_EQ(c.run(13), -3) << mtype;
    EXPECT_TRUE(contains(c.run_and_read(13), "matrix type " + std::to_string(mtype)));
    EXPECT_EQ(c.x[0], -77);
    EXPECT_EQ(c.run(22), -7);  // no analysis to build on
    c.mtype = 2;
    EXPECT_NE(c.run(-1), -7);
  }
}

TEST(InputCheck, OrderingSelectorWithPanelWidth) {
  Caller c = make_tridiagonal(10, -2);
  c.iparm(2) = 7;
  c.iparm(30) = 1;
  EXPECT_EQ(c.run(13), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
}

TEST(InputCheck, EmptyHandle) {
  Caller c = make_tridiagonal(10, -2);
  // A phase below 1 has nothing to work on.
  EXPECT_EQ(c.run(-1), -7);
  EXPECT_EQ(c.run(0), -7);
  EXPECT_EQ(c.run_and_read(0),
            "*** error VELMORA  (contradictory input, initialization failed)\n"
            "handle=0 ?? ido= 0\n"
            "*** what to do: nothing to release: analyse first (phase 11)\n");
  EXPECT_EQ(c.error, -1);
  EXPECT_TRUE(contains(c.run_and_read(-1), "*** error velmora: internal error \n*** what"));
  EXPECT_EQ(c.error, -1);
  EXPECT_TRUE(c.empty());
  // Numeric phases need an analysis; a plain solve hides its failure and writes nothing.
  const std::string text = c.run_and_read(22);
  EXPECT_EQ(c.error, -1);
  EXPECT_EQ(text,
            "*** error VELMORA  (sequence_ido,parameters ) error_num= 100000\n"
            "*** error velmora: clean impossible (ido?)\n"
            "*** what to do: analyse first: phase 11, then 22 and 33, with the same pt\n");
  EXPECT_TRUE(contains(c.run_and_read(33), "error_num= 100000"));
  EXPECT_EQ(c.error, 0);
  EXPECT_EQ(c.x[0], -77);
  EXPECT_EQ(c.run(-1), 0);
  EXPECT_TRUE(c.empty());
}

TEST(Phases, ReleaseAndReuse) {
  Caller c = make_tridiagonal(10, -2);
  factor(c);
  c.mnum = 2;
  EXPECT_EQ(c.run(22), 0);
  std::string text = c.run_and_read(0);
  EXPECT_EQ(c.error, 0);
  EXPECT_TRUE(contains(text, "( clean )"));
  EXPECT_TRUE(contains(text, " L&U for matrix number 2 deleted\n"));
  for (const int k : {15, 16, 17}) EXPECT_EQ(c.iparm(k), 0);
  // A solve for a matrix number without factor makes the factor.
  EXPECT_EQ(c.run(33), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
  text = c.run_and_read(-1);
  EXPECT_EQ(c.error, 0);
  EXPECT_TRUE(contains(text, " cleaned memory, deleted number of L&U-factorizations: 2\n"));
  EXPECT_TRUE(c.empty());
  EXPECT_EQ(c.run(-1), -7);
  // The handle serves again, for another order and type.
  Caller d = make_tridiagonal(7, 2);
  d.pt = c.pt;
  EXPECT_EQ(d.run(13), 0);
  EXPECT_EQ(d.run(-1), 0);
  EXPECT_TRUE(c.empty());
}

TEST(Phases, NewAnalysisAcceptsNewSizes) {
  Caller c = make_tridiagonal(10, -2);
  factor(c);
  Caller d = make_tridiagonal(30, 2);
  d.pt = c.pt;
  d.maxfct = 5;
  d.mnum = 5;
  EXPECT_EQ(d.run(13), 0);
  EXPECT_NEAR(4 * d.x[0] - d.x[1], 1, 1e-14);
  // maxfct may be lowered; -1 still finds the records above it.
  d.maxfct = d.mnum = 1;
  EXPECT_EQ(d.run(22), 0);
  EXPECT_TRUE(contains(d.run_and_read(-1), "L&U-factorizations: 2\n"));
  EXPECT_EQ(d.error, 0);
  EXPECT_TRUE(c.empty());
}

// A factor of another type does not serve; the solve makes the right one.
TEST(Phases, SolveWithAnotherTypeFactorsAnew) {
  Caller c = make_tridiagonal(10, 2);
  ASSERT_EQ(c.run(12), 0);
  c.mtype = -2;
  EXPECT_EQ(c.run(33), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
  EXPECT_EQ(c.iparm(22), 10);
  // The pivot rule of the factor goes with the factor.
  c.iparm(21) = 1;
  EXPECT_EQ(c.run(22), 0);
  c.iparm(21) = 0;
  EXPECT_EQ(c.run(33), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
  // Without values there is nothing to factor.
  c.mtype = 2;
  c.a_ptr = nullptr;
  c.x[0] = -77;
  EXPECT_TRUE(contains(c.run_and_read(33), "argument number 7 is a null pointer"));
  EXPECT_EQ(c.x[0], -77);
}

TEST(Phases, SingularMatrixOfADefiniteType) {
  Caller c = make_tridiagonal(10, 2);
  for (double& value : c.a) value = -value;
  EXPECT_EQ(c.run(13), -4);
  EXPECT_TRUE(contains(c.run_and_read(13), "*** error velmora: zero or neg. pivot, A not spd\n"));
  for (double& value : c.a) value = -value;
  EXPECT_EQ(c.run(23), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
}

TEST(Phases, MatchingThatDoesNotExist) {
  Caller c = make_tridiagonal(10, 2);
  c.iparm(13) = 1;  // means nothing for a definite type
  EXPECT_EQ(c.run(13), 0);
  Caller d = make_tridiagonal(10, -2);
  d.iparm(13) = 5;
  EXPECT_EQ(d.run(11), -3);
  EXPECT_TRUE(contains(d.run_and_read(11), "matching iparam(13) 5 is not available"));
}

double relative_residual(Caller& c, const std::vector<double>& b) {
  std::vector<double> y(b.size());
  double normb, normr;
  velmora_residual(&c.mtype, &c.n, c.a_ptr, c.ia_ptr, c.ja_ptr, b.data(), c.x.data(), y.data(),
                   &normb, &normr);
  return normr / normb;
}

// Every matching mode with every ordering, through analysis, factorization and refactorization
// with other values, on the stored analysis.
TEST(Phases, MatchingModes) {
  for (const Matrix& m : {interior_point_kkt(9, 8, 1), saddle_point(3, 2)})
    for (int mode = 1; mode <= 4; ++mode)
      for (int order = 0; order <= 2; ++order)
        for (const int user_perm : {0, 1}) {
          SCOPED_TRACE(m.name + " mode " + std::to_string(mode) + " order " +
                       std::to_string(order) + " perm " + std::to_string(user_perm));
          Caller c(-2, m.ia, m.ja, m.a);
          c.iparm(2) = order;
          c.iparm(5) = user_perm;
          c.iparm(8) = 3;
          c.iparm(11) = c.iparm(21) = 1;
          c.iparm(13) = mode;
          for (int i = 0; i < c.n; ++i) c.perm[i] = c.n - i;
          const std::vector<double> b(c.b.begin(), c.b.begin() + c.n);
          ASSERT_EQ(c.run(11), 0);
          ASSERT_EQ(c.run(22), 0);
          ASSERT_EQ(c.run(33), 0);
          EXPECT_LE(relative_residual(c, b), 1e-9);
          const Matrix other = with_new_values(m, 3);
          c.a = other.a;
          ASSERT_EQ(c.run(23), 0);
          EXPECT_LE(relative_residual(c, b), 1e-9);
        }
}

// A matching that leaves out the Schur nodes changes nothing in the complement.
TEST(Schur, MatchingScalesOnlyWhatIsEliminated) {
  const Matrix m = interior_point_kkt(6, 4, 1);
  std::vector<double> plain;
  for (const int mode : {0, 1, 2}) {
    Caller c(-2, m.ia, m.ja, m.a);
    c.iparm(11) = c.iparm(21) = 1;
    c.iparm(13) = mode;
    c.iparm(38) = c.n - 5;
    ASSERT_EQ(c.run(12), 0);
    std::vector<double> s(c.iparm(39)), dense(25);
    std::vector<int> is(6), js(c.iparm(39));
    velmora_schur(c.pt, &c.maxfct, &c.mnum, &c.mtype, s.data(), is.data(), js.data());
    for (int i = 0; i < 5; ++i)
      for (int k = is[i] - 1; k < is[i + 1] - 1; ++k) dense[5 * i + js[k] - 1] = s[k];
    if (mode == 0) plain = dense;
    const double scale = std::abs(*std::max_element(plain.begin(), plain.end()));
    for (int k = 0; k < 25; ++k) EXPECT_NEAR(dense[k], plain[k], 1e-10 * scale) << mode;
  }
}

TEST(Phases, PermutationThatIsNone) {
  Caller c = make_tridiagonal(10, -2);
  c.iparm(5) = 1;
  for (const int wrong : {0, 3, -1, 11, 1000000000}) {
    for (int i = 0; i < c.n; ++i) c.perm[i] = i + 1;
    c.perm[4] = wrong;
    EXPECT_EQ(c.run(13), -3) << wrong;
    EXPECT_TRUE(contains(c.run_and_read(11), "*** perm is not a permutation"));
  }
  c.perm[4] = 5;
  EXPECT_EQ(c.run(13), 0);
  EXPECT_NEAR(4 * c.x[0] - c.x[1], 1, 1e-14);
}

TEST(Phases, ReportNamesTheSteps) {
  Caller c = make_tridiagonal(10, -2);
  std::string text = c.run_and_read(13);
  EXPECT_TRUE(contains(text, "Summary VELMORA " VELMORA_VERSION_STRING ": ( reorder to solve )"));
  EXPECT_TRUE(contains(text, "Time numfct :"));
  text = c.run_and_read(33);
  EXPECT_TRUE(contains(text, "( solve to solve )"));
  EXPECT_TRUE(contains(text, "Time solve  :"));
  EXPECT_FALSE(contains(text, "Time reorder:"));
  c.msglvl = -3;  // any level but 0 prints
  ::testing::internal::CaptureStdout();
  c.run(22);
  EXPECT_TRUE(contains(::testing::internal::GetCapturedStdout(), "( factorize to factorize )"));
}

TEST(Memory, FiguresFollowWhatIsHeld) {
  Caller c = make_tridiagonal(3000, -2);
  c.maxfct = 2;
  ASSERT_EQ(c.run(11), 0);
  const int peak = c.iparm(15), kept = c.iparm(16), forecast = c.iparm(17);
  // The structure alone holds more than ten integers a row; a factor two values a row.
  EXPECT_GT(kept, 3000 * 10 * 4 / 1024);
  EXPECT_GT(peak, kept);
  EXPECT_GT(forecast, 3000 * 2 * 8 / 1024);
  EXPECT_LT(forecast, 20 * 3000 * 8 / 1024);
  ASSERT_EQ(c.run(22), 0);
  EXPECT_EQ(c.iparm(17), forecast);
  c.mnum = 2;
  ASSERT_EQ(c.run(22), 0);
  EXPECT_GT(c.iparm(17), forecast + 3000 * 8 / 1024);
  EXPECT_EQ(c.iparm(16), kept);
  c.iparm(9) = -1;
  ASSERT_EQ(c.run(22), 0);
  EXPECT_EQ(c.iparm(17), 0);
}

TEST(Schur, TrailingBlockOfATridiagonalMatrix) {
  // Eliminating 1..3 of (-1, 4, -1) changes the first entry of the rest only.
  for (const int mtype : {2, -2, 1, 11}) {
    Caller c = make_tridiagonal(6, mtype);
    double s[9] = {};
    int is[4] = {}, js[9] = {};
    velmora_schur(c.pt, &c.maxfct, &c.mnum, &c.mtype, s, is, js);
    EXPECT_EQ(is[0], 0);  // no factor: nothing is written
    c.iparm(38) = 3;
    ASSERT_EQ(c.run(12), 0);
    ASSERT_GE(c.iparm(39), mtype < 3 && mtype != 1 ? 5 : 7);
    ASSERT_LE(c.iparm(39), mtype < 3 && mtype != 1 ? 6 : 9);
    velmora_schur_(c.pt, &c.maxfct, &c.mnum, &c.mtype, s, is, js);
    EXPECT_EQ(is[3], c.iparm(39) + 1);
    double dense[3][3] = {};
    for (int i = 0; i < 3; ++i)
      for (int k = is[i] - 1; k < is[i + 1] - 1; ++k) dense[i][js[k] - 1] = s[k];
    EXPECT_NEAR(dense[0][0], 4 - 1 / (4 - 1 / (4 - 1 / 4.0)), 1e-15);
    EXPECT_EQ(dense[1][1], 4);
    EXPECT_EQ(dense[0][1], -1);
    EXPECT_EQ(dense[0][2], 0);
    EXPECT_EQ(dense[1][2], -1);
  }
}

// Nodes are counted and shown; the work is that of one process.
TEST(Driver, NodesChangeNeitherOrderNorMemory) {
  const Matrix m = elasticity3d(6, 3);
  for (const int threads : {1, 2}) {
    std::vector<std::vector<int>> outcomes;
    for (const int nodes : {0, 3, 100000}) {
      Caller c(m.mtype, m.ia, m.ja, m.a);
      c.iparm(3) = threads;
      c.iparm(5) = -1;
      c.iparm(51) = nodes > 0 ? 1 : 0;
      c.iparm(52) = nodes;
      const std::string text = c.run_and_read(12);
      ASSERT_EQ(c.error, 0);
      EXPECT_EQ(c.iparm(51), nodes > 0 ? 2 : 0);
      EXPECT_EQ(c.iparm(52), std::max(nodes, 1));
      EXPECT_TRUE(contains(text, " " + std::to_string(std::max(nodes, 1)) + "\n")) << text;
      std::vector<int> outcome(c.perm.begin(), c.perm.begin() + c.n);
      for (const int k : {15, 16, 17, 18, 19}) outcome.push_back(c.iparm(k));
      outcomes.push_back(outcome);
    }
    EXPECT_EQ(outcomes[1], outcomes[0]);
    EXPECT_EQ(outcomes[2], outcomes[0]);
  }
}

}  // namespace
}  // namespace vlm::test
