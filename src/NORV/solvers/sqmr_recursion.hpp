// SPDX-License-Identifier: BSD-3-Clause
/// The recursion that all forms of SQMR share.
///
/// R. W. Freund and N. M. Nachtigal, A new Krylov-subspace method for symmetric indefinite linear
/// systems, 1994: the coupled two-term recurrences of QMR, which symmetry halves.  With a complex
/// symmetric matrix all inner products are bilinear.
#pragma once

#include <cmath>
#include <complex>

#include "NORV/solvers/krylov.hpp"

namespace vlm {

enum class SqmrEnd { none, rho_zero, sigma_zero };

/// Which quasi-residual a step minimizes, and which residual it carries along.
struct SqmrKind {
  bool right;        ///< norms of r, not of M^-1 r
  bool smoothed;     ///< rs, the residual of x, beside the residual of the recursion
  double breakdown;  ///< scalars of at most this modulus end it
};

template <class T>
class SqmrRecursion {
 public:
  SqmrRecursion(SqmrKind kind, const linop* A, precon* M, const vec* b)
      : kind_(kind),
        A_(A),
        M_(M),
        r(scratch_like(b)),
        t(scratch_like(b)),
        q(scratch_like(b)),
        v(scratch_like(b)),
        d(scratch_like(b)) {
    if (kind.smoothed) s = scratch_like(b), rs = scratch_like(b);
  }

  /// r = b - A x.
  void residual(const vec* x, const vec* b) { linop_calc_residual(r.get(), A_, x, b); }

  /// Begins at the residual r.
  void begin() {
    precon_solve(t.get(), M_, r.get());
    vec_copy(q.get(), t.get());
    tau = vec_euclid_norm(kind_.right ? r.get() : t.get());
    rho = bilinear<T>(r.get(), t.get());
    theta_before2 = 1.0;
    if (kind_.smoothed) vec_copy(rs.get(), r.get());
  }

  /// Step k, from 1: x moves on, and r, t, rs with it.
  SqmrEnd advance(int k, vec* x) {
    if (std::abs(rho) <= kind_.breakdown) return SqmrEnd::rho_zero;
    linop_vecmul(v.get(), A_, q.get());
    const T sigma = bilinear<T>(q.get(), v.get());
    if (std::abs(sigma) <= kind_.breakdown) return SqmrEnd::sigma_zero;
    const T alpha = rho / sigma;
    const double norm_r = std::sqrt(leave_direction(alpha));
    precon_solve(t.get(), M_, r.get());
    const double theta = (kind_.right ? norm_r : vec_euclid_norm(t.get())) / tau;
    const double c2 = 1.0 / (1.0 + theta * theta);
    tau *= theta * std::sqrt(c2);
    const double keep = k < 2 ? 0.0 : c2 * theta_before2;
    const double norm_rs = std::sqrt(update(c2 * alpha, keep, k < 2, x));
    monitored = kind_.smoothed ? norm_rs : norm_r;
    theta_before2 = theta * theta;
    return SqmrEnd::none;
  }

  /// The search direction of the next step.
  void turn() {
    const T rho_new = bilinear<T>(r.get(), t.get());
    const T beta = rho_new / rho;
    rho = rho_new;
    const T* const from = values<T>(t.get());
    T* const to = values<T>(q.get());
    parallel_sum(t->n, loop_threads(t->n), [=](std::size_t i) {
      to[i] = from[i] + product(beta, to[i]);
      return 0.0;
    });
  }

 private:
  /// r -= alpha v; the sum of squares of r.
  double leave_direction(T alpha) {
    T* const residual = values<T>(r.get());
    const T* const product_of_q = values<T>(v.get());
    return parallel_sum(r->n, loop_threads(r->n), [=](std::size_t i) {
      residual[i] -= product(alpha, product_of_q[i]);
      return square(residual[i]);
    });
  }

  /// d = step q + keep d, x += d, and s = step v + keep s, rs -= s; the sum of squares of rs.
  double update(T step, double keep, bool first, vec* x) {
    const T *const direction = values<T>(q.get()), *const product_of_q = values<T>(v.get());
    T *const change = values<T>(d.get()), *const solution = values<T>(x);
    T* const moved = kind_.smoothed ? values<T>(s.get()) : nullptr;
    T* const residual = kind_.smoothed ? values<T>(rs.get()) : nullptr;
    return parallel_sum(x->n, loop_threads(x->n), [=](std::size_t i) {
      const T by = product(step, direction[i]);
      solution[i] += change[i] = first ? by : by + product(keep, change[i]);
      if (moved == nullptr) return 0.0;
      const T off = product(step, product_of_q[i]);
      residual[i] -= moved[i] = first ? off : off + product(keep, moved[i]);
      return square(residual[i]);
    });
  }

  SqmrKind kind_;
  const linop* A_;
  precon* M_;

 public:
  ScratchVec r, t, q, v, d, s, rs;
  T rho{};
  double tau = 0, theta_before2 = 1;
  double monitored = 0;  ///< norm of rs, or of r, after a step
};

}  // namespace vlm
