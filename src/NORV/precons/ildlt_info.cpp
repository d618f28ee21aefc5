// SPDX-License-Identifier: BSD-3-Clause
/// The exported factor record: a factorization into it, its cut into factor, coupling and Schur
/// complement, its release.  The record's positions have 32 bits; a factor that doesn't fit is a
/// fault.
#include <algorithm>
#include <limits>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_messages.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "norv/ildlt.h"

namespace {

using namespace vlm::norv;

vec* new_vec(int n, int is_complex) {
  return is_complex ? vec_new_zero_cpx(static_cast<unsigned>(n))
                    : vec_new_zero(static_cast<unsigned>(n));
}

/// Rows of the factor, and behind them those of the Schur complement without their diagonal.
template <class T>
smat* factor_matrix(const IldltResult<T>& r) {
  const int n = r.factor.n, nf = r.factor.pivots;
  const std::int64_t entries =
      r.factor.entries() + (r.schur.n > 0 ? r.schur.entries() - r.schur.n : 0);
  if (entries > std::numeric_limits<int>::max())
    vlm::out_of_memory("ERROR: more entries than 32-bit row starts can count!");
  smat* const L =
      smat_new_nnz(static_cast<unsigned>(n), static_cast<unsigned>(n),
                   static_cast<unsigned>(entries), vlm::norv::type_of(0, vlm::is_complex_v<T>));
  T* const a = vlm::values_as<T>(L->a);
  for (int k = 0; k < nf; ++k) L->ia[k] = static_cast<int>(r.factor.start[k]);
  int q = static_cast<int>(r.factor.entries());
  std::copy(r.factor.column.data(), r.factor.column.data() + q, L->ja);
  std::copy(r.factor.value.data(), r.factor.value.data() + q, a);
  for (int i = 0; i < r.schur.n; ++i) {
    L->ia[nf + i] = q;
    for (std::int64_t p = r.schur.start[i] + 1; p < r.schur.start[i + 1]; ++p, ++q) {
      L->ja[q] = nf + r.schur.column[p];
      a[q] = r.schur.value[p];
    }
  }
  L->ia[n] = q;
  return L;
}

template <class T>
void fill_info(ildlt_info* info, const IldltResult<T>& r) {
  const int n = r.factor.n;
  info->is_complex = vlm::is_complex_v<T>;
  info->D = new_vec(n, info->is_complex);
  info->E = new_vec(n, info->is_complex);
  std::copy(r.factor.d.begin(), r.factor.d.end(), vlm::values<T>(info->D));
  std::copy(r.factor.e.begin(), r.factor.e.end(), vlm::values<T>(info->E));
  info->L = factor_matrix(r);
  info->delay_cnt = n - r.factor.pivots;
  info->is_pivot22 = bitvec_new(static_cast<unsigned>(std::max(n, 1)));
  for (int k = 0; k < r.factor.pivots; ++k)
    if (r.factor.is_pair[k]) bitvec_set(info->is_pivot22, static_cast<unsigned>(k));
  for (int i = 0; i < n; ++i) info->perm->p[i] = r.place[info->perm->p[i]];
  info->work1 = new_vec(n, info->is_complex);
  info->work2 = new_vec(n, info->is_complex);
  info->npos = r.factor.npos;
  info->nneg = r.factor.nneg;
}

template <class T>
void factorize(ildlt_info* info, const IldltOptions& options, const vec* target, const smat* A) {
  vlm::Vector<T> ordered_target;
  if (options.compensate) {
    NORV_ASSERT(target != 0);
    NORV_ASSERT(target->n == A->m);
    ordered_target.resize(target->n);
    vlm::by_kind(target->is_complex, [&](auto kind) {
      using V = decltype(kind);
      for (unsigned i = 0; i < target->n; ++i)
        if constexpr (vlm::is_complex_v<T> || !vlm::is_complex_v<V>)
          ordered_target[info->perm->p[i]] = T(vlm::values<V>(target)[i]);
    });
  }
  UpperRows<T> rows = permuted_upper<T>(A, info->perm->p, nullptr);
  const std::int64_t stored = rows.entries();
  ildlt_setup_messages(stpiv_member(), options, fill_limit(options.max_fill, rows));
  const IldltResult<T> result = factorize_ildlt(std::move(rows), options, ordered_target.data());
  if (options.keep_schur) {
    NORV_DEBUG("precon_ildlt_stpiv", "Building Schur complement of size ... %d ",
               result.statistics.schur_size);
    NORV_DEBUG("precon_ildlt_stpiv", "Building Schur took %.2f secs.",
               result.statistics.schur_seconds);
  }
  fill_info(info, result);
  ildlt_statistics_messages(stpiv_member(), result, stored);
}

/// Entries of row k from column nf on: f(column, value of row k, value of row k+1).
template <class T, class F>
void coupling_of_row(const ildlt_info* info, int k, int nf, F f) {
  const T* const a = vlm::values_as<T>(info->L->a);
  const bool pair = bitvec_is_set(info->is_pivot22, static_cast<unsigned>(k));
  for (int p = info->L->ia[k]; p < info->L->ia[k + 1]; p += pair ? 2 : 1)
    if (info->L->ja[p] >= nf) f(info->L->ja[p] - nf, a[p], pair ? a[p + 1] : T());
}

/// Both rows of a pair are rows of V.
template <class T>
smat* coupling(const ildlt_info* info, int nf) {
  const int nc = static_cast<int>(info->L->n) - nf;
  vlm::Buffer<int> start(static_cast<std::size_t>(nf) + 1, 0);
  for (int k = 0; k < nf; ++k) {
    const bool pair = bitvec_is_set(info->is_pivot22, static_cast<unsigned>(k));
    coupling_of_row<T>(info, k, nf, [&](int, T, T) {
      ++start[k + 1];
      if (pair) ++start[k + 2];
    });
    if (pair) ++k;
  }
  const unsigned nnz = vlm::counts_to_starts(start.data(), static_cast<unsigned>(nf));
  smat* const V = smat_new_nnz(static_cast<unsigned>(nf), static_cast<unsigned>(nc), nnz,
                               vlm::norv::type_of(0, info->is_complex));
  std::copy(start.begin(), start.end(), V->ia);
  T* const v = vlm::values_as<T>(V->a);
  for (int k = 0; k < nf; ++k) {
    const bool pair = bitvec_is_set(info->is_pivot22, static_cast<unsigned>(k));
    coupling_of_row<T>(info, k, nf, [&](int column, T first, T second) {
      V->ja[start[k]] = column;
      v[start[k]++] = first;
      if (!pair) return;
      V->ja[start[k + 1]] = column;
      v[start[k + 1]++] = second;
    });
    if (pair) ++k;
  }
  NORV_ASSERT_TEXT(nnz <= V->nnz, "Vnnz <= V->nnz");
  return V;
}

/// The rows from nf on with their diagonal.
template <class T>
smat* schur_matrix(const ildlt_info* info, int nf) {
  const smat* const L = info->L;
  const int n = static_cast<int>(L->n);
  const unsigned count = static_cast<unsigned>(L->ia[n] - L->ia[nf] + (n - nf));
  smat* const S = smat_new_nnz(static_cast<unsigned>(n - nf), static_cast<unsigned>(n - nf), count,
                               vlm::norv::type_of(1, info->is_complex));
  T* const s = vlm::values_as<T>(S->a);
  const T* const a = vlm::values_as<T>(L->a);
  int q = 0;
  for (int i = nf; i < n; ++i) {
    S->ia[i - nf] = q;
    S->ja[q] = i - nf;
    s[q++] = vlm::values<T>(info->D)[i];
    for (int p = L->ia[i]; p < L->ia[i + 1]; ++p, ++q) {
      S->ja[q] = L->ja[p] - nf;
      s[q] = a[p];
    }
  }
  S->ia[n - nf] = q;
  return S;
}

/// Takes coupling and Schur rows off L.
template <class T>
void cut_factor(ildlt_info* info, int nf) {
  smat* const L = info->L;
  T* const a = vlm::values_as<T>(L->a);
  int q = 0, begin = 0;
  for (int k = 0; k < static_cast<int>(L->m); ++k) {
    const int end = L->ia[k + 1];
    L->ia[k] = q;
    for (int p = begin; p < end; ++p) {
      if (k >= nf || L->ja[p] >= nf) continue;
      L->ja[q] = L->ja[p];
      a[q++] = a[p];
    }
    begin = end;
  }
  L->ia[L->m] = q;
  smat_realloc(L, static_cast<unsigned>(q));
}

}  // namespace

