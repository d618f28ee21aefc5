// SPDX-License-Identifier: BSD-3-Clause
/// Number of threads for the duration of an exported call.
///
/// A call runs with the threads that its caller asked for, in OpenMP regions and in the BLAS
/// alike, and leaves both settings as it found them.  OpenBLAS keeps a count of its own; it is
/// set where the program's BLAS has that function.
#pragma once

namespace vlm {

/// Threads that a parallel region opened here would get.
int count_threads();

/// OpenBLAS's own number of threads; 0 where the BLAS has none.
int blas_threads();

/// Sets the OpenMP thread count and OpenBLAS's to `threads`, and restores them.
class ThreadGuard {
 public:
  explicit ThreadGuard(int threads);
  ~ThreadGuard();
  ThreadGuard(const ThreadGuard&) = delete;
  ThreadGuard& operator=(const ThreadGuard&) = delete;

 private:
  int omp_threads_;
  int omp_dynamic_;
  int blas_threads_;
};

/// Keeps the BLAS to one thread while OpenMP threads call it side by side.  One that runs on
/// OpenMP does so by itself.
class SerialBlas {
 public:
  explicit SerialBlas(bool wanted);
  ~SerialBlas();
  SerialBlas(const SerialBlas&) = delete;
  SerialBlas& operator=(const SerialBlas&) = delete;

 private:
  int before_;  ///< 0: nothing to restore
};

}  // namespace vlm
