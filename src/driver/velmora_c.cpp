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
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <stdexcept>
#include <utility>

#include "base/clock.hpp"
#include "base/memory.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "base/thread_guard.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/do_all_fc.hpp"
#include "driver/dumps.hpp"
#include "driver/error_info_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/input_scan.hpp"
#include "driver/invert.hpp"
#include "driver/iterative.hpp"
#include "driver/ladder.hpp"
#include "driver/match_driver.hpp"
#include "driver/options.hpp"
#include "driver/shortcut.hpp"
#include "driver/stabilised_stage.hpp"
#include "driver/statistics_fc.hpp"
#include "numeric/factor.hpp"
#include "solve/refine.hpp"

namespace vlm {
namespace {

InputMatrix matrix_of(const Call& call) { return {call.n, call.ia, call.ja, call.a}; }

Outcome failed_analysis(int status) {
  return {status == status_overflow ? error_overflow : error_analysis, status, 0, 0};
}

/// The matching's results, in their slots and in `matched`.
Outcome match(const Call& call, MatchedOrder& matched) {
  Control& control = control_of(call.pt);
  if (control.options.matching == 0) return {};
  if (Outcome failed = test_values(call)) return failed;
  const InputMatrix matrix = matrix_of(call);
  void** pt = call.pt;
  const std::size_t n = static_cast<std::size_t>(matrix.n);
  auto* perm = static_cast<int*>(allocate(n * sizeof(int), at_matching));
  slot(pt, slot_match_perm) = perm;
  auto* scale = static_cast<double*>(allocate(2 * n * sizeof(double), at_matching));
  slot(pt, slot_match_scale) = scale;
  std::int64_t& permanent = control.memory.permanent;
  permanent += kilobytes(n * sizeof(int)) + kilobytes(2 * n * sizeof(double));
  return with_location(at_matching, [&] {
    Outcome failed = run_matching(matrix, control.options, perm, scale, matched);
    if (!failed && matched.padded) {
      const PaddedMatrix& padded = *matched.padded;
      permanent +=
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

/// Where the order of the analysis comes from.
OrderInput order_input(const Call& call, const MatchedOrder& matched) {
  const Options& options = control_of(call.pt).options;
  OrderInput input{.matrix = pattern_of(call), .row_perm = matching_of(call.pt).perm};
  if (options.user_order) input.user_perm = call.perm;
  if (options.partial != 0) input.marks = call.perm;
  if (matched.order) input.matched = &*matched.order;
  return input;
}

/// Forecast of the numeric memory, for one factor.
std::int64_t numeric_forecast(const Options& options, const Structure& structure) {
  const FactorOptions factor = factor_options(options);
  return kilobytes(factor_bytes(factor, structure)) +
         kilobytes(std::max(factor_work_bytes(factor, structure),
                            solve_work_bytes(solve_options(options), structure, 1)));
}

/// Analyses that hold fewer bytes leave the heap alone.
constexpr std::int64_t large_analysis = 1 << 20;

/// Matching and the three stages of the analysis; leaves the structure in its slot.
Outcome run_analysis(const Call& call, const MemoryMeter& meter) {
  void** pt = call.pt;
  Control& control = control_of(pt);
  // Where the process has seen no analysis as large: else the heap has grown already, and its
  // pages had better be used again.
  const auto trim = [&] {
    const std::int64_t seen =
        call.largest_analysis != nullptr ? call.largest_analysis->load() : std::int64_t{0};
    if (meter.peak() > std::max(large_analysis, seen)) trim_heap();
  };
  PhaseProgress phase(11, 100);
  MatchedOrder matched;
  control.pattern = pattern_checksum(matrix_of(call));
  const double match_start = timer_velmora();
  if (Outcome failed = match(call, matched)) return failed;
  trim();
  const double match_time = timer_velmora() - match_start;

  StageArrays arrays{.call = call, .control = control};
  arrays.order = order_input(call, matched);
  const auto run = [&arrays](Location location, Stage stage) {
    return with_location(location, [&] { return do_all_velmora_fc(stage, arrays); });
  };
  if (const int status = run(at_adjacency, Stage::order)) return failed_analysis(status);
  trim();
  control.clocks.timer.reorder += match_time;  // it is where the order came from
  if (const int status = run(at_lists, Stage::lists)) return failed_analysis(status);

  const std::size_t bytes = arrays.plan.bytes;
  arrays.structure_block = slot(pt, slot_structure) = allocate(bytes, at_structure);
  try {
    run(at_structure, Stage::structure);
  } catch (...) {
    release(pt, slot_structure);  // what marks a finished analysis
    throw;
  }
  control.memory.permanent += kilobytes(bytes);
  phase.finish();
  if (call.iparm(9) >= 0)
    control.memory.numeric = numeric_forecast(control.options, *arrays.structure);
  return {};
}

/// The analysis with its memory figures.
Outcome analyse(const Call& call) {
  Control& control = control_of(call.pt);
  const std::int64_t handle =
      kilobytes(sizeof(Control)) +
      kilobytes(sizeof(FactorRecord) * static_cast<std::size_t>(control.nrecords));
  control.memory = {.permanent = handle};
  MemoryMeter meter;
  const MeterScope metered(meter);
  if (Outcome failed = run_analysis(call, meter)) return failed;
  if (call.largest_analysis != nullptr)
    for (std::int64_t seen = call.largest_analysis->load(); seen < meter.peak();)
      if (call.largest_analysis->compare_exchange_weak(seen, meter.peak())) break;
  control.memory.peak = handle + kilobytes(static_cast<std::size_t>(meter.peak()));
  return {};
}

/// A factor that serves this call: finished, and of the type and precision asked for.
bool factor_serves(const FactorRecord& record, const Options& options) {
  return record.finished && record.mtype == options.mtype && record.single == options.single;
}

/// The results of the factor in use; a positive iparm(14) of a solve replaces its count of
/// perturbed pivots.
void recall_factor(const Call& call, const FactorRecord& record, Results& results) {
  results.factor = record.result;
  results.factor_seconds = record.seconds;
  if (call.phase == 33 && call.iparm(14) > 0) results.factor.perturbed = call.iparm(14);
}

void store_factor_results(const Call& call, const Control& control) {
  const FactorResult& factor = control.results.factor;
  call.iparm(14) = factor.perturbed;
  store_signs(call, factor);
  if (control.options.logdet && call.dparm.data() != nullptr) call.dparm(33) = factor.logdet;
}

/// Bytes of CGS_ARR that a solve needs.
std::size_t solve_vector_bytes(const StageArrays& arrays) {
  const Call& call = arrays.call;
  const Control& control = arrays.control;
  if (control.options.stabilised.k != 0) return stabilised_stage_bytes(arrays);
  const RefineOptions refine =
      refine_options(control.options, call, control.results.factor.perturbed);
  return (refine.due ? refine_bytes(refine, call.n, call.nrhs) : 0) +
         accuracy_bytes(accuracy_options(control.options, call), call.n, call.nrhs);
}

/// Solves, with CGS_ARR taken for the time of the solve.
Outcome solve(StageArrays& arrays) {
  const Call& call = arrays.call;
  Control& control = arrays.control;
  void** pt = call.pt;
  if (control.options.stabilised.k != 0) with_location(at_cgs, [&] { provide_earlier(arrays); });
  if (const std::size_t vectors = solve_vector_bytes(arrays); vectors > 0) {
    if (call.phase == 33) {
      if (Outcome failed = test_whole_matrix(call, control.options)) return failed;
      if (Outcome failed = test_for_inverse(call, true)) return failed;
    }
    provide_vectors(arrays, vectors);
  }
  struct Release {
    void** pt;
    std::size_t kept;
    ~Release() { release_large_cgs(pt, kept); }
  } const release_cgs{pt, caller_bytes(arrays)};
  const int status = with_location(at_cgs, [&] { return do_all_velmora_fc(Stage::solve, arrays); });
  call.iparm(7) = control.results.refinement_steps;
  if (Progress* const progress = Progress::current()) progress->end();
  if (status != status_ok) return {error_numeric, status, 0, 0};
  return {};
}

/// Where the values of a padded matrix lie: behind the work of the factorization.
std::size_t padded_values_at(const StageArrays& arrays) {
  return align_up(factor_work_bytes(factor_options(arrays.control.options), *arrays.structure));
}

/// Factors the caller's matrix, or the padded one that stands for it.
int factorize(StageArrays& arrays) {
  const Call& call = arrays.call;
  const PaddedMatrix* padded = padded_of(call.pt);
  if (padded == nullptr) return do_all_velmora_fc(Stage::factorize, arrays);
  void* const place = static_cast<char*>(arrays.work) + padded_values_at(arrays);
  auto* const values = static_cast<double*>(place);
  scatter_padded_values(*padded, arrays.control.options.type->nvals(), call.a, values);
  arrays.matrix = {call.n, padded->ia.data(), padded->ja.data(), values};
  const int status = do_all_velmora_fc(Stage::factorize, arrays);
  arrays.matrix = matrix_of(call);
  return status;
}

/// Factors into the record, whose results become those of the call.
Outcome make_factor(StageArrays& arrays) {
  const Call& call = arrays.call;
  Control& control = arrays.control;
  drop_second(*arrays.record);
  provide_factor(*arrays.record, factor_bytes(factor_options(control.options), *arrays.structure));
  const int status = with_location(at_work, [&] { return factorize(arrays); });
  if (status == status_ok) recall_factor(call, *arrays.record, control.results);
  store_factor_results(call, control);
  return status == status_ok ? Outcome{} : Outcome{error_numeric, status, 0, 0};
}

/// Solves; where a kept factor does not serve, with a new one.
Outcome solve_or_factor(StageArrays& arrays) {
  arrays.may_factor =
      !arrays.fresh && arrays.control.options.stabilised.k > 0 && arrays.call.phase != 33;
  const Outcome outcome = solve(arrays);
  if (outcome.error != error_numeric || !arrays.may_factor) return outcome;
  arrays.may_factor = false;
  if (Outcome failed = make_factor(arrays)) return failed;
  return solve(arrays);
}

/// Room for the factorization and for the solves of the call.
std::size_t numeric_work_bytes(const StageArrays& arrays, bool solves, bool climbs) {
  const Call& call = arrays.call;
  const Options& options = arrays.control.options;
  const auto solve_bytes = [&](int nrhs) {
    return solve_work_bytes(solve_options(options), *arrays.structure, nrhs);
  };
  std::size_t bytes = factor_work_bytes(factor_options(options), *arrays.structure);
  if (const PaddedMatrix* padded = padded_of(call.pt))
    bytes = padded_values_at(arrays) +
            padded->ja.size() * static_cast<std::size_t>(options.type->nvals()) * sizeof(double);
  bytes = std::max(bytes, solve_bytes(solves ? call.nrhs : 1));
  if (!solves) return bytes;
  const std::size_t room = test_room_bytes(arrays);
  if (room <= caller_bytes(arrays)) bytes = std::max(bytes, room);
  // Solves of fewer columns divide the work otherwise.
  int columns = 0;
  if (climbs || accuracy_options(options, call).level == 2)
    columns = std::min(accuracy_block, call.nrhs);
  if (options.stabilised.k != 0) columns = call.nrhs;
  for (; columns > 0; --columns) bytes = std::max(bytes, solve_bytes(columns));
  return bytes;
}

/// Factorization and solve, as the phase and the state of the factor ask for.
Outcome work_numerically(const Call& call) {
  void** pt = call.pt;
  Control& control = control_of(pt);
  const Options& options = control.options;
  FactorRecord& record = *factor_record(pt, call.mnum);
  const bool solves = call.last_digit() == 3 && call.nrhs > 0;
  const bool kept =
      factor_serves(record, options) && !record.inverted &&
      (call.phase == 33 || keeps_factor(record.history, options.stabilised.k, call.iparm(20)));
  if (call.phase == 33 && record.inverted) return test_for_inverse(call, false);
  const bool climbs = solves && ladder_asked(options, call);
  if (call.phase == 33 && (!kept || climbs)) {
    if (Outcome failed = test_whole_matrix(call, options)) return failed;
    if (Outcome failed = test_pattern_kept(call, control)) return failed;
    if (Outcome failed = test_for_inverse(call, true)) return failed;
  }
  if (call.phase != 33 || !kept) {
    if (!kept) {
      record.inverted = false;
      record.inverse_values = 0;
    }
    if (Outcome failed = test_values(call)) {
      if (!kept) record.finished = false;  // it is no factor of these values
      return failed;
    }
  }

  const ThreadGuard guard;
  StageArrays arrays{.call = call, .control = control};
  arrays.matrix = matrix_of(call);
  arrays.matching = matching_of(pt);
  arrays.structure = static_cast<const Structure*>(slot(pt, slot_structure));
  arrays.record = &record;
  provide_work(pt, numeric_work_bytes(arrays, solves, climbs));
  arrays.work = slot(pt, slot_work);
  control.cgs_bytes = 0;
  control.results.refinement_steps = call.iparm(7) = 0;
  control.results.accuracy = {};
  control.results.ladder = {};

  Outcome made;
  if (!kept) made = make_factor(arrays);
  if (made && !(climbs && ladder_may_follow(options, made.code))) return made;
  recall_factor(call, record, control.results);
  store_factor_results(call, control);
  Outcome outcome;
  const auto plain_solve = [&] { return solve_or_factor(arrays); };
  if (climbs)
    outcome = climb(arrays, made ? nullptr : std::function<Outcome()>(plain_solve));
  else if (solves)
    outcome = plain_solve();
  control.memory.numeric = call.iparm(9) >= 0 ? numeric_kilobytes(pt) : 0;
  return outcome;
}

/// Replaces what the handle holds by the start of a new analysis.
void begin_analysis(const Call& call) {
  release_analysis(call.pt);
  resize_factor_table(call.pt, call.maxfct);
  Control& control = control_of(call.pt);
  Control fresh;
  fresh.nrecords = control.nrecords;
  fresh.clocks = control.clocks;
  control = fresh;
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
  if (Outcome failed = check_input_fc(call, analyses ? Options{} : control.options)) return failed;
  if (!analyses && slot(pt, slot_structure) == nullptr)
    return {error_input, code_no_analysis, 0, 0};
  if (call.first_digit() == 2)
    if (Outcome failed = test_pattern_kept(call, control)) return failed;
  if (analyses) begin_analysis(call);
  if (analyses && call.ia[call.n] - 1 == call.n && is_matrix_type(call.mtype) &&
      schur_asked(call) == 0)
    return refuse_diagonal(call);
  control.options = accept_input(call, control.options);
  if (!is_matrix_type(call.mtype) ||
      matrix_type(call.mtype).symmetric != control.options.symmetric) {
    if (analyses) return {error_analysis, status_unsupported, 0, 0};
    return {error_numeric, status_type_change, 0, 0};
  }
  if (analyses)
    if (Outcome failed = analyse(call)) return failed;
  if (call.last_digit() > 1) return work_numerically(call);
  return {};
}

/// Phases that work on a matrix with the iterative solver, likewise.
Outcome run_iterative_phase(Call& call) {
  Control& control = control_of(call.pt);
  const bool analyses = call.first_digit() == 1;
  if (analyses) load_defaults(call.mtype, call.iparm);
  count_call(call.pt);
  if (Outcome failed = check_input_fc(call, analyses ? Options{} : control.options)) return failed;
  if (Outcome failed = check_iterative(call)) return failed;
  if (analyses) begin_analysis(call);
  control.options = accept_input(call, control.options);
  return run_iterative(call);
}

/// Phase 0.  @param deleted  1 when there was a factor, out
Outcome release_factor(const Call& call, int& deleted) {
  Control& control = control_of(call.pt);
  FactorRecord* record =
      call.mnum <= control.options.maxfct ? factor_record(call.pt, call.mnum) : nullptr;
  if (record == nullptr) return {error_input, code_clean_mnum, 0, 0};
  deleted = record->lu != nullptr ? 1 : 0;
  clean_fact_fc(*record);
  control.memory = {};
  return {};
}

Outcome run_phase(Call& call, double start, int& deleted) {
  if (call.pt == nullptr) return {error_input, code_null, 1, 0};
  if (call.phase == phase_inversion) return invert_velmora(call);
  const bool empty = handle_is_empty(call.pt);
  const bool iterative = call.iparm(32) == 1;
  if (iterative && passes_by(call, empty)) return {};
  if (empty) {
    // A diagonal system, which leaves this mark, held nothing.
    const int mark = call.iparm(12);
    if (call.phase < 1 && (mark == diagonal_system || mark == diagonal_transposed)) return {};
    if (call.phase < 1) return {error_input, code_empty_handle, 0, 0};
    create_handle(call.pt, call.maxfct);
  }
  Control& control = control_of(call.pt);
  control.clocks = {.timer = {}, .start = start};
  if (call.phase == 0) return release_factor(call, deleted);
  if (call.phase == -1) {
    control.memory = {};
    deleted = -release_analysis(call.pt);
    return {};
  }
  return iterative && is_work_phase(call.phase) ? run_iterative_phase(call) : run_work_phase(call);
}

Outcome run_phase_without_exceptions(Call& call, double start, int& deleted) {
  try {
    return run_phase(call, start, deleted);
  } catch (const OutOfMemory& failure) {
    return {error_memory, failure.location, 0, failure.bytes};
  } catch (const std::bad_alloc&) {  // a record or a string; arrays tell their size
    return {error_memory, at_basic, 0, 0};
  } catch (const std::length_error&) {  // a scratch array beyond 32-bit positions
    return {error_overflow, status_overflow, 0, 0};
  } catch (const Cancelled&) {
    return {error_cancelled, 0, 0, 0};
  } catch (const std::exception&) {
    return {error_unclassified, 0, 0, 0};
  }
}

void report_failure(Call& call, Outcome& outcome, const Control* control) {
  const Options options = control != nullptr ? control->options : Options{};
  const MemoryFigures memory = control != nullptr ? control->memory : MemoryFigures{};
  error_info_fc(outcome, call, options, memory.permanent + memory.numeric);
  if (outcome.error == error_input && call.msg == 0) outcome.error = error_internal;
}

void report(const Call& call, const Outcome& outcome, Control& control, int deleted) {
  finish_timers(control.clocks);
  // A first call that failed its check has nothing to report on.
  if (outcome && (control.options.n == 0 || call.phase < 1)) return;
  if (call.phase == phase_inversion) return;  // it has lines of its own
  statistics_fc(control, {.phase = call.phase,
                          .mtype = call.mtype,
                          .n = call.n,
                          .msg = call.msg,
                          .nrhs = call.nrhs,
                          .mnum = call.mnum,
                          .iterations = call.iparm(20),
                          .deleted = deleted});
}

}  // namespace

int velmora_c(Call& call) {
  const double start = timer_velmora();
  call.iparm(50) = 0;
  if (call.dumps != nullptr && call.first_digit() > 0 && call.n > 0 && !contradicts_handle(call))
    dump_input(*call.dumps, call.phase, call.mtype, matrix_of(call), call.b);

  int deleted = 0;
  Outcome outcome = run_phase_without_exceptions(call, start, deleted);

  Control* control = nullptr;
  if (call.pt != nullptr && !handle_is_empty(call.pt)) control = &control_of(call.pt);
  if (control != nullptr) store_memory_figures(control->memory, call.iparm);
  call.insists = outcome.error == error_cancelled ||
                 (outcome.error == error_input &&
                  (outcome.code == code_inverted || outcome.code == code_inverse_values));
  call.wanted = outcome.bytes;
  if (outcome) report_failure(call, outcome, control);
  if (control != nullptr && call.iparm(32) != 1) report(call, outcome, *control, deleted);
  if (call.phase == -1 && control != nullptr) release_handle(call.pt);
  if (call.dumps != nullptr && !outcome && call.last_digit() == 3)
    dump_solution(*call.dumps, call.phase, call.mtype, call.n, call.b, call.x);
  return outcome.error;
}

}  // namespace vlm
