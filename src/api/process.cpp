// SPDX-License-Identifier: BSD-3-Clause
/// State of the process, see process.hpp.
#include "api/process.hpp"

#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

// Weak, so that a program may link another BLAS.
extern "C" {
__attribute__((weak)) void openblas_set_num_threads(int);
__attribute__((weak)) int openblas_get_num_threads(void);
__attribute__((weak)) int openblas_get_parallel(void);
}

namespace vlm {
namespace {

/// What openblas_get_parallel() answers for a BLAS with threads of its own.
constexpr int blas_on_own_threads = 1;

bool blas_has_own_threads() {
  return openblas_get_parallel != nullptr && openblas_set_num_threads != nullptr &&
         openblas_get_num_threads != nullptr && openblas_get_parallel() == blas_on_own_threads;
}

struct BlasUse {
  std::mutex mutex;
  int holders = 0;
  int before = 1;  ///< threads of the BLAS when the first holder came
};

BlasUse& blas_use() {
  static BlasUse use;
  return use;
}

/// An array: threads that end have nothing to destroy, and keeping takes no memory.
thread_local char message[message_length];

const pid_t loaded_in = getpid();

}  // namespace

std::atomic<std::int64_t>& largest_analysis() {
  static std::atomic<std::int64_t> bytes{0};
  return bytes;
}

DumpCounters& dump_counters() {
  static DumpCounters counters;
  return counters;
}

void keep_message(std::string_view text) noexcept {
  *std::copy_n(text.data(), std::min(text.size(), message_length - 1), message) = '\0';
}

const char* kept_message() noexcept { return message; }

BlasLatch::BlasLatch(bool wanted) : held_(wanted && blas_has_own_threads()) {
  if (!held_) return;
  BlasUse& use = blas_use();
  const std::lock_guard hold(use.mutex);
  if (use.holders++ > 0) return;
  use.before = openblas_get_num_threads();
  if (use.before != 1) openblas_set_num_threads(1);
}

BlasLatch::~BlasLatch() {
  if (!held_) return;
  BlasUse& use = blas_use();
  const std::lock_guard hold(use.mutex);
  if (--use.holders == 0 && use.before != 1) openblas_set_num_threads(use.before);
}

bool is_forked() { return getpid() != loaded_in; }

bool run_on_new_thread(void (*routine)(Call&, int& error), Call& call, int& error) noexcept {
  struct Work {
    decltype(routine) run;
    Call& call;
    int& error;
  } work{routine, call, error};
  const auto start = [](void* given) -> void* {
    const Work& mine = *static_cast<Work*>(given);
    mine.run(mine.call, mine.error);
    return nullptr;
  };
  pthread_t thread;  // std::thread would allocate
  if (pthread_create(&thread, nullptr, start, &work) != 0) return false;
  pthread_join(thread, nullptr);
  return true;
}

}  // namespace vlm
