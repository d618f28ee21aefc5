// SPDX-License-Identifier: BSD-3-Clause
/// Diagonal systems, see shortcut.hpp.
#include "driver/shortcut.hpp"

#include <cstdint>

#include "base/matrix_types.hpp"
#include "base/memory.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"
#include "driver/error_info_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/options.hpp"

namespace vlm {
namespace {

DiagonalFault run_diagonal(const Call& call, bool transpose) {
  const View<int>& iparm = call.iparm;
  const MatrixType& type = matrix_type(call.mtype);
  const DiagonalSystem system{.matrix = {call.n, call.ia, call.ja, call.a},
                              .nrhs = call.nrhs,
                              .solve = call.last_digit() == 3,
                              .transpose = transpose,
                              .definite = type.family == Family::cholesky,
                              .steps = iparm(26),
                              .overwrite_b = iparm(6) == 1,
                              .threads = iparm(3) < 1 ? call.default_threads : iparm(3),
                              .b = call.b,
                              .x = call.x};
  return type.complex ? c_diag_velmora(system) : diag_velmora(system, iparm(22), iparm(23));
}

/// Leaves the mark of a diagonal system, which also keeps the transposition for the calls that
/// follow.  @return whether the transposed system is meant
bool mark_diagonal(const Call& call) {
  const bool transpose = transpose_asked(call) && !matrix_type(call.mtype).symmetric;
  call.iparm(12) = transpose ? diagonal_transposed : diagonal_system;
  if (call.phase != 33) call.iparm(39) = 0;
  return transpose;
}

}  // namespace

Outcome outcome_of(const DiagonalFault& fault) {
  if (!fault) return {};
  const int error = fault.what == RowFault::repeated     ? error_matching
                    : fault.what == RowFault::not_finite ? error_numeric
                                                         : error_internal;
  return {error, -fault.row, static_cast<int>(fault.what), 0, true};
}

bool takes_shortcut(const Call& call) {
  if (call.iparm(32) != 0 || !is_work_phase(call.phase) || !is_matrix_type(call.mtype))
    return false;
  if (call.n < 1 || call.ia == nullptr || contradicts_handle(call)) return false;
  if (call.ia[0] != 1) return false;
  if (std::int64_t{call.ia[call.n]} - call.n != 1 || call.iparm(3) > most_threads) return false;
  // A handle factors the matrix that it has analysed, and no other.  A Schur complement takes a
  // factor, be it of a diagonal matrix.
  const bool used = call.pt != nullptr && !handle_is_empty(call.pt);
  const bool analysed = used && slot(call.pt, slot_structure) != nullptr;
  if (call.first_digit() == 2 && analysed) return false;
  const int schur = call.iparm(38);
  if (schur != 0 && schur != call.n) return false;
  if (call.first_digit() == 3 && analysed && control_of(call.pt).options.schur > 0) return false;
  if (call.phase == 11) return true;
  if (call.a == nullptr || call.ja == nullptr) return false;
  return call.last_digit() < 3 || (call.nrhs >= 0 && call.b != nullptr && call.x != nullptr);
}

int solve_at_once(Call& call) {
  const View<int>& iparm = call.iparm;
  const bool transpose = mark_diagonal(call);
  if (call.first_digit() == 1 && call.pt != nullptr && !handle_is_empty(call.pt)) {
    release_analysis(call.pt);
    release_handle(call.pt);
  }
  Outcome outcome;
  if (call.phase != 11) try {
      outcome = outcome_of(run_diagonal(call, transpose));
    } catch (const AllocationFailure& failure) {
      outcome = {error_memory, at_matching, 0, failure.bytes};
    }
  iparm(15) = iparm(16) = iparm(17) = iparm(20) = 0;
  iparm(18) = call.n;
  iparm(19) = call.n / 1000000;
  if (!outcome) return 0;
  error_info_fc(outcome, call);
  if (outcome.error != error_internal || call.phase == 33 || call.phase == 23) return outcome.error;
  const int row = static_cast<int>(-outcome.code);
  return RowFault(outcome.argument) == RowFault::zero ? -row : row;
}

Outcome refuse_diagonal(const Call& call) {
  const bool transpose = mark_diagonal(call);
  return call.last_digit() == 3 ? outcome_of(run_diagonal(call, transpose)) : Outcome{};
}

}  // namespace vlm
