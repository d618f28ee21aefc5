// SPDX-License-Identifier: BSD-3-Clause
#include "metis/separator.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "base/memory.hpp"
#include "metis/metis_calls.hpp"
#include "metis/vertex_cut.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

// Graph with edge weights too; an empty list stands for ones.
struct EdgeWeightedGraph {
  WeightedGraph graph;
  Vector<int> edge;
};

// Clusters of neighbours: each vertex that is still free takes its free neighbours along, those
// tied by the heaviest edges first when edges have weights; one left alone joins the
// neighbouring cluster it is tied to most.
Vector<int> form_clusters(const EdgeWeightedGraph& fine, int cluster_size, int& count) {
  const WeightedGraph& g = fine.graph;
  Vector<int> cluster(g.n, none), size;
  Vector<std::pair<int, int>> candidates;  // (-edge weight, vertex)
  size.reserve(g.n / 3);
  for (int v = 0; v < g.n; ++v) {
    if (cluster[v] != none) continue;
    candidates.clear();
    int best = none, tie = -1;  // the cluster next to v with the heaviest edge
    for (int k = g.ptr[v]; k < g.ptr[v + 1]; ++k) {
      const int c = cluster[g.adj[k]], w = fine.edge.empty() ? 1 : fine.edge[k];
      if (c == none) {
        candidates.emplace_back(-w, g.adj[k]);
      } else if (w > tie || (w == tie && size[c] < size[best])) {
        best = c;
        tie = w;
      }
    }
    if (candidates.empty() && best != none && size[best] < 2 * cluster_size) {
      cluster[v] = best;
      ++size[best];
      continue;
    }
    if (static_cast<int>(candidates.size()) >= cluster_size) {
      if (!fine.edge.empty())
        std::nth_element(candidates.begin(), candidates.begin() + (cluster_size - 1),
                         candidates.end());
      candidates.resize(cluster_size - 1);
    }
    const int c = static_cast<int>(size.size());
    cluster[v] = c;
    for (const auto& candidate : candidates) cluster[candidate.second] = c;
    size.push_back(static_cast<int>(candidates.size()) + 1);
  }
  count = static_cast<int>(size.size());
  return cluster;
}

// The graph of the clusters; an edge weighs as much as the edges it stands for.
EdgeWeightedGraph contract(const EdgeWeightedGraph& fine, const Vector<int>& cluster, int count) {
  const WeightedGraph& g = fine.graph;
  Vector<int> first(count + 1, 0), member(g.n), place(count, none);
  for (const int c : cluster) ++first[c + 1];
  for (int c = 0; c < count; ++c) first[c + 1] += first[c];
  Vector<int> next(first.begin(), first.end() - 1);
  for (int v = 0; v < g.n; ++v) member[next[cluster[v]]++] = v;

  EdgeWeightedGraph coarse;
  WeightedGraph& out = coarse.graph;
  out.n = count;
  out.ptr.assign(count + 1, 0);
  out.weight.assign(count, 0);
  out.adj.reserve(g.adj.size() / 2);
  coarse.edge.reserve(g.adj.size() / 2);
  for (int c = 0; c < count; ++c) {
    const int begin = static_cast<int>(out.adj.size());
    for (int m = first[c]; m < first[c + 1]; ++m) {
      const int v = member[m];
      out.weight[c] += g.weight[v];
      for (int k = g.ptr[v]; k < g.ptr[v + 1]; ++k) {
        const int d = cluster[g.adj[k]];
        if (d == c) continue;
        const int w = fine.edge.empty() ? 1 : fine.edge[k];
        if (place[d] >= begin) {
          coarse.edge[place[d]] += w;
        } else {
          place[d] = static_cast<int>(out.adj.size());
          out.adj.push_back(d);
          coarse.edge.push_back(w);
        }
      }
    }
    out.ptr[c + 1] = static_cast<int>(out.adj.size());
  }
  return coarse;
}

