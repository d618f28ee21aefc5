// SPDX-License-Identifier: BSD-3-Clause
/// The stages of a call, on arrays that the driver has allocated.
#pragma once

#include "driver/call.hpp"
#include "driver/control.hpp"
#include "symbolic/analysis.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

enum class Stage {
  order,      ///< adjacency, ordering, supernodes
  lists,      ///< tree, row lists, counts
  structure,  ///< the structure that the numeric phases read, and the results of the analysis
  factorize,
  solve  ///< with refinement when it is due
};

/// What the stages work on; a stage uses the members that exist by then.
struct StageArrays {
  const Call& call;
  Control& control;
  AnalysisRequest request;  ///< the matrix in use and its matching
  Analysis analysis = {};
  void* structure_block = nullptr;  ///< structure_bytes() bytes
  const Structure* structure = nullptr;
  FactorRecord* record = nullptr;
  void* work = nullptr;       ///< WORK_R0
  double* cgs_arr = nullptr;  ///< refine_bytes() bytes when refinement is due
};

/// Runs one stage and its timer.  @return a Status
int do_all_velmora_fc(Stage stage, StageArrays& arrays);

}  // namespace vlm
