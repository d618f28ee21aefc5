// SPDX-License-Identifier: BSD-3-Clause
/// Threads of a call, see thread_guard.hpp.
#include "base/thread_guard.hpp"

#include <omp.h>

#include <algorithm>

namespace vlm {

int count_threads() {
  // A nested region that is not granted a team runs on one thread.
  if (omp_get_active_level() >= omp_get_max_active_levels()) return 1;
  return std::max(1, std::min(omp_get_max_threads(), omp_get_thread_limit()));
}

ThreadGuard::ThreadGuard() : threads_(omp_get_max_threads()), dynamic_(omp_get_dynamic()) {
  if (dynamic_ != 0) omp_set_dynamic(0);
  if (threads_ != 1) omp_set_num_threads(1);
}

ThreadGuard::~ThreadGuard() {
  if (threads_ != 1) omp_set_num_threads(threads_);
  if (dynamic_ != 0) omp_set_dynamic(dynamic_);
}

}  // namespace vlm
