// SPDX-License-Identifier: BSD-3-Clause
/// Messages of failed calls.
#pragma once

#include <cstdint>

#include "driver/call.hpp"
#include "driver/options.hpp"

namespace vlm {

/// Writes the message of a failed call, lines with what went wrong and last what to do about it,
/// to call.message, and prints it at message level 1.  Where there is no memory even for that,
/// the message stays empty.
/// @param stored  options of the last accepted call; those of an empty record for an empty handle
/// @param wanted  KB that the handle holds already
void error_info_fc(const Outcome& outcome, Call& call, const Options& stored = {},
                   std::int64_t wanted = 0) noexcept;

/// What a value of `error` means, in one line.
const char* error_text(int error);

}  // namespace vlm
