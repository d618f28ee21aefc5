// SPDX-License-Identifier: BSD-3-Clause
/// Conjugate gradients with a preconditioner (M. R. Hestenes and E. Stiefel, Methods of conjugate
/// gradients for solving linear systems, 1952).  A complex symmetric matrix takes the bilinear form
/// (H. A. van der Vorst and J. B. M. Melissen, A Petrov-Galerkin type method for solving Ax = b,
/// where A is symmetric complex, 1990), one with both triangles stored, which must then be
/// Hermitian, the inner product.  Four vectors of length n.
#include "NORV/solvers/krylov.hpp"

namespace vlm {
namespace {

/// The loop; r is the residual of x.  @return steps
template <class T>
int iterate(KrylovRun& run, vec* r) {
  const KrylovProblem& p = run.p;
  const ScratchVec z = scratch_like(r), direction = scratch_like(r), q = scratch_like(r);
  const auto dot = p.A->sym ? bilinear<T> : inner<T>;
  T rho_before{};
  for (int i = 1; i <= p.maxiter; ++i) {
    precon_solve(z.get(), p.M, r);
    const T rho = dot(r, z.get());
    if (breaks(rho)) return run.break_down(), i;
    if (i == 1)
      vec_copy(direction.get(), z.get());
    else
      scale_and_add<T>(rho / rho_before, z.get(), direction.get());
    smat_vecmul(q.get(), p.A, direction.get());
    const T curvature = dot(direction.get(), q.get());
    if (breaks(curvature)) return run.break_down(), i;
    const T alpha = rho / curvature;
    add_scaled(alpha, direction.get(), p.x);
    if (run.last(i, add_scaled<T>(-alpha, q.get(), r))) return i;
    rho_before = rho;
  }
  return p.maxiter;
}

constexpr const char* label = "rel. res.";

KrylovResult solve(const char* name, const KrylovProblem& p) {
  KrylovRun run(name, p);
  const ScratchVec r = scratch_like(p.b);
  smat_calc_residual(r.get(), p.A, p.x, p.b);
  const double norm = vec_euclid_norm(r.get()), norm_b = vec_euclid_norm(p.b);
  _norv_print_stat_msg("Norm of RHS:       %e", norm_b);
  _norv_print_stat_msg("Residual norm:     %e", norm);
  if (run.known(norm_b, norm) || p.maxiter <= 0) return run.finish(0, label);
  const int steps =
      by_kind(p.A->is_complex, [&](auto kind) { return iterate<decltype(kind)>(run, r.get()); });
  return run.finish(steps, label);
}

}  // namespace

KrylovResult pcg(const KrylovProblem& p) {
  check_system(p.A, p.x, p.b);
  tell_start("PCG", p.M);
  return solve("PCG", p);
}

}  // namespace vlm

int solve_pcg_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                    int maxiter, int non_improvement, int stop_crit, solver* s) {
  return vlm::pcg({epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s}).iterations;
}

int solve_pcg(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  return solve_pcg_param(epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL, s);
}

int solve_pcg2(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  vlm::check_system(A, x, b);
  NORV_DEBUG("solver_pcg2", "[PCG2 start (%s prec.)]", vlm::precon_name(M));
  return vlm::solve("PCG2",
                    {epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL, s})
      .iterations;
}
