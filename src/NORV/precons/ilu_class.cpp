// SPDX-License-Identifier: BSD-3-Clause
/// The classes of incomplete LU: ILUT, ILU0, ILUC.
#include <algorithm>
#include <limits>
#include <memory>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_messages.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/lu_factor.hpp"
#include "NORV/precons/owned_data.hpp"
#include "base/clock.hpp"
#include "norv/classes.h"

namespace vlm::norv {
namespace {

// Places of the parameters.
enum { ilut_drop = 0, iluc_drop = 0, iluc_fill = 1, iluc_pivot = 2 };
enum { ilut_fill = 0, iluc_style = 0, iluc_fill_strategy = 1, use_matching = 8, use_order = 9 };

template <class T>
struct ScaledFactor {
  LuFactor<T> factor;
  Vector<T> work;  ///< [n]
};

struct IluData : OfKind<ScaledFactor> {
  Transversal transversal;
};

int number(std::int64_t x) {
  return static_cast<int>(std::min<std::int64_t>(x, std::numeric_limits<int>::max()));
}

/// Factorizes what the matching left, in `rows`.
template <class T>
using Factorize = LuFactor<T> (*)(const precon* M, const FullRows<T>& rows);

template <class T, Factorize<T> factorize>
void setup_of_kind(precon* M, const smat* A) {
  IluData* const data = data_of<IluData>(M);
  const int use = M->iparam[use_matching], order = M->iparam[use_order];
  if (use < 0 || use > 2) bad_options(1, "Unknown use of the matching: %d", use);
  if (order < 0 || order > 2) bad_options(1, "Unknown use of an order: %d", order);
  data->transversal =
      choose_transversal<T>(A, static_cast<UseMatching>(use), static_cast<UseOrder>(order));
  auto kept = std::make_unique<ScaledFactor<T>>();
  kept->factor = factorize(M, full_rows<T>(A, data->transversal));
  for (Triangle<T>* each : {&kept->factor.L, &kept->factor.U})
    each->index.shrink(), each->value.shrink();
  kept->work.resize(A->m);
  M->nnz = number(kept->factor.entries());
  M->nperturbed = kept->factor.perturbed;
  M->npos = M->nneg = 0;
  data->of<T>() = std::move(kept);
}

template <Factorize<double> real, Factorize<zcomplex> complex>
int setup(precon* M, smat* A) {
  IluData* const data = data_of<IluData>(M);
  data->forget();
  M->is_complex = A->is_complex;
  guarded([&] {
    if (A->is_complex)
      setup_of_kind<zcomplex, complex>(M, A);
    else
      setup_of_kind<double, real>(M, A);
  });
  return 1;
}

/// With R, C the scalings, P the exchange of rows and Q that of columns, L U stands for P R A C Q.
template <class T>
void apply_of_kind(IluData& data, bool transposed, const T* x, T* y) {
  auto& kept = data.of<T>();
  NORV_ASSERT(kept != nullptr);
  const Transversal& t = data.transversal;
  const int n = kept->factor.n;
  T* const w = kept->work.data();
  const auto scaled = [](const T& value, const Vector<double>& scale, int at) {
    return scale.empty() ? value : value * scale[at];
  };
  const auto row_at = [&](int i) { return t.empty() ? i : t.row[i]; };
  const auto column_at = [&](int i) { return t.column.empty() ? i : t.column[i]; };
  for (int i = 0; i < n; ++i) {
    const int from = transposed ? column_at(i) : row_at(i);
    w[i] = scaled(x[from], transposed ? t.column_scale : t.row_scale, from);
  }
  transposed ? solve_trans(kept->factor, w) : solve(kept->factor, w);
  for (int i = 0; i < n; ++i) {
    const int to = transposed ? row_at(i) : column_at(i);
    y[to] = scaled(w[i], transposed ? t.row_scale : t.column_scale, to);
  }
}

template <bool transposed>
vec* apply(vec* result, precon* M, const vec* x) {
  IluData& data = *data_of<IluData>(M);
  NORV_ASSERT(x->is_complex == M->is_complex);
  by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    NORV_ASSERT(data.of<T>() != nullptr);
    NORV_ASSERT(x->n == data.of<T>()->work.size());
    apply_of_kind<T>(data, transposed, values<T>(x), values<T>(result));
  });
  return result;
}

template <class T>
LuFactor<T> ilut(const precon* M, const FullRows<T>& rows) {
  const double drop = M->dparam[ilut_drop];
  const int fill = M->iparam[ilut_fill];
  if (!(drop >= 0) || fill < 0)
    bad_options(1, "ILUT: drop %e and fill %d must not be negative.", drop, fill);
  _norv_print_stat_msg("[ILUT init (%e, %d).]", drop, fill);
  const double start = timer_velmora();
  LuFactor<T> factor = factorize_ilut(rows, drop, fill);
  _norv_print_stat_msg("[ILUT finished.  nnz: %d  (mat: %d).]", number(factor.entries()),
                       number(static_cast<std::int64_t>(rows.column.size())));
  _norv_print_stat_msg("ILUT took %f secs.", timer_velmora() - start);
  return factor;
}

