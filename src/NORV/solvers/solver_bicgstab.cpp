// SPDX-License-Identifier: BSD-3-Clause
/// BiCGStab with the preconditioner on the right (H. A. van der Vorst, Bi-CGSTAB: a fast and
/// smoothly converging variant of Bi-CG for the solution of nonsymmetric linear systems, 1992).
/// Seven vectors of length n; nothing is allocated in the loop.
#include "NORV/solvers/krylov.hpp"

namespace vlm {
namespace {

template <class T>
class Bicgstab {
 public:
  explicit Bicgstab(const KrylovProblem& problem) : p(problem), run("BICGSTAB", problem) {
    for (ScratchVec* each : {&r, &shadow, &direction, &changed, &v, &t}) *each = scratch_like(p.b);
  }

  KrylovResult solve() {
    smat_calc_residual(r.get(), p.A, p.x, p.b);
    const double norm = vec_euclid_norm(r.get()), norm_b = vec_euclid_norm(p.b);
    print_start(norm, norm_b);
    if (run.known(norm_b, norm) || p.maxiter <= 0) return run.finish(0);
    vec_copy(shadow.get(), r.get());
    norm_r = norm;
    for (int i = 1; i <= p.maxiter; ++i)
      if (step(i)) return run.finish(i);
    return run.finish(p.maxiter);
  }

 private:
  void print_start(double norm, double norm_b) const {
    tell_limits(p);
    if (norv_debug_get_level() < 1) return;
    _norv_print_stat_msg("Initial solution x:");
    vec_print(p.x);
    _norv_print_stat_msg("Vector initial r:");
    vec_print(r.get());
    _norv_print_stat_msg("Initial residual: %e", norm);
    _norv_print_stat_msg("Norm of RHS:      %e", norm_b);
    _norv_print_stat_msg("[BICGSTAB process with tolerance %.3e and non_improvement %d]", p.epsilon,
                         p.non_improvement);
  }

  bool ends(const char* text) {
    NORV_DEBUG("solver_bicgstab", "%s", text);
    run.break_down();
    return true;
  }

  /// direction = r + beta (direction - omega v).
  void turn(T beta) {
    const T *const residual = values<T>(r.get()), *const moved = values<T>(v.get());
    T* const to = values<T>(direction.get());
    const T along = omega;
    for_values(r->n, [=](std::size_t k) {
      to[k] = residual[k] + product(beta, to[k] - product(along, moved[k]));
    });
  }

  /// Whether the iterate x + alpha M^-1 direction, with the residual in r, is the last.
  bool half_step_ends(int i, double norm, T alpha) {
    if (hook == nullptr) {
      // The other criteria look at the residual that the last step left.
      const bool by_this = p.stop_crit == NORV_SC_REL_RESIDUAL;
      if (norm != 0.0 && !run.holds(by_this ? norm : norm_r)) return false;
      add_scaled(alpha, changed.get(), p.x);
    } else {
      _norv_print_iter_msg("[Pelto rel_res_norm_prev %e rel_res_norm  %e ]", run.relative,
                           norm / run.norm_b);
      vec_copy(t.get(), p.x);
      add_scaled(alpha, changed.get(), t.get());  // the iterate that the hook judges
      if (hook(run.norm_b, norm, static_cast<int>(t->n), t->v, r->v, i) == 0) return false;
      vec_copy(p.x, t.get());
    }
    run.take(i, norm);
    run.solved();
    return true;
  }

  /// Step i, from 1.  @return whether it is the last
  bool step(int i) {
    _norv_print_iter_msg("[Pelto rel_res_norm_prev %d ]", i);
    const T rho = inner<T>(shadow.get(), r.get());
    if (breaks(rho)) return ends("Rho zero.");
    if (i == 1)
      vec_copy(direction.get(), r.get());
    else
      turn(rho / rho_before * (alpha_before / omega));
    precon_solve(changed.get(), p.M, direction.get());
    smat_vecmul(v.get(), p.A, changed.get());
    const T sigma = inner<T>(shadow.get(), v.get());
    if (breaks(sigma)) return ends("Sigma zero.");
    const T alpha = rho / sigma;
    const double norm_s = add_scaled<T>(-alpha, v.get(), r.get());
    if (!std::isfinite(norm_s)) return ends("Residual is no number.");
    if (half_step_ends(i, norm_s, alpha)) return true;
    add_scaled(alpha, changed.get(), p.x);
    precon_solve(changed.get(), p.M, r.get());
    smat_vecmul(t.get(), p.A, changed.get());
    const double norm_t = vec_euclid_norm(t.get());
    omega = breaks(norm_t) ? T{} : inner<T>(t.get(), r.get()) / square(norm_t);
    if (breaks(omega)) {
      run.take(i, norm_s);
      return ends("Omega zero.");
    }
    add_scaled(omega, changed.get(), p.x);
    norm_r = add_scaled<T>(-omega, t.get(), r.get());
    run.take(i, norm_r);
    rho_before = rho;
    alpha_before = alpha;
    return hook == nullptr && run.stagnates(norm_s);
  }

  const KrylovProblem p;
  const TerminationHook hook = termination_hook();
  KrylovRun run;
  ScratchVec r, shadow, direction, changed, v, t;
  T rho_before{}, alpha_before{}, omega{};
  double norm_r = 0;
};

}  // namespace

KrylovResult bicgstab(const KrylovProblem& p) {
  check_system(p.A, p.x, p.b);
  tell_start("BICGSTAB", p.M);
  return by_kind(p.A->is_complex, [&](auto kind) { return Bicgstab<decltype(kind)>(p).solve(); });
}

}  // namespace vlm

int solve_bicgstab_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                         int maxiter, int non_improvement, int stop_crit, solver* s) {
  return vlm::bicgstab({epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s})
      .iterations;
}

int solve_bicgstab(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                   solver* s) {
  return solve_bicgstab_param(epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL,
                              s);
}
