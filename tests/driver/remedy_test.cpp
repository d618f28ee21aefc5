// SPDX-License-Identifier: BSD-3-Clause
// The last line of a failed call's messages says what to do; whoever does it gets a solution.
#include "driver/remedy.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <regex>
#include <utility>

#include "base/status.hpp"
#include "caller.hpp"
#include "driver/options.hpp"
#include "gallery.hpp"

namespace vlm::test {
namespace {

/// max |b - A x| / max(|A||x| + |b|) for the caller's arrays, real types, entries as stored and
/// mirrored.
double residual(const Caller& c) {
  std::vector<double> r = c.b, scale(r.size());
  const bool triangle = c.mtype % 2 == 0;
  for (int i = 1; i <= c.n; ++i)
    for (int p = c.ia[i - 1]; p < c.ia[i]; ++p) {
      const int j = c.ja[p - 1];
      const auto take = [&](int row, int column) {
        const double product = c.a[p - 1] * c.x[column - 1];
        r[row - 1] -= product;
        scale[row - 1] += std::abs(product);
      };
      take(i, j);
      if (triangle && j != i) take(j, i);
    }
  double largest = 0, whole = 0;
  for (int i = 0; i < c.n; ++i) {
    largest = std::max(largest, std::abs(r[i]));
    whole = std::max(whole, scale[i] + std::abs(c.b[i]));
  }
  return largest / whole;
}

struct Failure {
  const char* name;
  std::function<void(Caller&)> spoil;
  int phase;
  const char* remedy;
  std::function<void(Caller&)> follow;  ///< what the remedy says; ends with a call that solves
};

std::function<void(Caller&)> solved_by(int phase, const std::function<void(Caller&)>& change = {}) {
  return [phase, change](Caller& c) {
    if (change) change(c);
    EXPECT_EQ(c.run(phase), 0);
  };
}

/// Fails, reads the last line, does what it says.
void fail_and_recover(Caller& c, const Failure& failure) {
  SCOPED_TRACE(failure.name);
  failure.spoil(c);
  const std::string text = c.run_and_read(failure.phase);
  const std::string line = std::string("\n*** what to do: ") + failure.remedy + "\n";
  EXPECT_NE(text.find(line), std::string::npos) << text;
  EXPECT_LE(line.size(), 82U);  // a line of 80 columns
  std::fill(c.x.begin(), c.x.end(), -77.0);
  failure.follow(c);
  EXPECT_LE(residual(c), 1e-14);
}

TEST(Remedy, WrongArguments) {
  const char* const phases = "set phase to 11, 12, 13, 22, 23 or 33, or to 0 or -1 to release";
  const char* const matrix_number = "choose mnum from 1 to maxfct";
  static double* b = nullptr;
  const Failure failures[] = {
      {"phase beyond", [](Caller&) {}, 34, phases, solved_by(33)},
      {"phase between", [](Caller&) {}, 14, phases, solved_by(13)},
      {"phase below", [](Caller&) {}, -5, phases, solved_by(33)},
      {"inverse of no factor", [](Caller& c) { c.run(0); }, -22,
       "factor first: phase 12 or 22, with the same pt and mnum", solved_by(23)},
      {"inverse in a wrong place", [](Caller& c) { c.iparm(36) = 3; }, -22,
       "set iparm(36) to 0 (overwrite the factor), 1 or 2 (keep it)", solved_by(33)},
      {"inverse of a wrong form", [](Caller& c) { c.iparm(37) = 2; }, -22,
       "set iparm(37) to 0 (triangle) or 1 (full form)", solved_by(33)},
      {"larger maxfct", [](Caller& c) { c.maxfct = 3; }, 22,
       "keep maxfct, or analyse again with the new one (phase 11)", solved_by(13)},
      {"mnum too large", [](Caller& c) { c.mnum = 3; }, 22, matrix_number,
       solved_by(23, [](Caller& c) { c.mnum = 2; })},
      {"mnum zero", [](Caller& c) { c.mnum = 0; }, 22, matrix_number,
       solved_by(33, [](Caller& c) { c.mnum = 1; })},
      {"release of a wrong mnum", [](Caller& c) { c.mnum = 9; }, 0,
       "choose mnum from 1 to the maxfct of the analysis",
       solved_by(33, [](Caller& c) { c.mnum = 1; })},
      {"no such type", [](Caller& c) { c.mtype = 7; }, 22,
       "set mtype to 1, 2, -2, 3, 4, -4, 6, 11 or 13",
       solved_by(33, [](Caller& c) { c.mtype = -2; })},
      {"another type", [](Caller& c) { c.mtype = 11; }, 22,
       "keep mtype, or analyse again with the new one (phase 11)", solved_by(13)},
      {"another n", [](Caller& c) { c.n = 9, c.ia[9] = 18; }, 22,
       "keep n, or analyse the new matrix first (phase 11)", solved_by(13)},
      {"no equations", [](Caller& c) { c.n = 0; }, 11, "pass the number of equations, at least 1",
       solved_by(33, [](Caller& c) { c.n = 10; })},
      {"too few entries", [](Caller& c) { c.ia[10] = 5; }, 11,
       "give every row an entry: ia(n+1)-1 is at least n, ia(1) is 1",
       solved_by(33, [](Caller& c) { c.ia[10] = 20; })},
      {"another pattern", [](Caller& c) { c.ia[10] = 19; }, 22,
       "keep the pattern, or analyse the new matrix first (phase 11)",
       solved_by(33, [](Caller& c) { c.ia[10] = 20; })},
      {"columns from 0", [](Caller& c) { c.ja[0] = 0; }, 11,
       "number rows and columns from 1: see velmora_chkmatrix",
       solved_by(13, [](Caller& c) { c.ja[0] = 1; })},
      {"moved entry", [](Caller& c) { c.ja[1] = 3; }, 22,
       "keep the pattern, or analyse the new matrix first (phase 11)", solved_by(13)},
      {"no right-hand side", [](Caller& c) { c.nrhs = -1; }, 23,
       "pass the number of right-hand sides, at least 1 to solve",
       solved_by(23, [](Caller& c) { c.nrhs = 1; })},
      {"iparm(6)", [](Caller& c) { c.iparm(6) = 2; }, 22,
       "set iparm(6) to 0 (solution in x) or 1 (solution in b)",
       solved_by(23, [](Caller& c) { c.iparm(6) = 0; })},
      {"iparm(2)", [](Caller& c) { c.iparm(2) = 3; }, 11, "set iparm(2) to 0, 1 or 2",
       solved_by(13, [](Caller& c) { c.iparm(2) = 1; })},
      {"iparm(3)", [](Caller& c) { c.iparm(3) = 5000; }, 11,
       "set iparm(3) to the number of threads, at most 4096",
       solved_by(33, [](Caller& c) { c.iparm(3) = 1; })},
      {"iparm(4) and iparm(26)", [](Caller& c) { c.iparm(4) = 61, c.iparm(26) = 1; }, 33,
       "set iparm(4) to 0, or iparm(26), (31) and (38) to 0",
       solved_by(33, [](Caller& c) { c.iparm(26) = 0; })},
      {"iparm(32)", [](Caller& c) { c.iparm(32) = 1; }, 12,
       "take dparm(1) to dparm(9) from velmorainit with solver 1",
       solved_by(23, [](Caller& c) { c.iparm(32) = 0; })},
      {"null array", [](Caller& c) { b = std::exchange(c.b_ptr, nullptr); }, 23,
       "pass the array: velmora.h says which ones the phase reads",
       solved_by(23, [](Caller& c) { c.b_ptr = b; })},
  };
  for (const Failure& failure : failures) {
    Caller c = make_tridiagonal(10, -2);
    c.maxfct = 2;
    ASSERT_EQ(c.run(12), 0);
    fail_and_recover(c, failure);
  }
}

TEST(Remedy, EmptyHandle) {
  const char* const analyse = "analyse first: phase 11, then 22 and 33, with the same pt";
  for (const Failure& failure :
       {Failure{"release", [](Caller&) {}, 0, "nothing to release: analyse first (phase 11)",
                solved_by(13)},
        Failure{"release of all", [](Caller&) {}, -1,
                "nothing to release: analyse first (phase 11)", solved_by(13)},
        Failure{"factorization", [](Caller&) {}, 22, analyse, solved_by(13)},
        Failure{"solve", [](Caller&) {}, 33, analyse, solved_by(13)}}) {
    Caller c = make_tridiagonal(10, -2);
    fail_and_recover(c, failure);
  }
}

TEST(Remedy, Analysis) {
  const Failure failures[] = {
      {"type without kernels", [](Caller& c) { c.mtype = 5; }, 13,
       "set mtype to 1, 2, -2, 3, 4, -4, 6, 11 or 13",
       solved_by(13, [](Caller& c) { c.mtype = 11; })},
      {"matching mode", [](Caller& c) { c.iparm(13) = 5; }, 13,
       "set iparm(13) to a mode from 0 to 4", solved_by(13, [](Caller& c) { c.iparm(13) = 1; })},
      {"no permutation", [](Caller& c) { c.iparm(5) = 1; }, 13,
       "put each of 1 to n into perm once, or set iparm(5) to 0",
       solved_by(13, [](Caller& c) { c.iparm(5) = 0; })},
      {"structurally singular",
       [](Caller& c) { c.ja[1] = 1, c.a[3] = c.a[4] = 0, c.iparm(13) = 1; }, 13,
       "look for a free unknown or a repeated equation in the model",
       solved_by(13, [](Caller& c) { c.ja[1] = 2, c.a[3] = 4; })},
  };
  for (const Failure& failure : failures) {
    Caller c = make_tridiagonal(10, 11);
    fail_and_recover(c, failure);
  }
}

TEST(Remedy, Factorization) {
  Caller indefinite = make_tridiagonal(10, 2);
  fail_and_recover(indefinite, {"not definite", [](Caller& c) { c.a[6] = -4; }, 13,
                                "if A is only symmetric, solve it with mtype -2 (phase 13)",
                                solved_by(13, [](Caller& c) { c.mtype = -2; })});
  // Swapping equations 5 and 6 would leave a zero pivot in a block that takes them one by one.
  Caller zeros = make_tridiagonal(10, 1);
  fail_and_recover(zeros, {"zero pivot",
                           [](Caller& c) {
                             for (int i = 1; i <= c.n; ++i)
                               for (int p = c.ia[i - 1]; p < c.ia[i]; ++p)
                                 c.a[p - 1] =
                                     (i + 1) / 2 == (c.ja[p - 1] + 1) / 2 && i != c.ja[p - 1];
                             c.iparm(30) = 1, c.iparm(5) = 1;
                             for (int i = 0; i < c.n; ++i) c.perm[i] = i % 5 * 2 + i / 5 + 1;
                           },
                           13, "solve it with mtype 11, which matches large entries first",
                           solved_by(13, [](Caller& c) {
                             c.run(-1);
                             c.mtype = 11;
                             c.iparm(5) = 0;
                             c.init();
                           })});
  // The zero block first: its pivots are perturbed by a tenth of the matrix.
  const Matrix m = saddle_point(6, 1);
  Caller perturbed(-2, m.ia, m.ja, m.a);
  fail_and_recover(perturbed,
                   {"refinement that does not contract",
                    [](Caller& c) {
                      c.iparm(10) = 1, c.iparm(8) = 10, c.iparm(5) = 1;
                      for (int i = 0; i < c.n; ++i) c.perm[i] = c.n - i;
                    },
                    13, "set iparm(11), iparm(13) and iparm(21) to 1 and repeat phase 13",
                    solved_by(13, [](Caller& c) {
                      c.iparm(11) = c.iparm(13) = c.iparm(21) = 1;
                      c.iparm(10) = 8, c.iparm(5) = 0;
                    })});
  // The same with all that pairs and scales: the perturbation itself is too large.
  Caller coarse(-2, m.ia, m.ja, m.a);
  fail_and_recover(coarse, {"perturbations that refinement can't undo",
                            [](Caller& c) {
                              c.iparm(11) = c.iparm(13) = c.iparm(21) = c.iparm(10) = c.iparm(5) =
                                  1;
                              c.iparm(8) = 10;
                              for (int i = 0; i < c.n; ++i) c.perm[i] = c.n - i;
                            },
                            13, "set iparm(10) to 12 and iparm(8) to 10 and repeat phase 13",
                            solved_by(13, [](Caller& c) { c.iparm(10) = 12; })});
  Caller changed = make_tridiagonal(10, 2);
  ASSERT_EQ(changed.run(12), 0);
  fail_and_recover(changed, {"other storage", [](Caller& c) { c.mtype = 3; }, 22,
                             "analyse again with this mtype (phase 11)",
                             solved_by(13, [](Caller& c) { c.mtype = 2; })});
}

// Whoever follows the advice again and again changes a setting each time, until there is none left,
// and is never told of one that the type does not have.
TEST(Remedy, AdviceOnSettingsComesToAnEnd) {
  const std::regex entry("iparm\\((\\d+)\\)"), value(" to (-?\\d+)");
  for (const int mtype : {2, -2, 4, -4, 6, 11, 13})
    for (const int perturbed : {0, 5})
      for (const int status : {status_contraction, status_inaccurate}) {
        std::array<int, 64> iparm{};
        Call call;
        call.mtype = mtype;
        call.iparm = {iparm.data(), 64};
        initial_settings(mtype, 0, call.iparm, nullptr);
        call.iparm(8) = 4;
        call.iparm(14) = perturbed;
        call.iparm(29) = 1;
        std::string text;
        int rounds = 0;
        for (; rounds < 8; ++rounds) {
          text = remedy({error_numeric, status, 0, 0}, call);
          if (!text.starts_with("set ")) break;
          const std::array<int, 64> before = iparm;
          for (std::sregex_iterator set(text.begin(), text.end(), entry), end; set != end; ++set) {
            const int k = std::stoi((*set)[1]);
            EXPECT_TRUE(matrix_type(mtype).matched || (k != 11 && k != 13 && k != 21)) << text;
            const std::string behind = set->suffix();
            std::smatch to;
            ASSERT_TRUE(std::regex_search(behind, to, value)) << text;
            call.iparm(k) = std::stoi(to[1]);
          }
          EXPECT_NE(iparm, before) << mtype << ": " << text;
        }
        EXPECT_LT(rounds, 8) << text;
        EXPECT_GT(rounds, 0);
      }
}

TEST(Remedy, DiagonalRow) {
  Caller c(-2, {1, 2, 3, 4}, {1, 2, 3}, {2, 0, 5});
  for (const int road : {0, 2}) {  // by the shortcut, and past it
    c.iparm(32) = road;
    c.a[1] = 0;
    fail_and_recover(c, {"zero row", [](Caller&) {}, 13,
                         "that row holds a zero: give it a value, or leave it out",
                         solved_by(13, [](Caller& caller) { caller.a[1] = 4; })});
  }
}

TEST(Remedy, Memory) {
#ifdef VELMORA_SANITIZED
  GTEST_SKIP() << "the sanitizers replace malloc";
#endif
  const LimitedMemory limited;
  for (const Failure& failure :
       {Failure{"factor table", [](Caller& c) { c.maxfct = std::numeric_limits<int>::max(); }, 11,
                "pass a smaller maxfct", solved_by(13, [](Caller& c) { c.maxfct = 1; })},
        Failure{"right-hand sides", [](Caller& c) { c.nrhs = std::numeric_limits<int>::max(); }, 23,
                "solve fewer right-hand sides at a time",
                solved_by(33, [](Caller& c) { c.nrhs = 1; })}}) {
    Caller c = make_tridiagonal(10, -2);
    ASSERT_EQ(c.run(12), 0);
    fail_and_recover(c, failure);
  }
}

}  // namespace
}  // namespace vlm::test
