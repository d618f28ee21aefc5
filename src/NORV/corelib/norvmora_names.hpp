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

#define NORVMORA_PERM(X)                                                                   \
  X(perm_new)                                                                              \
  X(perm_new_from)                                                                         \
  X(perm_new_copy_from) X(perm_free) X(perm_set) X(perm_clear) X(perm_ident) X(perm_range) \
      X(perm_copy) X(perm_copy_invert) X(perm_invert) X(perm_mirror) X(perm_permute)       \
          X(perm_copy_condense) X(build_permutation) X(perm_equal) X(perm_is_ident)        \
              X(perm_is_consistent) X(perm_print)

#define NORVMORA_PERMCYCLE(X) \
  X(permcycle_new_from)       \
  X(permcycle_to_new_perm) X(permcycle_split_2) X(permcycle_map_2_cycles) X(permcycle_free)

#define NORVMORA_BITVEC(X)                                                                      \
  X(bitvec_new)                                                                                 \
  X(bitvec_new_from)                                                                            \
  X(bitvec_release) X(bitvec_copy) X(bitvec_copy_to) X(bitvec_clear) X(bitvec_is_zero)          \
      X(bitvec_invert) X(bitvec_print) X(bitvec_set) X(bitvec_unset) X(bitvec_is_set)           \
          X(bitvec_first_zero) X(bitvec_add_range) X(bitvec_set_range) X(bitvec_unset_sloppily) \
              X(bitvec_unset_range_sloppily)

#define NORVMORA_PRIOQ(X)                                                                      \
  X(prioq_new)                                                                                 \
  X(pq_new_from_array)                                                                         \
  X(pq_free) X(pq_get_max_index) X(pq_get_max_priority) X(pq_remove_max) X(pq_inc1) X(pq_dec1) \
      X(pq_heap_sort) X(pq_print) X(prioq_insert) X(prioq_insert_replace_larger) X(prioq_clear)

#define NORVMORA_JDXLIST(X) \
  X(jdxlist_new)            \
  X(jdxlist_free)           \
  X(jdxlist_add) X(jdxlist_print_as_int) X(jdxlist_contains) X(jdxlist_contains_remove)
