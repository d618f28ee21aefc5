// SPDX-License-Identifier: BSD-3-Clause
/// The solver record, the table of methods, the stopping test, and what a solve tells.
#include "NORV/solvers/solvers.hpp"

#include <strings.h>

#include <algorithm>

#include "base/clock.hpp"
#include "base/progress.hpp"
#include "norv/krylov.h"

namespace {

struct Row {
  char name[28];
  solve_method routine;
};

constexpr Row methods[] = {
    {"GS", solve_gs},         {"BICGSTAB", solve_bicgstab}, {"QMR", solve_qmr},
    {"SQMR", solve_sqmr},     {"QMRPACK", solve_qmrpack},   {"PCG", solve_pcg},
    {"PCG2", solve_pcg2},     {"GMRES", solve_gmres},       {"GMRESDR", solve_gmresdr},
    {"SYMMLQ", solve_symmlq}, {"MINRES", solve_minres},
};

struct Listener {
  norv_progress_fn fn = nullptr;
  void* data = nullptr;
};
constinit thread_local Listener listener;

}  // namespace

const char* const norv_sc_names[3] = {"relative residual", "residual", "residual reduction"};

namespace vlm {

ScratchVec scratch_like(const vec* x) {
  return ScratchVec(x->is_complex ? vec_new_cpx(x->n) : vec_new(x->n));
}

bool StoppingTest::holds(double residual) const {
  switch (criterion) {
    case NORV_SC_REL_RESIDUAL:
      return residual / norm_b < epsilon;
    case NORV_SC_RESIDUAL:
      return residual < epsilon;
    case NORV_SC_REDUCTION:
      return residual < initial * epsilon;
    default:
      return false;
  }
}

const char* precon_name(const precon* M) { return M != nullptr ? M->name : "no"; }

void tell_step(solver* s, int iteration, double relative_residual) {
  if (s != nullptr && s->history != nullptr && iteration > 0 &&
      static_cast<unsigned>(iteration) <= s->history->n)
    s->history->v[iteration - 1] = relative_residual;
  if (listener.fn != nullptr) listener.fn(listener.data, iteration, relative_residual);
  pulse();
}

QuietSteps::QuietSteps() : fn_(listener.fn), data_(listener.data) { listener = {}; }
QuietSteps::~QuietSteps() { listener = {fn_, data_}; }

void tell_end(solver* s, const char* name, double start, int iterations, double relative_residual,
              const char* label) {
  _norv_print_stat_msg("[%s took %f secs., %3d its., %s: %e]", name, timer_velmora() - start,
                       iterations, label, relative_residual);
  if (s == nullptr) return;
  s->res = relative_residual;
  s->iters = iterations;
}

}  // namespace vlm

int solve_qmrpack(double, smat*, vec*, const vec*, precon*, int, solver* s) {
  _norv_print_error_msg("QMRPACK not available.");
  if (s != nullptr) s->iters = 0;
  return 0;
}

solver* solver_new(const char* name) {
  NORV_ASSERT(name != 0);
  solver* const s = vlm::allocate_cleared<solver>(1);
  if (solver_set_method_by_name(s, name) == 0) {
    _norv_print_error_msg("Solver `%s' unknown, using BICGSTAB!", name);
    solver_set_method_by_name(s, "BICGSTAB");
  }
  s->epsilon = 1e-8;
  s->maxiter = 100;
  return s;
}

int solver_set_method_by_name(solver* s, const char* name) {
  NORV_ASSERT(s != 0);
  NORV_ASSERT(name != 0);
  const auto found = std::find_if(std::begin(methods), std::end(methods), [name](const Row& row) {
    return strcasecmp(row.name, name) == 0;
  });
  if (found == std::end(methods)) return 0;
  s->method = found->routine;
  s->name = found->name;
  return static_cast<int>(found - methods) + 1;
}

void solver_set_epsilon(solver* s, double epsilon) { s->epsilon = epsilon; }
void solver_set_maxiter(solver* s, int maxiter) { s->maxiter = maxiter; }
void solver_set_precon(solver* s, precon* M) { s->precon = M; }
void solver_set_param(solver* s, void* param) { s->param = param; }

void solver_set_residual_history(solver* s) {
  NORV_ASSERT(s != 0);
  vec_release(s->history);
  s->history = nullptr;
  s->history = vec_new_zero(static_cast<unsigned>(std::max(s->maxiter, 0)));
}

int solver_solve(solver* s, smat* A, vec* x, const vec* b) {
  NORV_ASSERT(s != 0);
  if (s->history != nullptr) vec_resize(s->history, s->history->capacity);
  const int result = s->method(s->epsilon, A, x, b, s->precon, s->maxiter, s);
  if (s->history != nullptr)
    vec_resize(s->history,
               std::min(s->history->capacity, static_cast<unsigned>(std::max(s->iters, 0))));
  return result;
}

void solver_free(solver* s) {
  if (s == nullptr) return;
  vec_release(s->history);
  vlm::release_block(s);
}

void norv_set_progress(norv_progress_fn fn, void* data) { listener = {fn, data}; }
