// SPDX-License-Identifier: BSD-3-Clause
// Separators separate, are small and keep the sides alike; contraction loses no weight.
#include "metis/separator.hpp"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <atomic>
#include <numeric>
#include <thread>

#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "metis/vertex_cut.hpp"

namespace vlm {
namespace {

Sides separate(const WeightedGraph& graph, SeparatorWorkspace& workspace) {
  bool layered = true;
  WorkTeam alone;
  return find_separator(graph, {}, layered, workspace, alone);
}

WeightedGraph graph_of(const test::Matrix& m) {
  Adjacency graph;
  const Pattern pattern{m.n, View<const int>(m.ia), View<const int>(m.ja)};
  m.triangle() ? ladj_mod_velmora(pattern, graph) : ladjun_velmora(pattern, {}, graph);
  return weighted_graph(graph);
}

WeightedGraph with_random_weights(WeightedGraph graph, std::uint64_t seed) {
  test::Rng rng(seed);
  for (int& w : graph.weight) w = 1 + rng.below(9);
  return graph;
}

// Weight of the separator; no edge joins the sides.
template <class Side>
std::int64_t checked_weight(const WeightedGraph& graph, const Vector<Side>& side) {
  std::int64_t weight = 0;
  for (int v = 0; v < graph.n; ++v) {
    if (side[v] == 2) weight += graph.weight[v];
    for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k)
      EXPECT_NE(side[v] + side[graph.adj[k]], 1) << "edge between the sides";
  }
  return weight;
}

// A star, and the next one hangs on one of its rays.
WeightedGraph stars(int count, int rays) {
  test::Builder builder("stars", 2, count * (rays + 1));
  for (int s = 0; s < count; ++s) {
    const int hub = s * (rays + 1);
    for (int r = 1; r <= rays; ++r) builder.edge(hub, hub + r, 1);
    if (s > 0) builder.edge(hub, hub - rays, 1);
  }
  return graph_of(builder.finish());
}

WeightedGraph path(int n) { return graph_of(test::tridiagonal(n, 1)); }

TEST(Separator, VertexCutIsMinimum) {
  for (std::uint64_t seed = 1; seed <= 30; ++seed) {
    const int n = 11;
    test::Rng rng(seed);
    WeightedGraph graph = graph_of(test::random_spd(n, 3, seed));
    Vector<char> at_source(n, 0), at_sink(n, 0);
    for (int v = 0; v < n; ++v) {
      graph.weight[v] = 1 + rng.below(4);
      at_source[v] = rng.below(4) == 0;
      at_sink[v] = rng.below(4) == 0;
    }
    // All subsets: those that leave no way from the source to the sink.
    int least = 1 << 20;
    for (int removed = 0; removed < 1 << n; ++removed) {
      Vector<int> stack, seen(n, 0);
      int weight = 0;
      bool parted = true;
      for (int v = 0; v < n; ++v) {
        if (removed >> v & 1)
          weight += graph.weight[v];
        else if (at_source[v])
          stack.push_back(v);
      }
      while (!stack.empty()) {
        const int v = stack.back();
        stack.pop_back();
        if (seen[v]++) continue;
        parted = parted && !at_sink[v];
        for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k)
          if (!(removed >> graph.adj[k] & 1)) stack.push_back(graph.adj[k]);
      }
      if (parted) least = std::min(least, weight);
    }
    const VertexCut cut = minimum_vertex_cut(graph, at_source, at_sink);
    for (const Vector<int>& side : {cut.near_source, cut.near_sink}) {
      EXPECT_EQ(checked_weight(graph, side), least) << "seed " << seed;
      for (int v = 0; v < n; ++v) {
        EXPECT_FALSE(at_source[v] && side[v] == 1);
        EXPECT_FALSE(at_sink[v] && side[v] == 0);
      }
    }
  }
}

TEST(Separator, IsSmallAndLeavesLikeSides) {
  const struct {
    const char* name;
    WeightedGraph graph;
    int most;
  } cases[] = {{"grid 60", graph_of(test::poisson2d(60)), 60},
               {"grid 20", graph_of(test::poisson2d(20)), 20},
               // A slanted plane has three quarters of the vertices of a straight one, 324.
               {"cube 18", graph_of(test::poisson3d(18)), 260},
               {"path", path(5000), 1},
               {"stars", stars(40, 30), 2},
               {"components", graph_of(test::block_diagonal(40, 5, 5)), 0}};
  for (const auto& c : cases) {
    SeparatorWorkspace workspace;
    const Sides side = separate(c.graph, workspace);
    EXPECT_LE(checked_weight(c.graph, side), c.most) << c.name;
    for (const int s : {0, 1})
      EXPECT_GE(std::count(side.begin(), side.end(), s), c.graph.n / 4) << c.name;
    EXPECT_EQ(side, separate(c.graph, workspace)) << c.name << ": a second time";
  }
}

