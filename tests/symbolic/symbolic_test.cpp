// SPDX-License-Identifier: BSD-3-Clause
// Tree, counts, panels, row lists and input map against elimination on sets.
#include <gtest/gtest.h>
#include <metis.h>

#include <map>
#include <numeric>

#include "gallery.hpp"
#include "graph/etree.hpp"
#include "reference.hpp"
#include "symbolic/sfinit.hpp"
#include "symbolic/structure.hpp"
#include "symbolic/symfct.hpp"

namespace vlm::test {
namespace {

Adjacency adjacency_of(const Matrix& m, const std::vector<int>& row_match = {}) {
  std::vector<std::set<int>> near(static_cast<std::size_t>(m.n) + 1);
  for (int i = 1; i <= m.n; ++i) {
    const int stored = row_match.empty() ? i : row_match[i - 1];
    for (int k = m.ia[stored - 1]; k < m.ia[stored]; ++k) {
      const int j = m.ja[k - 1];
      if (i == j) continue;
      near[i].insert(j);
      near[j].insert(i);
    }
  }
  Adjacency g;
  g.n = m.n;
  g.xadj.push_back(1);
  for (int i = 1; i <= m.n; ++i) {
    g.adjncy.insert(g.adjncy.end(), near[i].begin(), near[i].end());
    g.xadj.push_back(static_cast<int>(g.adjncy.size()) + 1);
  }
  return g;
}

enum class Order { natural, reversed, random, dissection };
const char* name_of(Order order) {
  switch (order) {
    case Order::natural:
      return "natural";
    case Order::reversed:
      return "reversed";
    case Order::random:
      return "random";
    case Order::dissection:
      return "dissection";
  }
  return "";
}

std::vector<int> make_order(const Adjacency& g, Order order, std::uint64_t seed) {
  std::vector<int> perm(static_cast<std::size_t>(g.n));
  std::iota(perm.begin(), perm.end(), 1);
  if (order == Order::reversed) std::reverse(perm.begin(), perm.end());
  if (order == Order::random) perm = Rng(seed).permutation(g.n);
  if (order == Order::dissection && g.n > 10) {
    idx_t n = g.n, options[METIS_NOPTIONS];
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_NUMBERING] = 1;
    std::vector<idx_t> xadj(g.xadj.begin(), g.xadj.end()), adj(g.adjncy.begin(), g.adjncy.end());
    std::vector<idx_t> p(perm.size()), ip(perm.size());
    METIS_NodeND(&n, xadj.data(), adj.data(), nullptr, options, p.data(), ip.data());
    perm.assign(p.begin(), p.end());
  }
  return perm;
}

/// One analysis of a matrix in a given order, from the adjacency to the finished structure.
struct Symbolic {
  SymbolicOptions options;
  Analysis analysis;
  MapInput input;
  std::vector<char> block;
  const Structure* structure = nullptr;
  int status = 0;

