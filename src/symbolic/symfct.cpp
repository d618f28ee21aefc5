// SPDX-License-Identifier: BSD-3-Clause
#include "symbolic/symfct.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>
#include <utility>

#include "base/memory.hpp"
#include "base/work_team.hpp"

namespace vlm {

bool merge_pays(std::int64_t width, std::int64_t size, std::int64_t zeros) {
  const double share = static_cast<double>(zeros) / static_cast<double>(size);
  if (width <= 16) return share < 0.4;
  if (width <= 48) return share < 0.1;
  return share < 0.05;
}

namespace {

/// Columns at which a new panel must begin: with several ranges, every range start.
Vector<char> forced_starts(const Analysis& analysis) {
  const int n = analysis.graph.n;
  Vector<char> forced(n + 2, 0);
  if (analysis.order.nparts > 1)
    for (const Range& range : analysis.order.ranges)
      if (range.first <= n) forced[range.first] = 1;
  return forced;
}

/// Maximal supernodes, merged bottom-up with the ancestor block that follows them; then the blocks
/// of the Schur complement.
Vector<Block> merge_blocks(const Analysis& analysis) {
  const int n = analysis.graph.n - analysis.trailing;
  const View<const int> parent(analysis.parent), colcnt(analysis.colcnt);
  const Vector<char> forced = forced_starts(analysis);
  Vector<Block> blocks;
  for (int k = 1; k <= n;) {
    Block block{k, 1, colcnt(k), colcnt(k)};
    for (++k; k <= n && !forced[k] && parent(k - 1) == k && colcnt(k - 1) == colcnt(k) + 1; ++k) {
      ++block.width;
      block.nnz += colcnt(k);
    }
    while (!blocks.empty() && !forced[block.first]) {
      const Block& prev = blocks.back();
      const int up = parent(prev.first + prev.width - 1);
      if (up == 0 || up >= block.first + block.width) break;
      const int width = prev.width + block.width, height = prev.width + block.height;
      const std::int64_t size = trapezoid(width, height), nnz = prev.nnz + block.nnz;
      if (!merge_pays(width, size, size - nnz)) break;
      block = {prev.first, width, height, nnz};
      blocks.pop_back();
    }
    blocks.push_back(block);
  }
  blocks.insert(blocks.end(), analysis.trailing_blocks.begin(), analysis.trailing_blocks.end());
  return blocks;
}

/// Width of the panels of a block: even pieces, in steps of 8 columns where that fits.
int piece_width(int width, int panel) {
  const int pieces = (width + panel - 1) / panel;
  const int even = (width + pieces - 1) / pieces;
  return std::min(panel, (even + 7) / 8 * 8);
}

}  // namespace

void relax_panels(int panel, Analysis& analysis) {
  const int n = analysis.graph.n;
  const Vector<Block> blocks = merge_blocks(analysis);
  analysis.xsuper.clear();
  analysis.height.clear();
  analysis.lead.clear();
  for (const Block& block : blocks) {
    const int step = piece_width(block.width, panel);
    const int first = static_cast<int>(analysis.xsuper.size()) + 1;
    for (int done = 0; done < block.width; done += step) {
      analysis.xsuper.push_back(block.first + done);
      analysis.height.push_back(block.height - done);
      analysis.lead.push_back(first);
    }
  }
  analysis.nsuper = static_cast<int>(analysis.xsuper.size());
  analysis.xsuper.push_back(n + 1);

  analysis.snode.resize(n);
  analysis.sparent.resize(analysis.nsuper);
  const View<const int> xsuper(analysis.xsuper), lead(analysis.lead), parent(analysis.parent);
  const View<int> snode(analysis.snode), sparent(analysis.sparent);
  for (int s = 1; s <= analysis.nsuper; ++s)
    for (int j = xsuper(s); j < xsuper(s + 1); ++j) snode(j) = s;
  for (int s = 1; s <= analysis.nsuper; ++s) {
    const bool inside = s < analysis.nsuper && lead(s + 1) == lead(s);
    const int up = parent(xsuper(s + 1) - 1);
    sparent(s) = inside ? s + 1 : up == 0 ? 0 : snode(up);
  }
}

namespace {

/// The lists of the Schur complement's blocks, from their columns and what the analysis found.
void list_trailing_rows(const Analysis& analysis, View<const int> xlindx, View<int> lindx) {
  const View<const int> snode(analysis.snode);
  const int* row = analysis.trailing_rows.data();
  for (const Block& block : analysis.trailing_blocks) {
    int* const list = lindx.at(xlindx(snode(block.first)));
    std::iota(list, list + block.width, block.first);
    std::copy_n(row, block.height - block.width, list + block.width);
    row += block.height - block.width;
  }
}

/// First panel of the block that follows block b in the tree, 0 for a root.
Vector<int> block_parents(const Analysis& analysis) {
  const View<const int> sparent(analysis.sparent), lead(analysis.lead);
  Vector<int> store(analysis.nsuper);
  const View<int> up(store);
  for (int s = 1; s <= analysis.nsuper; ++s)  // the last piece of a block writes last
    up(lead(s)) = sparent(s) == 0 ? 0 : lead(sparent(s));
  return store;
}

/// The walks that write the row lists.  The list of a block is built at its first panel; next is
/// its free place, mark the last row appended.
class RowWalks {
 public:
  explicit RowWalks(Analysis& analysis)
      : analysis_(analysis),
        n_(analysis.graph.n),
        eliminated_(n_ - analysis.trailing),
        xadj_(analysis.graph.xadj),
        adjncy_(analysis.graph.adjncy),
        perm_(analysis.order.perm),
        invp_(analysis.order.invp),
        xsuper_(analysis.xsuper),
        snode_(analysis.snode),
        lead_(analysis.lead),
        xlindx_(analysis.xlindx),
        lindx_(analysis.lindx),
        parents_(block_parents(analysis)),
        next_store_(analysis.nsuper),
        mark_store_(analysis.nsuper, 0),
        up_(parents_),
        next_(next_store_),
        mark_(mark_store_) {}

