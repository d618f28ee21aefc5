// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/gepmetis.hpp"

#include <algorithm>

#include "base/memory.hpp"
#include "graph/compress.hpp"
#include "graph/ordering.hpp"
#include "ordering/dissect.hpp"

namespace vlm {
namespace {

DissectionGoal goal_of(const DissectionRequest& request) {
  return {.domains = std::max(request.nparts, 1),
          .threads = std::max(request.threads, 1),
          .operation_cost = request.operation_cost};
}

// Group of the nodes of a vertex: its domain, or behind the domains.
int group_of(const Dissection& found, int vertex) {
  return found.domain[vertex] > 0 ? found.domain[vertex] : std::max(found.domains, 1) + 1;
}

// Completes an order of which perm is written.
void write_ranges(const Dissection& found, const Vector<int>& group, Ordering& order) {
  order.nparts = std::max(found.domains, 1);
  invert_order(order);
  if (order.nparts == 1) {
    set_single_range(order, static_cast<int>(order.perm.size()));
    return;
  }
  order.ranges = regroup(order, group, order.nparts + 1);
  close_ranges(order);
}

// Which vertices stand for held nodes.
Vector<char> held_vertices(const CompressedGraph& compressed, const Vector<char>& held) {
  Vector<char> out;
  if (held.empty()) return out;
  out.resize(compressed.graph.n);
  for (int v = 0; v < compressed.graph.n; ++v)
    out[v] = held[compressed.nodes[compressed.first[v]] - 1];
  return out;
}

// The tree of the nodes: those of a vertex form a chain.
void write_tree(const CompressedGraph& compressed, const Dissection& found, Ordering& order) {
  const int n = static_cast<int>(order.perm.size());
  order.parent.resize(n);
  order.count.resize(n);
  const auto head = [&](int place) {
    return compressed.nodes[compressed.first[found.order[place]]];
  };
  for (std::size_t k = 0; k < found.order.size(); ++k) {
    const int v = found.order[k], end = compressed.first[v + 1];
    int count = found.tree.count[k];
    for (int m = compressed.first[v]; m < end; ++m) {
      const int node = compressed.nodes[m], up = found.tree.parent[k];
      order.parent[node - 1] = m + 1 < end ? compressed.nodes[m + 1] : up < 0 ? 0 : head(up);
      order.count[node - 1] = count--;
    }
  }
}

bool has_dense_row(const Adjacency& graph) {
  const double limit = dense_row_limit(graph.n);
  for (int i = 0; i < graph.n; ++i)
    if (graph.xadj[i + 1] - graph.xadj[i] > limit) return true;
  return false;
}

}  // namespace

void gepmetis_velmora(const Adjacency& graph, const DissectionRequest& request, Ordering& order,
                      const Vector<char>& held) {
  const int n = graph.n;
  order.parent.clear();
  order.count.clear();
  if (graph.adjncy.empty()) {
    set_identity(order, n);
    return;
  }
  const CompressedGraph compressed = compress_graph(graph, held, request.threads);
  const Dissection found =
      dissect(compressed.graph, goal_of(request), held_vertices(compressed, held));
  order.perm.clear();
  order.perm.reserve(n);
  Vector<int> group(n, std::max(found.domains, 1) + 1);
  for (const int v : found.order)
    for (int k = compressed.first[v]; k < compressed.first[v + 1]; ++k) {
      const int node = compressed.nodes[k];
      order.perm.push_back(node);
      group[node - 1] = group_of(found, v);
    }
  order.perm.insert(order.perm.end(), compressed.dense.begin(), compressed.dense.end());
  if (!held.empty())  // dense rows may be of either kind
    move_held_behind(order.perm, held, 1);
  write_ranges(found, group, order);
  if (compressed.dense.empty() && held.empty() && graph.weight.empty())
    write_tree(compressed, found, order);
  order.nodes = compressed.graph.n + static_cast<int>(compressed.dense.size());
}

bool dissect_with_pairs(const Adjacency& graph, const DissectionRequest& request, Pairing& pairs,
                        Ordering& order) {
  if (has_dense_row(graph)) return false;
  const WeightedGraph nodes = weighted_graph(graph);
  const Dissection found = dissect_pairs(nodes, goal_of(request), pairs);
  order.perm.resize(graph.n);
  std::transform(found.order.begin(), found.order.end(), order.perm.begin(),
                 [](int v) { return v + 1; });
  Vector<int> group(graph.n);
  for (int v = 0; v < graph.n; ++v) group[v] = group_of(found, v);
  write_ranges(found, group, order);
  return true;
}

}  // namespace vlm
