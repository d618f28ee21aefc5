// SPDX-License-Identifier: BSD-3-Clause
/// Exported forms of the running estimate: dense rows addressed by position, the components of z at
/// position plus the delayed rows so far.
#include <algorithm>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/condest.hpp"
#include "norv/condest.h"

namespace {

using namespace vlm::norv;

/// The packed entries of a row behind position k.
template <class T>
struct PackedRow {
  vlm::Buffer<int> column;
  vlm::Buffer<T> value;

  PackedRow(const int* list, int length, const T* values, int k) {
    column.reserve(static_cast<std::size_t>(length));
    value.reserve(static_cast<std::size_t>(length));
    for (int p = 0; p < length; ++p) {
      if (list[p] <= k) continue;
      column.push_back(list[p]);
      value.push_back(values[list[p]]);
    }
  }
  PivotRows<T, 1> view() const {
    return {static_cast<int>(column.size()), column.data(), {value.data()}};
  }
};

void check_place(const vec* est, int k, int delay_cnt) {
  NORV_ASSERT(est != 0);
  NORV_ASSERT(k >= 0 && delay_cnt >= 0);
  NORV_ASSERT(static_cast<unsigned>(k) + static_cast<unsigned>(delay_cnt) < est->n);
}

}  // namespace

double cond_Lk11_delayed_est(double kappa, const int* list, const double* values, int len,
                             int strategy, vec* est, perm* cnt, int k, double* scratch,
                             int delay_cnt, double* out, int is_complex) {
  check_place(est, k, delay_cnt);
  NORV_ASSERT(cnt != 0 && scratch != 0 && out != 0);
  NORV_ASSERT(strategy >= 0 && strategy <= 5);
  NORV_ASSERT_TEXT(strategy <= 3 || is_complex == 0, "is_complex == 0");
  if (k == 0) {
    vec_clear(est);
    perm_clear(cnt);
  }
  return vlm::by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T* const row = vlm::values_as<T>(values);
    const T* const z = vlm::values<T>(est) + delay_cnt;
    const PackedRow<T> packed(list, len, row, k);
    const T here[1] = {z[k]};
    const CondestStep<T, 1> step =
        condest_look<T, 1>(static_cast<CondestStrategy>(strategy), kappa, PivotBlock<T, 1>{row[k]},
                           here, packed.view(), z, cnt->p + delay_cnt);
    vlm::values_as<T>(scratch)[0] = step.mu[0];
    if (step.taken) *out = step.out[0];
    return step.bound;
  });
}

void cond_Lk11_delayed_commit(int is_complex, const double* values, int len, const int* list,
                              vec* est, perm*, int k, const double* scratch, int delay_cnt) {
  check_place(est, k, delay_cnt);
  vlm::by_kind(is_complex, [&](auto kind) {
    using T = decltype(kind);
    const T mu[1] = {vlm::values_as<T>(scratch)[0]};
    const PackedRow<T> packed(list, len, vlm::values_as<T>(values), k);
    condest_take(packed.view(), mu, vlm::values<T>(est) + delay_cnt);
  });
}

double condest_L_simple(const smat* L) {
  NORV_ASSERT(L != 0);
  NORV_ASSERT(L->m == L->n);
  return vlm::by_kind(L->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const int n = static_cast<int>(L->m);
    const T* const a = vlm::values_as<T>(L->a);
    vlm::Buffer<T> z(L->m, T());
    double most = 0;
    for (int k = 0; k < n; ++k) {
      const T plus = T(1) - z[k], minus = T(-1) - z[k];
      const T mu = magnitude(minus) < magnitude(plus) ? plus : minus;
      most = std::max(most, magnitude(mu));
      for (int p = L->ia[k]; p < L->ia[k + 1]; ++p) z[L->ja[p]] += vlm::product(a[p], mu);
    }
    return most;
  });
}
