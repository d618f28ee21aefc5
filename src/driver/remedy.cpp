// SPDX-License-Identifier: BSD-3-Clause
/// What the caller can do about a failed call, see remedy.hpp.
#include "driver/remedy.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "base/status.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"
#include "driver/factor_store.hpp"

namespace vlm {
namespace {

struct InputRemedy {
  int code;
  std::string_view text;
};

constexpr InputRemedy input_remedies[] = {
    {code_phase_bounds, "set phase to 11, 12, 13, 22, 23 or 33, or to 0 or -1 to release"},
    {code_maxfct, "keep maxfct, or analyse again with the new one (phase 11)"},
    {code_mnum_above, "choose mnum from 1 to maxfct"},
    {code_mnum_phase, "choose mnum from 1 to maxfct"},
    {code_mtype_change, "keep mtype, or analyse again with the new one (phase 11)"},
    {code_n_change, "keep n, or analyse the new matrix first (phase 11)"},
    {code_n, "pass the number of equations, at least 1"},
    {code_nrhs, "pass the number of right-hand sides, at least 1 to solve"},
    {code_overwrite, "set iparm(6) to 0 (solution in x) or 1 (solution in b)"},
    {code_order, "set iparm(2) to 0, 1 or 2"},
    {code_threads, "set iparm(3) to the number of threads, at most 4096"},
    {code_threads_differ, "set iparm(3) to the number of threads of the OpenMP runtime"},
    {code_mtype, "set mtype to 1, 2, -2, 3, 4, -4, 6, 11 or 13"},
    {code_null, "pass the array: velmora.h says which ones the phase reads"},
    {code_stabilised, "set iparm(4) to 0, or iparm(26), (31) and (38) to 0"},
    {code_no_iterative, "set iparm(32) and solver to 0 for the direct solver"},
    {code_no_factor, "factor first: phase 12 or 22, with the same pt and mnum"},
    {code_dparm, "take dparm(1) to dparm(9) from velmorainit with solver 1"},
    {code_refused, "test the matrix with velmora_chkmatrix: each row has a diagonal entry"},
    {code_phase, "set phase to 11, 12, 13, 22, 23 or 33, or to 0 or -1 to release"},
    {code_row_starts, "number rows and columns from 1: see velmora_chkmatrix"},
    {code_columns, "number rows and columns from 1: see velmora_chkmatrix"},
    {code_pattern, "keep the pattern, or analyse the new matrix first (phase 11)"},
    {code_schur, "set iparm(38) to the unknowns to eliminate, 1 to n; 0 for all"},
    {code_schur_late, "set iparm(38) before the analysis (phase 11)"},
    {code_perm_twice, "set iparm(5) to 0 or less: perm holds the marks of iparm(31)"},
    {code_schur_inverse, "analyse and factor with iparm(38) = 0"},
    {code_inverse_store, "set iparm(36) to 0 (overwrite the factor), 1 or 2 (keep it)"},
    {code_full_form, "set iparm(37) to 0 (triangle) or 1 (full form)"},
    {code_inverted, "factor again (phase 22), or invert with iparm(36) = 1"},
    {code_inverse_values, "pass the matrix, not its inverse: phase -22 wrote over a"},
    {code_not_upper, "store the upper triangle alone: see velmora_chkmatrix"},
    {code_clean_mnum, "choose mnum from 1 to the maxfct of the analysis"},
    {code_diagonal_symbolic, "solve a diagonal system with phase 13, 23 or 33"},
    {code_empty_handle, "nothing to release: analyse first (phase 11)"},
    {code_clean, "analyse first: phase 11, then 22 and 33, with the same pt"},
    {code_no_analysis, "analyse first: phase 11, then 22 and 33, with the same pt"},
};

std::string_view input_remedy(const Outcome& outcome, const Call& call) {
  if (outcome.code == code_nnz) {
    if (call.ia[call.n] - 1 < call.n)
      return "give every row an entry: ia(n+1)-1 is at least n, ia(1) is 1";
    return "keep the pattern, or analyse the new matrix first (phase 11)";
  }
  const auto* entry = std::ranges::find(input_remedies, outcome.code, &InputRemedy::code);
  return entry == std::end(input_remedies) ? std::string_view{} : entry->text;
}

std::string_view row_remedy(RowFault fault) {
  switch (fault) {
    case RowFault::none:
      break;
    case RowFault::entries:
      return "give that row one entry, in a column from 1 to n";
    case RowFault::zero:
      return "that row holds a zero: give it a value, or leave it out";
    case RowFault::not_finite:
      return "its value is NaN or infinity: see where A is assembled";
    case RowFault::repeated:
      return "give each row a column of its own: this one stands in two";
  }
  return {};
}

std::string_view memory_remedy(std::int64_t location) {
  switch (location) {
    case at_table:
      return "pass a smaller maxfct";
    case at_factor:
      return "release other factors (phase 0), or factor with iparm(29) = 1";
    case at_inverse:
      return "release other handles, or set iparm(36) to 0: no copy of the factor";
    case at_file:
      return "make room in TMPDIR, or set iparm(36) to 0 or 1";
    case at_work:
    case at_cgs:
      return "solve fewer right-hand sides at a time";
    default:
      return "release other handles (phase -1), or divide the problem";
  }
}

std::string_view analysis_remedy(const Outcome& outcome, const Call& call) {
  if (outcome.code == status_unsupported) return "set mtype to 1, 2, -2, 3, 4, -4, 6, 11 or 13";
  if (outcome.code == status_no_matching) return "set iparm(13) to a mode from 0 to 4";
  if (outcome.code == status_structure && call.iparm(5) > 0)
    return "put each of 1 to n into perm once, or set iparm(5) to 0";
  return "test the matrix with velmora_chkmatrix";
}

std::string_view lu_remedy(const MatrixType& type) {
  return type.complex ? "solve it with mtype 13, which matches large entries first"
                      : "solve it with mtype 11, which matches large entries first";
}

/// After a solve whose refinement failed, or whose result is useless: the settings, of those that
/// the call has not, which change most.
std::string_view accuracy_remedy(const Call& call) {
  constexpr int fine = 12;  // exponent of a perturbation that refinement undoes more easily
  const MatrixType& type = matrix_type(call.mtype);
  const View<int>& iparm = call.iparm;
  if (type.single && iparm(29) != 0) return "set iparm(29) to 0 and repeat phase 13, in doubles";
  if (type.family == Family::lu) return lu_remedy(type);
  if (type.matched) {
    const bool matched = iparm(11) != 0 && iparm(13) > 0;
    if (type.symmetric && !(matched && iparm(21) != 0))
      return "set iparm(11), iparm(13) and iparm(21) to 1 and repeat phase 13";
    if (!matched) return "set iparm(11) and iparm(13) to 1 and repeat phase 13";
    if (iparm(14) > 0 && iparm(10) > -fine && iparm(10) < fine)
      return "set iparm(10) to 12 and iparm(8) to 10 and repeat phase 13";
  }
  if (iparm(14) > 0 && iparm(4) == 0) return "set iparm(4) to -1 and repeat phase 13: it iterates";
  if (std::llabs(iparm(8)) < 10)
    return "set iparm(8) to 10; if that is not enough, A may be singular";
  return "see dparm(42), with iparm(40) = 2: A may be singular";
}

std::string_view stabilised_remedy(const Call& call) {
  if (call.phase == 33 || call.iparm(4) < 0)
    return "call phase 23: after this failure it factors the new matrix";
  return "set iparm(4) to 0 and iparm(8) to 10; A may be singular";
}

std::string_view numeric_remedy(const Outcome& outcome, const Call& call) {
  if (!outcome.detail.empty()) return "lower dparm(5) and dparm(6), or set iparm(32) to 0";
  if (outcome.code == status_not_finite) return "look for it where the matrix is assembled";
  if (outcome.code == status_type_change) return "analyse again with this mtype (phase 11)";
  if (outcome.code == status_stabilised) return stabilised_remedy(call);
  if (outcome.code == status_work) return "solve fewer right-hand sides at a time";
  if (outcome.code == status_inaccurate) {
    if (call.iparm(42) != 1) return "set iparm(42) to 1 and repeat phase 13: it goes on";
    return "look for NaN in b; else A is singular: free unknowns, or repeated equations";
  }
  if (outcome.code == status_contraction || outcome.code == status_steps)
    return accuracy_remedy(call);
  if (call.mtype == 2) return "if A is only symmetric, solve it with mtype -2 (phase 13)";
  if (call.mtype == 4) return "if A is only Hermitian, solve it with mtype -4 (phase 13)";
  if (matrix_type(call.mtype).family == Family::lu) return lu_remedy(matrix_type(call.mtype));
  return "test the values with velmora_chkmatrix: NaN or infinity in A";
}

}  // namespace

std::string_view remedy(const Outcome& outcome, const Call& call) {
  if (outcome.diagonal) return row_remedy(RowFault(outcome.argument));
  switch (outcome.error) {
    case error_memory:
      return memory_remedy(outcome.code);
    case error_analysis:
      return analysis_remedy(outcome, call);
    case error_overflow:
      return "use nested dissection, iparm(2) = 2, or divide the problem";
    case error_numeric:
      return numeric_remedy(outcome, call);
    case error_matching:
      return "look for a free unknown or a repeated equation in the model";
    case error_sqmr_limit:
    case error_sqmr_stagnation:
    case error_sqmr_sigma:
    case error_sqmr_rho:
      return "lower dparm(5) and dparm(6), raise dparm(7) or dparm(1), or set iparm(32) to 0";
    case error_unclassified:
      return "report it, with the files that VELMORA_WRITE_MAT=1 makes";
    default:
      return input_remedy(outcome, call);
  }
}

}  // namespace vlm
