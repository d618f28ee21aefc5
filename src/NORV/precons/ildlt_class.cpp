// SPDX-License-Identifier: BSD-3-Clause
/// The classes of the incomplete LDL^T family: ILDLT_SP, ILDLT_CP, ILDLT_WS with pivoting, ILDLT_BK
/// with 2x2 pivots and no delays, PARILDLT by parts, ILDLT_PM, ILDLT, ICHOL with neither.  They
/// differ in the options of one factorization and in what they tell.
#include <algorithm>
#include <limits>
#include <memory>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_messages.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/parildlt.hpp"
#include "NORV/precons/precons.hpp"
#include "NORV/precons/preorder.hpp"
#include "NORV/precons/stand_alone.hpp"
#include "base/thread_guard.hpp"
#include "norv/ildlt.h"

namespace vlm::norv {
namespace {

using namespace params;

/// How a member differs from the others.
struct Spec {
  IldltMember member;
  IldltOptions (*options)(const precon* M);
  bool only_symmetric;  ///< an unsymmetric matrix fails the setup instead of a warning
};

PivotingParameters pivoting_parameters(const precon* M) {
  const double* const d = M->dparam;
  const int* const i = M->iparam;
  return {.drop = d[pivoting_drop],
          .max_fill = d[pivoting_max_fill],
          .pivot_1x1 = d[pivoting_pivot_1x1],
          .pivot_2x2 = d[pivoting_pivot_2x2],
          .kappa = d[pivoting_kappa],
          .fill_strategy = i[pivoting_fill_strategy],
          .drop_style = i[pivoting_drop_style],
          .delay_mode = i[pivoting_delay_mode],
          .strategy_2x2 = i[pivoting_strategy_2x2],
          .compensation = i[pivoting_compensation],
          .condest = i[pivoting_condest]};
}

IldltOptions stpiv_options(const precon* M) {
  return pivoting_options(pivoting_parameters(M), M->is_complex);
}

IldltOptions colpiv_options(const precon* M) {
  IldltOptions o =
      pivoting_options(pivoting_parameters(M), M->is_complex, Offers2x2::tridiagonal_column);
  o.estimator = Estimator::fixed;
  o.delay_small_eigenvalues = false;
  return o;
}

IldltOptions wspiv_options(const precon* M) {
  IldltOptions o = stpiv_options(M);
  o.postponing = Postponing::skip;
  o.estimator = Estimator::none;
  o.delay_small_eigenvalues = false;
  return o;
}

IldltOptions parildlt_options(const precon* M) {
  IldltOptions o = stpiv_options(M);
  o.pair_choice = PairChoice::none;
  return o;
}

/// Options of the members that neither delay nor estimate.
IldltOptions plain_options(double drop, int drop_style) {
  if (drop_style != NORV_DROP_DIAG && drop_style != NORV_DROP_INVERSE)
    bad_options(1, "Dropping style not supported.");
  IldltOptions o;
  o.drop = drop;
  o.max_fill = 0;
  o.drop_style = static_cast<DropStyle>(drop_style);
  o.small_pivot = SmallPivot::ignore;
  o.pair_choice = PairChoice::none;
  o.postponing = Postponing::never;
  o.estimator = Estimator::none;
  return o;
}

/// Fill limit by the average row or in entries.
void set_fill(IldltOptions& o, int strategy, double max_fill) {
  if (strategy != 0 && strategy != NORV_FILL_MAX_AVERAGE)
    bad_options(1, "Max fill strategy %d unknown.", strategy);
  o.max_fill = max_fill;
  if (strategy == 0 && max_fill > 0)
    o.most_entries = static_cast<int>(std::min(max_fill, double{std::numeric_limits<int>::max()}));
}

IldltOptions bk_options(const precon* M) {
  IldltOptions o = plain_options(M->dparam[bk_drop], M->iparam[bk_drop_style]);
  set_fill(o, M->iparam[bk_fill_strategy], M->dparam[bk_max_fill]);
  o.small_pivot = SmallPivot::perturb;
  o.pivot_1x1 = M->dparam[bk_pivot];
  const int strategy = M->iparam[bk_strategy_2x2];
  if (strategy != 0 && strategy != 2) bad_options(1, "Unknown 2x2 pivoting strategy: %d", strategy);
  constexpr double golden = 0.6180339887498949;  // of tridiagonal pivoting: |d| < golden |e|^2
  o.pivot_2x2 = golden;
  if (strategy == 2) o.pair_choice = PairChoice::tridiagonal;
  return o;
}

IldltOptions pm_options(const precon* M) {
  IldltOptions o = plain_options(M->dparam[pm_drop], M->iparam[pm_drop_style]);
  set_fill(o, M->iparam[pm_fill_strategy], M->dparam[pm_max_fill]);
  return o;
}

IldltOptions ldlt_options(const precon* M) { return plain_options(M->dparam[0], M->iparam[0]); }

IldltOptions cholesky_options(const precon* M) {
  IldltOptions o = plain_options(M->dparam[0], M->iparam[0]);
  o.positive = true;
  return o;
}

constexpr Spec stpiv{{"STPIV", "ILDLT_STPIV", "precon_ildlt_stpiv"}, stpiv_options, false};
constexpr Spec colpiv{{"COLPIV", "ILDLT_COLPIV", "precon_ildlt_colpiv"}, colpiv_options, false};
constexpr Spec wspiv{{"WSPIV", "ILDLT_WSPIV", "precon_ildlt_wspiv"}, wspiv_options, false};
constexpr Spec bunch_kaufman{
    {"BK", "ILDLT_BK", "precon_ildlt_bk", MemberKind::bunch_kaufman}, bk_options, false};
constexpr Spec permuted{
    {"PM", "ILDLT_PM", "precon_ildltpm", MemberKind::permuted}, pm_options, false};
constexpr Spec plain{{"LDLT", "ILDLT", "precon_ldlt", MemberKind::plain}, ldlt_options, false};
constexpr Spec cholesky{
    {"ICHOL", "ICHOL", "precon_cholesky", MemberKind::cholesky}, cholesky_options, true};

constexpr Spec parallel{
    {"PARILDLT", "PARILDLT", "precon_parildlt", MemberKind::parallel}, parildlt_options, false};

/// The order under which a member factorizes; empty: as the matrix stands.
template <class T>
Vector<int> preordering(const precon* M, const Spec& spec, const smat* A) {
  if (spec.member.kind != MemberKind::permuted || M->iparam[pm_preordering] == 0) return {};
  const int style = M->iparam[pm_preordering];
  if (style < 0 || style > 4) bad_options(1, "Unknown reordering `%d'.", style);
  return order_level(permuted_upper<T>(A, nullptr, nullptr), static_cast<Preordering>(style)).place;
}

/// Rows of which ILDLT_BK drops nothing, since their pivots come out small: those with hardly a
/// diagonal and few entries before it.
Vector<char> precious_rows(const smat* A) {
  constexpr double tiny = 1e-8;
  constexpr int few = 5;
  bitvec* const marker = smat_get_precious_rows(A, tiny, few);
  if (marker == nullptr) {
    _norv_print_error_msg("Precious marker is NULL.");
    return {};
  }
  Vector<char> rows(A->m);
  for (unsigned i = 0; i < A->m; ++i) rows[i] = bitvec_is_set(marker, i) != 0;
  bitvec_release(marker);
  return rows;
}

template <class T>
Vector<T> ordered_target(const vec* target, const smat* A) {
  if (target == nullptr) return Vector<T>(A->m, T(1));
  NORV_ASSERT(target->n == A->m);
  Vector<T> t(A->m);
  by_kind(target->is_complex, [&](auto kind) {
    using V = decltype(kind);
    for (unsigned i = 0; i < A->m; ++i)
      if constexpr (is_complex_v<T> || !is_complex_v<V>) t[i] = T(values<V>(target)[i]);
  });
  return t;
}

template <class T>
void factorize(precon* M, const Spec& spec, const smat* A) {
  IldltOptions options = spec.options(M);
  const Vector<char> precious =
      spec.member.kind == MemberKind::bunch_kaufman ? precious_rows(A) : Vector<char>();
  if (!precious.empty()) options.precious = precious.data();
  const Vector<int> order = preordering<T>(M, spec, A);
  UpperRows<T> rows = permuted_upper<T>(A, order.empty() ? nullptr : order.data(), nullptr);
  const std::int64_t stored = rows.entries();
  const Vector<T> target =
      options.compensate ? ordered_target<T>(stand_alone(M)->target, A) : Vector<T>();
  ildlt_setup_messages(spec.member, options, fill_limit(options.max_fill, rows));
  IldltResult<T> result = factorize_ildlt(std::move(rows), options, target.data());
  ildlt_statistics_messages(spec.member, result, stored);
  if (!order.empty()) {
    Vector<int> place(order.size());
    for (std::size_t i = 0; i < place.size(); ++i) place[i] = result.place[order[i]];
    result.place = std::move(place);
  }
  keep_factor(M, std::move(result));
}

/// The member that factorizes by parts, with the threads of the process.
template <class T>
void factorize_parts(precon* M, const smat* A) {
  const IldltOptions options = parildlt_options(M);
  const UpperRows<T> rows = permuted_upper<T>(A, nullptr, nullptr);
  const Vector<T> target =
      options.compensate ? ordered_target<T>(stand_alone(M)->target, A) : Vector<T>();
  ildlt_setup_messages(parallel.member, options, fill_limit(options.max_fill, rows));
  const PartedOrder order = order_by_parts(rows, M->iparam[parildlt_parts]);
  IldltResult<T> result = factorize_by_parts(rows, order, options, target.data(), count_threads());
  ildlt_statistics_messages(parallel.member, result, rows.entries());
  keep_factor(M, std::move(result));
}

int parildlt_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  if (!A->sym) _norv_print_warn_msg("Use ILDL^T only with really symmetric matrices!");
  if (M->iparam[parildlt_preordering] != metis_partinf2 || M->iparam[parildlt_parts] < 1) {
    _norv_print_error_msg("Need a `metis_partinf2' reordering and partitioning!");
    return 0;
  }
  M->is_complex = A->is_complex;
  stand_alone(M)->forget();
  guarded(
      [&] { by_kind(A->is_complex, [&](auto kind) { factorize_parts<decltype(kind)>(M, A); }); });
  return 1;
}

template <const Spec& spec>
int family_setup(precon* M, smat* A) {
  NORV_ASSERT(A->m == A->n);
  if (!A->sym) {
    if (spec.only_symmetric) {
      _norv_print_error_msg("Use Cholesky only with really symmetric matrices!");
      return 0;
    }
    _norv_print_warn_msg("Use ILDL^T only with really symmetric matrices!");
  }
  M->is_complex = A->is_complex;
  stand_alone(M)->forget();
  guarded(
      [&] { by_kind(A->is_complex, [&](auto kind) { factorize<decltype(kind)>(M, spec, A); }); });
  return 1;
}

constexpr precon class_record(const char* name, precon* (*create)(), int (*setup)(precon*, smat*)) {
  return vlm::class_record(name, {.create = create,
                                  .setup = setup,
                                  .apply = stand_alone_apply,
                                  .apply_trans = stand_alone_apply,
                                  .free = stand_alone_free});
}

/// The parameters that the pivoting members start with.
precon pivoting_class(precon M, int strategy_2x2) {
  M.dparam[pivoting_drop] = 1e-3;
  M.dparam[pivoting_pivot_1x1] = 1e-8;
  M.dparam[pivoting_pivot_2x2] = 0.1;
  M.dparam[pivoting_max_fill] = 10.0;
  M.iparam[pivoting_fill_strategy] = NORV_FILL_MAX_AVERAGE;
  M.iparam[pivoting_drop_style] = NORV_DROP_INVERSE;
  M.iparam[pivoting_delay_mode] = NORV_DELAY_SCHUR;
  M.iparam[pivoting_strategy_2x2] = strategy_2x2;
  M.iparam[pivoting_condest] = static_cast<int>(CondestStrategy::orlund_1);
  return M;
}

}  // namespace
}  // namespace vlm::norv

