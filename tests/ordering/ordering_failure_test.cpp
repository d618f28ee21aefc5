// SPDX-License-Identifier: BSD-3-Clause
// Every allocation of a dissection fails once: on one thread and within a team.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "gallery.hpp"
#include "graph/adjacency.hpp"
#include "ordering/gepmetis.hpp"

namespace {

// Counts down to the allocation of a Vector that fails; negative: none does.
std::atomic<long> until_failure{-1};

}  // namespace

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
  if (until_failure.load() >= 0 && until_failure.fetch_sub(1) == 0) return nullptr;
  return std::malloc(bytes != 0 ? bytes : 1);
}
void* operator new(std::size_t bytes) {
  if (void* block = std::malloc(bytes != 0 ? bytes : 1)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace vlm {
namespace {

TEST(OrderingFailure, EveryAllocationTellsItsBytes) {
  const test::Matrix m = test::poisson3d(13);
  Adjacency graph;
  ladj_mod_velmora({m.n, View<const int>(m.ia), View<const int>(m.ja)}, graph);
  Ordering whole;
  gepmetis_velmora(graph, {3, 1}, whole);
  for (const int threads : {1, 3}) {
    long failures = 0;
    for (bool failed = true; failed; ++failures) {
      failed = false;
      Ordering order;
      until_failure = failures;
      try {
        gepmetis_velmora(graph, {3, threads}, order);
      } catch (const AllocationFailure& failure) {
        failed = true;
        EXPECT_GT(failure.bytes, 0U);
      }
      until_failure = -1;
      EXPECT_TRUE(failed || order.perm == whole.perm) << threads << " threads";
    }
    EXPECT_GT(failures, 200) << "the graph is too small to be cut";
  }
}

}  // namespace
}  // namespace vlm
