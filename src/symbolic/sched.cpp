// SPDX-License-Identifier: BSD-3-Clause
/// Task schedule of the factorization on several threads, see sched.hpp.
#include "symbolic/sched.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <numeric>

#include "base/memory.hpp"
#include "base/work_team.hpp"
#include "graph/starts.hpp"

namespace vlm {
namespace {

/// Update lists of a part of the panels.
struct PartLists {
  Vector<int> up, uplen;
};

int fine_grain_lists(Analysis& analysis, int threads) {
  UpdateLists& lists = analysis.updates;
  const int nsuper = analysis.nsuper;
  lists.scheme = Scheme::fine_grain;
  lists.start.assign(static_cast<std::size_t>(nsuper) + 1, 0);
  lists.up.clear();
  lists.uplen.clear();
  const int parts = threads_for(analysis.lindx.size(), threads);
  const double total = std::accumulate(analysis.nmod.begin(), analysis.nmod.end(), 0.0);
  Vector<PartLists> own(parts);
  side_by_side(parts, parts, [&](int t) {
    const Slice slice(nsuper, t, parts);
    Vector<int>& up = parts > 1 ? own[t].up : lists.up;
    Vector<int>& uplen = parts > 1 ? own[t].uplen : lists.uplen;
    up.reserve(static_cast<std::size_t>(total / parts));
    uplen.reserve(static_cast<std::size_t>(total / parts));
    for (int s = slice.begin + 1; s <= slice.end; ++s) {
      const std::size_t before = up.size();
      for_each_target(analysis, s, [&](int target, int rows, int) {
        up.push_back(analysis.xsuper[target - 1]);
        uplen.push_back(rows);
      });
      lists.start[s] = static_cast<int>(up.size() - before);
    }
  });
  if (!counts_to_starts(View<int>(lists.start))) return status_overflow;
  if (parts == 1) return status_ok;
  const auto size = static_cast<std::size_t>(lists.start.back() - 1);
  lists.up.resize(size);
  lists.uplen.resize(size);
  side_by_side(parts, parts, [&](int t) {
    const int at = lists.start[Slice(nsuper, t, parts).begin] - 1;
    std::ranges::copy(own[t].up, lists.up.begin() + at);
    std::ranges::copy(own[t].uplen, lists.uplen.begin() + at);
  });
  return status_ok;
}

/// Whether there are several domains whose panels update only the own domain and the separators.
/// All that a panel updates are ancestors of the first panel that it does.
bool domains_are_independent(const Analysis& analysis) {
  if (analysis.super_ranges.size() <= 2) return false;
  const View<const int> xsuper(analysis.xsuper), snode(analysis.snode);
  const View<const int> xlindx(analysis.xlindx), lindx(analysis.lindx);
  const int separator = analysis.super_ranges.back().first;
  for (std::size_t d = 0; d + 1 < analysis.super_ranges.size(); ++d) {
    const Range& domain = analysis.super_ranges[d];
    for (int s = domain.first; s <= domain.last; ++s) {
      const int below = xlindx(s) + xsuper(s + 1) - xsuper(s);
      if (below == xlindx(s + 1)) continue;
      const int target = snode(lindx(below));
      if (target > domain.last && target < separator) return false;
    }
  }
  return true;
}

int two_level_lists(Analysis& analysis, int threads) {
  UpdateLists& lists = analysis.updates;
  const Vector<Range>& ranges = analysis.super_ranges;
  const int separator = ranges.back().first, columns = static_cast<int>(ranges.size());
  const std::size_t targets = static_cast<std::size_t>(analysis.nsuper) - separator + 1;
  const int first = analysis.xsuper[separator - 1];  // column of the separators
  lists.scheme = Scheme::two_level;
  lists.start.assign(targets * columns + 1, 0);
  threads = threads_for(analysis.lindx.size(), threads);
  const auto for_each_hit = [&](auto visit) {
    side_by_side(threads, columns, [&](int d) {
      for (int s = ranges[d].first; s <= ranges[d].last; ++s)
        for_each_target(
            analysis, s,
            [&](int target, int rows, int) {
              visit(static_cast<std::size_t>(target - separator) * columns + d, s, rows);
            },
            first);
    });
  };
  for_each_hit([&](std::size_t place, int, int) { ++lists.start[place + 1]; });
  if (!counts_to_starts(View<int>(lists.start))) return status_overflow;
  const std::size_t total = static_cast<std::size_t>(lists.start.back() - 1);
  lists.up.resize(total);
  lists.uplen.resize(total);
  Vector<int> next(lists.start);
  for_each_hit([&](std::size_t place, int s, int rows) {
    const std::size_t k = static_cast<std::size_t>(next[place]++ - 1);
    lists.up[k] = s;
    lists.uplen[k] = rows;
  });
  return status_ok;
}

}  // namespace

void sched_velmora(View<const int> sparent, View<int> queue) {
  const int nsuper = static_cast<int>(sparent.size());
  Vector<int> pending(sparent.size(), 0);
  const View<int> nchild(pending);
  int tail = 0;
  for (int s = 1; s <= nsuper; ++s) {
    if (sparent(s) != 0) ++nchild(sparent(s));
    if (nchild(s) == 0) queue(++tail) = -s;
  }
  for (int head = 1; head <= tail; ++head) {
    const int parent = sparent(std::abs(queue(head)));
    if (parent != 0 && --nchild(parent) == 0) queue(++tail) = parent;
  }
}

int blkpre_velmora(bool use_domains, Analysis& analysis, int threads) {
  analysis.divided = domains_are_independent(analysis);
  return analysis.divided && use_domains ? two_level_lists(analysis, threads)
                                         : fine_grain_lists(analysis, threads);
}

int reorder3_velmora(const SymbolicOptions& options, Analysis& analysis) {
  if (analysis.figures.flops < worthwhile_flops) {
    analysis.divided = domains_are_independent(analysis);  // solves may still go by domains
    return status_ok;
  }
  analysis.queue.resize(static_cast<std::size_t>(analysis.nsuper));
  sched_velmora(View<const int>(analysis.sparent), View<int>(analysis.queue));
  return blkpre_velmora(options.use_domains, analysis, options.threads);
}

}  // namespace vlm
