// SPDX-License-Identifier: BSD-3-Clause
/// The sparse matrix record: construction, release, index base, and the helpers of
/// smat_rows.hpp that change a record's arrays.
///
/// Compressed rows, 0-based.  A symmetric matrix stores its upper triangle.  A record's own
/// arrays have one spare place behind the last entry.

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <numeric>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

namespace vlm::norv {

namespace {

/// Fills the embedded operator, which makes a matrix usable where an operator is asked for.
void set_head(smat* A) {
  A->op.tag = NORV_LINOP_TAG;
  A->op.m = static_cast<int>(A->m);
  A->op.n = static_cast<int>(A->n);
  A->op.data = A;
  A->op.name = "new_mat";
  A->op.gemv = smat_gemv;
  A->op.gemv_trans = smat_gemv_trans;
}

/// A record without arrays.
smat* new_record(unsigned m, unsigned n, int type) {
  NORV_ASSERT(type == 0 || type == 1 || type == 2 || type == 3);
  smat* A = allocate_cleared<smat>(1);
  A->m = m;
  A->n = n;
  A->sym = type & 1;
  A->is_complex = type >> 1;
  set_head(A);
  return A;
}

/// Doubles that hold nnz values of A.
std::size_t doubles(const smat* A, std::size_t nnz) { return A->is_complex ? 2 * nnz : nnz; }

smat* wrap(unsigned m, unsigned n, int* ia, int* ja, double* a, int type, int base_index) {
  NORV_ASSERT(base_index == 0 || base_index == 1);
  NORV_ASSERT(ia != 0);
  smat* A = new_record(m, n, type);
  A->ia = ia;
  A->ja = ja;
  A->a = a;
  A->nnz = static_cast<unsigned>(ia[m] - base_index);
  if (base_index == 1) smat_to_c_indexing(A);
  return A;
}

void shift_indices(smat* A, int by) {
  for (unsigned i = 0; i <= A->m; ++i) A->ia[i] += by;
  for (unsigned k = 0; k < A->nnz; ++k) A->ja[k] += by;
}

}  // namespace

void reserve_entries(smat* A, unsigned nnz, bool with_values) {
  A->nnz = nnz;
  A->ja = allocate<int>(std::size_t{nnz} + 1);
  if (with_values) A->a = allocate<double>(doubles(A, nnz) + 1);
}

int find_entry(const smat* A, int i, int j) {
  const int *begin = A->ja + A->ia[i], *end = A->ja + A->ia[i + 1];
  const int* at = std::lower_bound(begin, end, j);
  return at != end && *at == j ? static_cast<int>(at - A->ja) : -1;
}

void adopt(smat* A, smat* B) {
  vlm::release_block(A->ia);
  vlm::release_block(A->ja);
  vlm::release_block(A->a);
  A->m = B->m;
  A->n = B->n;
  A->nnz = B->nnz;
  A->sym = B->sym;
  A->is_complex = B->is_complex;
  A->ia = B->ia;
  A->ja = B->ja;
  A->a = B->a;
  set_head(A);
  vlm::release_block(B);
}

void set_shape(smat* A, unsigned m, unsigned n) {
  A->m = m;
  A->n = n;
  set_head(A);
}

smat* new_diagonal(const smat* A) {
  const unsigned n = std::min(A->m, A->n);
  smat* D = smat_new_nnz(A->m, A->n, n, type_of(A));
  for (unsigned i = 0; i < A->m; ++i) D->ia[i + 1] = static_cast<int>(std::min(i + 1, n));
  std::iota(D->ja, D->ja + n, 0);
  return D;
}

}  // namespace vlm::norv

using namespace vlm;
using namespace vlm::norv;

smat* smat_new(unsigned m, unsigned n, int type) {
  smat* A = new_record(m, n, type);
  A->ia = allocate_cleared<int>(std::uint64_t{m} + 1);
  return A;
}

smat* smat_new_cpx(unsigned m, unsigned n, int sym) { return smat_new(m, n, type_of(sym, 1)); }

smat* smat_new_nnz_struct(unsigned m, unsigned n, unsigned nnz, int type) {
  smat* A = smat_new(m, n, type);
  reserve_entries(A, nnz, false);
  return A;
}

smat* smat_new_nnz(unsigned m, unsigned n, unsigned nnz, int type) {
  smat* A = smat_new(m, n, type);
  reserve_entries(A, nnz);
  return A;
}

smat* smat_new_from(unsigned m, unsigned n, int* ia, int* ja, double* a, int type, int base_index) {
  return wrap(m, n, ia, ja, a, type, base_index);
}

smat* smat_new_from_cpx(unsigned m, unsigned n, int* ia, int* ja, double* a, int sym,
                        int base_index) {
  return wrap(m, n, ia, ja, a, type_of(sym, 1), base_index);
}

