// SPDX-License-Identifier: BSD-3-Clause
/// Solve with iterative refinement in the working precision.
///
/// A factorization with perturbed pivots belongs to a nearby matrix; each step solves for the
/// residual of the true matrix and adds the correction (Wilkinson, Rounding Errors in Algebraic
/// Processes, 1963).  A step costs one product, fused with the residual, and one solve.
#pragma once

#include <cstddef>
#include <functional>

#include "driver/control.hpp"
#include "driver/stages.hpp"

namespace vlm {

/// Operands of one solve phase.
struct RefineCall {
  Control& control;
  const Structure& structure;
  InputMatrix matrix;
  MatchingStore matching;
  const void* lu = nullptr;  ///< finished factor
  int nrhs = 1;
  int* iparm = nullptr;       ///< [64] reads iparm(34), writes iparm(20)
  double* b = nullptr;        ///< n by nrhs; the solution when control.overwrite_b is 1
  double* x = nullptr;        ///< n by nrhs; the solution otherwise, untouched when it is 1
  void* work = nullptr;       ///< WORK_R0
  double* cgs_arr = nullptr;  ///< refine_bytes() bytes; not read when no refinement is due
};

/// One solve with the factor: out = A^-1 in for nrhs columns; in and out may be the same array.
/// Returns a Status.
using SolveStep = std::function<int(int nrhs, const double* in, double* out)>;

/// Whether a solve phase refines: steps were asked for or pivots were perturbed, and neither
/// the partial solve steps, the marked nodes nor the fixed update order is on.
bool refinement_due(const Control& control, const int* iparm);

/// Bytes of CGS_ARR for refinement with nrhs right-hand sides.
std::size_t refine_bytes(const Control& control, int nrhs);

/// Solves once and, when refinement is due, refines the solution.
///
/// At most |control.refine| steps, two when that is 0 and pivots were perturbed; then
/// iparm(20) becomes -34.  Sums of absolute values are taken over all right-hand sides together.
/// The loop ends when the residual no longer falls below 0.9 of the best so far, but not before
/// the fourth step.  Writes control.ref_steps.
/// @return status_ok, status_contraction, or the status of a failed solve
int refine_with(const RefineCall& call, const SolveStep& solve);

/// refine_with() on the finished factor.
inline int refine_velmora(const RefineCall& call) {
  return refine_with(call, [&call](int nrhs, const double* in, double* out) {
    return solve_velmora(call.control, call.structure, call.matching, call.lu, nrhs, in, out,
                         call.work);
  });
}

}  // namespace vlm
