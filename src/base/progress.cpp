// SPDX-License-Identifier: BSD-3-Clause
#include "base/progress.hpp"

#include <algorithm>

#include "base/clock.hpp"

namespace vlm {
namespace {

/// Seconds between two words to the listener: a Ctrl-C acts at once for a person, and a call from
/// an interpreter costs nothing beside them.
constexpr double interval = 0.05;

thread_local Progress* of_thread = nullptr;

}  // namespace

Progress::Progress(Listener listener, void* data)
    : listener_(listener), data_(data), before_(of_thread), thread_(&of_thread) {
  of_thread = this;
}

Progress::~Progress() { of_thread = before_; }

Progress* Progress::current() { return of_thread; }

ProgressScope::ProgressScope(Progress* progress) : before_(of_thread) { of_thread = progress; }

ProgressScope::~ProgressScope() { of_thread = before_; }

bool Progress::tell(double share) {
  last_ = timer_velmora();
  if (!cancelled_ && listener_(data_, phase_, share) != 0) cancelled_ = true;
  return !cancelled_;
}

void Progress::begin(int phase, double work) {
  phase_ = phase;
  total_ = work;
  done_.store(0, std::memory_order_relaxed);
  if (!tell(0)) throw Cancelled();
}

void Progress::end() {
  if (!tell(1)) throw Cancelled();
}

bool Progress::pulse() {
  if (cancelled_.load(std::memory_order_relaxed)) return false;
  if (thread_ != &of_thread) return true;
  if (phase_ == 0) return true;  // none has begun
  if (timer_velmora() - last_ < interval) return true;
  const auto done = static_cast<double>(done_.load(std::memory_order_relaxed));
  return tell(total_ > 0 ? std::min(done / total_, 1.0) : 0);
}

}  // namespace vlm
