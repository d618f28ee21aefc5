// SPDX-License-Identifier: BSD-3-Clause
/// A run of velmora-solve: read, choose the type, check, solve, judge, report.
#pragma once

#include "options.hpp"
#include "report.hpp"

namespace tool {

/// Carries out what the options ask for; the report holds what happened, also a failure of the
/// library or a residual that is not good enough.
/// @throws InputError for input that cannot be used or a file that cannot be written
void run(const Options& options, const Printer& printer, Report& report);

}  // namespace tool
