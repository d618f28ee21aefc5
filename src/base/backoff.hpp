// SPDX-License-Identifier: BSD-3-Clause
/// Waiting for another thread.
#pragma once

#include <thread>

namespace vlm {

/// Pauses for a short while, then gives the processor away: with more threads than cores the
/// one that is waited for must get to run.
class Backoff {
 public:
  void wait() {
    if (++rounds_ > spins) {
      std::this_thread::yield();
      return;
    }
#if defined(__x86_64__) || defined(__i386__)
    for (int i = 0; i < 32; ++i) __builtin_ia32_pause();
#endif
  }
  void reset() { rounds_ = 0; }

 private:
  static constexpr int spins = 64;
  int rounds_ = 0;
};

}  // namespace vlm
