// SPDX-License-Identifier: BSD-3-Clause
/// Messages of failed calls.
#pragma once

#include "driver/call.hpp"
#include "driver/control.hpp"

namespace vlm {

/// Prints the header line and what went wrong, to standard output.
/// @param stored  control record of the handle; null when the handle is empty
void error_info_fc(const Outcome& outcome, const Call& call, const Control* stored);

}  // namespace vlm
