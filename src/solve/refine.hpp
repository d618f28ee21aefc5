// SPDX-License-Identifier: BSD-3-Clause
/// Solve with iterative refinement in the working precision.
///
/// A factorization with perturbed pivots belongs to a nearby matrix; each step solves for the
/// residual of the true matrix and adds the correction (Wilkinson, Rounding Errors in Algebraic
/// Processes, 1963).  A step costs one product, fused with the residual, and one solve; one more
/// product tells what the last step gave.
///
/// A limit that is no number of steps takes none where only rounding is left (rounding_level.hpp).
///
/// A step that makes things worse is not kept: each right-hand side receives the iterate whose
/// residual has the smallest 1-norm, that of the plain solve included.
#pragma once

#include <cstddef>

#include "base/function.hpp"
#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"

namespace vlm {

struct RefineOptions {
  const MatrixType& type;
  bool transpose = false;
  bool due = false;  ///< false: the plain solve
  int limit = 0;  ///< iparm(8): its size is the most steps, of which a positive one takes as many
                  ///< as help; 0: two steps
  bool to_the_end = false;  ///< the error will be measured: steps are taken from rounding as well
  bool solution_in_b = false;  ///< iparm(6)
  int schur = 0;  ///< trailing unknowns that the solve leaves zero, and whose rows don't count
  int threads = 1;
};

/// Operands of one solve phase.
struct RefineCall {
  const RefineOptions& options;
  InputMatrix matrix;  ///< read when refinement is due
  int n = 0, nrhs = 1;
  double* b = nullptr;        ///< n by nrhs; the solution when it is asked for there
  double* x = nullptr;        ///< n by nrhs; the solution otherwise, untouched when b takes it
  double* cgs_arr = nullptr;  ///< refine_bytes() bytes; not read when no refinement is due
  double* room = nullptr;     ///< refine_room_bytes() bytes, which solves may write to
};

struct RefineResult {
  int steps = 0;
  bool cut = false;  ///< limit 0 ended the loop at its second step
};

/// One solve with the factor: out = A^-1 in for nrhs columns; in and out may be the same array.
/// Returns a Status.
using SolveStep = Function<int(int nrhs, const double* in, double* out)>;

/// Bytes of room for the tests between the steps; 0 where there are none.
std::size_t refine_room_bytes(const RefineOptions& options, int n, int nrhs);

/// Bytes of CGS_ARR.
std::size_t refine_bytes(const RefineOptions& options, int n, int nrhs);

/// Solves once and, when refinement is due, refines the solution.
///
/// Sums of absolute values are taken over all right-hand sides together.  The loop ends when the
/// residual no longer falls below 0.9 of the best so far, but not before the fourth step.  The
/// solution is the best iterate whatever ended the loop: of each column the one with the least
/// 1-norm of the residual, or, where that is one of rounding, the last within twice as much.
/// @return status_ok, status_contraction, or the status of a failed solve
int refine_velmora(const RefineCall& call, const SolveStep& solve, RefineResult& result);

}  // namespace vlm
