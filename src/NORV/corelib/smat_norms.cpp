// SPDX-License-Identifier: BSD-3-Clause
/// Norms of the completed matrix, and comparison.

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

enum class Side { kRow, kColumn };
enum class Kind { kSum, kLargest };

/// Sum or largest of the moduli in every row, or column, of the completed matrix.
vec* line_norms(vec* dst, const smat* A, Side side, Kind kind) {
  const unsigned n = side == Side::kRow ? A->m : A->n;
  if (!dst) dst = vec_new(n);
  NORV_ASSERT(dst->n == n);
  NORV_ASSERT(dst->is_complex == 0);
  std::fill_n(dst->v, n, 0.0);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    for_each_entry(rows<T>(A), [&](int i, int j, T v) {
      double& norm = dst->v[side == Side::kRow ? i : j];
      norm = kind == Kind::kSum ? norm + modulus(v) : larger(norm, modulus(v));
    });
  });
  return dst;
}

/// Largest of a norm over the rows or columns.
double largest_line_norm(const smat* A, Side side) {
  vec* norms = line_norms(nullptr, A, side, Kind::kSum);
  double largest = 0.0;
  for (unsigned i = 0; i < norms->n; ++i) largest = larger(largest, norms->v[i]);
  vec_release(norms);
  return largest;
}

bool same_shape(const smat* A, const smat* B) {
  return A->m == B->m && A->n == B->n && A->nnz == B->nnz;
}

bool same_pattern(const smat* A, const smat* B) {
  return same_shape(A, B) && std::equal(A->ia, A->ia + A->m + 1, B->ia) &&
         std::equal(A->ja, A->ja + A->nnz, B->ja);
}

bool same_values(const smat* A, const smat* B) {
  return std::equal(A->a, A->a + (std::size_t{A->nnz} << A->is_complex), B->a);
}

}  // namespace

double smat_frobenius_norm(const smat* A) {
  // Scaled by the largest modulus, so that squares neither overflow nor vanish.
  const double largest = smat_maxval(A);
  if (largest == 0.0 || !std::isfinite(largest)) return largest;
  double sum = 0.0;
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    for_each_entry(rows<T>(A), [&](int, int, T v) { sum += squared(v / largest); });
  });
  return largest * std::sqrt(sum);
}

double smat_maxval(const smat* A) {
  double largest = 0.0;
  by_kind(A->is_complex, [&](auto zero) {
    const auto* a = values_as<decltype(zero)>(A->a);
    for (unsigned k = 0; k < A->nnz; ++k) largest = larger(largest, modulus(a[k]));
  });
  return largest;
}

double smat_1_norm(const smat* A) { return largest_line_norm(A, Side::kColumn); }
double smat_inf_norm(const smat* A) { return largest_line_norm(A, Side::kRow); }
double smat_row_sum_norm(const smat* A) { return smat_inf_norm(A); }

vec* smat_col_1_norms(vec* dst, const smat* A) {
  return line_norms(dst, A, Side::kColumn, Kind::kSum);
}
vec* smat_col_inf_norms(vec* dst, const smat* A) {
  return line_norms(dst, A, Side::kColumn, Kind::kLargest);
}
vec* smat_row_1_norms(vec* dst, const smat* A) {
  return line_norms(dst, A, Side::kRow, Kind::kSum);
}
vec* smat_row_inf_norms(vec* dst, const smat* A) {
  return line_norms(dst, A, Side::kRow, Kind::kLargest);
}

int smat_equal_structure(const smat* A, const smat* B) { return same_pattern(A, B); }

int smat_equal_same_sym(const smat* A, const smat* B) {
  return A->sym == B->sym && A->is_complex == B->is_complex && same_pattern(A, B) &&
         same_values(A, B);
}

int smat_equal(const smat* A, const smat* B) {
  if (!A->sym == !B->sym || A->m != B->m || A->n != B->n) return smat_equal_same_sym(A, B);
  smat* full = smat_copy_full_structure(A->sym ? A : B);
  const int equal = smat_equal_same_sym(full, A->sym ? B : A);
  smat_free(full);
  return equal;
}

NORVMORA_SMAT_NORMS(NORVMORA_ALIAS)
