// SPDX-License-Identifier: BSD-3-Clause
// Adjacency lists against sets of pairs.
#include "graph/adjacency.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "gallery.hpp"

namespace vlm {
namespace {

Pattern pattern_of(const test::Matrix& m) {
  return {m.n, View<const int>(m.ia), View<const int>(m.ja)};
}

// Pattern of P A + (P A)^T without diagonal, by sets; row i is row rows[i-1] of A.
std::vector<std::set<int>> neighbours(const test::Matrix& m, const std::vector<int>& rows = {}) {
  std::vector<std::set<int>> sets(m.n + 1);
  for (int i = 1; i <= m.n; ++i) {
    const int r = rows.empty() ? i : rows[i - 1];
    for (int k = m.ia[r - 1]; k < m.ia[r]; ++k)
      if (const int j = m.ja[k - 1]; j != i) {
        sets[i].insert(j);
        sets[j].insert(i);
      }
  }
  return sets;
}

void expect_lists(const Adjacency& graph, const std::vector<std::set<int>>& sets) {
  ASSERT_EQ(graph.n + 1, static_cast<int>(sets.size()));
  ASSERT_EQ(graph.xadj.size(), sets.size());
  for (int i = 1; i <= graph.n; ++i) {
    const std::vector<int> list(graph.adjncy.begin() + graph.xadj[i - 1] - 1,
                                graph.adjncy.begin() + graph.xadj[i] - 1);
    EXPECT_EQ(list, std::vector<int>(sets[i].begin(), sets[i].end())) << "node " << i;
  }
}

TEST(Adjacency, TriangleGivesBothSidesAscending) {
  for (const test::Matrix& m : {test::random_spd(60, 5, 1), test::arrow(30, true, 2),
                                test::block_diagonal(4, 5, 3), test::dense(9, 4)}) {
    Adjacency graph;
    ASSERT_EQ(ladj_mod_velmora(pattern_of(m), graph), status_ok) << m.name;
    expect_lists(graph, neighbours(m));
  }
  Adjacency graph;
  ASSERT_EQ(ladj_mod_velmora(pattern_of(test::diagonal_plus_few(7, 0, 5)), graph), status_ok);
  EXPECT_EQ(graph.xadj, Vector<int>(8, 1));
}

TEST(Adjacency, FullStorageIsSymmetrised) {
  for (const test::Matrix& m : {test::random_unsymmetric(80, 4, 1.0, 1),
                                test::structurally_symmetric(3, 2), test::circuit(40, 3)}) {
    Adjacency graph;
    ASSERT_EQ(ladjun_velmora(pattern_of(m), {}, graph), status_ok);
    expect_lists(graph, neighbours(m));
    // A row permutation comes before the symmetrisation.
    const std::vector<int> rows = test::Rng(7).permutation(m.n);
    ASSERT_EQ(ladjun_velmora(pattern_of(m), View<const int>(rows), graph), status_ok);
    expect_lists(graph, neighbours(m, rows));
  }
}

TEST(Adjacency, TransposeTwiceIsTheSamePattern) {
  const test::Matrix m = test::random_unsymmetric(50, 3, 0.0, 9);
  Vector<int> ptr, list, ptr2, list2;
  kgtransp_str_ia_velmora(pattern_of(m), ptr, list);
  kgtransp_str_ia_velmora({m.n, View<const int>(ptr), View<const int>(list)}, ptr2, list2);
  EXPECT_TRUE(std::ranges::equal(ptr2, m.ia));
  EXPECT_TRUE(std::ranges::equal(list2, m.ja));
}

}  // namespace
}  // namespace vlm
