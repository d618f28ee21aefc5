// SPDX-License-Identifier: BSD-3-Clause
/// Panels of the numeric factor and their row lists.
#pragma once

#include <cstdint>

#include "symbolic/analysis.hpp"

namespace vlm {

/// Entries of `width` columns with `height` rows, from the diagonal down.
inline std::int64_t trapezoid(std::int64_t width, std::int64_t height) {
  return width * height - width * (width - 1) / 2;
}

/// Whether merging into `width` columns with the given share of explicit zeros pays.
///
/// Narrow panels cost more by their handling than by their arithmetic; the wider the panel
/// grows, the fewer zeros it may carry.
bool merge_pays(std::int64_t width, std::int64_t size, std::int64_t zeros);

/// Cuts the columns into the panels that the numeric phases run on.
///
/// The maximal supernodes of the exact factor are merged with a following ancestor while few
/// explicit zeros arise (relaxed supernodes; Ashcraft and Grimes, "The influence of relaxed
/// supernode partitions on the multifrontal method", 1989), and then cut at the panel limit.
/// No panel crosses the start of the trailing block or a range boundary.
/// Fills nsuper, snode, xsuper, height, sparent.
void relax_panels(int panel, Analysis& analysis);

/// Row lists of the panels, by walking the row subtrees of the panel tree: row i is appended
/// to every panel on the paths from its neighbours up to its own, so the lists come out
/// sorted.  Time proportional to the lists.
/// @param threads  which take a range of the order each; the lists do not depend on them
/// @return status_ok, or status_structure when a list contradicts the counts
int symfct_velmora(Analysis& analysis, int threads = 1);

/// Starts of the panels in the stores of L and U.
/// @return status_ok, or status_overflow when positions inside a panel exceed 32 bits
int panel_pointers(bool symmetric, Analysis& analysis);

/// Panel updates: how many reach each panel, and the sizes of the largest.
void count_updates(Analysis& analysis, int threads = 1);

/// Panels, row lists, starts, update counts, and the domains in panels.
/// @return a Status
int reorder2_velmora(const SymbolicOptions& options, Analysis& analysis);

}  // namespace vlm
