// SPDX-License-Identifier: BSD-3-Clause
// The schedules of the factorization played for many threads, on a machine that has few.
//
//   schedule_model [PROBLEM ...] [--iparm ENTRY=VALUE ...]
//
// Takes the analysis of a problem for each number of threads, and the times of the dense kernels as
// this processor shows them, and plays the schedule that the library would run, event by event.
// What the model leaves out: threads that share caches and memory, and the cost of waking.
//
// Columns: threads; the longest chain of steps, which no number of threads undercuts; the time of
// the schedule; the speed-up over the analysis for one thread, and that over the threads; the part
// of all threads' time in which they wait; the part of the work that lies in separators.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "driver/factor_store.hpp"
#include "kernels/choice.hpp"
#include "problem.hpp"
#include "velmora.h"

extern "C" void openblas_set_num_threads(int);

namespace vlm {
namespace {

double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double seconds_of(const std::function<void()>& run) {
  run();
  double least = 1e300;
  for (int sample = 0; sample < 3; ++sample) {
    int runs = 0;
    const double start = now();
    do {
      run();
      ++runs;
    } while (now() - start < 2e-4);
    least = std::min(least, (now() - start) / runs);
  }
  return least;
}

/// Measured seconds of a kernel over a grid of sizes, interpolated by their logarithms.
class Table {
 public:
  using Sizes = std::vector<int>;
  Table(Sizes a, Sizes b, Sizes c, const std::function<double(int, int, int)>& measure)
      : axis_{std::move(a), std::move(b), std::move(c)} {
    for (const int x : axis_[0])
      for (const int y : axis_[1])
        for (const int z : axis_[2]) log_.push_back(std::log(measure(x, y, z)));
  }
  double operator()(int a, int b, int c) const {
    const Place pa = place(0, a), pb = place(1, b), pc = place(2, c);
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) {
      const int i = corner & 1, j = corner >> 1 & 1, k = corner >> 2;
      const double weight = pa.weight(i) * pb.weight(j) * pc.weight(k);
      sum += weight *
             log_[((pa.low + i) * axis_[1].size() + pb.low + j) * axis_[2].size() + pc.low + k];
    }
    return std::exp(sum);
  }

 private:
  struct Place {
    std::size_t low;
    double part;  ///< of the way to the next one; beyond the ends the slope goes on
    double weight(int upper) const { return upper ? part : 1 - part; }
  };
  Place place(int axis, int size) const {
    const Sizes& at = axis_[axis];
    std::size_t low = 0;
    while (low + 2 < at.size() && at[low + 1] <= size) ++low;
    return {low, std::log(static_cast<double>(std::max(size, 1)) / at[low]) /
                     std::log(static_cast<double>(at[low + 1]) / at[low])};
  }
  std::vector<int> axis_[3];
  std::vector<double> log_;
};

/// Seconds of the steps of a factorization of doubles.
struct Costs {
  Table update, solve, block;
  double load;  ///< of one value: cleared, and written back
};

Costs measure_costs(bool symmetric) {
  const Kernels<double>& kernel = kernels<double>();
  constexpr int rows = 4096, columns = 256;
  std::vector<double> a(rows * columns), c(a.size()), small(a.size());
  std::mt19937 gen(7);
  std::uniform_real_distribution<double> u(-1, 1);
  for (double& x : a) x = u(gen) / columns;
  const auto update = [&](int m, int q, int k) {
    PanelUpdate<double> p;
    p.m = m, p.q = q, p.k = k, p.a = p.b = a.data(), p.lda = p.b_col = p.ldc = rows, p.c = c.data();
    std::vector<int> row(static_cast<std::size_t>(std::max(m, q)));
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = static_cast<int>(i + i / 12);
    p.row = p.col = row.data();
    p.lower = symmetric;
    return seconds_of([&] { kernel.update(p); });
  };
  const auto solve = [&](int m, int n, int) {
    for (int j = 0; j < n; ++j) a[static_cast<std::size_t>(j) * (rows + 1)] = 1;
    RightSolve<double> s{.m = m, .n = n, .l = a.data(), .l_col = rows, .x = c.data(), .ldx = rows};
    return seconds_of([&] { kernel.solve_right(s); });
  };
  const auto block = [&](int n, int, int) {
    std::vector<int> pivot(columns), other(columns);
    std::vector<double> work(columns);
    return seconds_of([&] {
      for (int j = 0; j < n; ++j) {
        std::copy_n(&a[static_cast<std::size_t>(j) * rows], n,
                    &small[static_cast<std::size_t>(j) * n]);
        small[static_cast<std::size_t>(j) * (n + 1)] = 4;
      }
      BlockPivots<double> stats;
      if (symmetric)
        kernel.cholesky(n, small.data(), n);
      else
        kernel.lu_complete(n, small.data(), n, pivot.data(), other.data(), work.data(), stats);
    });
  };
  const double clear = seconds_of([&] { std::fill(c.begin(), c.end(), 0.0); });
  return {Table({2, 8, 32, 128, 512, 2048}, {1, 4, 16, 64, 160}, {1, 4, 16, 64, 160}, update),
          Table({2, 8, 32, 128, 512, 2048}, {1, 4, 16, 64, 160}, {1, 2}, solve),
          Table({1, 4, 16, 64, 160}, {1, 2}, {1, 2}, block),
          2 * clear / static_cast<double>(c.size())};
}

/// An update of a target panel that costs so much once its source is done.
struct Update {
  int source;
  double cost;
};

/// The panels of an analysis as steps with costs, from 1.
struct Tasks {
  int count = 0, domains = 1, first_separator = 1;
  std::vector<int> domain;  ///< of each panel, 0 for separators
  std::vector<double> load, finish;
  std::vector<std::vector<Update>> updates;  ///< by target, sources ascending
  std::vector<int> queue;
  Scheme scheme = Scheme::sequential;

