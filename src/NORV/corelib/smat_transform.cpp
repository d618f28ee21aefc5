// SPDX-License-Identifier: BSD-3-Clause
/// Copies and transforms: values and patterns carried over, transposes, logarithms, and the
/// change between triangle and both triangles.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// New matrix with A's pattern, and room for values of the given kind.
smat* same_pattern(const smat* A, int is_complex, bool with_values = true) {
  smat* B = smat_new(A->m, A->n, type_of(A->sym, is_complex));
  reserve_entries(B, A->nnz, with_values);
  std::copy_n(A->ia, A->m + 1, B->ia);
  std::copy_n(A->ja, A->nnz, B->ja);
  return B;
}

/// New real matrix with A's pattern and f(a(i,j)) at each place.
template <typename F>
smat* map_to_real(const smat* A, F f) {
  smat* B = same_pattern(A, 0);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    std::transform(values_as<T>(A->a), values_as<T>(A->a) + A->nnz, B->a, f);
  });
  return B;
}

/// Row starts and columns of both triangles of a symmetric matrix; put(at, k) tells that entry k
/// of A stands at `at`.  Walking down, row j gets its mirrored part, from rows i < j, before its
/// own: columns come out sorted.
template <typename Begin, typename Put>
smat* both_triangles(const smat* A, Begin begin, Put put) {
  smat* B = smat_new(A->m, A->n, type_of(0, A->is_complex));
  for_each_place(*A, [&](int i, int, int) { ++B->ia[i + 1]; });
  B->nnz = counts_to_starts(B->ia, B->m);
  B->ja = allocate<int>(std::size_t{B->nnz} + 1);
  begin(B);
  Buffer<int> next(B->ia, B->ia + B->m);
  for_each_place(*A, [&](int i, int j, int k) {
    const int at = next[i]++;
    B->ja[at] = j;
    put(at, k);
  });
  return B;
}

/// Both triangles with values.
template <typename T>
smat* complete(const smat* A) {
  T* b = nullptr;
  const auto with_values = [&](smat* B) {
    if (!A->a) return;
    B->a = allocate<double>(std::size_t{B->nnz} * (sizeof(T) / sizeof(double)) + 1);
    b = values_as<T>(B->a);
  };
  return both_triangles(A, with_values, [&](int at, int k) {
    if (b) b[at] = values_as<T>(A->a)[k];
  });
}

/// Whether every row of a symmetric matrix begins with its diagonal entry.
bool has_full_diagonal(const smat* A) {
  bool full = true;
  for_each_diagonal(A, [&](int, int k) { full = full && k >= 0; });
  return full;
}

/// Copies B's arrays into those of A, which have room for them, and frees B.
void overwrite(smat* A, smat* B) {
  std::copy_n(B->ia, B->m + 1, A->ia);
  std::copy_n(B->ja, B->nnz, A->ja);
  if (B->a) std::copy_n(B->a, std::size_t{B->nnz} << A->is_complex, A->a);
  smat_free(B);
}

/// New matrix whose entry (i, j) stands at (row[i], col[j]), rows sorted.  An entry of a
/// symmetric matrix that would fall below the diagonal is mirrored.  Null is the identity.
template <typename T>
smat* permuted_copy(const Rows<T>& A, const smat* head, const int* row, const int* col) {
  smat* B = smat_new(head->m, head->n, type_of(head));
  const auto target = [&](int i, int j) {
    const int p = row ? row[i] : i, q = col ? col[j] : j;
    return A.sym && q < p ? std::pair{q, p} : std::pair{p, q};
  };
  scatter_entries(A, B, target);
  sort_rows<T>(B);
  return B;
}

}  // namespace

smat* smat_copy(const smat* A) {
  smat* B = same_pattern(A, A->is_complex, A->a != nullptr);
  if (A->a) std::copy_n(A->a, std::size_t{A->nnz} << A->is_complex, B->a);
  B->npos = A->npos;
  B->nneg = A->nneg;
  B->nperturbed = A->nperturbed;
  return B;
}

smat* smat_copy_structure(const smat* A) {
  smat* B = same_pattern(A, A->is_complex);
  std::fill_n(B->a, std::size_t{A->nnz} << A->is_complex, 0.0);
  return B;
}

smat* smat_complex_to_real(const smat* A) {
  NORV_ASSERT(A->is_complex);
  return map_to_real(A, [](auto v) { return real_part(v); });
}

smat* smat_copy_log(const smat* A) {
  return map_to_real(A, [](auto v) { return std::log(modulus(v)); });
}

smat* smat_copy_abs(const smat* A) {
  return map_to_real(A, [](auto v) { return modulus(v); });
}

smat* smat_copy_log_to_full(const smat* A) {
  smat* B = smat_copy_log(A);
  smat_to_full_structure(B);
  return B;
}

smat* smat_copy_trans(const smat* A) {
  if (A->sym) return smat_copy(A);
  return by_kind(A->is_complex, [&](auto zero) { return transpose_stored<decltype(zero)>(A); });
}

void smat_trans(smat* A) {
  if (A->sym) return;
  smat* B = smat_copy_trans(A);
  if (B->m > A->m) A->ia = reallocate(A->ia, std::size_t{B->m} + 1);
  set_shape(A, B->m, B->n);
  overwrite(A, B);
}

void smat_to_full_structure(smat* A) {
  if (A->sym) adopt(A, smat_copy_full_structure(A));
}

smat* smat_copy_full_structure(const smat* A) {
  if (!A->sym) return smat_copy(A);
  if (!has_full_diagonal(A)) _norv_print_warn_msg("Matrix has incomplete diagonal!");
  return by_kind(A->is_complex, [&](auto zero) { return complete<decltype(zero)>(A); });
}

void smat_to_symmetric_structure(smat* A) {
  NORV_ASSERT(A->m == A->n);
  by_kind(A->is_complex, [&](auto zero) {
    keep_entries<decltype(zero)>(A, [](int i, int j, auto) { return j >= i; });
  });
  A->sym = 1;
}

void smat_symmetrize_structure(smat* A) {
  NORV_ASSERT(A->m == A->n);
  if (A->sym) return;
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    smat* B = transpose_stored<T>(A);
    adopt(A, merge<T>(A, B, type_of(A), [](const T* a, const T*) { return a ? *a : T{}; }));
    smat_free(B);
  });
}

smat* smat_sym_trans_pta(const smat* A, int** place) {
  NORV_ASSERT(A->sym);
  int* map = nullptr;
  smat* B = both_triangles(
      A,
      [&](const smat* R) {
        if (place) map = allocate<int>(std::size_t{R->nnz} + 1);
      },
      [&](int at, int k) {
        if (map) map[at] = k;
      });
  if (place) *place = map;
  return B;
}

smat* smat_copy_permute(const smat* A, const perm* p) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(A->m == size(p));
  return by_kind(A->is_complex,
                 [&](auto zero) { return permuted_copy(rows<decltype(zero)>(A), A, p->p, p->p); });
}

smat* smat_copy_permute_rows(const smat* A, const perm* p) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(A->m == size(p));
  return by_kind(A->is_complex, [&](auto zero) {
    return permuted_copy(rows<decltype(zero)>(A), A, p->p, nullptr);
  });
}

void smat_permute(smat* A, const perm* p) { overwrite(A, smat_copy_permute(A, p)); }

void smat_permute_columns(smat* A, const perm* p) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(A->n == size(p));
  for (unsigned k = 0; k < A->nnz; ++k) A->ja[k] = p->p[A->ja[k]];
  smat_column_sort(A);
}

NORVMORA_SMAT_TRANSFORM(NORVMORA_ALIAS)
