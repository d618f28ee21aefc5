// SPDX-License-Identifier: BSD-3-Clause
/// SYMMLQ, see lanczos.hpp: an LQ factorization of the tridiagonal matrix, which indefiniteness
/// doesn't harm.  It ends in the point of conjugate gradients where that is the better one.  Six
/// vectors of length n.
#include <algorithm>

#include "NORV/solvers/lanczos.hpp"

namespace vlm {
namespace {

template <class T>
class Symmlq {
 public:
  Symmlq(const KrylovProblem& problem, double shift)
      : p(problem), run("SYMMLQ", problem), core(problem, shift), w(scratch_like(problem.b)) {}

  int solve() {
    LanczosEnd end = core.begin();
    const bool good = run.known(core.norm_b, core.beta);
    first = lq = cg = core.beta;
    if (end == LanczosEnd::running && good) end = LanczosEnd::accurate;
    if (end == LanczosEnd::running && p.maxiter <= 0) end = LanczosEnd::limit;
    int k = 0;
    while (end == LanczosEnd::running) end = step(++k);
    if (k > 0) move_to_cg();
    run.relative = std::min(lq, cg) / run.norm_b;
    return finish_lanczos("SYMMLQ", end, run, k,
                          {std::sqrt(norm2), condition, std::min(lq, cg), norm_y});
  }

 private:
  void move_to_cg() {
    if (!(cg <= lq) || diagonal == 0) return;
    const double z = rhs / diagonal;
    add_scaled<T>(z, w.get(), p.x);
    norm_y = std::hypot(norm_y, z);
  }

  /// Rotates column k in, and moves x along w and v.
  void rotate() {
    const double gamma = std::hypot(gbar, core.beta_before);
    const double cs = gbar / gamma, sn = core.beta_before / gamma;
    const double delta = cs * dbar + sn * core.alpha;
    gbar = sn * dbar - cs * core.alpha;
    const double epsilon = sn * core.beta;
    dbar = -cs * core.beta;
    const double z = rhs / gamma;
    const T* const v = values<T>(core.v());
    T *const along = values<T>(w.get()), *const x = values<T>(p.x);
    for_values(p.x->n, [=](std::size_t i) {
      x[i] += z * cs * along[i] + z * sn * v[i];
      along[i] = sn * along[i] - cs * v[i];
    });
    sines *= sn;
    largest = std::max(largest, gamma);
    smallest = std::min(smallest, gamma);
    norm_y = std::hypot(norm_y, z);
    rhs = rhs_next - delta * z;
    rhs_next = -epsilon * z;
  }

  LanczosEnd step(int k) {
    const LanczosEnd broken = core.advance();
    if (broken != LanczosEnd::running) return broken;
    norm2 += square(core.alpha) + square(core.beta_before) * (k > 1) + square(core.beta);
    if (k == 1) {
      vec_copy(w.get(), core.v());
      gbar = core.alpha;
      dbar = core.beta;
      rhs = first;
      largest = std::abs(core.alpha) + core.eps;
      smallest = largest;
    } else {
      rotate();
    }
    return test(k);
  }

  LanczosEnd test(int k) {
    const double norm_A = std::sqrt(norm2), rounding = norm_A * norm_y * core.eps;
    diagonal = gbar == 0 ? norm_A * core.eps : gbar;
    lq = std::hypot(rhs, rhs_next);
    cg = diagonal == 0 ? std::numeric_limits<double>::infinity()
                       : sines * first * core.beta / std::abs(diagonal);
    const bool at_lq = lq <= cg;
    const double least = at_lq ? smallest : std::min(smallest, std::abs(diagonal));
    condition = least > 0 ? largest / least : std::numeric_limits<double>::infinity();
    run.take(k, std::min(lq, cg));
    if (!std::isfinite(lq)) return LanczosEnd::ill_conditioned;
    if (k == 1 && core.beta <= 10 * core.eps * std::abs(core.alpha)) return LanczosEnd::one_vector;
    if (run.holds(std::min(lq, cg))) return LanczosEnd::accurate;
    if (cg <= rounding) return LanczosEnd::as_rounding_allows;
    if (rounding >= first) return LanczosEnd::eigenvector;
    if (core.beta == 0 || condition >= 0.1 / core.eps) return LanczosEnd::ill_conditioned;
    return k >= p.maxiter ? LanczosEnd::limit : LanczosEnd::running;
  }

  const KrylovProblem p;
  KrylovRun run;
  Lanczos<T> core;
  ScratchVec w;
  double first = 0, lq = 0, cg = 0;  ///< norms of the residual: first, here, at the other point
  double gbar = 0, dbar = 0, diagonal = 0, rhs = 0, rhs_next = 0, sines = 1;
  double norm2 = 0, norm_y = 0, largest = 0, smallest = 0, condition = 0;
};

}  // namespace

}  // namespace vlm

int solve_symmlq_shift(double epsilon, double shift, smat* A, vec* x, const vec* b, precon* M,
                       int maxiter, solver* s) {
  vlm::check_system(A, x, b);
  vlm::tell_start("SYMMLQ", M);
  const vlm::KrylovProblem p{epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL,
                             s};
  return vlm::by_kind(A->is_complex,
                      [&](auto kind) { return vlm::Symmlq<decltype(kind)>(p, shift).solve(); });
}

int solve_symmlq(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  return solve_symmlq_shift(epsilon, 0.0, A, x, b, M, maxiter, s);
}
