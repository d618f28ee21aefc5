// SPDX-License-Identifier: BSD-3-Clause
/// The records behind the handle `pt`: control fields, timers, factor table.
///
/// The driver (velmora_c) allocates them and is the only writer of what outlives a call;
/// stages and routine families read them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/input_matrix.hpp"

namespace vlm {

/// Mark of an array or layout offset that has not been set.
inline constexpr int unset_mark = 777777;

/// Internal status values that select messages and error classes.
enum Status : int {
  status_ok = 0,
  status_pivot = -1,          ///< a pivot step failed
  status_work = -2,           ///< staging buffer too small
  status_contraction = -112,  ///< refinement does not contract
  status_steps = -111,        ///< refinement exceeds its step limit
  status_structure = -180,    ///< inconsistent row lists
  status_overflow = -182,     ///< factor does not fit 32-bit positions
  status_unsupported = -190,  ///< matrix type without kernels
  status_type_change = -191,  ///< matrix type that does not fit the analysis
  status_no_matching = -192,  ///< matching mode that does not exist for the matrix type
};

/// Wall-clock seconds of the phases, in the order of the report.
struct Timers {
  double fulladj = 0, reorder = 0, symbfct = 0, parlist = 0, a_to_lu = 0;
  double numfct = 0, solve = 0, cgs = 0, malloc = 0, total = 0;
};

/// Which timers have a value to report in this call.
struct StageFlags {
  bool fulladj = false, reorder = false, symbfct = false, parlist = false, a_to_lu = false;
  bool numfct = false, solve = false, cgs = false, malloc = false, total = false;
};

/// Tolerances and clock marks.
struct Clocks {
  Timers timer;
  double cgs_tolerance = 1e-12;  ///< stabilised solves: 10^-L of iparm(4)
  double norm_a = 0;             ///< stays 0 unless a caller fills it
  double start = 0;              ///< entry of the current call
  double stage_end = 0;          ///< end of the last stage
};

/// Control record, `BASIC`: pt(2).
struct Control {
  // sizes of the matrix
  int neqns = 0;
  int nnz = 0;    ///< entries of the matrix in use
  int nvals = 1;  ///< doubles per value
  // what the caller asked for
  int maxfct = 0;    ///< stored maxfct
  int nrecords = 0;  ///< length of the factor table; maxfct may be lowered below it
  int mnum_cur = 2147483647;
  int mtype = 0;
  int nrhs = 0;
  int phase = 0;
  int msg = 0;          ///< 0 or 1
  int unit = 6;         ///< -1 marks a call with an empty handle and phase below 1
  int overwrite_b = 0;  ///< iparm(6)
  int order = 2;        ///< iparm(2) after checks
  int nthreads = 1;
  int panel = 80;                   ///< width limit of a panel
  int user_perm = 0;                ///< iparm(5)
  int sym_struct = 0;               ///< 1 for symmetric storage
  int serial = 1;                   ///< one thread on one node
  int cgs_k = 0;                    ///< K of iparm(4), signed
  int pivot_type = 0;               ///< iparm(21)
  int eps_exp = 0;                  ///< iparm(10)
  int match_mode = 0;               ///< iparm(13) where matching applies
  int scale_flag = 0;               ///< 1: values are scaled while the panels are loaded
  int transpose = 0;                ///< 1: solve with the transposed matrix
  int fact_ctl = 0, solve_ctl = 0;  ///< iparm(24), iparm(25)
  int ext_res = 0;                  ///< iparm(26)
  int opt28 = 0, single32 = 0, partial = 0, opt34 = 0;
  int dist_mode = 0, nnodes = 1;
  int det_flag = 0;  ///< iparm(33)
  int nschur = 0;    ///< n - iparm(38) when iparm(38) is in range
  int refine = 0;    ///< iparm(8)
  // what the analysis found
  int nparts = 1;  ///< leaf domains of the ordering
  int nchunk = 16;
  int nsuper = 0;
  int maxsup = 0;  ///< columns of the largest structural supernode
  int nsets = 0;   ///< independent subgraphs
  std::int64_t nnz_l = 0,
               nnz_u = 0;  ///< entries of the exact factor panels; nnz_u is 1 for symmetric storage
  double gflop = 0;        ///< operations of the factorization, in 1e9
  // stabilised solves
  int cgs_diverge = 10000, cgs_itmax = 0, cgs_itmin = 0;
  // results
  int must_factor = 0;
  int status = 0;
  int perturbed = 0, npos = 0, nneg = 0, ref_steps = 0;
  double logdet = 0;
  // memory figures, KB
  int mem_peak = 0, mem_perm = 0, mem_fact = 0;
  std::int64_t len_work = 0;  ///< doubles of WORK_R0
  std::int64_t len_cgs = 0;   ///< doubles of CGS_ARR in the last solve that took it

  Clocks dpar;
  StageFlags flags;
};

/// One record of the factor table, `FACT_ADR`: pt(4).
struct FactorRecord {
  void* lu = nullptr;        ///< FACT_L&U
  void* factored = nullptr;  ///< lu at the last successful factorization; null when there is none
  std::size_t bytes = 0;     ///< size of lu
  // what the factor is; a solve with other settings needs another factor
  int mtype = 0;
  int nvals = 0;       ///< doubles per value of that factor
  int single32 = 0;    ///< 1: single-precision factor
  int pivot_type = 0;  ///< whether 2x2 pivots may occur
  // results that belong to the factor, not to the call
  int perturbed = 0, npos = 0, nneg = 0;
  double logdet = 0;
};

/// Matching permutation P and scalings R, C kept in pt(13), pt(14); null pointers when there are
/// none.  All indices are the caller's row and column numbers.
///
/// What is factored is M = P R A C:  m(i,j) = r(perm(i)) * a(perm(i),j) * c(j), so the entry
/// a(perm(j),j) stands on the diagonal of M.  Row k moves to the place i with perm(i) = k;
/// columns stay where they are.
///   A x = b :   gather y(i) = r(perm(i)) b(perm(i)),  M z = y,   scatter x(j) = c(j) z(j)
///   A'x = b :   gather y(j) = c(j) b(j),              M'z = y,   scatter x(perm(i)) = r(perm(i))
///   z(i)
/// For symmetric storage perm is the identity and both halves of scale hold the same factors.
struct MatchingStore {
  const int* perm = nullptr;      ///< [n], 1-based: row that takes the place of column j
  const double* scale = nullptr;  ///< [2n]: column factors c, then row factors r

  const double* col_scale() const { return scale; }
  const double* row_scale(int n) const { return scale + n; }
};

inline bool is_complex_type(int mtype) {
  const int t = mtype < 0 ? -mtype : mtype;
  return t > 2 && t != 11;
}
inline bool is_symmetric_storage(int mtype) { return mtype % 2 == 0; }

}  // namespace vlm
