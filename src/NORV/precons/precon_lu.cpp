// SPDX-License-Identifier: BSD-3-Clause
/// The matrix itself as preconditioner, by the direct solver.
#include <algorithm>
#include <climits>

#include "NORV/precons/precons.hpp"
#include "norv/direct.h"

namespace {

// data: a direct_factorization.

direct_factorization* factor_of(const precon* M) {
  return static_cast<direct_factorization*>(M->data);
}

vec* lu_apply(vec* result, precon* M, const vec* x) {
  direct_solve(factor_of(M), result, x);
  return result;
}

vec* lu_apply_trans(vec* result, precon* M, const vec* x) {
  norv_velmora_solve_trans(factor_of(M), result, x);
  return result;
}

int lu_setup(precon* M, smat* A) {
  direct_free(factor_of(M));
  M->data = nullptr;
  M->data = direct_factorize(A);
  M->nnz = static_cast<int>(std::min<double>(direct_factor_entries(factor_of(M)), INT_MAX));
  M->npos = A->npos;
  M->nneg = A->nneg;
  M->nperturbed = A->nperturbed;
  M->is_complex = A->is_complex;
  return M->data != nullptr;
}

void lu_free(precon* M, int) {
  direct_free(factor_of(M));
  vlm::release_precon(M);
}

constexpr precon lu_class = vlm::class_record("LU", {.create = precon_lu_create,
                                                     .setup = lu_setup,
                                                     .apply = lu_apply,
                                                     .apply_trans = lu_apply_trans,
                                                     .free = lu_free});

}  // namespace

precon* precon_lu_create(void) { return vlm::new_precon(lu_class); }
