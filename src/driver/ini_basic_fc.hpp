// SPDX-License-Identifier: BSD-3-Clause
/// Start of a new analysis: option defaults and a fresh control record.
#pragma once

#include "driver/call.hpp"
#include "driver/control.hpp"

namespace vlm {

/// Loads the driver's own defaults into iparm when iparm(1) is 0.  They differ from those of
/// velmorainit(): no refinement, Bunch-Kaufman pivots for -2, no matching for -4 and 6.
void load_defaults(int mtype, View<int> iparm);

/// Resets the control record; the factor table, the message level and the clock marks of the
/// running call stay.
void ini_basic_fc(Control& control);

}  // namespace vlm
