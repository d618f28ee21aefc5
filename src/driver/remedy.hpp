// SPDX-License-Identifier: BSD-3-Clause
/// What the caller can do about a failed call.
#pragma once

#include <string_view>

#include "driver/call.hpp"

namespace vlm {

/// One sentence for the line behind the messages of a failure, for the caller to act on.
/// Reads only arguments that the failed check has already passed.
std::string_view remedy(const Outcome& outcome, const Call& call);

}  // namespace vlm