  double work() const {
    double sum = 0;
    for (int s = 1; s <= count; ++s) sum += own_work(s);
    return sum;
  }
  double own_work(int s) const {
    double sum = load[s] + finish[s];
    for (const Update& u : updates[s]) sum += u.cost;
    return sum;
  }
};

Tasks tasks_of(const Structure& st, const Costs& cost, bool symmetric) {
  Tasks t;
  const auto length = static_cast<std::size_t>(st.nsuper) + 1;
  t.count = st.nsuper;
  t.domains = st.nparts;
  t.first_separator = st.range(2 * st.nparts + 1);
  t.scheme = st.schedule.scheme;
  t.domain.assign(length, 0);
  t.load.assign(length, 0);
  t.finish.assign(length, 0);
  t.updates.resize(length);
  for (int d = 1; d <= st.nparts; ++d)
    for (int s = st.range(2 * d - 1); s <= st.range(2 * d); ++s) t.domain[s] = d;
  const int sides = symmetric ? 1 : 2;
  for (int s = 1; s <= st.nsuper; ++s) {
    const int width = st.xsuper(s + 1) - st.xsuper(s), rows = st.xlindx(s + 1) - st.xlindx(s);
    t.load[s] = cost.load * sides * width * rows;
    t.finish[s] = cost.block(width, 1, 1);
    if (rows > width) t.finish[s] += sides * cost.solve(rows - width, width, 1);
    for (int p = st.xlindx(s) + width; p < st.xlindx(s + 1);) {
      const int target = st.snode(st.lindx(p)), after = st.xsuper(target + 1), begin = p;
      while (p < st.xlindx(s + 1) && st.lindx(p) < after) ++p;
      const int m = st.xlindx(s + 1) - begin, q = p - begin;
      double seconds = cost.update(m, q, width);
      if (!symmetric && m > q) seconds += cost.update(m - q, q, width);
      t.updates[target].push_back({s, seconds});
    }
  }
  for (int k = 1; k <= static_cast<int>(st.schedule.queue.size()); ++k)
    t.queue.push_back(std::abs(st.schedule.queue(k)));
  return t;
}

/// Time of the longest chain: every panel has a thread of its own, which takes updates as they
/// come.
double longest_chain(const Tasks& t) {
  std::vector<double> done(static_cast<std::size_t>(t.count) + 1, 0);
  double last = 0;
  for (int s = 1; s <= t.count; ++s) {
    std::vector<Update> list = t.updates[s];
    std::sort(list.begin(), list.end(),
              [&](const Update& a, const Update& b) { return done[a.source] < done[b.source]; });
    double at = 0;
    for (const Update& u : list) at = std::max(at, done[u.source]) + u.cost;
    last = std::max(last, done[s] = at + t.finish[s]);
  }
  return last;
}

struct Played {
  double time = 0, busy = 0;
};

/// Plays the schedule of a factorization: threads that take one step at a time, each beginning
/// when its thread is free, with what is done by then.
class Player {
 public:
  Player(const Tasks& t, int threads)
      : t_(t),
        two_level_(t.scheme == Scheme::two_level),
        done_(t.updates.size(), never),
        applied_(t.updates.size(), 0),
        held_(t.updates.size(), 0),
        chain_(t.updates.size(), 0),
        holds_(static_cast<std::size_t>(threads), 0) {
    for (const auto& list : t.updates) taken_.emplace_back(list.size(), 0);
    for (int k = 0; k < threads; ++k) free_.push({0.0, k});
    for (int s = t.count; s >= t.first_separator; --s) {
      chain_[s] += t.finish[s];
      for (const Update& u : t.updates[s])
        chain_[u.source] = std::max(chain_[u.source], chain_[s] + u.cost);
    }
  }

