// SPDX-License-Identifier: BSD-3-Clause
/// The ladder of a solve, see ladder.hpp.
#include "driver/ladder.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "base/status.hpp"
#include "driver/factor_store.hpp"
#include "driver/second_factor.hpp"
#include "driver/stabilised_stage.hpp"
#include "solve/krylov_refine.hpp"

namespace vlm {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double default_target = 1e-12;
/// Exponents of the perturbations, and Krylov spaces for an answer; the last rung takes many.
constexpr int small_perturbation = 13, large_perturbation = 6;
constexpr int few_restarts = 6, many_restarts = 30;

/// Componentwise backward error to reach, dparm(44).
double target_of(const Call& call) {
  if (call.dparm.data() == nullptr) return default_target;
  const double asked = call.dparm(44);
  return asked > 0 && asked < 1 ? asked : default_target;
}

FactorSettings settings_of_caller(const Options& o) {
  return {.mtype = o.mtype,
          .matching = o.matching,
          .scaled = o.scaled,
          .pairs = o.pairs,
          .perturbation = o.perturbation,
          .order = o.order,
          .user_order = o.user_order};
}

/// Matching, scaling, 2x2 pivots, small perturbation; of types that have no matching the one that
/// covers them and has.
FactorSettings robust_settings(const Options& o) {
  FactorSettings s = settings_of_caller(o);
  if (o.type->family == Family::cholesky) s.mtype = -o.mtype;
  if (o.type->family == Family::lu) s.mtype = o.mtype + 10;
  s.matching = matrix_type(s.mtype).symmetric ? 2 : 1;
  s.scaled = true;
  s.pairs = matrix_type(s.mtype).symmetric;
  s.perturbation = small_perturbation;
  return s;
}

/// Settings of a rung that factors.
FactorSettings settings_of(Rung rung, const Options& o) {
  FactorSettings s = robust_settings(o);
  const auto make_unsymmetric = [&] {
    s.mtype = o.type->complex ? 13 : 11;
    s.matching = 1;
    s.pairs = false;
  };
  switch (rung) {
    case rung_double:
      return settings_of_caller(o);
    case rung_unmatched:
      s.matching = 0;
      s.scaled = false;
      break;
    case rung_order:
      s.user_order = false;
      s.order = o.order == OrderMethod::minimum_degree && !o.user_order
                    ? OrderMethod::dissection
                    : OrderMethod::minimum_degree;
      break;
    case rung_unsymmetric:
      make_unsymmetric();
      break;
    case rung_free:
      make_unsymmetric();
      s.free_pivots = true;
      break;
    case rung_perturbed:
      s.perturbation = large_perturbation;
      break;
    default:
      break;
  }
  return s;
}

class Climb {
 public:
  explicit Climb(StageArrays& arrays)
      : arrays_(arrays),
        call_(arrays.call),
        control_(arrays.control),
        options_(arrays.control.options),
        target_(target_of(arrays.call)),
        accuracy_options_(accuracy_options(options_, call_)),
        length_(static_cast<std::size_t>(call_.n) *
                static_cast<std::size_t>(options_.type->nvals())) {
    const std::size_t all = length_ * static_cast<std::size_t>(call_.nrhs);
    finite_ = std::all_of(call_.b, call_.b + all, [](double v) { return std::isfinite(v); });
    if (options_.solution_in_b) kept_b_.assign(call_.b, call_.b + all);
    b_ = options_.solution_in_b ? kept_b_.data() : call_.b;
    x_ = options_.solution_in_b ? call_.b : call_.x;
    accuracy_options_.solution_in_b = false;  // b is kept here
  }

  Outcome run(const std::function<Outcome()>& plain_solve) {
    const bool has_factor = static_cast<bool>(plain_solve);
    Outcome outcome{error_numeric, status_pivot, 0, 0};
    if (has_factor) {
      outcome = plain_solve();
      if (outcome && outcome.error != error_numeric) return outcome;
      accuracy_ = control_.results.accuracy;
      tell(rung_plain, accuracy_.verdict == verdict_none ? infinity : accuracy_.componentwise);
      if (is_good() && accuracy_.entrywise <= target_) return {};
    }
    if (!finite_) return outcome;
    stale_ = has_factor && !factor_is_of_call(arrays_);
    start(has_factor);
    if (is_good())
      use_own(rung_rows);  // for the rows of small |A||x|: no factor is made for them
    else
      take_rungs(has_factor);
    store_accuracy(call_, control_, accuracy_);
    call_.iparm(43) = ladder().kept;
    if (accuracy_.verdict == verdict_good || accuracy_.verdict == verdict_nearby) return {};
    if (short_of_ > 0) return {error_memory, at_factor, 0, short_of_};
    if (accuracy_.verdict == verdict_none) return outcome;
    return {error_numeric, status_inaccurate, 0, 0};
  }

