// SPDX-License-Identifier: BSD-3-Clause
/// Preconditioners that are one entry a row: the transversal of a weighted matching (MPS_DIAG), and
/// SOR sweeps, which keep the matrix.
#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/full_rows.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/owned_data.hpp"
#include "norv/classes.h"
#include "norv/krylov.h"

namespace vlm::norv {
namespace {

struct MatchedEntries {
  Vector<int> row;            ///< [n] row whose entry in this column is taken
  Vector<double> reciprocal;  ///< [n], twice as many for complex ones
};

/// Reciprocals of the entries (row(j), j) of an unsymmetric matrix; false where one is 0.
template <class T>
bool take_entries(const smat* A, MatchedEntries& to) {
  const Rows<T> R = rows<T>(A);
  to.reciprocal.assign(A->n * doubles_per_value(A->is_complex), 0.0);
  T* const value = values_as<T>(to.reciprocal.data());
  bool complete = true;
  for (int j = 0; j < R.n; ++j) {
    const int k = find_entry(A, to.row[j], j);
    complete = complete && k >= 0 && R.a[k] != T{};
    value[j] = complete ? divide(T(1), R.a[k]) : T(1);
  }
  return complete;
}

/// Squares of the factors that scale a symmetric matrix.
template <class T>
bool take_scaling(const smat* A, MatchedEntries& to) {
  smat* const full = smat_copy_full_structure(A);
  const Transversal t = match_rows<T>(full);
  smat_free(full);
  if (t.empty()) return false;
  to.row.resize(A->n);
  to.reciprocal.assign(A->n * doubles_per_value(A->is_complex), 0.0);
  T* const value = values_as<T>(to.reciprocal.data());
  for (unsigned j = 0; j < A->n; ++j) {
    to.row[j] = static_cast<int>(j);
    value[j] = T(t.row_scale[j] * t.column_scale[j]);
  }
  return true;
}

template <class T>
bool take_transversal(precon* M, const smat* A, MatchedEntries& to) {
  // A later phase keeps the permutation as long as the values allow it.
  const bool keeps = M->phase >= 22 && to.row.size() == A->n;
  if (keeps && take_entries<T>(A, to)) return true;
  const Transversal t = match_rows<T>(A);
  if (t.empty()) return false;
  to.row = t.row;
  bool identical = true;
  for (unsigned j = 0; j < A->n; ++j) identical = identical && to.row[j] == static_cast<int>(j);
  if (identical) _norv_print_stat_msg("Permutation is the identical permutation!");
  if (take_entries<T>(A, to)) return true;
  _norv_print_error_msg("MPS consistency failed ...");
  return false;
}

template <class T>
void take_diagonal(precon* M, const smat* A, MatchedEntries& to) {
  vec* const d = smat_get_diag(nullptr, A);
  to.row.resize(A->n);
  to.reciprocal.assign(A->n * doubles_per_value(A->is_complex), 0.0);
  for (unsigned j = 0; j < A->n; ++j) {
    to.row[j] = static_cast<int>(j);
    const T entry = values<T>(d)[j];
    M->nperturbed += entry == T{};
    values_as<T>(to.reciprocal.data())[j] = entry == T{} ? T(1) : divide(T(1), entry);
  }
  vec_release(d);
}

int mps_diag_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  NORV_DEBUG("precon_mps_diag", "MPS diag preconditioner setup.");
  M->is_complex = A->is_complex;
  M->npos = M->nneg = M->nperturbed = 0;
  M->nnz = static_cast<int>(A->n);
  MatchedEntries& to = *data_of<MatchedEntries>(M);
  guarded([&] {
    by_kind(A->is_complex, [&](auto kind) {
      using T = decltype(kind);
      const bool matched = A->sym ? take_scaling<T>(A, to) : take_transversal<T>(M, A, to);
      _norv_print_stat_msg(matched ? "USING MPS scaling." : "NOT using MPS scaling.");
      if (!matched) take_diagonal<T>(M, A, to);
    });
  });
  return 1;
}

template <bool transposed>
vec* mps_diag_apply(vec* result, precon* M, const vec* x) {
  const MatchedEntries& entries = *data_of<MatchedEntries>(M);
  NORV_ASSERT(x->is_complex == M->is_complex);
  NORV_ASSERT(x->n == entries.row.size());
  by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const from = values<T>(x);
    const T* const by = values_as<T>(entries.reciprocal.data());
    T* const to = values<T>(result);
    for (unsigned j = 0; j < x->n; ++j) {
      if (transposed)
        to[entries.row[j]] = product(by[j], from[j]);
      else
        to[j] = product(by[j], from[entries.row[j]]);
    }
  });
  return result;
}

