// SPDX-License-Identifier: BSD-3-Clause
/// The identity, and the inverse of the diagonal.
#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/precons.hpp"

namespace {

vec* copy_apply(vec* result, precon*, const vec* x) { return vec_copy(result, x); }

void free_record(precon* M, int) { vlm::release_precon(M); }

// data: the reciprocals of the diagonal, a vec.

vec* diag_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(M->data != 0);
  return vec_copy_scale_vec(result, x, static_cast<const vec*>(M->data));
}

void diag_forget(precon* M) {
  vec_release(static_cast<vec*>(M->data));
  M->data = nullptr;
}

int diag_setup(precon* M, smat* A) {
  NORV_ASSERT(A != 0);
  NORV_DEBUG("precon_diag", "diag preconditioner setup.");
  diag_forget(M);
  vec* const d = smat_get_diag(nullptr, A);
  M->data = d;
  M->is_complex = A->is_complex;
  M->npos = M->nneg = M->nperturbed = 0;
  M->nnz = static_cast<int>(d->n);
  vlm::by_kind(d->is_complex, [&](auto kind) {
    using T = decltype(kind);
    T* const v = vlm::values<T>(d);
    for (unsigned i = 0; i < d->n; ++i) {
      if (v[i] == T{}) {
        v[i] = T{1};
        ++M->nperturbed;
      }
      if constexpr (std::is_same_v<T, double>) ++(v[i] < 0 ? M->nneg : M->npos);
      v[i] = T{1} / v[i];
    }
  });
  return 1;
}

void diag_free(precon* M, int) {
  diag_forget(M);
  vlm::release_precon(M);
}

precon dummy_class() {
  precon M = vlm::class_record("DUMMY", {.create = precon_dummy_create,
                                         .setup = nullptr,
                                         .apply = copy_apply,
                                         .apply_trans = copy_apply,
                                         .free = free_record});
  M.dparam[0] = 1e-3;
  M.iparam[0] = 20;
  return M;
}

constexpr precon diag_class = vlm::class_record("DIAG", {.create = precon_diag_create,
                                                         .setup = diag_setup,
                                                         .apply = diag_apply,
                                                         .apply_trans = diag_apply,
                                                         .free = diag_free});

}  // namespace

precon* precon_dummy_create(void) { return vlm::new_precon(dummy_class()); }

precon* precon_diag_create(void) {
  NORV_DEBUG("precon_diag", "diag preconditioner created..");
  return vlm::new_precon(diag_class);
}
