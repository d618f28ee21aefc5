// SPDX-License-Identifier: BSD-3-Clause
// Schedules of the factorization, each forced, with a family that computes nothing but takes its
// time: every update reaches every panel once and in order, and a panel that fails ends the work.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "caller.hpp"
#include "driver/factor_store.hpp"
#include "gallery.hpp"
#include "numeric/fine_grain.hpp"
#include "numeric/sequential.hpp"
#include "numeric/two_level.hpp"

namespace vlm::test {
namespace {

std::uint64_t mixed(std::uint64_t v) {
  v = (v ^ (v >> 31)) * 0x9e3779b97f4a7c15U;
  return v ^ (v >> 29);
}

/// What a run leaves; a panel's entries are written by the thread that holds it, and no other.
struct Trial {
  std::uint64_t seed = 0;  ///< of the sleeps; 0: none
  int failing = 0;         ///< panel that fails; 0: none
  std::vector<int> loads, finishes;
  std::vector<std::uint64_t> value;  ///< of what has come in, in any order
  std::vector<std::uint64_t> order;  ///< of the sources, as they came
  std::atomic<bool> failed{false};
  std::atomic<int> begun_after{0};  ///< panels that were begun after the failure

  explicit Trial(int panels)
      : loads(static_cast<std::size_t>(panels) + 1),
        finishes(loads),
        value(loads.size()),
        order(value) {}

  /// Most steps take no time, some a good while.
  void sleep(int a, int b) const {
    if (seed == 0) return;
    const std::uint64_t draw =
        mixed(seed + mixed(static_cast<std::uint64_t>(a) << 32 | static_cast<unsigned>(b)));
    if (draw % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(draw / 4 % 150));
  }
};

Trial* trial = nullptr;

/// The family: a panel's value is made of its number and of the values that update it.
struct SleepyFamily {
  using Frame = FactorFrame<double>;
  static std::size_t number(const Frame& f, const Panel<double>& panel) {
    return static_cast<std::size_t>(f.st.snode(panel.first));
  }
  static void load(const Frame&, int s) {
    if (trial->failed) ++trial->begun_after;
    const auto k = static_cast<std::size_t>(s);
    ++trial->loads[k];
    trial->value[k] = mixed(k);
    trial->sleep(s, 0);
  }
  static void apply(const Frame& f, const UpdateSource<double>& s, const Panel<double>& target,
                    FactorScratch<double>&) {
    const std::size_t from = number(f, s.panel), to = number(f, target);
    trial->sleep(static_cast<int>(from), static_cast<int>(to));
    trial->value[to] += mixed(trial->value[from] + static_cast<std::uint64_t>(s.m) * 1000 +
                              static_cast<std::uint64_t>(s.q));
    trial->order[to] = mixed(trial->order[to] + from);
  }
  static bool finish(const Frame& f, const Panel<double>& panel, FactorScratch<double>&) {
    const std::size_t k = number(f, panel);
    trial->sleep(static_cast<int>(k), 1);
    ++trial->finishes[k];
    trial->value[k] = mixed(trial->value[k]);
    if (static_cast<int>(k) != trial->failing) return true;
    trial->failed = true;
    return false;
  }
  static void keep(const Frame&, const Panel<double>&) {}
};

/// An analysis, and all that a factorization of it is given.
class Schedules {
 public:
  /// @param by_domains  the lists of the two-level schedules
  Schedules(const Matrix& m, int threads, bool by_domains)
      : caller_(m.mtype, m.ia, m.ja, m.a), threads_(threads) {
    caller_.iparm(3) = threads;
    caller_.iparm(24) = by_domains ? 1 : 0;
    EXPECT_EQ(caller_.run(11), 0);
    lu_.resize(factor_store_bytes<double>(st()) / sizeof(double) + 1);
    Carver measure(nullptr);
    lay_out(measure);
    PanelLists(st(), measure);
    FineGrainWork(st(), measure);
    TwoLevelWork(st(), measure);
    work_.resize(measure.used());
    logdet_.resize(st().nsuper);
  }
  const Structure& st() { return *static_cast<const Structure*>(slot(caller_.pt, slot_structure)); }
  template <class Run>
  bool run(Trial& t, Run schedule) {
    trial = &t;
    const FactorOptions options{.type = matrix_type(2)};
    FactorFrame<double> frame{.options = options,
                              .st = st(),
                              .matrix = {},
                              .store = factor_store<double>(st(), lu_.data())};
    frame.last_eliminated = st().n;
    frame.logdet = logdet_.data();
    Carver carver(work_.data());
    const Team<double> team = lay_out(carver);
    return schedule(frame, team, carver);
  }

 private:
  Team<double> lay_out(Carver& carver) {
    const Team<double> team = carver.make<FactorScratch<double>>(threads_);
    for (int k = 1; k <= threads_; ++k) {
      const FactorScratch<double> scratch(st(), carver);
      if (!team.empty()) team(k) = scratch;
    }
    return team;
  }