// data: the matrix, which is kept.

enum { sor_omega = 0, sor_sweeps = 0 };

int sor_setup(precon* M, smat* A) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(A->m == A->n);
  NORV_DEBUG("precon_sor", "sor preconditioner setup.");
  const double omega = M->dparam[sor_omega];
  if (!(omega > 0 && omega < 2) || M->iparam[sor_sweeps] < 1)
    bad_options(1, "SOR: omega %f and %d sweeps don't make a preconditioner.", omega,
                M->iparam[sor_sweeps]);
  M->data = A;
  M->is_complex = A->is_complex;
  M->nnz = static_cast<int>(A->nnz);
  return 1;
}

vec* sor_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(M->data != 0);
  vec_clear(result);
  for (int k = 0; k < M->iparam[sor_sweeps]; ++k)
    sor_iter(static_cast<const smat*>(M->data), result, x, M->dparam[sor_omega]);
  return result;
}

/// r := (D / omega + L)^-T r, by the rows from the last on.
template <class T>
void solve_triangle_trans(const Rows<T>& A, double omega, T* r) {
  for (int i = A.m - 1; i >= 0; --i) {
    T diagonal{};
    for (int k = A.ia[i]; k < A.ia[i + 1]; ++k)
      if (A.ja[k] == i) diagonal = A.a[k];
    r[i] = diagonal == T{} ? T{} : omega * divide(r[i], diagonal);
    for (int k = A.ia[i]; k < A.ia[i + 1] && A.ja[k] < i; ++k) r[A.ja[k]] -= product(A.a[k], r[i]);
  }
}

/// The transposed iteration: each correction is the transposed triangle's.
vec* sor_apply_trans(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(M->data != 0);
  const auto* const A = static_cast<const smat*>(M->data);
  vec* r = vec_copy(nullptr, x);
  vec_clear(result);
  for (int k = 0; k < M->iparam[sor_sweeps]; ++k) {
    if (k > 0) {
      smat_vecmul_trans(r, A, result);
      vec_sub(r, x, r);
    }
    by_kind(A->is_complex, [&](auto kind) {
      using T = decltype(kind);
      solve_triangle_trans(rows<T>(A), M->dparam[sor_omega], values<T>(r));
    });
    vec_add(result, result, r);
  }
  vec_release(r);
  return result;
}

void sor_free(precon* M, int) { release_precon(M); }

}  // namespace
}  // namespace vlm::norv

precon* precon_mps_diag_create(void) {
  using namespace vlm::norv;
  NORV_DEBUG("precon_mps_diag", "MPS diag preconditioner created.");
  return new_with_data<MatchedEntries>(
      vlm::class_record("MPS_DIAG", {.create = precon_mps_diag_create,
                                     .setup = mps_diag_setup,
                                     .apply = mps_diag_apply<false>,
                                     .apply_trans = mps_diag_apply<true>,
                                     .free = free_with_data<MatchedEntries>}));
}

precon* precon_sor_create(void) {
  using namespace vlm::norv;
  NORV_DEBUG("precon_sor", "sor preconditioner created.");
  precon M = vlm::class_record("SOR", {.create = precon_sor_create,
                                       .setup = sor_setup,
                                       .apply = sor_apply,
                                       .apply_trans = sor_apply_trans,
                                       .free = sor_free});
  M.dparam[sor_omega] = 1.0;
  M.iparam[sor_sweeps] = 1;
  return vlm::new_precon(M);
}
