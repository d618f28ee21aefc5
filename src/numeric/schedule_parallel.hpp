// SPDX-License-Identifier: BSD-3-Clause
/// Schedules of the supernodal factorization on several threads.
///
/// Both are left-looking: a panel is written by the one thread that holds it, and finished
/// panels are only read.  The lists that tell which panel updates which come with the analysis.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "base/backoff.hpp"
#include "numeric/sequential.hpp"

namespace vlm {

/// Scratch of every thread of a factorization, made before the threads are.
template <class T>
using Team = std::vector<FactorScratch<T>>;

/// Applies the update of panel s whose list has `rows` rows from the target's first on.
template <class Family, class T>
void apply_update(const FactorFrame<T>& f, int s, int rows, const Panel<T>& target,
                  FactorScratch<T>& scratch) {
  const Panel<T> source = panel_of(f.st, f.store, s);
  if (!is_eliminated(f, source)) return;
  Family::apply(f, update_source(source, source.rows - rows, target), target, scratch);
}

/// Fine-grain schedule: threads take the panels in the order of the queue, and a finished panel
/// announces itself to every panel that it updates.  Updates are applied as they come, or with a
/// fixed order by ascending source when all are there.
template <class Family, class T>
class FineGrain {
 public:
  FineGrain(const FactorFrame<T>& frame, bool fixed_order)
      : f_(frame),
        plan_(frame.st.schedule),
        fixed_order_(fixed_order),
        start_(static_cast<std::size_t>(frame.st.nsuper) + 1),
        arrived_(static_cast<std::size_t>(frame.st.nsuper)) {
    start_[0] = 0;
    for (int s = 1; s <= f_.st.nsuper; ++s)
      start_[static_cast<std::size_t>(s)] = start_[static_cast<std::size_t>(s - 1)] + f_.st.nmod(s);
    arrivals_.resize(static_cast<std::size_t>(start_.back()));
  }

  bool run(Team<T>& team) {
    const int nsuper = f_.st.nsuper;
    const int threads = static_cast<int>(team.size());
    std::atomic<int> number{0};
#pragma omp parallel num_threads(threads)
    {
      FactorScratch<T>& scratch = team[static_cast<std::size_t>(number.fetch_add(1))];
      // In order: whatever a thread waits for was taken before.
#pragma omp for schedule(monotonic : dynamic, 1)
      for (int k = 1; k <= nsuper; ++k)
        if (!failed_.load(std::memory_order_acquire)) eliminate(std::abs(plan_.queue(k)), scratch);
    }
    return !failed_.load();
  }

 private:
  struct Arrival {
    int source, rows;
  };
  static bool by_source(const Arrival& a, const Arrival& b) { return a.source < b.source; }

  void eliminate(int j, FactorScratch<T>& scratch) {
    const Panel<T> target = panel_of(f_.st, f_.store, j);
    Family::load(f_, j);
    index_rows(target, scratch.indmap);
    Arrival* arrival = arrivals_.data() + start_[static_cast<std::size_t>(j - 1)];
    const int updates = f_.st.nmod(j);
    Backoff backoff;
    for (int taken = 0; taken < updates;) {
      const int there = arrived_[static_cast<std::size_t>(j - 1)].load(std::memory_order_acquire);
      if (there == taken || (fixed_order_ && there < updates)) {
        if (failed_.load(std::memory_order_acquire)) return;
        backoff.wait();
        continue;
      }
      if (fixed_order_) std::sort(arrival, arrival + updates, by_source);
      for (; taken < there; ++taken)
        apply_update<Family>(f_, arrival[taken].source, arrival[taken].rows, target, scratch);
      backoff.reset();
    }
    if (complete_panel<Family>(f_, j, target, scratch) == Step::failed) {
      failed_.store(true, std::memory_order_release);
      return;
    }
#pragma omp critical(latch_blklu_risc)
    for (int k = plan_.start(j); k < plan_.start(j + 1); ++k) {
      const std::size_t t = static_cast<std::size_t>(f_.st.snode(plan_.up(k)) - 1);
      const int place = arrived_[t].load(std::memory_order_relaxed);
      arrivals_[static_cast<std::size_t>(start_[t] + place)] = {j, plan_.uplen(k)};
      arrived_[t].store(place + 1, std::memory_order_release);
    }
  }

  const FactorFrame<T>& f_;
  const Schedule& plan_;
  const bool fixed_order_;
  std::vector<std::int64_t> start_;        ///< [nsuper+1] of each target's arrivals, from 0
  std::vector<Arrival> arrivals_;          ///< updates that are ready, by target
  std::vector<std::atomic<int>> arrived_;  ///< [nsuper] how many of them
  std::atomic<bool> failed_{false};
};

/// Two-level schedule: one thread a domain, without a word to others; then all threads share the
/// separators.  A separator panel takes the updates that are ready and is put back if others are
/// missing; with a fixed order it waits for each instead, so that no timing shows in the result.
template <class Family, class T>
class TwoLevel {
 public:
  TwoLevel(const FactorFrame<T>& frame, bool fixed_order)
      : f_(frame),
        plan_(frame.st.schedule),
        fixed_order_(fixed_order),
        domains_(frame.st.nparts),
        first_(frame.st.range(2 * domains_ + 1)),
        separators_(frame.st.nsuper - first_ + 1),
        lists_(frame.st.nsuper),
        progress_(static_cast<std::size_t>(domains_)),
        state_(static_cast<std::size_t>(separators_)),
        loaded_(static_cast<std::size_t>(separators_), false),
        next_(plan_.start.begin(), plan_.start.end()) {}

