// SPDX-License-Identifier: BSD-3-Clause
/// The driver behind velmora().
#pragma once

#include "driver/call.hpp"

namespace vlm {

/// Runs a phase: handle, input check, allocation, stages, messages and report.
/// @return the error class, or the row code of a diagonal system
int velmora_c(Call& call);

}  // namespace vlm
