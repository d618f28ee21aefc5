// SPDX-License-Identifier: BSD-3-Clause
/// The phases: preconditioner by its code, solve by its method, inertia, memory estimate.
#include "NORV/bridge/norv_interface.hpp"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/preorder.hpp"
#include "NORV/solvers/krylov.hpp"
#include "norv/classes.h"
#include "norv/ildlt.h"

namespace vlm {
namespace {

/// The codes of NorvPars::precon.
enum PreconCode : int {
  code_none = 0,
  code_diag = 1,
  code_ildlt_bk = 2,
  code_ildlt_pm = 3,
  code_mildlt = 5,
  code_augblock = 6,
  code_ilut = 8,
  code_iluc = 9,
  code_mps_diag = 11,
};

constexpr int status_no_object = 3;

bool is_feasible(int code) {
  switch (code) {
    case code_none:
    case code_diag:
    case code_ildlt_bk:
    case code_ildlt_pm:
    case code_mildlt:
    case code_augblock:
    case code_ilut:
    case code_iluc:
    case code_mps_diag:
      return true;
    default:
      return false;
  }
}

/// Prints the text, or ends the running call with it.
int refuse(const char* text) {
  if (running_scope() != nullptr) bad_options(1, "%s", text);
  std::printf("\n IterativeNorvScalar: %s", text);
  return 0;
}

precon* make_mildlt(const NorvPars& p, int is_complex) {
  constexpr int matched_order = 3, no_compensation = 0;
  return precon_mildlt_create_param(p.kappa, p.max_fill, p.drop_tol, p.schur_drop, p.pivot_1x1,
                                    p.pivot_2x2, NORV_FILL_MAX_AVERAGE, matched_order, p.max_levels,
                                    p.min_level_size, NORV_DROP_INVERSE, no_compensation, nullptr,
                                    p.condest_strat, NORV_DELAY_SCHUR, NORV_2X2_TRIDIAGONAL,
                                    is_complex);
}

/// A new instance for the parameters; null, after an error message, for a class that this version
/// lacks.
precon* make_precon(const NorvPars& p, int is_complex) {
  switch (p.precon) {
    case code_diag:
      return precon_diag_create();
    case code_ildlt_bk:
      return precon_ildlt_bk_create_param(p.max_fill, p.drop_tol, 0, static_cast<int>(p.bk_fill),
                                          NORV_DROP_DIAG, 2);
    case code_ildlt_pm:
      return precon_ildltpm_create_param(p.drop_tol, p.max_fill, 0, NORV_DROP_DIAG, 0);
    case code_mildlt:
      return make_mildlt(p, is_complex);
    case code_augblock:
      return precon_new_by_name("AUGBLOCK");
    case code_ilut:
      return precon_ilut_create_param(p.drop_tol, static_cast<int>(p.max_fill));
    case code_iluc:
      return precon_iluc_create_param(p.drop_tol, p.max_fill, 0, 1);
    default:
      return precon_new_by_name("MPS_DIAG");
  }
}

/// Sizes of the leading and the coupling block of a saddle-point matrix.
void tell_saddle_point(const smat* A) {
  _norv_print_stat_msg(" ");
  _norv_print_stat_msg("Analyse the Hessian of the inital matrix (pos./neg. eigenvalues)");
  _norv_print_stat_msg(" ");
  const unsigned k = smat_guess_constraint_size(A);
  smat *hessian = nullptr, *jacobian = nullptr;
  smat_fc_split(A, A->n - k, &hessian, nullptr, &jacobian, nullptr);
  _norv_print_stat_msg("Statistics of the Hessian  n = %d nnz = %d", static_cast<int>(hessian->n),
                       static_cast<int>(hessian->nnz));
  _norv_print_stat_msg("Statistics of the Jacobian m = %d nnz = %d", static_cast<int>(jacobian->m),
                       static_cast<int>(jacobian->nnz));
  smat_free(hessian);
  smat_free(jacobian);
}

/// Whether the record in hand serves the refactorization of a phase.
bool keeps_record(const precon* M, int code, int phase) {
  if (M == nullptr || phase < 22) return false;
  if (code == code_mildlt) return std::strcmp(M->name, "MILDLT") == 0;
  return code == code_mps_diag && phase == 23 && std::strcmp(M->name, "MPS_DIAG") == 0;
}

/// Gives a record that is kept the parameters of this call.
void refresh_parameters(precon* M, const NorvPars& pars, int is_complex) {
  precon* const fresh = make_precon(pars, is_complex);
  std::memcpy(M->dparam, fresh->dparam, sizeof M->dparam);
  std::memcpy(M->iparam, fresh->iparam, sizeof M->iparam);
  if (pars.precon == code_mps_diag) std::memset(M->dparam, 0, sizeof M->dparam);
  precon_free(fresh, -1);
}

/// The inertia as it is told: a count near the expected one is taken for it.
int corrected_negative(int n, int min_level_size, int expected, int computed) {
  const double e = expected, c = computed;
  const bool near = n > min_level_size && 0.999 * e < c && c < 1.0005 * e;
  return near ? expected : computed;
}

void store(int* to, int value) {
  if (to != nullptr) *to = value;
}

void tell_factor(const precon* M, const IterativeCall& call, const IterativeResults& results) {
  const int n = static_cast<int>(call.A->n);
  const int negative =
      corrected_negative(n, call.pars->min_level_size, call.expected_negative, M->nneg);
  store(results.positive, M->npos);
  store(results.negative, negative);
  store(results.perturbed, M->nperturbed);
  store(results.nnz, M->nnz);
  _norv_print_stat_msg("Eigenvalue distribution: Dimension %d Neg. %d Comp. %d Returned %d", n,
                       call.expected_negative, M->nneg, negative);
  if (call.pars->msglvl >= 1)
    std::printf("   Fill: %7.2f Dim: %d Eig Neg. %d Comp. %d Returned %d \n",
                100.0 * M->nnz / call.A->nnz, n, call.expected_negative, M->nneg, negative);
}

/// Builds the preconditioner of phases 11 to 23.
/// @return whether the call goes on; otherwise `status` tells why not
bool set_up(precon*& M, const IterativeCall& call, const IterativeResults& results, int& status) {
  const NorvPars& pars = *call.pars;
  const int code = pars.precon, phase = call.phase;
  if (!is_feasible(code)) {
    status = refuse("Preconditioner unfeasible for scalar iterative solver.");
    return false;
  }
  const bool kept = keeps_record(M, code, phase);
  precon_free(M, kept || phase < 22 ? phase : -1);
  if (!kept) M = nullptr;
  if (code == code_none) return true;
  if (code == code_augblock) tell_saddle_point(call.A);
  if (kept)
    refresh_parameters(M, pars, call.is_complex);
  else
    M = make_precon(pars, call.is_complex);
  if (M == nullptr) {
    if (running_scope() != nullptr) bad_options(1, "Preconditioner %d is not available.", code);
    status = status_no_object;
    return false;
  }
  M->phase = phase;
  if (code == code_mildlt) {
    M->dparam[norv::params::mildlt_second_drop] = call.second_drop;
    if (call.minimum_degree)
      M->iparam[norv::params::mildlt_preordering] =
          static_cast<int>(norv::Preordering::amd_matched);
  }
  if (precon_setup(M, call.A) == 0) {
    if (running_scope() != nullptr) direct_solver_failed(0, "Setup of %s failed.", M->name);
    // A failed setup ends some classes' phase 22 and the others' remaining phases.
    const bool multilevel = code == code_mildlt || code == code_mps_diag;
    if (multilevel != (phase == 22)) {
      status = status_no_object;
      return false;
    }
  }
  if (code == code_mildlt) tell_factor(M, call, results);
  if (code == code_ilut || code == code_iluc) {
    store(results.perturbed, M->nperturbed);
    store(results.nnz, M->nnz);
  }
  return true;
}

/// A guess whose residual is larger than b, or no number, gives way to 0.
void drop_bad_guess(const smat* A, vec* x, const vec* b) {
  const ScratchVec r = scratch_like(b);
  smat_calc_residual(r.get(), A, x, b);
  if (!(vec_euclid_norm(r.get()) <= vec_euclid_norm(b))) vec_clear(x);
}

/// ||b - A x|| / ||b||, or ||b - A x|| for b = 0.
double relative_residual(const smat* A, const vec* x, const vec* b) {
  const ScratchVec r = scratch_like(b);
  smat_calc_residual(r.get(), A, x, b);
  const double norm_r = vec_euclid_norm(r.get()), norm_b = vec_euclid_norm(b);
  return norm_b == 0.0 ? norm_r : norm_r / norm_b;
}

using Method = KrylovResult (*)(const KrylovProblem&);

/// A solve of which the caller hears the outcome.  The residual that a recurrence carries along may
/// run ahead of the true one: what it takes for solved is measured, and goes on from there as long
/// as that makes it better.
KrylovResult solve_measured(Method method, KrylovProblem p) {
  constexpr double slack = 10;  // of the residual by the tolerance
  drop_bad_guess(p.A, p.x, p.b);
  int iterations = 0;
  for (double before = std::numeric_limits<double>::infinity();;) {
    KrylovResult result = method(p);
    iterations += result.iterations;
    p.maxiter -= result.iterations;
    if (result.end == KrylovEnd::solved && p.stop_crit == NORV_SC_REL_RESIDUAL) {
      const double relative = relative_residual(p.A, p.x, p.b);
      if (relative > slack * p.epsilon || std::isnan(relative)) {
        if (relative < before / 2 && p.maxiter > 0) {
          before = relative;
          continue;
        }
        result.end = p.maxiter > 0 ? KrylovEnd::stagnation : KrylovEnd::limit;
      }
    }
    result.iterations = iterations;
    return result;
  }
}

/// How a method ended, as a caller of velmora() is told; others learn it of SQMR alone.
int status_of(KrylovEnd end) {
  switch (end) {
    case KrylovEnd::solved:
      return NORV_SQMR_OK;
    case KrylovEnd::limit:
      return NORV_SQMR_LIMIT;
    case KrylovEnd::stagnation:
      return NORV_SQMR_STAGNATION;
    default:
      return NORV_SQMR_RHO_ZERO;
  }
}

/// The solve by its method.  @return iterations, or -1 for a method that can't be had
int run_method(precon* M, const IterativeCall& call, vec* x, vec* xbest, const vec* b,
               int* status) {
  NorvPars& p = *call.pars;
  constexpr int method_bicgstab = 1, method_sqmr = 5;
  if (p.method < 0 || p.method > method_sqmr) {
    refuse("Solver type unfeasible for scalar iterative solver.");
    return -1;
  }
  if (p.method == method_bicgstab) p.non_improvement = 20000;
  if (p.method == method_sqmr)
    return solve_sqmr_param(p.epsilon, call.A, x, xbest, b, M, p.maxiter, p.non_improvement, status,
                            p.stop_crit, nullptr);
  constexpr Method methods[] = {pcg, bicgstab, gmres, gmres_deflated, qmr};
  const KrylovProblem problem{p.epsilon,         call.A,      x,       xbest,    b, M, p.maxiter,
                              p.non_improvement, p.stop_crit, nullptr, p.restart};
  if (running_scope() == nullptr) return methods[p.method](problem).iterations;
  const KrylovResult result = solve_measured(methods[p.method], problem);
  *status = status_of(result.end);
  return result.iterations;
}

/// Bytes of a method's vectors for a system of n unknowns.
double method_memory(const NorvPars& p, double n) {
  const double r = p.restart;
  switch (p.method) {
    case 0:
      return 32 * n + 160;
    case 1:
      return 72 * n + 272;
    case 2:
    case 3:
      return r * (8 * r + 8) + (r + 1) * (8 * n + 16) + 40 * n + 192;
    case 4:
      return 112 * n + 400;
    default:
      return 64 * n + 304;
  }
}

/// Solves for the caller's b.  @return as iterative_phase()
int solve(precon* M, const IterativeCall& call, const IterativeResults& results) {
  const NorvPars& pars = *call.pars;
  const unsigned n = call.A->n;
  vec b_record{n, call.b, n, call.is_complex}, x_record{n, call.x, n, call.is_complex};
  vec *const b = &b_record, *const x = &x_record;
  vec* const xbest = call.is_complex ? vec_new_cpx(n) : vec_new(n);
  _norv_print_stat_msg("Inf norm of right hand side %e", vec_inf_norm(b));
  _norv_print_stat_msg("MaxItersNoImprovement is %d", pars.non_improvement);
  int status = 0;
  const int iterations = run_method(M, call, x, xbest, b, &status);
  if (iterations < 0) {
    vec_release(xbest);
    return 0;
  }
  store(results.iterations, iterations);
  _norv_print_stat_msg("\n IterativeNorvScalar: status %d.", status);
  if (pars.msglvl >= 1) {
    const double relres = relative_residual(call.A, xbest, b);
    vec_copy(x, xbest);
    _norv_print_stat_msg("Residual against original matrix:  %e", relres);
    if (results.relres != nullptr) *results.relres = relres;
    if (results.info != nullptr) {
      results.info->relres = relres;
      results.info->iterations = iterations;
      results.info->zero = 0.0;
      if (pars.precon == code_ildlt_pm) results.info->factor_size = M->nnz;
    }
  }
  if (call.solution_in_b) vec_copy(b, xbest);
  vec_release(xbest);
  constexpr double frame = 32.0, frame_records = 64.0;  // bytes: the call's own vectors
  if (results.info != nullptr)
    results.info->memory = (frame * n + frame_records + method_memory(pars, n)) / 1024;
  return status;
}

/// The same with the transposed matrix, and with M's transpose in its place.
int solve_transposed(precon* M, const IterativeCall& call, const IterativeResults& results) {
  IterativeCall turned = call;
  turned.A = call.transpose;
  precon transpose{};
  transpose.data = M;
  transpose.apply = [](vec* result, precon* self, const vec* x) {
    return precon_solve_trans(result, static_cast<precon*>(self->data), x);
  };
  return solve(M != nullptr ? &transpose : nullptr, turned, results);
}

}  // namespace

int iterative_phase(precon*& M, const IterativeCall& call, const IterativeResults& results) {
  const NorvPars& pars = *call.pars;
  // A caller who wants errors is told of a damaged matrix at any level.
  const bool checks = !call.checked && (pars.msglvl >= 1 || running_scope() != nullptr);
  if (checks && !smat_is_consistent(call.A)) return refuse("Matrix not consistent!");
  if (pars.stop_crit < 0 || pars.stop_crit > 2) return refuse("Stopping criterion unknown.");
  if (pars.fill_max_mode != 0) return refuse("fill_max_mode unknown.");
  int status = 0;
  if (call.phase < 33 && !set_up(M, call, results, status)) return status;
  const bool solves = call.phase == 33 || call.phase == 23 || call.phase == 13;
  if (!solves) return 0;
  return call.transpose != nullptr ? solve_transposed(M, call, results) : solve(M, call, results);
}

}  // namespace vlm

