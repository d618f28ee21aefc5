// SPDX-License-Identifier: BSD-3-Clause
/// Fine-grain schedule of the supernodal factorization, and what all threaded schedules share.
///
/// Left-looking: a panel is written by the one thread that holds it, and finished panels are only
/// read.  The lists that tell which panel updates which come with the analysis.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "base/backoff.hpp"
#include "numeric/sequential.hpp"

namespace vlm {

/// Scratch of every thread of a factorization, made before the threads are.
template <class T>
using Team = View<FactorScratch<T>>;

/// Applies the update of panel s whose list has `rows` rows from the target's first on.
template <class Family, class T>
void apply_update(const FactorFrame<T>& f, int s, int rows, const Panel<T>& target,
                  FactorScratch<T>& scratch) {
  const Panel<T> source = panel_of(f.st, f.store, s);
  if (!is_eliminated(f, source)) return;
  apply_counted<Family>(f, update_source(source, source.rows - rows, target), target, scratch);
}

/// An update that is ready.
struct Arrival {
  int source, rows;
};

/// Arrays of the fine-grain schedule.
struct FineGrainWork {
  View<std::int64_t> start;        ///< [nsuper+1] of each target's arrivals, from 0
  View<Arrival> arrivals;          ///< updates that are ready, by target
  View<std::atomic<int>> arrived;  ///< [nsuper] how many of them
  FineGrainWork(const Structure& st, Carver& carver)
      : start(carver.take<std::int64_t>(static_cast<std::size_t>(st.nsuper) + 1)),
        arrivals(carver.take<Arrival>(st.schedule.up.size())),
        arrived(carver.make<std::atomic<int>>(static_cast<std::size_t>(st.nsuper))) {}
};

/// Fine-grain schedule: threads take the panels in the order of the queue, and a finished panel
/// announces itself to every panel that it updates.  Updates are applied as they come, or with a
/// fixed order by ascending source when all are there.
template <class Family, class T>
class FineGrain {
 public:
  FineGrain(const FactorFrame<T>& frame, bool fixed_order, const FineGrainWork& work)
      : f_(frame), plan_(frame.st.schedule), fixed_order_(fixed_order), work_(work) {
    work_.start(1) = 0;
    for (int s = 1; s <= f_.st.nsuper; ++s) work_.start(s + 1) = work_.start(s) + f_.st.nmod(s);
  }

  bool run(const Team<T>& team) {
    const int nsuper = f_.st.nsuper;
    const int threads = static_cast<int>(team.size());
    std::atomic<int> number{0};
#pragma omp parallel num_threads(threads)
    {
      FactorScratch<T>& scratch = team(number.fetch_add(1) + 1);
      // In order: whatever a thread waits for was taken before.
#pragma omp for schedule(monotonic : dynamic, 1)
      for (int k = 1; k <= nsuper; ++k)
        if (!failed_.load(std::memory_order_acquire)) eliminate(std::abs(plan_.queue(k)), scratch);
    }
    return !failed_.load();
  }

 private:
  static bool by_source(const Arrival& a, const Arrival& b) { return a.source < b.source; }

  /// A panel failed, or the listener has ended the call.
  bool stopped() {
    if (!goes_on(f_)) failed_.store(true, std::memory_order_release);
    return failed_.load(std::memory_order_acquire);
  }

  void eliminate(int j, FactorScratch<T>& scratch) {
    if (stopped()) return;
    const Panel<T> target = panel_of(f_.st, f_.store, j);
    Family::load(f_, j);
    index_rows(target, scratch.indmap);
    Arrival* arrival = work_.arrivals.data() + work_.start(j);
    const int updates = f_.st.nmod(j);
    Backoff backoff;
    for (int taken = 0; taken < updates;) {
      const int there = work_.arrived(j).load(std::memory_order_acquire);
      if (there == taken || (fixed_order_ && there < updates)) {
        if (stopped()) return;
        backoff.wait();
        continue;
      }
      if (fixed_order_) std::sort(arrival, arrival + updates, by_source);
      for (; taken < there; ++taken) {
        apply_update<Family>(f_, arrival[taken].source, arrival[taken].rows, target, scratch);
        if (stopped()) return;
      }
      backoff.reset();
    }
    if (complete_panel<Family>(f_, j, target, scratch) == Step::failed) {
      failed_.store(true, std::memory_order_release);
      return;
    }
    const std::lock_guard hold(latch_blklu_risc_);
    for (int k = plan_.start(j); k < plan_.start(j + 1); ++k) {
      const int t = f_.st.snode(plan_.up(k));
      const int place = work_.arrived(t).load(std::memory_order_relaxed);
      work_.arrivals(work_.start(t) + place + 1) = {j, plan_.uplen(k)};
      work_.arrived(t).store(place + 1, std::memory_order_release);
    }
  }

  const FactorFrame<T>& f_;
  const Schedule& plan_;
  const bool fixed_order_;
  const FineGrainWork& work_;
  std::mutex latch_blklu_risc_;  ///< held while a panel announces itself
  std::atomic<bool> failed_{false};
};

}  // namespace vlm
