// SPDX-License-Identifier: BSD-3-Clause
/// MINRES, see lanczos.hpp: the residual of smallest norm over the Krylov space, by a QR
/// factorization of the tridiagonal matrix.  Eight vectors of length n.
#include <algorithm>

#include "NORV/solvers/lanczos.hpp"

namespace vlm {
namespace {

template <class T>
class Minres {
 public:
  explicit Minres(const KrylovProblem& problem)
      : p(problem), run("MINRES", problem), core(problem, 0) {
    for (ScratchVec* each : {&w, &w1, &w2}) {
      *each = scratch_like(p.b);
      vec_clear(each->get());
    }
  }

  int solve() {
    LanczosEnd end = core.begin();
    const bool good = run.known(core.norm_b, core.beta);
    phi = first = rhs = core.beta;
    if (end == LanczosEnd::running && good) end = LanczosEnd::accurate;
    int k = 0;
    if (end == LanczosEnd::running && p.maxiter <= 0) end = LanczosEnd::limit;
    while (end == LanczosEnd::running) end = step(++k);
    const double condition = largest / std::max(smallest, core.eps * largest);
    return finish_lanczos("MINRES", end, run, k, {std::sqrt(norm2), condition, phi, norm_y});
  }

 private:
  /// w takes the place of w2, and x moves along it.
  void update(double epsilon_before, double delta, double gamma) {
    w1.swap(w2);
    w2.swap(w);  // w1, w2 are the last two; w is free
    const T *const v = values<T>(core.v()), *const a = values<T>(w1.get()),
                   *const b = values<T>(w2.get());
    T *const to = values<T>(w.get()), *const x = values<T>(p.x);
    const double by = tau;
    for_values(p.x->n, [=](std::size_t i) {
      to[i] = (v[i] - epsilon_before * a[i] - delta * b[i]) / gamma;
      x[i] += by * to[i];
    });
  }

  LanczosEnd step(int k) {
    const LanczosEnd broken = core.advance();
    if (broken != LanczosEnd::running) return broken;
    const bool one_vector = k == 1 && core.beta <= 10 * core.eps * std::abs(core.alpha);
    norm2 += square(core.alpha) + square(core.beta_before) * (k > 1) + square(core.beta);
    // The last rotation, then the one of this step.
    const double epsilon_before = epsilon;
    const double delta = cs * dbar + sn * core.alpha;
    const double gbar = sn * dbar - cs * core.alpha;
    epsilon = sn * core.beta;
    dbar = -cs * core.beta;
    const double gamma = std::max(std::hypot(gbar, core.beta), core.eps);
    cs = gbar / gamma;
    sn = core.beta / gamma;
    tau = cs * phi;
    phi *= sn;
    update(epsilon_before, delta, gamma);
    largest = std::max(largest, gamma);
    smallest = std::min(smallest, gamma);
    const double zeta = rhs / gamma;
    rhs = rhs_next - delta * zeta;
    rhs_next = -epsilon * zeta;
    norm_y = std::hypot(norm_y, zeta);
    run.take(k, phi);
    return test(k, one_vector);
  }

  LanczosEnd test(int k, bool one_vector) const {
    const double rounding = std::sqrt(norm2) * norm_y * core.eps;
    if (!std::isfinite(phi)) return LanczosEnd::ill_conditioned;
    if (one_vector) return LanczosEnd::one_vector;
    if (run.holds(phi)) return LanczosEnd::accurate;
    if (phi <= rounding) return LanczosEnd::as_rounding_allows;
    if (rounding >= first) return LanczosEnd::eigenvector;
    if (largest >= 0.1 / core.eps * smallest) return LanczosEnd::ill_conditioned;
    return k >= p.maxiter ? LanczosEnd::limit : LanczosEnd::running;
  }

  const KrylovProblem p;
  KrylovRun run;
  Lanczos<T> core;
  ScratchVec w, w1, w2;
  double first = 0, phi = 0, tau = 0;
  double cs = -1, sn = 0, dbar = 0, epsilon = 0;
  double norm2 = 0, norm_y = 0, rhs = 0, rhs_next = 0;
  double largest = 0, smallest = std::numeric_limits<double>::max();
};

}  // namespace
}  // namespace vlm

int solve_minres(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  vlm::check_system(A, x, b);
  vlm::tell_start("MINRES", M);
  const vlm::KrylovProblem p{epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL,
                             s};
  return vlm::by_kind(A->is_complex,
                      [&](auto kind) { return vlm::Minres<decltype(kind)>(p).solve(); });
}