  Played run() {
    Played out;
    while (!free_.empty()) {
      const auto [at, thread] = free_.top();
      free_.pop();
      const double seconds = two_level_ ? two_level_step(thread, at) : fine_step(thread, at);
      if (seconds == nothing) continue;
      out.busy += seconds;
      out.time = std::max(out.time, at + seconds);
      free_.push({at + seconds, thread});
    }
    return out;
  }

 private:
  using Event = std::pair<double, int>;
  static constexpr double never = 1e300, nothing = -1;

  /// Panel s is done at that time; whoever waits looks again then.
  void finish(int s, double at) {
    done_[s] = at;
    finishes_.push(at);
    for (const int thread : waiting_) free_.push({at, thread});
    waiting_.clear();
  }

  /// A thread that found nothing looks again when the next panel is done.
  double wait(int thread, double at) {
    while (!finishes_.empty() && finishes_.top() <= at) finishes_.pop();
    if (finishes_.empty())
      waiting_.push_back(thread);
    else
      free_.push({finishes_.top(), thread});
    return nothing;
  }

  bool is_complete(int s) const { return applied_[s] == t_.updates[s].size(); }
  /// First update of s that is ready and not applied, or the number of them all.
  std::size_t ready_update(int s, double at) const {
    const auto& list = t_.updates[s];
    std::size_t k = 0;
    while (k < list.size() && (taken_[s][k] || done_[list[k].source] > at)) ++k;
    return k;
  }
  /// Seconds of a ready update of s.
  double apply(int s, std::size_t k) {
    taken_[s][k] = 1;
    ++applied_[s];
    return t_.updates[s][k].cost;
  }

  /// Whole domains first, then a panel of the separators: what is ready of it, one update a step.
  double two_level_step(int thread, double at) {
    if (domain_ <= t_.domains) return eliminate_domain(domain_++, at);
    int& s = holds_[thread];
    for (;;) {
      double seconds = 0;
      if (s == 0) {
        s = claim(at);
        if (s == 0) return finished_ == separators() ? nothing : wait(thread, at);
        if (applied_[s] == 0) seconds = t_.load[s];
      }
      const int held = s;
      if (const std::size_t k = ready_update(held, at); k < t_.updates[held].size())
        return seconds + apply(held, k);
      s = 0;
      if (is_complete(held)) {
        seconds += t_.finish[held];
        finish(held, at + seconds);
        ++finished_;
        return seconds;
      }
      held_[held] = 0;
    }
  }

  double eliminate_domain(int d, double at) {
    double seconds = 0;
    const auto first = std::find(t_.domain.begin() + 1, t_.domain.end(), d);
    for (int s = static_cast<int>(first - t_.domain.begin()); s <= t_.count && t_.domain[s] == d;
         ++s)
      finish(s, at + (seconds += t_.own_work(s)));
    return seconds;
  }

  int separators() const { return t_.count - t_.first_separator + 1; }

  /// Of the panels that nobody holds and that have something ready, the one from which the way to
  /// the roots is longest.
  int claim(double at) {
    int best = 0;
    for (int s = t_.first_separator; s <= t_.count; ++s)
      if (!held_[s] && (best == 0 || chain_[s] > chain_[best]) &&
          (is_complete(s) || ready_update(s, at) < t_.updates[s].size()))
        best = s;
    if (best > 0) held_[best] = 1;
    return best;
  }

  /// Panels in the order of the queue; a thread stays with its own until it is finished.
  double fine_step(int thread, double at) {
    int& s = holds_[thread];
    double seconds = 0;
    if (s == 0) {
      if (position_ == t_.queue.size()) return nothing;
      s = t_.queue[position_++];
      seconds = t_.load[s];
    }
    if (const std::size_t k = ready_update(s, at); k < t_.updates[s].size())
      return seconds + apply(s, k);
    if (!is_complete(s)) return seconds > 0 ? seconds : wait(thread, at);
    seconds += t_.finish[s];
    finish(s, at + seconds);
    s = 0;
    return seconds;
  }

