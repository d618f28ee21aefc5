// SPDX-License-Identifier: BSD-3-Clause
/// The arguments of one exported call, and its outcome.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/view.hpp"
#include "driver/dumps.hpp"

namespace vlm {

/// Arguments of velmora(), scalars by value.
struct Call {
  void** pt = nullptr;
  int maxfct = 0, mnum = 0, mtype = 0, phase = 0, n = 0;
  const double* a = nullptr;
  const int* ia = nullptr;
  const int* ja = nullptr;
  int* perm = nullptr;
  int nrhs = 0;
  View<int> iparm;  ///< [64]
  int msg = 0;      ///< 0 silent, 1 with messages and report
  double* b = nullptr;
  double* x = nullptr;
  View<double> dparm;  ///< [64]

  int default_threads = 1;  ///< of a call that leaves the number to OpenMP
  /// Bytes of the largest analysis of the process so far; null: not kept.
  std::atomic<std::int64_t>* largest_analysis = nullptr;
  DumpCounters* dumps = nullptr;  ///< of the process; null: no dump is written

  bool insists = false;  ///< out: the error is told in phase 33 too
  std::string message;   ///< out: what went wrong and what to do, at any message level

  std::size_t wanted = 0;  ///< out: bytes that an error_memory was short of

  int first_digit() const { return phase / 10; }
  int last_digit() const { return phase % 10; }
};

/// Class that goes to the caller in `error`.
enum ErrorClass : int {
  error_none = 0,
  error_input = -1,
  error_memory = -2,
  error_analysis = -3,
  error_numeric = -4,
  error_unclassified = -5,
  error_matching = -6,
  error_internal = -7,
  error_overflow = -8,
  error_cancelled = -9,
  // of the iterative solver, see norv/solver.h
  error_sqmr_limit = -100,
  error_sqmr_stagnation = -101,
  error_sqmr_sigma = -102,
  error_sqmr_rho = -103,
};

/// Class, and what selects and fills the message.
struct Outcome {
  int error = error_none;
  std::int64_t code = 0;  ///< input code, location code, or status
  int argument = 0;       ///< position of a null argument; order of a matching
  std::size_t bytes = 0;  ///< memory error: size that was asked for, 0 when not known
  bool diagonal = false;  ///< code: minus the row of a diagonal system; argument: its RowFault

  std::string detail = {};  ///< lines of a message that no code selects

  explicit operator bool() const { return error != error_none; }
};

}  // namespace vlm
