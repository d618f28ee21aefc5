// SPDX-License-Identifier: BSD-3-Clause
/// What the stages of one analysis hand to each other, and the finished structure.
///
/// The analysis runs in three stages.  reorder1 forms the adjacency, orders it and cuts the
/// columns into supernodes; reorder2 builds tree and row lists; stage 3 writes the Structure
/// that all numeric phases read.  An Analysis lives inside one call; the Structure is one
/// block that hangs off pt(8).
#pragma once

#include <cstdint>
#include <vector>

#include "base/view.hpp"
#include "driver/control.hpp"

namespace vlm {

/// First and last column position (later: supernode) of a range; empty when last < first.
struct Range {
  int first = 1, last = 0;
};

/// Symmetric adjacency without diagonal, both triangles, 1-based contents.
struct Adjacency {
  int n = 0;
  std::vector<int> xadj;    ///< [n+1]
  std::vector<int> adjncy;  ///< [xadj(n+1)-1]
  std::vector<int> weight;  ///< [n] columns that a node stands for; empty: one each

  int weight_of(int node) const { return weight.empty() ? 1 : weight[node - 1]; }
};

/// A fill-reducing order.  perm(position) = node, invp(node) = position.
struct Ordering {
  std::vector<int> perm, invp;
  /// Leaf domains in positions, then the tail pair that holds the separators.
  /// One range: (1, n-1), (n, n).
  std::vector<Range> ranges;
  int nparts = 1;  ///< leaf domains: ranges.size() - 1
};

/// What the caller asks of an analysis, beside the control record.
struct AnalysisRequest {
  InputMatrix matrix;
  MatchingStore matching;
  const int* user_perm = nullptr;         ///< perm of the entry point: order, or marks, by node
  const Ordering* given_order = nullptr;  ///< order that symmetric matching brought along
};

/// How threads share the panels of a factorization.
enum class Scheme : int {
  sequential,
  fine_grain,  ///< panel by panel, in the order of the queue
  two_level,   ///< one domain a thread, then the separators together
};

/// Which panel updates which, for the threads of a factorization.  Fine-grain: start [nsuper+1]
/// by source, up holds first columns of targets.  Two-level: start [separator panels * (domains
/// + 1) + 1] by target and domain, up holds source panels.
struct UpdateLists {
  Scheme scheme = Scheme::sequential;
  std::vector<int> start;      ///< 1-based
  std::vector<int> up, uplen;  ///< panel or column at the other end; rows of the source from there
};

/// Working set of one analysis.
struct Analysis {
  Adjacency graph;
  Ordering order;
  int trailing = 0;      ///< trailing columns that must begin a supernode (Schur or partial solve)
  int nfw = 0, nbw = 0;  ///< partial solve: trailing columns with right-hand side, with solution

  // exact factor (sfinit)
  std::vector<int> parent;  ///< [n] elimination tree by position, 0 for a root
  std::vector<int> colcnt;  ///< [n] entries of a column of L, diagonal included

  // panels of the numeric phases (symfct)
  int nsuper = 0;
  std::vector<int> snode;           ///< [n] panel of a column
  std::vector<int> xsuper;          ///< [nsuper+1] first column of a panel, then n+1
  std::vector<int> height;          ///< [nsuper] rows of a panel, its own columns included
  std::vector<int> lead;            ///< [nsuper] first panel of the block that a panel is cut from
  std::vector<int> xlindx, lindx;   ///< [nsuper+1] starts; row lists, ascending
  std::vector<int> xlnz, xunz;      ///< [n+1] starts of the columns in the stores of L and of U
  std::vector<int> sparent;         ///< [nsuper] panel tree, 0 for a root
  std::vector<int> nmod;            ///< [nsuper] number of distinct panels that update s
  std::vector<Range> super_ranges;  ///< ranges in panels; the tail pair is last
  std::vector<int> queue;           ///< [nsuper] order of the panels for threads; may be empty
  UpdateLists updates;
  std::int64_t max_update = 0;  ///< most entries of one update block
  std::int64_t max_scaled = 0;  ///< most entries of one scaled operand of an update
};

}  // namespace vlm
