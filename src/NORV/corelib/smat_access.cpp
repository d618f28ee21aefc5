// SPDX-License-Identifier: BSD-3-Clause
/// Single entries, the diagonal, row lengths, and an index by column.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// Place of entry (i, j) of the completed matrix, or -1.
int find_completed(const smat* A, unsigned i, unsigned j) {
  NORV_ASSERT(i < A->m);
  NORV_ASSERT(j < A->n);
  const bool mirrored = A->sym && j < i;
  return find_entry(A, static_cast<int>(mirrored ? j : i), static_cast<int>(mirrored ? i : j));
}

/// Counts the entries (i, j) of the completed matrix for which wanted(i, j), by row.
template <typename F>
void count_by_row(const smat* A, int* count, F wanted) {
  std::fill_n(count, A->m, 0);
  for_each_place(*A, [&](int i, int j, int) { count[i] += wanted(i, j); });
}

}  // namespace

double smat_get_ij_elem(const smat* A, unsigned i, unsigned j) {
  NORV_ASSERT(!A->is_complex);
  const int k = find_completed(A, i, j);
  return k < 0 ? 0.0 : A->a[k];
}

int smat_get_ij_elem_ex(const smat* A, unsigned i, unsigned j, double* re, double* im) {
  const int k = find_completed(A, i, j);
  by_kind(A->is_complex, [&](auto zero) {
    const auto v = k < 0 ? zero : values_as<decltype(zero)>(A->a)[k];
    if (re) *re = real_part(v);
    if (im) *im = imag_part(v);
  });
  return k >= 0;
}

int smat_has_ij_index(const smat* A, unsigned i, unsigned j) {
  return find_completed(A, i, j) >= 0;
}

vec* smat_get_diag(vec* dst, const smat* A) {
  const unsigned n = std::min(A->m, A->n);
  if (!dst) dst = A->is_complex ? vec_new_cpx(n) : vec_new(n);
  NORV_ASSERT(dst->n == n);
  NORV_ASSERT(dst->is_complex == A->is_complex);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    for_each_diagonal(
        A, [&](int i, int k) { values_as<T>(dst->v)[i] = k < 0 ? zero : values_as<T>(A->a)[k]; });
  });
  return dst;
}

void smat_get_row_nnzs(const smat* A, int* count) {
  count_by_row(A, count, [](int, int) { return 1; });
}

void smat_get_row_nnzs_L(const smat* A, int* count) {
  count_by_row(A, count, [](int i, int j) { return j < i; });
}

void smat_get_row_nnzs_U(const smat* A, int* count) {
  count_by_row(A, count, [](int i, int j) { return j > i; });
}

smat_col_index* smat_col_index_new(const smat* A) {
  smat_col_index* index = allocate<smat_col_index>(1);
  index->n = A->n;
  index->start = allocate_cleared<int>(std::uint64_t{A->n} + 1);
  index->row = allocate<int>(std::uint64_t{A->nnz} + 1);
  index->place = allocate<int>(std::uint64_t{A->nnz} + 1);
  for (unsigned k = 0; k < A->nnz; ++k) ++index->start[A->ja[k] + 1];
  counts_to_starts(index->start, A->n);
  Buffer<int> next(index->start, index->start + A->n);
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const int at = next[A->ja[k]]++;
      index->row[at] = i;
      index->place[at] = k;
    }
  }
  return index;
}

void smat_col_index_free(smat_col_index* index) {
  if (!index) return;
  vlm::release_block(index->start);
  vlm::release_block(index->row);
  vlm::release_block(index->place);
  vlm::release_block(index);
}

NORVMORA_SMAT_ACCESS(NORVMORA_ALIAS)
