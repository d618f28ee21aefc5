// SPDX-License-Identifier: BSD-3-Clause
// Minimum degree and minimum fill: exact costs, and orders near the best ones that there are.
#include "ordering/amd.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "graph/compress.hpp"
#include "graph/symbolic_cost.hpp"
#include "reference.hpp"

namespace vlm {
namespace {

constexpr EliminationScore scores[] = {EliminationScore::degree, EliminationScore::fill};

WeightedGraph graph_of(const test::Matrix& m) {
  Adjacency graph;
  ladj_mod_velmora({m.n, View<const int>(m.ia), View<const int>(m.ja)}, graph);
  return weighted_graph(graph);
}

Vector<int> from_one(const Vector<int>& order) {
  Vector<int> perm(order);
  for (int& v : perm) ++v;
  return perm;
}

double operations(const WeightedGraph& graph, EliminationScore score) {
  Vector<int> order;
  return minimum_score(graph, 0, score, order).flops;
}

TEST(MinimumScore, CostIsExact) {
  for (const test::Matrix& m :
       {test::poisson2d(13), test::poisson3d(6), test::random_spd(150, 4, 1),
        test::random_spd(90, 20, 2), test::arrow(40, true, 3), test::block_diagonal(6, 5, 5),
        test::diagonal_plus_few(12, 0, 7), test::dense(17, 8), test::tridiagonal(64, 9),
        test::dense(1, 10), test::saddle_point(4, 12), test::interior_point_kkt(9, 3, 13)}) {
    const WeightedGraph graph = graph_of(m);
    const auto counted = [&](const Vector<int>& order) {
      const test::SymbolicReference reference = test::eliminate(m, from_one(order));
      FactorCost cost{static_cast<double>(reference.nnz_l), 0};
      for (int j = 1; j <= m.n; ++j) cost.flops += std::pow(reference.colcnt[j], 2);
      return cost;
    };
    for (const EliminationScore score : scores) {
      Vector<int> order;
      const FactorCost cost = minimum_score(graph, 0, score, order);
      ASSERT_TRUE(test::is_permutation(from_one(order))) << m.name;
      const FactorCost expected = counted(order);
      EXPECT_EQ(cost.entries, expected.entries) << m.name;
      EXPECT_NEAR(cost.flops, expected.flops, 1e-9 * expected.flops) << m.name;
      // The separate count agrees, for this and for a random order, and postorders on the way.
      for (const bool shuffled : {false, true}) {
        if (shuffled) {
          const auto random = test::Rng(5).permutation(m.n);
          std::ranges::transform(random, order.begin(), [](int v) { return v - 1; });
        }
        const FactorCost again = postorder_and_cost(graph, order);
        EXPECT_EQ(again.entries, counted(order).entries) << m.name;
        const test::SymbolicReference after = test::eliminate(m, from_one(order));
        Vector<int> size(m.n + 1, 1);  // subtrees end at their root when postordered
        for (int j = 1; j <= m.n; ++j) {
          if (const int up = after.parent[j]; up > 0) size[up] += size[j];
          for (int i = j - size[j] + 1; i < j; ++i) EXPECT_LE(after.parent[i], j) << m.name;
        }
      }
    }
  }
}

TEST(MinimumScore, HaloCountsButIsNotOrdered) {
  // The upper half of a grid as halo of the lower half: the cost is that of its columns.
  const int g = 12, inner = g * g / 2;
  const test::Matrix m = test::poisson2d(g);
  for (const EliminationScore score : scores) {
    Vector<int> order;
    const FactorCost cost = minimum_score(graph_of(m), m.n - inner, score, order);
    ASSERT_EQ(static_cast<int>(order.size()), inner);
    Vector<int> perm(m.n);
    std::iota(perm.begin(), perm.end(), 1);
    for (int k = 0; k < inner; ++k) perm[k] = order[k] + 1;
    ASSERT_TRUE(test::is_permutation(perm));
    const test::SymbolicReference reference = test::eliminate(m, perm);
    const double expected =
        std::accumulate(reference.colcnt.begin() + 1, reference.colcnt.begin() + 1 + inner, 0.0);
    EXPECT_EQ(cost.entries, expected);
  }
}

// --- against all orders -----------------------------------------------------------------------

/// A graph of at most sixteen vertices, neighbours by a bit each.
struct SmallGraph {
  Vector<unsigned> neighbours;
  Vector<int> weight;
  explicit SmallGraph(int n) : neighbours(n, 0u), weight(n, 1) {}
  int n() const { return static_cast<int>(weight.size()); }
  void join(int i, int j) {
    neighbours[i] |= 1u << j;
    neighbours[j] |= 1u << i;
  }
  WeightedGraph weighted() const {
    WeightedGraph g;
    g.n = n();
    g.weight = weight;
    g.ptr.push_back(0);
    for (int i = 0; i < g.n; ++i) {
      for (int j = 0; j < g.n; ++j)
        if (neighbours[i] >> j & 1) g.adj.push_back(j);
      g.ptr.push_back(static_cast<int>(g.adj.size()));
    }
    return g;
  }
};

/// Weight of the vertices that v has an entry with, once those in `gone` are eliminated.
int rows_below(const SmallGraph& g, int v, unsigned gone) {
  unsigned reached = 1u << v, met = g.neighbours[v];
  for (unsigned open; (open = met & gone & ~reached) != 0;) {
    const int u = std::countr_zero(open);
    reached |= 1u << u;
    met |= g.neighbours[u];
  }
  int weight = 0;
  for (int j = 0; j < g.n(); ++j)
    if ((met & ~gone & ~(1u << v)) >> j & 1) weight += g.weight[j];
  return weight;
}

/// Operations of the best order: what is gone tells what a vertex costs, not in which sequence.
double least_operations(const SmallGraph& g) {
  Vector<double> least(std::size_t{1} << g.n(), std::numeric_limits<double>::max());
  least[0] = 0;
  for (unsigned gone = 0; gone + 1 < least.size(); ++gone)
    for (int v = 0; v < g.n(); ++v) {
      if (gone >> v & 1) continue;
      double& next = least[gone | 1u << v];
      const double cost = block_cost(g.weight[v], rows_below(g, v, gone)).flops;
      next = std::min(next, least[gone] + cost);
    }
  return least.back();
}

// A leaf of a tree fills nothing, any other vertex does: what is left is a tree at each step.
TEST(MinimumScore, NothingIsFilledInTrees) {
  test::Rng random(7);
  for (int trial = 0; trial < 60; ++trial) {
    SmallGraph g(3 + trial % 14);
    for (int v = 1; v < g.n(); ++v) g.join(random.below(v), v);
    Vector<int> order;
    const FactorCost cost = minimum_score(g.weighted(), 0, EliminationScore::fill, order);
    EXPECT_EQ(cost.entries, 2 * g.n() - 1) << "trial " << trial;
  }
}

TEST(MinimumScore, OrdersOfSmallGraphsAreNearTheBest) {
  test::Rng random(3);
  for (const bool weighted : {false, true}) {
    double sum[2] = {0, 0}, best = 0;  // of ratios
    for (int trial = 0; trial < 60; ++trial) {
      SmallGraph g(10);
      const int edges = 10 + trial % 15;
      for (int k = 0; k < edges; ++k) {
        const int i = random.below(g.n()), j = random.below(g.n());
        if (i != j) g.join(i, j);
      }
      if (weighted)
        for (int& w : g.weight) w = 1 + random.below(6);
      const double least = least_operations(g);
      best += 1;
      for (const int k : {0, 1}) {
        const double own = operations(g.weighted(), scores[k]);
        EXPECT_GE(own, least);
        sum[k] += own / least;
      }
    }
    EXPECT_LT(sum[1], 1.015 * best) << (weighted ? "weights" : "no weights");
  }
}

// --- meshes -----------------------------------------------------------------------------------

TEST(MinimumScore, FillSavesOperationsInMeshes) {
  double logarithms = 0;
  int count = 0;
  for (const test::Matrix& m :
       {test::poisson2d(30), test::poisson2d(60), test::plate(60, 1), test::poisson3d(10),
        test::poisson3d(14), test::saddle_point(6, 1), test::interior_point_kkt(20, 4, 1)}) {
    const WeightedGraph graph = graph_of(m);
    const double ratio =
        operations(graph, EliminationScore::fill) / operations(graph, EliminationScore::degree);
    EXPECT_LT(ratio, 1) << m.name;
    logarithms += std::log(ratio);
    ++count;
  }
  EXPECT_LT(std::exp(logarithms / count), 0.85);
}

// The weight of a vertex stands for so many like it; all weights multiplied leave the order.
TEST(MinimumScore, WeightsStandForVertices) {
  const WeightedGraph light = graph_of(test::poisson2d(12));
  Vector<int> order, scaled;
  minimum_score(light, 0, EliminationScore::fill, order);
  // The largest weights make fills of 2^56 and more.
  for (const int factor : {1 << 8, 1 << 20}) {
    WeightedGraph heavy = light;
    for (int& w : heavy.weight) w *= factor;
    scaled.clear();
    const FactorCost cost = minimum_score(heavy, 0, EliminationScore::fill, scaled);
    ASSERT_TRUE(test::is_permutation(from_one(scaled)));
    const FactorCost counted = postorder_and_cost(heavy, scaled);
    EXPECT_NEAR(cost.flops, counted.flops, 1e-9 * counted.flops) << factor;
    EXPECT_LT(cost.flops,
              1.3 * std::pow(factor, 3.0) * operations(light, EliminationScore::degree));
  }
}

}  // namespace
}  // namespace vlm
