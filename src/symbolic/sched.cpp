// SPDX-License-Identifier: BSD-3-Clause
/// Task schedule of the factorization on several threads, see sched.hpp.
#include "symbolic/sched.hpp"

#include <cstdint>
#include <cstdlib>

#include "base/memory.hpp"
#include "base/work_team.hpp"
#include "graph/starts.hpp"

namespace vlm {
namespace {

int fine_grain_lists(Analysis& analysis, int threads) {
  UpdateLists& lists = analysis.updates;
  const int nsuper = analysis.nsuper;
  lists.scheme = Scheme::fine_grain;
  lists.start.assign(static_cast<std::size_t>(nsuper) + 1, 0);
  const int parts = threads_for(analysis.lindx.size(), threads);
  side_by_side(parts, parts, [&](int t) {
    const Slice slice(nsuper, t, parts);
    for (int s = slice.begin + 1; s <= slice.end; ++s)
      for_each_target(analysis, s, [&](int, int, int) { ++lists.start[s]; });
  });
  if (!counts_to_starts(View<int>(lists.start))) return status_overflow;
  const std::size_t total = static_cast<std::size_t>(lists.start.back() - 1);
  lists.up.resize(total);
  lists.uplen.resize(total);
  side_by_side(parts, parts, [&](int t) {
    const Slice slice(nsuper, t, parts);
    auto k = static_cast<std::size_t>(lists.start[slice.begin] - 1);
    for (int s = slice.begin + 1; s <= slice.end; ++s)
      for_each_target(analysis, s, [&](int target, int rows, int) {
        lists.up[k] = analysis.xsuper[target - 1];
        lists.uplen[k++] = rows;
      });
  });
  return status_ok;
}

/// Whether the panels of each domain update only that domain and the separators.
bool domains_are_independent(const Analysis& analysis) {
  const int separator = analysis.super_ranges.back().first;
  bool independent = true;
  for (std::size_t d = 0; d + 1 < analysis.super_ranges.size(); ++d) {
    const Range& domain = analysis.super_ranges[d];
    for (int s = domain.first; s <= domain.last; ++s)
      for_each_target(analysis, s, [&](int target, int, int) {
        if (target > domain.last && target < separator) independent = false;
      });
  }
  return independent;
}

int two_level_lists(Analysis& analysis, int threads) {
  UpdateLists& lists = analysis.updates;
  const Vector<Range>& ranges = analysis.super_ranges;
  const int separator = ranges.back().first, columns = static_cast<int>(ranges.size());
  const std::size_t targets = static_cast<std::size_t>(analysis.nsuper) - separator + 1;
  lists.scheme = Scheme::two_level;
  lists.start.assign(targets * columns + 1, 0);
  threads = threads_for(analysis.lindx.size(), threads);
  const auto for_each_hit = [&](auto visit) {
    side_by_side(threads, columns, [&](int d) {
      for (int s = ranges[d].first; s <= ranges[d].last; ++s)
        for_each_target(analysis, s, [&](int target, int rows, int) {
          if (target >= separator)
            visit(static_cast<std::size_t>(target - separator) * columns + d, s, rows);
        });
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
  analysis.divided = analysis.super_ranges.size() > 2 && domains_are_independent(analysis);
  return analysis.divided && use_domains ? two_level_lists(analysis, threads)
                                         : fine_grain_lists(analysis, threads);
}

int reorder3_velmora(const SymbolicOptions& options, Analysis& analysis) {
  analysis.queue.resize(static_cast<std::size_t>(analysis.nsuper));
  sched_velmora(View<const int>(analysis.sparent), View<int>(analysis.queue));
  return blkpre_velmora(options.use_domains, analysis, options.threads);
}

}  // namespace vlm