 private:
  Ladder& ladder() { return control_.results.ladder; }

  /// A rung that was taken, and the error that it left.
  void tell(Rung rung, double error) {
    Ladder& l = ladder();
    if (l.count < rung_count) l.taken[l.count++] = {rung, error};
  }

  double worst_error() const {
    double worst = 0;
    for (const ColumnError& e : errors_) worst = std::max(worst, e.componentwise);
    return worst;
  }
  /// Where the condition is measured, it has to be known: else the matrix may be singular.
  bool is_certain() const {
    return accuracy_.verdict != verdict_useless && accuracy_.verdict != verdict_none &&
           std::isfinite(accuracy_.condition);
  }
  bool is_good() const { return is_certain() && accuracy_.componentwise <= target_; }

  void start(bool has_factor) {
    refiner_ = column_refiner(*options_.type, arrays_.matrix, options_.transpose, options_.threads);
    errors_.resize(static_cast<std::size_t>(call_.nrhs));
    candidate_.resize(length_);
    for (int k = 0; k < call_.nrhs; ++k) {
      double* const x = column(k);
      if (!has_factor || !std::all_of(x, x + length_, [](double v) { return std::isfinite(v); }))
        std::fill_n(x, length_, 0.0);
      errors_[static_cast<std::size_t>(k)] = refiner_->error(rhs(k), x);
    }
  }

  void take_rungs(bool has_factor) {
    FactorRecord& record = *arrays_.record;
    const bool other_values = record.second != nullptr && !record.second->is_of(call_);
    const bool usable = record.second != nullptr && (!other_values || !measures_condition());
    if (usable && use_second(*record.second, record.rung)) return;
    const bool kept_failed = usable;
    drop_second(record);
    if (has_factor && !kept_failed && use_own(rung_rows)) return;
    const Rung hint = record.rung;
    if (hint > rung_krylov && use_new(hint)) return;
    if (has_factor && use_own(rung_krylov)) return;
    for (int rung = rung_double; rung < rung_count; ++rung)
      if (rung != hint && use_new(static_cast<Rung>(rung))) return;
  }

  /// The caller's factor.  @return whether the solution is good
  bool use_own(Rung rung) {
    const SolveStep solve = solve_step(arrays_, false), transpose = solve_step(arrays_, true);
    bool improved = false;
    for (int k = 0; k < call_.nrhs; ++k) {
      ColumnError& error = errors_[static_cast<std::size_t>(k)];
      const ColumnError before = error;
      if (rung == rung_rows)
        error = refiner_->refine(solve, rhs(k), column(k), target_);
      else
        error = climb_column(solve, k, column(k), few_restarts);
      improved = improved || error.better_than(before, target_);
    }
    tell(rung, worst_error());
    if (improved) {
      const FactorResult& factor = control_.results.factor;
      if (stale_ && measures_condition())
        measure_with_stale();
      else
        measure(solve, transpose, factor.perturbed + factor.grown);
      ladder().kept = rung;
    }
    return is_good_after(rung);
  }

  /// A factor that needed help may be far from A, which the rows of small |A||x| show.
  bool is_good_after(Rung rung) const {
    return is_good() && (rung >= rung_robust || accuracy_.entrywise <= target_);
  }

  /// Both kinds of refinement of x, as far as they are needed.
  ColumnError climb_column(const SolveStep& solve, int k, double* x, int restarts) {
    ColumnError error = refiner_->refine(solve, rhs(k), x, target_);
    if (error.reaches(target_)) return error;
    error = refiner_->refine_by_krylov(solve, rhs(k), x, target_, restarts);
    return error.reaches(target_) ? refiner_->refine(solve, rhs(k), x, target_) : error;
  }

  /// A factor with the rung's settings, unless they have been tried.
  bool use_new(Rung rung) try {
    const bool made_already = !options_.single && !stale_;
    const FactorSettings settings = settings_of(rung, options_);
    if (made_already && settings == settings_of_caller(options_)) return false;
    for (int earlier = rung_double; earlier < rung_count; ++earlier)
      if (tried_[earlier] && settings_of(static_cast<Rung>(earlier), options_) == settings)
        return false;
    tried_[rung] = true;
    auto second = std::make_unique<SecondFactor>();
    const int error = second->factor(call_, options_, settings);
    if (error == error_memory) short_of_ = second->wanted();
    if (error != error_none) {
      tell(rung, infinity);
      return false;
    }
    if (!use_second(*second, rung)) return false;
    FactorRecord& record = *arrays_.record;
    record.second = second.release();
    record.rung = rung;
    return true;
  } catch (const AllocationFailure& failure) {
    short_of_ = failure.bytes;
    return false;
  }

