// SPDX-License-Identifier: BSD-3-Clause
#include "graph/adjacency.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "base/memory.hpp"
#include "graph/starts.hpp"

namespace vlm {
namespace {

constexpr std::int64_t max_position = std::numeric_limits<int>::max() - 1;

}  // namespace

int ladj_mod_velmora(const Pattern& upper, Adjacency& graph) {
  const int n = upper.n;
  graph.n = n;
  graph.xadj.assign(n + 1, 0);
  View<int> xadj(graph.xadj);
  for (int i = 1; i <= n; ++i)
    for (int k = upper.ia(i); k < upper.ia(i + 1); ++k)
      if (const int j = upper.ja(k); j != i) {
        ++xadj(i + 1);
        ++xadj(j + 1);
      }
  if (!counts_to_starts(xadj)) return status_overflow;

  // Row j receives its lower neighbours i < j while the rows i go by, and its own upper
  // neighbours when it is its turn: each list ascends.
  graph.adjncy.resize(xadj(n + 1) - 1);
  View<int> adjncy(graph.adjncy);
  Vector<int> fill(graph.xadj);
  View<int> next(fill);
  for (int i = 1; i <= n; ++i)
    for (int k = upper.ia(i); k < upper.ia(i + 1); ++k)
      if (const int j = upper.ja(k); j != i) {
        adjncy(next(i)++) = j;
        adjncy(next(j)++) = i;
      }
  return status_ok;
}

void kgtransp_str_ia_velmora(const Pattern& pattern, Vector<int>& ptr, Vector<int>& list) {
  const int n = pattern.n;
  const int nnz = pattern.ia(n + 1) - 1;
  ptr.assign(n + 1, 0);
  list.resize(nnz);
  View<int> start(ptr), column(list);
  for (int k = 1; k <= nnz; ++k)
    if (pattern.ja(k) < n) ++start(pattern.ja(k) + 1);
  start(1) = 1;
  for (int i = 2; i <= n; ++i) start(i) += start(i - 1);
  for (int i = 1; i <= n; ++i)
    for (int k = pattern.ia(i); k < pattern.ia(i + 1); ++k) column(start(pattern.ja(k))++) = i;
  // Each start has advanced to the next row's; move them back up.
  for (int i = n; i >= 1; --i) start(i + 1) = start(i);
  start(1) = 1;
}

int kg_diafree_adjnodia_velmora(const Pattern& pattern, Adjacency& graph) {
  const int n = pattern.n;
  Vector<int> tptr, tlist;
  kgtransp_str_ia_velmora(pattern, tptr, tlist);
  const View<int> tia(tptr), tja(tlist);

  graph.n = n;
  graph.xadj.assign(n + 1, 1);
  View<int> xadj(graph.xadj);
  graph.adjncy.clear();
  graph.adjncy.reserve(tlist.size());
  for (int i = 1; i <= n; ++i) {
    int k = pattern.ia(i), t = tia(i), last = 0;
    const int kend = pattern.ia(i + 1), tend = tia(i + 1);
    while (k < kend || t < tend) {
      const int a = k < kend ? pattern.ja(k) : n + 1;
      const int b = t < tend ? tja(t) : n + 1;
      const int j = std::min(a, b);
      k += a == j;
      t += b == j;
      if (j == i || j == last) continue;
      graph.adjncy.push_back(j);
      last = j;
    }
    if (static_cast<std::int64_t>(graph.adjncy.size()) >= max_position) return status_overflow;
    xadj(i + 1) = static_cast<int>(graph.adjncy.size()) + 1;
  }
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

int ladjun_velmora(const Pattern& full, View<const int> row_perm, Adjacency& graph) {
  if (row_perm.empty()) return kg_diafree_adjnodia_velmora(full, graph);
  Vector<int> ia, ja;
  perm_str_velmora(full, row_perm, ia, ja);
  return kg_diafree_adjnodia_velmora({full.n, View<const int>(ia), View<const int>(ja)}, graph);
}

}  // namespace vlm
