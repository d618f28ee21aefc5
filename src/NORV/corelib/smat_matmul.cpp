// SPDX-License-Identifier: BSD-3-Clause
/// Products of sparse matrices.
///
/// Row by row after F. G. Gustavson, "Two fast algorithms for sparse matrices", 1978: row i of
/// A B is the sum of the rows of B that row i of A names, gathered in a dense row.  One pass
/// counts, one computes; O(multiplications + sorting of each row), O(columns) scratch.

#include <algorithm>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// C := A B for stored entries.  With upper_only the part below the diagonal is left out.
template <typename T>
smat* multiply_matrices(const Rows<T>& A, const Rows<T>& B, bool upper_only, int type) {
  smat* C = smat_new(static_cast<unsigned>(A.m), static_cast<unsigned>(B.n), type);
  Buffer<int> last_row(B.n, -1);  // row of C that met column j last
  // f(j, p, q) for each contribution A.a[p] B.a[q] to column j of row i.
  const auto contributions = [&](int i, auto f) {
    for (int p = A.ia[i]; p < A.ia[i + 1]; ++p) {
      const int row = A.ja[p];
      for (int q = B.ia[row]; q < B.ia[row + 1]; ++q) {
        if (!upper_only || B.ja[q] >= i) f(B.ja[q], p, q);
      }
    }
  };
  for (int i = 0; i < A.m; ++i) {
    contributions(i, [&](int j, int, int) {
      int& seen = last_row[j];
      C->ia[i + 1] += seen != i;
      seen = i;
    });
  }
  reserve_entries(C, counts_to_starts(C->ia, C->m));
  std::fill(last_row.begin(), last_row.end(), -1);
  Buffer<T> sum(B.n);
  T* c = values_as<T>(C->a);
  for (int i = 0; i < A.m; ++i) {
    int put = C->ia[i];
    contributions(i, [&](int j, int p, int q) {
      if (last_row[j] != i) {
        last_row[j] = i;
        sum[j] = T{};
        C->ja[put++] = j;
      }
      add_product(sum[j], A.a[p], B.a[q]);
    });
    std::sort(C->ja + C->ia[i], C->ja + put);
    for (int k = C->ia[i]; k < put; ++k) c[k] = sum[C->ja[k]];
  }
  return C;
}

/// Values of column j of the stored entries times d(j).
template <typename T>
void scale_columns(smat* A, const vec* d) {
  T* a = values_as<T>(A->a);
  for (unsigned k = 0; k < A->nnz; ++k) a[k] = product(a[k], values_as<T>(d->v)[A->ja[k]]);
}

/// B diag(d) B' with its upper triangle stored.
smat* diag_product(const smat* B, const vec* d) {
  NORV_ASSERT(B->n == d->n);
  NORV_ASSERT(B->is_complex == d->is_complex);
  return by_kind(B->is_complex, [&](auto zero) {
    using T = decltype(zero);
    smat* Bt = transpose_stored<T>(B);
    smat* BD = smat_copy(B);
    scale_columns<T>(BD, d);
    smat* C = multiply_matrices(rows<T>(BD), rows<T>(Bt), true, type_of(1, B->is_complex));
    smat_free(BD);
    smat_free(Bt);
    return C;
  });
}

}  // namespace

smat* smat_matmul(const smat* A, const smat* B) {
  NORV_ASSERT(A->n == B->m);
  NORV_ASSERT(!A->sym && !B->sym);
  NORV_ASSERT(A->is_complex == B->is_complex);
  return by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    return multiply_matrices(rows<T>(A), rows<T>(B), false, type_of(0, A->is_complex));
  });
}

smat* smat_matmul3(const smat* A, const smat* B, const smat* C) {
  smat* AB = smat_matmul(A, B);
  smat* ABC = smat_matmul(AB, C);
  smat_free(AB);
  return ABC;
}

smat* smat_matmul3_ABCt(const smat* A, const smat* B, const smat* C) {
  smat* Ct = smat_copy_trans(C);
  smat* product = smat_matmul3(A, B, Ct);
  smat_free(Ct);
  return product;
}

smat* smat_matmul_diag_BBt(const smat* B, const vec* d) {
  NORV_ASSERT(!B->sym);
  return diag_product(B, d);
}

smat* smat_matmul_diag_BBt_kkt(const smat* K, unsigned nf, const vec* d) {
  NORV_ASSERT(d->n == nf);
  smat* B = nullptr;
  smat_fc_split(K, nf, nullptr, nullptr, &B, nullptr);
  smat* product = diag_product(B, d);
  smat_free(B);
  return product;
}

NORVMORA_SMAT_MATMUL(NORVMORA_ALIAS)
