// SPDX-License-Identifier: BSD-3-Clause
#include "metis/coarsen.hpp"

#include <algorithm>
#include <cstddef>

namespace vlm {
namespace {

constexpr int none = -1;

// Vertices of a slice, and edges of a part of the contraction: enough for a few microseconds.
constexpr int slice_vertices = 8192;
constexpr int part_clusters = 4096;
// Arrays as long as there are clusters, one for each part.
constexpr int most_parts = 16;

// Clusters in the making, of the vertices of a slice: the members of a cluster are chained from
// head[c].  Other vertices are not looked at.
class Clusters {
 public:
  Clusters(const LevelGraph& graph, const ClusterLimits& limits, int* cluster, CoarsenWorkspace& w,
           ClusterLists& lists, int begin, int end)
      : g_(graph),
        limits_(limits),
        cluster_(cluster),
        next_(w.next.data()),
        meeting_(w.meeting),
        w_(lists),
        begin_(begin),
        end_(end) {
    w_.head.clear();
    w_.size.clear();
    w_.weight.clear();
    w_.waiting.clear();
  }

  void form() {
    // In the sequence of the vertices clusters would be stripes, and the coarse graph would know
    // of separators along and across them only; so they are shuffled, in blocks that the cache
    // holds.
    constexpr int block = 64;
    int turn[block];
    SplitMix random(static_cast<std::uint64_t>(end_));
    for (int first = begin_; first < end_; first += block) {
      const int length = std::min(block, end_ - first);
      for (int i = 0; i < length; ++i) {
        const int j = random.below(i + 1);
        turn[i] = turn[j];
        turn[j] = first + i;
      }
      for (int i = 0; i < length; ++i)
        if (cluster_[turn[i]] == none) take(turn[i]);
    }
  }

  // Vertices that found nobody in their slices.
  void settle(const Vector<ClusterLists>& slices) {
    for (const ClusterLists& slice : slices)
      for (const int v : slice.waiting)
        if (cluster_[v] == none) take(v);
  }

 private:
  bool inside(int u) const { return u >= begin_ && u < end_; }
  bool whole() const { return begin_ == 0 && end_ == g_.n; }

  // Opens a cluster with v and the free neighbours that it is tied to most; where these do not
  // fill it, with theirs.
  void take(int v) {
    const int c = static_cast<int>(w_.head.size());
    std::int64_t weight = g_.weight[v];
    int members = 1, last = v, head = v;
    cluster_[v] = c;
    next_[v] = none;
    for (int at = v; members < limits_.members;) {
      const int u = heaviest_free(at, weight);
      if (u == none) {
        if (at == last) break;
        at = last;
        continue;
      }
      cluster_[u] = c;
      next_[u] = head;
      head = last = u;
      weight += g_.weight[u];
      ++members;
    }
    if (members == 1) {
      if (join(v)) return;
      if (!whole()) {
        cluster_[v] = none;
        w_.waiting.push_back(v);
        return;
      }
    }
    w_.head.push_back(head);
    w_.size.push_back(members);
    w_.weight.push_back(weight);
  }

  int heaviest_free(int v, std::int64_t weight) const {
    int best = none, tie = 0;
    for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) {
      const int u = g_.adj[k];
      if (!inside(u) || cluster_[u] != none) continue;
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
    next_[v] = w_.head[c];
    w_.head[c] = v;
    ++w_.size[c];
    w_.weight[c] += g_.weight[v];
  }

  // Puts a vertex without free neighbours into a cluster next to it.
  bool join(int v) {
    int best = none, tie = 0;
    for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) {
      if (!inside(g_.adj[k])) continue;
      const int c = cluster_[g_.adj[k]], w = g_.edge == nullptr ? 1 : g_.edge[k];
      if (w <= tie || c == none || !has_room(c, v)) continue;
      best = c;
      tie = w;
    }
    if (best == none) return whole() && pair_up(v);
    add(v, best);
    return true;
  }

  // Puts a vertex to one that waits at a common neighbour, or lets it wait there.
  bool pair_up(int v) {
    if (!meets_) meeting_.assign(g_.n, none);
    meets_ = true;
    constexpr int looked_at = 4;
    const int stop = std::min(g_.ptr[v] + looked_at, g_.ptr[v + 1]);
    for (int k = g_.ptr[v]; k < stop; ++k) {
      const int u = meeting_[g_.adj[k]];
      if (u == none || !has_room(cluster_[u], v)) continue;
      add(v, cluster_[u]);
      return true;
    }
    for (int k = g_.ptr[v]; k < stop; ++k) meeting_[g_.adj[k]] = v;
    return false;
  }

