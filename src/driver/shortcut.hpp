// SPDX-License-Identifier: BSD-3-Clause
/// Calls that a diagonal system answers by itself, without a handle.
#pragma once

#include "driver/call.hpp"
#include "driver/diag.hpp"

namespace vlm {

/// True when the system is diagonal and complete, and the call well formed: everything else is
/// the driver's to refuse.
bool takes_shortcut(const Call& call);

/// Answers for a diagonal matrix without a handle; what an older analysis left in pt is released by
/// a phase that begins a new one.
/// @return what `error` receives
int solve_at_once(Call& call);

/// A diagonal matrix in a call that the shortcut passed over.
Outcome refuse_diagonal(const Call& call);

/// The outcome of a diagonal system with a faulty row, success where there is none.
Outcome outcome_of(const DiagonalFault& fault);

}  // namespace vlm
