// SPDX-License-Identifier: BSD-3-Clause
/// Messages of failed calls.
#pragma once

#include <cstdint>

#include "driver/call.hpp"
#include "driver/options.hpp"

namespace vlm {

/// Prints the header line and what went wrong, to standard output.
/// @param stored  options of the last accepted call; those of an empty record for an empty handle
/// @param wanted  KB that the handle holds already
void error_info_fc(const Outcome& outcome, const Call& call, const Options& stored,
                   std::int64_t wanted);

}  // namespace vlm
