// SPDX-License-Identifier: BSD-3-Clause
/// What the Krylov methods share: their problem, one-pass updates of vectors, how a solve begins,
/// goes on and ends.
#pragma once

#include <cmath>
#include <limits>

#include "NORV/solvers/solvers.hpp"
#include "base/clock.hpp"
#include "norv/krylov.h"

namespace vlm {

// ---- vectors ----------------------------------------------------------------------------

/// The sum of conj(x(i)) y(i).
template <class T>
T inner(const vec* x, const vec* y) {
  const T *const a = values<T>(x), *const b = values<T>(y);
  return parallel_sum(x->n, loop_threads(x->n),
                      [=](std::size_t i) { return product(maybe_conj<true>(a[i]), b[i]); });
}

/// The sum of x(i) y(i).
template <class T>
T bilinear(const vec* x, const vec* y) {
  const T *const a = values<T>(x), *const b = values<T>(y);
  return parallel_sum(x->n, loop_threads(x->n), [=](std::size_t i) { return product(a[i], b[i]); });
}

inline double square(double x) { return x * x; }
inline double square(const zcomplex& x) { return square(x.real()) + square(x.imag()); }
inline double real_part_of(double x) { return x; }
inline double real_part_of(const zcomplex& x) { return x.real(); }

/// f(i) for all places of a vector of length n.
template <class F>
void for_values(unsigned n, const F& f) {
  parallel_sum(n, loop_threads(n), [&f](std::size_t i) {
    f(i);
    return 0.0;
  });
}

/// y += alpha x; the Euclidean norm of y.
template <class T>
double add_scaled(T alpha, const vec* x, vec* y) {
  const T* const from = values<T>(x);
  T* const to = values<T>(y);
  return std::sqrt(parallel_sum(x->n, loop_threads(x->n), [=](std::size_t i) {
    to[i] += product(alpha, from[i]);
    return square(to[i]);
  }));
}

/// y = x + beta y.
template <class T>
void scale_and_add(T beta, const vec* x, vec* y) {
  const T* const from = values<T>(x);
  T* const to = values<T>(y);
  for_values(x->n, [=](std::size_t i) { to[i] = from[i] + product(beta, to[i]); });
}

/// Whether a recurrence can't divide by it.
template <class T>
bool breaks(T divisor) {
  const double size = std::abs(divisor);
  return size == 0.0 || !std::isfinite(size);
}

// ---- the course of a solve --------------------------------------------------------------

struct KrylovProblem {
  double epsilon;
  smat* A;
  vec *x, *xbest;
  const vec* b;
  precon* M;
  int maxiter, non_improvement, stop_crit;
  solver* s;
  int restart = 0;  ///< length of a cycle, GMRES
};

enum class KrylovEnd { solved, limit, stagnation, breakdown };

struct KrylovResult {
  int iterations;
  KrylovEnd end;
  double relative;  ///< residual as the method measures it
};

/// The quotients of successive residuals in the last steps.
template <int length>
class RateWindow {
 public:
  /// Enters the quotient of step k, from 1.  @return how many of the window lie near 1; -1 as long
  /// as it isn't full
  int enter(int k, double rate, double relative_residual) {
    rates_[(k - 1) % length] = rate;
    if (k <= length) return -1;
    const double tolerance = relative_residual > 1e-8 ? 0.001 : 0.01;
    int near_one = 0;
    for (const double each : rates_) near_one += std::abs(each - 1.0) < tolerance;
    return near_one;
  }

 private:
  double rates_[length] = {};
};

/// A solve from its first residual to its result.
class KrylovRun {
 public:
  /// @param name  in the messages
  KrylovRun(const char* name, const KrylovProblem& problem) : p(problem), name_(name) {}

  const KrylovProblem p;
  double norm_b = 0;    ///< 1 where b is 0
  double initial = 0;   ///< norm of the first residual
  double relative = 0;  ///< the last residual by norm_b
  KrylovEnd end = KrylovEnd::limit;

  /// Takes the norms of b and of the first residual.  @return whether x is the solution already
  bool known(double norm_of_b, double norm_of_residual);
  bool holds(double norm) const {
    return StoppingTest{p.stop_crit, p.epsilon, norm_b, initial}.holds(norm);
  }
  /// Tells step k with its residual.
  void take(int k, double norm);
  /// Tells step k.  @return whether it is the last: solved, no better than the best for too long,
  /// or no number
  bool last(int k, double norm);
  /// Counts steps that are no better than the best.  @return whether they are too many
  bool stagnates(double norm);
  /// Ends with an incomplete step.
  void break_down() { end = KrylovEnd::breakdown; }
  void solved() { end = KrylovEnd::solved; }
  /// Says that there is no improvement.
  void give_up();
  /// The result after so many steps.
  KrylovResult finish(int iterations, const char* label = "rel.res.");

 private:
  const char* const name_;
  const double start_ = timer_velmora();
  double best_ = std::numeric_limits<double>::infinity();
  int unimproved_ = 0;
};

/// "[<name> solving (<preconditioner> prec.)...]"
void tell_start(const char* name, const precon* M);
/// The criterion and the limit of stagnation.
void tell_limits(const KrylovProblem& p);

/// The methods; each checks its system.
KrylovResult bicgstab(const KrylovProblem& p);
KrylovResult gmres(const KrylovProblem& p);
KrylovResult gmres_deflated(const KrylovProblem& p);
KrylovResult pcg(const KrylovProblem& p);
KrylovResult qmr(const KrylovProblem& p);

}  // namespace vlm