int precon_ildlt_stpiv_factorize(double drop, double max_fill, double pivot_1x1, double pivot_2x2,
                                 double kappa, ildlt_info* info, int fill_strategy, int drop_style,
                                 int delay_mode, int strategy_2x2, int compens, const vec* target,
                                 int condest_strat, int do_schur, smat* A) {
  NORV_ASSERT(info != 0);
  NORV_ASSERT(A != 0);
  NORV_ASSERT(A->m == A->n);
  if (!A->sym) _norv_print_warn_msg("Use ILDL^T only with really symmetric matrices!");
  IldltOptions options = pivoting_options({.drop = drop,
                                           .max_fill = max_fill,
                                           .pivot_1x1 = pivot_1x1,
                                           .pivot_2x2 = pivot_2x2,
                                           .kappa = kappa,
                                           .fill_strategy = fill_strategy,
                                           .drop_style = drop_style,
                                           .delay_mode = delay_mode,
                                           .strategy_2x2 = strategy_2x2,
                                           .compensation = compens,
                                           .condest = condest_strat},
                                          A->is_complex);
  options.keep_schur = do_schur != 0;
  if (info->perm == nullptr) {
    info->perm = perm_new(static_cast<int>(A->m));
    perm_ident(info->perm);
    info->own_perm = 1;
  }
  NORV_ASSERT(info->perm->n == static_cast<int>(A->m));
  vlm::guarded([&] {
    vlm::by_kind(A->is_complex,
                 [&](auto kind) { factorize<decltype(kind)>(info, options, target, A); });
  });
  return 1;
}

void precon_ildlt_stpiv_fc_split(ildlt_info* info, unsigned int nf, smat** V, smat** S) {
  NORV_ASSERT(info != 0 && info->L != 0);
  NORV_ASSERT(nf <= info->L->m);
  *V = *S = nullptr;
  if (nf == info->L->m) return;
  vlm::by_kind(info->is_complex, [&](auto kind) {
    using T = decltype(kind);
    const int cut = static_cast<int>(nf);
    *V = coupling<T>(info, cut);
    *S = schur_matrix<T>(info, cut);
    cut_factor<T>(info, cut);
  });
}

void precon_ildlt_stpiv_fact_free(ildlt_info* info, int) {
  if (info == nullptr) return;
  vec_release(info->D);
  vec_release(info->E);
  if (info->L != nullptr) smat_free(info->L);
  if (info->is_pivot22 != nullptr) bitvec_release(info->is_pivot22);
  if (info->own_perm) {
    perm_free(info->perm);
    info->perm = nullptr;
  }
  vec_release(info->work1);
  vec_release(info->work2);
  info->D = info->E = info->work1 = info->work2 = nullptr;
  info->L = nullptr;
  info->is_pivot22 = nullptr;
  info->own_perm = 0;
}
