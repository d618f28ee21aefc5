// SPDX-License-Identifier: BSD-3-Clause
/// Stage routine: timers and results around the routine families.
#include "driver/do_all_fc.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "driver/stages.hpp"
#include "driver/statistics_fc.hpp"
#include "numeric/schur.hpp"
#include "solve/refine.hpp"

namespace vlm {
namespace {

/// Sets a timer to the time of a block, behind what was spent before, and marks it as used.
class StageTimer {
 public:
  StageTimer(double& timer, bool& flag, double before = 0)
      : timer_(timer), start_(timer_velmora() - before) {
    flag = true;
  }
  ~StageTimer() { timer_ = timer_velmora() - start_; }
  StageTimer(const StageTimer&) = delete;
  StageTimer& operator=(const StageTimer&) = delete;

 private:
  double& timer_;
  double start_;
};

/// A count for an option entry of 32 bits: above its range, negative and in thousands.
int count_for_iparm(std::int64_t count) {
  if (count <= std::numeric_limits<int>::max()) return static_cast<int>(count);
  return static_cast<int>((static_cast<double>(count) + 1000) * -0.001);
}

int truncated(double value) {
  return static_cast<int>(std::min(value, double(std::numeric_limits<int>::max())));
}

void store_analysis_results(const StageArrays& arrays) {
  const Control& control = arrays.control;
  const View<int>& iparm = arrays.call.iparm;
  if (iparm(18) < 0) iparm(18) = count_for_iparm(control.nnz_l + control.nnz_u);
  iparm(19) = truncated(control.gflop);
  if (iparm(5) < 0) std::ranges::copy(arrays.structure->perm, arrays.call.perm);
}

int run_lists(StageArrays& arrays) {
  Control& control = arrays.control;
  Timers& timers = control.dpar.timer;
  {  // the order's stage has counted the entries already
    const StageTimer timer(timers.symbfct, control.flags.symbfct, timers.symbfct);
    if (const int status = reorder2_velmora(control, arrays.analysis)) return status;
  }
  if (control.nthreads * control.nnodes <= 1) return status_ok;
  const StageTimer timer(timers.parlist, control.flags.parlist);
  return reorder3_velmora(control, arrays.analysis);
}

int run_structure(StageArrays& arrays) {
  const StageTimer timer(arrays.control.dpar.timer.a_to_lu, arrays.control.flags.a_to_lu);
  arrays.structure =
      build_structure(arrays.structure_block, arrays.request, arrays.control, arrays.analysis);
  store_analysis_results(arrays);
  return status_ok;
}

int run_factorization(StageArrays& arrays) {
  Control& control = arrays.control;
  FactorRecord& record = *arrays.record;
  const StageTimer timer(control.dpar.timer.numfct, control.flags.numfct);
  control.perturbed = control.npos = control.nneg = 0;
  control.logdet = 0;
  arrays.call.iparm(20) = 0;
  record.factored = nullptr;
  const int status = factorize_velmora(control, *arrays.structure, arrays.request.matrix,
                                       arrays.request.matching, record.lu, arrays.work);
  if (status != status_ok) return status;
  record.factored = record.lu;
  record.mtype = control.mtype;
  record.nvals = control.nvals;
  record.single32 = control.single32;
  record.pivot_type = control.pivot_type;
  record.perturbed = control.perturbed;
  record.npos = control.npos;
  record.nneg = control.nneg;
  record.logdet = control.logdet;
  arrays.call.iparm(39) = schur_entries(*arrays.structure, control.nschur);
  return status_ok;
}

int run_solve(StageArrays& arrays) {
  const Call& call = arrays.call;
  const StageTimer timer(arrays.control.dpar.timer.solve, arrays.control.flags.solve);
  return refine_velmora({.control = arrays.control,
                         .structure = *arrays.structure,
                         .matrix = arrays.request.matrix,
                         .matching = arrays.request.matching,
                         .lu = arrays.record->lu,
                         .nrhs = call.nrhs,
                         .iparm = call.iparm.data(),
                         .b = call.b,
                         .x = call.x,
                         .work = arrays.work,
                         .cgs_arr = arrays.cgs_arr});
}

int run_stage(Stage stage, StageArrays& arrays) {
  Control& control = arrays.control;
  switch (stage) {
    case Stage::order:  // keeps its own times
      return reorder1_velmora(arrays.request, control, arrays.analysis);
    case Stage::lists:
      return run_lists(arrays);
    case Stage::structure:
      return run_structure(arrays);
    case Stage::factorize:
      return run_factorization(arrays);
    case Stage::solve:
      return run_solve(arrays);
  }
  return status_structure;
}

}  // namespace

int do_all_velmora_fc(Stage stage, StageArrays& arrays) {
  // Time between the stages of a call went into allocation.
  Clocks& clocks = arrays.control.dpar;
  if (clocks.stage_end > clocks.start) {
    clocks.timer.malloc += timer_velmora() - clocks.stage_end;
    arrays.control.flags.malloc = true;
  }
  arrays.control.status = run_stage(stage, arrays);
  clocks.stage_end = timer_velmora();
  return arrays.control.status;
}

}  // namespace vlm
