// SPDX-License-Identifier: BSD-3-Clause
/// Places of the parameters in the records of the incomplete factorizations, their checks, and how
/// an exception becomes a fault.
#pragma once

#include <new>
#include <stdexcept>

#include "NORV/precons/ildlt.hpp"
#include "norv/ildlt.h"

namespace vlm {

/// Runs f; memory that ran out in it, and lists too long for 32-bit positions, become a fault.
template <class F>
void guarded(F&& f) {
  std::size_t bytes = 0;
  try {
    f();
    return;
  } catch (const AllocationFailure& failure) {
    bytes = failure.bytes;
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
  }
  out_of_memory("ERROR during memory allocation!", bytes);
}

}  // namespace vlm

namespace vlm::norv {

namespace params {
/// dparam of the pivoting members, and iparam.
enum { pivoting_drop, pivoting_pivot_1x1, pivoting_pivot_2x2, pivoting_kappa, pivoting_max_fill };
enum {
  pivoting_fill_strategy,
  pivoting_drop_style,
  pivoting_delay_mode,
  pivoting_strategy_2x2,
  pivoting_compensation,
  pivoting_target,  ///< 1 where the record holds a target
  pivoting_condest
};
/// Of MILDLT.
enum {
  mildlt_drop,
  mildlt_schur_drop,
  mildlt_max_fill,
  mildlt_kappa,
  mildlt_pivot_1x1,
  mildlt_pivot_2x2,
  mildlt_second_drop  ///< 0: none
};
enum {
  mildlt_fill_strategy,
  mildlt_preordering,
  mildlt_max_levels,
  mildlt_min_level_size,
  mildlt_drop_style,
  mildlt_compensation,
  mildlt_condest,
  mildlt_delay_mode,
  mildlt_strategy_2x2
};
/// Of the members without delays: bk_fill_strategy and bk_strategy_2x2 for ILDLT_BK alone.
enum { bk_drop, bk_pivot, bk_max_fill };
enum { bk_fill_strategy, bk_strategy_2x2, bk_drop_style };
enum { pm_drop, pm_max_fill };
enum { pm_fill_strategy, pm_drop_style, pm_preordering };
}  // namespace params

/// Options as they come from a caller, unchecked.
struct PivotingParameters {
  double drop, max_fill, pivot_1x1, pivot_2x2, kappa;
  int fill_strategy, drop_style, delay_mode, strategy_2x2, compensation, condest;
};

/// Checks them; what is no option is a fault.  The member decides what it offers for 2x2 pivots.
enum class Offers2x2 { tridiagonal_dominance, tridiagonal_column };
IldltOptions pivoting_options(const PivotingParameters& p, int is_complex,
                              Offers2x2 offers = Offers2x2::tridiagonal_dominance);

}  // namespace vlm::norv
