// SPDX-License-Identifier: BSD-3-Clause
/// Bridges between a complex matrix and the real one that acts alike on interleaved vectors:
/// the entry x + iy stands for the 2 by 2 block [x -y; y x].

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// Complex row i of a real matrix of 2 by 2 blocks: f(j, place) for each stored block column j
/// in rising order.  place holds the positions of the left entries of both rows, -1 for a zero.
template <typename F>
void for_each_block(const smat* A, int i, F f) {
  int p = A->ia[2 * i], q = A->ia[2 * i + 1];
  const int p_end = q, q_end = A->ia[2 * i + 2];
  while (p < p_end || q < q_end) {
    const int jp = p < p_end ? A->ja[p] / 2 : std::numeric_limits<int>::max();
    const int jq = q < q_end ? A->ja[q] / 2 : std::numeric_limits<int>::max();
    const int j = std::min(jp, jq);
    int re = -1, im = -1;
    for (; p < p_end && A->ja[p] / 2 == j; ++p) {
      if (A->ja[p] == 2 * j) re = p;
    }
    for (; q < q_end && A->ja[q] / 2 == j; ++q) {
      if (A->ja[q] == 2 * j) im = q;
    }
    f(j, re, im);
  }
}

}  // namespace

smat* smat_cpx_to_2x2(const smat* A) {
  NORV_ASSERT(A->is_complex);
  if (A->sym) {  // the blocks are not symmetric
    smat* full = smat_copy_full_structure(A);
    smat* B = smat_cpx_to_2x2(full);
    smat_free(full);
    return B;
  }
  smat* B = smat_new(2 * A->m, 2 * A->n, NORV_REAL_UNSYM);
  for (unsigned i = 0; i < A->m; ++i) {
    const int length = A->ia[i + 1] - A->ia[i];
    B->ia[2 * i + 1] = B->ia[2 * i + 2] = 2 * length;
  }
  reserve_entries(B, counts_to_starts(B->ia, B->m));
  const zcomplex* a = values_as<zcomplex>(A->a);
  for (unsigned i = 0; i < A->m; ++i) {
    int upper = B->ia[2 * i], lower = B->ia[2 * i + 1];
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const int j = 2 * A->ja[k];
      B->ja[upper] = B->ja[lower] = j;
      B->ja[upper + 1] = B->ja[lower + 1] = j + 1;
      B->a[upper++] = a[k].real();
      B->a[upper++] = -a[k].imag();
      B->a[lower++] = a[k].imag();
      B->a[lower++] = a[k].real();
    }
  }
  return B;
}

smat* smat_2x2_to_cpx(const smat* A) {
  NORV_ASSERT(!A->is_complex);
  NORV_ASSERT(!A->sym);
  NORV_ASSERT(A->m % 2 == 0 && A->n % 2 == 0);
  smat* B = smat_new(A->m / 2, A->n / 2, NORV_CPX_UNSYM);
  const int m = static_cast<int>(B->m);
  for (int i = 0; i < m; ++i) {
    for_each_block(A, i, [&](int, int, int) { ++B->ia[i + 1]; });
  }
  reserve_entries(B, counts_to_starts(B->ia, B->m));
  int put = 0;
  for (int i = 0; i < m; ++i) {
    for_each_block(A, i, [&](int j, int re, int im) {
      B->ja[put] = j;
      values_as<zcomplex>(B->a)[put++] = {re < 0 ? 0.0 : A->a[re], im < 0 ? 0.0 : A->a[im]};
    });
  }
  return B;
}

NORVMORA_SMAT_CPX(NORVMORA_ALIAS)
