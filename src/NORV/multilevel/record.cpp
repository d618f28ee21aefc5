// SPDX-License-Identifier: BSD-3-Clause
/// The record of a hierarchy, see record.hpp.
#include "NORV/multilevel/record.hpp"

#include <cmath>
#include <new>

#include "base/clock.hpp"

namespace vlm::norv {
namespace {

void delete_levels(void* levels) { delete static_cast<aml_level*>(levels); }

double percent(double part, double whole) { return whole > 0 ? 100.0 * part / whole : 0.0; }

}  // namespace

aml_params default_params(Smoothing smoothing, int sweeps) {
  aml_params p{};
  p.sparsify_base = 0.08;
  p.sparsify_fact = 0.5;
  p.omega = 2.0 / 3.0;
  p.strong_pos = p.strong_neg = 0.25;
  p.coarsening_bis_bsize = 5;
  p.smoothing_method = static_cast<int>(smoothing);
  p.pre_smooth = p.pst_smooth = sweeps;
  p.ilut_thresh = 1e-3;
  p.ilut_fill = 30;
  return p;
}

aml* new_record(int max_levels, int min_size, const aml_params& params) {
  auto* const h = allocate_cleared<aml>(1);
  h->max_levels = max_levels;
  h->min_size = min_size;
  h->params = params;
  h->levels = new (std::nothrow) aml_level;
  if (h->levels == nullptr) {
    release_block(h);
    out_of_memory("ERROR during memory allocation!", sizeof(aml_level));
  }
  enter_finalizer(h->levels, delete_levels);
  return h;
}

void free_record(aml* h) {
  if (h == nullptr) return;
  remove_finalizer(h->levels);
  delete_levels(h->levels);
  release_block(h);
}

vec* apply_cycle(aml* h, vec* x, const vec* b) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT_TEXT(h->num_levels > 0, "h->num_levels > 0");
  NORV_ASSERT(b->n == h->levels->A->n);
  NORV_ASSERT(b->is_complex == h->levels->A->is_complex);
  x = destination(x, b->n, b->is_complex);
  guarded([&] {
    by_kind(b->is_complex, [&](auto kind) { h->levels->of<decltype(kind)>()->apply(b, x); });
  });
  return x;
}

aml_params always_smoothing(aml_params params) {
  params.pre_smooth = std::max(params.pre_smooth, 1);
  params.pst_smooth = std::max(params.pst_smooth, 1);
  if (params.smoothing_method != static_cast<int>(Smoothing::ilut))
    params.smoothing_method = static_cast<int>(Smoothing::gauss_seidel);
  return params;
}

void print_summary(const aml* h) {
  _norv_print_stat_msg(" Level Summary:");
  _norv_print_stat_msg(" ==============");
  const smat* const first = h->levels->A;
  by_kind(first->is_complex, [&](auto kind) {
    const auto& levels = *h->levels->of<decltype(kind)>();
    for (int l = 0; l < levels.levels(); ++l) {
      const smat* const A = levels.matrix(l);
      const int m = static_cast<int>(A->m);
      _norv_print_stat_msg(" Level %d: %7d x%7d (%3.0f%%),  nnz:%9d (%6.2f%%).", l, m, m,
                           percent(A->m, first->m), static_cast<int>(A->nnz),
                           percent(A->nnz, first->nnz));
    }
  });
}

int iterate(aml* h, vec* x, const vec* b, double epsilon, int maxiter, const CycleTexts& texts) {
  NORV_ASSERT(h != 0);
  NORV_ASSERT_TEXT(h->num_levels > 0, "h->num_levels > 0");
  const smat* const A = h->levels->A;
  check_system(A, x, b);
  const double start = timer_velmora(), norm_b = vec_euclid_norm(b);
  _norv_print_stat_msg("%s", texts.start);
  if (norm_b == 0.0) {
    vec_clear(x);
    return 0;
  }
  const ScratchVec r = scratch_like(b), e = scratch_like(b);
  const auto residual = [&] {
    smat_calc_residual(r.get(), A, x, b);
    return vec_euclid_norm(r.get()) / norm_b;
  };
  double relative = residual();
  tell_step(nullptr, 0, relative);
  int step = 0;
  while (step < maxiter && !(relative < epsilon)) {
    const double before = relative;
    apply_cycle(h, e.get(), r.get());
    vec_add(x, x, e.get());
    relative = residual();
    tell_step(nullptr, ++step, relative);
    _norv_print_iter_msg("[%s step %3d, rel. res.: %e, rate: %e]", texts.name, step, relative,
                         relative / before);
    if (!std::isfinite(relative)) return maxiter;
  }
  _norv_print_stat_msg("[%s took %f secs.]", texts.end, timer_velmora() - start);
  return step;
}

}  // namespace vlm::norv
