// SPDX-License-Identifier: BSD-3-Clause
/// The decisions over a sequence of matrices, see sequence.hpp.
#include "driver/sequence.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace vlm {
namespace {

/// Iterations of a factor that replaces none, of a new one, and the fewest that justify keeping it.
constexpr int unlimited = 150, most_affordable = 100, after_factorization = 4, fewest = 5;
/// A solve of at most so many seconds took no time.
constexpr double no_time = 1e-10;
/// Part of a step's time that its solves take; products and sums take the rest.
constexpr double share_of_solves = 0.8;
constexpr int longest_pause = 16;
/// Solves of a step with a factor of its own.
constexpr double work_of_new_factor = 1;

IterationLimits limits_of(int most) {
  return {.most = most, .judged_from = static_cast<int>(static_cast<float>(most) * 0.5f + 1.0f)};
}

}  // namespace

StabilisedOption stabilised_option(int entry) {
  const std::int64_t size = std::llabs(entry);
  const int digits = static_cast<int>(size / 10);
  return {.k = entry % 10, .tolerance = digits == 0 ? 1e-12 : std::pow(10.0, -digits)};
}

IterationLimits iteration_limits(int k, const MeasuredTimes& times) {
  if (k < 0) return limits_of(unlimited);
  if (!(times.solve > no_time)) return limits_of(0);
  const double ratio = times.factor / times.solve;
  const double most = 3.0 * k * ratio * 0.45 + 1.0;
  IterationLimits limits =
      limits_of(static_cast<int>(std::clamp(most, 0.0, double{most_affordable})));
  limits.affordable = share_of_solves * ratio / times.solves_per_step;
  return limits;
}

IterationLimits widest_limits() { return limits_of(unlimited); }

bool keeps_factor(const ReuseHistory& history, int k, int figure) {
  if (k == 0 || history.failed || figure < 0) return false;
  if (k < 0) return true;
  if (history.budget < fewest || history.pause > 0) return false;
  return history.last * history.steps <= history.work + history.factoring;
}

void note_factorization(ReuseHistory& history) {
  history = {.budget = after_factorization,
             .setbacks = history.setbacks,
             .pause = std::max(history.pause - 1, 0)};
}

void note_solve(ReuseHistory& history, const IterationLimits& limits, const MeasuredTimes& times,
                const IterationResult& result, bool fresh) {
  history.budget = limits.most;
  history.failed = limits.most < 1 || !result.converged();
  ++history.steps;
  history.last = 1 + times.solves_per_step * std::max(result.count - 1, 0) / share_of_solves;
  history.work += history.last;
  history.factoring = times.factor / std::max(times.solve, no_time);
  if (fresh) return;
  if (!history.failed && history.last < history.factoring + work_of_new_factor) {
    history.setbacks = 0;
    return;
  }
  // The factorization that a failure leads to is not one of the pause.
  history.pause = std::min(1 << std::min(history.setbacks, 8), longest_pause);
  if (history.failed) ++history.pause;
  ++history.setbacks;
}

void note_plain_solve(ReuseHistory& history, double seconds) {
  history.budget = seconds > no_time ? std::min(history.budget, most_affordable) : 0;
}

}  // namespace vlm
