// SPDX-License-Identifier: BSD-3-Clause
/// The course of a solve, see krylov.hpp.
#include "NORV/solvers/krylov.hpp"

#include <cmath>

namespace vlm {

bool KrylovRun::known(double norm_of_b, double norm_of_residual) {
  norm_b = norm_of_b == 0.0 ? 1.0 : norm_of_b;
  initial = norm_of_residual;
  relative = initial / norm_b;
  tell_step(p.s, 0, relative);
  if (initial != 0.0 && !holds(initial)) return false;
  solved();
  return true;
}

void KrylovRun::take(int k, double norm) {
  const double before = relative;
  relative = norm / norm_b;
  tell_step(p.s, k, relative);
  _norv_print_iter_msg("[%s step %3d,  rel.res.: %.3e,  rate: %2.3f]", name_, k, relative,
                       relative / before);
}

bool KrylovRun::stagnates(double norm) {
  unimproved_ = norm < best_ ? 0 : unimproved_ + 1;
  best_ = std::fmin(best_, norm);
  if (unimproved_ <= p.non_improvement) return false;
  give_up();
  return true;
}

void KrylovRun::give_up() {
  NORV_DEBUG("solvers", "No improvement in %d steps.  Exitus.", p.non_improvement);
  end = KrylovEnd::stagnation;
}

bool KrylovRun::last(int k, double norm) {
  take(k, norm);
  if (holds(norm)) {
    solved();
    return true;
  }
  if (!std::isfinite(norm)) {
    break_down();
    return true;
  }
  return stagnates(norm);
}

KrylovResult KrylovRun::finish(int iterations, const char* label) {
  if (p.xbest != nullptr) vec_copy(p.xbest, p.x);
  tell_end(p.s, name_, start_, iterations, relative, label);
  return {iterations, end, relative};
}

void tell_start(const char* name, const precon* M) {
  _norv_print_stat_msg("[%s solving (%s prec.)...]", name, precon_name(M));
}

void tell_limits(const KrylovProblem& p) {
  if (p.stop_crit >= 0 && p.stop_crit <= NORV_SC_REDUCTION)
    NORV_DEBUG("solvers", "    - Using %s stopping criterion.", norv_sc_names[p.stop_crit]);
  if (p.non_improvement < p.maxiter)
    NORV_DEBUG("solvers", "    - Max %d iters w/out improvement.", p.non_improvement);
}

}  // namespace vlm
