// SPDX-License-Identifier: BSD-3-Clause
/// Stage routine: timers and results around the routine families.
#include "driver/do_all_fc.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "base/clock.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "driver/factor_store.hpp"
#include "driver/input_scan.hpp"
#include "driver/stabilised_stage.hpp"
#include "symbolic/sched.hpp"
#include "symbolic/sfinit.hpp"
#include "symbolic/symfct.hpp"

namespace vlm {
namespace {

/// A count for an option entry of 32 bits: above its range, negative and in thousands.
int count_for_iparm(std::int64_t count) {
  if (count <= std::numeric_limits<int>::max()) return static_cast<int>(count);
  return static_cast<int>((static_cast<double>(count) + 1000) * -0.001);
}

int truncated(double value) {
  return static_cast<int>(std::min(value, double(std::numeric_limits<int>::max())));
}

int run_order(StageArrays& arrays) {
  const Options& options = arrays.control.options;
  Timers& timer = arrays.control.clocks.timer;
  OrderTimes times;
  const int status = reorder1_velmora(arrays.order, order_options(options), arrays.analysis, times);
  timer.fulladj = times.adjacency;
  timer.reorder = times.order;
  if (status != status_ok) return status;
  const Stopwatch watch(timer.symbfct);
  sfinit_velmora(symbolic_options(options), arrays.analysis);
  return status_ok;
}

int run_lists(StageArrays& arrays) {
  const SymbolicOptions options = symbolic_options(arrays.control.options);
  Timers& timer = arrays.control.clocks.timer;
  const double counting = timer.symbfct;  // the order's stage has counted the entries already
  int status = status_ok;
  {
    const Stopwatch watch(timer.symbfct);
    status = reorder2_velmora(options, arrays.analysis);
  }
  timer.symbfct += counting;
  if (status == status_ok && options.threads > 1) {
    const Stopwatch watch(timer.parlist);
    status = reorder3_velmora(options, arrays.analysis);
  }
  if (status != status_ok) return status;
  const Stopwatch watch(timer.a_to_lu);
  arrays.plan = plan_structure(arrays.map_input(), arrays.analysis, options.threads);
  return status_ok;
}

int run_structure(StageArrays& arrays) {
  Control& control = arrays.control;
  const View<int>& iparm = arrays.call.iparm;
  double& timer = control.clocks.timer.a_to_lu;
  const double planning = timer;
  {
    const Stopwatch watch(timer);
    arrays.structure =
        build_structure(arrays.structure_block, arrays.map_input(), arrays.plan, arrays.analysis);
  }
  timer += planning;
  const Structure& structure = *arrays.structure;
  const FactorFigures& figures = control.results.figures = structure.figures;
  const int nodes = arrays.analysis.order.nodes;
  control.results.ordered_nodes = nodes > 0 ? nodes : structure.n;
  if (iparm(18) < 0) iparm(18) = count_for_iparm(figures.nnz_l + figures.nnz_u);
  iparm(19) = truncated(figures.flops * 1e-9);
  if (iparm(5) < 0) {
    int* const behind = std::ranges::copy(structure.perm, arrays.call.perm).out;
    if (iparm(5) == -2 && !control.options.symmetric) {
      const int* const match = arrays.order.row_perm;
      for (int k = 0; k < structure.n; ++k) behind[k] = match != nullptr ? match[k] : k + 1;
    }
  }
  return status_ok;
}

/// The caller's values, also where a padded matrix stands for them.
InputMatrix matrix_of_call(const StageArrays& arrays) {
  const Call& call = arrays.call;
  return {call.n, call.ia, call.ja, call.a};
}

/// Keeps the figures by which a later matrix of a stabilised sequence is compared with this one.
void measure_sizes(const StageArrays& arrays) {
  const Options& options = arrays.control.options;
  FactorRecord& record = *arrays.record;
  if (options.stabilised.k == 0 || options.type->family != Family::cholesky) {
    delete record.sizes;
    record.sizes = nullptr;
    return;
  }
  if (record.sizes == nullptr) record.sizes = new RowSizes;
  record.sizes->measure(arrays.matrix, *options.type);
}

int run_factorization(StageArrays& arrays) {
  Control& control = arrays.control;
  const Options& options = control.options;
  FactorRecord& record = *arrays.record;
  arrays.call.iparm(20) = 0;
  record.finished = false;
  note_factorization(record.history);
  measure_sizes(arrays);
  int status = status_ok;
  {
    const Stopwatch watch(control.clocks.timer.numfct);
    status = factorize_velmora(factor_options(options), *arrays.structure, arrays.matrix,
                               arrays.matching, record.lu, arrays.work, record.result);
  }
  control.results.factor = record.result;
  record.seconds = control.clocks.timer.numfct;
  if (status != status_ok) return status;
  record.finished = true;
  record.values = values_checksum(matrix_of_call(arrays), options.type->nvals());
  arrays.fresh = true;
  record.mtype = options.mtype;
  record.single = options.single;
  arrays.call.iparm(39) = count_for_iparm(schur_entries(*arrays.structure, schur_options(options)));
  return status_ok;
}

int run_solve(StageArrays& arrays) {
  const Call& call = arrays.call;
  Control& control = arrays.control;
  const Stopwatch watch(control.clocks.timer.solve);
  const double start = timer_velmora();
  const int n = arrays.structure->n, perturbed = control.results.factor.perturbed;
  const SolveStep solve = solve_step(arrays, false), transpose = solve_step(arrays, true);

  const RefineOptions refine = refine_options(control.options, call, perturbed);
  const AccuracyOptions accuracy = accuracy_options(control.options, call);
  double* work = arrays.cgs_arr;
  if (refine.due) work += refine_bytes(refine, n, call.nrhs) / sizeof(double);
  const double* const b = keep_rhs(accuracy, n, call.nrhs, call.b, work);
  RefineResult result;
  const int status = refine_velmora({.options = refine,
                                     .matrix = arrays.matrix,
                                     .n = n,
                                     .nrhs = call.nrhs,
                                     .b = call.b,
                                     .x = call.x,
                                     .cgs_arr = arrays.cgs_arr,
                                     .room = arrays.refine_room},
                                    solve, result);
  control.results.refinement_steps = result.steps;
  note_plain_solve(arrays.record->history, timer_velmora() - start);
  if (result.cut) call.iparm(20) = -34;
  if (accuracy.level == 0 || (status != status_ok && status != status_contraction)) return status;

  Accuracy found;
  const double* const x = control.options.solution_in_b ? call.b : call.x;
  const bool kept = accuracy.level == 2 && !factor_is_of_call(arrays);
  const int failed = kept ? measure_with_kept(arrays, b, x, work, found)
                          : measure_accuracy({.options = accuracy,
                                              .matrix = arrays.matrix,
                                              .nrhs = call.nrhs,
                                              .b = b,
                                              .x = x,
                                              .perturbed = perturbed + control.results.factor.grown,
                                              .solve = solve,
                                              .transpose = transpose,
                                              .work = work},
                                             found);
  store_accuracy(call, control, found);
  if (status != status_ok || failed != status_ok) return status != status_ok ? status : failed;
  return found.verdict == verdict_useless ? status_inaccurate : status_ok;
}

/// Parts of an analysis, of 100, that its stages stand for; most of it is the order.
constexpr double order_part = 75, lists_part = 15;

/// The phases that the stages of the analysis and the solve make up; a factorization tells itself.
void tell_stage(Stage stage, Progress& progress) {
  switch (stage) {
    case Stage::order:
      break;
    case Stage::lists:
      progress.add(order_part);
      break;
    case Stage::structure:
      progress.add(lists_part);
      break;
    case Stage::solve:
      progress.begin(33, 0);
      break;
    case Stage::factorize:
      break;
  }
  pulse();
}

int run_stage(Stage stage, StageArrays& arrays) {
  switch (stage) {
    case Stage::order:
      return run_order(arrays);
    case Stage::lists:
      return run_lists(arrays);
    case Stage::structure:
      return run_structure(arrays);
    case Stage::factorize:
      return run_factorization(arrays);
    case Stage::solve:
      return arrays.control.options.stabilised.k != 0 ? run_stabilised(arrays) : run_solve(arrays);
  }
  return status_structure;
}

}  // namespace

SolveStep solve_step(const StageArrays& arrays, bool turned) {
  return [&arrays, turned](int nrhs, const double* in, double* out) {
    pulse();
    SolveOptions as = solve_options(arrays.control.options);
    if (turned) as.transpose = !as.type.symmetric && !as.transpose;
    return solve_velmora(as, *arrays.structure, arrays.matching, arrays.record->lu, nrhs, in, out,
                         arrays.work);
  };
}

std::size_t caller_bytes(const StageArrays& arrays) {
  const Call& call = arrays.call;
  return 2 * sizeof(double) * static_cast<std::size_t>(arrays.control.options.type->nvals()) *
         static_cast<std::size_t>(call.n) * static_cast<std::size_t>(call.nrhs);
}

std::size_t test_room_bytes(const StageArrays& arrays) {
  const Call& call = arrays.call;
  const Options& options = arrays.control.options;
  if (options.stabilised.k != 0) return 0;
  return refine_room_bytes(refine_options(options, call, 1), call.n, call.nrhs);
}

void provide_vectors(StageArrays& arrays, std::size_t bytes) {
  Control& control = arrays.control;
  const std::size_t room = test_room_bytes(arrays);
  const bool beside = room > control.work_bytes;
  control.cgs_bytes = beside ? bytes + room : bytes;
  provide_cgs(arrays.call.pt, control.cgs_bytes);
  arrays.cgs_arr = static_cast<double*>(slot(arrays.call.pt, slot_cgs));
  arrays.refine_room =
      beside ? arrays.cgs_arr + bytes / sizeof(double) : static_cast<double*>(arrays.work);
}

bool factor_is_of_call(const StageArrays& arrays) {
  if (arrays.fresh) return true;
  const int nvals = arrays.control.options.type->nvals();
  return values_checksum(matrix_of_call(arrays), nvals) == arrays.record->values;
}

void store_accuracy(const Call& call, Control& control, const Accuracy& accuracy) {
  control.results.accuracy = accuracy;
  call.iparm(41) = accuracy.verdict;
  if (call.dparm.data() == nullptr) return;
  call.dparm(40) = accuracy.normwise;
  call.dparm(41) = accuracy.componentwise;
  call.dparm(42) = accuracy.condition;
  call.dparm(43) = accuracy.bound;
}

void store_signs(const Call& call, const FactorResult& factor) {
  call.iparm(22) = factor.positive;
  call.iparm(23) = factor.negative;
  call.iparm(44) = factor.doubtful;
  call.iparm(45) = factor.doubtful_positive;
}

int do_all_velmora_fc(Stage stage, StageArrays& arrays) {
  // Time between the stages of a call went into allocation.
  Clocks& clocks = arrays.control.clocks;
  if (clocks.stage_end > 0)
    clocks.timer.malloc = std::max(clocks.timer.malloc, 0.0) + timer_velmora() - clocks.stage_end;
  if (Progress* const progress = Progress::current(); progress != nullptr)
    tell_stage(stage, *progress);
  const int status = run_stage(stage, arrays);
  clocks.stage_end = timer_velmora();
  return status;
}

}  // namespace vlm