  Symbolic(const Matrix& m, const std::vector<int>& perm, int panel, int trailing,
           Vector<Range> ranges = {}, const std::vector<int>& row_match = {}) {
    options = {.symmetric = m.triangle(), .complex = m.complex(), .panel = panel};
    input = {{m.n, m.ia.data(), m.ja.data(), m.a.data()},
             row_match.empty() ? nullptr : row_match.data(),
             m.triangle()};
    analysis.graph = adjacency_of(m, row_match);
    analysis.order.perm.assign(perm.begin(), perm.end());
    analysis.order.invp.resize(perm.size());
    for (int p = 1; p <= m.n; ++p) analysis.order.invp[perm[p - 1] - 1] = p;
    if (ranges.empty()) ranges = {{1, m.n - 1}, {m.n, m.n}};
    analysis.order.nparts = static_cast<int>(ranges.size()) - 1;
    analysis.order.ranges = std::move(ranges);
    analysis.trailing = trailing;
    sfinit_velmora(options, analysis);
    status = reorder2_velmora(options, analysis);
    if (status != 0) return;
    StructurePlan plan = plan_structure(input, analysis);
    block.resize(plan.bytes);
    structure = build_structure(block.data(), input, plan, analysis);
  }
};

void expect_exact_counts(const Symbolic& run, const SymbolicReference& ref, int panel,
                         int trailing) {
  for (int j = 1; j <= ref.n; ++j) {
    ASSERT_EQ(run.analysis.parent[j - 1], ref.parent[j]) << "column " << j;
    ASSERT_EQ(run.analysis.colcnt[j - 1], ref.colcnt[j]) << "column " << j;
  }
  SymbolicReference eliminated = ref;
  eliminated.n = ref.n - trailing;
  const SupernodeReference super = supernodes(eliminated, panel);
  const int blocks = static_cast<int>(run.analysis.trailing_blocks.size());
  EXPECT_EQ(run.analysis.figures.supernodes + 1, static_cast<int>(super.xsuper.size()) + blocks);
  EXPECT_EQ(run.analysis.figures.largest_supernode, super.largest);
  std::int64_t l = panel_entries(eliminated, super), u = rectangle_entries(eliminated, super);
  for (int j = eliminated.n + 1; j <= ref.n; ++j) {
    l += ref.colcnt[j];
    u += ref.colcnt[j] - 1;
  }
  EXPECT_EQ(run.analysis.figures.nnz_l, l);
  EXPECT_EQ(run.analysis.figures.nnz_u, run.options.symmetric ? 1 : std::max<std::int64_t>(u, 1));
}

/// The panels partition the columns, hold the exact structure, and pass their rows on: whatever
/// panel s sends to panel t must have a row in t, or the update has nowhere to go.  Those of the
/// complement send nothing.
void expect_panels(const Symbolic& run, const SymbolicReference& ref, int panel, int trailing) {
  const Structure& s = *run.structure;
  const int n = s.n;
  ASSERT_EQ(s.xsuper(1), 1);
  ASSERT_EQ(s.xsuper(s.nsuper + 1), n + 1);
  if (trailing > 0) {
    EXPECT_EQ(s.xsuper(s.snode(n - trailing + 1)), n - trailing + 1);
  }
  std::vector<std::set<int>> rows(static_cast<std::size_t>(s.nsuper) + 1);
  for (int k = 1; k <= s.nsuper; ++k) {
    const int width = s.xsuper(k + 1) - s.xsuper(k), height = s.xlindx(k + 1) - s.xlindx(k);
    ASSERT_GE(width, 1);
    ASSERT_LE(width, panel);
    for (int p = s.xlindx(k); p < s.xlindx(k + 1); ++p) {
      if (p > s.xlindx(k)) {
        ASSERT_LT(s.lindx(p - 1), s.lindx(p)) << "panel " << k;
      }
      rows[k].insert(s.lindx(p));
    }
    for (int j = s.xsuper(k); j < s.xsuper(k + 1); ++j) {
      ASSERT_EQ(s.snode(j), k);
      ASSERT_EQ(s.lindx(s.xlindx(k) + j - s.xsuper(k)), j);
      ASSERT_TRUE(
          std::includes(rows[k].begin(), rows[k].end(), ref.column[j].begin(), ref.column[j].end()))
          << "column " << j;
    }
    ASSERT_EQ(s.xlnz(k + 1) - s.xlnz(k), height * width);
    ASSERT_EQ(s.xunz(k + 1) - s.xunz(k), run.options.symmetric ? 0 : (height - width) * width);
  }
  EXPECT_EQ(s.len_lnz, s.xlnz(s.nsuper + 1) - 1);

  std::vector<int> updates(static_cast<std::size_t>(s.nsuper) + 1, 0);
  for (int k = 1; k <= s.nsuper; ++k) {
    std::set<int> targets, ancestors;
    for (const int row : rows[k])
      if (s.snode(row) != k) targets.insert(s.snode(row));
    for (int t = s.sparent(k); t != 0; t = s.sparent(t)) {
      ASSERT_GT(t, ancestors.empty() ? k : *ancestors.rbegin());
      ancestors.insert(t);
    }
    for (const int t : targets) {
      ++updates[t];
      EXPECT_TRUE(ancestors.count(t)) << "panel " << k << " updates " << t;
      if (s.xsuper(k) > n - trailing) continue;
      for (auto row = rows[k].lower_bound(s.xsuper(t)); row != rows[k].end(); ++row)
        ASSERT_TRUE(rows[t].count(*row)) << "row " << *row << " of panel " << k << " in " << t;
    }
  }
  for (int k = 1; k <= s.nsuper; ++k) EXPECT_EQ(s.nmod(k), updates[k]) << "panel " << k;
}

/// Writes the matrix through the map and compares with P (row-matched A) P^T entry by entry.
void expect_input_map(const Symbolic& run, const Matrix& m,
                      const std::vector<int>& row_match = {}) {
  const Structure& s = *run.structure;
  const Dense a = to_dense(m);
  ASSERT_EQ(s.lmap.src.size() + s.umap.src.size(), static_cast<std::size_t>(m.nnz()));
  std::map<std::pair<int, int>, cplx> got;  // by position
  std::vector<int> used(static_cast<std::size_t>(m.nnz()) + 1, 0);
  for (int j = 1; j <= s.n; ++j) {
    const int panel = s.snode(j), width = s.xsuper(panel + 1) - s.xsuper(panel);
    const int height = s.xlindx(panel + 1) - s.xlindx(panel), k = j - s.xsuper(panel);
    for (int p = s.lmap.ptr(j); p < s.lmap.ptr(j + 1); ++p) {
      const int place = std::abs(s.lmap.dst(p)) - 1 - k * height;
      ASSERT_GE(place, 0);
      ASSERT_LT(place, height);
      cplx v = m.value(s.lmap.src(p) - 1);
      if (m.hermitian() && s.lmap.dst(p) > 0) v = std::conj(v);  // came from above the diagonal
      got[{s.lindx(s.xlindx(panel) + place), j}] += v;
      ++used[s.lmap.src(p)];
    }
    if (run.options.symmetric) continue;
    for (int p = s.umap.ptr(j); p < s.umap.ptr(j + 1); ++p) {
      const int place = s.umap.dst(p) - 1 - k * (height - width);
      ASSERT_GE(place, 0);
      ASSERT_LT(place, height - width);
      got[{j, s.lindx(s.xlindx(panel) + width + place)}] += m.value(s.umap.src(p) - 1);
      ++used[s.umap.src(p)];
    }
  }
  for (int k = 1; k <= m.nnz(); ++k) ASSERT_EQ(used[k], 1) << "entry " << k;
  for (const auto& [place, v] : got) {
    const int node = s.perm(place.first);
    const int row = row_match.empty() ? node : row_match[node - 1];
    EXPECT_EQ(v, a(row - 1, s.perm(place.second) - 1)) << place.first << " " << place.second;
  }
}

std::vector<Matrix> patterns() {
  std::vector<Matrix> list = well_conditioned(-2);
  for (Matrix& m : well_conditioned(11)) list.push_back(std::move(m));
  list.push_back(well_conditioned(1).front());
  list.push_back(magnetic_laplacian(4, 0, 3));
  list.push_back(poisson2d(20));
  list.push_back(elasticity3d(5, 4));
  list.push_back(random_indefinite(150, 0.015, 0, 7));  // several components
  return list;
}

TEST(SymbolicTest, StructureEqualsEliminationOnSets) {
  for (const Matrix& m : patterns())
    for (const Order order : {Order::natural, Order::reversed, Order::random, Order::dissection})
      for (const int panel : {2, 8, 80}) {
        SCOPED_TRACE(m.name + " " + name_of(order) + " panel " + std::to_string(panel));
        const std::vector<int> perm = make_order(adjacency_of(m), order, 5);
        const SymbolicReference ref = eliminate(m, perm);
        const Symbolic run(m, perm, panel, 0);
        ASSERT_EQ(run.status, 0);
        expect_exact_counts(run, ref, panel, 0);
        expect_panels(run, ref, panel, 0);
        expect_input_map(run, m);
        if (HasFatalFailure()) return;
      }
}

// The complement's columns hold what the eliminated ones leave there and no more, up to the zeros
// that panels may carry.
TEST(SymbolicTest, TrailingBlockIsTheComplement) {
  for (const Matrix& m : {shifted_laplacian(11, 1, true, 1), structurally_symmetric(4, 2)})
    for (const Order order : {Order::natural, Order::random, Order::dissection})
      for (const int trailing : {1, 2, 7, 40, m.n / 2, m.n - 1, m.n}) {
        SCOPED_TRACE(std::string(name_of(order)) + " trailing " + std::to_string(trailing));
        const std::vector<int> perm = make_order(adjacency_of(m), order, 9);
        const SymbolicReference ref = eliminate(m, perm, trailing);
        const Symbolic run(m, perm, 16, trailing);
        ASSERT_EQ(run.status, 0);
        expect_exact_counts(run, ref, 16, trailing);
        expect_panels(run, ref, 16, trailing);
        std::int64_t held = 0, exact = 0;
        for (int k = run.structure->snode(m.n - trailing + 1); k <= run.structure->nsuper; ++k)
          for (int j = run.structure->xsuper(k); j < run.structure->xsuper(k + 1); ++j) {
            held += run.structure->xlindx(k + 1) - run.structure->xlindx(k) -
                    (j - run.structure->xsuper(k));
            exact += ref.colcnt[j];
          }
        EXPECT_LE(0.6 * static_cast<double>(held), static_cast<double>(exact));
      }
}

// Two halves of a grid and the line between them.
TEST(SymbolicTest, RangesBecomePanelRangesThatNoPanelCrosses) {
  const int g = 13, half = g / 2;
  const Matrix m = poisson2d(g);
  std::vector<int> perm;
  for (const auto& [from, to] : {std::pair{0, half}, {half + 1, g}, {half, half + 1}})
    for (int x = from; x < to; ++x)
      for (int y = 0; y < g; ++y) perm.push_back(y * g + x + 1);
  const Vector<Range> ranges = {
      {1, half * g}, {half * g + 1, 2 * half * g}, {2 * half * g + 1, m.n}};
  const Symbolic run(m, perm, 80, 0, ranges);
  ASSERT_EQ(run.status, 0);
  expect_panels(run, eliminate(m, perm), 80, 0);
  const Structure& s = *run.structure;
  ASSERT_EQ(s.nparts, 2);
  int next = 1;
  for (int k = 0; k < 3; ++k) {
    const int first = s.range(2 * k + 1), last = s.range(2 * k + 2);
    EXPECT_EQ(first, next);
    EXPECT_EQ(s.xsuper(first), ranges[k].first);
    EXPECT_EQ(s.xsuper(last + 1), ranges[k].last + 1);
    next = last + 1;
  }
  // No panel of one half reaches a row of the other.
  for (int k = s.range(1); k <= s.range(2); ++k)
    for (int p = s.xlindx(k); p < s.xlindx(k + 1); ++p)
      EXPECT_TRUE(s.lindx(p) <= ranges[0].last || s.lindx(p) >= ranges[2].first);
}

TEST(SymbolicTest, RowMatchingComposesWithTheOrder) {
  const Matrix m = badly_scaled(60, 2, 11);
  std::vector<int> match(60);  // a cycle over all rows: no involution
  for (int i = 0; i < 60; ++i) match[i] = (i * 7 + 3) % 60 + 1;
  ASSERT_TRUE(is_permutation(match));
  const std::vector<int> perm = Rng(12).permutation(60);
  const Symbolic run(m, perm, 16, 0, {}, match);
  ASSERT_EQ(run.status, 0);
  expect_input_map(run, m, match);
}

// Hub first: the factor is full, 2.4e9 entries from 140000.  Positions in it take 64 bits; row
// lists as long as that, of panels of one column, are refused.
TEST(SymbolicTest, FactorsBeyond32BitsAndListsBeyondThem) {
  const Matrix m = arrow(70000, true, 1);
  std::vector<int> perm(70000);
  std::iota(perm.begin(), perm.end(), 1);
  const Symbolic run(m, perm, 80, 0);
  ASSERT_EQ(run.status, 0);
  const std::int64_t entries = 70000LL * 70001 / 2;
  EXPECT_GE(run.structure->len_lnz, entries);
  EXPECT_GE(run.analysis.figures.nnz_l, entries);
  EXPECT_NEAR(run.analysis.figures.flops, std::pow(70000.0, 3) / 3, 1e-4 * std::pow(70000.0, 3));
  EXPECT_EQ(Symbolic(m, perm, 1, 0).status, status_overflow);
}

// Every subtree takes consecutive places that end with its root; siblings rise, but for the one
// of largest size, which comes last.
TEST(SymbolicTest, PostorderOfAForest) {
  Rng rng(77);
  for (const int n : {1, 2, 30, 200})
    for (const bool by_size : {false, true}) {
      std::vector<int> parent(n), size, order(n), below(n + 1, 1), when(n + 1);
      for (int j = 1; j <= n; ++j)
        parent[j - 1] = j == n || rng.uniform() < 0.05 ? 0 : j + 1 + rng.below(std::min(6, n - j));
      for (int j = 1; j <= n && by_size; ++j) size.push_back(rng.below(4));
      postorder(View<const int>(parent), View<const int>(size), View<int>(order));
      ASSERT_TRUE(is_permutation(order));
      for (int k = 0; k < n; ++k) when[order[k]] = k;
      for (int j = 1; j <= n; ++j) below[parent[j - 1]] += below[j];
      for (int p = 1; p <= n; ++p) {
        std::vector<int> children;
        for (int j = 1; j <= n; ++j)
          if (parent[j - 1] == p) children.push_back(j);
        if (children.empty()) continue;
        const auto smaller = [&](int a, int b) { return size[a - 1] < size[b - 1]; };
        if (by_size) {
          const auto rising = std::max_element(children.rbegin(), children.rend(), smaller);
          std::rotate(rising.base() - 1, rising.base(), children.end());
        }
        int end = when[p];
        for (; !children.empty(); children.pop_back()) {
          EXPECT_EQ(when[children.back()], end - 1);
          end -= below[children.back()];
        }
      }
    }
}

}  // namespace
}  // namespace vlm::test
