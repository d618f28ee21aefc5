// SPDX-License-Identifier: BSD-3-Clause
/// First solve, iteration and accuracy, see stabilised_stage.hpp.
#include "driver/stabilised_stage.hpp"

#include <algorithm>

#include "base/clock.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"

namespace vlm {
namespace {

/// Residual, as a part of b, with which a solve by the matrix's own, unperturbed factor is content.
constexpr double fresh_residual = 1e-12;
/// Solves for the accuracy figures with a kept factor: residual that is enough, and steps.
constexpr double rough_residual = 1e-6;
constexpr IterationLimits rough_limits{.most = 50, .judged_from = 51};

std::size_t vector_length(const StageArrays& arrays, int nrhs) {
  return static_cast<std::size_t>(arrays.call.n) * static_cast<std::size_t>(nrhs) *
         static_cast<std::size_t>(arrays.control.options.type->nvals());
}

StabiliseOptions turned(StabiliseOptions options) {
  options.transpose = !options.type.symmetric && !options.transpose;
  return options;
}

/// The solution has a place of its own until the iteration has succeeded, so that b is not needed
/// to be kept.
AccuracyOptions accuracy_of(const StageArrays& arrays) {
  AccuracyOptions options = accuracy_options(arrays.control.options, arrays.call);
  options.solution_in_b = false;
  return options;
}

/// Adds the seconds of a block to a timer; a second attempt counts as well.
class AddingStopwatch {
 public:
  explicit AddingStopwatch(double& seconds) : seconds_(seconds), start_(timer_velmora()) {}
  ~AddingStopwatch() { seconds_ = std::max(seconds_, 0.0) + timer_velmora() - start_; }
  AddingStopwatch(const AddingStopwatch&) = delete;
  AddingStopwatch& operator=(const AddingStopwatch&) = delete;

 private:
  double& seconds_;
  double start_;
};

/// Parts of CGS_ARR.
struct Parts {
  std::size_t solution = 0;   ///< doubles of x, where it is to overwrite b
  std::size_t rhs = 0;        ///< right-hand sides of the solves for the accuracy
  std::size_t iteration = 0;  ///< vectors of the iteration
  std::size_t accuracy = 0;
};

Parts parts_of(const StageArrays& arrays) {
  const Call& call = arrays.call;
  const StabiliseOptions options = stabilise_options(arrays.control.options);
  const AccuracyOptions accuracy = accuracy_of(arrays);
  const auto iteration = [&](const StabiliseOptions& o) {
    return stabilised_bytes(o, call.n, call.nrhs) / sizeof(double);
  };
  Parts parts;
  if (arrays.control.options.solution_in_b) parts.solution = vector_length(arrays, call.nrhs);
  parts.iteration = iteration(options);
  parts.accuracy = accuracy_bytes(accuracy, call.n, call.nrhs) / sizeof(double);
  if (accuracy.level == 2 && !arrays.fresh) {
    parts.rhs = vector_length(arrays, std::min(call.nrhs, accuracy_block));
    parts.iteration = std::max(parts.iteration, iteration(turned(options)));
  }
  return parts;
}

/// The system that is solved, or the one with the transposed matrix.
enum class Side { as_asked, turned };

/// One run of the stage.  The steps that it hands on capture no more than a std::function takes
/// without an allocation.
class StabilisedStage {
 public:
  explicit StabilisedStage(StageArrays& arrays)
      : arrays_(arrays),
        call_(arrays.call),
        timer_(arrays.control.clocks.timer),
        options_(stabilise_options(arrays.control.options)),
        length_(vector_length(arrays, call_.nrhs)) {
    options_.corrected = arrays.fresh;
    if (arrays.fresh && arrays.control.results.factor.perturbed == 0)
      options_.sufficient = fresh_residual;
    const Parts parts = parts_of(arrays);
    double* const start = arrays.cgs_arr;
    x_ = parts.solution > 0 ? start : call_.x;
    rhs_ = start + parts.solution;
    iteration_ = rhs_ + parts.rhs;
    accuracy_ = iteration_ + parts.iteration;
  }

  int run() {
    const double start = timer_velmora();
    if (const int status = solve(Side::as_asked, call_.nrhs, call_.b, x_)) return status;
    const double seconds = timer_velmora() - start;
    timer_.solve = std::max(timer_.solve, 0.0) + seconds;
    if (const int status = iterate(seconds)) return status;
    const int status = measure();
    if (x_ != call_.x && !(status != status_ok && arrays_.may_factor))
      std::copy_n(x_, length_, call_.b);
    return status;
  }