  /// All rows in their sequence.
  bool walk_all() {
    start_lists();
    for (int i = 1; i <= n_; ++i)
      if (!walk_row(i, 1, n_)) return false;
    return true;
  }

  /// The ranges of the order side by side, as far as the lists of their own panels, then the
  /// separators.  False where a list contradicts the counts, and where two ranges are coupled.
  bool walk_by_ranges(int threads) {
    start_lists();
    const Vector<Range>& ranges = analysis_.order.ranges;
    const int domains = static_cast<int>(ranges.size()) - 1, tail = ranges.back().first;
    Vector<char> good(domains, 1);
    side_by_side(threads, domains, [&](int d) {
      const Range& own = ranges[d];
      for (int i = own.first; good[d] && i <= own.last; ++i)
        good[d] = walk_row(i, 1, n_, own.first);
      for (int i = tail; good[d] && i <= n_; ++i) good[d] = walk_row(i, own.first, own.last);
    });
    if (std::ranges::count(good, 0) > 0) return false;
    return walk_separators(tail);
  }

  /// Every list is full.
  bool complete() const {
    for (int s = 1; s <= analysis_.nsuper; ++s)
      if (lead_(s) == s && xsuper_(s) <= eliminated_ && next_(s) != xlindx_(s + 1)) return false;
    return true;
  }

 private:
  void start_lists() {
    for (int s = 1; s <= analysis_.nsuper; ++s) {
      next_(s) = xlindx_(s);
      mark_(s) = 0;
    }
  }

  bool append(int s, int i) {
    if (next_(s) == xlindx_(s + 1)) return false;
    lindx_(next_(s)++) = i;
    mark_(s) = i;
    return true;
  }

