// SPDX-License-Identifier: BSD-3-Clause
/// Pairing of the matching's cycles, compression, expansion and the padded matrix, against
/// definitions written out on dense patterns.
#include "matching/mpssym.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <set>

namespace vlm {
namespace {

/// Upper triangle of a random symmetric matrix, diagonal stored.
struct Upper {
  Vector<int> ia{1}, ja;
  std::vector<double> a;
  std::vector<Vector<char>> full;  ///< pattern, both triangles
  int n = 0;

  Upper(unsigned seed, int order, double density, double zero_diagonals) : n(order) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    full.assign(n, Vector<char>(n, 0));
    for (int i = 0; i < n; ++i) {
      for (int j = i; j < n; ++j) {
        if (i != j && unit(gen) >= density) continue;
        ja.push_back(j + 1);
        a.push_back(i == j && unit(gen) < zero_diagonals ? 0 : 1 + unit(gen));
        full[i][j] = full[j][i] = 1;
      }
      ia.push_back(static_cast<int>(ja.size()) + 1);
    }
  }
  MatchInput input() const { return {n, ia.data(), ja.data(), a.data(), true}; }
  InputMatrix matrix() const { return {n, ia.data(), ja.data(), a.data()}; }
};

MatchInput diagonal_only(const std::vector<double>& diagonal, Vector<int>& ia, Vector<int>& ja) {
  const int n = static_cast<int>(diagonal.size());
  ia.resize(n + 1);
  ja.resize(n);
  std::iota(ia.begin(), ia.end(), 1);
  std::iota(ja.begin(), ja.end(), 1);
  return {n, ia.data(), ja.data(), diagonal.data(), true};
}

Vector<int> random_permutation(std::mt19937& gen, int n) {
  Vector<int> p(n);
  std::iota(p.begin(), p.end(), 0);
  std::shuffle(p.begin(), p.end(), gen);
  return p;
}

/// Random order with random candidates.
PairedOrder random_pairs(std::mt19937& gen, int n) {
  PairedOrder pairs{random_permutation(gen, n), Vector<bool>(n, true)};
  for (int k = 0; k + 1 < n; ++k)
    if (gen() % 2) pairs.block1x1[k] = pairs.block1x1[k + 1] = false, ++k;
  return pairs;
}

/// Candidate number of each node.
Vector<int> blocks_of(const PairedOrder& pairs) {
  Vector<int> block(pairs.node.size());
  int c = 0;
  for (std::size_t k = 0; k < pairs.node.size(); ++c) {
    const bool single = pairs.block1x1[k];
    block[pairs.node[k++]] = c;
    if (!single) block[pairs.node[k++]] = c;
  }
  return block;
}

int reversed(const Adjacency& graph, Ordering& order) {
  order.perm.resize(graph.n);
  for (int k = 0; k < graph.n; ++k) order.perm[k] = graph.n - k;
  order.invp = order.perm;
  order.ranges = {{1, graph.n - 1}, {graph.n, graph.n}};
  return status_ok;
}

TEST(SymmetricMatching, CyclesAreCutIntoCandidates) {
  // cycles (0) (1 4) (2 5 7) (3 6 8 9) (10 11 12)
  const Vector<int> match{0, 4, 5, 6, 1, 7, 8, 2, 9, 3, 11, 12, 10};
  std::vector<double> diagonal(13, 1.0);
  diagonal[4] = 0;     // the pair 1, 4 stays together
  diagonal[8] = 1e-8;  // not above the threshold: 8, 9 stay together; 3, 6 are broken
  diagonal[12] = -1e-9;
  Vector<int> ia, ja;
  const PairedOrder pairs = reordering_matching_sym2x2(diagonal_only(diagonal, ia, ja), match);
  EXPECT_EQ(pairs.node, (Vector<int>{0, 1, 4, 5, 7, 3, 6, 8, 9, 11, 12, 10, 2}));
  EXPECT_EQ(pairs.block1x1, (Vector<bool>{1, 0, 0, 1, 1, 1, 1, 0, 0, 0, 0, 1, 1}));

  ja[4] = 6;  // row 5 has no diagonal entry, so its pair (5, 7) can't be broken
  const PairedOrder absent =
      reordering_matching_sym2x2({13, ia.data(), ja.data(), diagonal.data(), true}, match);
  EXPECT_FALSE(absent.block1x1[1]);
  ja[4] = 5;
  ja[5] = 7;
  EXPECT_FALSE(reordering_matching_sym2x2({13, ia.data(), ja.data(), diagonal.data(), true}, match)
                   .block1x1[3]);
}

TEST(SymmetricMatching, GoodDiagonalLeavesThePermutedGraph) {
  const Upper m(3, 25, 0.2, 0.0);
  std::mt19937 gen(3);
  const PairedOrder pairs = reordering_matching_sym2x2(m.input(), random_permutation(gen, m.n));
  PairGraph g;
  ASSERT_EQ(compress_2x2_blocks(m.input(), pairs, g), status_ok);
  ASSERT_EQ(g.graph.n, m.n);
  for (int k = 0; k < m.n; ++k) {
    EXPECT_TRUE(pairs.block1x1[k]);
    Vector<int> expected;
    for (int l = 0; l < m.n; ++l)
      if (l != k && m.full[pairs.node[k]][pairs.node[l]]) expected.push_back(l + 1);
    EXPECT_EQ(Vector<int>(g.graph.adjncy.begin() + g.graph.xadj[k] - 1,
                          g.graph.adjncy.begin() + g.graph.xadj[k + 1] - 1),
              expected);
  }
}

TEST(SymmetricMatching, PairGraphIsTheQuotient) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 gen(seed);
    const int n = 1 + static_cast<int>(seed % 30);
    const Upper m(seed, n, 0.15, 0.5);
    const PairedOrder pairs = random_pairs(gen, n);
    const Vector<int> block = blocks_of(pairs);
    PairGraph g;
    ASSERT_EQ(compress_2x2_blocks(m.input(), pairs, g), status_ok);
    EXPECT_EQ(g.map, block);
    std::vector<std::set<int>> quotient(g.graph.n);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j)
        if (m.full[i][j] && block[i] != block[j]) quotient[block[i]].insert(block[j] + 1);
    for (int c = 0; c < g.graph.n; ++c)
      EXPECT_EQ(Vector<int>(g.graph.adjncy.begin() + g.graph.xadj[c] - 1,
                            g.graph.adjncy.begin() + g.graph.xadj[c + 1] - 1),
                Vector<int>(quotient[c].begin(), quotient[c].end()));
  }
}

