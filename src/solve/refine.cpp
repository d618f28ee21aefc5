// SPDX-License-Identifier: BSD-3-Clause
/// The refinement loop and its stopping rules.
#include "solve/refine.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "base/amuxy.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "base/vector_primitives.hpp"
#include "solve/rounding_level.hpp"

namespace vlm {
namespace {

/// A residual below this part of the right-hand side is one of rounding, which may change it by
/// this factor.  Among iterates so good and so close the later one counts: its small rows, which
/// the norm does not see, are the better ones.
constexpr double rounding_level = 1e-12, rounding_noise = 16;

std::size_t vector_length(const RefineOptions& options, int n, int nrhs) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nrhs) *
         static_cast<std::size_t>(options.type.nvals());
}

/// Parts of CGS_ARR, and the arrays that the loop works on.
struct Vectors {
  std::size_t length = 0;
  const double* rhs = nullptr;   ///< right-hand side as the caller gave it
  double* iterate = nullptr;     ///< what the next step corrects: where the caller wants x
  double* kept = nullptr;        ///< columns of earlier iterates that were better
  double* correction = nullptr;  ///< residual, then the correction that it gives
  double* best = nullptr;        ///< least 1-norm of the residual of each column  [nrhs]
  double* behind = nullptr;      ///< 1 where the best of a column is the kept one  [nrhs]
  double* rounding = nullptr;    ///< residual of each column that rounding makes  [nrhs]
  double* norm = nullptr;        ///< 1-norm of the residual of each column  [nrhs]
  double* product_work = nullptr;
};

Vectors lay_out(const RefineCall& call) {
  const RefineOptions& options = call.options;
  Vectors v;
  v.length = vector_length(options, call.n, call.nrhs);
  double* next = call.cgs_arr;
  const auto take = [&](std::size_t length) {
    double* const vector = next;
    next += length;
    return vector;
  };
  v.rhs = options.solution_in_b ? take(v.length) : call.b;
  v.iterate = options.solution_in_b ? call.b : call.x;
  v.best = take(static_cast<std::size_t>(call.nrhs));
  v.behind = take(static_cast<std::size_t>(call.nrhs));
  v.rounding = take(static_cast<std::size_t>(call.nrhs));
  v.norm = take(static_cast<std::size_t>(call.nrhs));
  std::fill_n(v.behind, call.nrhs, 0.0);
  v.kept = take(v.length);
  v.correction = take(v.length);
  v.product_work = next;
  return v;
}

/// Sums of absolute values over all right-hand sides.
struct Sums {
  double rhs = 0;         ///< right-hand side
  double x = 0;           ///< solution of the plain solve
  double residual = 0;    ///< of the step
  double correction = 0;  ///< of the step

  /// Size of the step's correction beside the first solution.  A zero right-hand side has the
  /// exact solution zero, whatever the correction; a zero solution of any other has none.
  double relative_correction() const {
    if (rhs == 0) return 0;
    return x == 0 ? std::numeric_limits<double>::infinity() : correction / x;
  }
};

enum class Verdict { go_on, leave, no_contraction };

/// Decides after each step; keeps the residual that the next one has to beat.
class StoppingRule {
 public:
  /// @param limit  iparm(8)
  StoppingRule(int limit, double rhs_sum)
      : limit_(std::abs(limit)), may_end_early_(limit > 0), best_(rhs_sum) {}

  Verdict judge(int step, const Sums& sums) {
    if (step == 2 && limit_ == 0) return Verdict::leave;
    if (step == 1 && sums.residual > sums.rhs) best_ = 2 * sums.residual;
    if (step == limit_) return Verdict::leave;
    // Before the step only rounding was left: a limit that is one, not a number of steps, ends
    // here.
    if (may_end_early_ && sums.residual <= rounding_level * sums.rhs) return Verdict::leave;
    if (sums.residual < 0.9 * best_) {
      best_ = sums.residual;
      return Verdict::go_on;
    }
    if (step <= 3 && step < limit_) return Verdict::go_on;
    return sums.relative_correction() > 0.5 ? Verdict::no_contraction : Verdict::leave;
  }

