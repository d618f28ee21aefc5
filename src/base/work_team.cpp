// SPDX-License-Identifier: BSD-3-Clause
#include "base/work_team.hpp"

#include <algorithm>

#include "base/backoff.hpp"

namespace vlm {

void WorkTeam::take_turns(Loop& loop) {
  for (int k = loop.next++; k < loop.turns; k = loop.next++)
    loop.failure.guard([&] { loop.call(loop.body, k); });
}

void WorkTeam::run(Loop& loop) {
  {
    const std::lock_guard hold(latch_);
    open_.push_back(&loop);
  }
  take_turns(loop);
  Backoff backoff;
  for (bool closed = false;; backoff.wait()) {
    loop.failure.guard(pulse);
    const std::lock_guard hold(latch_);
    if (!closed) std::erase(open_, &loop);
    closed = true;
    if (loop.helpers == 0) break;
  }
  loop.failure.rethrow();
}

bool WorkTeam::help() {
  Loop* found = nullptr;
  {
    const std::lock_guard hold(latch_);
    for (Loop* loop : open_)
      if (loop->next < loop->turns) found = loop;
    if (found == nullptr) return false;
    ++found->helpers;
  }
  take_turns(*found);
  const std::lock_guard hold(latch_);
  --found->helpers;
  return true;
}

}  // namespace vlm
