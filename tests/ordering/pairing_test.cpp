// SPDX-License-Identifier: BSD-3-Clause
/// Orders with pairs: weights of the compressed graph, exchanges along separators, and what is
/// left of both in degenerate graphs.
#include "graph/pairing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

#include "driver/match_driver.hpp"
#include "gallery.hpp"
#include "graph/ordering.hpp"
#include "graph/symbolic_cost.hpp"
#include "ordering/dissect.hpp"
#include "ordering/gepmmd.hpp"
#include "ordering/reorder1.hpp"
#include "reference.hpp"
#include "session.hpp"

namespace vlm {
namespace {

using test::Matrix;

MatchInput input_of(const Matrix& m) { return {m.n, m.ia.data(), m.ja.data(), m.a.data(), true}; }

/// Entries of L in an order of the nodes.
double fill_of(const Matrix& m, const Ordering& order) {
  Adjacency graph;
  uncompressed_graph(input_of(m), graph);
  Vector<int> sequence(order.perm);
  for (int& v : sequence) --v;
  return postorder_and_cost(weighted_graph(graph), sequence).entries;
}

void expect_neighbours(const PairedOrder& candidates, const Vector<int>& partner) {
  for (std::size_t k = 0; k < candidates.node.size(); ++k) {
    const int mate = partner[candidates.node[k]];
    ASSERT_EQ(candidates.block1x1[k], mate < 0);
    if (mate < 0) continue;
    ASSERT_EQ(candidates.node[k + 1], mate);
    ASSERT_FALSE(candidates.block1x1[++k]);
  }
}

Vector<int> partners_of(const PairedOrder& pairs) {
  Vector<int> partner(pairs.node.size(), -1);
  for (std::size_t k = 0; k < pairs.node.size(); k += pairs.block1x1[k] ? 1 : 2) {
    if (pairs.block1x1[k]) continue;
    partner[pairs.node[k]] = pairs.node[k + 1];
    partner[pairs.node[k + 1]] = pairs.node[k];
  }
  return partner;
}

TEST(Pairing, WeightsOfPairsSaveFill) {
  double fill[2] = {0, 0};  // over all seeds
  for (const std::uint64_t seed : {1, 2, 3}) {
    SCOPED_TRACE(seed);
    const Matrix m = test::saddle_point(13, seed);
    const MatchInput input = input_of(m);
    const PairedOrder pairs = reordering_matching_sym2x2(input, mps_velmora(input).perm);
    const OrderOptions options;
    for (const bool weighted : {false, true}) {
      const auto order_graph = [&](const Adjacency& graph, Ordering& order) {
        if (weighted) return order_by_method(options, graph, order);
        Adjacency plain = graph;
        plain.weight.clear();
        return order_by_method(options, plain, order);
      };
      Ordering order;
      PairedOrder candidates;
      ASSERT_EQ(mps_sym_velmora(input, pairs, order_graph, order, candidates), status_ok);
      EXPECT_TRUE(test::is_permutation(order.perm));
      EXPECT_TRUE(test::are_inverse(order.perm, order.invp));
      expect_neighbours(candidates, partners_of(pairs));
      fill[weighted] += fill_of(m, order);
    }
  }
  EXPECT_LT(fill[1], 0.97 * fill[0]) << fill[1] / fill[0];
}

// A node of weight w must be ordered as w nodes with the same neighbours would be.
TEST(Pairing, MinimumDegreeOfWeightedNodes) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    const Matrix m = test::random_spd(60, 3, seed);
    Adjacency graph;
    uncompressed_graph(input_of(m), graph);
    test::Rng rng(seed);
    Vector<int> first{0};
    for (int v = 0; v < m.n; ++v) {
      graph.weight.push_back(1 + rng.below(4));
      first.push_back(first.back() + graph.weight.back());
    }
    test::Builder builder("expanded", 2, first.back());
    for (int v = 0; v < m.n; ++v)
      for (int p = first[v]; p < first[v + 1]; ++p) {
        for (int q = p; q < first[v + 1]; ++q) builder.add(p, q, 1);
        for (int k = graph.xadj[v] - 1; k < graph.xadj[v + 1] - 1; ++k)
          for (int u = graph.adjncy[k] - 1, q = first[u]; u > v && q < first[u + 1]; ++q)
            builder.add(p, q, 1);
      }
    const Matrix expanded = builder.finish();
    Adjacency columns;
    uncompressed_graph(input_of(expanded), columns);

