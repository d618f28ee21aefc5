// SPDX-License-Identifier: BSD-3-Clause
/// Who is told how far a call has come, and may end it.
///
/// A call with a listener has one Progress; the thread of the call finds it by current(), and so do
/// threads in a ProgressScope; it is null on every other thread and in calls without a listener.
/// Work is counted by all threads; the listener is called by the thread of the call alone, from the
/// places where that thread pulses.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>

namespace vlm {

/// The listener has ended the call.  Thrown on the thread of the call, outside of teams of threads
/// or under the guard of their TeamFailure.
struct Cancelled : std::exception {};

class Progress {
 public:
  /// @return not 0 to end the call
  using Listener = int (*)(void* data, int phase, double share);

  /// Becomes that of the calling thread for its life.
  Progress(Listener listener, void* data);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// That of the call which the calling thread works for; null where nobody listens.
  static Progress* current();

  /// A phase begins, with so much work before it, in any unit.  Throws Cancelled.
  void begin(int phase, double work);
  /// All of it is done.  Throws Cancelled.
  void end();
  /// Work that any thread has done.
  void add(double work) {
    done_.fetch_add(static_cast<std::int64_t>(work), std::memory_order_relaxed);
  }
  /// Tells the listener, on the thread of the call and unless that was a moment ago.
  /// @return false once the call is to end
  bool pulse();

 private:
  bool tell(double share);

  const Listener listener_;
  void* const data_;
  Progress* const before_;
  const void* const thread_;  // of the call
  int phase_ = 0;
  double total_ = 0, last_ = 0;
  std::atomic<std::int64_t> done_{0};
  std::atomic<bool> cancelled_ = false;
};

/// Lets the calling thread, one of a team, end its work with the call that formed the team.
class ProgressScope {
 public:
  explicit ProgressScope(Progress* progress);
  ~ProgressScope();
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;

 private:
  Progress* const before_;
};

/// Pulses where somebody listens on this thread; throws Cancelled.
inline void pulse() {
  Progress* const progress = Progress::current();
  if (progress != nullptr && !progress->pulse()) throw Cancelled();
}

/// A phase for the time of a block that may throw; its end is told by finish().
class PhaseProgress {
 public:
  PhaseProgress(int phase, double work) : progress_(Progress::current()) {
    if (progress_ != nullptr) progress_->begin(phase, work);
  }
  void finish() {
    if (progress_ != nullptr) progress_->end();
  }

 private:
  Progress* const progress_;
};

}  // namespace vlm
