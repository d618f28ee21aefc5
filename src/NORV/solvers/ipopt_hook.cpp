// SPDX-License-Identifier: BSD-3-Clause
/// The termination hook of an optimiser, one for the process: its iterates decide how accurate a
/// step has to be.
#include <atomic>

#include "NORV/solvers/solvers.hpp"
#include "norv/interface.h"

namespace {
constinit std::atomic<norv_ipopt_fn> hook{nullptr};
}

namespace vlm {
TerminationHook termination_hook() { return hook.load(std::memory_order_acquire); }
}  // namespace vlm

int SetIpoptCallbackFunction(norv_ipopt_fn fn) {
  hook.store(fn, std::memory_order_release);
  return 1;
}

int ipopt_test_function_(int* flag) {
  *flag = vlm::termination_hook() != nullptr ? 1 : 0;
  return 1;
}

int ipopt_terminate_(int* result, const int* iteration, const int* n, const double* norm_b,
                     const double* norm_r, double* x, double* r) {
  const vlm::TerminationHook fn = vlm::termination_hook();
  *result = fn != nullptr ? fn(*norm_b, *norm_r, *n, x, r, *iteration) : 0;
  return 1;
}