    Ordering nodes, reference, spread;
    const Vector<int> held{3, 1};
    cmd_velmora(graph, held, nodes);
    EXPECT_TRUE(test::is_permutation(nodes.perm));
    EXPECT_TRUE(std::equal(held.begin(), held.end(), nodes.perm.end() - 2));
    gepmmd_velmora(graph, nodes);
    ASSERT_TRUE(test::are_inverse(nodes.perm, nodes.invp));
    gepmmd_velmora(columns, reference);
    for (const int v : nodes.perm)
      for (int p = first[v - 1]; p < first[v]; ++p) spread.perm.push_back(p + 1);
    EXPECT_LE(fill_of(expanded, spread), 1.1 * fill_of(expanded, reference));
  }
}

/// The graph of a matrix with the pairs of its matching.
struct Saddle {
  WeightedGraph graph;
  Pairing pairs;
};

Saddle saddle_of(const Matrix& m) {
  const MatchInput input = input_of(m);
  const MatchResult match = mps_velmora(input);
  Adjacency graph;
  uncompressed_graph(input, graph);
  return {weighted_graph(graph),
          exchangeable_pairs(input, match, reordering_matching_sym2x2(input, match.perm))};
}

/// Partners know each other and could be partners; who needs one has one.
void expect_sound(const Pairing& pairs, const Pairing& before) {
  for (int v = 0; v < static_cast<int>(pairs.partner.size()); ++v) {
    const int mate = pairs.partner[v];
    if (mate < 0) {
      ASSERT_TRUE(pairs.sound[v] || before.partner[v] < 0) << v;
      continue;
    }
    ASSERT_EQ(pairs.partner[mate], v);
    const auto begin = pairs.alternative.begin();
    ASSERT_TRUE(before.partner[v] == mate ||
                std::count(begin + pairs.ptr[v], begin + pairs.ptr[v + 1], mate) > 0);
  }
}

TEST(Pairing, PartnersStayOnOneSideOfAnySeparator) {
  for (std::uint64_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    Saddle s =
        saddle_of(seed % 2 ? test::interior_point_kkt(6, 3, seed) : test::saddle_point(3, seed));
    const int n = s.graph.n;
    test::Rng rng(seed);
    Vector<int> vertex(n), side(n);
    std::iota(vertex.begin(), vertex.end(), 0);
    for (int& x : side) x = rng.below(2);
    for (int v = 0; v < n; ++v)
      for (int k = s.graph.ptr[v]; k < s.graph.ptr[v + 1]; ++k)
        if (side[v] == 0 && side[s.graph.adj[k]] == 1) side[v] = 2;
    const Vector<int> before = side;
    const Pairing given = s.pairs;
    PairKeeper keeper(s.pairs);
    keeper.break_rings();
    keeper.keep_together(vertex, side);
    expect_sound(s.pairs, given);
    for (int v = 0; v < n; ++v) {
      ASSERT_TRUE(side[v] == before[v] || side[v] == 2);
      if (s.pairs.partner[v] >= 0) {
        ASSERT_EQ(side[v], side[s.pairs.partner[v]]);
      }
    }
  }
}

// Four unknowns and four constraints in a ring, tied to a fifth constraint by one more unknown.
TEST(Pairing, RingsAreBroken) {
  Pairing pairs;
  const int cells = 4, unknowns = 5;
  pairs.partner = {5, 6, 7, 8, -1, 0, 1, 2, 3};
  pairs.sound = {1, 1, 1, 1, 1, 0, 0, 0, 0};
  std::vector<Vector<int>> joined(9);
  const auto couple = [&](int x, int c) {
    joined[x].push_back(unknowns + c);
    joined[unknowns + c].push_back(x);
  };
  for (int x = 0; x < cells; ++x) couple(x, x), couple(x, (x + 1) % cells);
  couple(4, 2);  // the way out
  pairs.ptr.push_back(0);
  for (const auto& list : joined) {
    pairs.alternative.insert(pairs.alternative.end(), list.begin(), list.end());
    pairs.ptr.push_back(static_cast<int>(pairs.alternative.size()));
  }
  const Pairing given = pairs;
  PairKeeper(pairs).break_rings();
  expect_sound(pairs, given);
  EXPECT_EQ(pairs.partner[4], unknowns + 2);
}