 private:
  StabiliseOptions options_of(Side side) const {
    return side == Side::as_asked ? options_ : turned(options_);
  }

  /// One solve with the factor.
  int solve(Side side, int nrhs, const double* in, double* out) const {
    pulse();
    SolveOptions options = solve_options(arrays_.control.options);
    options.transpose = options_of(side).transpose;
    return solve_velmora(options, *arrays_.structure, arrays_.matching, arrays_.record->lu, nrhs,
                         in, out, arrays_.work);
  }

  SolveStep solve_with(Side side) const {
    return [this, side](int nrhs, const double* in, double* out) {
      return solve(side, nrhs, in, out);
    };
  }

  /// The iteration, within what the first solve's time makes worth it.
  int iterate(double solve_seconds) {
    const int k = arrays_.control.options.stabilised.k;
    FactorRecord& record = *arrays_.record;
    const MeasuredTimes times{record.seconds, solve_seconds, options_.solves_per_step()};
    const IterationLimits affordable = iteration_limits(k, times);
    IterationLimits limits = arrays_.fresh ? widest_limits() : affordable;
    if (!arrays_.may_factor) limits.affordable = IterationLimits{}.affordable;

    IterationResult result;
    if (affordable.most >= 1) {
      const AddingStopwatch watch(timer_.cgs);
      const SolveStep step = solve_with(Side::as_asked);
      result = stabilise({.options = options_,
                          .matrix = arrays_.matrix,
                          .nrhs = call_.nrhs,
                          .b = call_.b,
                          .x = x_,
                          .solve = step,
                          .work = iteration_},
                         limits);
      call_.iparm(20) = result.figure();
    } else if (!arrays_.fresh) {
      call_.iparm(20) = not_affordable;
    }
    note_solve(record.history, affordable, times, result, arrays_.fresh);
    if (result.status != status_ok) return status_work;
    return call_.iparm(20) < 0 ? status_stabilised : status_ok;
  }

  /// A solve for the accuracy.  With a kept factor it is one that iterates, since the figures are
  /// to be those of the matrix of the call.
  SolveStep solve_for_accuracy(Side side) const {
    if (arrays_.fresh) return solve_with(side);
    return [this, side](int nrhs, const double* in, double* out) {
      return solve_roughly(side, nrhs, in, out);
    };
  }

  int solve_roughly(Side side, int nrhs, const double* in, double* out) const {
    std::copy_n(in, vector_length(arrays_, nrhs), rhs_);
    if (const int status = solve(side, nrhs, rhs_, out)) return status;
    StabiliseOptions options = options_of(side);
    options.sufficient = rough_residual;
    options.tolerance = 0;
    const SolveStep step = solve_with(side);
    return stabilise({.options = options,
                      .matrix = arrays_.matrix,
                      .nrhs = nrhs,
                      .b = rhs_,
                      .x = out,
                      .solve = step,
                      .work = iteration_},
                     rough_limits)
        .status;
  }

  int measure() {
    const AccuracyOptions accuracy = accuracy_of(arrays_);
    if (accuracy.level == 0) return status_ok;
    const AddingStopwatch watch(timer_.solve);
    const SolveStep solve = solve_for_accuracy(Side::as_asked);
    const SolveStep transpose = solve_for_accuracy(Side::turned);
    Accuracy found;
    const int failed = measure_accuracy({.options = accuracy,
                                         .matrix = arrays_.matrix,
                                         .nrhs = call_.nrhs,
                                         .b = call_.b,
                                         .x = x_,
                                         .perturbed = arrays_.control.results.factor.perturbed,
                                         .solve = solve,
                                         .transpose = transpose,
                                         .work = accuracy_},
                                        found);
    store_accuracy(call_, arrays_.control, found);
    if (failed != status_ok) return failed;
    return found.verdict == verdict_useless ? status_inaccurate : status_ok;
  }

  StageArrays& arrays_;
  const Call& call_;
  Timers& timer_;
  StabiliseOptions options_;
  const std::size_t length_;
  double *x_, *rhs_, *iteration_, *accuracy_;
};

}  // namespace

std::size_t stabilised_stage_bytes(const StageArrays& arrays) {
  const Parts parts = parts_of(arrays);
  return (parts.solution + parts.rhs + parts.iteration + parts.accuracy) * sizeof(double);
}

int run_stabilised(StageArrays& arrays) { return StabilisedStage(arrays).run(); }

}  // namespace vlm