TEST(Separator, HeedsWeights) {
  // A heavy column in the middle of a grid: the separator goes around it, the sides still weigh
  // alike.
  const int g = 31;
  WeightedGraph graph = graph_of(test::poisson2d(g));
  for (int i = 0; i < g; ++i) graph.weight[i * g + g / 2] = 50;
  SeparatorWorkspace workspace;
  const Sides side = separate(graph, workspace);
  EXPECT_LE(checked_weight(graph, side), 2 * 49 + 2 * g);
  std::int64_t weight[3] = {0, 0, 0};
  for (int v = 0; v < graph.n; ++v) weight[side[v]] += graph.weight[v];
  const double total = static_cast<double>(weight[0] + weight[1] + weight[2]);
  EXPECT_LE(static_cast<double>(std::max(weight[0], weight[1])), 0.61 * total);
}

TEST(Separator, SeparatesWhateverTheGraph) {
  SeparatorWorkspace workspace;
  for (std::uint64_t seed = 1; seed <= 20; ++seed)
    for (const int degree : {1, 3, 9}) {
      const WeightedGraph graph = with_random_weights(
          graph_of(test::random_spd(20 + 60 * static_cast<int>(seed), degree, seed)), seed);
      checked_weight(graph, separate(graph, workspace));
    }
  for (const int n : {1, 2, 3, 130}) {
    checked_weight(path(n), separate(path(n), workspace));
    const WeightedGraph full = graph_of(test::dense(n, 1));
    checked_weight(full, separate(full, workspace));
  }
}

TEST(Separator, MovesKeepTheBooks) {
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    const WeightedGraph graph = with_random_weights(graph_of(test::random_spd(400, 4, seed)), seed);
    Separation separation;
    separation.set_limits({});
    separation.load(level_of(graph), Sides(graph.n, 1));
    separation.grow_from(static_cast<int>(seed));
    double before = separation.cost();
    for (const bool cut : {false, true, false}) {
      cut ? separation.cut_through_band(2, 0.3) : separation.refine();
      EXPECT_LE(separation.cost(), before) << "seed " << seed;
      before = separation.cost();
      std::int64_t weight[3] = {0, 0, 0};
      for (int v = 0; v < graph.n; ++v) weight[separation.sides()[v]] += graph.weight[v];
      for (const int s : {0, 1, 2}) EXPECT_EQ(separation.weight(s), weight[s]) << "seed " << seed;
      EXPECT_EQ(checked_weight(graph, separation.sides()), weight[2]);
    }
  }
}

// The same with the help of a team, which finds work in the smallest graph.
Sides separate_in_team(const WeightedGraph& graph, int threads) {
  DissectionTuning tuning;
  tuning.least_shared = 1;
  WorkTeam team(threads);
  std::atomic<bool> done = false;
  Sides side;
#pragma omp parallel num_threads(threads)
  {
    if (omp_get_thread_num() == 0) {
      SeparatorWorkspace workspace;
      bool layered = true;
      side = find_separator(graph, tuning, layered, workspace, team);
      done = true;
    }
    while (!done)
      if (!team.help()) std::this_thread::yield();
  }
  return side;
}

TEST(Separator, OfATeamSeparatesAndIsThatOfOneThread) {
  const struct {
    const char* name;
    WeightedGraph graph;
  } cases[] = {{"weighted grid", with_random_weights(graph_of(test::poisson2d(150)), 1)},
               {"stars", with_random_weights(stars(500, 50), 2)},
               {"path", path(30000)},
               {"components", graph_of(test::block_diagonal(5000, 5, 5))},
               {"dense row", graph_of(test::arrow(20000, true, 3))},
               {"one star", stars(1, 20000)},
               {"random", graph_of(test::random_spd(20000, 4, 1))}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Sides one = separate_in_team(c.graph, 1);
    checked_weight(c.graph, one);
    for (const int threads : {2, 3, 5, 8})
      EXPECT_EQ(separate_in_team(c.graph, threads), one) << threads << " threads";
  }
}

TEST(Separator, ContractionKeepsWeightsAndEdges) {
  CoarsenWorkspace workspace;
  WorkTeam alone;
  for (const WeightedGraph& graph : {graph_of(test::poisson2d(17)), stars(5, 20), path(100),
                                     with_random_weights(graph_of(test::random_spd(200, 6, 1)), 2)})
    for (const int members : {2, 3, 4}) {
      CoarseLevel coarse;
      contract(level_of(graph), {members, 40}, coarse, workspace, alone);
      const WeightedGraph& small = coarse.graph;
      EXPECT_LT(small.n, 0.8 * graph.n);
      Vector<int> weight(small.n, 0);
      for (int v = 0; v < graph.n; ++v) weight[coarse.cluster[v]] += graph.weight[v];
      EXPECT_EQ(weight, small.weight);
      EXPECT_LE(*std::ranges::max_element(weight), 40);
      // Edges between two clusters, from both graphs.
      Vector<int> many(static_cast<std::size_t>(small.n) * small.n, 0);
      for (int v = 0; v < graph.n; ++v)
        for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k)
          if (const int c = coarse.cluster[v], d = coarse.cluster[graph.adj[k]]; c != d)
            ++many[static_cast<std::size_t>(c) * small.n + d];
      for (int c = 0; c < small.n; ++c)
        for (int k = small.ptr[c]; k < small.ptr[c + 1]; ++k)
          many[static_cast<std::size_t>(c) * small.n + small.adj[k]] -= coarse.edge[k];
      EXPECT_TRUE(std::ranges::all_of(many, [](int m) { return m == 0; }));
    }
}

}  // namespace
}  // namespace vlm