 private:
  int limit_;
  bool may_end_early_;
  double best_;
};

/// Columns of a product between two looks at the listener.
constexpr int listening_block = 8;

/// Values of a column that the rows of the Schur complement don't hold.
std::size_t leading_length(const RefineCall& call) {
  return vector_length(call.options, call.n - call.options.schur, 1);
}

/// A limit that is one, not a number of steps, takes none where there is nothing to gain, unless the
/// error is to be told: its bound would tell what a step removes.
bool tests_for_gain(const RefineOptions& options) {
  return options.limit > 0 && !options.to_the_end && options.schur == 0;
}

/// Whether a test says that there is nothing to gain.  One that does not leaves the residuals and
/// their norms.
bool nothing_to_gain(const RefineCall& call, const Vectors& v) {
  const RefineOptions& options = call.options;
  if (!tests_for_gain(options)) return false;
  const SparseProduct product{call.matrix, options.type.mtype, options.transpose, options.threads};
  return at_rounding_level(product, call.nrhs, v.iterate, v.rhs, call.room, {v.correction, v.norm});
}

/// Keeps the right-hand sides where the solution overwrites them.  @return sum over all of them
double measure_rhs(const RefineCall& call, const Vectors& v) {
  const std::size_t column = vector_length(call.options, call.n, 1);
  const int threads = call.options.threads;
  double total = 0;
  for (int k = 0; k < call.nrhs; ++k) {
    const double* const b = call.b + column * static_cast<std::size_t>(k);
    double sum = 0;
    if (v.rhs != call.b) sum = conv8_16(column, b, call.cgs_arr + (b - call.b), threads);
    if (v.rhs == call.b || call.options.schur > 0)
      sum = sum_of_absolutes(leading_length(call), b, threads);
    v.rounding[k] = rounding_level * sum;
    total += sum;
  }
  return total;
}

/// The residual of the iterate, into v.correction, and its norms.
void measure_residual(const RefineCall& call, const Vectors& v) {
  const RefineOptions& options = call.options;
  const SparseProduct product{call.matrix, options.type.mtype, options.transpose, options.threads};
  const std::size_t column = vector_length(options, call.n, 1);
  double total = 0;
  for (int k = 0; k < call.nrhs; k += listening_block) {
    pulse();
    const std::size_t at = column * static_cast<std::size_t>(k);
    total += amuxy_res_velmora(product, std::min(listening_block, call.nrhs - k), v.iterate + at,
                               v.rhs + at, v.correction + at, v.product_work);
  }
  for (int k = 0; k < call.nrhs; ++k) {
    const double* const residual = v.correction + column * static_cast<std::size_t>(k);
    const bool summed = call.nrhs == 1 && options.schur == 0;
    v.norm[k] = summed ? total : sum_of_absolutes(leading_length(call), residual, options.threads);
  }
}

/// Of which columns the iterate, whose residual has been measured, is the best.  Where none is
/// finite the last one counts, so that a NaN shows.
/// @return sum of the residual over all right-hand sides
double judge_iterate(const RefineCall& call, const Vectors& v, bool first) {
  double total = 0;
  for (int k = 0; k < call.nrhs; ++k) {
    const double norm = v.norm[k];
    total += norm;
    if (first) {
      v.behind[k] = 0;
      v.best[k] = norm;
      continue;
    }
    const double factor = v.best[k] <= v.rounding[k] ? rounding_noise : 1.0;
    const bool worse = norm > factor * v.best[k] || (std::isnan(norm) && std::isfinite(v.best[k]));
    v.behind[k] = worse ? 1.0 : 0.0;
    if (v.behind[k] == 0) v.best[k] = std::fmin(norm, v.best[k]);
  }
  return total;
}

