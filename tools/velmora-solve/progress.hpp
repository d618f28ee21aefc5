// SPDX-License-Identifier: BSD-3-Clause
/// Patience: a bar for what takes longer than a second, Ctrl-C, and the memory of a factorization.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

namespace tool {

/// The user pressed Ctrl-C.
struct Interrupted : std::runtime_error {
  Interrupted() : std::runtime_error("interrupted") {}
};

/// Listens to a handle for the time of one call: ends it on Ctrl-C, and draws a bar on standard
/// error where that is a terminal.
class CallWatch {
 public:
  /// @param draws  false: no bar
  CallWatch(void** handle, bool draws);
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

 private:
  static int hear(void* data, int phase, double share);
  void draw(int phase, double share);
  void clear();

  void** handle_;
  bool draws_, drawn_ = false;
  int phase_ = 0;
  std::chrono::steady_clock::time_point start_, phase_start_;
  void (*before_)(int);
};

/// Standard error is a terminal that a bar can be drawn on.
bool can_draw();

/// Throws InputError where the machine has less memory left than so many KB.
/// @return what is needed and what is there, for a line of the report
std::string require_memory(long long kilobytes);

}  // namespace tool
