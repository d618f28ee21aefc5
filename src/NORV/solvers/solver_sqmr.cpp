// SPDX-License-Identifier: BSD-3-Clause
/// SQMR as velmora() uses it: tries the preconditioner alone first, drops a bad starting guess,
/// ends on stagnation or when the optimiser's hook says so.
///
/// Eight vectors of length n; nothing is allocated in the loop.
#include <algorithm>
#include <cmath>

#include "NORV/solvers/krylov.hpp"
#include "NORV/solvers/sqmr_recursion.hpp"
#include "base/clock.hpp"

namespace vlm {
namespace {

struct Problem {
  double epsilon;
  smat* A;
  vec *x, *xbest;
  const vec* b;
  precon* M;
  int maxiter, non_improvement;
  int stop_crit;
  solver* s;
};

template <class T>
class Sqmr {
 public:
  explicit Sqmr(const Problem& problem)
      : p(problem),
        hook(termination_hook()),
        start(timer_velmora()),
        core({.right = false, .smoothed = true, .breakdown = 0.0}, &problem.A->op, problem.M,
             problem.b) {}

  int solve(int* status) {
    const int count = first_solution() || !begin() ? 0 : iterate();
    if (p.xbest != nullptr) vec_copy(p.xbest, p.x);
    if (count == 0) tell_done();
    *status = state;
    return count;
  }

 private:
  int zero_right_hand_side() {
    _norv_print_stat_msg("Zero right hand side");
    _norv_print_stat_msg("Norm of RHS:          %e", 0.0);
    vec_clear(p.x);
    relative = 0.0;
    return 1;
  }

  void tell_done() {
    tell_step(p.s, 0, relative);
    if (p.s != nullptr) p.s->res = relative, p.s->iters = 0;
  }

  /// Whether M^-1 b, or x = 0 for b = 0, is good enough; it is then in x.
  bool first_solution() {
    vec* const y = core.t.get();
    precon_solve(y, p.M, p.b);
    core.residual(y, p.b);
    const double norm = vec_euclid_norm(core.r.get());
    norm_b = vec_euclid_norm(p.b);
    if (norm_b == 0.0) return zero_right_hand_side();
    relative = norm / norm_b;
    _norv_print_stat_msg("Accuracy after first solution with preconditioner: %e", relative);
    // The reduction is measured from this residual itself.
    const StoppingTest test{p.stop_crit, p.epsilon, norm_b, norm};
    const bool good = hook != nullptr
                          ? hook(norm_b, norm, static_cast<int>(y->n), y->v, core.r->v, 0) != 0
                          : test.holds(norm);
    if (!good && p.maxiter > 0) return false;
    vec_copy(p.x, y);
    return true;
  }

  void print_start() const {
    _norv_print_stat_msg("Initial solution x:");
    vec_print(p.x);
    _norv_print_stat_msg("Vector initial r:");
    vec_print(core.r.get());
    _norv_print_stat_msg("[SQMR solving before precon_solve t ...]");
  }

  void print_norms() const {
    if (norv_debug_get_level() < 1) return;
    const vec *const r = core.r.get(), *const t = core.t.get();
    _norv_print_stat_msg("Norm of s:\t   %e", vec_euclid_norm(r));
    _norv_print_stat_msg("Norm of t:\t   %e", core.tau);
    _norv_print_stat_msg("Inf Norm of s:\t   %e", vec_inf_norm(r));
    _norv_print_stat_msg("Inf Norm of t:\t   %e", vec_inf_norm(t));
    if (is_complex_v<T>) return;
    _norv_print_stat_msg("Compute rho, norm of q:\t   %e", core.tau);  // q is t
    _norv_print_stat_msg("Compute rho, norm of s:\t   %e", vec_euclid_norm(r));
  }

