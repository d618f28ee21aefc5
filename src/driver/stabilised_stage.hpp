// SPDX-License-Identifier: BSD-3-Clause
/// The solve stage of stabilised solves.
#pragma once

#include <cstddef>

#include "driver/do_all_fc.hpp"

namespace vlm {

/// Room in the factor's record for solutions of the call's shape, from which the next call of the
/// sequence takes its first guess.  Comes before the next one.
void provide_earlier(const StageArrays& arrays);

/// Bytes of CGS_ARR.
std::size_t stabilised_stage_bytes(const StageArrays& arrays);

/// Solves with the factor at hand and iterates with it as preconditioner; measures the accuracy of
/// the result where that is asked for; notes what it took in the history of the factor, and the
/// outcome in iparm(20).  With a factor of this call the iteration begins with a step of refinement
/// if that is needed, is content with a residual of 1e-12 of b where no pivot was perturbed, and
/// has no budget of time, since nothing better can follow.
///
/// After a failure a solution that was to overwrite b has not done so, and b is as it was.
/// @return status_ok; status_stabilised, status_work or status_inaccurate, after which a new factor
///         may do better; or the status of the first solve
int run_stabilised(StageArrays& arrays);

/// Measures a solution with a factor of other values, by solves that iterate: the figures are those
/// of the matrix of the call.  Where the iteration does not get there, condition and bound are
/// infinite.  Any solution, of a stabilised solve or not.
/// @param b, x  right-hand sides and solutions, n by nrhs, in
/// @param work  accuracy_bytes() bytes
int measure_with_kept(const StageArrays& arrays, const double* b, const double* x, double* work,
                      Accuracy& found);

}  // namespace vlm
