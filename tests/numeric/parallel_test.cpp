// SPDX-License-Identifier: BSD-3-Clause
// Factorization and solves on several threads: the schedule's lists, and that threads, scheme and
// the number of right-hand sides show in nothing but the rounding.
#include <gtest/gtest.h>

#include <numeric>
#include <set>

#include "driver/factor_store.hpp"
#include "gallery.hpp"
#include "matrices.hpp"
#include "reference.hpp"
#include "session.hpp"
#include "solve/solve.hpp"
#include "symbolic/sched.hpp"

namespace vlm::test {
namespace {

std::vector<int> queue_of(const std::vector<int>& parent) {
  std::vector<int> queue(parent.size());
  sched_velmora(View<const int>(parent), View<int>(queue));
  return queue;
}

TEST(TaskSchedule, QueueHasLeavesFirstAndParentsBehindTheirChildren) {
  EXPECT_EQ(queue_of({0}), std::vector<int>{-1});
  EXPECT_EQ(queue_of({2, 3, 4, 0}), (std::vector<int>{-1, 2, 3, 4}));
  EXPECT_EQ(queue_of({3, 3, 0, 5, 6, 0}), (std::vector<int>{-1, -2, -4, 3, 5, 6}));
  Rng rng(1);
  for (int trial = 0; trial < 50; ++trial) {
    const int n = 1 + rng.below(60);
    std::vector<int> parent(n);
    for (int s = 1; s <= n; ++s)
      parent[s - 1] = s == n || rng.below(8) == 0 ? 0 : s + 1 + rng.below(n - s);
    const std::vector<int> queue = queue_of(parent);
    std::vector<int> place(n + 1, -1);
    for (int k = 0; k < n; ++k) place[std::abs(queue[k])] = k;
    const std::set<int> parents(parent.begin(), parent.end());
    for (int s = 1; s <= n; ++s) {
      ASSERT_GE(place[s], 0) << "trial " << trial;
      EXPECT_EQ(queue[place[s]] < 0, !parents.contains(s));
      if (parent[s - 1] != 0) {
        EXPECT_LT(place[s], place[parent[s - 1]]);
      }
    }
  }
}

/// Panels of the given widths on a chain of columns, with the row lists given by panel.
Analysis analysis_of(const std::vector<int>& widths, const std::vector<std::vector<int>>& below,
                     Vector<Range> ranges) {
  Analysis out;
  out.nsuper = static_cast<int>(widths.size());
  out.xsuper = {1};
  out.xlindx = {1};
  for (std::size_t s = 0; s < widths.size(); ++s) {
    for (int k = 0; k < widths[s]; ++k) {
      out.snode.push_back(static_cast<int>(s) + 1);
      out.lindx.push_back(out.xsuper.back() + k);
    }
    out.lindx.insert(out.lindx.end(), below[s].begin(), below[s].end());
    out.xsuper.push_back(out.xsuper.back() + widths[s]);
    out.xlindx.push_back(static_cast<int>(out.lindx.size()) + 1);
  }
  out.super_ranges = std::move(ranges);
  return out;
}

TEST(TaskSchedule, UpdateLists) {
  // Columns 1-2 | 3 | 4-5 | 6 | 7-8; two domains of two and one panel, two separator panels.
  const std::vector<int> widths{2, 1, 2, 1, 2};
  const std::vector<std::vector<int>> below{{3, 7, 8}, {6, 7}, {6, 8}, {7, 8}, {}};
  Analysis two = analysis_of(widths, below, {{1, 2}, {3, 3}, {4, 5}});
  ASSERT_EQ(blkpre_velmora(true, two), status_ok);
  EXPECT_EQ(two.updates.scheme, Scheme::two_level);
  // Panel 4 from domain 1, domain 2, separators; panel 5 likewise.
  EXPECT_EQ(two.updates.start, (Vector<int>{1, 2, 3, 3, 5, 6, 7}));
  EXPECT_EQ(two.updates.up, (Vector<int>{2, 3, 1, 2, 3, 4}));
  EXPECT_EQ(two.updates.uplen, (Vector<int>{2, 2, 2, 1, 1, 2}));

  const Vector<int> start{1, 3, 5, 7, 8, 8}, up{3, 7, 6, 7, 6, 7, 7}, len{3, 2, 2, 1, 2, 1, 2};
  Analysis fine = analysis_of(widths, below, {{1, 2}, {3, 3}, {4, 5}});
  // Domains that reach into each other are no domains.
  Analysis tangled =
      analysis_of(widths, {{3, 7, 8}, {4, 5}, {6}, {}, {}}, {{1, 2}, {3, 3}, {4, 5}});
  ASSERT_EQ(blkpre_velmora(false, fine), status_ok);
  ASSERT_EQ(blkpre_velmora(true, tangled), status_ok);
  EXPECT_EQ(tangled.updates.scheme, Scheme::fine_grain);
  EXPECT_EQ(fine.updates.scheme, Scheme::fine_grain);
  EXPECT_EQ(fine.updates.start, start);
  EXPECT_EQ(fine.updates.up, up);
  EXPECT_EQ(fine.updates.uplen, len);
}

/// Large enough for threads to share the work, and for several domains; all families.
std::vector<Matrix> divisible() {
  std::vector<Matrix> all = divisible_by_pattern();
  for (const Matrix& m : {convection_diffusion(13, 2.0, 10), convection_diffusion(12, 2.0, 10, 13),
                          badly_scaled(700, 3, 11)})
    all.push_back(m);
  return all;
}

struct Scheduling {
  int order, control, fixed;
};
constexpr Scheduling schedulings[] = {{2, 1, 0}, {2, 1, 1}, {2, 0, 0}, {0, 1, 0}, {1, 1, 0}};

void set(Session& s, const Matrix& m, const Scheduling& how) {
  if (m.mtype == -2) s.iparm(11) = s.iparm(13) = s.iparm(21) = 1;
  s.iparm(2) = how.order;
  s.iparm(24) = how.control;
  s.iparm(34) = how.fixed;
  s.iparm(33) = 1;
  s.iparm(8) = 0;
}

TEST(Threads, ShowOnlyInTheRounding) {
  for (const Matrix& m : divisible()) {
    Session alone(m);
    set(alone, m, schedulings[0]);
    ASSERT_EQ(alone.run(12), 0);
    for (const Scheduling& how : schedulings)
      for (const int threads : {2, 5}) {
        SCOPED_TRACE(m.name + " threads " + std::to_string(threads) + " order " +
                     std::to_string(how.order) + " scheme " + std::to_string(how.control));
        Session s(m, threads);
        set(s, m, how);
        ASSERT_EQ(s.run(12), 0);
        EXPECT_EQ(s.iparm(22), alone.iparm(22));
        EXPECT_EQ(s.iparm(23), alone.iparm(23));
        EXPECT_NEAR(s.dparm(33), alone.dparm(33), 1e-9 * std::abs(alone.dparm(33)));
        const double tolerance = s.iparm(14) > 0 ? 1e-7 : 1e-12;
        for (const int nrhs : {1, 3, 41}) {
          const std::vector<double> b = random_vector(m, nrhs, 12);
          EXPECT_LE(normwise_error(m, s.solve(b, nrhs), b, nrhs), tolerance) << nrhs;
        }
      }
  }
}

// Inertia apart, a fixed order gives the same bits in each run; so does a single thread.
TEST(Threads, FixedOrderRepeatsBitByBit) {
  for (const Matrix& m : divisible()) {
    SCOPED_TRACE(m.name);
    const std::vector<double> b = random_vector(m, 1, 13);
    std::vector<double> first;
    for (int run = 0; run < 6; ++run) {
      Session s(m, 4);
      set(s, m, {2, 1, 1});
      const std::vector<double> x = s.solve(b, 1, 13);
      ASSERT_EQ(s.error, 0);
      if (run == 0) first = x;
      ASSERT_EQ(x, first) << "run " << run;
    }
  }
}

TEST(Threads, MayChangeFromPhaseToPhase) {
  for (const Matrix& m : {elasticity3d(7, 1), convection_diffusion(13, 2.0, 2)}) {
    const std::vector<double> b = random_vector(m, 3, 14);
    for (const int analysis : {1, 4})
      for (const int factor : {1, 3, 8})
        for (const int solve : {1, 2, 7}) {
          Session s(m, analysis);
          ASSERT_EQ(s.run(11), 0);
          s.iparm(3) = factor;
          ASSERT_EQ(s.factor(), 0);
          s.iparm(3) = solve;
          EXPECT_LE(normwise_error(m, s.solve(b, 3), b, 3), 1e-13)
              << analysis << " " << factor << " " << solve;
        }
  }
}

// A failure anywhere ends the factorization on all threads, and the handle lives on.
TEST(Threads, FailureEndsAll) {
  const Matrix good = poisson3d(13);
  const std::vector<double> b = random_vector(good, 1, 15);
  for (const Scheduling& how : schedulings) {
    Session s(good, 4);
    set(s, good, how);
    ASSERT_EQ(s.run(12), 0);
    for (int place = 0; place < good.n; place += 97) {
      Matrix bad = good;
      bad.a[static_cast<std::size_t>(bad.ia[place] - 1)] = -1;
      s.use(bad);
      ASSERT_EQ(s.factor(), -4) << place;
    }
    s.use(good);
    ASSERT_EQ(s.factor(), 0);
    EXPECT_LE(normwise_error(good, s.solve(b), b), 1e-14);
  }
}

TEST(Threads, PartsOfASolve) {
  const Matrix m = elasticity3d(7, 3);
  const std::vector<double> b = random_vector(m, 1, 16);
  Session s(m, 4);
  s.iparm(8) = 0;
  ASSERT_EQ(s.run(12), 0);
  const std::vector<double> whole = s.solve(b);
  s.iparm(26) = 1;
  const std::vector<double> half = s.solve(b);
  s.iparm(26) = 2;
  EXPECT_LE(relative_difference(s.solve(half), whole), 1e-13);
  // One thread for the solve of a factor that several made.
  s.iparm(26) = 0;
  s.iparm(25) = 0;
  EXPECT_LE(relative_difference(s.solve(b), whole), 1e-12);
}

// The scheme of the solve is chosen by itself.  Its work tells: each domain has a vector of its
// own.
TEST(Threads, SolveTakesDomainsWhateverTheFactorizationDid) {
  const Matrix m = elasticity3d(12, 3);
  const std::vector<double> b = random_vector(m, 1, 16);
  std::vector<std::size_t> bytes;
  for (const int factorization : {0, 1})
    for (const int solve : {0, 1}) {
      Session s(m, 2);
      s.iparm(24) = factorization;
      s.iparm(25) = solve;
      ASSERT_EQ(s.run(12), 0);
      EXPECT_LE(normwise_error(m, s.solve(b), b), 1e-14);
      const SolveOptions options = solve_options(control_of(s.handle()).options);
      const auto* structure = static_cast<const Structure*>(slot(s.handle(), slot_structure));
      EXPECT_EQ(structure->schedule.scheme == Scheme::two_level, factorization == 1);
      bytes.push_back(solve_work_bytes(options, *structure, 1));
    }
  EXPECT_EQ(bytes[0], bytes[2]);
  EXPECT_EQ(bytes[1], bytes[3]);
  EXPECT_GT(bytes[1], bytes[0]);
}

}  // namespace
}  // namespace vlm::test
