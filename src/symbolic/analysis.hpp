// SPDX-License-Identifier: BSD-3-Clause
/// What the symbolic stages hand to each other.
///
/// sfinit takes an ordered graph to the exact factor: elimination tree, column counts, figures.
/// reorder2 cuts the columns into panels with their row lists; reorder3 adds the lists by which
/// threads share them; build_structure() writes what the numeric phases read.  An Analysis lives
/// inside one call.
#pragma once

#include <algorithm>
#include <cstdint>

#include "base/memory.hpp"
#include "base/view.hpp"
#include "graph/ordering.hpp"

namespace vlm {

/// What the symbolic stages are asked for.
struct SymbolicOptions {
  bool symmetric = true;  ///< the factor holds no U
  bool complex = false;
  int panel = 80;            ///< width limit of a panel
  int threads = 1;           ///< more than one: the factor gets lists for threads
  bool use_domains = false;  ///< threads take a domain each, where the order has some
};

/// The exact factor in figures.
struct FactorFigures {
  int supernodes = 0;         ///< maximal supernodes under the panel limit
  int largest_supernode = 0;  ///< columns, before the panel limit cuts it
  int trees = 0;              ///< roots of the elimination forest: independent subgraphs
  std::int64_t nnz_l = 0;     ///< entries of the supernodes' panels
  std::int64_t nnz_u = 0;     ///< 1 for symmetric storage
  double flops = 0;           ///< real operations of the factorization
};

/// Operations of a factorization below which starting threads costs more than they save.
constexpr double worthwhile_flops = 2e6;

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
  Vector<int> start;      ///< 1-based
  Vector<int> up, uplen;  ///< panel or column at the other end; rows of the source from there
};

/// A run of columns that share one row structure.
struct Block {
  int first = 0;  ///< first column
  int width = 0;
  int height = 0;        ///< rows, own columns included
  std::int64_t nnz = 0;  ///< entries of the exact columns
};

/// Working set of one analysis.
struct Analysis : OrderedGraph {
  // exact factor (sfinit)
  Vector<int> parent;  ///< [n] elimination tree by position, 0 for a root; a chain at the end for
                       ///< the trailing columns
  Vector<int> colcnt;  ///< [n] entries of a column of L or, below the diagonal, of the complement
  FactorFigures figures;
  Vector<Block> trailing_blocks;  ///< of the Schur complement
  Vector<int> trailing_rows;      ///< their rows below, one block's behind the other's, ascending

  // panels of the numeric phases (symfct)
  int nsuper = 0;
  Vector<int> snode;           ///< [n] panel of a column
  Vector<int> xsuper;          ///< [nsuper+1] first column of a panel, then n+1
  Vector<int> height;          ///< [nsuper] rows of a panel, its own columns included
  Vector<int> lead;            ///< [nsuper] first panel of the block that a panel is cut from
  Vector<int> xlindx, lindx;   ///< [nsuper+1] starts; row lists, ascending
  Vector<std::int64_t> xlnz;   ///< [nsuper+1] starts of the panels in the store of L
  Vector<std::int64_t> xunz;   ///< [nsuper+1] starts of the panels in the store of U
  Vector<int> sparent;         ///< [nsuper] panel tree, 0 for a root
  Vector<int> nmod;            ///< [nsuper] number of distinct panels that update s
  Vector<Range> super_ranges;  ///< ranges in panels; the tail pair is last
  bool divided = false;        ///< the panels of a range update only that range and the tail
  Vector<int> path;   ///< partial solve: panels from the marked columns to the roots, ascending
  Vector<int> queue;  ///< [nsuper] order of the panels for threads; may be empty
  UpdateLists updates;
  std::int64_t max_scaled = 0;  ///< most entries of one scaled operand of an update
};

/// Calls visit(target, m, r) for every panel that panel s updates, in ascending order: m rows of
/// s from the target's first one on, r of them columns of the target.
/// @param first  targets before this column, the first of a panel, are passed over
template <class Visit>
void for_each_target(const Analysis& analysis, int s, Visit visit, int first = 1) {
  const View<const int> xsuper(analysis.xsuper), snode(analysis.snode);
  const View<const int> xlindx(analysis.xlindx), lindx(analysis.lindx);
  const int end = xlindx(s + 1);
  int p = xlindx(s) + xsuper(s + 1) - xsuper(s);
  if (p < end && lindx(p) < first)
    p = static_cast<int>(std::lower_bound(lindx.at(p), lindx.at(end), first) - lindx.data()) + 1;
  while (p < end) {
    const int target = snode(lindx(p)), after = xsuper(target + 1), begin = p;
    while (p < end && lindx(p) < after) ++p;
    visit(target, end - begin, p - begin);
  }
}

}  // namespace vlm
