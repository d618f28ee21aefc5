// SPDX-License-Identifier: BSD-3-Clause
/// Second names of the containers' routines.
///
/// The preprocessing of the direct solver knows the routines of smat, perm, permcycle, bitvec,
/// prioq and jdxlist with the prefix NORVMORA_.  Both names are one symbol address: the lists
/// below are the whole table, and each source file ends with NORVMORA_ALIAS applied to the list
/// of the routines that it defines (an alias must stand where its target is defined).
#pragma once

#include "norv.h"

#define NORVMORA_ALIAS(name) \
  extern "C" NORV_API decltype(::name) NORVMORA_##name __attribute__((alias(#name)));

// Tables, which the formatter would stagger.
// clang-format off
#define NORVMORA_PERM(X)                                                                     \
  X(perm_new) X(perm_new_from) X(perm_new_copy_from) X(perm_free) X(perm_set) X(perm_clear)  \
  X(perm_ident) X(perm_range) X(perm_copy) X(perm_copy_invert) X(perm_invert) X(perm_mirror) \
  X(perm_permute) X(perm_copy_condense) X(build_permutation) X(perm_equal) X(perm_is_ident)  \
  X(perm_is_consistent) X(perm_print)

#define NORVMORA_PERMCYCLE(X)                                                                   \
  X(permcycle_new_from) X(permcycle_to_new_perm) X(permcycle_split_2) X(permcycle_map_2_cycles) \
  X(permcycle_free)

#define NORVMORA_BITVEC(X)                                                                      \
  X(bitvec_new) X(bitvec_new_from) X(bitvec_release) X(bitvec_copy) X(bitvec_copy_to)           \
  X(bitvec_clear) X(bitvec_is_zero) X(bitvec_invert) X(bitvec_print) X(bitvec_set)              \
  X(bitvec_unset) X(bitvec_is_set) X(bitvec_first_zero) X(bitvec_add_range) X(bitvec_set_range) \
  X(bitvec_unset_sloppily) X(bitvec_unset_range_sloppily)

#define NORVMORA_PRIOQ(X)                                                                 \
  X(prioq_new) X(pq_new_from_array) X(pq_free) X(pq_get_max_index) X(pq_get_max_priority) \
  X(pq_remove_max) X(pq_inc1) X(pq_dec1) X(pq_heap_sort) X(pq_print) X(prioq_insert)      \
  X(prioq_insert_replace_larger) X(prioq_clear)

#define NORVMORA_JDXLIST(X)                                                                 \
  X(jdxlist_new) X(jdxlist_free) X(jdxlist_add) X(jdxlist_print_as_int) X(jdxlist_contains) \
  X(jdxlist_contains_remove)

#define NORVMORA_SMAT(X)                                                                 \
  X(smat_new) X(smat_new_cpx) X(smat_new_nnz_struct) X(smat_new_nnz) X(smat_new_from)    \
  X(smat_new_from_cpx) X(Lmat_new_nnz) X(smat_new_from_coord) X(smat_ident) X(smat_free) \
  X(smat_realloc) X(smat_to_c_indexing) X(smat_to_fortran_indexing)

#define NORVMORA_SMAT_PRODUCT(X)                                                        \
  X(smat_gemv) X(smat_gemv_trans) X(smat_vecmul) X(smat_vecmul_trans) X(smat_vecaddmul) \
  X(smat_vecaddmul_trans) X(smat_vecmul_cpx) X(smat_vecmul_mkl) X(smat_calc_residual)

#define NORVMORA_SMAT_MATMUL(X)                                               \
  X(smat_matmul) X(smat_matmul3) X(smat_matmul3_ABCt) X(smat_matmul_diag_BBt) \
  X(smat_matmul_diag_BBt_kkt)

#define NORVMORA_SMAT_TRANSFORM(X)                                                              \
  X(smat_copy) X(smat_copy_structure) X(smat_complex_to_real) X(smat_copy_log) X(smat_copy_abs) \
  X(smat_copy_log_to_full) X(smat_copy_trans) X(smat_trans) X(smat_to_full_structure)           \
  X(smat_copy_full_structure) X(smat_to_symmetric_structure) X(smat_symmetrize_structure)       \
  X(smat_sym_trans_pta) X(smat_copy_permute) X(smat_copy_permute_rows) X(smat_permute)          \
  X(smat_permute_columns)

#define NORVMORA_SMAT_UTILS(X)                                                   \
  X(smat_column_sort) X(smat_eliminate_double_entries) X(smat_insert_zero_diags) \
  X(smat_insert_zero_diags_cpx)

#define NORVMORA_SMAT_SCALE(X)                                                   \
  X(smat_add) X(smat_sub) X(smat_scale_scalar) X(smat_scale) X(smat_scale_exp)   \
  X(smat_scale_left) X(smat_add_r2) X(smat_scale_diag) X(smat_scale_diag_matrix) \
  X(smat_invert_diag) X(smat_add_diag) X(smat_add_diag_vec)

#define NORVMORA_SMAT_ACCESS(X)                                                            \
  X(smat_get_ij_elem) X(smat_get_ij_elem_ex) X(smat_has_ij_index) X(smat_get_diag)         \
  X(smat_get_row_nnzs) X(smat_get_row_nnzs_L) X(smat_get_row_nnzs_U) X(smat_col_index_new) \
  X(smat_col_index_free)

#define NORVMORA_SMAT_NORMS(X)                                                               \
  X(smat_frobenius_norm) X(smat_1_norm) X(smat_inf_norm) X(smat_row_sum_norm) X(smat_maxval) \
  X(smat_col_1_norms) X(smat_col_inf_norms) X(smat_row_1_norms) X(smat_row_inf_norms)        \
  X(smat_equal) X(smat_equal_same_sym) X(smat_equal_structure)

#define NORVMORA_SMAT_PRINT(X) \
  X(smat_print) X(smat_print_named) X(smat_print_structure) X(smat_print_raw) X(print_residual)

#define NORVMORA_SMAT_CHECK(X)                                                      \
  X(smat_is_consistent) X(smat_is_mps_consistent) X(smat_check_ia) X(smat_check_ja) \
  X(smat_check_diagonal) X(smat_check_structural_symmetry)

#define NORVMORA_SMAT_SPARSIFY(X)                                                           \
  X(smat_filter) X(smat_sparsify_compens_sym) X(smat_sparsify_thresh_diag) X(smat_simplify) \
  X(smat_simplify_ident)

#define NORVMORA_SMAT_SPLIT(X)                                                             \
  X(smat_fc_split) X(smat_split) X(smat_vert_split) X(smat_horiz_split) X(smat_append_row) \
  X(smat_append_col) X(smat_insert_at)

#define NORVMORA_SMAT_ANALYSIS(X)                                                  \
  X(smat_guess_constraint_size) X(smat_get_num_diag_dominant_rows)                 \
  X(smat_get_num_diag_dominant_cols) X(smat_diagonalize_11) X(smat_profile_matrix) \
  X(smat_get_precious_rows) X(smat_get_inf_norm_scaling) X(smat_get_diag_scaling)

#define NORVMORA_SMAT_BLOCKS(X)                                                        \
  X(smat_get_sym_block_diag) X(smat_inv_sym_block_diag) X(smat_invroot_sym_block_diag) \
  X(smat_block_condense_max)

#define NORVMORA_SMAT_CPX(X) X(smat_2x2_to_cpx) X(smat_cpx_to_2x2)

#define NORVMORA_SBMAT(X) X(smat_find_blocks)
// clang-format on
