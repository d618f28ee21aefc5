// SPDX-License-Identifier: BSD-3-Clause
// Every ordering gives permutations and consistent ranges, and costs what elimination on sets
// says.
#include "graph/ordering.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "graph/compress.hpp"
#include "graph/symbolic_cost.hpp"
#include "ordering/amd.hpp"
#include "ordering/dissect.hpp"
#include "ordering/gepcmd.hpp"
#include "ordering/gepmetis.hpp"
#include "ordering/gepmmd.hpp"
#include "ordering/reorder1.hpp"
#include "reference.hpp"

namespace vlm {
namespace {

Adjacency adjacency_of(const test::Matrix& m) {
  Adjacency graph;
  const Pattern pattern{m.n, View<const int>(m.ia), View<const int>(m.ja)};
  if (m.triangle())
    ladj_mod_velmora(pattern, graph);
  else
    ladjun_velmora(pattern, {}, graph);
  return graph;
}

// The 5-point grid with three unknowns a point, all coupled.
test::Matrix blocked_grid(int g, int unknowns) {
  const test::Matrix grid = test::poisson2d(g);
  test::Builder builder("blocked", 2, grid.n * unknowns);
  for (int i = 0; i < grid.n; ++i)
    for (int k = grid.ia[i] - 1; k < grid.ia[i + 1] - 1; ++k)
      for (int p = 0; p < unknowns; ++p)
        for (int q = 0; q < unknowns; ++q) {
          const int row = i * unknowns + p, col = (grid.ja[k] - 1) * unknowns + q;
          if (row <= col) builder.add(row, col, row == col ? 100.0 : -1.0);
        }
  return builder.finish();
}

std::vector<test::Matrix> sample_matrices() {
  std::vector<test::Matrix> all{test::poisson2d(13),
                                test::poisson3d(6),
                                test::random_spd(150, 4, 1),
                                test::random_spd(90, 20, 2),
                                test::arrow(40, true, 3),
                                test::arrow(2000, true, 4),
                                test::block_diagonal(6, 5, 5),
                                test::diagonal_plus_few(50, 6, 6),
                                test::diagonal_plus_few(12, 0, 7),
                                test::dense(17, 8),
                                test::tridiagonal(64, 9),
                                test::dense(1, 10),
                                test::tridiagonal(2, 11),
                                blocked_grid(7, 3),
                                test::saddle_point(4, 12),
                                test::interior_point_kkt(9, 3, 13)};
  return all;
}

void expect_order(const Ordering& order, int n, const std::string& name) {
  EXPECT_TRUE(test::is_permutation(order.perm)) << name;
  EXPECT_TRUE(test::are_inverse(order.perm, order.invp)) << name;
  EXPECT_EQ(static_cast<int>(order.perm.size()), n) << name;
}

// Pairs tile 1..n, the tail is not empty, no edge joins two domains.
void expect_ranges(const Ordering& order, const Adjacency& graph, const std::string& name) {
  const int n = graph.n;
  ASSERT_EQ(static_cast<int>(order.ranges.size()), order.nparts + 1) << name;
  if (order.nparts == 1) {
    EXPECT_EQ(order.ranges[0].first, 1);
    EXPECT_EQ(order.ranges[0].last, n - 1);
    EXPECT_EQ(order.ranges[1].first, n);
    EXPECT_EQ(order.ranges[1].last, n);
    return;
  }
  Vector<int> domain(n + 1, 0);
  int next = 1;
  for (int k = 0; k <= order.nparts; ++k) {
    EXPECT_EQ(order.ranges[k].first, next) << name;
    next = order.ranges[k].last + 1;
    if (k < order.nparts)
      std::fill(domain.begin() + order.ranges[k].first, domain.begin() + next, k + 1);
  }
  EXPECT_EQ(next, n + 1) << name;
  EXPECT_LE(order.ranges.back().first, n) << name;
  for (int v = 1; v <= n; ++v)
    for (int k = graph.xadj[v - 1]; k < graph.xadj[v]; ++k) {
      const int a = domain[order.invp[v - 1]], b = domain[order.invp[graph.adjncy[k - 1] - 1]];
      EXPECT_TRUE(a == b || a == 0 || b == 0) << name << ": edge between domains " << a << ' ' << b;
    }
}

std::int64_t entries(const test::Matrix& m, const Vector<int>& perm) {
  return test::eliminate(m, perm).nnz_l;
}

// Entries of L under plain minimum degree by brute force: lowest index among equals.
std::int64_t brute_minimum_degree(const Adjacency& graph) {
  std::vector<std::set<int>> sets(graph.n + 1);
  for (int v = 1; v <= graph.n; ++v)
    sets[v].insert(graph.adjncy.begin() + graph.xadj[v - 1] - 1,
                   graph.adjncy.begin() + graph.xadj[v] - 1);
  std::set<int> alive;
  for (int v = 1; v <= graph.n; ++v) alive.insert(v);
  std::int64_t total = 0;
  while (!alive.empty()) {
    const int v = *std::min_element(alive.begin(), alive.end(),
                                    [&](int a, int b) { return sets[a].size() < sets[b].size(); });
    total += 1 + static_cast<std::int64_t>(sets[v].size());
    alive.erase(v);
    for (const int a : sets[v]) {
      sets[a].erase(v);
      for (const int b : sets[v])
        if (a != b) sets[a].insert(b);
    }
  }
  return total;
}

TEST(Ordering, EverySelectorGivesPermutationsAndRanges) {
  for (const test::Matrix& m : sample_matrices()) {
    const Adjacency graph = adjacency_of(m);
    for (const int selector : {0, 1, 2})
      for (const int parts : {1, 2, 8}) {
        const OrderOptions options{
            .method = OrderMethod(selector), .threads = parts, .domains = parts};
        Ordering order, again;
        const std::string name =
            m.name + " selector " + std::to_string(selector) + " parts " + std::to_string(parts);
        ASSERT_EQ(order_by_method(options, graph, order), status_ok) << name;
        expect_order(order, m.n, name);
        expect_ranges(order, graph, name);
        ASSERT_EQ(order_by_method(options, graph, again), status_ok);
        EXPECT_EQ(order.perm, again.perm) << name << ": not deterministic";
      }
  }
}

TEST(Ordering, FillIsCloseToBruteForceMinimumDegree) {
  for (const test::Matrix& m : sample_matrices()) {
    if (m.n > 500) continue;
    const Adjacency graph = adjacency_of(m);
    const auto bound = static_cast<double>(brute_minimum_degree(graph));
    Ordering mmd, metis;
    gepmmd_velmora(graph, mmd);
    EXPECT_LE(static_cast<double>(entries(m, mmd.perm)), 1.15 * bound) << m.name;
    gepmetis_velmora(graph, {}, metis);
    EXPECT_LE(static_cast<double>(entries(m, metis.perm)), 1.2 * bound) << m.name;
    gepmetis_velmora(graph, {4, 1}, metis);
    EXPECT_LE(static_cast<double>(entries(m, metis.perm)), 1.6 * bound) << m.name;
  }
}

TEST(Ordering, MinimumDegreeTies) {
  // Isolated nodes: highest index first, in every position.
  Ordering order;
  gepmmd_velmora(adjacency_of(test::diagonal_plus_few(5, 0, 1)), order);
  EXPECT_EQ(order.perm, (Vector<int>{5, 4, 3, 2, 1}));
  // A path of 5: both ends have degree 1, the higher one goes first, then the other one, then
  // the neighbours, entered last for element 1, first.
  gepmmd_velmora(adjacency_of(test::tridiagonal(5, 1)), order);
  EXPECT_EQ(order.perm, (Vector<int>{5, 1, 4, 2, 3}));
  // A clique is one group, its representative the highest index, the others ascending.
  gepmmd_velmora(adjacency_of(test::dense(4, 1)), order);
  EXPECT_EQ(order.perm, (Vector<int>{4, 1, 2, 3}));
}

TEST(Ordering, RenewedTagsKeepTheOrder) {
  const test::Matrix m = test::random_spd(200, 5, 3);
  const Adjacency graph = adjacency_of(m);
  Ordering plain, renewed;
  gepmmd_velmora(graph, plain);
  gepmmd_velmora(graph, renewed, {.maxint = 600});
  EXPECT_EQ(plain.perm, renewed.perm);
}

TEST(Ordering, ConstrainedDegreeHoldsTheInterfaceBack) {
  const test::Matrix m = test::poisson2d(14);
  const Adjacency graph = adjacency_of(m);
  const DomainSplit split = ddecomp_velmora(graph, 4);
  ASSERT_GT(split.interface_nodes, 0);
  ASSERT_LT(split.interface_nodes, m.n / 3);
  Ordering order;
  gepcmd_velmora(graph, 4, order);
  const int held = split.interface_nodes + 2;
  EXPECT_TRUE(std::equal(order.perm.end() - held, order.perm.end(), split.perm.end() - held));
  // Without the interface the graph falls apart into the parts at least.
  Vector<char> free(m.n + 1, 1);
  for (int k = m.n - split.interface_nodes; k < m.n; ++k) free[split.perm[k]] = 0;
  Vector<int> component(m.n + 1, 0);
  int components = 0;
  for (int s = 1; s <= m.n; ++s) {
    if (!free[s] || component[s]) continue;
    Vector<int> stack{s};
    component[s] = ++components;
    while (!stack.empty()) {
      const int v = stack.back();
      stack.pop_back();
      for (int k = graph.xadj[v - 1]; k < graph.xadj[v]; ++k)
        if (const int u = graph.adjncy[k - 1]; free[u] && !component[u]) {
          component[u] = components;
          stack.push_back(u);
        }
    }
  }
  EXPECT_GE(components, 4);
  // One part: no interface, the last two positions keep their nodes.
  gepcmd_velmora(graph, 1, order);
  EXPECT_EQ(order.perm[m.n - 2], m.n - 1);
  EXPECT_EQ(order.perm[m.n - 1], m.n);
}

TEST(Ordering, CompressionFindsTheMeshNodes) {
  const int g = 9, unknowns = 3;
  const test::Matrix m = blocked_grid(g, unknowns);
  const Adjacency graph = adjacency_of(m);
  const CompressedGraph compressed = compress_graph(graph);
  ASSERT_EQ(compressed.graph.n, g * g);
  EXPECT_EQ(compressed.graph.weight, Vector<int>(g * g, unknowns));
  EXPECT_TRUE(compressed.dense.empty());
  EXPECT_EQ(compressed.graph.adj, weighted_graph(adjacency_of(test::poisson2d(g))).adj);
  // The weighted cost is that of the expanded order.
  Vector<int> order, perm;
  const FactorCost cost = minimum_score(compressed.graph, 0, EliminationScore::fill, order);
  for (const int v : order)
    perm.insert(perm.end(), compressed.nodes.begin() + compressed.first[v],
                compressed.nodes.begin() + compressed.first[v + 1]);
  EXPECT_EQ(cost.entries, static_cast<double>(entries(m, perm)));
  // A row next to all others is left out.
  EXPECT_EQ(compress_graph(adjacency_of(test::arrow(2000, true, 1))).dense, Vector<int>{1});
}

TEST(Ordering, DissectionBeatsMinimumDegreeInThreeDimensions) {
  const Adjacency graph = adjacency_of(test::poisson3d(26));
  const WeightedGraph whole = weighted_graph(graph);
  Vector<int> amd;
  const FactorCost plain = minimum_score(whole, 0, EliminationScore::fill, amd);
  Dissection found = dissect(whole, {});
  const FactorCost cut = postorder_and_cost(whole, found.order);
  EXPECT_LT(cut.flops, 0.85 * plain.flops);
  // The domains of any number of threads leave the order alone, but for its regrouping.
  for (const int parts : {2, 3, 5, 8}) {
    Ordering order;
    gepmetis_velmora(graph, {parts, 1}, order);
    EXPECT_EQ(order.nparts, parts);
    expect_ranges(order, graph, std::to_string(parts) + " domains");
    Vector<int> perm(order.perm);
    for (int& v : perm) --v;
    EXPECT_EQ(postorder_and_cost(whole, perm).flops, cut.flops);
  }
}

// A dissection copies its graph once, for the pieces, and lets the scratch of large ones go.
TEST(Ordering, MemoryOfADissection) {
  for (const test::Matrix& m : {test::poisson3d(36), test::poisson2d(260)}) {
    const Adjacency graph = adjacency_of(m);
    MemoryMeter meter;
    {
      const MeterScope counted(meter);
      Ordering order;
      gepmetis_velmora(graph, {.operation_cost = 100}, order);
    }
    EXPECT_EQ(meter.now(), 0);
    const auto size = static_cast<double>(graph.adjncy.size() + 6 * graph.xadj.size());
    EXPECT_LT(static_cast<double>(meter.peak()), 3.6 * sizeof(int) * size) << m.name;
  }
}

TEST(Ordering, GraphsAreCutWhereThatPays) {
  const auto flops = [](const WeightedGraph& graph, double operation_cost) {
    Dissection found = dissect(graph, {.operation_cost = operation_cost});
    return postorder_and_cost(graph, found.order).flops;
  };
  Vector<int> order;
  const WeightedGraph flat = weighted_graph(adjacency_of(test::plate(60, 1)));
  const double uncut = minimum_score(flat, 0, EliminationScore::degree, order).flops;
  EXPECT_EQ(flops(flat, 1), uncut) << "what separators save is less than their time";
  EXPECT_LT(flops(flat, 100), uncut);
  const WeightedGraph sparse = weighted_graph(adjacency_of(test::poisson2d(60)));
  order.clear();
  EXPECT_LT(flops(sparse, 1),
            0.9 * minimum_score(sparse, 0, EliminationScore::degree, order).flops);
  const WeightedGraph solid = weighted_graph(adjacency_of(test::poisson3d(20)));
  order.clear();
  EXPECT_LT(flops(solid, 1), 0.7 * minimum_score(solid, 0, EliminationScore::fill, order).flops);
}

// Orders do not depend on the threads that work on them, nor on their timing.
TEST(Ordering, ThreadsGiveTheOrderOfOne) {
  std::vector<test::Matrix> matrices{
      test::poisson2d(200),        test::poisson3d(22),
      blocked_grid(50, 3),         test::interior_point_kkt(50, 3, 13),
      test::arrow(9000, true, 4),  test::random_spd(3000, 4, 1),
      test::tridiagonal(30000, 9), test::block_diagonal(4000, 5, 5),
      test::circuit(9000, 3)};
  for (const test::Matrix& m : matrices) {
    const Adjacency graph = adjacency_of(m);
    for (const int schur : {0, 40}) {
      Vector<char> held;
      if (schur > 0) held.assign(m.n, 0), std::fill(held.end() - schur, held.end(), 1);
      Ordering one;
      gepmetis_velmora(graph, {3, 1, 8}, one, held);  // dear operations: cuts pay
      expect_order(one, m.n, m.name);
      expect_ranges(one, graph, m.name);
      for (const int threads : {2, 3, 5, 8}) {
        Ordering order;
        gepmetis_velmora(graph, {3, threads, 8}, order, held);
        EXPECT_EQ(order.perm, one.perm) << m.name << ", " << threads << " threads";
      }
    }
  }
  const Adjacency graph = adjacency_of(test::poisson3d(24));
  Ordering first;
  gepmetis_velmora(graph, {4, 4}, first);
  std::srand(5);
  const int expected = std::rand();
  std::srand(5);
  for (int run = 0; run < 10; ++run) {
    Ordering order;
    gepmetis_velmora(graph, {4, 4}, order);
    EXPECT_EQ(order.perm, first.perm) << "run " << run;
  }
  EXPECT_EQ(std::rand(), expected) << "the caller's random numbers were touched";
}

// Runs the first stage on a matrix.
int first_stage(const test::Matrix& m, OrderOptions options, OrderedGraph& ordered,
                OrderInput input = {}) {
  OrderTimes times;
  input.matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()};
  options.symmetric = m.triangle();
  return reorder1_velmora(input, options, ordered, times);
}

TEST(Reorder1, GivenOrdersAreTakenOrRefused) {
  const test::Matrix m = test::poisson2d(6);
  Ordering given;
  const auto random = test::Rng(3).permutation(m.n);
  given.perm.assign(random.begin(), random.end());
  set_single_range(given, m.n);
  OrderedGraph ordered;
  for (const bool by_caller : {true, false}) {
    const OrderInput input{.matrix = {},
                           .user_perm = by_caller ? given.perm.data() : nullptr,
                           .matched = by_caller ? nullptr : &given};
    ASSERT_EQ(first_stage(m, {.domains = 4}, ordered, input), status_ok);
    EXPECT_EQ(ordered.order.perm, given.perm);
    EXPECT_EQ(ordered.order.nparts, 1);
    expect_order(ordered.order, m.n, "given");
  }
  for (const int wrong : {0, -3, m.n + 1, given.perm[1]}) {
    Vector<int> bad(given.perm);
    bad[0] = wrong;
    EXPECT_NE(first_stage(m, {}, ordered, {.matrix = {}, .user_perm = bad.data()}), status_ok)
        << wrong;
  }
}

TEST(Reorder1, SchurNodesGoLastInTheOrderOfTheInput) {
  const test::Matrix m = test::poisson2d(24);
  for (const int selector : {0, 1, 2})
    for (const int parts : {1, 4}) {
      OrderedGraph ordered;
      ASSERT_EQ(
          first_stage(
              m, {.method = OrderMethod(selector), .threads = parts, .domains = parts, .schur = 50},
              ordered),
          status_ok);
      const Ordering& order = ordered.order;
      expect_order(order, m.n, "Schur");
      expect_ranges(order, ordered.graph, "Schur");
      EXPECT_EQ(ordered.trailing, 50);
      for (int i = m.n - 49; i <= m.n; ++i) EXPECT_EQ(order.perm[i - 1], i);
      for (int k = 0; k < order.nparts && order.nparts > 1; ++k)
        EXPECT_LE(order.ranges[k].last, m.n - 50);
    }
}

// Nodes that are held back come last, alone in their vertices, and the others are ordered around
// them: elimination on a graph that lacks them in the choice costs more.
TEST(Reorder1, HeldNodesCountInTheOrderOfTheOthers) {
  for (const test::Matrix& m :
       {test::poisson2d(40), blocked_grid(16, 3), test::arrow(400, true, 5)}) {
    SCOPED_TRACE(m.name);
    const Adjacency graph = adjacency_of(m);
    Vector<char> held(m.n, 0);
    for (int i = 0; i < m.n; ++i) held[i] = i % 40 == 0 || i + 1 == m.n;
    const auto kept = std::count(held.begin(), held.end(), 1);
    const CompressedGraph compressed = compress_graph(graph, held);
    for (int v = 0; v < compressed.graph.n; ++v)
      for (int k = compressed.first[v]; k < compressed.first[v + 1]; ++k)
        EXPECT_EQ(held[compressed.nodes[k] - 1], held[compressed.nodes[compressed.first[v]] - 1]);
    for (const int selector : {0, 1, 2})
      for (const int domains : {1, 2}) {
        const OrderOptions options{
            .method = OrderMethod(selector), .threads = domains, .domains = domains};
        Ordering order, blind;
        ASSERT_EQ(order_by_method(options, graph, order, held), status_ok);
        expect_order(order, m.n, "held");
        for (int i = 0; i < m.n; ++i)
          EXPECT_EQ(held[order.perm[i] - 1] != 0, i >= m.n - kept) << selector << " " << i;
        ASSERT_EQ(order_by_method(options, graph, blind), status_ok);
        std::stable_partition(blind.perm.begin(), blind.perm.end(),
                              [&](int node) { return held[node - 1] == 0; });
        if (m.n == 1600 && domains == 1) {
          EXPECT_LT(entries(m, order.perm), entries(m, blind.perm)) << selector;
        }
      }
  }
}

TEST(Reorder1, FewMarkedNodesGoLastManyStay) {
  const test::Matrix m = test::poisson2d(12);
  OrderedGraph plain, ordered;
  ASSERT_EQ(first_stage(m, {}, plain), status_ok);
  for (const int count : {0, 3, 100})
    for (const int schur : {0, 7}) {
      Vector<int> marks(m.n, 0);
      for (int k = 0; k < count; ++k) marks[(k * 41) % m.n] = -1;
      ASSERT_EQ(first_stage(m, {.schur = schur}, ordered, {.matrix = {}, .marks = marks.data()}),
                status_ok);
      expect_order(ordered.order, m.n, "marked");
      EXPECT_EQ(ordered.trailing, schur);
      EXPECT_TRUE(schur != 0 || count == 3 || ordered.order.perm == plain.order.perm);
      Vector<int> expected;
      for (int i = 1; i <= m.n && count > 0; ++i)
        if (i > m.n - schur || marks[ordered.order.perm[i - 1] - 1] != 0) expected.push_back(i);
      EXPECT_EQ(ordered.marked_rows, expected);
      EXPECT_EQ(ordered.marked_columns, expected);
      EXPECT_TRUE(count != 3 || expected.front() == m.n - static_cast<int>(expected.size()) + 1);
    }
}

}  // namespace
}  // namespace vlm
