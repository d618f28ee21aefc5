// SPDX-License-Identifier: BSD-3-Clause
/// Pattern and blocks of a Schur complement.
#pragma once

#include "graph/etree.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

/// Finds the columns of the Schur complement, and gathers them into blocks.
///
/// The trailing columns are updated and not eliminated: column c holds the entries of the matrix
/// and, for each root of the forest of the leading columns whose structure has a row c, the rows of
/// that structure behind c.  Nothing else fills in, so that a complement that is sparse stays so.
/// Consecutive columns make a block while its union has few zeros.
///
/// Time: the edges, and for each root the square of its trailing rows, less where columns are full.
/// @param pattern   the graph with the order of the analysis, in
/// @param analysis  trailing and the tree of all columns, in; parent and colcnt of the trailing
///                  columns, trailing_blocks and trailing_rows, out
void find_trailing_blocks(const OrderedPattern& pattern, Analysis& analysis);

}  // namespace vlm
