// SPDX-License-Identifier: BSD-3-Clause
/// GMRES with the preconditioner on the left, restarted (Y. Saad and M. H. Schultz, GMRES: a
/// generalized minimal residual algorithm for solving nonsymmetric linear systems, 1986), and with
/// deflated restarting, which keeps the harmonic Ritz vectors of the smallest values (R. B. Morgan,
/// GMRES with deflated restarting, 2002).
///
/// One class does both: a cycle begins with k+1 basis vectors, of which plain GMRES keeps none but
/// the residual.  The basis is allocated vector by vector, as the steps come.
#include <algorithm>
#include <cstdio>
#include <vector>

#include "NORV/solvers/harmonic_ritz.hpp"
#include "NORV/solvers/krylov.hpp"

namespace vlm {
namespace {

struct Kind {
  const char* name;  ///< in the messages
  int keeps;         ///< harmonic Ritz vectors over a restart
};

template <class T>
class Gmres {
 public:
  Gmres(const KrylovProblem& problem, Kind k)
      : p(problem),
        kind(k),
        run(k.name, problem),
        cycle(std::max(1, std::min(problem.restart, problem.maxiter))),
        small(cycle),
        r(scratch_like(problem.b)),
        w(scratch_like(problem.b)) {}

  KrylovResult solve() {
    precon_solve(w.get(), p.M, p.b);
    const double norm_b = vec_euclid_norm(w.get());
    double norm = take_residual();
    _norv_print_stat_msg("Preconditioned norm of RHS: %e", norm_b);
    _norv_print_stat_msg("Preconditioned residual:    %e", norm);
    if (run.known(norm_b, norm)) return run.finish(0);
    while (count < p.maxiter) {
      begin_cycle(norm);
      const bool ended = steps();
      move();
      if (ended) break;
      if (!deflate()) small.forget();
      norm = take_residual();
      if (norm == 0.0 || run.holds(norm)) {
        NORV_DEBUG("solver_gmres", "GMRES exit, rel.-res.: %e.", norm / run.norm_b);
        run.relative = norm / run.norm_b;
        run.solved();
        break;
      }
    }
    return run.finish(count);
  }

 private:
  /// r = M^-1 (b - A x); its norm.
  double take_residual() {
    smat_calc_residual(w.get(), p.A, p.x, p.b);
    precon_solve(r.get(), p.M, w.get());
    return vec_euclid_norm(r.get());
  }

  vec* basis_vector(int j) {
    while (static_cast<int>(basis.size()) <= j) basis.push_back(scratch_like(p.b));
    return basis[static_cast<std::size_t>(j)].get();
  }

  /// The right-hand side of the small problem: the residual in the basis that was kept.
  void begin_cycle(double norm) {
    if (small.columns() == 0) {
      vec_copy_scaled(1 / norm, basis_vector(0), r.get());
      small.begin(T(norm));
      return;
    }
    Buffer<T> coordinates;
    for (int i = 0; i <= small.columns(); ++i)
      coordinates.push_back(inner<T>(basis_vector(i), r.get()));
    small.begin(coordinates);
  }

  /// Takes w's part along the first `many` basis vectors off it, and adds the coefficients to h.
  /// @return the norm of what is left
  double orthogonalize(int many, T* h) {
    double norm = 0;
    for (int i = 0; i < many; ++i) {
      const T along = inner<T>(basis_vector(i), w.get());
      h[i] += along;
      norm = add_scaled<T>(-along, basis_vector(i), w.get());
    }
    return norm;
  }

  /// The steps of a cycle.  @return whether the solve ends with them
  bool steps() {
    for (int j = small.columns(); j < cycle && count < p.maxiter; ++j) {
      smat_vecmul(r.get(), p.A, basis_vector(j));
      precon_solve(w.get(), p.M, r.get());
      T* const h = small.new_column();
      const double before = vec_euclid_norm(w.get());
      double norm = orthogonalize(j + 1, h);
      constexpr double cancelled = 1e-3;  // the rest may be rounding errors along the basis
      if (norm < cancelled * before) norm = orthogonalize(j + 1, h);
      if (!std::isfinite(norm)) {
        run.break_down();
        return true;
      }
      h[j + 1] = norm;
      ++count;
      if (step_is_last(small.enter_column())) return true;
      if (norm == 0.0) return ends_early();
      vec_copy_scaled(1 / norm, basis_vector(j + 1), w.get());
    }
    return false;
  }

  /// An invariant subspace: the small problem is the whole one, unless it is singular.
  bool ends_early() {
    if (!small.singular()) return false;
    run.break_down();
    return true;
  }