  bool run(Team<T>& team) {
    const int threads = static_cast<int>(team.size());
    std::atomic<int> number{0};
#pragma omp parallel num_threads(threads)
    {
      FactorScratch<T>& scratch = team[static_cast<std::size_t>(number.fetch_add(1))];
#pragma omp for schedule(dynamic, 1) nowait
      for (int d = 1; d <= domains_; ++d) eliminate_domain(d, scratch);
      eliminate_separators(scratch);
    }
    return !failed();
  }

 private:
  enum State : char { open, claimed, done };
  static constexpr int none_left = 0, none_open = -1;

  bool failed() const { return failed_.load(std::memory_order_acquire); }
  std::atomic<char>& state(int c) { return state_[static_cast<std::size_t>(c - 1)]; }

  void eliminate_domain(int d, FactorScratch<T>& scratch) {
    std::atomic<int>& progress = progress_[static_cast<std::size_t>(d - 1)];
    const bool good =
        run_sequential<Family>(f_, scratch, lists_, f_.st.range(2 * d - 1), f_.st.range(2 * d),
                               [&](int s) { progress.store(s, std::memory_order_release); });
    if (!good) failed_.store(true, std::memory_order_release);
  }

  void eliminate_separators(FactorScratch<T>& scratch) {
    Backoff backoff;
    for (int c = 0; (c = claim()) != none_left;) {
      if (c == none_open) {
        backoff.wait();
        continue;
      }
      const int s = first_ + c - 1;
      const Panel<T> target = panel_of(f_.st, f_.store, s);
      if (!std::exchange(loaded_[static_cast<std::size_t>(c - 1)], true)) Family::load(f_, s);
      index_rows(target, scratch.indmap);
      bool moved = false;
      if (!take_updates(c, target, scratch, moved)) {
        set_state(c, open);
        if (moved) backoff.reset();
        backoff.wait();
        continue;
      }
      backoff.reset();
      if (complete_panel<Family>(f_, s, target, scratch) == Step::failed)
        failed_.store(true, std::memory_order_release);
      set_state(c, done);
    }
  }

  /// A separator panel, from 1, that no other thread holds.  In fixed order each is handed out
  /// once, in ascending order, so that whatever a thread waits for was handed out before.
  int claim() {
    int c = none_left;
#pragma omp critical(latch_blklu_separator)
    {
      const auto is = [&](int k, State s) { return state(k).load(std::memory_order_relaxed) == s; };
      while (lowest_ <= separators_ && is(lowest_, done)) ++lowest_;
      if (!failed() && lowest_ <= separators_ && !(fixed_order_ && cursor_ > separators_)) {
        c = none_open;
        for (int tries = lowest_; tries <= separators_ && c == none_open; ++tries) {
          if (cursor_ > separators_ || cursor_ < lowest_) cursor_ = lowest_;
          if (is(cursor_, open)) c = cursor_;
          ++cursor_;
        }
        if (c > 0) state(c).store(claimed, std::memory_order_relaxed);
      }
    }
    return c;
  }

  void set_state(int c, State s) {
#pragma omp critical(latch_blklu_separator)
    state(c).store(s, std::memory_order_release);
  }

  /// Whether source panel s of a domain, or of the separators as the last one, is finished.
  bool is_ready(int d, int s) {
    if (d <= domains_)
      return s <= progress_[static_cast<std::size_t>(d - 1)].load(std::memory_order_acquire);
    return state(s - first_ + 1).load(std::memory_order_acquire) == done;
  }

  /// Applies the updates of a separator panel that are ready, each source's in their order.
  /// @param moved  true when there was one, out
  /// @return true when none is missing any more
  bool take_updates(int c, const Panel<T>& target, FactorScratch<T>& scratch, bool& moved) {
    bool complete = true;
    const std::size_t row = static_cast<std::size_t>(c - 1) * (domains_ + 1);
    for (int d = 1; d <= domains_ + 1; ++d) {
      int& next = next_[row + static_cast<std::size_t>(d - 1)];
      for (const int end = plan_.start(static_cast<int>(row) + d + 1); next < end; ++next) {
        const int s = plan_.up(next);
        for (Backoff backoff; fixed_order_ && !is_ready(d, s) && !failed();) backoff.wait();
        if (!is_ready(d, s)) {
          complete = false;
          break;
        }
        apply_update<Family>(f_, s, plan_.uplen(next), target, scratch);
        moved = true;
      }
    }
    return complete;
  }

  const FactorFrame<T>& f_;
  const Schedule& plan_;
  const bool fixed_order_;
  const int domains_, first_;  ///< first separator panel
  const int separators_;
  PanelLists lists_;
  std::vector<std::atomic<int>> progress_;  ///< [domains] last finished panel
  std::vector<std::atomic<char>> state_;    ///< [separators]
  std::vector<char> loaded_;                ///< [separators] touched by the holder of the claim
  std::vector<int> next_;                   ///< first update of a target and source not applied
  std::atomic<bool> failed_{false};
  int cursor_ = 1, lowest_ = 1;  ///< under the latch
};

}  // namespace vlm
