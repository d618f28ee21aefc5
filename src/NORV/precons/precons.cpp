// SPDX-License-Identifier: BSD-3-Clause
/// The frame of the preconditioners: the table of classes, and the calls through which solvers use
/// an instance.
#include "NORV/precons/precons.hpp"

#include <strings.h>

#include <cstring>

#include "norv/classes.h"
#include "norv/ildlt.h"
#include "norv/multilevel.h"

namespace {

/// A class by the name under which it is found.
struct Row {
  char name[32];
  precon* (*create)(void);
};

// The order is that of the search.
constexpr Row preconditioners[] = {
    {"DUMMY", precon_dummy_create},
    {"XFSAI", precon_xfsai_create},
    {"MFSAI", precon_mfsai_create},
    {"AUGBLOCK", precon_augblock_create},
    {"CP_DIRECT", precon_cp_direct_create},
    {"SPAINDIAG", precon_spaindiag_create},
    {"SPAIONE", precon_spaione_create},
    {"ILUT", precon_ilut_create},
    {"ILU0", precon_ilu0_create},
    {"ILUC", precon_iluc_create},
    {"LU", precon_lu_create},
    {"DIAG", precon_diag_create},
    {"SOR", precon_sor_create},
    {"AML", precon_aml_create},
    {"AMG", precon_amg_create},
    {"BLOCKLU", precon_blocklu_create},
    {"BLOCKGS", precon_block_gs_create},
    {"ICHOL", precon_cholesky_create},
    {"PARILDLT", precon_parildlt_create},
    {"ILDLT_CP", precon_ildlt_colpiv_create},
    {"ILDLT_SP", precon_ildlt_stpiv_create},
    {"ILDLT_WS", precon_ildlt_wspiv_create},
    {"ILDLT_BK", precon_ildlt_bk_create},
    {"ILDLT", precon_ldlt_create},
    {"MILDLT", precon_mildlt_create},
    {"SAINV", precon_sainv_create},
    {"BAINV", precon_bainv_create},
    {"SCHILDERS", precon_schilders_create},
    {"SMAGGR", precon_smaggr_create},
    {"MPS_DIAG", precon_mps_diag_create},
};

using Apply = vec* (*)(vec*, precon*, const vec*);

/// result = apply(b), by way of a temporary where result is b, and in a new vector where it is
/// null.
vec* solve(vec* result, precon* M, Apply apply, const vec* b) {
  if (result == nullptr) result = b->is_complex ? vec_new_zero_cpx(b->n) : vec_new_zero(b->n);
  if (result != b) return apply(result, M, b);
  vec* const copy = apply(b->is_complex ? vec_new_zero_cpx(b->n) : vec_new_zero(b->n), M, b);
  vec_copy(result, copy);
  vec_release(copy);
  return result;
}

}  // namespace

namespace vlm {

precon* new_precon(const precon& class_record) {
  precon* const M = allocate<precon>(1);
  std::memcpy(M, &class_record, sizeof *M);
  return M;
}

void release_precon(precon* M) { release_block(M); }

}  // namespace vlm

precon* precon_new_by_name(const char* name) {
  NORV_ASSERT(name != 0);
  for (const Row& row : preconditioners)
    if (strcasecmp(row.name, name) == 0) return row.create();
  return nullptr;
}

int precon_setup(precon* M, smat* A) {
  NORV_ASSERT_TEXT(M != 0, "precon != 0");
  if (M->setup != nullptr) return M->setup(M, A);
  NORV_DEBUG("precons", "No setup necessary.");
  return 1;
}

vec* precon_solve(vec* result, precon* M, const vec* b) {
  NORV_ASSERT(b != 0);
  if (M == nullptr) return vec_copy(result, b);
  return solve(result, M, M->apply, b);
}

vec* precon_solve_trans(vec* result, precon* M, const vec* b) {
  NORV_ASSERT(b != 0);
  if (M == nullptr) return vec_copy(result, b);
  if (M->apply_trans == nullptr) {
    _norv_print_error_msg("Preconditioner doesn't support transposed solution.");
    NORV_ASSERT(M->apply_trans != 0);
  }
  return solve(result, M, M->apply_trans, b);
}

void precon_free(precon* M, int phase) {
  if (M == nullptr) return;
  if (M->free != nullptr)
    M->free(M, phase);
  else
    vlm::release_precon(M);
}
