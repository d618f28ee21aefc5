// SPDX-License-Identifier: BSD-3-Clause
/// Triples of triangular factors and a diagonal, and their sweeps.
///
/// L and U hold the strict triangles; a unit diagonal is understood.  Each sweep walks a factor
/// once, by rows (dot products) or by columns (scattered updates, the transpose of what is
/// stored): O(entries).

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// x := (I + A)^-1 x, or with the transpose, for a strict triangle A.
///   kForwardRows     A lower           kBackwardRows     A upper
///   kForwardColumns  A upper, A'       kBackwardColumns  A lower, A'
enum class Sweep { kForwardRows, kBackwardRows, kForwardColumns, kBackwardColumns };

template <typename T>
void sweep(const Rows<T>& A, Sweep kind, T* x) {
  const bool forward = kind == Sweep::kForwardRows || kind == Sweep::kForwardColumns;
  const bool by_rows = kind == Sweep::kForwardRows || kind == Sweep::kBackwardRows;
  for (int step = 0; step < A.m; ++step) {
    const int i = forward ? step : A.m - 1 - step;
    if (by_rows) {
      T sum{};
      for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) add_product(sum, A.a[k], x[A.ja[k]]);
      x[i] -= sum;
    } else {
      const T xi = -x[i];
      for (int k = A.ia[i]; k < A.ia[i + 1]; ++k) add_product(x[A.ja[k]], A.a[k], xi);
    }
  }
}

/// x := second^-1 D^-1 first^-1 b.
vec* solve(vec* x, const ldu* f, const vec* b, const smat* first, Sweep first_kind,
           const smat* second, Sweep second_kind) {
  NORV_ASSERT(f->D != 0);
  NORV_ASSERT(first != 0);
  NORV_ASSERT(second != 0);
  NORV_ASSERT(f->D->n == b->n);
  NORV_ASSERT(first->m == b->n);
  NORV_ASSERT(second->m == b->n);
  NORV_ASSERT(f->D->is_complex == b->is_complex);
  NORV_ASSERT(first->is_complex == b->is_complex);
  NORV_ASSERT(second->is_complex == b->is_complex);
  if (x != b) x = vec_copy(x, b);
  by_kind(b->is_complex, [&](auto zero) {
    using T = decltype(zero);
    T* v = values_as<T>(x->v);
    const T* d = values_as<T>(f->D->v);
    sweep(rows<T>(first), first_kind, v);
    for (unsigned i = 0; i < x->n; ++i) v[i] = quotient(v[i], d[i]);
    sweep(rows<T>(second), second_kind, v);
  });
  return x;
}

/// New matrix of unsymmetric type with the stored entries on one side of the diagonal.
template <typename F>
smat* strict_part(const smat* A, F keep) {
  smat* part = smat_copy(A);
  by_kind(A->is_complex, [&](auto zero) {
    keep_entries<decltype(zero)>(part, [&](int i, int j, auto) { return keep(i, j); });
  });
  part->sym = 0;
  smat_realloc(part, part->nnz);
  return part;
}

}  // namespace

ldu* ldu_new(void) { return allocate_cleared<ldu>(1); }

ldu* ldu_new_dim(unsigned n, unsigned nnz_L, unsigned nnz_U, int is_complex) {
  ldu* f = ldu_new();
  f->L = smat_new_nnz(n, n, nnz_L, type_of(0, is_complex));
  f->U = smat_new_nnz(n, n, nnz_U, type_of(0, is_complex));
  f->D = is_complex ? vec_new_zero_cpx(n) : vec_new_zero(n);
  return f;
}

void ldu_free(ldu* f) {
  if (!f) return;
  if (f->L) smat_free(f->L);
  if (f->U) smat_free(f->U);
  vec_release(f->D);
  vlm::release_block(f);
}

ldu* smat_to_ldu(const smat* A) {
  NORV_ASSERT(A->m == A->n);
  ldu* f = ldu_new();
  if (!A->sym) f->L = strict_part(A, [](int i, int j) { return j < i; });
  f->U = strict_part(A, [](int i, int j) { return j > i; });
  f->D = smat_get_diag(nullptr, A);
  return f;
}

smat* ldu_to_smat(const ldu* f) {
  NORV_ASSERT(f->U != 0);
  NORV_ASSERT(f->D != 0);
  smat* A = f->L ? smat_add(f->L, f->U) : smat_copy(f->U);
  if (!f->L) A->sym = 1;
  smat_add_diag_vec(A, f->D);
  return A;
}

void ldu_print(const ldu* f) {
  if (f->L) smat_print_named(f->L, "L");
  if (f->U) smat_print_named(f->U, "U");
  if (f->D) vec_print_named(f->D, "D");
}

vec* ldu_fw_bw_solve_ldu(vec* x, const ldu* f, const vec* b) {
  return solve(x, f, b, f->L, Sweep::kForwardRows, f->U, Sweep::kBackwardRows);
}

vec* ldu_fw_bw_solve_udut(vec* x, const ldu* f, const vec* b) {
  return solve(x, f, b, f->U, Sweep::kBackwardRows, f->U, Sweep::kForwardColumns);
}

vec* ldu_fw_bw_solve_ldlt_V1(vec* x, const ldu* f, const vec* b) {
  return solve(x, f, b, f->U, Sweep::kForwardColumns, f->U, Sweep::kBackwardRows);
}

vec* ldu_fw_bw_solve_ldlt(vec* x, const ldu* f, const vec* b) {
  return solve(x, f, b, f->L, Sweep::kForwardRows, f->L, Sweep::kBackwardColumns);
}
