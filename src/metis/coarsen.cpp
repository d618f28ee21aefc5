// SPDX-License-Identifier: BSD-3-Clause
#include "metis/coarsen.hpp"

#include <algorithm>
#include <cstddef>

namespace vlm {
namespace {

constexpr int none = -1;

// Clusters in the making: the members of a cluster are chained from head[c].
class Clusters {
 public:
  Clusters(const LevelGraph& graph, const ClusterLimits& limits, Vector<int>& cluster,
           CoarsenWorkspace& w)
      : g_(graph), limits_(limits), cluster_(cluster), w_(w) {
    cluster_.assign(g_.n, none);
    if (static_cast<int>(w_.next.size()) < g_.n) w_.next.resize(g_.n);
    w_.head.clear();
    w_.size.clear();
    w_.weight.clear();
    w_.waiting.clear();
  }

  int form() {
    // In the sequence of the vertices clusters would be stripes, and the coarse graph would know
    // of separators along and across them only; so they are shuffled, in blocks that the cache
    // holds.
    constexpr int block = 64;
    int turn[block];
    SplitMix random(static_cast<std::uint64_t>(g_.n));
    for (int first = 0; first < g_.n; first += block) {
      const int length = std::min(block, g_.n - first);
      for (int i = 0; i < length; ++i) {
        const int j = random.below(i + 1);
        turn[i] = turn[j];
        turn[j] = first + i;
      }
      for (int i = 0; i < length; ++i)
        if (cluster_[turn[i]] == none) take(turn[i]);
    }
    return static_cast<int>(w_.head.size());
  }

 private:
  // Opens a cluster with v and the free neighbours that it is tied to most; where these do not
  // fill it, with theirs.
  void take(int v) {
    const int c = static_cast<int>(w_.head.size());
    std::int64_t weight = g_.weight[v];
    int members = 1, last = v, head = v;
    cluster_[v] = c;
    w_.next[v] = none;
    for (int at = v; members < limits_.members;) {
      const int u = heaviest_free(at, weight);
      if (u == none) {
        if (at == last) break;
        at = last;
        continue;
      }
      cluster_[u] = c;
      w_.next[u] = head;
      head = last = u;
      weight += g_.weight[u];
      ++members;
    }
    if (members == 1 && join(v)) return;
    w_.head.push_back(head);
    w_.size.push_back(members);
    w_.weight.push_back(weight);
  }

  int heaviest_free(int v, std::int64_t weight) const {
    int best = none, tie = 0;
    for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) {
      const int u = g_.adj[k];
      if (cluster_[u] != none) continue;
      const int w = g_.edge == nullptr ? 1 : g_.edge[k];
      if (w <= tie || weight + g_.weight[u] > limits_.weight) continue;
      best = u;
      tie = w;
      if (g_.edge == nullptr) break;
    }
    return best;
  }

  bool has_room(int c, int v) const {
    return w_.size[c] <= limits_.members && w_.weight[c] + g_.weight[v] <= limits_.weight;
  }

  void add(int v, int c) {
    cluster_[v] = c;
    w_.next[v] = w_.head[c];
    w_.head[c] = v;
    ++w_.size[c];
    w_.weight[c] += g_.weight[v];
  }

  // Puts a vertex without free neighbours into a cluster next to it.
  bool join(int v) {
    int best = none, tie = 0;
    for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) {
      const int c = cluster_[g_.adj[k]], w = g_.edge == nullptr ? 1 : g_.edge[k];
      if (w <= tie || c == none || !has_room(c, v)) continue;
      best = c;
      tie = w;
    }
    if (best == none) return pair_up(v);
    add(v, best);
    return true;
  }

  // Puts a vertex to one that waits at a common neighbour, or lets it wait there.
  bool pair_up(int v) {
    if (w_.waiting.empty()) w_.waiting.assign(g_.n, none);
    constexpr int looked_at = 4;
    const int stop = std::min(g_.ptr[v] + looked_at, g_.ptr[v + 1]);
    for (int k = g_.ptr[v]; k < stop; ++k) {
      const int u = w_.waiting[g_.adj[k]];
      if (u == none || !has_room(cluster_[u], v)) continue;
      add(v, cluster_[u]);
      return true;
    }
    for (int k = g_.ptr[v]; k < stop; ++k) w_.waiting[g_.adj[k]] = v;
    return false;
  }

  const LevelGraph& g_;
  const ClusterLimits& limits_;
  Vector<int>& cluster_;
  CoarsenWorkspace& w_;
};

// The graph of the clusters; an edge weighs as much as the edges it stands for.
void contract_clusters(const LevelGraph& g, int count, CoarseLevel& coarse, CoarsenWorkspace& w) {
  const int* const cluster = coarse.cluster.data();
  const auto edges = static_cast<std::size_t>(g.ptr[g.n]);
  for (Vector<int>* list : {&w.adj, &w.edge})
    if (list->size() < edges) {
      list->clear();
      list->resize(edges);
    }
  w.place.assign(count, none);
  int* const place = w.place.data();
  int* const adj = w.adj.data();
  int* const edge = w.edge.data();
  WeightedGraph& out = coarse.graph;
  out.n = count;
  out.ptr.resize(count + 1);
  out.ptr[0] = 0;
  out.weight.resize(count);
  int end = 0;
  for (int c = 0; c < count; ++c) {
    const int begin = end;
    for (int v = w.head[c]; v != none; v = w.next[v]) {
      for (int k = g.ptr[v]; k < g.ptr[v + 1]; ++k) {
        const int d = cluster[g.adj[k]];
        if (d == c) continue;
        const int tie = g.edge == nullptr ? 1 : g.edge[k];
        if (place[d] >= begin) {
          edge[place[d]] += tie;
        } else {
          place[d] = end;
          adj[end] = d;
          edge[end++] = tie;
        }
      }
    }
    out.weight[c] = static_cast<int>(w.weight[c]);
    out.ptr[c + 1] = end;
  }
  out.adj.assign(adj, adj + end);
  coarse.edge.assign(edge, edge + end);
}

}  // namespace

void contract(const LevelGraph& fine, const ClusterLimits& limits, CoarseLevel& coarse,
              CoarsenWorkspace& workspace) {
  const int count = Clusters(fine, limits, coarse.cluster, workspace).form();
  contract_clusters(fine, count, coarse, workspace);
}

}  // namespace vlm
