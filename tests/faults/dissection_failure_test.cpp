// SPDX-License-Identifier: BSD-3-Clause
// Every allocation of a dissection fails once: on one thread and within a team.
#include <gtest/gtest.h>

#include "allocations.hpp"
#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "ordering/gepmetis.hpp"

namespace vlm {
namespace {

TEST(OrderingFailure, EveryAllocationTellsItsBytes) {
  const test::Matrix m = test::poisson3d(13);
  Adjacency graph;
  ladj_mod_velmora({m.n, View<const int>(m.ia), View<const int>(m.ja)}, graph);
  Ordering whole;
  gepmetis_velmora(graph, {3, 1}, whole);
  for (const int threads : {1, 3}) {
    int failures = 0;
    for (bool failed = true; failed; ++failures) {
      failed = false;
      Ordering order;
      std::size_t told = 0;
      test::allocations::arm(failures + 1);
      try {
        gepmetis_velmora(graph, {3, threads}, order);
      } catch (const AllocationFailure& failure) {
        failed = true;
        told = failure.bytes;
      }
      EXPECT_EQ(told, test::allocations::disarm().bytes);
      EXPECT_TRUE(failed || order.perm == whole.perm) << threads << " threads";
    }
    EXPECT_GT(failures, 200) << "the graph is too small to be cut";
  }
}

}  // namespace
}  // namespace vlm
