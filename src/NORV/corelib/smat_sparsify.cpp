// SPDX-License-Identifier: BSD-3-Clause
/// Dropping of small entries, in place.  The diagonal always stays.

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// Whether an entry off the diagonal is small beside the two diagonal entries of its row and
/// column.  What is not a number is not small.
template <typename T>
bool is_small(double thresh, T v, double di, double dj) {
  return squared(v) < thresh * di * dj;
}

template <typename T>
void sparsify_compensated(double thresh, smat* A, const T* target) {
  Buffer<double> d(A->m);
  diagonal_moduli<T>(A, d.data());
  Buffer<T> added(A->m, T{});
  keep_entries<T>(A, [&](int i, int j, T v) {
    if (i == j || !is_small(thresh, v, d[i], d[j])) return true;
    const T ti = target[i], tj = target[j];
    if (ti == T{} && tj == T{}) return false;  // without effect on the target
    const T to_i = product(v, quotient(tj, ti)), to_j = product(v, quotient(ti, tj));
    // Where the target is 0 at one end only, no diagonal entry could stand in for this one.
    if (!std::isfinite(modulus(to_i)) || !std::isfinite(modulus(to_j))) return true;
    added[i] += to_i;
    added[j] += to_j;
    return false;
  });
  T* a = values_as<T>(A->a);
  for_each_diagonal(A, [&](int i, int k) {
    if (k >= 0) a[k] += added[i];
  });
}

}  // namespace

void smat_filter(double thresh, smat* A) {
  const unsigned before = A->nnz;
  by_kind(A->is_complex, [&](auto zero) {
    keep_entries<decltype(zero)>(
        A, [&](int i, int j, auto v) { return i == j || modulus(v) > thresh; });
  });
  _norv_print_stat_msg("Matrix has %d from %d non-zero values left (%5.1f%%).",
                       static_cast<int>(A->nnz), static_cast<int>(before),
                       before ? 100.0 * A->nnz / before : 100.0);
}

void smat_sparsify_compens_sym(double thresh, smat* A, const vec* target) {
  NORV_ASSERT(A->sym);
  NORV_ASSERT(A->m == target->n);
  NORV_ASSERT(A->is_complex || !target->is_complex);
  with_values_of_kind(A, target, [&](const auto* t) { sparsify_compensated(thresh, A, t); });
}

void smat_sparsify_thresh_diag(double thresh, smat* A) {
  NORV_ASSERT(A->m == A->n);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    Buffer<double> d(A->m);
    diagonal_moduli<T>(A, d.data());
    keep_entries<T>(A,
                    [&](int i, int j, T v) { return i == j || !is_small(thresh, v, d[i], d[j]); });
  });
}

void smat_simplify(smat* A) {
  by_kind(A->is_complex, [&](auto zero) {
    keep_entries<decltype(zero)>(A, [&](int i, int j, auto v) { return i == j || v != zero; });
  });
}

smat* smat_simplify_ident(const smat* A, bitvec* ident) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(A->m == ident->size);
  return by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const Rows<T> R = rows<T>(A);
    // An unknown is coupled when an entry off the diagonal names it or its own is not 1.
    Buffer<char> coupled(A->m, 1);
    for_each_diagonal(A, [&](int i, int k) { coupled[i] = k < 0 || R.a[k] != T{1.0}; });
    for_each_entry(R, [&](int i, int j, T v) {
      if (i != j && v != T{}) coupled[i] = coupled[j] = 1;
    });
    Buffer<int> renumbered(A->m, -1);
    int count = 0;
    bitvec_clear(ident);
    for (int i = 0; i < R.m; ++i) {
      if (coupled[i]) {
        renumbered[i] = count++;
      } else {
        bitvec_set(ident, static_cast<unsigned>(i));
      }
    }
    smat* B = smat_copy(A);
    keep_entries<T>(B, [&](int i, int j, T) { return coupled[i] && coupled[j]; });
    for (unsigned k = 0; k < B->nnz; ++k) B->ja[k] = renumbered[B->ja[k]];
    for (int i = 0; i < R.m; ++i) {  // rows that went are empty
      if (coupled[i]) B->ia[renumbered[i]] = B->ia[i];
    }
    B->ia[count] = static_cast<int>(B->nnz);
    set_shape(B, static_cast<unsigned>(count), static_cast<unsigned>(count));
    smat_realloc(B, B->nnz);
    return B;
  });
}

NORVMORA_SMAT_SPARSIFY(NORVMORA_ALIAS)
