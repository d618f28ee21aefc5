// SPDX-License-Identifier: BSD-3-Clause
/// AML, AMG and SMAGGR: the classes of the multigrid hierarchies.
///
/// A record's parameters enter the hierarchy at its setup; an application is one cycle.
#include <algorithm>
#include <climits>

#include "NORV/multilevel/record.hpp"
#include "NORV/precons/precons.hpp"

namespace {

using namespace vlm::norv;

// data: an aml.
aml* hierarchy_of(const precon* M) { return static_cast<aml*>(M->data); }

/// Places of the parameters.
enum { aml_levels, aml_size, aml_pre, aml_post, aml_smoothing, aml_correction, aml_fill };
enum { aml_sparsify, aml_thresh };
enum { block_size, block_levels, block_min_size, block_pre, block_post };
enum { amg_strong_pos, amg_strong_neg };
enum { smaggr_base, smaggr_fact, smaggr_omega };

vec* cycle_apply(vec* result, precon* M, const vec* x) {
  return apply_cycle(hierarchy_of(M), result, x);
}

void hierarchy_free(precon* M, int) {
  free_record(hierarchy_of(M));
  vlm::release_precon(M);
}

int tell_setup(precon* M, const smat* A, int done) {
  if (done == 0) return 0;
  M->is_complex = A->is_complex;
  M->nnz = vlm::by_kind(A->is_complex, [&](auto kind) {
    const auto entries = hierarchy_of(M)->levels->of<decltype(kind)>()->entries();
    return static_cast<int>(std::min<std::int64_t>(entries, INT_MAX));
  });
  return done;
}

int aml_class_setup(precon* M, smat* A) {
  aml* const h = hierarchy_of(M);
  h->max_levels = M->iparam[aml_levels];
  h->min_size = M->iparam[aml_size];
  aml_params& p = h->params;
  p.pre_smooth = M->iparam[aml_pre];
  p.pst_smooth = M->iparam[aml_post];
  p.smoothing_method = M->iparam[aml_smoothing];
  p.correction_method = M->iparam[aml_correction];
  p.ilut_fill = M->iparam[aml_fill];
  p.sparsify_fact = M->dparam[aml_sparsify];
  p.ilut_thresh = M->dparam[aml_thresh];
  return tell_setup(M, A, aml_setup(h, A));
}

/// What AMG and SMAGGR have in common.
void take_block_parameters(const precon* M) {
  aml* const h = hierarchy_of(M);
  h->max_levels = M->iparam[block_levels];
  h->min_size = M->iparam[block_min_size];
  h->params.pre_smooth = M->iparam[block_pre];
  h->params.pst_smooth = M->iparam[block_post];
}

int amg_class_setup(precon* M, smat* A) {
  take_block_parameters(M);
  aml* const h = hierarchy_of(M);
  h->params.strong_pos = M->dparam[amg_strong_pos];
  h->params.strong_neg = M->dparam[amg_strong_neg];
  return tell_setup(M, A, amg_setup_matrix(h, A, M->iparam[block_size]));
}

int smaggr_class_setup(precon* M, smat* A) {
  take_block_parameters(M);
  aml* const h = hierarchy_of(M);
  h->params.sparsify_base = M->dparam[smaggr_base];
  h->params.sparsify_fact = M->dparam[smaggr_fact];
  h->params.omega = M->dparam[smaggr_omega];
  return tell_setup(M, A, smaggr_setup_matrix(h, A, M->iparam[block_size]));
}

constexpr precon hierarchy_class(const char* name, precon* (*create)(),
                                 int (*setup)(precon*, smat*)) {
  return vlm::class_record(name, {.create = create,
                                  .setup = setup,
                                  .apply = cycle_apply,
                                  .apply_trans = nullptr,
                                  .free = hierarchy_free});
}

/// An instance over a new hierarchy.
precon* new_instance(const precon& record, aml* h) {
  precon* const M = vlm::new_precon(record);
  M->data = h;
  return M;
}

precon* new_block_instance(const precon& record, aml* h, int size) {
  precon* const M = new_instance(record, h);
  M->iparam[block_size] = size;
  M->iparam[block_levels] = h->max_levels;
  M->iparam[block_min_size] = h->min_size;
  M->iparam[block_pre] = h->params.pre_smooth;
  M->iparam[block_post] = h->params.pst_smooth;
  return M;
}

}  // namespace

precon* precon_aml_create(void) {
  precon* const M =
      new_instance(hierarchy_class("AML", precon_aml_create, aml_class_setup), aml_new());
  M->iparam[aml_levels] = 1;
  M->iparam[aml_size] = 1;
  M->iparam[aml_pre] = M->iparam[aml_post] = 1;
  M->iparam[aml_fill] = 30;
  M->dparam[aml_sparsify] = 0.005;
  M->dparam[aml_thresh] = 1e-3;
  return M;
}

precon* precon_aml_create_param(int max_levels, int min_size, int pre_smooth, int pst_smooth) {
  precon* const M = precon_aml_create();
  const aml_params& p = hierarchy_of(M)->params;
  M->iparam[aml_levels] = max_levels;
  M->iparam[aml_size] = min_size;
  M->iparam[aml_pre] = pre_smooth;
  M->iparam[aml_post] = pst_smooth;
  if (max_levels > 1) {
    M->iparam[aml_smoothing] = p.smoothing_method;
    M->iparam[aml_correction] = p.correction_method;
  }
  return M;
}

precon* precon_amg_create(void) {
  aml* const h = amg_new();
  precon* const M =
      new_block_instance(hierarchy_class("AMG", precon_amg_create, amg_class_setup), h, 1);
  M->dparam[amg_strong_pos] = h->params.strong_pos;
  M->dparam[amg_strong_neg] = h->params.strong_neg;
  return M;
}

precon* precon_amg_create_param(double strong, int size, int max_levels, int min_size) {
  precon* const M = precon_amg_create();
  M->dparam[amg_strong_pos] = strong;
  M->dparam[amg_strong_neg] = strong / 2;
  M->iparam[block_size] = size;
  M->iparam[block_levels] = max_levels;
  M->iparam[block_min_size] = min_size;
  return M;
}

precon* precon_smaggr_create(void) {
  aml* const h = smaggr_new();
  precon* const M =
      new_block_instance(hierarchy_class("SMAGGR", precon_smaggr_create, smaggr_class_setup), h, 5);
  M->dparam[smaggr_base] = h->params.sparsify_base;
  M->dparam[smaggr_fact] = h->params.sparsify_fact;
  M->dparam[smaggr_omega] = h->params.omega;
  return M;
}

precon* precon_smaggr_create_param(int size, int max_levels, int min_size) {
  precon* const M = precon_smaggr_create();
  M->iparam[block_size] = size;
  M->iparam[block_levels] = max_levels;
  M->iparam[block_min_size] = min_size;
  return M;
}

void precon_smaggr_set_modes(precon* M, unsigned n, int count, const double* modes) {
  NORV_ASSERT(M != 0);
  smaggr_set_modes(hierarchy_of(M), n, count, modes);
}
