// SPDX-License-Identifier: BSD-3-Clause
// Every allocation of a dissection fails once: on one thread and within a team.
#include <gtest/gtest.h>

#include "allocations.hpp"
#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "ordering/dissect.hpp"

namespace vlm {
namespace {

TEST(OrderingFailure, EveryAllocationTellsItsBytes) {
  const test::Matrix m = test::poisson3d(13);
  Adjacency graph;
  ladj_mod_velmora({m.n, View<const int>(m.ia), View<const int>(m.ja)}, graph);
  const WeightedGraph nodes = weighted_graph(graph);
  DissectionGoal goal{.domains = 3, .operation_cost = 8};  // so that cuts pay
  goal.tuning.least_team = 0;
  goal.tuning.least_shared = 1000;
  const Dissection whole = dissect(nodes, goal);
  for (const int threads : {1, 3}) {
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
      failed = false;
      Dissection found;
      std::size_t told = 0;
      test::allocations::arm(failures + 1);
      try {
        goal.threads = threads;
        found = dissect(nodes, goal);
      } catch (const AllocationFailure& failure) {
        failed = true;
        told = failure.bytes;
      }
      EXPECT_EQ(told, test::allocations::disarm().bytes);
      EXPECT_TRUE(failed || found.order == whole.order) << threads << " threads";
    }
    EXPECT_GT(failures, 200) << "the graph is too small to be cut";
  }
}

}  // namespace
}  // namespace vlm
