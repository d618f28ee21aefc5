// SPDX-License-Identifier: BSD-3-Clause
/// Phase -22: selected inversion of a factor in the handle.
#pragma once

#include "driver/call.hpp"

namespace vlm {

/// The phase of selected inversion.
constexpr int phase_inversion = -22;

/// Writes the entries of the inverse into the caller's a, for iparm(37) 1 in full form with ia and
/// ja.  After a failure the handle, a, ia and ja are as they were, but for one: where a factor
/// that was put on disk can't be read back, a has the inverse and the factor is lost.
Outcome invert_velmora(const Call& call);

/// Whether a solve of this handle would take the inverse for the matrix: its factor is overwritten
/// or the caller's a, which the solve reads, still holds what phase -22 wrote.  Such a solve fails
/// with an error that no phase passes over.
/// @param reads_matrix  the solve factors or refines
Outcome test_for_inverse(const Call& call, bool reads_matrix);

}  // namespace vlm