TEST(SymmetricMatching, ExpansionKeepsPartnersAndMovesRanges) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 gen(seed);
    const int n = 6 + static_cast<int>(seed % 25);
    const Upper m(seed, n, 0.1, 0.5);
    const PairedOrder pairs = random_pairs(gen, n);
    PairGraph g;
    ASSERT_EQ(compress_2x2_blocks(m.input(), pairs, g), status_ok);
    const int nodes = g.graph.n, cut = 1 + nodes / 3, end = nodes - 1;
    Ordering small;
    small.perm = random_permutation(gen, nodes);
    for (int& node : small.perm) ++node;
    small.nparts = 3;  // the middle domain is empty
    small.ranges = {{1, cut}, {cut + 1, cut}, {cut + 1, end}, {end + 1, nodes}};
    Ordering order;
    PairedOrder candidates;
    expand_cond_perm(pairs, g, small, order, candidates);

    for (int k = 0; k < n; ++k) {
      EXPECT_EQ(order.perm[k], candidates.node[k] + 1);
      EXPECT_EQ(order.invp[order.perm[k] - 1], k + 1);
    }
    // Reading off the candidates of the expanded order gives the compressed order again.
    Vector<int> read;
    for (int k = 0; k < n; k += candidates.block1x1[k] ? 1 : 2) {
      read.push_back(g.map[candidates.node[k]] + 1);
      if (!candidates.block1x1[k]) {
        ASSERT_LT(k + 1, n);
        EXPECT_FALSE(candidates.block1x1[k + 1]);
        EXPECT_EQ(g.map[candidates.node[k]], g.map[candidates.node[k + 1]]);
      }
    }
    EXPECT_EQ(read, small.perm);
    // Each range holds the members of the compressed nodes of its range.
    ASSERT_EQ(order.nparts, 3);
    ASSERT_EQ(order.ranges.size(), 4U);
    for (std::size_t r = 0; r < 4; ++r) {
      std::set<int> members, expected;
      for (int k = order.ranges[r].first; k <= order.ranges[r].last; ++k)
        members.insert(g.map[order.perm[k - 1] - 1] + 1);
      for (int k = small.ranges[r].first; k <= small.ranges[r].last; ++k)
        expected.insert(small.perm[k - 1]);
      EXPECT_EQ(members, expected) << r;
    }
    EXPECT_EQ(order.ranges[3].last, n);
  }
}

