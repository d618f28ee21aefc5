// SPDX-License-Identifier: BSD-3-Clause
/// Threads of a call.
///
/// Every parallel region names its number of threads, so that a call holds to its own whatever
/// others do.  The BLAS is only called by threads that each work for themselves: it runs on one.
#pragma once

namespace vlm {

/// Threads that a parallel region opened here would get.
int count_threads();

/// Threads of those wanted for which there is room where the address space is limited (RLIMIT_AS):
/// at least one.  Beyond, OpenMP ends the process when it can't start a thread, and OpenBLAS waits
/// for ever for a thread's buffer.
int affordable_threads(int wanted);

/// OpenMP settings of the calling thread, and of it alone, while numeric phases run: teams are as
/// large as asked for, and a BLAS on OpenMP opens none of its own.
class ThreadGuard {
 public:
  /// @param threads  of parallel regions that don't name their number
  explicit ThreadGuard(int threads = 1);
  ~ThreadGuard();
  ThreadGuard(const ThreadGuard&) = delete;
  ThreadGuard& operator=(const ThreadGuard&) = delete;

 private:
  int before_;
  bool changed_;
  int dynamic_;
};

}  // namespace vlm
