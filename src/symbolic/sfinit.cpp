// SPDX-License-Identifier: BSD-3-Clause
/// Supernode partition of the exact factor.
///
/// From the order come the elimination tree, the column counts and the maximal supernodes
/// under the panel limit.  Their sums are what iparm(18) and the report tell.  The numeric
/// phases run on panels derived from these (see symfct.cpp).
#include "symbolic/sfinit.hpp"

#include <algorithm>

#include "base/memory.hpp"
#include "graph/etree.hpp"
#include "symbolic/trailing.hpp"

namespace vlm {

Partition fndspa_velmora(View<const int> parent, View<const int> colcnt, int panel, int trailing) {
  const int n = static_cast<int>(parent.size());
  Partition out;
  out.snode.resize(n);
  const View<int> snode(out.snode);
  const int boundary = n - trailing + 1;
  bool boundary_open = trailing != n;  // the boundary cuts one chain, once
  int width = 0, chain = 0;
  for (int k = 1; k <= n; ++k) {
    const bool chained = k > 1 && parent(k - 1) == k && colcnt(k - 1) == colcnt(k) + 1;
    bool joins = chained;
    if (joins && k >= boundary && boundary_open) {
      boundary_open = false;
      joins = false;
    }
    if (joins && width >= panel) joins = false;
    chain = chained ? chain + 1 : 1;
    out.maxsup = std::max(out.maxsup, chain);
    if (joins) {
      ++width;
    } else {
      width = 1;
      out.xsuper.push_back(k);
    }
    snode(k) = static_cast<int>(out.xsuper.size());
  }
  out.xsuper.push_back(n + 1);
  return out;
}

namespace {

/// Entries of the L panels and of the U rectangles of the exact partition, and of the columns of a
/// Schur complement behind them.
void count_panels(const Partition& part, View<const int> colcnt, bool symmetric,
                  FactorFigures& figures) {
  const View<const int> xsuper(part.xsuper);
  std::int64_t nnzl = 0, nnzu = 0;
  for (const int* count = colcnt.begin() + part.snode.size(); count != colcnt.end(); ++count) {
    nnzl += *count;
    nnzu += *count - 1;
  }
  for (int s = 1; s < static_cast<int>(xsuper.size()); ++s) {
    const std::int64_t width = xsuper(s + 1) - xsuper(s);
    nnzl += width * colcnt(xsuper(s));
    nnzu += width * (colcnt(xsuper(s + 1) - 1) - 1);
  }
  figures.nnz_l = nnzl;
  figures.nnz_u = symmetric ? 1 : std::max<std::int64_t>(nnzu, 1);
}

/// The tree that the ordering has found, by position.
void take_tree(Ordering& order, View<int> parent, View<int> colcnt) {
  const View<const int> up(order.parent), count(order.count), perm(order.perm), invp(order.invp);
  for (int i = 1; i <= static_cast<int>(parent.size()); ++i) {
    const int node = perm(i);
    parent(i) = up(node) == 0 ? 0 : invp(up(node));
    colcnt(i) = count(node);
  }
  order.parent = {};
  order.count = {};
}

/// Real operations of an elimination column by column: with r rows below the diagonal, r
/// divisions, and r (r+1) for the lower triangle of the update or 2 r^2 for all of it.
double count_operations(View<const int> colcnt, int eliminated, const SymbolicOptions& options) {
  double sum = 0;
  for (int j = 1; j <= eliminated; ++j) {
    const double r = colcnt(j) - 1;
    sum += options.symmetric ? r * (r + 2) : r * (2 * r + 1);
  }
  return options.complex ? 4 * sum : sum;
}

}  // namespace

void sfinit_velmora(const SymbolicOptions& options, Analysis& analysis) {
  const int n = analysis.graph.n;
  const View<const int> perm(analysis.order.perm), invp(analysis.order.invp);
  analysis.parent.resize(n);
  analysis.colcnt.resize(n);
  const View<int> parent(analysis.parent), colcnt(analysis.colcnt);
  const OrderedPattern pattern(analysis.graph, perm, invp);
  if (static_cast<int>(analysis.order.count.size()) == n) {
    take_tree(analysis.order, parent, colcnt);
  } else {
    etep_velmora(pattern, parent);
    Vector<int> post(n);
    postorder(parent, {}, View<int>(post));
    lnnt_velmora(pattern, parent, View<const int>(post), colcnt);
  }
  find_trailing_blocks(pattern, analysis);
  const int eliminated = n - analysis.trailing;
  const auto first = static_cast<std::size_t>(eliminated);
  const Partition part = fndspa_velmora(View<const int>(parent.data(), first),
                                        View<const int>(colcnt.data(), first), options.panel, 0);
  FactorFigures& figures = analysis.figures;
  figures.supernodes = static_cast<int>(part.xsuper.size() - 1 + analysis.trailing_blocks.size());
  figures.largest_supernode = part.maxsup;
  figures.trees = static_cast<int>(std::ranges::count(parent, 0));
  figures.flops = count_operations(colcnt, eliminated, options);
  count_panels(part, colcnt, options.symmetric, figures);
}

}  // namespace vlm
