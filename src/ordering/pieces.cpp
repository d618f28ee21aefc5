// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/pieces.hpp"

namespace vlm {

WeightedGraph with_halo(const WeightedGraph& whole, const Piece& piece, Vector<int>& local,
                        Vector<int>& vertex) {
  constexpr int none = -1;
  vertex = piece.vertex;
  const int inner = piece.graph().n;
  std::size_t edges = 0;
  for (int i = 0; i < inner; ++i) {
    local[vertex[i]] = i;
    edges += whole.ptr[vertex[i] + 1] - whole.ptr[vertex[i]];
  }
  WeightedGraph out;
  out.ptr.assign(inner + 1, 0);
  out.adj.reserve(2 * edges - piece.graph().adj.size());  // those that leave the piece count twice
  Vector<int> degree;                                     // of the halo vertices
  for (int i = 0; i < inner; ++i) {
    const int v = vertex[i];
    for (int k = whole.ptr[v]; k < whole.ptr[v + 1]; ++k) {
      const int u = whole.adj[k];
      if (local[u] == none) {
        local[u] = static_cast<int>(vertex.size());
        vertex.push_back(u);
        degree.push_back(0);
      }
      out.adj.push_back(local[u]);
      if (local[u] >= inner) ++degree[local[u] - inner];
    }
    out.ptr[i + 1] = static_cast<int>(out.adj.size());
  }
  out.n = static_cast<int>(vertex.size());
  for (const int d : degree) out.ptr.push_back(out.ptr.back() + d);
  out.adj.resize(out.ptr.back());
  Vector<int> next(out.ptr.begin() + inner, out.ptr.end());
  for (int i = 0; i < inner; ++i)
    for (int k = out.ptr[i]; k < out.ptr[i + 1]; ++k)
      if (out.adj[k] >= inner) out.adj[next[out.adj[k] - inner]++] = i;
  out.weight.resize(out.n);
  for (int i = 0; i < out.n; ++i) {
    out.weight[i] = whole.weight[vertex[i]];
    local[vertex[i]] = none;
  }
  return out;
}

}  // namespace vlm
