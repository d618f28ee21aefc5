// SPDX-License-Identifier: BSD-3-Clause
/// Loops whose turns threads share, in a region of their own or within a team that has other work.
///
/// Which thread takes which turn is left to their timing: turns of a loop must not touch what
/// another one writes, and results then do not depend on the threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <mutex>

#include "base/clock.hpp"
#include "base/memory.hpp"
#include "base/team.hpp"

namespace vlm {

/// Threads for a pass over so many entries of an array: one where it takes less than some tenths of
/// a millisecond, for a team whose threads have to wait for a processor costs more.
inline int threads_for(std::size_t entries, int threads) {
  return entries < 100000 ? 1 : std::max(threads, 1);
}

/// Calls body(turn) for each turn in a parallel region.  A failed allocation is thrown behind it.
template <class Body>
void side_by_side(int threads, int turns, const Body& body) {
  if (threads < 2 || turns < 2) {
    for (int k = 0; k < turns; ++k) body(k);
    return;
  }
  TeamFailure failure;
  const TeamCaller caller;
#pragma omp parallel for schedule(dynamic, 1) num_threads(std::min(threads, turns))
  for (int k = 0; k < turns; ++k) {
    const TeamScope of(caller);
    failure.guard([&] { body(k); });
  }
  failure.rethrow();
}

/// A team within a parallel region: threads that have nothing to do help with the loops of others.
class WorkTeam {
 public:
  /// @param threads  with fewer than two, loops run on the calling thread
  explicit WorkTeam(int threads = 1) : threads_(threads) { open_.reserve(threads > 1 ? 64 : 0); }
  WorkTeam(const WorkTeam&) = delete;
  WorkTeam& operator=(const WorkTeam&) = delete;

  int threads() const { return threads_; }

  /// Calls body(turn) for each turn, with the help of idle threads.  A failed allocation of one of
  /// them is thrown here.
  template <class Body>
  void loop(int turns, const Body& body) {
    if (assumed_ > 0) {
      measure(turns, body);
      return;
    }
    if (threads_ < 2 || turns < 2) {
      for (int k = 0; k < turns; ++k) body(k);
      return;
    }
    Loop record;
    record.call = [](const void* given, int k) { (*static_cast<const Body*>(given))(k); };
    record.body = &body;
    record.turns = turns;
    run(record);
  }

  /// Takes turns of somebody's loop; false when there is none.
  bool help();

  /// Instead of sharing loops, measures on one thread what so many threads would save in them:
  /// turns in even shares, none shorter than the longest turn.
  void assume(int threads) { assumed_ = threads; }
  double saved() const { return saved_; }  ///< seconds, up to now

 private:
  struct Loop {
    void (*call)(const void* body, int turn) = nullptr;
    const void* body = nullptr;
    int turns = 0;
    std::atomic<int> next = 0;
    int helpers = 0;  // under the latch
    TeamFailure failure;
  };

  template <class Body>
  void measure(int turns, const Body& body) {
    double sum = 0, longest = 0;
    for (int k = 0; k < turns; ++k) {
      const double start = timer_velmora(), before = saved_;
      body(k);
      const double seconds = timer_velmora() - start - (saved_ - before);
      sum += seconds;
      longest = std::max(longest, seconds);
    }
    saved_ += sum - std::max(longest, sum / assumed_);
  }

  void run(Loop& loop);
  static void take_turns(Loop& loop);

  const int threads_;
  std::mutex latch_;
  Vector<Loop*> open_;
  int assumed_ = 0;
  double saved_ = 0;
};

/// Part `k` of `parts` even parts of 0 to n - 1.
struct Slice {
  int begin, end;
  Slice(int n, int k, int parts)
      : begin(static_cast<int>(static_cast<long long>(n) * k / parts)),
        end(static_cast<int>(static_cast<long long>(n) * (k + 1) / parts)) {}
};

}  // namespace vlm