  bool step_is_last(double residual) {
    const double before = run.relative;
    run.take(count, residual);
    if (run.holds(residual)) {
      run.solved();
      return true;
    }
    const int near_one = rates.enter(count, run.relative / before, run.relative);
    if (near_one < 0 || near_one < p.non_improvement) return false;
    run.give_up();
    return true;
  }

  /// x += the combination of the basis that the small problem names.
  void move() {
    solution = small.solve();
    for (int j = 0; j < small.columns(); ++j)
      add_scaled(solution[static_cast<std::size_t>(j)], basis_vector(j), p.x);
  }

  /// Turns the basis to the harmonic Ritz vectors and the residual.  @return false: keep nothing
  bool deflate() {
    if (kind.keeps == 0 || small.columns() < cycle || small.columns() <= kind.keeps + 1)
      return false;
    const DenseColumns<T> turn = small.keep_smallest(kind.keeps, solution);
    if (turn.columns == 0) return false;
    combine(turn);
    // Rounding errors add up in the last vector, which begins the new steps.
    vec_copy(w.get(), basis_vector(turn.columns - 1));
    Buffer<T> unused(static_cast<std::size_t>(turn.columns));
    const double norm = orthogonalize(turn.columns - 1, unused.data());
    if (breaks(norm)) return false;
    vec_copy_scaled(1 / norm, basis_vector(turn.columns - 1), w.get());
    return true;
  }

  /// basis = basis * turn, in place: each row of it by itself.
  void combine(const DenseColumns<T>& turn) {
    Buffer<T*> v;
    for (int i = 0; i < turn.rows; ++i) v.push_back(values<T>(basis_vector(i)));
    for_parts(r->n, [&](std::size_t first, std::size_t last) {
      constexpr int most = 1024;  // cycles are cut to it
      T row[most];
      for (std::size_t k = first; k < last; ++k) {
        for (int i = 0; i < turn.rows; ++i) row[i] = v[static_cast<std::size_t>(i)][k];
        for (int j = 0; j < turn.columns; ++j) {
          const T* const column = turn.column(j);
          T sum{};
          for (int i = 0; i < turn.rows; ++i) sum += product(column[i], row[i]);
          v[static_cast<std::size_t>(j)][k] = sum;
        }
      }
    });
  }

  const KrylovProblem p;
  const Kind kind;
  KrylovRun run;
  const int cycle;
  SmallProblem<T> small;
  ScratchVec r, w;
  std::vector<ScratchVec, CheckedAllocator<ScratchVec>> basis;
  Buffer<T> solution;
  RateWindow<5> rates;
  int count = 0;
};

KrylovResult solve(const KrylovProblem& p, Kind kind) {
  tell_limits(p);
  return by_kind(p.A->is_complex,
                 [&](auto zero) { return Gmres<decltype(zero)>(p, kind).solve(); });
}

}  // namespace

KrylovResult gmres(const KrylovProblem& p) {
  check_system(p.A, p.x, p.b);
  tell_start("GMRES", p.M);
  char name[32];
  std::snprintf(name, sizeof name, "GMRES (%d)", p.restart);
  return solve(p, {name, 0});
}

KrylovResult gmres_deflated(const KrylovProblem& problem) {
  check_system(problem.A, problem.x, problem.b);
  NORV_ASSERT_TEXT(problem.A->m == problem.x->n, "A->m == (unsigned) x->n");
  constexpr int longest = 1000;  // the small problem is dense
  KrylovProblem p = problem;
  p.restart = std::min(p.restart, longest);
  _norv_print_stat_msg("[GMRESRD (%d) solving...]", p.restart);
  return solve(p, {"GMRESDR", std::max(1, p.restart / 5)});
}

}  // namespace vlm

int solve_gmres_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                      int maxiter, int non_improvement, int stop_crit, int restart, solver* s) {
  return vlm::gmres({epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s, restart})
      .iterations;
}

int solve_gmres(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter, solver* s) {
  constexpr int restart = 100;
  return solve_gmres_param(epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL,
                           restart, s);
}

int solve_gmresdr_param(double epsilon, smat* A, vec* x, vec* xbest, const vec* b, precon* M,
                        int maxiter, int non_improvement, int stop_crit, int restart, solver* s) {
  return vlm::gmres_deflated(
             {epsilon, A, x, xbest, b, M, maxiter, non_improvement, stop_crit, s, restart})
      .iterations;
}

int solve_gmresdr(double epsilon, smat* A, vec* x, const vec* b, precon* M, int maxiter,
                  solver* s) {
  constexpr int restart = 50;
  return solve_gmresdr_param(epsilon, A, x, nullptr, b, M, maxiter, maxiter, NORV_SC_REL_RESIDUAL,
                             restart, s);
}
