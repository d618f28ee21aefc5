// SPDX-License-Identifier: BSD-3-Clause
/// Gauss-Seidel sweeps and the solver that repeats them.
///
/// A row whose diagonal is zero or not stored is passed over: its unknown keeps its value.
#include <cstdio>

#include "NORV/corelib/smat_rows.hpp"
#include "NORV/solvers/krylov.hpp"

namespace {

using vlm::norv::Rows;

void require(const smat* A, const vec* x, const vec* b) {
  vlm::check_system(A, x, b);
  NORV_ASSERT(!A->sym);
}

/// x(i) takes the value that solves row i, or goes omega times as far.
template <class T>
void relax(const Rows<T>& A, int i, double omega, const T* b, T* x) {
  T rest = b[i], diagonal{};
  for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) {
    if (A.ja[k] == i) diagonal = A.a[k];
    rest -= vlm::product(A.a[k], x[A.ja[k]]);
  }
  if (diagonal != T{}) x[i] += omega * vlm::norv::quotient(rest, diagonal);
}

/// Relaxes the rows from `first` on to before `last`, upwards or downwards.
void sweep(const smat* A, vec* x, const vec* b, double omega, int first, int last) {
  vlm::by_kind(A->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const Rows<T> rows = vlm::norv::rows<T>(A);
    const T* const right = vlm::values<T>(b);
    T* const solution = vlm::values<T>(x);
    for (int i = first; i != last; i += first < last ? 1 : -1)
      relax(rows, i, omega, right, solution);
  });
}

}  // namespace

void gs_iter_from_to(const smat* A, vec* x, const vec* b, unsigned int from, unsigned int to) {
  require(A, x, b);
  NORV_ASSERT(A->m >= from);
  NORV_ASSERT(A->m >= to);
  if (from < to) sweep(A, x, b, 1.0, static_cast<int>(from), static_cast<int>(to));
}

void gs_iter(const smat* A, vec* x, const vec* b) { sor_iter(A, x, b, 1.0); }

void sgs_iter(const smat* A, vec* x, const vec* b) {
  gs_iter(A, x, b);
  sweep(A, x, b, 1.0, static_cast<int>(A->m) - 1, -1);
}

void sor_iter(const smat* A, vec* x, const vec* b, double omega) {
  require(A, x, b);
  sweep(A, x, b, omega, 0, static_cast<int>(A->m));
}

int solve_gs(double epsilon, smat* A, vec* x, const vec* b, precon*, int maxiter, solver* s) {
  require(A, x, b);
  const double start = vlm::timer_velmora(), norm_b = vec_euclid_norm(b);
  const double scale = norm_b == 0.0 ? 1.0 : norm_b;
  const vlm::ScratchVec r = vlm::scratch_like(b);
  const auto residual = [&] {
    smat_calc_residual(r.get(), A, x, b);
    return vec_euclid_norm(r.get());
  };
  double norm = residual();
  vlm::tell_step(s, 0, norm / scale);
  int i = 0;
  while (!(norm <= epsilon) && i < maxiter) {
    gs_iter(A, x, b);
    const double before = norm;
    norm = residual();
    vlm::tell_step(s, ++i, norm / scale);
    if (norv_debug_get_level() >= 2)
      std::printf("[GS step %3d, res.: %e, rate: %e] \n", i, norm, norm / before);
  }
  vlm::tell_end(s, "GS", start, i, norm / scale);
  return i;
}
