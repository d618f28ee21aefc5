// SPDX-License-Identifier: BSD-3-Clause
/// Setup and iterations of the iterative solver, with what the user sees of them.
#pragma once

#include <string>
#include <vector>

#include "options.hpp"
#include "report.hpp"
#include "session.hpp"

namespace tool {

/// Sets up the preconditioner, solves from a zero start, and repeats both as the options say.
/// @param factor  receives times, figures and the history of the residual
/// @return empty, or why a call failed
std::string set_up_and_iterate(Session& session, const Options& options, const Printer& printer,
                               const std::vector<double>& b, int nrhs, Factor& factor);

}  // namespace tool
