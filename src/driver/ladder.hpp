// SPDX-License-Identifier: BSD-3-Clause
/// What a solve does when its solution is not good enough: rungs, from cheap to costly.
///
/// The caller's factor is tried first, with refinement that looks at every row and then with a
/// Krylov method; after that other factors of the same matrix, until the componentwise backward
/// error reaches the target and, where it is measured, a bound on the error exists.  Of each
/// right-hand side the best solution counts.  The factor that helped is kept beside the caller's
/// and serves its later solves; a new factorization drops it, but remembers its rung, which is
/// then tried before the others.
#pragma once

#include <functional>

#include "driver/call.hpp"
#include "driver/control.hpp"
#include "driver/do_all_fc.hpp"

namespace vlm {

/// Whether the call's solve may go on; what refinement can judge only.
bool ladder_asked(const Options& options, const Call& call);

/// Whether a factorization that failed leaves something to try.  A matrix that is not definite is
/// told to the caller, who promised that it is.
bool ladder_may_follow(const Options& options, int status);

/// Solves, and goes on as far as it takes.
/// @param plain_solve  the solve as asked for; empty where there is no factor
Outcome climb(StageArrays& arrays, const std::function<Outcome()>& plain_solve);

}  // namespace vlm
