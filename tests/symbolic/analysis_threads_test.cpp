// SPDX-License-Identifier: BSD-3-Clause
// Every stage of an analysis gives on several threads what it gives on one.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "gallery.hpp"
#include "graph/etree.hpp"
#include "ordering/reorder1.hpp"
#include "symbolic/sched.hpp"
#include "symbolic/sfinit.hpp"
#include "symbolic/structure.hpp"
#include "symbolic/symfct.hpp"

namespace vlm {
namespace {

struct Stages {
  Analysis analysis;
  std::vector<char> block;
  const Structure* structure = nullptr;

  Stages(const test::Matrix& m, int threads, bool use_domains, const std::vector<int>& rows) {
    const int* const row_perm = rows.empty() ? nullptr : rows.data();
    OrderInput input;
    input.matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()};
    input.row_perm = row_perm;
    OrderTimes times;
    EXPECT_EQ(reorder1_velmora(input, {.symmetric = m.triangle(), .threads = threads, .domains = 3},
                               analysis, times),
              status_ok);
    const SymbolicOptions options{
        .symmetric = m.triangle(), .threads = threads, .use_domains = use_domains};
    sfinit_velmora(options, analysis);
    EXPECT_EQ(reorder2_velmora(options, analysis), status_ok);
    EXPECT_EQ(reorder3_velmora(options, analysis), status_ok);
    const MapInput map{input.matrix, row_perm, m.triangle()};
    StructurePlan plan = plan_structure(map, analysis, threads);
    block.resize(plan.bytes);
    structure = build_structure(block.data(), map, plan, analysis);
  }
};

template <class T>
bool same(View<const T> a, View<const T> b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void expect_same(const Stages& a, const Stages& b) {
  EXPECT_EQ(a.analysis.graph.xadj, b.analysis.graph.xadj);
  EXPECT_EQ(a.analysis.graph.adjncy, b.analysis.graph.adjncy);
  EXPECT_EQ(a.analysis.order.perm, b.analysis.order.perm);
  EXPECT_EQ(a.analysis.parent, b.analysis.parent);
  EXPECT_EQ(a.analysis.colcnt, b.analysis.colcnt);
  EXPECT_EQ(a.analysis.xsuper, b.analysis.xsuper);
  EXPECT_EQ(a.analysis.xlindx, b.analysis.xlindx);
  EXPECT_EQ(a.analysis.lindx, b.analysis.lindx);
  EXPECT_EQ(a.analysis.nmod, b.analysis.nmod);
  EXPECT_EQ(a.analysis.max_scaled, b.analysis.max_scaled);
  EXPECT_EQ(a.analysis.updates.start, b.analysis.updates.start);
  EXPECT_EQ(a.analysis.updates.up, b.analysis.updates.up);
  EXPECT_EQ(a.analysis.updates.uplen, b.analysis.updates.uplen);
  for (const InputMap Structure::*map : {&Structure::lmap, &Structure::umap}) {
    const InputMap &left = a.structure->*map, &right = b.structure->*map;
    EXPECT_TRUE(same(left.ptr, right.ptr) && same(left.dst, right.dst) &&
                same(left.src, right.src));
  }
}

TEST(AnalysisThreads, StagesGiveWhatOneThreadGives) {
  for (const test::Matrix& m :
       {test::poisson2d(270), test::elasticity3d(12, 1), test::convection_diffusion(28, 10, 1)}) {
    SCOPED_TRACE(m.name);
    std::vector<int> rows;
    if (!m.triangle()) rows = test::Rng(1).permutation(m.n);
    for (const bool use_domains : {false, true}) {
      const Stages one(m, 1, use_domains, {});
      ASSERT_EQ(one.analysis.order.nparts, 3);
      for (const int threads : {2, 3, 5, 8}) {
        SCOPED_TRACE(threads);
        expect_same(Stages(m, threads, use_domains, {}), one);
      }
    }
    if (!rows.empty()) expect_same(Stages(m, 3, false, rows), Stages(m, 1, false, rows));
  }
}

// The tree that an ordering hands on is that of its order.
TEST(AnalysisThreads, TreeOfTheOrderingIsTheTree) {
  for (const test::Matrix& m :
       {test::poisson2d(60), test::elasticity3d(6, 1), test::convection_diffusion(9, 10, 1),
        test::arrow(3000, true, 1), test::block_diagonal(30, 6, 1), test::tridiagonal(50, 1),
        test::diagonal_plus_few(20, 0, 1), test::dense(12, 1)})
    for (const int domains : {1, 3}) {
      SCOPED_TRACE(m.name);
      Analysis analysis;
      OrderInput input;
      input.matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()};
      OrderTimes times;
      ASSERT_EQ(
          reorder1_velmora(input, {.symmetric = m.triangle(), .domains = domains}, analysis, times),
          status_ok);
      sfinit_velmora({.symmetric = m.triangle()}, analysis);
      const OrderedPattern pattern(analysis.graph, View<const int>(analysis.order.perm),
                                   View<const int>(analysis.order.invp));
      Vector<int> parent(m.n), post(m.n), count(m.n);
      etep_velmora(pattern, View<int>(parent));
      postorder(View<const int>(parent), {}, View<int>(post));
      lnnt_velmora(pattern, View<const int>(parent), View<const int>(post), View<int>(count));
      EXPECT_EQ(analysis.parent, parent);
      EXPECT_EQ(analysis.colcnt, count);
    }
}

// Ranges that are coupled: the lists are those without ranges.
TEST(AnalysisThreads, CoupledRangesLeaveTheListsAlone) {
  const test::Matrix m = test::poisson2d(240);
  Vector<int> lists[2];
  for (const int threads : {1, 3}) {
    Analysis analysis;
    OrderInput input;
    input.matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()};
    OrderTimes times;
    ASSERT_EQ(reorder1_velmora(input, {}, analysis, times), status_ok);
    analysis.order.nparts = 2;
    analysis.order.ranges = {{1, m.n / 3}, {m.n / 3 + 1, m.n - 5}, {m.n - 4, m.n}};
    sfinit_velmora({}, analysis);
    ASSERT_EQ(reorder2_velmora({.threads = threads}, analysis), status_ok);
    lists[threads > 1] = analysis.lindx;
  }
  EXPECT_EQ(lists[0], lists[1]);
}

}  // namespace
}  // namespace vlm
