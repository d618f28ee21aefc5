// SPDX-License-Identifier: BSD-3-Clause
/// What hangs on the record of a hierarchy, and what the three methods do alike.
#pragma once

#include "NORV/multilevel/hierarchy.hpp"
#include "NORV/precons/ildlt_params.hpp"

/// Levels of a record, of one kind of scalar or the other.
struct aml_level : vlm::OfKind<vlm::norv::Hierarchy> {
  smat* A = nullptr;          ///< the caller's
  vlm::Vector<double> modes;  ///< mode_count vectors of mode_n values
  unsigned mode_n = 0;
  int mode_count = 0;
};

namespace vlm::norv {

/// What the methods begin with: so many sweeps of a smoother before and after.
aml_params default_params(Smoothing smoothing, int sweeps);

/// A record without levels.
aml* new_record(int max_levels, int min_size, const aml_params& params);
void free_record(aml* h);

/// x := B b, one cycle.
vec* apply_cycle(aml* h, vec* x, const vec* b);

/// Whether there may be another level below the last one.
template <class T>
bool goes_on(const aml* h, const Hierarchy<T>& levels) {
  return levels.levels()<h->max_levels&& static_cast<int>(levels.coarsest()->m)> h->min_size;
}

/// A setup: build(levels), with levels a Hierarchy of A's kind of scalars, adds them.
template <class Build>
int set_up(aml* h, smat* A, const aml_params& params, const Build& build) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT(A != 0);
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(!A->sym);
  guarded([&] {
    h->levels->forget();
    h->num_levels = 0;
    h->levels->A = A;
    by_kind(A->is_complex, [&](auto kind) {
      using T = decltype(kind);
      auto levels = std::make_unique<Hierarchy<T>>(A, is_symmetric(rows<T>(A)), params);
      build(*levels);
      _norv_print_stat_msg("Factorizing coarse grid matrix ...");
      levels->finish();
      h->num_levels = levels->levels();
      h->levels->of<T>() = std::move(levels);
    });
  });
  return 1;
}

/// Parameters of a method whose cycles always smooth.
aml_params always_smoothing(aml_params params);

/// A line for each level.
void print_summary(const aml* h);

/// How a method's cycles are told.
struct CycleTexts {
  const char *name, *start, *end;
};
/// Cycles until the relative residual is below epsilon.  @return their number
int iterate(aml* h, vec* x, const vec* b, double epsilon, int maxiter, const CycleTexts& texts);

}  // namespace vlm::norv
