// SPDX-License-Identifier: BSD-3-Clause
/// First solve, iteration and accuracy, see stabilised_stage.hpp.
#include "driver/stabilised_stage.hpp"

#include <algorithm>
#include <limits>

#include "base/clock.hpp"
#include "base/memory.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "base/vector_primitives.hpp"
#include "solve/first_guess.hpp"
#include "solve/rescale.hpp"

namespace vlm {
namespace {

/// Residual, as a part of b, with which a solve by the matrix's own, unperturbed factor is content.
constexpr double fresh_residual = 1e-12;
/// Solves for the accuracy figures with a kept factor: residual that is enough, and steps.
constexpr double rough_residual = 1e-6;
constexpr IterationLimits rough_limits{.most = 150, .judged_from = 151};
/// Earlier solutions take at most one part in so many of the factor's memory.
constexpr std::size_t least_factors = 4;

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
  std::size_t gain = 0;       ///< of the first guess, a column each
  std::size_t guess = 0;      ///< its work
  std::size_t scale = 0;      ///< of the factor
  std::size_t accuracy = 0;

  std::size_t all() const { return solution + rhs + iteration + gain + guess + scale + accuracy; }
};

SparseProduct product_of(const StageArrays& arrays) {
  const Options& options = arrays.control.options;
  return {arrays.matrix, options.type->mtype, options.transpose, options.threads};
}

/// The solutions from which the first guess is made; null where the factor is that of the matrix,
/// or they promise nothing.
EarlierSolutions* solutions_for_guess(const StageArrays& arrays) {
  EarlierSolutions* const earlier = arrays.record->earlier;
  return arrays.fresh || earlier == nullptr || !earlier->promise() ? nullptr : earlier;
}

/// The figures of the factored matrix, from which the factor is scaled; null where it is that of
/// the matrix, or has none.
const RowSizes* sizes_for_scale(const StageArrays& arrays) {
  return arrays.fresh ? nullptr : arrays.record->sizes;
}

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
  if (const EarlierSolutions* const earlier = solutions_for_guess(arrays)) {
    parts.gain = static_cast<std::size_t>(call.nrhs);
    parts.guess = guess_bytes(product_of(arrays), *earlier) / sizeof(double);
  }
  if (sizes_for_scale(arrays) != nullptr) parts.scale = 2 * static_cast<std::size_t>(call.n);
  if (accuracy.level == 2 && !arrays.fresh) {
    parts.rhs = vector_length(arrays, std::min(call.nrhs, accuracy_block));
    parts.iteration = std::max(parts.iteration, iteration(turned(options)));
  }
  return parts;
}

/// The system that is solved, or the one with the transposed matrix.
enum class Side { as_asked, turned };

/// Solves with the factor at hand.  The steps that it hands on capture no more than a std::function
/// takes without an allocation.
class FactorSolves {
 public:
  /// @param rhs  copies of the right-hand sides of rough solves  [n, up to 4]
  /// @param iteration  vectors of their iterations
  FactorSolves(const StageArrays& arrays, const StabiliseOptions& options, double* rhs,
               double* iteration)
      : arrays_(arrays), options_(options), rhs_(rhs), iteration_(iteration) {}

  /// Between diagonal matrices, [2n], from now on.
  void scale_factor(const double* scale) { scale_ = scale; }

  int solve(Side side, int nrhs, const double* in, double* out) const {
    pulse();
    SolveOptions options = solve_options(arrays_.control.options);
    options.transpose = options_of(side).transpose;
    const Matching matching = scale_ != nullptr ? Matching{.scale = scale_} : arrays_.matching;
    return solve_velmora(options, *arrays_.structure, matching, arrays_.record->lu, nrhs, in, out,
                         arrays_.work);
  }

  SolveStep step(Side side) const {
    return [this, side](int nrhs, const double* in, double* out) {
      return solve(side, nrhs, in, out);
    };
  }

  /// Solves for the accuracy with a factor of other values: they iterate, since the figures are to
  /// be those of the matrix of the call.
  SolveStep rough_step(Side side) const {
    return [this, side](int nrhs, const double* in, double* out) {
      return solve_roughly(side, nrhs, in, out);
    };
  }

 private:
  StabiliseOptions options_of(Side side) const {
    return side == Side::as_asked ? options_ : turned(options_);
  }

  /// A solution that is none has no numbers, so that no figure comes of it.
  int solve_roughly(Side side, int nrhs, const double* in, double* out) const {
    const std::size_t length = vector_length(arrays_, nrhs);
    std::copy_n(in, length, rhs_);
    if (const int status = solve(side, nrhs, rhs_, out)) return status;
    StabiliseOptions options = options_of(side);
    options.sufficient = rough_residual;
    options.tolerance = 0;
    const SolveStep step = this->step(side);
    const IterationResult result = stabilise({.options = options,
                                              .matrix = arrays_.matrix,
                                              .nrhs = nrhs,
                                              .b = rhs_,
                                              .x = out,
                                              .solve = step,
                                              .work = iteration_},
                                             rough_limits);
    if (!result.converged()) std::fill_n(out, length, std::numeric_limits<double>::quiet_NaN());
    return result.status;
  }

  const StageArrays& arrays_;
  const StabiliseOptions& options_;
  double *rhs_, *iteration_;
  const double* scale_ = nullptr;
};

