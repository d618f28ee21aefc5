// SPDX-License-Identifier: BSD-3-Clause
/// Panels of the numeric factor and their row lists.
#pragma once

#include <cstdint>

#include "driver/control.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

/// Cuts the columns into the panels that the numeric phases run on.
///
/// The maximal supernodes of the exact factor are merged with a following ancestor while few
/// explicit zeros arise (relaxed supernodes; Ashcraft and Grimes, "The influence of relaxed
/// supernode partitions on the multifrontal method", 1989), and then cut at the panel limit.
/// No panel crosses the start of the trailing block or a range boundary.
/// Fills nsuper, snode, xsuper, height, sparent.
void relax_panels(const Control& control, Analysis& analysis);

/// Row lists of the panels, by walking the row subtrees of the panel tree: row i is appended
/// to every panel on the paths from its neighbours up to its own, so the lists come out
/// sorted.  Time proportional to the lists.
/// @return status_ok, or status_structure when a list contradicts the counts
int symfct_velmora(Analysis& analysis);

/// Column starts in the stores of L and U.
/// @return status_ok, or status_overflow when a store exceeds 32-bit positions
int panel_pointers(bool symmetric, Analysis& analysis);

/// Panel updates: nmod, largest update block; returns the operation count in 1e9.
double flops_velmora(const Control& control, Analysis& analysis);

}  // namespace vlm
