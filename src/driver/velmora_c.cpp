// SPDX-License-Identifier: BSD-3-Clause
/// Driver.
///
/// Manages the handle and the order of the steps: release, input check, matching, the stages of
/// the analysis, factorization, solve; turns what went wrong into an error class and a message,
/// and closes the call with the report.  All that outlives a call is allocated from here; the
/// arrays of the analysis are gone before the factorization starts, so that the peaks of the
/// two don't add up.
#include "driver/velmora_c.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/print.hpp"
#include "base/thread_guard.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"
#include "driver/do_all_fc.hpp"
#include "driver/dumps.hpp"
#include "driver/error_info_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/ini_basic_fc.hpp"
#include "driver/match_driver.hpp"
#include "driver/remedy.hpp"
#include "driver/stages.hpp"
#include "driver/statistics_fc.hpp"
#include "solve/refine.hpp"

namespace vlm {
namespace {

/// Orders below which an analysis is not worth dividing among threads.
constexpr int undivided_order = 200;

/// Leaf domains to aim at: the least power of two that serves all threads, at most n.
int count_parts(const Control& control) {
  if (control.neqns < undivided_order) return 1;
  const auto workers = static_cast<std::int64_t>(control.nthreads) * control.nnodes;
  std::int64_t parts = 1;
  while (parts < workers && parts < control.neqns) parts *= 2;
  return static_cast<int>(std::min<std::int64_t>(parts, control.neqns));
}

InputMatrix matrix_of(const Call& call) { return {call.n, call.ia, call.ja, call.a}; }

MatchingStore matching_of(void** pt) {
  return {static_cast<const int*>(slot(pt, slot_match_perm)),
          static_cast<const double*>(slot(pt, slot_match_scale))};
}

Outcome failed_analysis(int status) {
  return {status == status_overflow ? error_overflow : error_analysis, status, 0, 0};
}

/// The matching's results, in their slots and in `matched`.
Outcome match(const InputMatrix& matrix, void** pt, MatchedOrder& matched) {
  Control& control = control_of(pt);
  if (control.match_mode == 0) return {};
  const std::size_t n = static_cast<std::size_t>(matrix.n);
  auto* perm = static_cast<int*>(allocate(n * sizeof(int), at_matching));
  slot(pt, slot_match_perm) = perm;
  auto* scale = static_cast<double*>(allocate(2 * n * sizeof(double), at_matching));
  slot(pt, slot_match_scale) = scale;
  control.mem_perm += kilobytes(n * sizeof(int)) + kilobytes(2 * n * sizeof(double));
  return with_location(at_matching, [&] {
    Outcome failed = run_matching(matrix, control, perm, scale, matched);
    if (!failed && matched.padded) {
      const PaddedMatrix& padded = *matched.padded;
      control.mem_perm +=
          kilobytes((padded.ia.size() + padded.ja.size() + padded.map.size()) * sizeof(int));
      keep_padded(pt, std::move(*matched.padded));
    }
    return failed;
  });
}

/// The matrix whose entries the structure maps: the caller's, or the padded one without values.
InputMatrix pattern_of(const Call& call) {
  const PaddedMatrix* padded = padded_of(call.pt);
  if (padded == nullptr) return matrix_of(call);
  return {call.n, padded->ia.data(), padded->ja.data(), nullptr};
}

/// The three stages of the analysis; leaves the structure in its slot.
Outcome analyse(const Call& call) {
  void** pt = call.pt;
  Control& control = control_of(pt);
  control.nparts = count_parts(control);
  control.nchunk = std::max(16, 8 * control.nparts + 4);
  control.mem_perm = kilobytes(sizeof(Control)) +
                     kilobytes(sizeof(FactorRecord) * static_cast<std::size_t>(control.nrecords));
  MatchedOrder matched;
  const double match_start = timer_velmora();
  if (Outcome failed = match(matrix_of(call), pt, matched)) return failed;
  const double match_time = timer_velmora() - match_start;

  StageArrays arrays{.call = call, .control = control, .request = {}};
  arrays.request.matrix = pattern_of(call);
  if (matched.order) arrays.request.given_order = &*matched.order;
  arrays.request.matching = matching_of(pt);
  if (control.user_perm > 0 || control.partial != 0) arrays.request.user_perm = call.perm;
  if (const int status =
          with_location(at_adjacency, [&] { return do_all_velmora_fc(Stage::order, arrays); }))
    return failed_analysis(status);
  control.dpar.timer.reorder += match_time;  // it is where the order came from
  std::size_t peak = analysis_bytes(arrays.analysis);
  if (const int status =
          with_location(at_lists, [&] { return do_all_velmora_fc(Stage::lists, arrays); }))
    return failed_analysis(status);
  peak = std::max(peak, analysis_bytes(arrays.analysis));

  const std::size_t bytes = structure_bytes(arrays.request, control, arrays.analysis);
  arrays.structure_block = slot(pt, slot_structure) = allocate(bytes, at_structure);
  try {
    with_location(at_structure, [&] { return do_all_velmora_fc(Stage::structure, arrays); });
  } catch (...) {
    release(pt, slot_structure);  // what marks a finished analysis
    throw;
  }
  control.mem_perm += kilobytes(bytes);
  control.mem_peak = control.mem_perm + kilobytes(peak);
  if (call.iparm(9) >= 0)
    control.mem_fact = kilobytes(factor_bytes(control, *arrays.structure)) +
                       kilobytes(work_bytes(control, *arrays.structure, 1));
  return {};
}

/// A factor that serves this call: finished, and of the type and precision asked for.
bool factor_serves(const FactorRecord& record, const Control& control) {
  return record.factored != nullptr && record.mtype == control.mtype &&
         record.single32 == control.single32;
}

/// A solve that finds no factor makes one, and then needs the whole matrix.
Outcome test_late_factorization(const Call& call, const Control& control) {
  if (call.a == nullptr) return {error_input, code_null, 7, 0};
  if (call.ia == nullptr) return {error_input, code_null, 8, 0};
  if (call.ja == nullptr) return {error_input, code_null, 9, 0};
  if (call.ia[call.n] - 1 != control.nnz) return {error_input, code_nnz, 0, 0};
  return {};
}

/// Takes the results of the factor in use to the control record; a positive iparm(14) of a
/// solve replaces its count of perturbed pivots.
void recall_factor(const Call& call, const FactorRecord& record, Control& control) {
  control.pivot_type = record.pivot_type;
  control.perturbed = record.perturbed;
  control.npos = record.npos;
  control.nneg = record.nneg;
  control.logdet = record.logdet;
  if (call.phase == 33 && call.iparm(14) > 0) control.perturbed = call.iparm(14);
}

void store_factor_results(const Call& call, const Control& control) {
  call.iparm(14) = control.perturbed;
  call.iparm(22) = control.npos;
  call.iparm(23) = control.nneg;
  if (control.det_flag == 1 && call.dparm.data() != nullptr) call.dparm(33) = control.logdet;
}

/// Solves, with CGS_ARR taken for the time of the solve.
Outcome solve(StageArrays& arrays) {
  const Call& call = arrays.call;
  Control& control = arrays.control;
  void** pt = call.pt;
  if (refinement_due(control, call.iparm.data())) {
    if (call.a == nullptr || call.ia == nullptr || call.ja == nullptr)
      return test_late_factorization(call, control);
    const std::size_t bytes = refine_bytes(control, call.nrhs);
    slot(pt, slot_cgs) = allocate(bytes, at_cgs);
    arrays.cgs_arr = static_cast<double*>(slot(pt, slot_cgs));
    control.len_cgs = static_cast<std::int64_t>(bytes / sizeof(double));
  }
  struct Release {
    void** pt;
    ~Release() { release(pt, slot_cgs); }
  } const release_cgs{pt};
  const int status = with_location(at_cgs, [&] { return do_all_velmora_fc(Stage::solve, arrays); });
  call.iparm(7) = control.ref_steps;
  if (status != status_ok) return {error_numeric, status, 0, 0};
  return {};
}

/// Factorization and solve, as the phase and the state of the factor ask for.
Outcome work_numerically(const Call& call) {
  void** pt = call.pt;
  Control& control = control_of(pt);
  FactorRecord& record = *factor_record(pt, call.mnum);
  const bool solves = call.last_digit() == 3 && call.nrhs > 0;
  const bool factors = call.phase != 33 || !factor_serves(record, control);
  if (call.phase == 33 && factors)
    if (Outcome failed = test_late_factorization(call, control)) return failed;

  StageArrays arrays{.call = call, .control = control, .request = {}};
  arrays.request.matrix = matrix_of(call);
  arrays.request.matching = matching_of(pt);
  arrays.structure = static_cast<const Structure*>(slot(pt, slot_structure));
  arrays.record = &record;
  if (factors) provide_factor(record, factor_bytes(control, *arrays.structure));
  provide_work(pt, work_bytes(control, *arrays.structure, solves ? call.nrhs : 1));
  arrays.work = slot(pt, slot_work);
  control.len_cgs = 0;
  control.ref_steps = call.iparm(7) = 0;

  if (factors) {
    const int status = with_location(at_work, [&] {
      std::vector<double> values;  // of the padded matrix
      if (const PaddedMatrix* padded = padded_of(pt)) {
        values.resize(padded->ja.size() * static_cast<std::size_t>(control.nvals));
        scatter_padded_values(*padded, control.nvals, call.a, values.data());
        arrays.request.matrix = {call.n, padded->ia.data(), padded->ja.data(), values.data()};
      }
      return do_all_velmora_fc(Stage::factorize, arrays);
    });
    arrays.request.matrix = matrix_of(call);
    if (status != status_ok) {
      store_factor_results(call, control);
      return {error_numeric, status, 0, 0};
    }
  }
  recall_factor(call, record, control);
  store_factor_results(call, control);
  Outcome outcome;
  if (solves) outcome = solve(arrays);
  control.mem_fact = call.iparm(9) >= 0 ? numeric_kilobytes(pt) : 0;
  return outcome;
}

/// A diagonal matrix that got past the shortcut of the exported operation.
Outcome solve_diagonal(const Call& call) {
  call.iparm(12) = -1;
  if (call.last_digit() != 3) return {};
  const DiagonalSystem system{matrix_of(call), call.nrhs, true, call.iparm(6) == 1, call.b, call.x};
  const int row = is_complex_type(call.mtype)
                      ? c_diag_velmora(system)
                      : diag_velmora(system, call.iparm(22), call.iparm(23));
  if (row == 0) return {};
  return {error_internal, -std::abs(row), 0, 0};
}

/// Replaces what the handle holds by the start of a new analysis.
void begin_analysis(const Call& call) {
  release_analysis(call.pt);
  resize_factor_table(call.pt, call.maxfct);
  ini_basic_fc(control_of(call.pt));
  slot(call.pt, slot_calls) = nullptr;
  count_call(call.pt);
}

/// Phases that work on a matrix, on a handle that has its control record.
Outcome run_work_phase(Call& call) {
  void** pt = call.pt;
  Control& control = control_of(pt);
  const bool analyses = call.first_digit() == 1;
  if (analyses) load_defaults(call.mtype, call.iparm);
  count_call(pt);
  // A new analysis need not fit the old one.
  static const Control unset;
  if (Outcome failed = check_input_fc(call, analyses ? unset : control)) return failed;
  if (!analyses && slot(pt, slot_structure) == nullptr)
    return {error_input, code_no_analysis, 0, 0};
  if (analyses && call.ia[call.n] - 1 == call.n && is_matrix_type(call.mtype))
    return solve_diagonal(call);
  if (analyses) begin_analysis(call);
  accept_input(call, control);
  if (!kernels_exist(call.mtype) || is_symmetric_storage(call.mtype) != (control.sym_struct == 1)) {
    if (analyses) return {error_analysis, status_unsupported, 0, 0};
    return {error_numeric, status_type_change, 0, 0};
  }
  const ThreadGuard guard(control.nthreads);
  if (analyses)
    if (Outcome failed = analyse(call)) return failed;
  if (call.last_digit() > 1) return work_numerically(call);
  return {};
}

/// Phase 0.  @param deleted  1 when there was a factor, out
Outcome release_factor(const Call& call, int& deleted) {
  Control& control = control_of(call.pt);
  FactorRecord* record = call.mnum <= control.maxfct ? factor_record(call.pt, call.mnum) : nullptr;
  if (record == nullptr) return {error_input, code_clean_mnum, 0, 0};
  deleted = record->lu != nullptr ? 1 : 0;
  clean_fact_fc(*record);
  control.mem_peak = control.mem_perm = control.mem_fact = 0;
  return {};
}

Outcome run_phase(Call& call, double start, int& deleted) {
  if (call.pt == nullptr) return {error_input, code_null, 1, 0};
  if (call.phase == -22) return {error_input, code_no_inversion, 0, 0};
  const bool empty = handle_is_empty(call.pt);
  if (call.iparm(32) == 1) {
    if (is_work_phase(call.phase)) return {error_input, code_no_iterative, 0, 0};
    if (empty) return {};
  }
  if (empty) {
    // A diagonal system, which leaves this mark, held nothing.
    if (call.phase < 1 && call.iparm(12) == -1) return {};
    if (call.phase < 1) return {error_input, code_empty_handle, 0, 0};
    create_handle(call.pt, call.maxfct);
  }
  Control& control = control_of(call.pt);
  control.msg = call.msg;
  control.dpar.start = start;
  control.dpar.timer.malloc = 0;
  control.flags = {};
  if (call.phase == 0) return release_factor(call, deleted);
  if (call.phase == -1) {
    control.mem_peak = control.mem_perm = control.mem_fact = 0;
    deleted = -release_analysis(call.pt);
    return {};
  }
  return run_work_phase(call);
}

Outcome run_phase_without_exceptions(Call& call, double start, int& deleted) {
  try {
    return run_phase(call, start, deleted);
  } catch (const OutOfMemory& failure) {
    return {error_memory, failure.location, 0, failure.bytes};
  } catch (const std::bad_alloc&) {
    return {error_memory, at_basic, 0, 0};
  } catch (const std::length_error&) {  // a scratch array beyond 32-bit positions
    return {error_overflow, status_overflow, 0, 0};
  } catch (const std::exception&) {
    return {error_unclassified, 0, 0, 0};
  }
}

void report_failure(const Call& call, Outcome& outcome, const Control* control) {
  if (outcome.error == error_input && call.msg == 0) outcome.error = error_internal;
  if (call.msg == 0) return;
  if (call.phase < 0) print_ci("*** error velmora: internal error ");
  if (call.phase >= 0 || outcome.code == code_no_inversion) error_info_fc(outcome, call, control);
  print_ci("*** what to do: " + std::string(remedy(outcome, call)));
}

void report(const Call& call, const Outcome& outcome, Control& control, int deleted) {
  finish_timers(control);
  // A first call that failed its check has nothing to report on.
  if (outcome && (control.neqns == 0 || call.phase < 1)) return;
  statistics_fc(control, {.phase = call.phase,
                          .mtype = call.mtype,
                          .n = call.n,
                          .nnz = control.nnz,
                          .nrhs = call.nrhs,
                          .mnum = call.mnum,
                          .cg_iterations = call.iparm(20),
                          .deleted = deleted});
}

}  // namespace

int velmora_c(Call& call) {
  const double start = timer_velmora();
  call.iparm(50) = 0;
  if (call.first_digit() > 0 && call.n > 0 && !contradicts_handle(call))
    dump_input(call.phase, call.mtype, matrix_of(call), call.b);

  int deleted = 0;
  Outcome outcome = run_phase_without_exceptions(call, start, deleted);

  Control* control = nullptr;
  if (call.pt != nullptr && !handle_is_empty(call.pt)) control = &control_of(call.pt);
  if (control != nullptr) store_memory_figures(*control, call.iparm);
  if (outcome) report_failure(call, outcome, control);
  if (control != nullptr) {
    report(call, outcome, *control, deleted);
    if (call.phase >= 0) control->status = status_ok;
  }
  if (call.phase == -1 && control != nullptr) release_handle(call.pt);
  if (!outcome && call.last_digit() == 3)
    dump_solution(call.phase, call.mtype, call.n, call.b, call.x);
  return outcome.error;
}

}  // namespace vlm
