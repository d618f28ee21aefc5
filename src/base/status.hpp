// SPDX-License-Identifier: BSD-3-Clause
/// Outcome of a stage, beside the exceptions of its allocations.
#pragma once

namespace vlm {

/// Values that select the error class and the message of a failed call.
enum Status : int {
  status_ok = 0,
  status_pivot = -1,          ///< a pivot step failed
  status_work = -2,           ///< a partitioner, or the solve of an iteration failed
  status_stabilised = -3,     ///< an iteration with the factor at hand did not succeed
  status_contraction = -112,  ///< refinement does not contract
  status_inaccurate = -113,   ///< the accuracy that was asked for shows a useless solution
  status_steps = -111,        ///< refinement exceeds its step limit
  status_structure = -180,    ///< inconsistent row lists
  status_overflow = -182,     ///< counts or lists do not fit 32 bits
  status_unsupported = -190,  ///< matrix type without kernels
  status_type_change = -191,  ///< matrix type that does not fit the analysis
  status_not_finite = -193,   ///< NaN or infinity among the values
  status_iterative = -194,    ///< the iterative solver failed; the outcome has the detail
  status_no_matching = -192,  ///< matching mode that does not exist for the matrix type
};

}  // namespace vlm
