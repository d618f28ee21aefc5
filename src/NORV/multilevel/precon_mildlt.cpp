// SPDX-License-Identifier: BSD-3-Clause
/// MILDLT: the class of the multilevel incomplete LDL^T.
///
/// A setup for one of the phases 22 and 23 takes the order and the scaling of the levels over from
/// the one before, where they still fit; all else is made anew.
#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/multilevel/mildlt.hpp"
#include "NORV/precons/ildlt_messages.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/precons.hpp"
#include "norv/ildlt.h"

namespace {

using vlm::zcomplex;
using vlm::norv::KeptOrders;
using vlm::norv::Mildlt;
using namespace vlm::norv::params;

/// What hangs on a record.
struct MildltData : vlm::OfKind<Mildlt> {
  KeptOrders orders;            ///< kept between setups
  const vec* target = nullptr;  ///< the caller's
};

MildltData* data_of(precon* M) { return static_cast<MildltData*>(M->data); }

int bounded(std::int64_t x) {
  return static_cast<int>(std::min<std::int64_t>(x, std::numeric_limits<int>::max()));
}

vlm::norv::MildltOptions options_of(const precon* M) {
  using namespace vlm::norv;
  MildltOptions o;
  const double* const d = M->dparam;
  const int* const i = M->iparam;
  o.factor = pivoting_options({.drop = d[mildlt_drop],
                               .max_fill = d[mildlt_max_fill],
                               .pivot_1x1 = d[mildlt_pivot_1x1],
                               .pivot_2x2 = d[mildlt_pivot_2x2],
                               .kappa = d[mildlt_kappa],
                               .fill_strategy = i[mildlt_fill_strategy],
                               .drop_style = i[mildlt_drop_style],
                               .delay_mode = i[mildlt_delay_mode],
                               .strategy_2x2 = i[mildlt_strategy_2x2],
                               .compensation = i[mildlt_compensation],
                               .condest = i[mildlt_condest]},
                              M->is_complex);
  if (d[mildlt_second_drop] > 0) o.factor.second_drop = d[mildlt_second_drop];
  o.schur_drop = d[mildlt_schur_drop];
  if (i[mildlt_preordering] < 0 || i[mildlt_preordering] > 4)
    vlm::bad_options(1, "Unknown reordering `%d'.", i[mildlt_preordering]);
  o.preordering = static_cast<Preordering>(i[mildlt_preordering]);
  o.max_levels = i[mildlt_max_levels];
  o.min_level_size = i[mildlt_min_level_size];
  o.compensation = static_cast<Compensation>(std::clamp(i[mildlt_compensation], 0, 2));
  return o;
}

void print_options(const vlm::norv::MildltOptions& o) {
  using namespace vlm::norv;
  _norv_print_stat_msg("Setting up MILDL^T ML precon ...");
  NORV_DEBUG("precon_mildlt", "  - max. # levels:      %d", o.max_levels);
  NORV_DEBUG("precon_mildlt", "  - min. level size:    %d", o.min_level_size);
  NORV_DEBUG("precon_mildlt", "  - level preordering:  %s",
             preordering_names[static_cast<int>(o.preordering)]);
  NORV_DEBUG("precon_mildlt", "  - max fill per col:   %.1f", o.factor.max_fill);
  NORV_DEBUG("precon_mildlt", "  - drop thresh:        % .2e", o.factor.drop);
  NORV_DEBUG("precon_mildlt", "  - sparsify Schur:     % .2e", o.schur_drop);
  if (o.factor.second_drop >= 0)
    NORV_DEBUG("precon_mildlt", "  - second dropping:    % .2e", o.factor.second_drop);
  NORV_DEBUG("precon_mildlt", "  - kappa:              %.2f", o.factor.kappa);
  NORV_DEBUG("precon_mildlt", "  - L^(-1) cond. est.:  %s",
             condest_strategy_names[static_cast<int>(o.factor.condest)]);
}

template <class T>
void set_up(precon* M, const smat* A, const vlm::norv::MildltOptions& options) {
  MildltData* const data = data_of(M);
  KeptOrders orders = std::exchange(data->orders, {});
  const bool again = (M->phase == 22 || M->phase == 23) && orders.size() == A->m;
  if (!again) orders = {};
  auto& levels = data->of<T>();
  levels = std::make_unique<Mildlt<T>>(A, options, data->target, std::move(orders));
  data->orders = levels->take_orders();
  M->nnz = bounded(levels->totals().entries);
  M->npos = bounded(levels->totals().positive);
  M->nneg = bounded(levels->totals().negative);
  M->nperturbed = bounded(levels->totals().perturbed);
}

int mildlt_setup(precon* M, smat* A) {
  NORV_ASSERT(A->sym);
  M->is_complex = A->is_complex;
  vlm::guarded([&] {
    data_of(M)->forget();
    const vlm::norv::MildltOptions options = options_of(M);
    print_options(options);
    vlm::by_kind(A->is_complex, [&](auto kind) { set_up<decltype(kind)>(M, A, options); });
  });
  return 1;
}

vec* mildlt_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(x->is_complex == M->is_complex);
  vlm::guarded([&] {
    vlm::by_kind(x->is_complex, [&](auto kind) {
      using T = decltype(kind);
      auto& levels = data_of(M)->of<T>();
      NORV_ASSERT(levels != nullptr);
      levels->apply(vlm::values<T>(x), vlm::values<T>(result));
    });
  });
  return result;
}

