// SPDX-License-Identifier: BSD-3-Clause
#include "graph/compress.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include "base/memory.hpp"
#include "base/view.hpp"
#include "base/work_team.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

// Whether the sorted lists of u < v agree but for u in that of v and v in that of u.
bool same_neighbours(View<const int> xadj, View<const int> adjncy, int u, int v) {
  int a = xadj(u), b = xadj(v);
  const int end_a = xadj(u + 1), end_b = xadj(v + 1);
  for (;; ++a, ++b) {
    if (a < end_a && adjncy(a) == v) ++a;
    if (b < end_b && adjncy(b) == u) ++b;
    if (a == end_a || b == end_b) return a == end_a && b == end_b;
    if (adjncy(a) != adjncy(b)) return false;
  }
}

// representative(v): the lowest node with the same closed neighbourhood, v when there is none
// lower, or `none` for a dense row.  Nodes can only match neighbours of theirs.
Vector<int> find_representatives(const Adjacency& graph, const Vector<char>& held, int dense_limit,
                                 int threads) {
  const int n = graph.n;
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  Vector<int> representative_store(n);
  Vector<std::uint32_t> hash_store(n);
  const View<int> representative(representative_store);
  const View<std::uint32_t> hash(hash_store);
  const int parts = threads > 1 ? 4 * threads : 1;
  side_by_side(threads, parts, [&](int p) {
    const Slice slice(n, p, parts);
    for (int v = slice.begin + 1; v <= slice.end; ++v) {
      auto sum = static_cast<std::uint32_t>(v);
      for (int k = xadj(v); k < xadj(v + 1); ++k) sum += static_cast<std::uint32_t>(adjncy(k));
      hash(v) = sum;
    }
  });
  side_by_side(threads, parts, [&](int p) {
    const Slice slice(n, p, parts);
    for (int v = slice.begin + 1; v <= slice.end; ++v) {
      const int first = xadj(v), stop = xadj(v + 1), degree = stop - first;
      representative(v) = degree > dense_limit ? none : v;
      if (degree > dense_limit) continue;
      for (int k = first; k < stop && adjncy(k) < v; ++k) {
        const int u = adjncy(k);
        if (hash(u) != hash(v) || xadj(u + 1) - xadj(u) != degree) continue;
        if (!held.empty() && held[u - 1] != held[v - 1]) continue;
        if (!same_neighbours(xadj, adjncy, u, v)) continue;
        representative(v) = u;
        break;
      }
    }
  });
  return representative_store;
}

// The vertices are the nodes.
void take_all(const Adjacency& graph, int threads, CompressedGraph& out) {
  const int n = graph.n, parts = threads > 1 ? 4 * threads : 1;
  out.graph.n = n;
  out.graph.weight.assign(n, 1);
  if (!graph.weight.empty()) out.graph.weight = graph.weight;
  out.first.resize(n + 1);
  out.nodes.resize(n);
  out.graph.ptr.resize(n + 1);
  out.graph.adj.resize(graph.adjncy.size());
  side_by_side(threads, parts, [&](int p) {
    const Slice slice(n, p, parts);
    for (int v = slice.begin; v < slice.end; ++v) {
      out.first[v] = v;
      out.nodes[v] = v + 1;
      out.graph.ptr[v] = graph.xadj[v] - 1;
      for (int k = graph.xadj[v] - 1; k < graph.xadj[v + 1] - 1; ++k)
        out.graph.adj[k] = graph.adjncy[k] - 1;
    }
  });
  out.first[n] = n;
  out.graph.ptr[n] = graph.xadj[n] - 1;
}

}  // namespace

double dense_row_limit(int n) { return std::max(16.0, 10 * std::sqrt(static_cast<double>(n))); }

CompressedGraph compress_graph(const Adjacency& graph, const Vector<char>& held, int threads) {
  const int n = graph.n;
  threads = threads_for(graph.adjncy.size(), threads);
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy);
  const double limit = dense_row_limit(n);
  Vector<int> representative_store =
      find_representatives(graph, held, static_cast<int>(std::min<double>(limit, n)), threads);
  const View<const int> representative(representative_store);

  CompressedGraph out;
  Vector<int> vertex_store(n, none);  // vertex of a representative
  const View<int> vertex(vertex_store);
  for (int v = 1; v <= n; ++v) {
    if (representative(v) == none) out.dense.push_back(v);
    if (representative(v) == v) vertex(v) = out.graph.n++;
  }
  const int nc = out.graph.n;
  if (nc == n) {
    take_all(graph, threads, out);
    return out;
  }
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
  for (int v = 1, c = 0; v <= n; ++v) {
    if (representative(v) != v) continue;
    for (int k = xadj(v); k < xadj(v + 1); ++k)
      if (const int u = adjncy(k); representative(u) == u) out.graph.adj.push_back(vertex(u));
    out.graph.ptr[++c] = static_cast<int>(out.graph.adj.size());
  }
  return out;
}

}  // namespace vlm
