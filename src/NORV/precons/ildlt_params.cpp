// SPDX-License-Identifier: BSD-3-Clause
/// Checks of the parameters of the incomplete factorizations, see ildlt_params.hpp.
#include "NORV/precons/ildlt_params.hpp"

namespace vlm::norv {
namespace {

/// Ends with one text for options that exist elsewhere in the family, another for those that don't.
[[noreturn]] void refuse(bool known, int drop_style) {
  if (known) bad_options(1, "Dropping style `%d' not supported.", drop_style);
  bad_options(1, "Unknown dropping style.");
}

PairChoice pair_choice(const PivotingParameters& p, Offers2x2 offers) {
  const int s = p.strategy_2x2;
  if (s == 1) return PairChoice::tridiagonal;
  if (s == 2 && offers == Offers2x2::tridiagonal_column) return PairChoice::column;
  if (s == 3 && offers == Offers2x2::tridiagonal_dominance) return PairChoice::dominance;
  refuse(s >= 0 && s <= 3, p.drop_style);
}

}  // namespace

IldltOptions pivoting_options(const PivotingParameters& p, int is_complex, Offers2x2 offers) {
  NORV_ASSERT_TEXT(p.fill_strategy == NORV_FILL_MAX_AVERAGE,
                   "fill_strategy == NORV_FILL_MAX_AVERAGE");
  if (p.drop_style != NORV_DROP_DIAG && p.drop_style != NORV_DROP_INVERSE)
    refuse(p.drop_style == static_cast<int>(DropStyle::infinity), p.drop_style);
  NORV_ASSERT_TEXT(p.condest >= 0 && p.condest <= 5, "condest_strat >= 0 && condest_strat <= 5");
  NORV_ASSERT_TEXT(is_complex == 0 || p.condest <= 3, "is_complex == 0");
  NORV_ASSERT_TEXT(p.delay_mode >= 0 && p.delay_mode <= 2, "delay_mode >= 0 && delay_mode <= 2");
  IldltOptions o;
  o.drop = p.drop;
  o.max_fill = p.max_fill;
  o.pivot_1x1 = p.pivot_1x1;
  o.pivot_2x2 = p.pivot_2x2;
  o.kappa = p.kappa;
  o.drop_style = static_cast<DropStyle>(p.drop_style);
  o.small_pivot = static_cast<SmallPivot>(p.delay_mode);
  o.pair_choice = pair_choice(p, offers);
  NORV_ASSERT_TEXT(is_complex == 0 || o.pair_choice != PairChoice::dominance, "1 == 0");
  o.condest = static_cast<CondestStrategy>(p.condest);
  o.compensate = p.compensation != 0;
  return o;
}

}  // namespace vlm::norv