// Vertex separator of the clusters, as a thick separator of the vertices.
bool bisect_clusters(const WeightedGraph& graph, const DissectionTuning& tuning,
                     Vector<int>& side) {
  Vector<Vector<int>> clusters;
  EdgeWeightedGraph coarse{graph, {}};
  while (coarse.graph.n > tuning.coarse_enough &&
         static_cast<int>(clusters.size()) < tuning.contractions) {
    int count = 0;
    Vector<int> cluster = form_clusters(coarse, tuning.cluster_size, count);
    if (count > 0.8 * coarse.graph.n) break;
    coarse = contract(coarse, cluster, count);
    clusters.push_back(std::move(cluster));
  }
  if (!metis_vertex_separator(coarse.graph, side)) return false;
  for (; !clusters.empty(); clusters.pop_back()) {
    const Vector<int>& cluster = clusters.back();
    Vector<int> finer(cluster.size());
    std::transform(cluster.begin(), cluster.end(), finer.begin(), [&](int c) { return side[c]; });
    side = std::move(finer);
  }
  return true;
}

// The band around a separator: its vertices, and the next ones layer by layer.
Vector<int> band_around(const WeightedGraph& graph, const Vector<int>& side, int layers,
                        Vector<int>& place) {
  Vector<int> band;
  place.assign(graph.n, none);
  const auto take = [&](int v) {
    place[v] = static_cast<int>(band.size());
    band.push_back(v);
  };
  for (int v = 0; v < graph.n; ++v)
    if (side[v] == 2) take(v);
  std::size_t begin = 0;
  for (int layer = 0; layer < layers; ++layer)
    for (const std::size_t end = band.size(); begin < end; ++begin)
      for (int k = graph.ptr[band[begin]]; k < graph.ptr[band[begin] + 1]; ++k)
        if (place[graph.adj[k]] == none) take(graph.adj[k]);
  return band;
}

// Replaces a separator by a minimum vertex cut in the band around it.
void thin_separator(const WeightedGraph& graph, int layers, Vector<int>& side) {
  Vector<int> place;
  const Vector<int> band = band_around(graph, side, layers, place);
  WeightedGraph inside;
  inside.n = static_cast<int>(band.size());
  inside.ptr.push_back(0);
  Vector<char> at_source(inside.n, 0), at_sink(inside.n, 0);
  for (int b = 0; b < inside.n; ++b) {
    const int v = band[b];
    inside.weight.push_back(graph.weight[v]);
    for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k) {
      const int u = graph.adj[k];
      if (place[u] != none)
        inside.adj.push_back(place[u]);
      else
        (side[u] == 0 ? at_source : at_sink)[b] = 1;
    }
    inside.ptr.push_back(static_cast<int>(inside.adj.size()));
  }
  const VertexCut cut = minimum_vertex_cut(inside, at_source, at_sink);

  // Of the two extreme cuts the one that leaves the sides more alike.
  std::int64_t beyond = 0;
  for (int v = 0; v < graph.n; ++v)
    if (place[v] == none) beyond += side[v] == 0 ? graph.weight[v] : -graph.weight[v];
  const auto imbalance = [&](const Vector<int>& part) {
    std::int64_t difference = beyond;
    for (int b = 0; b < inside.n; ++b)
      if (part[b] != 2) difference += part[b] == 0 ? inside.weight[b] : -inside.weight[b];
    return std::abs(difference);
  };
  const Vector<int>& better =
      imbalance(cut.near_source) <= imbalance(cut.near_sink) ? cut.near_source : cut.near_sink;
  for (int b = 0; b < inside.n; ++b) side[band[b]] = better[b];
}

}  // namespace

bool find_separator(const WeightedGraph& graph, const DissectionTuning& tuning, MeshKind& kind,
                    Vector<int>& side) {
  if (kind != MeshKind::solid && graph.n > tuning.coarse_enough) {
    if (!bisect_clusters(graph, tuning, side)) return false;
    const auto count = [&](int s) { return std::count(side.begin(), side.end(), s); };
    if (count(2) < graph.n / 4) thin_separator(graph, tuning.band_layers, side);
    const auto size = static_cast<double>(count(2));
    if (size * size <= tuning.thin_factor * graph.n && count(0) > 0 && count(1) > 0) {
      kind = MeshKind::thin;
      return true;
    }
    kind = MeshKind::solid;
  }
  return metis_vertex_separator(graph, side);
}

}  // namespace vlm
