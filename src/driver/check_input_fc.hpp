// SPDX-License-Identifier: BSD-3-Clause
/// Tests of the arguments of a call.
#pragma once

#include "driver/call.hpp"
#include "driver/options.hpp"

namespace vlm {

/// Codes of the input check that have a message of their own.
enum InputCode : int {
  code_phase_bounds = 1,
  code_maxfct = 2,
  code_mnum_above = 3,
  code_mnum_phase = 4,
  code_mtype_change = 5,
  code_n_change = 6,
  code_n = 7,
  code_nnz = 8,
  code_nrhs = 9,
  code_overwrite = 10,
  code_order = 11,
  code_threads = 12,
  code_threads_differ = 13,
  code_mtype = 15,
  code_null = 16,          ///< an array that the phase needs is null
  code_stabilised = 17,    ///< iparm(4) with a solve that is not a complete one
  code_no_iterative = 18,  ///< iparm(32)
  code_no_factor = 19,     ///< phase -22 without a factor
  code_phase = 20,
  code_row_starts = 21,      ///< ia(1) is not 1, or ia falls
  code_columns = 22,         ///< a row begins or ends outside of 1 to n
  code_pattern = 23,         ///< as many entries as the analysed pattern, but another one
  code_schur = 24,           ///< iparm(38) is out of range
  code_schur_late = 25,      ///< iparm(38) asks for another complement than the analysis knew of
  code_perm_twice = 26,      ///< perm would be order and marks at once
  code_schur_inverse = 41,   ///< phase -22 with a Schur complement
  code_inverse_store = 42,   ///< iparm(36)
  code_full_form = 43,       ///< iparm(37)
  code_inverted = 44,        ///< the inverse stands where the factor was
  code_inverse_values = 45,  ///< the inverse is passed for the matrix
  code_not_upper = 46,       ///< iparm(37) 1 with an entry below the diagonal
  code_dparm = 47,           ///< dparm(1) to dparm(9), iterative solver
  code_refused = 48,         ///< by the iterative solver; the outcome has the detail
  code_clean_mnum = 100,
  code_diagonal_symbolic = 999,
  code_empty_handle = 1000,
  code_clean = 10000,
  code_no_analysis = 100000,
};

/// More threads than this are a mistake, such as an iparm(3) that was never set.
constexpr int most_threads = 4096;

/// True for the phases that exist and work on a matrix.
bool is_work_phase(int phase);

/// True when pt belongs to an analysis of another order than n and this phase would use it:
/// then nothing may read ia(n+1).
bool contradicts_handle(const Call& call);

/// Whether the call could refine or iterate, so that its solve reads the matrix.
bool product_asked(const Call& call);

/// Tests ia and ja, which exist, as far as O(n) goes: ia(1) is 1, ia does not fall, the first and
/// the last column of each row are in range, and there are as many entries as stored, unless that
/// is 0.
Outcome test_pattern(const Call& call, int stored_nnz);

/// Tests a call that is neither a release nor a query against itself and, unless it begins a
/// new analysis, against the sizes of the last accepted call.  Writes the counted threads to
/// iparm(3) when it is below 1; changes nothing else.
/// @return success, or class error_input with the code of the first test that failed
Outcome check_input_fc(Call& call, const Options& stored);

}  // namespace vlm