namespace {

/// The preconditioner that the process keeps for callers of IterativeNorvScalar().
precon* process_precon = nullptr;

}  // namespace

int IterativeNorvScalar(int, NorvPars* pars, int n, int is_complex, int mtype, int* ia, int* ja,
                        double* a, double* b, int phase, int solution_in_b, double* x,
                        NorvInfo* info, const int* expected_neg, int* perturbed_out, int* pos_out,
                        int* neg_out, int* nnz_out, double* relres_out, int* iters_out) {
  const int level = norv_debug_get_level();
  norv_debug_set_level(pars->msglvl >= 1 ? 2 : 0);
  if (phase == -1) {  // leaves the level set
    precon_free(process_precon, -1);
    process_precon = nullptr;
    return 0;
  }
  const auto order = static_cast<unsigned>(n);
  smat* A = nullptr;
  if (mtype == 11)
    A = smat_new_from(order, order, ia, ja, a, NORV_REAL_UNSYM, 1);
  else if (is_complex)
    A = smat_new_from_cpx(order, order, ia, ja, a, 1, 1);
  else
    A = smat_new_from(order, order, ia, ja, a, NORV_REAL_SYM, 1);
  const int status =
      vlm::iterative_phase(process_precon,
                           {.pars = pars,
                            .phase = phase,
                            .is_complex = A->is_complex,
                            .A = A,
                            .b = b,
                            .x = x,
                            .solution_in_b = solution_in_b == 1,
                            .expected_negative = expected_neg != nullptr ? *expected_neg : 0,
                            .transpose = nullptr,
                            .checked = false,
                            .second_drop = 0,
                            .minimum_degree = false},
                           {info, perturbed_out, pos_out, neg_out, nnz_out, relres_out, iters_out});
  smat_to_fortran_indexing(A);
  vlm::release_block(A);
  norv_debug_set_level(level);
  return status;
}
