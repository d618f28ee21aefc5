// SPDX-License-Identifier: BSD-3-Clause
/// Single entries of the inverse by solves with unit vectors.
#pragma once

#include "numeric/inverse.hpp"
#include "numeric/inverse_entries.hpp"

namespace vlm {

/// Entries of the inverse of the factored matrix anywhere in it, from a finished LU factor.  A
/// column costs the panels between it and the root of the elimination tree, and those between the
/// wanted rows and the root; columns are taken in blocks of neighbours, which share most of them.
/// All memory is taken before the first solve.
/// @param entries  sorted by column
/// @param lu       finished factor, in
/// @param values   [entries.size()], complex values as two doubles, out
void solve_for_entries(const InverseOptions& options, const Structure& structure,
                       const Vector<OutsideEntry>& entries, const void* lu, double* values);

}  // namespace vlm
