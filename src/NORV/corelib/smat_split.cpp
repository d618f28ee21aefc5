// SPDX-License-Identifier: BSD-3-Clause
/// Cutting matrices into blocks and putting them together.
///
/// Every cut is a window: rows r0..r1-1 and columns c0..c1-1 of the stored entries, renumbered
/// from 0.  Rows keep their order.

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

struct Window {
  unsigned r0, r1, c0, c1;
};

/// The stored entries inside the window, as a new matrix of the given type.
template <typename T>
smat* cut(const smat* A, Window w, int type) {
  const Rows<T> R = rows<T>(A);
  const int c0 = static_cast<int>(w.c0), c1 = static_cast<int>(w.c1);
  const auto inside = [&](int j) { return j >= c0 && j < c1; };
  smat* B = smat_new(w.r1 - w.r0, w.c1 - w.c0, type);
  for (unsigned i = w.r0; i < w.r1; ++i) {
    B->ia[i - w.r0 + 1] =
        static_cast<int>(std::count_if(R.ja + R.ia[i], R.ja + R.ia[i + 1], inside));
  }
  reserve_entries(B, counts_to_starts(B->ia, B->m));
  T* b = values_as<T>(B->a);
  int put = 0;
  for (int k = R.ia[w.r0]; k < R.ia[w.r1]; ++k) {
    if (!inside(R.ja[k])) continue;
    B->ja[put] = R.ja[k] - c0;
    b[put++] = R.a[k];
  }
  return B;
}

/// Stores the cut at *block when there is an address.
void cut_to(smat** block, const smat* A, Window w, int sym) {
  if (!block) return;
  *block = by_kind(A->is_complex, [&](auto zero) {
    return cut<decltype(zero)>(A, w, type_of(sym, A->is_complex));
  });
}

/// Appends the entries [from, to) of A behind the put entries of B, columns shifted.
int append_entries(smat* B, int put, const smat* A, int from, int to, int shift) {
  const int width = A->is_complex ? 2 : 1;
  std::transform(A->ja + from, A->ja + to, B->ja + put, [shift](int j) { return j + shift; });
  std::copy(A->a + std::ptrdiff_t{width} * from, A->a + std::ptrdiff_t{width} * to,
            B->a + std::ptrdiff_t{width} * put);
  return put + (to - from);
}

/// A copy of B with its upper left corner at (i0, j0) of an m by n matrix.
smat* placed(const smat* B, unsigned m, unsigned n, unsigned i0, unsigned j0) {
  smat* P = smat_new_nnz(m, n, B->nnz, type_of(B));
  for (unsigned i = 0; i < m; ++i) {
    const bool inside = i >= i0 && i - i0 < B->m;
    P->ia[i + 1] = P->ia[i] + (inside ? B->ia[i - i0 + 1] - B->ia[i - i0] : 0);
  }
  append_entries(P, 0, B, 0, static_cast<int>(B->nnz), static_cast<int>(j0));
  return P;
}

}  // namespace

void smat_fc_split(const smat* A, unsigned nf, smat** F, smat** C, smat** B, smat** BT) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(nf <= A->m);
  const unsigned n = A->m;
  cut_to(F, A, {0, nf, 0, nf}, A->sym);
  cut_to(C, A, {nf, n, nf, n}, A->sym);
  cut_to(BT, A, {0, nf, nf, n}, 0);
  if (!A->sym) {
    cut_to(B, A, {nf, n, 0, nf}, 0);
  } else if (B) {  // below the diagonal nothing is stored
    cut_to(B, A, {0, nf, nf, n}, 0);
    smat_trans(*B);
  }
}

void smat_split(const smat* A, unsigned m1, unsigned n1, smat** A11, smat** A12, smat** A21,
                smat** A22) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(m1 <= A->m);
  NORV_ASSERT(n1 <= A->n);
  cut_to(A11, A, {0, m1, 0, n1}, 0);
  cut_to(A12, A, {0, m1, n1, A->n}, 0);
  cut_to(A21, A, {m1, A->m, 0, n1}, 0);
  cut_to(A22, A, {m1, A->m, n1, A->n}, 0);
}

void smat_vert_split(const smat* A, unsigned m1, smat** top, smat** bottom) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(m1 <= A->m);
  cut_to(top, A, {0, m1, 0, A->n}, 0);
  cut_to(bottom, A, {m1, A->m, 0, A->n}, 0);
}

void smat_horiz_split(const smat* A, unsigned n1, smat** left, smat** right) {
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(n1 <= A->n);
  cut_to(left, A, {0, A->m, 0, n1}, 0);
  cut_to(right, A, {0, A->m, n1, A->n}, 0);
}

smat* smat_append_row(const smat* A, const smat* B) {
  NORV_ASSERT(!A->sym && !B->sym);
  NORV_ASSERT(A->n == B->n);
  NORV_ASSERT(A->is_complex == B->is_complex);
  smat* C = smat_new(A->m + B->m, A->n, type_of(A));
  for (unsigned i = 0; i < A->m; ++i) C->ia[i + 1] = A->ia[i + 1] - A->ia[i];
  for (unsigned i = 0; i < B->m; ++i) C->ia[A->m + i + 1] = B->ia[i + 1] - B->ia[i];
  reserve_entries(C, counts_to_starts(C->ia, C->m));
  const int put = append_entries(C, 0, A, 0, static_cast<int>(A->nnz), 0);
  append_entries(C, put, B, 0, static_cast<int>(B->nnz), 0);
  return C;
}

smat* smat_append_col(const smat* A, const smat* B) {
  NORV_ASSERT(!A->sym && !B->sym);
  NORV_ASSERT(A->m == B->m);
  NORV_ASSERT(A->is_complex == B->is_complex);
  smat* C = smat_new(A->m, A->n + B->n, type_of(A));
  for (unsigned i = 0; i < A->m; ++i) {
    C->ia[i + 1] = (A->ia[i + 1] - A->ia[i]) + (B->ia[i + 1] - B->ia[i]);
  }
  reserve_entries(C, counts_to_starts(C->ia, C->m));
  int put = 0;
  for (unsigned i = 0; i < A->m; ++i) {
    put = append_entries(C, put, A, A->ia[i], A->ia[i + 1], 0);
    put = append_entries(C, put, B, B->ia[i], B->ia[i + 1], static_cast<int>(A->n));
  }
  return C;
}

void smat_insert_at(smat* A, unsigned i0, unsigned j0, const smat* B) {
  NORV_ASSERT(A->is_complex == B->is_complex);
  NORV_ASSERT(A->sym == B->sym && (!A->sym || i0 == j0));
  NORV_ASSERT(i0 + B->m <= A->m);
  NORV_ASSERT(j0 + B->n <= A->n);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    smat* P = placed(B, A->m, A->n, i0, j0);
    const auto latter = [](const T* a, const T* b) {
      return b ? *b : *a;  // NOLINT(clang-analyzer-core.*): of the two at most one is missing
    };
    adopt(A, merge<T>(A, P, type_of(A), latter));
    smat_free(P);
  });
}

NORVMORA_SMAT_SPLIT(NORVMORA_ALIAS)
