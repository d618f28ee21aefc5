// SPDX-License-Identifier: BSD-3-Clause
/// Two-level schedule of the supernodal factorization: domains, then separators.
#pragma once

#include <algorithm>
#include <atomic>
#include <mutex>
#include <numeric>
#include <utility>

#include "base/backoff.hpp"
#include "numeric/fine_grain.hpp"

namespace vlm {

/// Arrays of the two-level schedule.
struct TwoLevelWork {
  PanelLists lists;
  View<std::atomic<int>> progress;  ///< [domains] last finished panel
  View<std::atomic<char>> state;    ///< [separators]
  View<char> loaded;                ///< [separators] touched by the holder of the claim
  View<int> next;                   ///< first update of a target and source not applied, from 1
  View<int> order;                  ///< [separators] in which they are handed out
  View<double> chain;  ///< [separators] operations from a panel on, along the longest way to a root
  TwoLevelWork(const Structure& st, Carver& carver)
      : lists(st, carver),
        progress(carver.make<std::atomic<int>>(static_cast<std::size_t>(st.nparts))),
        state(carver.make<std::atomic<char>>(separators(st))),
        loaded(carver.make<char>(separators(st))),
        next(carver.take<int>(st.schedule.start.size())),
        order(carver.take<int>(separators(st))),
        chain(carver.make<double>(separators(st))) {}
  static std::size_t separators(const Structure& st) {
    return static_cast<std::size_t>(st.nsuper - st.range(2 * st.nparts + 1) + 1);
  }
};

/// Two-level schedule: one thread a domain, without a word to others; then all threads share the
/// separators.  A separator panel takes the updates that are ready and is put back if others are
/// missing; with a fixed order it waits for each instead, so that no timing shows in the result.
template <class Family, class T>
class TwoLevel {
 public:
  TwoLevel(const FactorFrame<T>& frame, bool fixed_order, const TwoLevelWork& work)
      : f_(frame),
        plan_(frame.st.schedule),
        fixed_order_(fixed_order),
        domains_(frame.st.nparts),
        first_(frame.st.range(2 * domains_ + 1)),
        separators_(frame.st.nsuper - first_ + 1),
        work_(work) {
    std::copy(plan_.start.begin(), plan_.start.end(), work_.next.begin());
    order_separators();
  }

  bool run(const Team<T>& team) {
    const int threads = static_cast<int>(team.size());
    std::atomic<int> number{0};
#pragma omp parallel num_threads(threads)
    {
      FactorScratch<T>& scratch = team(number.fetch_add(1) + 1);
#pragma omp for schedule(dynamic, 1) nowait
      for (int d = 1; d <= domains_; ++d)
        if (!failed()) eliminate_domain(d, scratch);
      eliminate_separators(scratch);
    }
    return !failed();
  }

 private:
  enum State : char { open, claimed, done };
  static constexpr int none_left = 0, none_open = -1;

  /// Panels from which the way to the roots is longest come first: they hold the others up.  In
  /// fixed order it is the ascending one.
  void order_separators() {
    std::iota(work_.order.begin(), work_.order.end(), 1);
    if (fixed_order_) return;
    const View<double> chain = work_.chain;
    for (int c = separators_; c >= 1; --c) {
      const Panel<T> target = panel_of(f_.st, f_.store, first_ + c - 1);
      chain(c) += static_cast<double>(target.rows) * target.width * target.width;
      const int row = (c - 1) * (domains_ + 1) + domains_ + 1;
      for (int k = plan_.start(row); k < plan_.start(row + 1); ++k) {
        const int s = plan_.up(k) - first_ + 1;
        const Panel<T> source = panel_of(f_.st, f_.store, plan_.up(k));
        const double update = 2.0 * plan_.uplen(k) * target.width * source.width;
        chain(s) = std::max(chain(s), chain(c) + update);
      }
    }
    std::sort(work_.order.begin(), work_.order.end(),
              [&](int a, int b) { return chain(a) != chain(b) ? chain(a) > chain(b) : a < b; });
  }