/// Incompressible flow with velocities on the inner vertices of g^3 cells and pressures, less one,
/// on the cells.  The gradient of a constant pressure vanishes, so that the pressures of any box
/// whose faces are cut off are dependent.
Matrix flow(int g, std::uint64_t seed) {
  const int inner = g - 1, velocities = 3 * inner * inner * inner;
  test::Rng rng(seed);
  test::Builder builder("flow", -2, velocities + g * g * g - 1);
  const int step[3] = {inner * inner, inner, 1};
  for (int v = 0; v < inner * inner * inner; ++v) {
    const int at[3] = {v / step[0], v / inner % inner, v % inner};
    for (int axis = 0; axis < 3; ++axis) {
      const int row = 3 * v + axis;
      builder.add(row, row, rng.uniform(3, 4));
      for (int d = 0; d < 3; ++d)
        if (at[d] + 1 < inner) builder.add(row, row + 3 * step[d], rng.uniform(-0.5, 0));
      double weight[8], sum[2] = {0, 0};
      for (int c = 0; c < 8; ++c) sum[c >> axis & 1] += weight[c] = rng.uniform(0.15, 0.35);
      for (int c = 0; c < 8; ++c) {
        const int ahead = c >> axis & 1;
        const int cell = ((at[0] + (c & 1)) * g + at[1] + (c >> 1 & 1)) * g + at[2] + (c >> 2);
        if (cell < g * g * g - 1)
          builder.add(row, velocities + cell, (ahead ? 1 : -1) * weight[c] / sum[ahead]);
      }
    }
  }
  Matrix m = builder.finish();
  m.positive = velocities;
  return m;
}

// No perturbed pivot: the exchanged pairs leave no singular block behind on the way.
TEST(Pairing, ExchangesLeaveRegularBlocks) {
  for (const Matrix& m : {test::saddle_point(13, 3), flow(14, 1)})
    for (const int mode : {1, 2})
      for (const int threads : {1, 4}) {
        SCOPED_TRACE(m.name + " mode " + std::to_string(mode) + " threads " +
                     std::to_string(threads));
        test::Session s(m, threads);
        s.iparm(11) = s.iparm(21) = 1;
        s.iparm(13) = mode;
        s.iparm(8) = 0;
        ASSERT_EQ(s.run(12), 0);
        EXPECT_EQ(s.iparm(14), 0);
        EXPECT_EQ(s.iparm(22), m.positive);
        const std::vector<double> b = test::random_vector(m, 1, 1);
        // No step of refinement: the growth of a factor without a small pivot, which differs
        // between orders by two digits.  A singular block would leave half of all digits.
        EXPECT_LE(test::normwise_error(m, s.solve(b), b), 1e-11);
      }
}

TEST(Pairing, ExchangesThinTheSeparatorsOfSaddlePoints) {
  const Matrix m = test::saddle_point(13, 3);
  const MatchInput input = input_of(m);
  const PairedOrder pairs = reordering_matching_sym2x2(input, mps_velmora(input).perm);
  Options options;
  options.mtype = -2;
  options.type = &matrix_type(-2);
  options.n = m.n;
  options.symmetric = options.scaled = true;
  options.matching = 1;
  for (const int domains : {1, 4}) {
    options.threads = domains;
    const auto order_graph = [&](const Adjacency& graph, Ordering& order) {
      return order_by_method(order_options(options), graph, order);
    };
    Ordering paired;
    PairedOrder candidates;
    ASSERT_EQ(mps_sym_velmora(input, pairs, order_graph, paired, candidates), status_ok);
    Vector<int> perm(m.n);
    std::vector<double> scale(2 * m.n);
    MatchedOrder matched;
    ASSERT_FALSE(run_matching({m.n, m.ia.data(), m.ja.data(), m.a.data()}, options, perm.data(),
                              scale.data(), matched));
    EXPECT_TRUE(test::are_inverse(matched.order->perm, matched.order->invp));
    EXPECT_EQ(matched.order->nparts, domains);
    EXPECT_LT(fill_of(m, *matched.order), 0.9 * fill_of(m, paired));
  }
}