  const LevelGraph& g_;
  const ClusterLimits& limits_;
  int* const cluster_;
  int* const next_;
  Vector<int>& meeting_;
  ClusterLists& w_;
  const int begin_, end_;
  bool meets_ = false;  // the meeting places are in use
};

// Forms the clusters of a graph; their number.
int form_clusters(const LevelGraph& g, const ClusterLimits& limits, Vector<int>& cluster,
                  CoarsenWorkspace& w, WorkTeam& team) {
  cluster.resize(g.n);
  if (static_cast<int>(w.next.size()) < g.n) w.next.resize(g.n);
  const int count = std::max(1, g.n / slice_vertices);
  if (count == 1) {
    std::fill(cluster.begin(), cluster.end(), none);
    Clusters(g, limits, cluster.data(), w, w.clusters, 0, g.n).form();
    return static_cast<int>(w.clusters.head.size());
  }
  w.slices.resize(count);
  team.loop(count, [&](int s) {
    const Slice slice(g.n, s, count);
    std::fill(cluster.begin() + slice.begin, cluster.begin() + slice.end, none);
    Clusters(g, limits, cluster.data(), w, w.slices[s], slice.begin, slice.end).form();
  });
  Vector<int> first(count + 1, 0);
  for (int s = 0; s < count; ++s)
    first[s + 1] = first[s] + static_cast<int>(w.slices[s].head.size());
  Clusters rest(g, limits, cluster.data(), w, w.clusters, 0, g.n);
  ClusterLists& all = w.clusters;
  all.head.resize(first[count]);
  all.size.resize(first[count]);
  all.weight.resize(first[count]);
  team.loop(count, [&](int s) {
    const ClusterLists& part = w.slices[s];
    std::copy(part.head.begin(), part.head.end(), all.head.begin() + first[s]);
    std::copy(part.size.begin(), part.size.end(), all.size.begin() + first[s]);
    std::copy(part.weight.begin(), part.weight.end(), all.weight.begin() + first[s]);
    const Slice slice(g.n, s, count);
    for (int v = slice.begin; v < slice.end; ++v)
      if (cluster[v] != none) cluster[v] += first[s];
  });
  rest.settle(w.slices);
  return static_cast<int>(all.head.size());
}

// Neighbours of some clusters, written from `end` on; the new end.  Whether an entry of `place`
// is of the cluster at hand shows at the place itself: the array needs no clearing.
int contract_part(const LevelGraph& g, const int* cluster, const Slice& part, CoarsenWorkspace& w,
                  Vector<int>& places, int end, WeightedGraph& out) {
  int* const place = places.data();
  int* const adj = w.adj.data();
  int* const edge = w.edge.data();
  for (int c = part.begin; c < part.end; ++c) {
    const int begin = end;
    for (int v = w.clusters.head[c]; v != none; v = w.next[v]) {
      for (int k = g.ptr[v]; k < g.ptr[v + 1]; ++k) {
        const int d = cluster[g.adj[k]];
        if (d == c) continue;
        const int tie = g.edge == nullptr ? 1 : g.edge[k];
        const int at = place[d];
        if (at >= begin && at < end && adj[at] == d) {
          edge[at] += tie;
        } else {
          place[d] = end;
          adj[end] = d;
          edge[end++] = tie;
        }
      }
    }
    out.weight[c] = static_cast<int>(w.clusters.weight[c]);
    out.ptr[c + 1] = end - begin;
  }
  return end;
}

// The graph of the clusters; an edge weighs as much as the edges it stands for.
void contract_clusters(const LevelGraph& g, int count, CoarseLevel& coarse, CoarsenWorkspace& w,
                       WorkTeam& team) {
  const int* const cluster = coarse.cluster.data();
  for (Growing<int>* list : {&w.adj, &w.edge})
    if (list->size() < g.ptr[g.n]) {
      list->release();
      list->extend(g.ptr[g.n]);
    }
  WeightedGraph& out = coarse.graph;
  out.n = count;
  out.ptr.resize(count + 1);
  out.ptr[0] = 0;
  out.weight.resize(count);
  // The graph is the same however many parts there are.
  const int parts = team.threads() > 1 ? std::clamp(count / part_clusters, 1, most_parts) : 1;
  if (static_cast<int>(w.place.size()) < parts) w.place.resize(parts);
  Vector<int> first(parts + 1, 0), end(parts);
  if (parts > 1)
    team.loop(parts, [&](int p) {
      const Slice part(count, p, parts);
      for (int c = part.begin; c < part.end; ++c)
        for (int v = w.clusters.head[c]; v != none; v = w.next[v])
          first[p + 1] += g.ptr[v + 1] - g.ptr[v];
    });
  for (int p = 0; p < parts; ++p) first[p + 1] += first[p];
  team.loop(parts, [&](int p) {
    if (static_cast<int>(w.place[p].size()) < count) w.place[p].resize(count);
    end[p] = contract_part(g, cluster, Slice(count, p, parts), w, w.place[p], first[p], out);
  });
  for (int c = 0; c < count; ++c) out.ptr[c + 1] += out.ptr[c];
  if (parts == 1) {
    out.adj.assign(w.adj.data(), w.adj.data() + end[0]);
    coarse.edge.assign(w.edge.data(), w.edge.data() + end[0]);
    return;
  }
  out.adj.resize(out.ptr[count]);
  coarse.edge.resize(out.ptr[count]);
  team.loop(parts, [&](int p) {
    const int to = out.ptr[Slice(count, p, parts).begin];
    std::copy(w.adj.data() + first[p], w.adj.data() + end[p], out.adj.data() + to);
    std::copy(w.edge.data() + first[p], w.edge.data() + end[p], coarse.edge.data() + to);
  });
}

}  // namespace

void contract(const LevelGraph& fine, const ClusterLimits& limits, CoarseLevel& coarse,
              CoarsenWorkspace& workspace, WorkTeam& team) {
  const int count = form_clusters(fine, limits, coarse.cluster, workspace, team);
  contract_clusters(fine, count, coarse, workspace, team);
}

}  // namespace vlm
