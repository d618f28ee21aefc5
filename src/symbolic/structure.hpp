// SPDX-License-Identifier: BSD-3-Clause
/// The finished symbolic structure, `STRUC_FI`: all that the numeric phases read.
///
/// One block, allocated by the driver at its exact size, begins with this record; the views
/// point into the same block, so one free() releases it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/input_matrix.hpp"
#include "base/memory.hpp"
#include "base/view.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

/// Map from the caller's values into one factor store, column by column of the factor.
///
/// Entry p of column j (ptr(j) <= p < ptr(j+1)) says: value |dst(p)| of the panel is a(src(p)), so
/// that 32 bits serve a store of any length; the sign of dst tells which side of the diagonal the
/// entry came from.
struct InputMap {
  View<const int> ptr;  ///< [n+1]
  View<const int> dst;  ///< [entries] signed position in the panel, from 1
  View<const int> src;  ///< [entries] position in a
};

/// The schedule for several threads, see UpdateLists and sched_velmora().
struct Schedule {
  Scheme scheme = Scheme::sequential;
  View<const int> queue;      ///< [nsuper]
  View<const int> start;      ///< as in UpdateLists
  View<const int> up, uplen;  ///< [updates]
};

struct Structure {
  int n = 0;
  int nsuper = 0;
  int nparts = 1;               ///< leaf domains
  bool divided = false;         ///< there are several, which threads may take side by side
  int max_rows = 0;             ///< rows of the tallest panel
  int max_width = 0;            ///< columns of the widest panel
  std::int64_t len_lnz = 0;     ///< values in the L store
  std::int64_t len_unz = 0;     ///< values in the U store; 0 for symmetric storage
  std::int64_t max_scaled = 0;  ///< most entries of one scaled operand of an update
  double path_entries = 0;      ///< entries of L and U in the panels of the path
  FactorFigures figures;        ///< of the exact factor

  View<const int> perm, invp;           ///< [n]
  View<const int> xsuper;               ///< [nsuper+1]
  View<const int> snode;                ///< [n]
  View<const int> xlindx, lindx;        ///< row lists
  View<const std::int64_t> xlnz, xunz;  ///< [nsuper+1] starts of the panels in their stores
  View<const int> sparent;              ///< [nsuper]
  View<const int> nmod;                 ///< [nsuper]
  View<const int> range;                ///< [2*(nparts+1)] first and last panel; tail pair last
  /// Partial solve, all empty when the whole is wanted: positions with right-hand side, with wanted
  /// solution, and the panels from them to the roots, ascending.
  View<const int> marked_rows, marked_columns, path;
  Schedule schedule;
  InputMap lmap, umap;  ///< umap is empty for symmetric storage
};

/// The matrix whose entries are mapped, and the matching that permutes its rows.
struct MapInput {
  InputMatrix matrix;             ///< pattern
  const int* row_perm = nullptr;  ///< [n] row that takes the place of row i; null: itself
  bool symmetric = true;          ///< upper triangle, and no U
};

/// Where the entries of a slice of the rows go next in each column of the factor.
struct ColumnStarts {
  Vector<int> lower, upper;  ///< [n+1]
};

/// How many entries land in each column of the factor, and from that the size of the block.
struct StructurePlan {
  Vector<int> row_position;     ///< [n] position of each row of A in the permuted matrix
  Vector<int> lower, upper;     ///< [n+1] starts of the columns in the maps
  Vector<ColumnStarts> slices;  ///< one for each thread; used up by build_structure()
  std::size_t bytes = 0;
};

/// First of two passes over the entries.  The map does not depend on the threads.
StructurePlan plan_structure(const MapInput& input, const Analysis& analysis, int threads = 1);

/// Writes the structure into a block of plan.bytes bytes, input map included.
/// @return the record at the head of the block
Structure* build_structure(void* block, const MapInput& input, StructurePlan& plan,
                           const Analysis& analysis);

}  // namespace vlm