  /// Begins at x, or at 0 when that is better.  @return false: x is the solution
  bool begin() {
    for (bool restarted = false;; restarted = true) {
      core.residual(p.x, p.b);
      if (norv_debug_get_level() >= 1) print_start();
      core.begin();
      print_norms();
      initial = vec_euclid_norm(core.r.get());
      relative = initial / norm_b;
      _norv_print_stat_msg("Initial residual: %e", initial);
      if (relative <= 1.0 || restarted) break;  // not so for NaN either
      _norv_print_stat_msg("Initial residual is too large, set starting point to zero");
      _norv_print_stat_msg("[SQMR restart)...]");
      vec_clear(p.x);
    }
    _norv_print_stat_msg("Norm of RHS:\t   %e", norm_b);
    _norv_print_stat_msg("Rel Residual Norm %e", relative);
    if (relative != 0.0) return true;
    _norv_print_stat_msg("The solution is already correct");
    return false;
  }

  /// Whether step k, with its residual in `core`, is the last.
  bool stops(int k, double before) {
    const double norm = core.monitored;
    if (hook != nullptr) {
      _norv_print_stat_msg(
          "[IPOPT -  using function pointer defined in the IPOPT package with iter %d max_iter %d",
          k, p.maxiter);
      return hook(norm_b, norm, static_cast<int>(p.x->n), p.x->v, core.rs->v, k) != 0;
    }
    if (const int near_one = rates.enter(k, relative / before, relative);
        near_one >= 0 && near_one >= p.non_improvement) {
      NORV_DEBUG("solver_sqmr", "No improvement in %d steps.  Exitus.", p.non_improvement);
      state = NORV_SQMR_STAGNATION;
      return true;
    }
    return StoppingTest{p.stop_crit, p.epsilon, norm_b, initial}.holds(norm);
  }

  int iterate() {
    _norv_print_iter_msg("[SQMR process with tol %.3e and non_improvement %d]", p.epsilon,
                         p.non_improvement);
    tell_step(p.s, 0, relative);
    double before = relative;
    int k = 1;
    for (; k <= p.maxiter; ++k) {
      const SqmrEnd end = core.advance(k, p.x);
      if (end == SqmrEnd::rho_zero)
        _norv_print_stat_msg("SQMR convergence error (rho is zero)  Exitus");
      if (end != SqmrEnd::none) {
        state = end == SqmrEnd::rho_zero ? NORV_SQMR_RHO_ZERO : NORV_SQMR_SIGMA_ZERO;
        break;
      }
      relative = core.monitored / norm_b;
      tell_step(p.s, k, relative);
      if (stops(k, before)) break;
      core.turn();
      _norv_print_iter_msg("[SQMR step %4d (%4d),  rel.res.: %.3e,  rate: %2.3f]", k, p.maxiter,
                           relative, relative / before);
      before = relative;
    }
    tell_end(p.s, "SQMR", start, k, relative);
    _norv_print_stat_msg("Final solution x:");
    vec_print(p.x);
    if (state < 0) _norv_print_warn_msg("SQMR err: %d", state);
    if (k >= p.maxiter) state = NORV_SQMR_LIMIT;  // convergence in the last step counts as well
    _norv_print_stat_msg("SQMR final error: %d", state);
    return k;
  }

  const Problem p;
  const TerminationHook hook;
  const double start;
  SqmrRecursion<T> core;
  RateWindow<25> rates;
  double norm_b = 0, initial = 0, relative = 0;
  int state = NORV_SQMR_OK;
};

}  // namespace
}  // namespace vlm

int solve_sqmr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                     int maxiter, int non_improvement, int* status, int stop_crit, solver* s) {
  vlm::check_system(A, x, b);
  const vlm::Problem problem{epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s};
  int unwanted = 0;
  return vlm::by_kind(A->is_complex, [&](auto kind) {
    return vlm::Sqmr<decltype(kind)>(problem).solve(status != nullptr ? status : &unwanted);
  });
}

int solve_sqmr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  constexpr int non_improvement = 5;
  return solve_sqmr_param(epsilon, A, x, nullptr, b, M, maxiter, non_improvement, nullptr,
                          NORV_SC_REL_RESIDUAL, s);
}
