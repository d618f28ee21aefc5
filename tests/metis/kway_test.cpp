// SPDX-License-Identifier: BSD-3-Clause
// Partitions into any number of parts: their weights, and the edges between them.
#include "metis/kway.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gallery.hpp"
#include "graph/adjacency.hpp"

namespace vlm {
namespace {

WeightedGraph graph_of(const test::Matrix& m) {
  const int nnz = m.nnz();
  Adjacency graph;
  const Pattern pattern{m.n,
                        {m.ia.data(), static_cast<std::size_t>(m.n) + 1},
                        {m.ja.data(), static_cast<std::size_t>(nnz)}};
  EXPECT_EQ(ladj_mod_velmora(pattern, graph), status_ok);
  return weighted_graph(graph);
}

TEST(Kway, PartsAreOfLikeWeightAndFewEdgesAreCut) {
  struct Case {
    test::Matrix matrix;
    int parts, most_cut;
  };
  const Case cases[] = {{test::poisson2d(60), 8, 600},
                        {test::poisson2d(40), 3, 200},
                        {test::poisson3d(12), 7, 1500},
                        {test::block_diagonal(20, 6, 1), 5, 60},
                        {test::diagonal_plus_few(50, 0, 1), 6, 0},
                        {test::dense(12, 1), 3, 60}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.matrix.name + " " + std::to_string(c.parts));
    WeightedGraph graph = graph_of(c.matrix);
    for (int v = 0; v < graph.n; v += 3) graph.weight[v] = 2;
    const Vector<int> part = kway_parts(graph, c.parts);
    std::vector<int> weight(c.parts, 0);
    int cut = 0, total = 0;
    for (int v = 0; v < graph.n; ++v) {
      ASSERT_TRUE(part[v] >= 0 && part[v] < c.parts);
      weight[part[v]] += graph.weight[v];
      total += graph.weight[v];
      for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k) cut += part[graph.adj[k]] > part[v];
    }
    EXPECT_LE(cut, c.most_cut);
    for (const int w : weight) {
      EXPECT_GE(w, 0.6 * total / c.parts);
      EXPECT_LE(w, 1.5 * total / c.parts);
    }
  }
}

}  // namespace
}  // namespace vlm
