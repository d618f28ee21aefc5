// SPDX-License-Identifier: BSD-3-Clause
/// Failures of memory in a team of threads, and its end by the listener.
#pragma once

#include <atomic>
#include <cstddef>

#include "base/memory.hpp"
#include "base/progress.hpp"

namespace vlm {

/// Keeps the first failed allocation of a team: no exception may leave a parallel region.
class TeamFailure {
 public:
  /// Runs a piece of work, unless an allocation has failed.
  template <class Work>
  void guard(Work work) {
    if (failed()) return;
    try {
      work();
    } catch (const AllocationFailure& failure) {
      record(failure.bytes);
    } catch (const std::bad_alloc&) {
      record(0);
    } catch (const Cancelled&) {
      cancelled_ = true;
      record(0);
    }
  }
  bool failed() const { return failed_.load(std::memory_order_relaxed); }
  /// Throws what was kept, outside of the region.
  void rethrow() const {
    if (cancelled_) throw Cancelled();
    if (failed()) throw AllocationFailure(bytes_);
  }

 private:
  void record(std::size_t bytes) {
    if (!failed_.exchange(true)) bytes_ = bytes;
  }
  std::atomic<bool> failed_ = false;
  std::size_t bytes_ = 0;
  std::atomic<bool> cancelled_ = false;
};

/// What a team takes over from the thread that forms it: its memory is counted there, and the
/// listener of the call may end its work.
struct TeamCaller {
  MemoryMeter* meter = thread_meter;
  Progress* progress = Progress::current();
};

/// For the time that a thread works in the team of a caller.
struct TeamScope {
  explicit TeamScope(const TeamCaller& caller) : metered(caller.meter), listens(caller.progress) {}
  MeterScope metered;
  ProgressScope listens;
};

}  // namespace vlm