  bool use_second(SecondFactor& second, Rung rung) {
    const SolveStep solve = second.step(options_.transpose);
    const SolveStep transpose = second.step(!options_.transpose);
    bool improved = false;
    for (int k = 0; k < call_.nrhs; ++k)
      if (!errors_[static_cast<std::size_t>(k)].reaches_all(target_))
        improved = solve_anew(k, solve, rung) || improved;
    tell(rung, worst_error());
    const FactorResult& factor = second.result();
    if (improved || !is_certain()) {
      const Accuracy before = accuracy_;
      measure(solve, transpose, factor.perturbed + factor.grown);
      // Of the same solution the factor nearest to the matrix tells the truth.
      const bool tells_more = accuracy_.contraction < before.contraction;
      if (!improved && before.verdict != verdict_none && !tells_more)
        accuracy_ = before;
      else
        ladder().kept = rung;
    }
    if (second.is_of(call_)) take_signs(second);
    return is_good_after(rung);
  }

  /// @return whether the column is better than it was
  bool solve_anew(int k, const SolveStep& solve, Rung rung) {
    double* const x = candidate_.data();
    if (solve(1, rhs(k), x) != status_ok) return false;
    if (!std::all_of(x, x + length_, [](double v) { return std::isfinite(v); })) return false;
    const int restarts = rung == rung_perturbed ? many_restarts : few_restarts;
    const ColumnError error = climb_column(solve, k, x, restarts);
    ColumnError& best = errors_[static_cast<std::size_t>(k)];
    if (!error.better_than(best, target_)) return false;
    best = error;
    std::copy_n(x, length_, column(k));
    return true;
  }

  /// Inertia from the factor that decides the most signs.
  void take_signs(const SecondFactor& second) {
    FactorResult& own = arrays_.record->result;
    const FactorResult& other = second.result();
    if (!second.has_signs() || options_.type->family != Family::ldlt) return;
    const bool complete = own.positive + own.negative == call_.n && !options_.single && !stale_;
    if (complete && other.doubtful >= own.doubtful) return;
    for (FactorResult* result : {&own, &control_.results.factor}) {
      result->positive = other.positive;
      result->negative = other.negative;
      result->doubtful = other.doubtful;
      result->doubtful_positive = other.doubtful_positive;
    }
    store_signs(call_, control_.results.factor);
  }

  void measure(const SolveStep& solve, const SolveStep& transpose, int perturbed) {
    Vector<double> work(accuracy_bytes(accuracy_options_, call_.n, call_.nrhs) / sizeof(double));
    const int status = measure_accuracy({.options = accuracy_options_,
                                         .matrix = arrays_.matrix,
                                         .nrhs = call_.nrhs,
                                         .b = b_,
                                         .x = x_,
                                         .perturbed = perturbed,
                                         .solve = solve,
                                         .transpose = transpose,
                                         .work = work.data()},
                                        accuracy_);
    if (status != status_ok) accuracy_ = {};
  }

  /// The factor's own solves say nothing of the condition of other values than its own.
  void measure_with_stale() {
    Vector<double> work(accuracy_bytes(accuracy_options_, call_.n, call_.nrhs) / sizeof(double));
    if (measure_with_kept(arrays_, b_, x_, work.data(), accuracy_) != status_ok) accuracy_ = {};
  }
  bool measures_condition() const { return accuracy_options_.level == 2; }

  double* column(int k) const { return x_ + length_ * static_cast<std::size_t>(k); }
  const double* rhs(int k) const { return b_ + length_ * static_cast<std::size_t>(k); }

  StageArrays& arrays_;
  const Call& call_;
  Control& control_;
  const Options& options_;
  const double target_;
  AccuracyOptions accuracy_options_;
  const std::size_t length_;  ///< doubles of a column
  bool finite_ = true;        ///< the right-hand sides
  bool stale_ = false;        ///< the caller's factor was made of other values
  Vector<double> kept_b_, candidate_;
  Vector<ColumnError> errors_;
  const double* b_ = nullptr;
  double* x_ = nullptr;
  std::unique_ptr<ColumnRefiner> refiner_;
  Accuracy accuracy_;
  bool tried_[rung_count] = {};
  std::size_t short_of_ = 0;  ///< bytes that a rung lacked
};

}  // namespace

bool ladder_asked(const Options& options, const Call& call) {
  return call.iparm(42) == 1 && accuracy_options(options, call).level > 0;
}

bool ladder_may_follow(const Options& options, int status) {
  return status == status_pivot && options.type->family != Family::cholesky;
}

Outcome climb(StageArrays& arrays, const std::function<Outcome()>& plain_solve) {
  return with_location(at_cgs, [&] { return Climb(arrays).run(plain_solve); });
}

}  // namespace vlm
