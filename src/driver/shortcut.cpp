// SPDX-License-Identifier: BSD-3-Clause
/// Diagonal systems, see shortcut.hpp.
#include "driver/shortcut.hpp"

#include <cstdlib>

#include "base/matrix_types.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"

namespace vlm {
namespace {

/// @return the code of diag_velmora()
int run_diagonal(const Call& call) {
  const View<int>& iparm = call.iparm;
  const DiagonalSystem system{.matrix = {call.n, call.ia, call.ja, call.a},
                              .nrhs = call.nrhs,
                              .solve = call.last_digit() == 3,
                              .overwrite_b = iparm(6) == 1,
                              .threads = iparm(3) < 1 ? call.default_threads : iparm(3),
                              .b = call.b,
                              .x = call.x};
  return matrix_type(call.mtype).complex ? c_diag_velmora(system)
                                         : diag_velmora(system, iparm(22), iparm(23));
}

}  // namespace

bool takes_shortcut(const Call& call) {
  if (call.iparm(32) != 0 || !is_work_phase(call.phase) || !is_matrix_type(call.mtype))
    return false;
  if (call.n < 1 || call.ia == nullptr || contradicts_handle(call)) return false;
  if (call.ia[call.n] - 1 != call.n) return false;
  const bool solves = call.last_digit() == 3;
  if (call.phase != 11 && call.a == nullptr) return false;
  return !solves || (call.ja != nullptr && call.b != nullptr && call.x != nullptr);
}

int solve_at_once(const Call& call) {
  const View<int>& iparm = call.iparm;
  iparm(12) = -1;
  const int error = call.phase == 11 ? 0 : run_diagonal(call);
  iparm(15) = iparm(16) = iparm(17) = iparm(20) = 0;
  iparm(18) = call.n;
  iparm(19) = call.n / 1000000;
  const bool plain = call.phase == 33 || call.phase == 23 || call.phase == 11;
  return plain && error != 0 ? error_internal : error;
}

Outcome refuse_diagonal(const Call& call) {
  call.iparm(12) = -1;
  if (call.last_digit() != 3) return {};
  const int row = run_diagonal(call);
  if (row == 0) return {};
  return {error_internal, -std::abs(row), 0, 0};
}

}  // namespace vlm
