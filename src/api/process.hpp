// SPDX-License-Identifier: BSD-3-Clause
/// What the library keeps for the whole process: the numbers of dump files, the bytes of the
/// largest analysis, the count of calls that hold a threaded BLAS to one thread, and the process
/// that loaded the library; and for each thread the last message.  (Below, metis/ has a latch,
/// since METIS itself is of the process, and base/ each thread's meter, null between calls.)
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "driver/call.hpp"
#include "driver/dumps.hpp"

namespace vlm {

/// Bytes that the largest analysis of this process held.
std::atomic<std::int64_t>& largest_analysis();

/// Numbers of the dump files of this process.
DumpCounters& dump_counters();

/// Length that every message fits in, with its terminating zero.
constexpr std::size_t message_length = 1024;
/// Keeps a message for the calling thread; what is too long is cut.
void keep_message(std::string_view text) noexcept;
/// The kept message, empty before the first one.
const char* kept_message() noexcept;

/// Keeps a BLAS with a thread pool of its own to one thread while calls use it; the last one to
/// leave restores its count.  Other BLAS are left alone: one that runs on OpenMP follows the
/// calling thread's settings.
class BlasLatch {
 public:
  /// @param wanted  false: the call does not use the BLAS
  explicit BlasLatch(bool wanted);
  ~BlasLatch();
  BlasLatch(const BlasLatch&) = delete;
  BlasLatch& operator=(const BlasLatch&) = delete;

 private:
  bool held_;
};

/// True in a process that was forked from the one that loaded the library.  The teams of threads
/// that OpenMP had there are gone, but the surviving thread does not know it.
bool is_forked();

/// Runs a routine on a thread of its own, for which OpenMP makes new teams, and waits for it.
/// @return false when the thread cannot be started
bool run_on_new_thread(void (*routine)(Call&, int& error), Call& call, int& error) noexcept;

}  // namespace vlm
