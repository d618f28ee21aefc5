// SPDX-License-Identifier: BSD-3-Clause
// Faults inside a scope are exceptions, and what the call took goes back; the ledger against a
// plain set.
#include "NORV/corelib/faults.hpp"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "NORV/corelib/base.hpp"
#include "norv_log.hpp"

namespace vlm {
namespace {

/// The fault that body ends with in a scope.
template <class F>
Fault fault_of(Ledger& ledger, F&& body, int level = 0) {
  try {
    const CallScope scope(ledger, level, 1);
    body();
  } catch (const Fault& fault) {
    return fault;
  }
  ADD_FAILURE() << "no fault";
  return {};
}

TEST(Faults, EveryKindIsThrownInAScope) {
  NorvLog log(0);
  Ledger ledger;
  Fault fault = fault_of(ledger, [] { vec_dot(nullptr, nullptr); });
  EXPECT_EQ(fault.kind, FaultKind::assertion);
  EXPECT_NE(std::string(fault.text).find("\"v != 0\""), std::string::npos) << fault.text;

#ifndef VELMORA_SANITIZED  // where such a request ends the process
  fault = fault_of(ledger, [] { allocate<double>(std::uint64_t{1} << 50); });
  EXPECT_EQ(fault.kind, FaultKind::memory);
  EXPECT_EQ(fault.bytes, std::size_t{8} << 50);
#endif

  EXPECT_EQ(log.take(), "");  // nothing at level 0
  fault = fault_of(
      ledger, [] { bad_options(1, "Option %d.", 7); }, 1);
  EXPECT_EQ(fault.kind, FaultKind::options);
  EXPECT_STREQ(fault.text, "Option 7.");
  EXPECT_EQ(log.take(), "[VELMORA/ML]>> ERROR: Option 7.\n");
  fault = fault_of(ledger, [] { direct_solver_failed(-4, "failed: %d", -4); });
  EXPECT_EQ(fault.kind, FaultKind::direct);
  EXPECT_EQ(fault.code, -4);
  EXPECT_EQ(running_scope(), nullptr);
}

TEST(FaultsDeathTest, EndTheProcessElsewhere) {
  EXPECT_EXIT(bad_options(1, "Option."), ::testing::ExitedWithCode(1), "");
  EXPECT_EXIT(direct_solver_failed(-2, "failed"), ::testing::ExitedWithCode(9), "");
  EXPECT_DEATH(vec_dot(nullptr, nullptr), "v != 0");
}

TEST(Faults, ScopesAreOfOneThread) {
  NorvLog log(0);
  Ledger ledger;
  const CallScope scope(ledger, 2, 3);
  EXPECT_EQ(running_scope()->threads, 3);
  EXPECT_EQ(norv_debug_get_level(), 2);
  std::thread([] {
    EXPECT_EQ(running_scope(), nullptr);
    EXPECT_EQ(norv_debug_get_level(), 0);
  }).join();
}

// The sanitizers see what is not freed, and what is freed twice.
TEST(Ledger, ReleasesWhatAFailedCallTook) {
  Ledger ledger;
  vec* kept = nullptr;
  {
    const CallScope scope(ledger, 0, 1);
    kept = vec_new_zero(10);
    vec_release(vec_new(20));
  }
  const std::size_t blocks = ledger.blocks();
  fault_of(ledger, [&] {
    smat* const A = smat_ident(100);
    const Buffer<int> scratch(50);
    smat_realloc(A, 200);
    smat* const B = smat_copy(A);
    smat_free(A);
    smat_vecmul(nullptr, B, nullptr);
  });
  EXPECT_GT(ledger.blocks(), blocks);
  ledger.release_call();
  EXPECT_EQ(ledger.blocks(), blocks);
  EXPECT_EQ(kept->v[9], 0.0);
  ledger.release_all();
  EXPECT_EQ(ledger.blocks(), 0U);
}

TEST(Ledger, FinalizesTheLastFirst) {
  static std::vector<int> order;
  static int objects[3] = {0, 1, 2};
  order.clear();
  const auto note = [](void* object) { order.push_back(*static_cast<int*>(object)); };
  Ledger ledger;
  {
    const CallScope scope(ledger, 0, 1);
    for (int& object : objects) enter_finalizer(&object, note);
    remove_finalizer(&objects[1]);
  }
  ledger.begin_call();
  ledger.release_call();
  EXPECT_TRUE(order.empty());  // they are of another call
  ledger.release_all();
  EXPECT_EQ(order, (std::vector<int>{2, 0}));
}

TEST(Ledger, IsASet) {
  std::mt19937 random(20);
  Ledger ledger;
  std::set<void*> old_blocks, new_blocks;
  const auto change = [&](std::set<void*>& mine, int steps) {
    for (int step = 0; step < steps; ++step) {
      if (mine.empty() || random() % 5 < 3) {
        void* const block = std::malloc(random() % 100 + 1);
        ASSERT_TRUE(ledger.enter(block));
        mine.insert(block);
      } else {
        auto at = mine.lower_bound(reinterpret_cast<void*>(std::uintptr_t{random()} << 12));
        if (at == mine.end()) at = mine.begin();
        ledger.remove(*at);
        ledger.remove(*at);  // what isn't there is no matter
        std::free(*at);
        mine.erase(at);
      }
      ASSERT_EQ(ledger.blocks(), old_blocks.size() + new_blocks.size());
    }
  };
  for (int round = 0; round < 20; ++round) {
    change(old_blocks, 400);
    ledger.begin_call();
    change(new_blocks, 400);
    ledger.release_call();
    new_blocks.clear();
    ASSERT_EQ(ledger.blocks(), old_blocks.size());
  }
  for (void* const block : old_blocks) {
    ledger.remove(block);
    std::free(block);
  }
  EXPECT_EQ(ledger.blocks(), 0U);
}

}  // namespace
}  // namespace vlm
