// SPDX-License-Identifier: BSD-3-Clause
/// Task schedule of the factorization on several threads: order of the panels, and the lists by
/// which finished panels reach the panels that they update.
#pragma once

#include "symbolic/analysis.hpp"

namespace vlm {

/// Panels in an order that never puts one before its children: the leaves of the panel tree in
/// ascending order, negative, then every other panel behind its last child.
/// @param sparent  [nsuper] parent of a panel, 0 for a root, in
/// @param queue    [nsuper] out
void sched_velmora(View<const int> sparent, View<int> queue);

/// Finds out whether the order has domains that are independent of each other, and writes the
/// update lists: by domains where they are wanted and there are some.
///
/// Fine-grain lists go by source: for each panel that s updates, in ascending order, its first
/// column and the number of rows of s from there on.  Two-level lists go by target, a separator
/// panel, and there by domain, the separators themselves being the last one: source panel and
/// its number of rows from the target's on.
/// @return status_ok, or status_overflow when a list does not fit 32-bit positions
int blkpre_velmora(bool use_domains, Analysis& analysis, int threads = 1);

/// Schedule for several threads: queue and update lists; none for a factorization of so few
/// operations (worthwhile_flops) that it runs on one.
/// @return as blkpre_velmora()
int reorder3_velmora(const SymbolicOptions& options, Analysis& analysis);

}  // namespace vlm
