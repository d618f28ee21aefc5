// SPDX-License-Identifier: BSD-3-Clause
/// Input check.
///
/// The tests look at the arguments in a fixed order and stop at the first failure, before
/// anything that the handle holds has changed.  n is tested before ia(n+1) is read.
#include "driver/check_input_fc.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "driver/factor_store.hpp"
#include "driver/input_scan.hpp"

namespace vlm {
namespace {

Outcome fault(int code, int argument = 0) { return {error_input, code, argument, 0}; }

bool is_accepted_type(int mtype) {
  return (mtype >= -6 && mtype <= 6 && mtype != 0) || mtype == 11 || mtype == -11 || mtype == 13;
}

/// Position of the first array in the argument list that is needed and null; 0 for none.
int missing_array(const Call& call, int nnz) {
  const bool analyses = call.first_digit() == 1;
  const bool factors = call.first_digit() <= 2 && call.last_digit() >= 2;
  const bool solves = call.last_digit() == 3 && call.nrhs > 0;
  const bool reads_matrix = analyses || factors || product_asked(call) || nnz == call.n;
  const bool reads_perm = analyses && (call.iparm(5) != 0 || call.iparm(31) != 0);
  const bool writes_x = call.iparm(6) == 0 || nnz == call.n;
  const bool reads_values =
      (reads_matrix && call.last_digit() >= 2) || (analyses && matching_asked(call));
  if (call.a == nullptr && reads_values) return 7;
  if (call.ia == nullptr && reads_matrix) return 8;
  if (call.ja == nullptr && reads_matrix) return 9;
  if (call.perm == nullptr && reads_perm) return 10;
  if (call.b == nullptr && solves) return 14;
  if (call.x == nullptr && solves && writes_x) return 15;
  return 0;
}

std::optional<Outcome> test_store(const Call& call, const Options& stored) {
  if (stored.maxfct > 0 && stored.maxfct < call.maxfct) return fault(code_maxfct);
  if (call.mnum > call.maxfct) return fault(code_mnum_above);
  // Phases 12 and 13 factor as well and need a place for the factor.
  const bool factors = call.phase > 21 || call.last_digit() > 1;
  if (call.mnum < 1 && factors) return fault(code_mnum_phase);
  return {};
}

Outcome test_row_starts(const Call& call, int stored_nnz) {
  const int* ia = call.ia;
  if (ia[0] != 1) return fault(code_row_starts, 1);
  if (ia[call.n] <= call.n || (stored_nnz > 0 && stored_nnz != ia[call.n] - 1))
    return fault(code_nnz);
  for (int i = 0; i < call.n; ++i)
    if (ia[i + 1] < ia[i]) return fault(code_row_starts, i + 2);
  return {};
}

/// First and last column of each row; ia is known to be sound.
Outcome test_columns(const Call& call) {
  const auto outside = [&](int p) { return call.ja[p - 1] < 1 || call.ja[p - 1] > call.n; };
  for (int i = 0; i < call.n; ++i) {
    const int first = call.ia[i], last = call.ia[i + 1] - 1;
    if (last < first) continue;
    if (outside(first)) return fault(code_columns, first);
    if (outside(last)) return fault(code_columns, last);
  }
  return {};
}

std::optional<Outcome> test_sizes(const Call& call, const Options& stored) {
  if (!is_accepted_type(call.mtype)) return fault(code_mtype);
  const int t = std::abs(call.mtype), t_stored = std::abs(stored.mtype);
  if (stored.mtype != 0 && t != t_stored && t / 2 != t_stored / 2) return fault(code_mtype_change);
  if (stored.n > 0 && stored.n != call.n) return fault(code_n_change);
  if (call.n < 1) return fault(code_n);
  if (call.first_digit() > 2) return {};
  if (call.ia == nullptr) return fault(code_null, 8);
  if (Outcome failed = test_row_starts(call, stored.nnz)) return failed;
  return {};
}

/// iparm(38), and perm of iparm(5) beside that of iparm(31).
std::optional<Outcome> test_parts(const Call& call, const Options& stored) {
  const int leading = call.iparm(38);
  const bool analyses = call.first_digit() == 1;
  if (!analyses && call.iparm(1) == 0) return {};  // the options of the analysis hold
  if (leading < 0 || leading > call.n) return fault(code_schur);
  const int asked = schur_asked(call);
  if (!analyses && stored.n > 0 && asked > 0 && asked != stored.schur)
    return fault(code_schur_late);
  if (analyses && call.iparm(5) > 0 && call.iparm(31) != 0) return fault(code_perm_twice);
  return {};
}

std::optional<Outcome> test_options(const Call& call) {
  const bool solves = call.last_digit() == 3;
  if ((call.nrhs < 1 && call.phase > 32) || (call.nrhs < 0 && solves)) return fault(code_nrhs);
  const int overwrite = call.iparm(6), order = call.iparm(2);
  if (overwrite != 0 && overwrite != 1) return fault(code_overwrite);
  if (call.iparm(30) == 0 && (order < 0 || order > 2)) return fault(code_order);
  if (call.iparm(3) > most_threads) return fault(code_threads);
  return {};
}

/// Iterations know complete solves with a complete factor only.
bool solves_in_parts(const Call& call, const Options& stored) {
  const int schur = call.first_digit() == 1 ? schur_asked(call) : stored.schur;
  return schur > 0 || call.iparm(31) != 0 || (call.iparm(26) != 0 && call.last_digit() == 3);
}

}  // namespace

bool is_work_phase(int phase) {
  return phase == 11 || phase == 12 || phase == 13 || phase == 22 || phase == 23 || phase == 33;
}

bool contradicts_handle(const Call& call) {
  if (call.pt == nullptr || handle_is_empty(call.pt) || call.first_digit() < 2) return false;
  const int stored = control_of(call.pt).options.n;
  return stored > 0 && stored != call.n;
}

bool product_asked(const Call& call) {
  if (call.last_digit() != 3 || call.nrhs < 1) return false;
  if (stabilised_asked(call)) return true;
  return call.iparm(8) != 0 && call.iparm(26) == 0 && call.iparm(31) == 0 && call.iparm(34) == 0;
}

Outcome test_pattern(const Call& call, int stored_nnz) {
  if (Outcome failed = test_row_starts(call, stored_nnz)) return failed;
  return test_columns(call);
}

Outcome check_input_fc(Call& call, const Options& stored) {
  if (call.phase < -1 || call.phase > 33) return fault(code_phase_bounds);
  if (call.iparm(3) < 1) call.iparm(3) = call.default_threads;
  if (auto failed = test_store(call, stored)) return *failed;
  if (auto failed = test_sizes(call, stored)) return *failed;
  if (auto failed = test_options(call)) return *failed;
  if (!is_work_phase(call.phase)) return fault(code_phase);
  if (auto failed = test_parts(call, stored)) return *failed;
  if (stabilised_asked(call) && call.last_digit() >= 2 && solves_in_parts(call, stored))
    return fault(code_stabilised);
  const int nnz = call.first_digit() > 2 ? stored.nnz : call.ia[call.n] - 1;
  if (const int argument = missing_array(call, nnz)) return fault(code_null, argument);
  return call.first_digit() > 2 ? Outcome{} : test_columns(call);
}

Outcome test_values(const Call& call) {
  const InputMatrix matrix{call.n, call.ia, call.ja, call.a};
  const std::ptrdiff_t place = first_not_finite(matrix, matrix_type(call.mtype).nvals());
  if (place == 0) return {};
  return {error_numeric, status_not_finite, static_cast<int>(place), 0};
}

Outcome test_whole_matrix(const Call& call, const Options& options) {
  if (call.a == nullptr) return {error_input, code_null, 7, 0};
  if (call.ia == nullptr) return {error_input, code_null, 8, 0};
  if (call.ja == nullptr) return {error_input, code_null, 9, 0};
  return test_pattern(call, options.nnz);
}

Outcome test_pattern_kept(const Call& call, const Control& control) {
  const InputMatrix matrix{call.n, call.ia, call.ja, call.a};
  if (pattern_checksum(matrix) == control.pattern) return {};
  return {error_input, code_pattern, 0, 0};
}

}  // namespace vlm
