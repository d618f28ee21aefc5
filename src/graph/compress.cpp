// SPDX-License-Identifier: BSD-3-Clause
#include "graph/compress.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include "base/memory.hpp"
#include "base/view.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

// representative(v): the lowest node with the same closed neighbourhood, v when there is none
// lower, or `none` for a dense row.  Nodes can only match neighbours of theirs.
Vector<int> find_representatives(const Adjacency& graph, const Vector<char>& held,
                                 int dense_limit) {
  const int n = graph.n;
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  Vector<int> representative_store(n), mark_store(n, 0);
  Vector<std::uint32_t> hash_store(n);
  const View<int> representative(representative_store), mark(mark_store);
  const View<std::uint32_t> hash(hash_store);
  for (int v = 1; v <= n; ++v) {
    auto sum = static_cast<std::uint32_t>(v);
    for (int k = xadj(v); k < xadj(v + 1); ++k) sum += static_cast<std::uint32_t>(adjncy(k));
    hash(v) = sum;
    representative(v) = xadj(v + 1) - xadj(v) > dense_limit ? none : 0;
  }
  for (int v = 1; v <= n; ++v) {
    if (representative(v) != 0) continue;
    representative(v) = v;
    const int first = xadj(v), stop = xadj(v + 1), degree = stop - first;
    bool marked = false;
    for (int k = first; k < stop; ++k) {
      const int u = adjncy(k);
      if (u <= v || representative(u) != 0 || hash(u) != hash(v) || xadj(u + 1) - xadj(u) != degree)
        continue;
      if (!held.empty() && held[u - 1] != held[v - 1]) continue;
      if (!marked) {
        for (int m = first; m < stop; ++m) mark(adjncy(m)) = v;
        mark(v) = v;
        marked = true;
      }
      bool same = true;
      for (int m = xadj(u); same && m < xadj(u + 1); ++m) same = mark(adjncy(m)) == v;
      if (same) representative(u) = v;
    }
  }
  return representative_store;
}

}  // namespace

double dense_row_limit(int n) { return std::max(16.0, 10 * std::sqrt(static_cast<double>(n))); }

CompressedGraph compress_graph(const Adjacency& graph, const Vector<char>& held) {
  const int n = graph.n;
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  const double limit = dense_row_limit(n);
  Vector<int> representative_store =
      find_representatives(graph, held, static_cast<int>(std::min<double>(limit, n)));
  const View<const int> representative(representative_store);

  CompressedGraph out;
  Vector<int> vertex_store(n, none);  // vertex of a representative
  const View<int> vertex(vertex_store);
  for (int v = 1; v <= n; ++v) {
    if (representative(v) == none) out.dense.push_back(v);
    if (representative(v) == v) vertex(v) = out.graph.n++;
  }
  const int nc = out.graph.n;
  out.graph.weight.assign(nc, 0);
  out.first.assign(nc + 1, 0);
  for (int v = 1; v <= n; ++v)
    if (representative(v) != none) {
      const int c = vertex(representative(v));
      out.graph.weight[c] += graph.weight_of(v);
      ++out.first[c + 1];
    }
  std::partial_sum(out.first.begin(), out.first.end(), out.first.begin());
  out.nodes.resize(out.first[nc]);
  Vector<int> next(out.first);
  for (int v = 1; v <= n; ++v)
    if (representative(v) != none) out.nodes[next[vertex(representative(v))]++] = v;

  // Each vertex takes the neighbours of its representative that are representatives too: an
  // indistinguishable set is adjacent as a whole or not at all.
  out.graph.ptr.assign(nc + 1, 0);
  const bool same = nc == n;
  out.graph.adj.reserve(same ? graph.adjncy.size() : 0);
  for (int v = 1, c = 0; v <= n; ++v) {
    if (representative(v) != v) continue;
    for (int k = xadj(v); k < xadj(v + 1); ++k)
      if (const int u = adjncy(k); representative(u) == u) out.graph.adj.push_back(vertex(u));
    out.graph.ptr[++c] = static_cast<int>(out.graph.adj.size());
  }
  return out;
}

}  // namespace vlm
