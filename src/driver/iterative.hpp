// SPDX-License-Identifier: BSD-3-Clause
/// The iterative road of the driver, iparm(32) 1: what hangs on the handle, and the phases on it.
#pragma once

#include "driver/call.hpp"

namespace vlm {

/// Whether there is nothing to do: on an empty handle in other than work phases, and in phase 0,
/// since no factors are kept.
bool passes_by(const Call& call, bool empty);

/// Tests what the iterative solver asks of a call beyond check_input_fc(): its type, its arrays,
/// dparm(1) to dparm(9), finite values, and a preconditioner unless one is to be made.
Outcome check_iterative(const Call& call);

/// Runs a checked work phase, on a handle that has its control record.  What the library calls a
/// fault becomes an outcome; the handle stays usable, after a failed setup for a new analysis.
Outcome run_iterative(const Call& call);

/// What a handle's slot holds; null is fine.  Leaves the block itself.
void destroy_iterative(void* state);

}  // namespace vlm
