// SPDX-License-Identifier: BSD-3-Clause
/// The wall clock of timers.
#pragma once

#include <chrono>

namespace vlm {

/// Seconds from an origin that stays the same within the process.
inline double timer_velmora() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Writes the seconds of a block to its timer.
class Stopwatch {
 public:
  explicit Stopwatch(double& seconds) : seconds_(seconds), start_(timer_velmora()) {}
  ~Stopwatch() { seconds_ = timer_velmora() - start_; }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  double& seconds_;
  double start_;
};

}  // namespace vlm