using namespace vlm::norv;
using namespace vlm::norv::params;

precon* precon_ildlt_stpiv_create(void) {
  return new_stand_alone(pivoting_class(
      class_record("ILDLT_STPIV", precon_ildlt_stpiv_create, family_setup<stpiv>), 1));
}

precon* precon_ildlt_colpiv_create(void) {
  return new_stand_alone(pivoting_class(
      class_record("ILDLT_COLPIV", precon_ildlt_colpiv_create, family_setup<colpiv>), 2));
}

precon* precon_ildlt_wspiv_create(void) {
  return new_stand_alone(pivoting_class(
      class_record("ILDLT_WSPIV", precon_ildlt_wspiv_create, family_setup<wspiv>), 1));
}

precon* precon_parildlt_create(void) {
  precon M = pivoting_class(class_record("PARILDLT", precon_parildlt_create, parildlt_setup), 1);
  M.iparam[parildlt_preordering] = metis_partinf2;
  M.iparam[parildlt_parts] = 4;
  return new_stand_alone(M);
}

precon* precon_ildlt_bk_create(void) {
  precon M = class_record("ILDLT_BK", precon_ildlt_bk_create, family_setup<bunch_kaufman>);
  M.dparam[bk_drop] = 1e-4;
  M.dparam[bk_pivot] = 1e-4;
  M.dparam[bk_max_fill] = 10.0;
  M.iparam[bk_fill_strategy] = NORV_FILL_MAX_AVERAGE;
  M.iparam[bk_strategy_2x2] = 2;
  return new_stand_alone(M);
}

