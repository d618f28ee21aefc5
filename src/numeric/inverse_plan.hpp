// SPDX-License-Identifier: BSD-3-Clause
/// Who inverts which panel when: the panels near the roots one by one, then subtrees whole.
#pragma once

#include "base/memory.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

/// An order of all panels in which each stands behind its ancestors.  It is the two-level schedule
/// of a factorization turned round: separators first, by all threads together, then domains, one
/// thread each.  The domains are the subtrees that are small enough to balance, whatever the
/// analysis made.
struct InversionPlan {
  Vector<int> separators;  ///< panels that threads take one by one
  Vector<int> panels;      ///< panels of the domains, each domain's descending, largest work first
  Vector<int> start;       ///< [domains + 1] of the domains in `panels`, from 0
  int threads = 1;

  int domains() const { return static_cast<int>(start.size()) - 1; }
};

/// Plans for at most that many threads: one where the work is not worth more, and then a single
/// domain holds all panels.  O(nsuper) time and memory.
InversionPlan plan_inversion(const Structure& structure, int threads);

}  // namespace vlm
