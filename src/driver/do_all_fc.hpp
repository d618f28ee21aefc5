// SPDX-License-Identifier: BSD-3-Clause
/// The stages of a call, on arrays that the driver has allocated.
#pragma once

#include "driver/call.hpp"
#include "driver/control.hpp"
#include "ordering/reorder1.hpp"
#include "symbolic/analysis.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

enum class Stage {
  order,      ///< adjacency, ordering, exact factor
  lists,      ///< panels, row lists, lists for threads
  structure,  ///< the structure that the numeric phases read, and the results of the analysis
  factorize,
  solve  ///< with refinement when it is due
};

/// What the stages work on; a stage uses the members that exist by then.
struct StageArrays {
  const Call& call;
  Control& control;
  OrderInput order = {};    ///< the pattern in use, and where its order comes from
  InputMatrix matrix = {};  ///< the values in use
  Matching matching = {};
  Analysis analysis = {};
  StructurePlan plan = {};
  void* structure_block = nullptr;  ///< plan.bytes bytes
  const Structure* structure = nullptr;
  FactorRecord* record = nullptr;
  void* work = nullptr;           ///< WORK_R0
  double* cgs_arr = nullptr;      ///< of refinement when it is due, or of a stabilised solve
  double* refine_room = nullptr;  ///< for the tests of refinement
  bool fresh = false;             ///< the factor was made in this call
  bool may_factor = false;        ///< a factorization follows where a stabilised solve fails

  MapInput map_input() const { return {order.matrix, order.row_perm, control.options.symmetric}; }
};

/// One solve with the call's factor as the options say, or with the other of A and its transpose;
/// its work space is that of the call.
SolveStep solve_step(const StageArrays& arrays, bool turned);

/// Bytes of the caller's right-hand sides and solutions.
std::size_t caller_bytes(const StageArrays& arrays);
/// Bytes that the tests of a refinement need: in WORK_R0, which is idle between the sweeps, or where
/// that is too small, behind CGS_ARR.
std::size_t test_room_bytes(const StageArrays& arrays);
/// CGS_ARR of `bytes`, and that room.
void provide_vectors(StageArrays& arrays, std::size_t bytes);

/// Whether the factor was made of the values of the call: only then do its solves tell the
/// condition.
bool factor_is_of_call(const StageArrays& arrays);

/// Verdict and measurements to the caller, who asked for them.
void store_accuracy(const Call& call, Control& control, const Accuracy& accuracy);

/// Inertia to the caller.
void store_signs(const Call& call, const FactorResult& factor);

/// Runs one stage and its timer.  @return a Status
int do_all_velmora_fc(Stage stage, StageArrays& arrays);

}  // namespace vlm
