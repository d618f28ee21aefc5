// SPDX-License-Identifier: BSD-3-Clause
/// Products of sparse matrices.
///
/// Row by row after F. G. Gustavson, "Two fast algorithms for sparse matrices", 1978: row i of
/// A B is the sum of the rows of B that row i of A names, gathered in a dense row.  One pass
/// counts, one computes; O(multiplications + sorting of each row), O(columns) scratch a thread.

#include <algorithm>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/row_shares.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// The rows of a product that a thread forms, with its scratch.
template <typename T>
class RowProducts {
 public:
  /// With upper_only the part below the diagonal is left out.
  RowProducts(const Rows<T>& A, const Rows<T>& B, bool upper_only)
      : A_(A), B_(B), upper_only_(upper_only), last_row_(B.n, -1), sum_(B.n) {}

  /// Entries of the rows to count[first..last-1].
  void count(int first, int last, int* count) {
    for (int i = first; i < last; ++i) {
      int entries = 0;
      contributions(i, [&](int j, int, int) {
        entries += last_row_[j] != i;
        last_row_[j] = i;
      });
      count[i] = entries;
    }
    std::fill(last_row_.begin(), last_row_.end(), -1);
  }

  /// The rows themselves, sorted, to their places.
  void fill(int first, int last, const int* start, int* columns, T* values) {
    for (int i = first; i < last; ++i) {
      int* const begin = columns + start[i];
      int* put = begin;
      contributions(i, [&](int j, int p, int q) {
        if (last_row_[j] != i) {
          last_row_[j] = i;
          sum_[j] = T{};
          *put++ = j;
        }
        add_product(sum_[j], A_.a[p], B_.a[q]);
      });
      std::sort(begin, put);
      for (const int* j = begin; j < put; ++j) values[start[i] + (j - begin)] = sum_[*j];
    }
  }

 private:
  /// f(j, p, q) for each contribution A.a[p] B.a[q] to column j of row i.
  template <typename F>
  void contributions(int i, const F& f) const {
    for (int p = A_.ia[i]; p < A_.ia[i + 1]; ++p) {
      const int row = A_.ja[p];
      for (int q = B_.ia[row]; q < B_.ia[row + 1]; ++q) {
        if (!upper_only_ || B_.ja[q] >= i) f(B_.ja[q], p, q);
      }
    }
  }

  const Rows<T> A_, B_;
  const bool upper_only_;
  Buffer<int> last_row_;  ///< row of the product that met column j last
  Buffer<T> sum_;
};

/// C := A B for stored entries.  With upper_only the part below the diagonal is left out.  Its rows
/// are shared out among threads by the entries of A; each is what one thread makes of it.
template <typename T>
smat* multiply_matrices(const Rows<T>& A, const Rows<T>& B, bool upper_only, int type) {
  const int nthreads = row_threads(A.ia[A.m]);
  Buffer<RowProducts<T>> scratch;
  scratch.reserve(nthreads);
  for (int thread = 0; thread < nthreads; ++thread) scratch.emplace_back(A, B, upper_only);
  smat* C = smat_new(static_cast<unsigned>(A.m), static_cast<unsigned>(B.n), type);
  for_row_shares(A.ia, A.m, nthreads, [&](int thread, int first, int last) {
    scratch[thread].count(first, last, C->ia + 1);
  });
  reserve_entries(C, counts_to_starts(C->ia, C->m));
  for_row_shares(A.ia, A.m, nthreads, [&](int thread, int first, int last) {
    scratch[thread].fill(first, last, C->ia, C->ja, values_as<T>(C->a));
  });
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
