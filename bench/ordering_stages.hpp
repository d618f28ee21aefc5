// SPDX-License-Identifier: BSD-3-Clause
/// The stages of an analysis, for ordering_bench.
#pragma once

#include <string>
#include <vector>

namespace vlm {

/// Wall clock of each stage of whole analyses without matching, on one and on two threads,
/// milliseconds, the analysis with the least sum of three.
void print_stages(const std::vector<std::string>& problems);

}  // namespace vlm