template <class T>
LuFactor<T> ilu0(const precon*, const FullRows<T>& rows) {
  _norv_print_stat_msg("Setting up ILU(0)...");
  const double start = timer_velmora();
  LuFactor<T> factor = factorize_ilu0(rows);
  _norv_print_stat_msg("ILU(0) took %f secs.", timer_velmora() - start);
  return factor;
}

void iluc_statistics(int perturbed, std::int64_t L, std::int64_t U, std::int64_t matrix,
                     double norm_L, double norm_U, int first, std::int64_t dropped,
                     std::int64_t seen) {
  const auto percent = [](std::int64_t part, std::int64_t whole) {
    return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
  };
  _norv_print_stat_msg("[ILUC finished.  L: %d,  U: %d,  mat: %d  (%6.2f%%).]", number(L),
                       number(U), number(matrix), percent(L + U, matrix));
  _norv_print_stat_msg("Max norm L:                  %8.2e", norm_L);
  _norv_print_stat_msg("Max norm U:                  %8.2e", norm_U);
  _norv_print_stat_msg("Perturbed entries:           %8d  (first: %d)", perturbed, first);
  _norv_print_stat_msg("Number of dropped entries:   %8d / %8d (%6.2f%%)", number(dropped),
                       number(seen), percent(dropped, seen));
}

template <class T>
LuFactor<T> iluc(const precon* M, const FullRows<T>& rows) {
  const double drop = M->dparam[iluc_drop], fill = M->dparam[iluc_fill],
               pivot = M->dparam[iluc_pivot];
  const int style = M->iparam[iluc_style], strategy = M->iparam[iluc_fill_strategy];
  if (style != 0 && style != 1) bad_options(1, "Dropping style not supported.");
  if (strategy != 0 && strategy != 1) bad_options(1, "Max fill strategy %d unknown.", strategy);
  if (!(drop >= 0) || !(pivot >= 0))
    bad_options(1, "ILUC: drop %e and pivot %e must not be negative.", drop, pivot);
  _norv_print_stat_msg("Setting up ILUC (%s dropping, %.2e, %.1f, %.1e) ...",
                       drop_style_names[style], drop, fill, pivot);
  int most = -1;
  if (fill > 0) {
    const double average = rows.n > 0 ? static_cast<double>(rows.column.size()) / rows.n : 0.0;
    const double limit = strategy == 1 ? std::ceil(fill * average) : fill;
    most = static_cast<int>(std::min<double>(limit, rows.n));
    if (strategy == 1)
      _norv_print_stat_msg("  - Determine max_fill on avg. row length (max: %d).", most);
  }
  LuFactor<T> factor = factorize_iluc(rows, {drop, most, pivot, style == 1});
  iluc_statistics(factor.perturbed, factor.L.entries(), factor.U.entries() + factor.n,
                  static_cast<std::int64_t>(rows.column.size()), factor.norm_L, factor.norm_U,
                  factor.first_perturbed, factor.dropped, factor.seen);
  return factor;
}

int ilut_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(!A->sym);
  return setup<ilut<double>, ilut<zcomplex>>(M, A);
}

int ilu0_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(!A->sym);
  return setup<ilu0<double>, ilu0<zcomplex>>(M, A);
}

int iluc_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  if (A->sym) {
    _norv_print_error_msg("ILUC needs full matrix structure!");
    return 0;
  }
  return setup<iluc<double>, iluc<zcomplex>>(M, A);
}

constexpr precon class_of(const char* name, precon* (*create)(), int (*setup)(precon*, smat*)) {
  return class_record(name, {.create = create,
                             .setup = setup,
                             .apply = apply<false>,
                             .apply_trans = apply<true>,
                             .free = free_with_data<IluData>});
}

}  // namespace
}  // namespace vlm::norv

using namespace vlm::norv;

precon* precon_ilut_create(void) { return precon_ilut_create_param(1e-4, 30); }

precon* precon_ilut_create_param(double drop, int fill) {
  precon M = class_of("ILUT", precon_ilut_create, ilut_setup);
  M.dparam[ilut_drop] = drop;
  M.iparam[ilut_fill] = fill;
  return new_with_data<IluData>(M);
}

precon* precon_ilu0_create(void) {
  return new_with_data<IluData>(class_of("ILU0", precon_ilu0_create, ilu0_setup));
}

precon* precon_iluc_create(void) { return precon_iluc_create_param(0.005, 10.0, 1e-8, 1); }

precon* precon_iluc_create_param(double drop, double fill, double pivot, int drop_style) {
  precon M = class_of("ILUC", precon_iluc_create, iluc_setup);
  M.dparam[iluc_drop] = drop;
  M.dparam[iluc_fill] = fill;
  M.dparam[iluc_pivot] = pivot;
  M.iparam[iluc_style] = drop_style;
  M.iparam[iluc_fill_strategy] = 1;
  return new_with_data<IluData>(M);
}