  const Tasks& t_;
  const bool two_level_;
  std::vector<double> done_;          ///< when each panel is
  std::vector<std::size_t> applied_;  ///< updates of each panel
  std::vector<std::vector<char>> taken_;
  std::vector<char> held_;            ///< claimed, or done
  std::vector<double> chain_;         ///< seconds from a panel on to the end of its longest chain
  std::vector<int> holds_, waiting_;  ///< panel of each thread; threads that found nothing
  std::priority_queue<Event, std::vector<Event>, std::greater<>> free_;
  std::priority_queue<double, std::vector<double>, std::greater<>> finishes_;
  int domain_ = 1, finished_ = 0;
  std::size_t position_ = 0;
};

/// The handle of an analysis for a number of threads.
class Analysed {
 public:
  Analysed(const bench::Problem& problem, int threads, const std::map<int, int>& settings)
      : m_(problem.matrix) {
    const int direct = 0;
    int error = 0;
    iparm_[2] = threads;
    velmorainit(pt_, &m_.mtype, &direct, iparm_, dparm_, &error);
    if (problem.hard) iparm_[10] = iparm_[12] = iparm_[20] = 1;
    for (const auto& [entry, value] : settings) iparm_[entry - 1] = value;
    iparm_[2] = threads;
    call(11);
  }
  ~Analysed() { call(-1); }
  Analysed(const Analysed&) = delete;
  Analysed& operator=(const Analysed&) = delete;
  const Structure& structure() { return *static_cast<const Structure*>(slot(pt_, slot_structure)); }

 private:
  void call(int phase) {
    const int one = 1, quiet = 0;
    int error = 0;
    velmora(pt_, &one, &one, &m_.mtype, &phase, &m_.n, m_.a.data(), m_.ia.data(), m_.ja.data(),
            nullptr, &one, iparm_, &quiet, nullptr, nullptr, &error, dparm_);
    if (error != 0) std::printf("error %d\n", error);
  }
  const gallery::Matrix& m_;
  void* pt_[64] = {};
  int iparm_[64] = {};
  double dparm_[64] = {};
};

void play(const std::string& name, const std::map<int, int>& settings, const Costs costs[2]) {
  const bench::Problem problem = bench::load(name, 0);
  const int mtype = problem.matrix.mtype;
  const bool symmetric = mtype == 2 || mtype == -2 || mtype == 4 || mtype == -4 || mtype == 6;
  double alone = 0;
  std::printf(
      "\n### %s\n\n| threads | panels | domains | separators' work | longest chain s | time s "
      "| speed-up | efficiency | idle |\n|---|---|---|---|---|---|---|---|---|\n",
      name.c_str());
  for (const int threads : {1, 2, 4, 8, 16, 32, 64, 128}) {
    Analysed analysed(problem, threads, settings);
    const Tasks t = tasks_of(analysed.structure(), costs[symmetric], symmetric);
    const double work = t.work();
    double separators = 0;
    for (int s = 1; s <= t.count; ++s)
      if (t.domain[s] == 0) separators += t.own_work(s);
    const bool many = threads > 1 && t.scheme != Scheme::sequential;
    const Played played = many ? Player(t, threads).run() : Played{work, work};
    if (threads == 1) alone = work;
    std::printf("| %d | %d | %d | %.2f | %.3f | %.3f | %.2f | %.2f | %.2f |\n", threads, t.count,
                t.domains, separators / work, longest_chain(t), played.time, alone / played.time,
                alone / played.time / threads, 1 - played.busy / (played.time * threads));
    std::fflush(stdout);
  }
}

int run(int argc, char** argv) {
  std::vector<std::string> problems;
  std::map<int, int> settings;
  for (int i = 1; i < argc; ++i) {
    int entry = 0, value = 0;
    if (!std::strcmp(argv[i], "--iparm") && i + 1 < argc &&
        std::sscanf(argv[++i], "%d=%d", &entry, &value) == 2)
      settings[entry] = value;
    else
      problems.emplace_back(argv[i]);
  }
  if (problems.empty()) problems = {"poisson3d:large", "elasticity:large"};
  openblas_set_num_threads(1);
  const Costs costs[2] = {measure_costs(false), measure_costs(true)};
  std::printf("Kernels: %s\n", kernels<double>().isa);
  for (const std::string& name : problems) play(name, settings, costs);
  return 0;
}

}  // namespace
}  // namespace vlm

int main(int argc, char** argv) { return vlm::run(argc, argv); }
