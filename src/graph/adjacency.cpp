// SPDX-License-Identifier: BSD-3-Clause
#include "graph/adjacency.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "base/memory.hpp"
#include "base/work_team.hpp"

namespace vlm {
namespace {

constexpr std::int64_t max_position = std::numeric_limits<int>::max() - 1;

// Each slice of the rows counts the neighbours of all nodes.
constexpr int most_slices = 8;

/// Sorts pairs (list, entry) by list, in the sequence of the rows that give them.
/// @param visit  calls what it is given with each pair of a slice of the rows
/// @return false when the lists do not fit 32-bit positions
template <class Visit>
bool sort_into_lists(int n, int slices, Vector<int>& ptr, Vector<int>& list, const Visit& visit) {
  Vector<Vector<int>> next(slices);  // of a slice: counts, then free places, by list
  side_by_side(slices, slices, [&](int t) {
    next[t].assign(n, 0);
    const View<int> count(next[t]);
    visit(Slice(n, t, slices), [&](int at, int) { ++count(at); });
  });
  ptr.resize(n + 1);
  std::int64_t begin = 1;
  for (int i = 0; i < n; ++i) {
    ptr[i] = static_cast<int>(begin);
    for (Vector<int>& slice : next) begin += std::exchange(slice[i], static_cast<int>(begin));
    if (begin > max_position) return false;
  }
  ptr[n] = static_cast<int>(begin);
  list.resize(static_cast<std::size_t>(begin - 1));
  const View<int> out(list);
  side_by_side(slices, slices, [&](int t) {
    const View<int> place(next[t]);
    visit(Slice(n, t, slices), [&](int at, int entry) { out(place(at)++) = entry; });
  });
  return true;
}

int slices_for(const Pattern& pattern, int threads) {
  return std::min(threads_for(pattern.ja.size(), threads), most_slices);
}

}  // namespace

int ladj_mod_velmora(const Pattern& upper, Adjacency& graph, int threads) {
  graph.n = upper.n;
  // Row j receives its lower neighbours i < j while the rows i go by, and its own upper
  // neighbours when it is its turn: each list ascends.
  const auto neighbours = [&](const Slice& rows, auto visit) {
    for (int i = rows.begin + 1; i <= rows.end; ++i)
      for (int k = upper.ia(i); k < upper.ia(i + 1); ++k)
        if (const int j = upper.ja(k); j != i) {
          visit(i, j);
          visit(j, i);
        }
  };
  return sort_into_lists(upper.n, slices_for(upper, threads), graph.xadj, graph.adjncy, neighbours)
             ? status_ok
             : status_overflow;
}

void kgtransp_str_ia_velmora(const Pattern& pattern, Vector<int>& ptr, Vector<int>& list,
                             int threads) {
  const auto entries = [&](const Slice& rows, auto visit) {
    for (int i = rows.begin + 1; i <= rows.end; ++i)
      for (int k = pattern.ia(i); k < pattern.ia(i + 1); ++k) visit(pattern.ja(k), i);
  };
  sort_into_lists(pattern.n, slices_for(pattern, threads), ptr, list, entries);
}

int kg_diafree_adjnodia_velmora(const Pattern& pattern, Adjacency& graph, int threads) {
  const int n = pattern.n;
  Vector<int> tptr, tlist;
  kgtransp_str_ia_velmora(pattern, tptr, tlist, threads);
  const View<int> tia(tptr), tja(tlist);

  graph.n = n;
  graph.xadj.assign(n + 1, 1);
  View<int> xadj(graph.xadj);
  // Calls visit with the neighbours of a row, ascending.
  const auto merge = [&](int i, auto visit) {
    int k = pattern.ia(i), t = tia(i), last = 0;
    const int kend = pattern.ia(i + 1), tend = tia(i + 1);
    while (k < kend || t < tend) {
      const int a = k < kend ? pattern.ja(k) : n + 1;
      const int b = t < tend ? tja(t) : n + 1;
      const int j = std::min(a, b);
      k += a == j;
      t += b == j;
      if (j == i || j == last) continue;
      visit(j);
      last = j;
    }
  };
  const int slices = slices_for(pattern, threads);
  Vector<Vector<int>> lists(slices);
  Vector<std::int64_t> begin(slices + 1, 0);
  side_by_side(slices, slices, [&](int t) {
    const Slice rows(n, t, slices);
    Vector<int>& list = slices > 1 ? lists[t] : graph.adjncy;
    list.clear();
    list.reserve(tia(rows.end + 1) - tia(rows.begin + 1));
    for (int i = rows.begin + 1; i <= rows.end; ++i) {
      merge(i, [&](int j) { list.push_back(j); });
      xadj(i + 1) = static_cast<int>(list.size()) + 1;
    }
    begin[t + 1] = static_cast<std::int64_t>(list.size());
  });
  for (int t = 0; t < slices; ++t) begin[t + 1] += begin[t];
  if (begin[slices] >= max_position) return status_overflow;
  if (slices == 1) return status_ok;
  graph.adjncy.resize(static_cast<std::size_t>(begin[slices]));
  side_by_side(slices, slices, [&](int t) {
    const Slice rows(n, t, slices);
    for (int i = rows.begin + 1; i <= rows.end; ++i) xadj(i + 1) += static_cast<int>(begin[t]);
    std::ranges::copy(lists[t], graph.adjncy.begin() + begin[t]);
  });
  return status_ok;
}

void perm_str_velmora(const Pattern& pattern, View<const int> row_perm, Vector<int>& ia,
                      Vector<int>& ja) {
  const int n = pattern.n;
  ia.assign(n + 1, 1);
  ja.clear();
  ja.reserve(pattern.ia(n + 1) - 1);
  View<int> starts(ia);
  for (int i = 1; i <= n; ++i) {
    const int r = row_perm(i);
    ja.insert(ja.end(), pattern.ja.at(pattern.ia(r)), pattern.ja.at(pattern.ia(r + 1)));
    starts(i + 1) = static_cast<int>(ja.size()) + 1;
  }
}

int ladjun_velmora(const Pattern& full, View<const int> row_perm, Adjacency& graph, int threads) {
  if (row_perm.empty()) return kg_diafree_adjnodia_velmora(full, graph, threads);
  Vector<int> ia, ja;
  perm_str_velmora(full, row_perm, ia, ja);
  return kg_diafree_adjnodia_velmora({full.n, View<const int>(ia), View<const int>(ja)}, graph,
                                     threads);
}

}  // namespace vlm
