// SPDX-License-Identifier: BSD-3-Clause
/// Threads of a call, see thread_guard.hpp.
#include "base/thread_guard.hpp"

#include <omp.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstddef>

namespace vlm {

namespace {

/// Stack of a thread, as far as the system tells it, with its guard.
std::size_t stack_bytes() {
  std::size_t bytes = std::size_t{8} << 20;
#ifdef __GLIBC__
  pthread_attr_t defaults;
  if (pthread_getattr_default_np(&defaults) == 0) {
    pthread_attr_getstacksize(&defaults, &bytes);
    pthread_attr_destroy(&defaults);
  }
#endif
  return bytes + (std::size_t{1} << 16);
}

/// Beside its stack: its heap in glibc, twice that while it is made, and a buffer of OpenBLAS.
constexpr std::size_t heap_and_buffer = std::size_t{(128 + 128)} << 20;

bool is_room(std::size_t bytes) {
  void* block = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (block == MAP_FAILED) return false;
  munmap(block, bytes);
  return true;
}

}  // namespace

int affordable_threads(int wanted) {
  rlimit limit;
  if (wanted <= 1 || getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
    return wanted;
  const std::size_t each = stack_bytes() + heap_and_buffer;
  int threads = wanted;
  while (threads > 1 && !is_room(static_cast<std::size_t>(threads - 1) * each)) threads /= 2;
  return threads;
}

int count_threads() {
  // A nested region that is not granted a team runs on one thread.
  if (omp_get_active_level() >= omp_get_max_active_levels()) return 1;
  return affordable_threads(std::max(1, std::min(omp_get_max_threads(), omp_get_thread_limit())));
}

ThreadGuard::ThreadGuard(int threads)
    : before_(omp_get_max_threads()), changed_(before_ != threads), dynamic_(omp_get_dynamic()) {
  if (dynamic_ != 0) omp_set_dynamic(0);
  if (changed_) omp_set_num_threads(threads);
}

ThreadGuard::~ThreadGuard() {
  if (changed_) omp_set_num_threads(before_);
  if (dynamic_ != 0) omp_set_dynamic(dynamic_);
}

}  // namespace vlm
