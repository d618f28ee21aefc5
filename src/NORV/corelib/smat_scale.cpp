// SPDX-License-Identifier: BSD-3-Clause
/// Sums of matrices, scaling, and changes of the diagonal.

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// A + sign * B over the union of the patterns; symmetric when both are.
smat* signed_sum(const smat* A, const smat* B, double sign) {
  NORV_ASSERT(A->m == B->m);
  NORV_ASSERT(A->n == B->n);
  NORV_ASSERT(A->is_complex == B->is_complex);
  if (!A->sym != !B->sym) {
    smat* full = smat_copy_full_structure(A->sym ? A : B);
    smat* sum = A->sym ? signed_sum(full, B, sign) : signed_sum(A, full, sign);
    smat_free(full);
    return sum;
  }
  return by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const auto add = [&](const T* a, const T* b) {
      if (!b) return *a;  // NOLINT(clang-analyzer-core.*): of the two at most one is missing
      return (a ? *a : T{}) + sign * *b;
    };
    return merge<T>(A, B, type_of(A), add);
  });
}

/// a(i,j) := f(i, j, a(i,j)) for the stored entries.
template <typename T, typename F>
void update_entries(smat* A, F f) {
  T* a = values_as<T>(A->a);
  for (int i = 0; i < static_cast<int>(A->m); ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) a[k] = f(i, A->ja[k], a[k]);
  }
}

/// Traps scaling vectors that do not fit.
void require_scaling(const smat* A, const vec* left, const vec* right) {
  NORV_ASSERT(A->m == left->n);
  NORV_ASSERT(A->n == right->n);
  NORV_ASSERT(left->is_complex == 0);
  NORV_ASSERT(right->is_complex == 0);
}

/// a(i,j) := l(i) a(i,j) r(j) with values of T; null is all ones.
template <typename T, typename S>
void scale_both_sides(smat* A, const S* l, const S* r) {
  update_entries<T>(A, [&](int i, int j, T v) {
    if (l) v = product(l[i], v);
    return r ? product(v, r[j]) : v;
  });
}

/// A + D over the union of the patterns, in place, for a diagonal matrix D given by its values.
template <typename T>
void add_diagonal(smat* A, const T* d) {
  smat* D = new_diagonal(A);
  std::copy_n(d, D->nnz, values_as<T>(D->a));
  adopt(A, merge<T>(A, D, type_of(A),
                    [](const T* a, const T* b) { return (a ? *a : T{}) + (b ? *b : T{}); }));
  smat_free(D);
}

bool is_diagonal(const smat* D) {
  if (D->m != D->n || D->nnz != D->m) return false;
  for (int i = 0; i < static_cast<int>(D->m); ++i) {
    if (D->ia[i] != i || D->ja[i] != i) return false;
  }
  return true;
}

}  // namespace

smat* smat_add(const smat* A, const smat* B) { return signed_sum(A, B, 1.0); }
smat* smat_sub(const smat* A, const smat* B) { return signed_sum(A, B, -1.0); }

void smat_scale_scalar(double alpha, smat* A) {
  const std::size_t count = std::size_t{A->nnz} << A->is_complex;
  for (std::size_t k = 0; k < count; ++k) A->a[k] *= alpha;
}

void smat_scale(smat* A, const vec* left, const vec* right) {
  require_scaling(A, left, right);
  by_kind(A->is_complex,
          [&](auto zero) { scale_both_sides<decltype(zero)>(A, left->v, right->v); });
}

void smat_scale_exp(smat* A, const vec* left, const vec* right) {
  require_scaling(A, left, right);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    // One exponential of the sum: each alone may overflow.
    update_entries<T>(A, [&](int i, int j, T v) { return std::exp(left->v[i] + right->v[j]) * v; });
  });
}

void smat_scale_left(smat* A, const vec* left) {
  NORV_ASSERT(A->m == left->n);
  NORV_ASSERT(left->is_complex == 0);
  by_kind(A->is_complex,
          [&](auto zero) { scale_both_sides<decltype(zero), double>(A, left->v, nullptr); });
}

void smat_add_r2(double alpha, smat* A, const vec* x, const vec* y) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(A->m == x->n);
  NORV_ASSERT(A->m == y->n);
  NORV_ASSERT(A->is_complex == x->is_complex);
  NORV_ASSERT(A->is_complex == y->is_complex);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const T *xv = values_as<T>(x->v), *yv = values_as<T>(y->v);
    update_entries<T>(A, [&](int i, int j, T v) {
      return v + alpha * (product(xv[i], yv[j]) + product(yv[i], xv[j]));
    });
  });
}

void smat_scale_diag(double alpha, smat* A) {
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    update_entries<T>(A, [&](int i, int j, T v) { return i == j ? alpha * v : v; });
  });
}

void smat_scale_diag_matrix(smat* A, const smat* left, const smat* right) {
  NORV_ASSERT(!left || (A->m == left->m && is_diagonal(left)));
  NORV_ASSERT(!right || (A->n == right->m && is_diagonal(right)));
  NORV_ASSERT(!left || A->is_complex == left->is_complex);
  NORV_ASSERT(!right || A->is_complex == right->is_complex);
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    scale_both_sides<T, T>(A, left ? values_as<T>(left->a) : nullptr,
                           right ? values_as<T>(right->a) : nullptr);
  });
}

void smat_invert_diag(smat* A) {
  NORV_ASSERT(is_diagonal(A));
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    update_entries<T>(A, [](int, int, T v) { return quotient(T{1.0}, v); });
  });
}

void smat_add_diag(smat* A, double alpha) {
  by_kind(A->is_complex, [&](auto zero) {
    using T = decltype(zero);
    const Buffer<T> d(std::min(A->m, A->n), T{alpha});
    add_diagonal(A, d.data());
  });
}

void smat_add_diag_vec(smat* A, const vec* d) {
  NORV_ASSERT(std::min(A->m, A->n) == d->n);
  NORV_ASSERT(A->is_complex || !d->is_complex);
  with_values_of_kind(A, d, [&](const auto* values) { add_diagonal(A, values); });
}

NORVMORA_SMAT_SCALE(NORVMORA_ALIAS)
