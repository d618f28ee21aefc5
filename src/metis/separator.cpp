// SPDX-License-Identifier: BSD-3-Clause
#include "metis/separator.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

#include "base/progress.hpp"

namespace vlm {
namespace {

// The best of several grown separators of the coarsest graph.
Sides grow_separators(const LevelGraph& graph, int attempts, Separation& separation) {
  SplitMix random(static_cast<std::uint64_t>(graph.n));
  double least = std::numeric_limits<double>::max();
  Sides best;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    separation.load(graph, Sides(graph.n, 1));
    separation.grow_from(random.below(graph.n));
    separation.refine();
    const double cost = separation.cost();
    if (cost >= least) continue;
    least = cost;
    best = separation.sides();
  }
  return best;
}

// Contractions of a graph, and the way back.
class Multilevel {
 public:
  Multilevel(const LevelGraph& whole, std::int64_t most, const DissectionTuning& tuning,
             MultilevelWorkspace& workspace, WorkTeam& team)
      : tuning_(tuning), most_(most), whole_(whole), w_(workspace), team_(team) {}

  // Leaves the separator in the workspace's separation.
  void separate() {
    contract_all();
    Sides side = grow_separators(coarsest(), tuning_.attempts, w_.separation);
    if (levels_.empty())
      w_.separation.load(whole_, std::move(side));
    else
      refine_up(std::move(side));
  }

 private:
  LevelGraph coarsest() const { return levels_.empty() ? whole_ : level_of(levels_.back()); }

  void contract_all() {
    while (coarsest().n > tuning_.coarse_enough) {
      pulse();
      CoarseLevel coarse;
      const LevelGraph at = coarsest();
      const int members = levels_.empty() ? tuning_.first_cluster : tuning_.cluster_size;
      contract(at, {members, most_}, coarse, w_.coarsen, team_);
      if (coarse.graph.n > 0.9 * at.n) break;
      levels_.push_back(std::move(coarse));
    }
    if (whole_.n > most_kept) w_.coarsen = {};
  }

  // Carries the sides of the coarsest level back to the whole graph.
  void refine_up(Sides side) {
    while (!levels_.empty()) {
      {
        const CoarseLevel level = std::move(levels_.back());
        levels_.pop_back();
        w_.separation.load(coarsest(), side, level.cluster, team_);
      }
      w_.separation.refine();
      if (!levels_.empty()) side = w_.separation.sides();
    }
  }

  const DissectionTuning& tuning_;
  const std::int64_t most_;  // weight of a cluster
  LevelGraph whole_;
  MultilevelWorkspace& w_;
  WorkTeam& team_;
  Vector<CoarseLevel> levels_;
};

// Vertices by their distance from a start: those at distance d lie from starts[d] on.
struct Layers {
  Vector<int> vertex, starts;
};

// Layers around a vertex; further components follow as if they hung on the first.
void walk_layers(const LevelGraph& g, int start, Layers& out) {
  Vector<char> seen(g.n, 0);
  out.vertex.clear();
  out.vertex.reserve(g.n);
  out.starts.assign(1, 0);
  int next = 0;
  const auto take = [&](int v) {
    seen[v] = 1;
    out.vertex.push_back(v);
  };
  take(start);
  for (int begin = 0; begin < g.n;) {
    const int end = static_cast<int>(out.vertex.size());
    out.starts.push_back(end);
    for (int m = begin; m < end; ++m)
      for (int k = g.ptr[out.vertex[m]]; k < g.ptr[out.vertex[m] + 1]; ++k)
        if (!seen[g.adj[k]]) take(g.adj[k]);
    begin = end;
    if (end < static_cast<int>(out.vertex.size()) || end == g.n) continue;
    while (seen[next]) ++next;
    take(next);
  }
}

// The best layer as a separator.
Sides layer_separator(const LevelGraph& g, std::int64_t total, const Separation& separation) {
  Layers layers;
  walk_layers(g, 0, layers);
  walk_layers(g, layers.vertex.back(), layers);
  double least = std::numeric_limits<double>::max();
  std::size_t best = 0;
  std::int64_t before = 0;
  for (std::size_t d = 0; d + 1 < layers.starts.size(); ++d) {
    std::int64_t here = 0;
    for (int m = layers.starts[d]; m < layers.starts[d + 1]; ++m)
      here += g.weight[layers.vertex[m]];
    const double cost = separation.cost_of({before, total - before - here, here});
    before += here;
    if (cost >= least) continue;
    least = cost;
    best = d;
  }
  Sides side(g.n, 1);
  for (int m = 0; m < layers.starts[best + 1]; ++m)
    side[layers.vertex[m]] = m < layers.starts[best] ? 0 : 2;
  return side;
}

}  // namespace

Sides find_separator(const WeightedGraph& graph, const DissectionTuning& tuning, bool& layered,
                     SeparatorWorkspace& workspace, WorkTeam& team) {
  const LevelGraph whole = level_of(graph);
  const std::int64_t total =
      std::accumulate(graph.weight.begin(), graph.weight.end(), std::int64_t{0});
  const std::int64_t most = std::max<std::int64_t>(1, 3 * total / (2 * tuning.coarse_enough));
  const RefineLimits limits{tuning.larger_side, tuning.passes, tuning.idle_moves,
                            tuning.unlike_sides};
  Separation* best = &workspace.multilevel.separation;
  Separation& layer = workspace.layer;
  const auto separate = [&](int which) {
    if (which == 0) {
      best->set_limits(limits);
      Multilevel(whole, most, tuning, workspace.multilevel, team).separate();
    } else {
      layer.set_limits(limits, total);
      layer.load(whole, layer_separator(whole, total, layer));
    }
  };
  if (graph.n < tuning.least_shared) {  // too small for two threads
    for (int which = 0; which < (layered ? 2 : 1); ++which) separate(which);
  } else {
    team.loop(layered ? 2 : 1, separate);
  }
  if (layered) {
    const double cost = best->cost(), ratio = layer.cost() / std::max(cost, 1e-9);
    layered = ratio < tuning.hopeless_layer;
    if (ratio < tuning.promising_layer) layer.refine();
    if (layer.cost() < cost) best = &layer;
  }
  best->cut_through_band(tuning.band_layers, tuning.band_share);
  Sides sides = best->take_sides();
  if (graph.n > most_kept) workspace = {};
  return sides;
}

}  // namespace vlm
