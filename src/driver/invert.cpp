// SPDX-License-Identifier: BSD-3-Clause
/// Selected inversion of a factor in the handle, see invert.hpp.
///
/// All that can fail comes first: the tests, entries that the factor's pattern lacks, the copy of
/// the factor, the scratch.  Only then are the factor and the caller's arrays written.
#include "driver/invert.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/clock.hpp"
#include "base/progress.hpp"
#include "base/scratch_file.hpp"
#include "base/status.hpp"
#include "base/thread_guard.hpp"
#include "base/work_team.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/diag.hpp"
#include "driver/factor_store.hpp"
#include "driver/full_form.hpp"
#include "driver/input_scan.hpp"
#include "driver/options.hpp"
#include "driver/shortcut.hpp"
#include "numeric/inverse.hpp"
#include "numeric/inverse_entries.hpp"
#include "solve/inverse_columns.hpp"

namespace vlm {
namespace {

/// What iparm(36) says of the factor.
enum Keeping : int { overwrite = 0, copy_in_memory = 1, copy_on_disk = 2 };

Outcome fault(int code, int argument = 0) { return {error_input, code, argument, 0}; }

/// In this phase, and in no other, the caller's matrix is written; for iparm(37) 1 ia and ja too.
double* values_of(const Call& call) { return const_cast<double*>(call.a); }

InputMatrix pattern_of(const Call& call) { return {call.n, call.ia, call.ja, call.a}; }

Outcome test_arrays(const Call& call) {
  if (call.a == nullptr) return fault(code_null, 7);
  if (call.ia == nullptr) return fault(code_null, 8);
  if (call.ja == nullptr) return fault(code_null, 9);
  return {};
}

Outcome test_settings(const Call& call) {
  if (call.iparm(36) < overwrite || call.iparm(36) > copy_on_disk) return fault(code_inverse_store);
  if (call.iparm(37) < 0 || call.iparm(37) > 1) return fault(code_full_form);
  if (call.iparm(3) > most_threads) return fault(code_threads);
  return {};
}

/// A factor that can be inverted, and the pattern that it belongs to.
Outcome test_inversion(const Call& call) {
  const Control& control = control_of(call.pt);
  const Options& options = control.options;
  if (call.mnum < 1) return fault(code_mnum_phase);
  const FactorRecord* record =
      call.mnum <= options.maxfct ? factor_record(call.pt, call.mnum) : nullptr;
  if (record == nullptr) return fault(code_mnum_above);
  if (record->inverted) return fault(code_inverted);
  if (!record->finished) return fault(code_no_factor);
  if (call.mtype != record->mtype) return fault(code_mtype_change);
  if (call.n != options.n) return fault(code_n_change);
  if (options.schur > 0) return fault(code_schur_inverse);
  if (Outcome failed = test_settings(call)) return failed;
  if (Outcome failed = test_arrays(call)) return failed;
  if (Outcome failed = test_pattern(call, options.nnz)) return failed;
  if (pattern_checksum(pattern_of(call)) != control.pattern) return fault(code_pattern);
  return {};
}

/// Which column of the inverse belongs to each row, and the entries that its selected part does
/// not hold.
struct OutsideValues {
  Vector<int> columns;
  Vector<OutsideEntry> entries;
  Vector<double> values;
};

OutsideValues solve_outside(const InverseOptions& options, const Structure& st, const Call& call,
                            const void* lu) {
  const Matching matching = matching_of(call.pt);
  OutsideValues out{inverse_columns(st, matching), {}, {}};
  out.entries = outside_entries(st, pattern_of(call), matching, out.columns);
  out.values.resize(out.entries.size() * static_cast<std::size_t>(options.type.nvals()));
  solve_for_entries(options, st, out.entries, lu, out.values.data());
  return out;
}

struct Free {
  void operator()(void* block) const { std::free(block); }
};

/// Copies a factor; the threads touch its memory for the first time, and listen between pieces.
void copy_factor(void* to, const void* from, std::size_t bytes, int threads) {
  constexpr std::size_t piece = std::size_t{16} << 20;
  const auto pieces = static_cast<int>((bytes + piece - 1) / piece);
  side_by_side(threads, pieces, [&](int k) {
    pulse();
    const std::size_t at = static_cast<std::size_t>(k) * piece;
    std::memcpy(static_cast<char*>(to) + at, static_cast<const char*>(from) + at,
                std::min(piece, bytes - at));
  });
}

void print_times(double total, const InverseTimes& times) {
  const auto line = [](const char* text, double seconds) {
    std::printf("[VELMORA]: %-38s%14.6f s\n", text, seconds);
  };
  line("Time for inverse  preprocessing", times.preparation);
  line("Time inverse factorization (nsup)", times.separators);
  line("Time inverse factorization  (dom)", times.domains);
  line("Time inverse inversion           ", total);
}

/// Values of a diagonal system, which has no factor.
Outcome invert_diagonal(const Call& call) {
  const int mark = call.iparm(12);
  const bool diagonal = (mark == diagonal_system || mark == diagonal_transposed) &&
                        is_matrix_type(call.mtype) && call.n >= 1;
  if (!diagonal) return fault(code_no_factor);
  if (Outcome failed = test_settings(call)) return failed;
  if (Outcome failed = test_arrays(call)) return failed;
  if (call.ia[0] != 1 || call.ia[call.n] - 1 != call.n) return fault(code_no_factor);
  const InputMatrix matrix = pattern_of(call);
  const DiagonalFault wrong = matrix_type(call.mtype).complex
                                  ? c_invert_diagonal(matrix, values_of(call))
                                  : invert_diagonal(matrix, values_of(call));
  return outcome_of(wrong);
}

/// The inversion of a factor that has passed the tests.
Outcome invert_record(const Call& call, FactorRecord& record, InverseTimes& times) {
  const double start = timer_velmora();
  void** pt = call.pt;
  const Options& stored = control_of(pt).options;
  const Structure& st = *static_cast<const Structure*>(slot(pt, slot_structure));
  const InverseOptions options{matrix_type(record.mtype), record.single,
                               call.iparm(3) < 1 ? call.default_threads : call.iparm(3)};
  if (Progress* const progress = Progress::current()) progress->begin(phase_inversion, 0);
  const bool fills = call.iparm(37) == 1 && stored.symmetric;
  Vector<int> starts;
  if (fills)
    if (const int p = full_starts(pattern_of(call), starts)) return fault(code_not_upper, p);
  const OutsideValues outside = solve_outside(options, st, call, record.lu);

  std::unique_ptr<void, Free> copy;
  ScratchFile file;
  void* lu = record.lu;
  if (call.iparm(36) == copy_in_memory) {
    copy.reset(allocate(record.bytes, at_inverse));
    copy_factor(copy.get(), record.lu, record.bytes, options.threads);
    lu = copy.get();
  } else if (call.iparm(36) == copy_on_disk) {
    if (file.write(record.lu, record.bytes) != 0) return {error_memory, at_file, 0, record.bytes};
  }
  const double before = timer_velmora() - start;
  try {
    invert_factor(options, st, lu, times);
  } catch (const Cancelled&) {  // the factor is half an inverse
    if (call.iparm(36) != copy_in_memory &&
        (call.iparm(36) == overwrite || file.read(record.lu, record.bytes) != 0))
      record.finished = false;
    throw;
  }
  times.preparation += before;

  const Matching matching = matching_of(pt);
  read_inverse(options, st, pattern_of(call), matching, outside.columns, lu, values_of(call));
  put_outside_entries(options, st, pattern_of(call), matching, outside.entries,
                      outside.values.data(), values_of(call));
  record.inverse_values = values_checksum(pattern_of(call), options.type.nvals());
  Outcome outcome;
  if (call.iparm(36) == overwrite) {
    record.finished = false;
    record.inverted = true;
  } else if (call.iparm(36) == copy_on_disk && file.read(record.lu, record.bytes) != 0) {
    record.finished = false;
    outcome = {error_memory, at_file, 0, record.bytes};
  }
  if (fills)
    fill_triangle(call.n, starts, options.type, values_of(call), const_cast<int*>(call.ia),
                  const_cast<int*>(call.ja));
  return outcome;
}

}  // namespace

Outcome invert_velmora(const Call& call) {
  if (handle_is_empty(call.pt)) return invert_diagonal(call);
  if (Outcome failed = test_inversion(call)) return failed;
  const ThreadGuard guard;
  const double start = timer_velmora();
  InverseTimes times;
  const Outcome outcome = with_location(
      at_inverse, [&] { return invert_record(call, *factor_record(call.pt, call.mnum), times); });
  if (!outcome && call.msg != 0) print_times(timer_velmora() - start, times);
  return outcome;
}

Outcome test_for_inverse(const Call& call, bool reads_matrix) {
  const FactorRecord& record = *factor_record(call.pt, call.mnum);
  if (record.inverted) return fault(code_inverted);
  if (!reads_matrix || record.inverse_values == 0) return {};
  const int nvals = matrix_type(record.mtype).nvals();
  if (values_checksum(pattern_of(call), nvals) != record.inverse_values) return {};
  return fault(code_inverse_values);
}

}  // namespace vlm