/// Adds the corrections, and keeps the columns that are the best so far.
/// @return sum of the corrections over all right-hand sides
double correct_iterate(const RefineCall& call, const Vectors& v) {
  const int threads = call.options.threads;
  const std::size_t column = vector_length(call.options, call.n, 1);
  double sum = 0;
  for (int k = 0; k < call.nrhs; ++k) {
    pulse();
    const std::size_t at = column * static_cast<std::size_t>(k);
    sum += v.behind[k] == 0
               ? keep_and_add(column, v.correction + at, v.iterate + at, v.kept + at, threads)
               : sum8_16(column, v.correction + at, v.iterate + at, threads);
  }
  return sum;
}

/// Gives back the columns that a later step made worse.
void restore_best(const RefineCall& call, const Vectors& v) {
  const std::size_t column = vector_length(call.options, call.n, 1);
  for (int k = 0; k < call.nrhs; ++k) {
    const std::size_t at = column * static_cast<std::size_t>(k);
    if (v.behind[k] != 0) conv8_16(column, v.kept + at, v.iterate + at, call.options.threads);
  }
}

int refinement_loop(const RefineCall& call, const SolveStep& solve, const Vectors& v, Sums sums,
                    RefineResult& result) {
  const RefineOptions& options = call.options;
  StoppingRule rule(options.limit, sums.rhs);
  Verdict verdict = Verdict::go_on;
  for (int step = 1; verdict == Verdict::go_on; ++step) {
    if (step > 1 && nothing_to_gain(call, v)) return status_ok;
    if (!tests_for_gain(options)) measure_residual(call, v);
    sums.residual = judge_iterate(call, v, step == 1);
    if (const int status = solve(call.nrhs, v.correction, v.correction)) {
      restore_best(call, v);
      return status;
    }
    sums.correction = correct_iterate(call, v);
    result.steps = step;
    verdict = rule.judge(step, sums);
  }
  if (!nothing_to_gain(call, v)) {  // else the last iterate is as good as any
    if (!tests_for_gain(options)) measure_residual(call, v);
    judge_iterate(call, v, false);
    restore_best(call, v);
  }
  result.cut = verdict == Verdict::leave && options.limit == 0 && result.steps == 2;
  return verdict == Verdict::leave ? status_ok : status_contraction;
}

}  // namespace

std::size_t refine_bytes(const RefineOptions& options, int n, int nrhs) {
  const std::size_t vectors = vector_length(options, n, nrhs);
  return ((options.solution_in_b ? 3 : 2) * vectors + 4 * static_cast<std::size_t>(nrhs)) *
             sizeof(double) +
         amuxy_work_bytes(n, options.type.mtype, options.transpose, options.threads);
}

std::size_t refine_room_bytes(const RefineOptions& options, int n, int nrhs) {
  if (!options.due || !tests_for_gain(options)) return 0;
  return rounding_room(n, options.type.nvals(), nrhs, options.threads) * sizeof(double);
}

int refine_velmora(const RefineCall& call, const SolveStep& solve, RefineResult& result) {
  const RefineOptions& options = call.options;
  result = {};
  if (!options.due) return solve(call.nrhs, call.b, options.solution_in_b ? call.b : call.x);

  const Vectors v = lay_out(call);
  Sums sums;
  if (options.solution_in_b) sums.rhs = measure_rhs(call, v);
  if (const int status = solve(call.nrhs, call.b, v.iterate)) return status;
  if (nothing_to_gain(call, v)) return status_ok;
  if (!options.solution_in_b) sums.rhs = measure_rhs(call, v);
  const std::size_t column = vector_length(options, call.n, 1);
  for (std::size_t at = 0; at < v.length; at += column) {
    pulse();
    sums.x += sum_of_absolutes(column, v.iterate + at, options.threads);
  }
  return refinement_loop(call, solve, v, sums, result);
}

}  // namespace vlm