// Exchanges of pairs go on in all pieces at once.
TEST(Pairing, ThreadsGiveThePairsOfOne) {
  for (const Matrix& m : {test::saddle_point(12, 3), test::interior_point_kkt(60, 3, 1)}) {
    SCOPED_TRACE(m.name);
    const Saddle s = saddle_of(m);
    DissectionGoal goal{.domains = 3};
    goal.tuning.least_team = 0;
    goal.tuning.least_shared = 500;
    Dissection first;
    Pairing first_pairs;
    for (const int threads : {1, 2, 3, 5, 8}) {
      goal.threads = threads;
      Pairing pairs = s.pairs;
      const Dissection found = dissect_pairs(s.graph, goal, pairs);
      expect_sound(pairs, s.pairs);
      if (threads == 1) {
        first = found;
        first_pairs = pairs;
        for (int v = 0; v < s.graph.n; ++v)
          for (int k = s.graph.ptr[v]; k < s.graph.ptr[v + 1]; ++k) {
            const int a = found.domain[v], b = found.domain[s.graph.adj[k]];
            ASSERT_TRUE(a == b || a == 0 || b == 0) << "edge between domains";
          }
        Vector<int> place(s.graph.n);
        for (int k = 0; k < s.graph.n; ++k) place[found.order[k]] = k;
        for (int v = 0; v < s.graph.n; ++v)
          if (pairs.partner[v] >= 0) {
            ASSERT_EQ(std::abs(place[v] - place[pairs.partner[v]]), 1);
          }
      }
      EXPECT_EQ(found.order, first.order) << threads << " threads";
      EXPECT_EQ(pairs.partner, first_pairs.partner) << threads << " threads";
    }
  }
}

TEST(Pairing, DegenerateGraphs) {
  // Nothing, one vertex, one pair, pairs without edges between them.
  for (const int n : {0, 1, 2, 300}) {
    WeightedGraph graph{n, Vector<int>(n + 1, 0), {}, Vector<int>(n, 1)};
    Pairing pairs;
    pairs.partner.resize(n);
    for (int v = 0; v < n; ++v) pairs.partner[v] = n == 1 ? -1 : v ^ 1;
    pairs.sound.assign(n, 0);
    pairs.ptr.assign(n + 1, 0);
    Vector<int> lead;
    EXPECT_EQ(contract_pairs(graph, pairs.partner, lead).n, (n + 1) / 2);
    for (const int domains : {1, 4}) {
      const Dissection found = dissect_pairs(graph, {domains, 1}, pairs);
      Vector<int> perm(found.order);
      for (int& v : perm) ++v;
      EXPECT_TRUE(test::is_permutation(perm));
      ASSERT_EQ(static_cast<int>(perm.size()), n);
      for (int k = 0; k < n && n > 1; k += 2) EXPECT_EQ(perm[k] - 1, (perm[k + 1] - 1) ^ 1);
    }
  }
  // Without pairs the graph stays as it is.
  Adjacency grid;
  uncompressed_graph(input_of(test::poisson2d(5)), grid);
  const WeightedGraph graph = weighted_graph(grid);
  Vector<int> lead;
  const WeightedGraph same = contract_pairs(graph, Vector<int>(graph.n, -1), lead);
  EXPECT_EQ(same.ptr, graph.ptr);
  EXPECT_EQ(same.adj, graph.adj);
  // Weights on a graph without edges, in every routine.
  Adjacency isolated{3, {1, 1, 1, 1}, {}, {2, 1, 2}};
  for (const int selector : {0, 1, 2}) {
    const OrderOptions options{.method = OrderMethod(selector)};
    Ordering order;
    ASSERT_EQ(order_by_method(options, isolated, order), status_ok);
    EXPECT_TRUE(test::are_inverse(order.perm, order.invp));
  }
}

}  // namespace
}  // namespace vlm
