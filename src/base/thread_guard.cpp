// SPDX-License-Identifier: BSD-3-Clause
/// Thread counts of OpenMP and of OpenBLAS, see thread_guard.hpp.
#include "base/thread_guard.hpp"

#include <omp.h>

#include <algorithm>

// Weak, so that a program may link another BLAS.
extern "C" {
__attribute__((weak)) void openblas_set_num_threads(int);
__attribute__((weak)) int openblas_get_num_threads(void);
__attribute__((weak)) int openblas_get_parallel(void);
}

namespace vlm {
namespace {

/// What openblas_get_parallel() answers when the BLAS runs on OpenMP.
constexpr int blas_on_openmp = 2;

bool blas_has_thread_count() {
  return openblas_set_num_threads != nullptr && openblas_get_num_threads != nullptr;
}

void set_blas_threads(int threads) {
  if (blas_has_thread_count() && blas_threads() != threads) openblas_set_num_threads(threads);
}

bool blas_runs_on_openmp() {
  return openblas_get_parallel != nullptr && openblas_get_parallel() == blas_on_openmp;
}

/// An OpenMP build of OpenBLAS never uses more threads than OpenMP offers, so that one thread
/// needs no change of its count; changing it there reallocates buffers.
bool blas_follows(int threads) { return threads == 1 && blas_runs_on_openmp(); }

}  // namespace

int count_threads() {
  // A nested region that is not granted a team runs on one thread.
  if (omp_get_active_level() >= omp_get_max_active_levels()) return 1;
  return std::max(1, std::min(omp_get_max_threads(), omp_get_thread_limit()));
}

int blas_threads() { return blas_has_thread_count() ? openblas_get_num_threads() : 0; }

ThreadGuard::ThreadGuard(int threads)
    : omp_threads_(omp_get_max_threads()),
      omp_dynamic_(omp_get_dynamic()),
      blas_threads_(blas_threads()) {
  if (!blas_follows(threads)) set_blas_threads(threads);
  // After the BLAS: OpenBLAS on OpenMP sets the OpenMP count along with its own.
  if (omp_dynamic_ != 0) omp_set_dynamic(0);
  if (omp_get_max_threads() != threads) omp_set_num_threads(threads);
}

ThreadGuard::~ThreadGuard() {
  set_blas_threads(blas_threads_);
  if (omp_get_max_threads() != omp_threads_) omp_set_num_threads(omp_threads_);
  if (omp_dynamic_ != 0) omp_set_dynamic(omp_dynamic_);
}

SerialBlas::SerialBlas(bool wanted)
    : before_(wanted && !blas_runs_on_openmp() ? blas_threads() : 0) {
  if (before_ > 1) openblas_set_num_threads(1);
}

SerialBlas::~SerialBlas() {
  if (before_ > 1) openblas_set_num_threads(before_);
}

}  // namespace vlm