  // Row i into every panel on the paths from its neighbours in columns first to last up to its
  // own, or out of those columns.  False: a list is full, or a neighbour comes before `least`.
  bool walk_row(int i, int first, int last, int least = 1) {
    const int node = perm_(i);
    if (i >= first && i <= last) {
      const int own = lead_(snode_(i));
      if (i <= eliminated_ && !append(own, i)) return false;
      mark_(own) = i;
    }
    const int end = std::min({i - 1, last, eliminated_});
    for (int k = xadj_(node); k < xadj_(node + 1); ++k) {
      const int j = invp_(adjncy_(k));
      if (j > end || j < first) continue;
      if (j < least || !climb(lead_(snode_(j)), i, last)) return false;
    }
    return true;
  }

  // From panel s upwards, within the columns up to `last`.
  bool climb(int s, int i, int last) {
    for (; mark_(s) != i && xsuper_(s) <= eliminated_; s = up_(s)) {
      if (up_(s) == 0 || !append(s, i)) return false;
      if (xsuper_(up_(s)) > last) break;
    }
    return true;
  }

  // The rows of the separators, which the ranges hand on at their topmost panels.
  bool walk_separators(int tail) {
    const auto tops = [&](auto visit) {
      for (int s = 1; s <= analysis_.nsuper && xsuper_(s) < tail; ++s) {
        if (lead_(s) != s || up_(s) == 0 || xsuper_(up_(s)) < tail) continue;
        for (int p = next_(s); p-- > xlindx_(s) && lindx_(p) >= tail;) visit(lindx_(p), up_(s));
      }
    };
    Vector<int> start_store(n_ - tail + 2, 0);
    const View<int> start(start_store);  // by row
    tops([&](int i, int) { ++start(i - tail + 2); });
    for (int r = 2; r <= n_ - tail + 2; ++r) start(r) += start(r - 1);
    Vector<int> panel(start_store.back());
    tops([&](int i, int s) { panel[start(i - tail + 1)++] = s; });
    for (int i = tail, k = 0; i <= n_; ++i) {
      if (!walk_row(i, tail, n_)) return false;
      for (; k < start(i - tail + 1); ++k)
        if (!climb(panel[k], i, n_)) return false;
    }
    return true;
  }