  bool failed() const { return failed_.load(std::memory_order_acquire); }
  /// A panel failed, or the listener has ended the call.
  bool stopped() {
    if (!goes_on(f_)) failed_.store(true, std::memory_order_release);
    return failed();
  }
  std::atomic<char>& state(int c) { return work_.state(c); }

  void eliminate_domain(int d, FactorScratch<T>& scratch) {
    std::atomic<int>& progress = work_.progress(d);
    const bool good = run_sequential<Family>(f_, scratch, work_.lists, f_.st.range(2 * d - 1),
                                             f_.st.range(2 * d), [&](int s) {
                                               progress.store(s, std::memory_order_release);
                                               return !failed();
                                             });
    if (!good) failed_.store(true, std::memory_order_release);
  }

  void eliminate_separators(FactorScratch<T>& scratch) {
    Backoff backoff;
    for (int c = 0; !stopped() && (c = claim()) != none_left;) {
      if (c == none_open) {
        backoff.wait();
        continue;
      }
      const int s = first_ + c - 1;
      const Panel<T> target = panel_of(f_.st, f_.store, s);
      if (!std::exchange(work_.loaded(c), char{1})) Family::load(f_, s);
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

  /// A separator panel, from 1, that no other thread holds: after one was finished the first in the
  /// order, then those behind, as the first ones may still lack updates.  In fixed order each is
  /// handed out once, so that whatever a thread waits for was handed out before.
  int claim() {
    const auto is = [&](int k, State s) {
      return state(work_.order(k)).load(std::memory_order_relaxed) == s;
    };
    const std::lock_guard hold(latch_blklu_separator_);
    while (lowest_ <= separators_ && is(lowest_, done)) ++lowest_;
    if (failed() || lowest_ > separators_ || (fixed_order_ && cursor_ > separators_))
      return none_left;
    int c = none_open;
    for (int tries = lowest_; tries <= separators_ && c == none_open; ++tries) {
      if (cursor_ > separators_ || cursor_ < lowest_) cursor_ = lowest_;
      if (is(cursor_, open)) c = work_.order(cursor_);
      ++cursor_;
    }
    if (c > 0) state(c).store(claimed, std::memory_order_relaxed);
    return c;
  }

  void set_state(int c, State s) {
    const std::lock_guard hold(latch_blklu_separator_);
    state(c).store(s, std::memory_order_release);
    if (s == done && !fixed_order_) cursor_ = lowest_;
  }

  /// Whether source panel s of a domain, or of the separators as the last one, is finished.
  bool is_ready(int d, int s) {
    if (d <= domains_) return s <= work_.progress(d).load(std::memory_order_acquire);
    return state(s - first_ + 1).load(std::memory_order_acquire) == done;
  }

  /// Applies the updates of a separator panel that are ready, each source's in their order.
  /// @param moved  true when there was one, out
  /// @return true when none is missing any more
  bool take_updates(int c, const Panel<T>& target, FactorScratch<T>& scratch, bool& moved) {
    bool complete = true;
    const int row = (c - 1) * (domains_ + 1);
    for (int d = 1; d <= domains_ + 1; ++d) {
      int& next = work_.next(row + d);
      for (const int end = plan_.start(row + d + 1); next < end; ++next) {
        const int s = plan_.up(next);
        for (Backoff backoff; fixed_order_ && !is_ready(d, s) && !stopped();) backoff.wait();
        if (!is_ready(d, s)) {
          complete = false;
          break;
        }
        if (stopped()) return false;
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
  const TwoLevelWork& work_;
  std::atomic<bool> failed_{false};
  std::mutex latch_blklu_separator_;
  int cursor_ = 1, lowest_ = 1;  ///< places in the order, under the latch
};

}  // namespace vlm
