// SPDX-License-Identifier: BSD-3-Clause
/// QMR with coupled two-term recurrences and without look-ahead (R. W. Freund and N. M. Nachtigal,
/// An implementation of the QMR method based on coupled two-term recurrences, 1994).  The
/// preconditioner stands on the left of the one Lanczos sequence and, transposed, on the right of
/// the other.  Nothing is conjugated, so that complex matrices need no other transpose.
#include "NORV/solvers/krylov.hpp"

namespace vlm {
namespace {

/// What can be zero; the numbers are those that are told.
enum class QmrBreakdown { none, rho, xi, delta, epsilon, beta, gamma };

template <class T>
class Qmr {
 public:
  explicit Qmr(const KrylovProblem& problem) : p(problem), run("QMR", problem) {
    for (ScratchVec* each : {&r, &v, &w, &y, &ny, &nz, &right, &left, &image, &d, &s})
      *each = scratch_like(p.b);
  }

  KrylovResult solve() {
    smat_calc_residual(r.get(), p.A, p.x, p.b);
    const double norm = vec_euclid_norm(r.get());
    _norv_print_stat_msg("Initial residual: %e", norm);
    if (run.known(vec_euclid_norm(p.b), norm) || p.maxiter <= 0) return run.finish(0);
    begin();
    for (int i = 1; i <= p.maxiter; ++i) {
      const QmrBreakdown broken = advance(i);
      if (broken != QmrBreakdown::none) {
        _norv_print_stat_msg(" QMR status: %d.", static_cast<int>(broken));
        run.break_down();
        return run.finish(i);
      }
      if (run.last(i, norm_r)) return run.finish(i);
    }
    return run.finish(p.maxiter);
  }

 private:
  void begin() {
    vec_copy(v.get(), r.get());
    precon_solve(y.get(), p.M, v.get());
    rho = vec_euclid_norm(y.get());
    vec_copy(w.get(), r.get());
    xi = vec_euclid_norm(w.get());
    eta = T{-1};
    gamma = 1;
  }

  /// right = M^-1 v - a right, left = M^-T w - b left: the directions of both sequences.
  void turn(int i, T a, T b) {
    precon_solve_trans(nz.get(), p.M, w.get());
    if (i == 1) {
      vec_copy(right.get(), y.get());
      vec_copy(left.get(), nz.get());
    } else {
      scale_and_add<T>(-a, y.get(), right.get());
      scale_and_add<T>(-b, nz.get(), left.get());
    }
  }

  /// d = step right + keep d, x += d, and s = step image + keep s, r -= s; the norm of r.
  double update(T step, double keep, bool first) {
    const T *const by = values<T>(right.get()), *const moved = values<T>(image.get());
    T *const change = values<T>(d.get()), *const off = values<T>(s.get());
    T *const solution = values<T>(p.x), *const residual = values<T>(r.get());
    return std::sqrt(parallel_sum(r->n, loop_threads(r->n), [=](std::size_t k) {
      const T a = product(step, by[k]), c = product(step, moved[k]);
      change[k] = first ? a : a + product(keep, change[k]);
      off[k] = first ? c : c + product(keep, off[k]);
      solution[k] += change[k];
      residual[k] -= off[k];
      return square(residual[k]);
    }));
  }

  QmrBreakdown advance(int i) {
    if (breaks(rho)) return QmrBreakdown::rho;
    if (breaks(xi)) return QmrBreakdown::xi;
    vec_scale(1 / rho, v.get());
    vec_scale(1 / rho, y.get());
    vec_scale(1 / xi, w.get());
    const T delta = bilinear<T>(w.get(), y.get());
    if (breaks(delta)) return QmrBreakdown::delta;
    turn(i, xi * delta / epsilon, rho * delta / epsilon);
    smat_vecmul(image.get(), p.A, right.get());
    epsilon = bilinear<T>(left.get(), image.get());
    if (breaks(epsilon)) return QmrBreakdown::epsilon;
    const T beta = epsilon / delta;
    if (breaks(beta)) return QmrBreakdown::beta;
    scale_and_add<T>(-beta, image.get(), v.get());
    precon_solve(y.get(), p.M, v.get());
    const double rho_before = std::exchange(rho, vec_euclid_norm(y.get()));
    smat_vecmul_trans(ny.get(), p.A, left.get());
    scale_and_add<T>(-beta, ny.get(), w.get());
    xi = vec_euclid_norm(w.get());
    const double theta_before = std::exchange(theta, rho / (gamma * std::abs(beta)));
    const double gamma_before = std::exchange(gamma, 1 / std::sqrt(1 + square(theta)));
    if (breaks(gamma)) return QmrBreakdown::gamma;
    eta *= -rho_before * square(gamma / gamma_before) / beta;
    norm_r = update(eta, square(theta_before * gamma), i == 1);
    return QmrBreakdown::none;
  }

  const KrylovProblem p;
  KrylovRun run;
  ScratchVec r, v, w, y, ny, nz, right, left, image, d, s;
  double rho = 0, xi = 0, gamma = 1, theta = 0, norm_r = 0;
  T eta{}, epsilon{1};
};

}  // namespace

KrylovResult qmr(const KrylovProblem& p) {
  check_system(p.A, p.x, p.b);
  tell_start("QMR", p.M);
  return by_kind(p.A->is_complex, [&](auto kind) { return Qmr<decltype(kind)>(p).solve(); });
}

}  // namespace vlm

int solve_qmr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                    int maxiter, int non_improvement, int stop_crit, solver* s) {
  return vlm::qmr({epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s}).iterations;
}

int solve_qmr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  return solve_qmr_param(epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL, s);
}