  Caller caller_;
  int threads_;
  std::vector<double> lu_, logdet_;
  std::vector<char> work_;
};

using Frame = FactorFrame<double>;

bool run_alone(const Frame& f, const Team<double>& team, Carver& carver) {
  const PanelLists lists(f.st, carver);
  return run_sequential<SleepyFamily>(f, team(1), lists, 1, f.st.nsuper, [](int) { return true; });
}

template <bool fixed>
bool run_fine_grain(const Frame& f, const Team<double>& team, Carver& carver) {
  const FineGrainWork work(f.st, carver);
  return FineGrain<SleepyFamily, double>(f, fixed, work).run(team);
}

template <bool fixed>
bool run_two_level(const Frame& f, const Team<double>& team, Carver& carver) {
  const TwoLevelWork work(f.st, carver);
  return TwoLevel<SleepyFamily, double>(f, fixed, work).run(team);
}

struct Way {
  const char* name;
  bool (*run)(const Frame&, const Team<double>&, Carver&);
  bool by_domains, fixed;
};
constexpr Way ways[] = {{"sequential", run_alone, false, true},
                        {"fine-grain", run_fine_grain<false>, false, false},
                        {"fine-grain, fixed order", run_fine_grain<true>, false, true},
                        {"two-level", run_two_level<false>, true, false},
                        {"two-level, fixed order", run_two_level<true>, true, true}};

constexpr int threads = 4;
const Matrix& mesh() {
  static const Matrix m = poisson3d(13);
  return m;
}

class EachSchedule : public ::testing::TestWithParam<Way> {};

TEST_P(EachSchedule, EveryUpdateComesOnceWhateverTheTiming) {
  const Way& way = GetParam();
  alarm(300);  // a schedule that waits for ever
  Schedules given(mesh(), threads, way.by_domains);
  const int panels = given.st().nsuper;
  ASSERT_GT(panels, 30);
  ASSERT_EQ(given.st().nparts, way.by_domains ? threads : given.st().nparts);
  Trial reference(panels);
  ASSERT_TRUE(given.run(reference, run_alone));
  Trial first(panels);
  first.seed = 1;
  ASSERT_TRUE(given.run(first, way.run));
  for (int round = 0; round < 8; ++round) {
    Trial t(panels);
    t.seed = static_cast<std::uint64_t>(17 + round);
    ASSERT_TRUE(given.run(t, way.run));
    EXPECT_EQ(t.loads, reference.loads);
    EXPECT_EQ(t.finishes, reference.finishes);
    EXPECT_EQ(t.value, reference.value);
    EXPECT_EQ(t.order, way.fixed ? first.order : t.order);
  }
  alarm(0);
}

TEST_P(EachSchedule, AFailingPanelEndsTheWorkSoon) {
  const Way& way = GetParam();
  alarm(300);
  Schedules given(mesh(), threads, way.by_domains);
  const int panels = given.st().nsuper;
  for (int failing = 1; failing <= panels; failing += 1 + panels / 25) {
    Trial t(panels);
    t.seed = static_cast<std::uint64_t>(failing);
    t.failing = failing;
    EXPECT_FALSE(given.run(t, way.run)) << failing;
    EXPECT_LE(t.begun_after, threads) << failing;
  }
  alarm(0);
}

INSTANTIATE_TEST_SUITE_P(, EachSchedule, ::testing::ValuesIn(ways),
                         [](const auto& one) { return std::to_string(one.index); });

/// Spoils equation i: a diagonal entry below zero, or, without a triangle, nothing but zeros.
void spoil(const Matrix& m, int i, std::vector<double>& a) {
  const auto nvals = static_cast<std::size_t>(m.nvals());
  for (int row = 0; row < m.n; ++row)
    for (int p = m.ia[row] - 1; p < m.ia[row + 1] - 1; ++p) {
      const int column = m.ja[p] - 1;
      double* value = a.data() + static_cast<std::size_t>(p) * nvals;
      if (m.triangle() ? row == i && column == i : row == i || column == i) {
        std::fill_n(value, nvals, 0.0);
        if (m.triangle()) value[0] = -1;
      }
    }
}

// The families that can fail, under each schedule that a call can choose.
TEST(Failure, EndsEveryCallOnThreads) {
  alarm(300);
  for (const Matrix& m : {poisson3d(10), magnetic_laplacian(9, 0, 1), structurally_symmetric(7, 2),
                          structurally_symmetric(6, 3, 3)})
    for (const int place : {0, m.n / 2, m.n - 1})
      for (const bool domains : {false, true})
        for (const bool fixed : {false, true}) {
          SCOPED_TRACE(m.name + ", equation " + std::to_string(place));
          Caller caller(m.mtype, m.ia, m.ja, m.a);
          caller.iparm(3) = threads;
          caller.iparm(24) = caller.iparm(25) = domains;
          caller.iparm(34) = fixed;
          ASSERT_EQ(caller.run(11), 0);
          spoil(m, place, caller.a);
          EXPECT_EQ(caller.run(22), -4);
          caller.a = m.a;
          EXPECT_EQ(caller.run(23), 0);
        }
  alarm(0);
}

}  // namespace
}  // namespace vlm::test