int measure_solution(const StageArrays& arrays, const AccuracyOptions& options,
                     const FactorSolves& solves, const double* b, const double* x, double* work,
                     Accuracy& found) {
  const auto step = [&](Side side) {
    return arrays.fresh ? solves.step(side) : solves.rough_step(side);
  };
  const SolveStep solve = step(Side::as_asked), transpose = step(Side::turned);
  const FactorResult& factor = arrays.control.results.factor;
  return measure_accuracy({.options = options,
                           .matrix = arrays.matrix,
                           .nrhs = arrays.call.nrhs,
                           .b = b,
                           .x = x,
                           .perturbed = factor.perturbed + factor.grown,
                           .solve = solve,
                           .transpose = transpose,
                           .work = work},
                          found);
}

/// One run of the stage.
class StabilisedStage {
 public:
  explicit StabilisedStage(StageArrays& arrays)
      : arrays_(arrays),
        call_(arrays.call),
        timer_(arrays.control.clocks.timer),
        options_(stabilise_options(arrays.control.options)),
        length_(vector_length(arrays, call_.nrhs)),
        parts_(parts_of(arrays)),
        solves_(arrays, options_, arrays.cgs_arr + parts_.solution,
                arrays.cgs_arr + parts_.solution + parts_.rhs) {
    options_.corrected = arrays.fresh;
    if (arrays.fresh && arrays.control.results.factor.perturbed == 0)
      options_.sufficient = fresh_residual;
    x_ = parts_.solution > 0 ? arrays.cgs_arr : call_.x;
    iteration_ = arrays.cgs_arr + parts_.solution + parts_.rhs;
    gain_ = iteration_ + parts_.iteration;
    guess_ = gain_ + parts_.gain;
    scale_ = guess_ + parts_.guess;
    accuracy_ = scale_ + parts_.scale;
  }

  int run() {
    double seconds = 0;
    if (const int status = solve_first(seconds)) return status;
    if (const int status = iterate(seconds)) return status;
    if (arrays_.record->earlier != nullptr) arrays_.record->earlier->keep(x_);
    const int status = measure();
    if (x_ != call_.x && !(status != status_ok && arrays_.may_factor))
      std::copy_n(x_, length_, call_.b);
    return status;
  }

 private:
  /// The first solutions: those that the factor gives, or a guess with what the factor gives for
  /// its residual.
  /// @param seconds  out: time of the solve
  int solve_first(double& seconds) {
    const AddingStopwatch watch(timer_.solve);
    if (const RowSizes* const sizes = sizes_for_scale(arrays_))
      if (sizes->rescale(arrays_.matrix, options_.type, scale_)) solves_.scale_factor(scale_);
    EarlierSolutions* const earlier = solutions_for_guess(arrays_);
    double *const residual = iteration_, *const correction = iteration_ + length_;
    const SparseProduct product = product_of(arrays_);
    guessed_ = earlier != nullptr && guess({.earlier = *earlier,
                                            .product = product,
                                            .nrhs = call_.nrhs,
                                            .b = call_.b,
                                            .x = x_,
                                            .residual = residual,
                                            .gain = gain_,
                                            .work = guess_});
    if (earlier != nullptr) earlier->note_guess(guessed_);
    const double start = timer_velmora();
    const int status = guessed_ ? solves_.solve(Side::as_asked, call_.nrhs, residual, correction)
                                : solves_.solve(Side::as_asked, call_.nrhs, call_.b, x_);
    seconds = timer_velmora() - start;
    if (status == status_ok && guessed_) sum8_16(length_, correction, x_, options_.threads);
    return status;
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
      const SolveStep step = solves_.step(Side::as_asked);
      result = stabilise({.options = options_,
                          .matrix = arrays_.matrix,
                          .nrhs = call_.nrhs,
                          .b = call_.b,
                          .x = x_,
                          .gain = guessed_ ? gain_ : nullptr,
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

  int measure() {
    const AccuracyOptions accuracy = accuracy_of(arrays_);
    if (accuracy.level == 0) return status_ok;
    const AddingStopwatch watch(timer_.solve);
    Accuracy found;
    const int failed = measure_solution(arrays_, accuracy, solves_, call_.b, x_, accuracy_, found);
    store_accuracy(call_, arrays_.control, found);
    if (failed != status_ok) return failed;
    return found.verdict == verdict_useless ? status_inaccurate : status_ok;
  }

  StageArrays& arrays_;
  const Call& call_;
  Timers& timer_;
  StabiliseOptions options_;
  const std::size_t length_;
  const Parts parts_;
  FactorSolves solves_;
  double *x_, *iteration_, *gain_, *guess_, *scale_, *accuracy_;
  bool guessed_ = false;
};

}  // namespace

void provide_earlier(const StageArrays& arrays) {
  EarlierSolutions*& earlier = arrays.record->earlier;
  if (earlier == nullptr) earlier = new EarlierSolutions;
  earlier->provide(vector_length(arrays, 1), arrays.call.nrhs, arrays.control.options.transpose,
                   arrays.record->bytes / least_factors);
}

std::size_t stabilised_stage_bytes(const StageArrays& arrays) {
  return parts_of(arrays).all() * sizeof(double);
}

int run_stabilised(StageArrays& arrays) { return StabilisedStage(arrays).run(); }

int measure_with_kept(const StageArrays& arrays, const double* b, const double* x, double* work,
                      Accuracy& found) {
  const Parts parts = parts_of(arrays);
  Vector<double> vectors(parts.rhs + parts.iteration);
  const StabiliseOptions options = stabilise_options(arrays.control.options);
  const FactorSolves solves(arrays, options, vectors.data(), vectors.data() + parts.rhs);
  return measure_solution(arrays, accuracy_of(arrays), solves, b, x, work, found);
}

}  // namespace vlm