void delete_data(void* data) { delete static_cast<MildltData*>(data); }

/// Phases that make all anew release the record; 22 and 23 keep it with the order.
void mildlt_free(precon* M, int phase) {
  MildltData* const data = data_of(M);
  data->forget();
  if (phase == 22 || phase == 23) return;
  vlm::remove_finalizer(data);
  delete data;
  vlm::release_precon(M);
}

precon mildlt_class() {
  precon M = vlm::class_record("MILDLT", {.create = precon_mildlt_create,
                                          .setup = mildlt_setup,
                                          .apply = mildlt_apply,
                                          .apply_trans = mildlt_apply,
                                          .free = mildlt_free});
  constexpr double reals[] = {1e-4, 1e-4, 10.0, 0.0, 1e-8, 0.1};
  constexpr int integers[] = {1, 3, 10, 5000, 1, 0, 3, 2, 1};
  std::ranges::copy(reals, M.dparam);
  std::ranges::copy(integers, M.iparam);
  return M;
}

}  // namespace

precon* precon_mildlt_create(void) {
  precon* const M = vlm::new_precon(mildlt_class());
  M->data = new (std::nothrow) MildltData;
  if (M->data == nullptr) vlm::out_of_memory("ERROR during memory allocation!", sizeof(MildltData));
  vlm::enter_finalizer(M->data, delete_data);
  return M;
}

precon* precon_mildlt_create_param(double kappa, double max_fill, double drop, double schur_drop,
                                   double pivot_1x1, double pivot_2x2, int fill_strategy,
                                   int level_preordering, int max_levels, int min_level_size,
                                   int drop_style, int compens, vec* target, int condest_strat,
                                   int delay_mode, int strategy_2x2, int is_complex) {
  precon* const M = precon_mildlt_create();
  double* const d = M->dparam;
  d[mildlt_drop] = drop;
  d[mildlt_schur_drop] = schur_drop;
  d[mildlt_max_fill] = max_fill;
  d[mildlt_kappa] = kappa;
  d[mildlt_pivot_1x1] = pivot_1x1;
  d[mildlt_pivot_2x2] = pivot_2x2;
  int* const i = M->iparam;
  i[mildlt_fill_strategy] = fill_strategy;
  i[mildlt_preordering] = level_preordering;
  i[mildlt_max_levels] = max_levels;
  i[mildlt_min_level_size] = min_level_size;
  i[mildlt_drop_style] = drop_style;
  i[mildlt_compensation] = compens;
  i[mildlt_condest] = condest_strat;
  i[mildlt_delay_mode] = delay_mode;
  i[mildlt_strategy_2x2] = strategy_2x2;
  data_of(M)->target = target;
  M->is_complex = is_complex;
  return M;
}
