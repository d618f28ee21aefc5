// SPDX-License-Identifier: BSD-3-Clause
/// The other forms of SQMR: the older one, the one preconditioned from the right, and the one on an
/// operator.  They monitor the residual of the recursion and stop when it gets no better.
#include <cmath>

#include "NORV/solvers/sqmr_recursion.hpp"
#include "base/clock.hpp"

namespace vlm {
namespace {

enum class Form { karst, right, operation };

struct Problem {
  Form form;
  double epsilon;
  const linop* A;
  vec *x, *xbest;
  const vec* b;
  precon* M;
  int maxiter, non_improvement;
  int stop_crit;
  solver* s;
};

/// Scalars at or below this modulus are a breakdown; the operator's form tests |rho| < 1e-32.
double breakdown_bound(Form form) {
  return form == Form::operation ? std::nextafter(1e-32, 0.0) : 0.0;
}

template <class T>
class SqmrForm {
 public:
  explicit SqmrForm(const Problem& problem)
      : p(problem),
        start(timer_velmora()),
        core({.right = problem.form == Form::right,
              .smoothed = false,
              .breakdown = breakdown_bound(problem.form)},
             problem.A, problem.M, problem.b) {}

  int solve(int* status) {
    int count = 0;
    const bool known = begin();
    if (!known) count = iterate();
    tell_end(p.s, "SQMR", start, count, relative);
    if (state > 0) _norv_print_warn_msg("SQMR err: %d", state);
    if (p.form == Form::karst && !known) _norv_print_warn_msg("SQMR 2 err: %d", state);
    if (p.xbest != nullptr) vec_copy(p.xbest, p.x);
    if (status != nullptr) *status = state;
    return count;
  }

 private:
  StoppingTest test() const { return {p.stop_crit, p.epsilon, norm_b, initial}; }

  /// The residual of x as the one to begin from; its norm.
  double take_residual() {
    core.residual(p.x, p.b);
    const double norm = vec_euclid_norm(core.r.get());
    relative = norm / norm_b;
    return norm;
  }

  /// @return true: x is the solution already
  bool begin() {
    const char* const name = precon_name(p.M);
    if (p.form == Form::right)
      _norv_print_stat_msg("[SQMR with right Precond solving (%s prec.)...]", name);
    else if (p.form == Form::operation)
      _norv_print_stat_msg("[SQMR solving (%s prec.)... (linop)]", name);
    else
      _norv_print_stat_msg("[SQMR solving (%s prec.)...]", name);
    norm_b = vec_euclid_norm(p.b);
    if (norm_b == 0.0 && p.form == Form::karst) {
      vec_clear(p.x);
      tell_step(p.s, 0, relative);
      return true;
    }
    if (norm_b == 0.0) norm_b = 1.0;
    initial = take_residual();
    if (p.form == Form::karst) {
      _norv_print_stat_msg("Initial relative residual: %e", relative);
      _norv_print_stat_msg("Norm of RHS:       \t    %e", norm_b);
    } else {
      _norv_print_stat_msg("Initial residual: %e", initial);
      _norv_print_stat_msg("Norm of RHS:\t   %e", norm_b);
    }
    tell_step(p.s, 0, relative);
    if (test().holds(initial) || initial == 0.0) {
      _norv_print_stat_msg("The solution is already correct");
      return true;
    }
    core.begin();
    return p.form == Form::karst && preconditioner_alone();
  }

  /// x = M^-1 r, and the start from there.
  bool preconditioner_alone() {
    vec_copy(p.x, core.t.get());
    const double norm = take_residual();
    _norv_print_stat_msg("Initial preconditioned relative residual: %e", relative);
    if (test().holds(norm)) return true;
    _norv_print_stat_msg("[SQMR process with tolerance %.3e ]", p.epsilon);
    core.begin();
    return false;
  }

  int iterate() {
    const bool counts = p.form != Form::operation;
    double best = INFINITY, before = relative;
    int unimproved = 0;
    for (int k = 1; k <= p.maxiter; ++k) {
      const SqmrEnd end = core.advance(k, p.x);
      if (end != SqmrEnd::none) {
        state = end == SqmrEnd::rho_zero ? 2 : 1;
        return k;
      }
      relative = core.monitored / norm_b;
      tell_step(p.s, k, relative);
      _norv_print_iter_msg("[SQMR step %3d,  rel.res.: %.3e,  rate: %2.3f]", k, relative,
                           relative / before);
      before = relative;
      if (test().holds(core.monitored)) return k;
      unimproved = core.monitored < best ? 0 : unimproved + 1;
      best = std::fmin(best, core.monitored);
      if (counts && unimproved > p.non_improvement) {
        NORV_DEBUG("solver_sqmr", "No improvement in %d steps.  Exitus.", p.non_improvement);
        state = 1;
        return k;
      }
      core.turn();
    }
    state = 1;
    return p.maxiter;
  }

  const Problem p;
  const double start;
  SqmrRecursion<T> core;
  double norm_b = 0, initial = 0, relative = 0;
  int state = 0;
};

int run(const Problem& problem, int is_complex, int* status) {
  return by_kind(is_complex,
                 [&](auto kind) { return SqmrForm<decltype(kind)>(problem).solve(status); });
}

int run(Form form, double epsilon, const smat* A, vec* x, vec* xbest, const vec* b, precon* M,
        int maxiter, int non_improvement, int* status, int stop_crit, solver* s) {
  check_system(A, x, b);
  return run({form, epsilon, &A->op, x, xbest, b, M, maxiter, non_improvement, stop_crit, s},
             A->is_complex, status);
}

}  // namespace
}  // namespace vlm

int solve_sqmr_param_karst(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                           int maxiter, int non_improvement, int* status, int stop_crit,
                           solver* s) {
  return vlm::run(vlm::Form::karst, epsilon, A, x, xbest, b, M, maxiter, non_improvement, status,
                  stop_crit, s);
}

int solve_sqmr_right_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                           int maxiter, int non_improvement, int* status, int stop_crit,
                           solver* s) {
  return vlm::run(vlm::Form::right, epsilon, A, x, xbest, b, M, maxiter, non_improvement, status,
                  stop_crit, s);
}

int solve_sqmr_lo_param(double epsilon, const linop* A, vec* x, const vec* b, precon* M,
                        int maxiter, int stop_crit, solver* s) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT_TEXT(static_cast<unsigned>(A->m) == x->n, "A->m == x->n");
  NORV_ASSERT_TEXT(static_cast<unsigned>(A->m) == b->n, "A->m == b->n");
  NORV_ASSERT(x->is_complex == b->is_complex);
  return vlm::run(
      {vlm::Form::operation, epsilon, A, x, nullptr, b, M, maxiter, maxiter, stop_crit, s},
      x->is_complex, nullptr);
}
