// SPDX-License-Identifier: BSD-3-Clause
/// Supernode partition of the exact factor.
#pragma once

#include "base/memory.hpp"
#include "base/view.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

struct Partition {
  Vector<int> snode;   ///< [n] supernode of a column
  Vector<int> xsuper;  ///< [nsuper+1] first column of a supernode, then n+1
  int maxsup = 0;      ///< columns of the largest chain, before the panel limit cuts it
};

/// Maximal supernodes under a panel limit.
///
/// Column k continues the supernode of k-1 when parent(k-1) = k and the column of k-1 has
/// exactly one entry more: the structure stays exact.
/// @param parent    elimination tree [n], in
/// @param colcnt    column counts [n], in
/// @param panel     most columns of a supernode
/// @param trailing  number of last columns that begin a new supernode (0: no such block)
Partition fndspa_velmora(View<const int> parent, View<const int> colcnt, int panel, int trailing);

/// Elimination tree, column counts and figures of the exact factor, for the order in the analysis.
void sfinit_velmora(const SymbolicOptions& options, Analysis& analysis);

}  // namespace vlm
