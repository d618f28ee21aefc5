// SPDX-License-Identifier: BSD-3-Clause
/// Order inside rows, transposition of what is stored, and repairs of the pattern: double
/// entries, missing diagonal entries.

#include <algorithm>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

namespace vlm::norv {

namespace {

/// Rows up to this length are sorted by insertion.
constexpr int kInsertionLength = 24;

/// Sorts a short row in place, stable.
template <typename T>
void insertion_sort(int length, int* ja, T* a) {
  for (int k = 1; k < length; ++k) {
    const int j = ja[k];
    const T v = a ? a[k] : T{};
    int at = k;
    for (; at > 0 && ja[at - 1] > j; --at) {
      ja[at] = ja[at - 1];
      if (a) a[at] = a[at - 1];
    }
    ja[at] = j;
    if (a) a[at] = v;
  }
}

}  // namespace

template <typename T>
void sort_rows(smat* A) {
  T* a = values_as<T>(A->a);
  Buffer<std::pair<int, int>> order;  // column, place: ties keep their order
  Buffer<T> moved;
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    const int begin = A->ia[i], length = A->ia[i + 1] - begin;
    int* ja = A->ja + begin;
    if (std::is_sorted(ja, ja + length)) continue;
    if (length <= kInsertionLength) {
      insertion_sort(length, ja, a ? a + begin : nullptr);
      continue;
    }
    order.clear();
    for (int k = 0; k < length; ++k) order.emplace_back(ja[k], k);
    std::sort(order.begin(), order.end());
    for (int k = 0; k < length; ++k) ja[k] = order[k].first;
    if (!a) continue;
    moved.assign(a + begin, a + begin + length);
    for (int k = 0; k < length; ++k) a[begin + k] = moved[order[k].second];
  }
}
template void sort_rows<double>(smat*);
template void sort_rows<zcomplex>(smat*);

template <typename T>
smat* transpose_stored(const smat* A) {
  smat* B = smat_new(A->n, A->m, type_of(A));
  scatter_entries(rows<T>(A), B, [](int i, int j) { return std::pair{j, i}; });
  return B;
}
template smat* transpose_stored<double>(const smat*);
template smat* transpose_stored<zcomplex>(const smat*);

namespace {

/// Adds up runs of equal columns; rows are sorted.
template <typename T>
int add_double_entries(smat* A) {
  T* a = values_as<T>(A->a);
  int put = 0, found = 0, begin = A->ia[0];
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    const int end = A->ia[i + 1], first = put;
    for (int k = begin; k < end; ++k) {
      if (put > first && A->ja[put - 1] == A->ja[k]) {
        ++found;
        NORV_DEBUG("smat_utils", "Double entry: a(%d,%d) = %e, %e", i, A->ja[k],
                   real_part(a[put - 1]), real_part(a[k]));
        a[put - 1] += a[k];
      } else {
        A->ja[put] = A->ja[k];
        a[put++] = a[k];
      }
    }
    begin = end;
    A->ia[i + 1] = put;
  }
  A->nnz = static_cast<unsigned>(put);
  return found;
}

/// Merges a zero diagonal into A.  @return number of places that were missing
template <typename T>
int fill_diagonal(smat* A) {
  smat* D = new_diagonal(A);
  int missing = 0;
  smat* filled = merge<T>(A, D, type_of(A), [&](const T* a, const T*) {
    missing += !a;
    return a ? *a : T{};
  });
  smat_free(D);
  if (missing) {
    adopt(A, filled);
  } else {
    smat_free(filled);
  }
  return missing;
}

}  // namespace

}  // namespace vlm::norv

using namespace vlm;
using namespace vlm::norv;

void smat_column_sort(smat* A) {
  by_kind(A->is_complex, [&](auto zero) { sort_rows<decltype(zero)>(A); });
}

void smat_eliminate_double_entries(smat* A) {
  const int found =
      by_kind(A->is_complex, [&](auto zero) { return add_double_entries<decltype(zero)>(A); });
  if (found) {
    _norv_print_warn_msg("Matrix had %d inconsistent multiple entries.  Values were ADDED!", found);
  }
}

void smat_insert_zero_diags(smat* A) {
  if (A->is_complex) return smat_insert_zero_diags_cpx(A);
  const int missing = fill_diagonal<double>(A);
  if (missing) _norv_print_stat_msg("Filled in %d missing diagonal entries.", missing);
}

void smat_insert_zero_diags_cpx(smat* A) {
  NORV_ASSERT(A->is_complex);
  const int missing = fill_diagonal<vlm::zcomplex>(A);
  if (missing) _norv_print_stat_msg("Filled in %d missing COMPLEX diagonal entries.", missing);
}

NORVMORA_SMAT_UTILS(NORVMORA_ALIAS)
