// SPDX-License-Identifier: BSD-3-Clause
/// The refinement loop and its stopping rules.
#include "solve/refine.hpp"

#include <cmath>
#include <cstdlib>
#include <limits>

#include "base/amuxy.hpp"
#include "base/status.hpp"
#include "base/vector_primitives.hpp"

namespace vlm {
namespace {

std::size_t vector_length(const RefineOptions& options, int n, int nrhs) {
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nrhs) *
         static_cast<std::size_t>(options.type.nvals());
}

bool keeps_accumulator(const RefineOptions& options) { return options.limit < 0; }

/// Parts of CGS_ARR, and the arrays that the loop works on.
struct Vectors {
  std::size_t length = 0;
  const double* rhs = nullptr;    ///< right-hand side as the caller gave it
  double* solution = nullptr;     ///< what the caller receives
  double* accumulator = nullptr;  ///< refined solution; the solution itself without the mode
  double* correction = nullptr;   ///< residual, then the correction that it gives
  double* product_work = nullptr;
};

Vectors lay_out(const RefineCall& call) {
  const RefineOptions& options = call.options;
  Vectors v;
  v.length = vector_length(options, call.n, call.nrhs);
  double* next = call.cgs_arr;
  const auto take = [&] {
    double* const vector = next;
    next += v.length;
    return vector;
  };
  v.rhs = options.solution_in_b ? take() : call.b;
  v.solution = options.solution_in_b ? call.b : call.x;
  v.accumulator = keeps_accumulator(options) ? take() : v.solution;
  v.correction = take();
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
  StoppingRule(int limit, double rhs_sum) : limit_(limit), best_(rhs_sum) {}

  Verdict judge(int step, const Sums& sums) {
    if (step == 2 && limit_ == 0) return Verdict::leave;
    if (step == 1 && sums.residual > sums.rhs) best_ = 2 * sums.residual;
    if (step == limit_) return Verdict::leave;
    if (sums.residual < 0.9 * best_) {
      best_ = sums.residual;
      return Verdict::go_on;
    }
    if (step <= 3 && step < limit_) return Verdict::go_on;
    return sums.relative_correction() > 0.5 ? Verdict::no_contraction : Verdict::leave;
  }

 private:
  int limit_;
  double best_;
};

int refinement_loop(const RefineCall& call, const SolveStep& solve, const Vectors& v, Sums sums,
                    RefineResult& result) {
  const RefineOptions& options = call.options;
  const SparseProduct product{call.matrix, options.type.mtype, options.transpose, options.threads};
  StoppingRule rule(std::abs(options.limit), sums.rhs);
  for (int step = 1;; ++step) {
    sums.residual =
        amuxy_res_velmora(product, call.nrhs, v.accumulator, v.rhs, v.correction, v.product_work);
    if (const int status = solve(call.nrhs, v.correction, v.correction)) return status;
    sums.correction = sum8_16(v.length, v.correction, v.accumulator, options.threads);
    result.steps = step;
    const Verdict verdict = rule.judge(step, sums);
    if (verdict == Verdict::no_contraction) return status_contraction;
    if (verdict == Verdict::leave) break;
  }
  result.cut = options.limit == 0 && result.steps == 2;
  return status_ok;
}

}  // namespace

std::size_t refine_bytes(const RefineOptions& options, int n, int nrhs) {
  const std::size_t vectors =
      1 + (options.solution_in_b ? 1 : 0) + (keeps_accumulator(options) ? 1 : 0);
  return vectors * vector_length(options, n, nrhs) * sizeof(double) +
         amuxy_work_bytes(n, options.type.mtype, options.transpose, options.threads);
}

int refine_velmora(const RefineCall& call, const SolveStep& solve, RefineResult& result) {
  const RefineOptions& options = call.options;
  result = {};
  if (!options.due) return solve(call.nrhs, call.b, options.solution_in_b ? call.b : call.x);

  const Vectors v = lay_out(call);
  const int threads = options.threads;
  Sums sums;
  sums.rhs = v.rhs == call.b ? sum_of_absolutes(v.length, call.b, threads)
                             : conv8_16(v.length, call.b, call.cgs_arr, threads);
  if (const int status = solve(call.nrhs, call.b, v.solution)) return status;
  sums.x = v.accumulator == v.solution ? sum_of_absolutes(v.length, v.solution, threads)
                                       : conv8_16(v.length, v.solution, v.accumulator, threads);
  const int status = refinement_loop(call, solve, v, sums, result);
  const bool finished = status == status_ok || status == status_contraction;
  if (finished && v.accumulator != v.solution)
    conv8_16(v.length, v.accumulator, v.solution, threads);
  return status;
}

}  // namespace vlm