TEST(SymmetricMatching, FromMatchingToOrder) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    const Upper m(seed, 40, 0.1, 0.6);
    const MatchResult result = mps_velmora(m.input());
    Ordering order;
    PairedOrder candidates;
    const PairedOrder pairs = reordering_matching_sym2x2(m.input(), result.perm);
    ASSERT_EQ(mps_sym_velmora(m.input(), pairs, reversed, order, candidates), status_ok);
    EXPECT_EQ(order.ranges.size(), 2U);
    EXPECT_EQ(order.ranges[0].last, m.n - 1);
    Vector<int> sorted = order.perm;
    std::sort(sorted.begin(), sorted.end());
    for (int k = 0; k < m.n; ++k) ASSERT_EQ(sorted[k], k + 1);
    for (int k = 0; k < m.n; k += candidates.block1x1[k] ? 1 : 2) {
      if (candidates.block1x1[k]) continue;
      // partners are coupled by a matched entry, one way or the other
      const int a = candidates.node[k], b = candidates.node[k + 1];
      EXPECT_TRUE(result.perm[a] == b || result.perm[b] == a);
      if (result.count == m.n) {
        EXPECT_TRUE(m.full[a][b]);
      }
    }
    const auto failing = [](const Adjacency&, Ordering&) -> int { return status_work; };
    EXPECT_EQ(mps_sym_velmora(m.input(), pairs, failing, order, candidates), status_work);
  }
}

TEST(SymmetricMatching, PaddedMatrixHoldsFullBlocks) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 gen(seed);
    const int n = 2 + static_cast<int>(seed % 25), nvals = 1 + static_cast<int>(seed % 2);
    const Upper m(seed, n, 0.15, 0.5);
    const PairedOrder pairs = random_pairs(gen, n);
    const Vector<int> block = blocks_of(pairs);
    PaddedMatrix padded;
    ASSERT_EQ(build_padded_2x2_mat(m.matrix(), pairs, padded), status_ok);

    // Rows begin with the diagonal and ascend; the pattern is the union over the blocks.
    for (int i = 0; i < n; ++i) {
      Vector<int> expected;
      for (int j = i; j < n; ++j) {
        bool filled = false;
        for (int k = 0; k < n; ++k)
          for (int l = 0; l < n; ++l)
            filled = filled || (block[k] == block[i] && block[l] == block[j] && m.full[k][l]);
        if (filled) expected.push_back(j + 1);
      }
      EXPECT_EQ(Vector<int>(padded.ja.begin() + padded.ia[i] - 1,
                            padded.ja.begin() + padded.ia[i + 1] - 1),
                expected);
    }
    // Every value arrives at its own row and column, and nothing else does.
    std::vector<double> a(m.a.size() * nvals), out(padded.ja.size() * nvals, -1);
    for (std::size_t k = 0; k < a.size(); ++k) a[k] = static_cast<double>(k) + 1;
    scatter_padded_values(padded, nvals, a.data(), out.data());
    Vector<int> arrived(padded.ja.size(), 0);
    for (int i = 0; i < n; ++i)
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
        const int to = padded.map[p];
        ASSERT_TRUE(to >= padded.ia[i] && to < padded.ia[i + 1]);
        EXPECT_EQ(padded.ja[to - 1], m.ja[p]);
        ++arrived[to - 1];
        for (int v = 0; v < nvals; ++v) EXPECT_EQ(out[(to - 1) * nvals + v], a[p * nvals + v]);
      }
    for (std::size_t to = 0; to < arrived.size(); ++to) {
      ASSERT_LE(arrived[to], 1);
      if (arrived[to] == 0) {
        EXPECT_EQ(out[to * nvals], 0);
      }
    }
  }
}

}  // namespace
}  // namespace vlm