smat* Lmat_new_nnz(unsigned m, unsigned n, unsigned estimate, int type) {
  smat* L = smat_new(m, n, type);
  // Room for fill * estimate entries, which 32-bit row starts must be able to count.
  const auto places = [&](int fill) {
    return std::size_t{estimate} * static_cast<unsigned>(fill) + 1;
  };
  const auto countable = [&](int fill) {
    return places(fill) <= static_cast<std::size_t>(std::numeric_limits<int>::max());
  };
  const auto allocate = [&](int fill) {
    if (!countable(fill)) return false;
    L->ja = static_cast<int*>(vlm::try_reallocate_bytes(nullptr, places(fill), sizeof(int)));
    if (!L->ja) return false;
    L->a = static_cast<double*>(
        vlm::try_reallocate_bytes(nullptr, doubles(L, places(fill)), sizeof(double)));
    if (L->a) return true;
    vlm::release_block(L->ja);
    L->ja = nullptr;
    return false;
  };
  int fill = 15;
  while (fill > 0 && !allocate(fill)) {
    NORV_DEBUG("smat", "Trying to allocate matrix with fill-in of %d ... failed", fill);
    --fill;
  }
  if (fill == 0) return L;
  NORV_DEBUG("smat", "Trying to allocate matrix with fill-in of %d ... success", fill);
  NORV_DEBUG("smat", "Re-allocate matrix with fill-in of %d ... ", fill);
  if (fill >= 3) {  // the freed room is left to the rest of the computation
    --fill;
    NORV_DEBUG("smat", "Re-allocate matrix with final fill-in of %d ... ", fill);
    void* ja = vlm::try_reallocate_bytes(L->ja, places(fill), sizeof(int));
    void* a = vlm::try_reallocate_bytes(L->a, doubles(L, places(fill)), sizeof(double));
    if (!ja || !a) {
      NORV_DEBUG("smat", "Trying to reallocate matrix will fill-in of %d ... failed", fill);
      out_of_memory("ERROR during memory RE-allocation!");
    }
    L->ja = static_cast<int*>(ja);
    L->a = static_cast<double*>(a);
  }
  return L;
}

smat* smat_new_from_coord(unsigned m, unsigned n, unsigned nnz, const int* row, const int* col,
                          const double* a, int type) {
  smat* A = smat_new(m, n, type);
  // A symmetric matrix takes an entry below the diagonal as its mirror image.
  const auto place = [&](unsigned k) {
    return A->sym ? std::pair{std::min(row[k], col[k]), std::max(row[k], col[k])}
                  : std::pair{row[k], col[k]};
  };
  for (unsigned k = 0; k < nnz; ++k) {
    const auto [i, j] = place(k);
    NORV_ASSERT(i >= 0 && static_cast<unsigned>(i) < m);
    NORV_ASSERT(j >= 0 && static_cast<unsigned>(j) < n);
    ++A->ia[i + 1];
  }
  reserve_entries(A, counts_to_starts(A->ia, m));
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    Buffer<int> next(A->ia, A->ia + m);
    for (unsigned k = 0; k < nnz; ++k) {
      const auto [i, j] = place(k);
      const int at = next[i]++;
      A->ja[at] = j;
      values_as<T>(A->a)[at] = values_as<T>(a)[k];
    }
  });
  smat_column_sort(A);
  return A;
}

smat* smat_ident(unsigned n) {
  smat* A = smat_new_nnz(n, n, n, NORV_REAL_UNSYM);
  std::iota(A->ia, A->ia + n + 1, 0);
  std::iota(A->ja, A->ja + n, 0);
  std::fill_n(A->a, n, 1.0);
  return A;
}

void smat_free(smat* A) {
  if (!A) {
    _norv_print_warn_msg("Trying to free NULL matrix.");
    return;
  }
  vlm::release_block(A->ia);
  vlm::release_block(A->ja);
  vlm::release_block(A->a);
  vlm::release_block(A);
}

void smat_realloc(smat* A, unsigned nnz) {
  NORV_ASSERT(A != 0);
  A->nnz = nnz;
  A->a = reallocate(A->a, nnz ? doubles(A, nnz) : 2);
  A->ja = reallocate(A->ja, nnz ? std::size_t{nnz} : 1);
}

void smat_to_c_indexing(smat* mat) {
  NORV_ASSERT(mat->ia[0] == 1);
  shift_indices(mat, -1);
}

void smat_to_fortran_indexing(smat* mat) {
  NORV_ASSERT(mat->ia[0] == 0);
  shift_indices(mat, 1);
}

NORVMORA_SMAT(NORVMORA_ALIAS)