precon* precon_ildltpm_create(void) {
  precon M = class_record("ILDLT_PM", precon_ildltpm_create, family_setup<permuted>);
  M.dparam[pm_drop] = 0.0015;
  M.dparam[pm_max_fill] = 10.0;
  M.iparam[pm_fill_strategy] = NORV_FILL_MAX_AVERAGE;
  return new_stand_alone(M);
}

precon* precon_ldlt_create(void) {
  precon M = class_record("ILDLT", precon_ldlt_create, family_setup<plain>);
  M.dparam[0] = 0.0015;
  return new_stand_alone(M);
}

precon* precon_cholesky_create(void) {
  precon M = class_record("CHOLESKY", precon_cholesky_create, family_setup<cholesky>);
  M.dparam[0] = 0.0015;
  return new_stand_alone(M);
}

precon* precon_ildlt_stpiv_create_param(double drop, double max_fill, double pivot_1x1,
                                        double pivot_2x2, double kappa, int fill_strategy,
                                        int drop_style, int delay_mode, int strategy_2x2,
                                        int compens, vec* target, int condest_strat) {
  precon* const M = precon_ildlt_stpiv_create();
  M->dparam[pivoting_drop] = drop;
  M->dparam[pivoting_pivot_1x1] = pivot_1x1;
  M->dparam[pivoting_pivot_2x2] = pivot_2x2;
  M->dparam[pivoting_kappa] = kappa;
  M->dparam[pivoting_max_fill] = max_fill;
  M->iparam[pivoting_fill_strategy] = fill_strategy;
  M->iparam[pivoting_drop_style] = drop_style;
  M->iparam[pivoting_delay_mode] = delay_mode;
  M->iparam[pivoting_strategy_2x2] = strategy_2x2;
  M->iparam[pivoting_compensation] = compens;
  M->iparam[pivoting_target] = target != nullptr;
  M->iparam[pivoting_condest] = condest_strat;
  stand_alone(M)->target = target;
  return M;
}

precon* precon_ildlt_bk_create_param(double fill, double drop, double pivot, int fill_strategy,
                                     int drop_style, int strategy_2x2) {
  precon* const M = precon_ildlt_bk_create();
  M->dparam[bk_drop] = drop;
  M->dparam[bk_pivot] = pivot;
  M->dparam[bk_max_fill] = fill;
  M->iparam[bk_fill_strategy] = fill_strategy;
  M->iparam[bk_strategy_2x2] = strategy_2x2;
  M->iparam[bk_drop_style] = drop_style;
  return M;
}

precon* precon_ildltpm_create_param(double drop, double fill, int fill_strategy, int drop_style,
                                    int preordering) {
  precon* const M = precon_ildltpm_create();
  M->dparam[pm_drop] = drop;
  M->dparam[pm_max_fill] = fill;
  M->iparam[pm_fill_strategy] = fill_strategy;
  M->iparam[pm_drop_style] = drop_style;
  M->iparam[pm_preordering] = preordering;
  return M;
}