  const Analysis& analysis_;
  const int n_, eliminated_;  // nothing is eliminated in the trailing columns, where walks end
  const View<const int> xadj_, adjncy_, perm_, invp_, xsuper_, snode_, lead_, xlindx_;
  const View<int> lindx_;
  const Vector<int> parents_;
  Vector<int> next_store_, mark_store_;
  const View<const int> up_;
  const View<int> next_, mark_;
};

}  // namespace

int symfct_velmora(Analysis& analysis, int threads) {
  const int nsuper = analysis.nsuper;
  const View<const int> height(analysis.height), lead(analysis.lead);
  std::int64_t total = 0;
  for (int s = 1; s <= nsuper; ++s) total += height(s);
  if (total >= std::numeric_limits<int>::max()) return status_overflow;
  analysis.xlindx.resize(nsuper + 1);
  analysis.lindx.resize(total);
  const View<int> xlindx(analysis.xlindx), lindx(analysis.lindx);
  xlindx(1) = 1;
  for (int s = 1; s <= nsuper; ++s) xlindx(s + 1) = xlindx(s) + height(s);

  RowWalks walks(analysis);
  threads = analysis.order.nparts > 1 ? threads_for(static_cast<std::size_t>(total), threads) : 1;
  if ((threads == 1 || !walks.walk_by_ranges(threads)) && !walks.walk_all())
    return status_structure;
  if (!walks.complete()) return status_structure;
  list_trailing_rows(analysis, xlindx, lindx);
  for (int s = 1; s <= nsuper; ++s)
    if (lead(s) != s)  // a later piece has the end of its block's list
      std::copy(lindx.at(xlindx(s) - height(s)), lindx.at(xlindx(s)), lindx.at(xlindx(s)));
  return status_ok;
}

int panel_pointers(bool symmetric, Analysis& analysis) {
  constexpr std::int64_t limit = std::numeric_limits<int>::max();
  const int nsuper = analysis.nsuper;
  analysis.xlnz.resize(nsuper + 1);
  analysis.xunz.resize(nsuper + 1);
  const View<std::int64_t> xlnz(analysis.xlnz), xunz(analysis.xunz);
  const View<const int> xsuper(analysis.xsuper), height(analysis.height);
  xlnz(1) = xunz(1) = 1;
  for (int s = 1; s <= nsuper; ++s) {
    const std::int64_t width = xsuper(s + 1) - xsuper(s);
    if (width * height(s) > limit) return status_overflow;
    xlnz(s + 1) = xlnz(s) + width * height(s);
    xunz(s + 1) = xunz(s) + (symmetric ? 0 : width * (height(s) - width));
  }
  return status_ok;
}

void count_updates(Analysis& analysis, int threads) {
  const View<const int> xsuper(analysis.xsuper);
  const int nsuper = analysis.nsuper;
  constexpr int most_parts = 8;  // each counts the updates of all panels
  const int parts = std::min(threads_for(analysis.lindx.size(), threads), most_parts);
  Vector<Vector<int>> counts(parts);  // of the panels of a part
  Vector<std::int64_t> most(parts, 0);
  side_by_side(parts, parts, [&](int t) {
    const Slice slice(nsuper, t, parts);
    counts[t].assign(nsuper, 0);
    const View<int> nmod(counts[t]);
    std::int64_t largest = 0;
    for (int s = slice.begin + 1; s <= slice.end; ++s) {
      const std::int64_t width = xsuper(s + 1) - xsuper(s);
      for_each_target(analysis, s, [&](int target, int, std::int64_t r) {
        ++nmod(target);
        largest = std::max(largest, r * width);
      });
    }
    most[t] = largest;
  });
  analysis.nmod = std::move(counts[0]);
  for (int t = 1; t < parts; ++t)
    std::ranges::transform(analysis.nmod, counts[t], analysis.nmod.begin(), std::plus<>());
  analysis.max_scaled = *std::ranges::max_element(most);
}

namespace {

/// Column ranges as panel ranges; a panel that runs over the end of a range ends it earlier.
void translate_ranges(Analysis& analysis) {
  const View<const int> snode(analysis.snode);
  const int n = analysis.graph.n;
  analysis.super_ranges.clear();
  int last_panel = 0;
  const auto& ranges = analysis.order.ranges;
  for (std::size_t k = 0; k + 1 < ranges.size(); ++k) {
    Range out{last_panel + 1, last_panel};
    if (ranges[k].first <= ranges[k].last) {
      out.first = snode(ranges[k].first);
      out.last = snode(ranges[k].last);
      if (ranges[k].last < n && snode(ranges[k].last + 1) == out.last) --out.last;
    }
    last_panel = std::max(last_panel, out.last);
    analysis.super_ranges.push_back(out);
  }
  analysis.super_ranges.push_back({last_panel + 1, analysis.nsuper});
}

/// The panels from the marked columns up to their roots: all that a partial solve visits.
void collect_path(Analysis& analysis) {
  const View<const int> snode(analysis.snode), sparent(analysis.sparent);
  Vector<char> store(analysis.nsuper, 0);
  const View<char> visited(store);
  for (const Vector<int>* marked : {&analysis.marked_rows, &analysis.marked_columns})
    for (const int column : *marked)
      for (int s = snode(column); s != 0 && !visited(s); s = sparent(s)) visited(s) = 1;
  analysis.path.clear();
  for (int s = 1; s <= analysis.nsuper; ++s)
    if (visited(s)) analysis.path.push_back(s);
}

}  // namespace

int reorder2_velmora(const SymbolicOptions& options, Analysis& analysis) {
  relax_panels(options.panel, analysis);
  int status = panel_pointers(options.symmetric, analysis);
  if (status == status_ok) status = symfct_velmora(analysis, options.threads);
  if (status != status_ok) return status;
  translate_ranges(analysis);
  collect_path(analysis);
  count_updates(analysis, options.threads);
  return status_ok;
}

}  // namespace vlm
