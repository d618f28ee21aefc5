// SPDX-License-Identifier: BSD-3-Clause
/// Messages of failed calls: a header with the class, then the line that the code selects, then
/// what to do.  All of it is built as text, which the caller can ask for; only then is it printed.
#include "driver/error_info_fc.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <new>
#include <string>

#include "base/print.hpp"
#include "base/status.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/invert.hpp"
#include "driver/remedy.hpp"

namespace vlm {
namespace {

/// Names of the classes 0 to -10.
constexpr const char* class_names[] = {
    "",
    "sequence_ido,parameters ",
    "insufficient_memory     ",
    "reordering_phase        ",
    "numerical_factorization ",
    "internal_error,unclass. ",
    "prereordering_mtype11,13",
    "internal_error,unclass. ",
    "32-bit overflow problem ",
    "ended_by_its_listener   ",
    "internal_error,unclass. ",
};

/// Names of the arrays, by the location code divided by -100.
constexpr const char* array_names[] = {
    "",         "BASIC   ", "FACT_ADR", "LOC_INT1", "STRUC_S0", "WORK_I0 ",
    "STRUC_S1", "STRUC_S2", "STRUC_FI", "LOC_INT2", "UP_UPLEN", "FACT_L&U",
    "WORK_R0 ", "CGS_ARR ", "INVERSE ", "INVERSE ", "NORV    ",
};

/// What the solve of the iterative solver ended with, from -100 down.
constexpr const char* solve_texts[] = {
    "no convergence within dparam(1) iterations",
    "no progress any more in the iterations",
    "breakdown of the iteration: a search direction is orthogonal to its image",
    "breakdown of the iteration: a residual is orthogonal to its preconditioned one",
};
constexpr int last_solve_error = -103;

bool is_solve_error(std::int64_t error) {
  return error <= error_sqmr_limit && error >= last_solve_error;
}
/// The same for a caller who doesn't say which solver it was.
constexpr const char* solve_error_texts[] = {
    "iterative solver: no convergence within dparm(1) iterations (diagonal system: row 100 is "
    "zero)",
    "iterative solver: no progress any more (diagonal system: row 101 is zero)",
    "iterative solver: breakdown, q'Aq is zero (diagonal system: row 102 is zero)",
    "iterative solver: breakdown, r'z is zero (diagonal system: row 103 is zero)",
};
const char* solve_text(std::int64_t error) { return solve_texts[error_sqmr_limit - error]; }

/// What `error` says to the caller, from 0 down.
constexpr const char* error_texts[] = {
    "success",
    "an argument is wrong, or does not fit the earlier calls or the phase",
    "out of memory",
    "the analysis failed: perm is no permutation, or mtype names no type",
    "the factorization or the solve failed: zero pivot, not definite, NaN, or no convergence",
    "unclassified error",
    "the matrix is structurally singular",
    "an argument is wrong, or a row of a diagonal system",
    "a count of the factor is beyond 32-bit integers",
    "the listener of velmora_set_progress() ended the call",
};

/// Lines of a message, joined by line feeds.
class Lines {
 public:
  void add(std::string_view format, std::initializer_list<long long> values = {}) {
    if (!text_.empty()) text_ += '\n';
    text_ += substitute(format, values);
  }
  /// Lines as they are, the first behind a mark.
  void add_as_it_is(const std::string& text) {
    if (!text_.empty()) text_ += '\n';
    text_ += text;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// Value that a message of the input check prints.
enum class Value {
  none,
  maxfct,
  maxfct_old,
  mnum,
  mtype,
  mtype_old,
  phase,
  n,
  n_old,
  nnz,
  nnz_old,
  nrhs,
  overwrite,
  order,
  nthreads,
  stabilise,
  iterative,
  inverse_store,
  full_form,
  argument,
  row_start,
  column,
  schur,
  schur_old,
  order_given,
  partial
};

struct InputMessage {
  int code;
  const char* format;
  Value first = Value::none, second = Value::none;
};

constexpr InputMessage input_messages[] = {
    {code_phase_bounds, "*** Input check: ido_new %d (out of bounds) ", Value::phase},
    {code_maxfct, "*** Input check: max_fac_store_new %d _old %d are incompatible", Value::maxfct,
     Value::maxfct_old},
    {code_mnum_above, "*** Input check: max_fac_store_in %d matrix_number_in %d", Value::maxfct,
     Value::mnum},
    {code_mnum_phase, "*** Input check: matrix_number_new %d ido %d are incompatible", Value::mnum,
     Value::phase},
    {code_mtype_change, "*** Input check: matrix_type_new %d _old %d are incompatible",
     Value::mtype, Value::mtype_old},
    {code_n_change, "*** Input check: neqns_new %d _old %d are incompatible", Value::n,
     Value::n_old},
    {code_n, "*** Input check: neqns_new %d", Value::n},
    {code_nnz, "*** Input check: ia(neqns+1)_new %d _old %d are incompatible", Value::nnz,
     Value::nnz_old},
    {code_nrhs, "*** Input check: nb_new  %d  ido %d are incompatible", Value::nrhs, Value::phase},
    {code_overwrite, "*** Input check: iparam(6) %d (out of bounds)", Value::overwrite},
    {code_order, "*** Input check: preprocessing %d (out of bounds)", Value::order},
    {code_threads, "*** Input check: internal error, counted # threads %d", Value::nthreads},
    {code_threads_differ, "*** Input check: nproc %d <> counted # threads %d", Value::nthreads,
     Value::nthreads},
    {code_mtype, "*** Input check: matrix_type_new %d (out of bounds)", Value::mtype},
    {code_null, "*** Input check: argument number %d is a null pointer, ido %d", Value::argument,
     Value::phase},
    {code_stabilised, "*** Input check: iparam(4) %d, but the solve or the factor is a partial one",
     Value::stabilise},
    {code_no_iterative,
     "*** Input check: iparam(32) %d, the iterative solver does not cover matrix type %d",
     Value::iterative, Value::mtype},
    {code_dparm, "*** Input check: dparam(%d) is out of bounds", Value::argument},
    {code_refused, "*** Input check: the iterative solver refuses the call"},
    {code_no_factor, "*** Input check: matrix number %d has no factor, ido %d", Value::mnum,
     Value::phase},
    {code_phase, "*** wrong controlstep parameter ido %d", Value::phase},
    {code_row_starts, "*** Input check: ia(%d) is %d, but ia(1) is 1 and ia does not fall",
     Value::argument, Value::row_start},
    {code_columns, "*** Input check: ja(%d) is %d, outside of the columns from 1 to neqns",
     Value::argument, Value::column},
    {code_pattern, "*** Input check: ia, ja are not the pattern of the analysis, ido %d",
     Value::phase},
    {code_schur, "*** Input check: iparam(38) %d, outside of 0 to neqns", Value::schur},
    {code_schur_late, "*** Input check: iparam(38) %d, but the analysis kept %d unknowns",
     Value::schur, Value::schur_old},
    {code_perm_twice, "*** Input check: perm is an order and marks at once, iparam(5) %d (31) %d",
     Value::order_given, Value::partial},
    {code_schur_inverse, "*** Input check: a factor with a Schur complement has no inverse, ido %d",
     Value::phase},
    {code_inverse_store, "*** Input check: iparam(36) %d (out of bounds)", Value::inverse_store},
    {code_full_form, "*** Input check: iparam(37) %d (out of bounds)", Value::full_form},
    {code_inverted, "*** Input check: the inverse of matrix number %d replaced its factor, ido %d",
     Value::mnum, Value::phase},
    {code_inverse_values, "*** Input check: a is the inverse of matrix number %d, ido %d",
     Value::mnum, Value::phase},
    {code_not_upper, "*** Input check: ja(%d) is %d, not in the upper triangle", Value::argument,
     Value::column},
    {code_clean_mnum, "*** error velmora: wrong matrix number, clean %d", Value::mnum},
    {code_diagonal_symbolic, "*** error velmora: only symb. fact. diagonal matrix case %d",
     Value::phase},
    {code_empty_handle,
     "*** error velmora: ido < 1 and initialization - contradiction (set ido >0 !) %d",
     Value::phase},
    {code_clean, "*** error velmora: clean impossible (ido?)"},
    {code_no_analysis, "*** error velmora: clean impossible (ido?)"},
};

long long value_of(Value value, const Outcome& outcome, const Call& call, const Options& stored) {
  switch (value) {
    case Value::none:
      return 0;
    case Value::maxfct:
      return call.maxfct;
    case Value::maxfct_old:
      return stored.maxfct;
    case Value::mnum:
      return call.mnum;
    case Value::mtype:
      return call.mtype;
    case Value::mtype_old:
      return stored.mtype;
    case Value::phase:
      return call.phase;
    case Value::n:
      return call.n;
    case Value::n_old:
      return stored.n;
    // Only asked for behind the test of n, which has then passed.
    case Value::nnz:
      return static_cast<long long>(call.ia[call.n]) - 1;
    case Value::nnz_old:
      return stored.nnz;
    case Value::nrhs:
      return call.nrhs;
    case Value::overwrite:
      return call.iparm(6);
    case Value::order:
      return call.iparm(2);
    case Value::nthreads:
      return call.iparm(3);
    case Value::stabilise:
      return call.iparm(4);
    case Value::iterative:
      return call.iparm(32);
    case Value::inverse_store:
      return call.iparm(36);
    case Value::full_form:
      return call.iparm(37);
    case Value::argument:
      return outcome.argument;
    case Value::row_start:
      return call.ia[outcome.argument - 1];
    case Value::column:
      return call.ja[outcome.argument - 1];
    case Value::schur:
      return call.iparm(38);
    case Value::schur_old:
      return stored.schur;
    case Value::order_given:
      return call.iparm(5);
    case Value::partial:
      return call.iparm(31);
  }
  return 0;
}

void add_input_message(Lines& lines, const Outcome& outcome, const Call& call,
                       const Options& stored) {
  const auto* message = std::ranges::find(input_messages, outcome.code, &InputMessage::code);
  if (message == std::end(input_messages)) return;
  lines.add(message->format, {value_of(message->first, outcome, call, stored),
                              value_of(message->second, outcome, call, stored)});
}

/// Name of the array at a location code.
const char* array_name(std::int64_t location) {
  const std::size_t k = location < 0 ? static_cast<std::size_t>(-location / 100) : 0;
  return k < std::size(array_names) ? array_names[k] : "";
}

void add_memory_message(Lines& lines, const Outcome& outcome, const Call& call,
                        std::int64_t wanted) {
  if (outcome.code == at_file) {
    lines.add("*** error velmora: no room in TMPDIR for a factor of %d bytes",
              {static_cast<long long>(outcome.bytes)});
    return;
  }
  lines.add(std::string("*** error velmora (memory allocation) ") + array_name(outcome.code) +
                ", size to allocate: %d bytes",
            {static_cast<long long>(outcome.bytes)});
  lines.add("total memory wanted here: %d kbyte",
            {static_cast<long long>(outcome.bytes / 1024) + wanted});
  lines.add("symbolic (max): %d symbolic (permanent): %d real(incl. 1 factor): %d",
            {call.iparm(15), call.iparm(16), call.iparm(17)});
}

void add_analysis_message(Lines& lines, const Outcome& outcome, const Call& call) {
  lines.add("*** error velmora: reordering, symb. factorization");
  if (outcome.code == status_unsupported)
    lines.add("*** matrix type %d does not exist", {call.mtype});
  if (outcome.code == status_structure && call.iparm(5) > 0)
    lines.add("*** perm is not a permutation of the equations");
  if (outcome.code == status_no_matching)
    lines.add("*** matching iparam(13) %d is not available for matrix type %d",
              {call.iparm(13), call.mtype});
}

void add_numeric_message(Lines& lines, const Outcome& outcome, const Call& call) {
  const int status = static_cast<int>(outcome.code);
  if (status == status_not_finite) {
    lines.add("*** error velmora: a(%d) is NaN or infinity", {outcome.argument});
    return;
  }
  if (status == status_unsupported || status == status_type_change) {
    lines.add("*** error velmora: matrix type %d does not fit the analysis", {call.mtype});
    return;
  }
  if (!outcome.detail.empty()) {
    lines.add("*** error velmora: the iterative solver failed");
    return;
  }
  if (status == status_inaccurate) {
    lines.add("*** error velmora: the solution is useless, see dparam(40) to dparam(43)");
    return;
  }
  // A message on refinement is followed by one of the others.
  if (status == status_contraction)
    lines.add("*** error velmora: iterative refinement contraction rate greater 0.9, interrupt");
  if (status == status_steps)
    lines.add("*** error velmora: iterative refinement exceeds max. iteration number %d",
              {std::llabs(call.iparm(8))});
  if (status == status_stabilised || call.iparm(20) < 0)
    lines.add("*** error velmora: cgs error iparam(20) %d", {call.iparm(20)});
  else if (status == status_work)
    lines.add("*** error velmora: internal error, insuff. memory factorization");
  else if (matrix_type(call.mtype).family == Family::cholesky)
    lines.add("*** error velmora: zero or neg. pivot, A not spd");
  else
    lines.add("*** error velmora: zero pivot");
}

void add_class_message(Lines& lines, const Outcome& outcome, const Call& call,
                       const Options& stored, std::int64_t wanted) {
  if (outcome.code == code_empty_handle && outcome.error == error_input) {
    lines.add("*** error VELMORA  (contradictory input, initialization failed)");
    lines.add("handle=0 ?? ido= %d", {call.phase});
    return;
  }
  if (is_solve_error(outcome.error)) {
    lines.add("*** error VELMORA  (iterative_solver        ) error_num= %d", {outcome.code});
    lines.add(std::string("*** error velmora: ") + solve_text(outcome.error));
    return;
  }
  lines.add(std::string("*** error VELMORA  (") + class_names[-outcome.error] + ") error_num= %d",
            {outcome.code});
  if (outcome.diagonal) {
    lines.add("*** something wrong with diagonal matrix row %d", {-outcome.code});
    return;
  }
  switch (outcome.error) {
    case error_memory:
      add_memory_message(lines, outcome, call, wanted);
      break;
    case error_analysis:
    case error_overflow:
      add_analysis_message(lines, outcome, call);
      break;
    case error_numeric:
      add_numeric_message(lines, outcome, call);
      break;
    case error_matching:
      lines.add("*** error velmora: preordering failed after %d neqns out of %d",
                {-outcome.code, call.n});
      lines.add("struct. sing. or input/parameter problem (matrixtype 11,13)");
      break;
    case error_cancelled:
      lines.add("*** error velmora: the listener ended the call");
      break;
    case error_unclassified:
      lines.add("*** error velmora: unclassified error");
      break;
    default:
      add_input_message(lines, outcome, call, stored);
      break;
  }
}

}  // namespace

void error_info_fc(const Outcome& outcome, Call& call, const Options& stored,
                   std::int64_t wanted) noexcept {
  try {
    Lines lines;
    const bool works = call.phase >= 0 || call.phase == phase_inversion;
    if (!works) lines.add("*** error velmora: internal error ");
    if (works) add_class_message(lines, outcome, call, stored, wanted);
    if (!outcome.detail.empty()) lines.add_as_it_is("*** " + outcome.detail);
    lines.add("*** what to do: " + std::string(remedy(outcome, call)));
    call.message = lines.text();
  } catch (const std::bad_alloc&) {
    return;
  }
  if (call.msg != 0) std::puts(call.message.c_str());
}

const char* error_text(int error) {
  if (is_solve_error(error)) return solve_error_texts[error_sqmr_limit - error];
  const auto k = -static_cast<std::int64_t>(error);
  if (k < 0) return "diagonal system: the row of this number does not hold exactly one entry";
  return k < std::ssize(error_texts)
             ? error_texts[k]
             : "diagonal system: the entry in the row of this number, negated, is zero";
}

}  // namespace vlm
