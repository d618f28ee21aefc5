// SPDX-License-Identifier: BSD-3-Clause
/// Messages of failed calls: a header with the class, then the line that the code selects.
#include "driver/error_info_fc.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "base/print.hpp"
#include "base/status.hpp"
#include "driver/check_input_fc.hpp"

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
    "internal_error,unclass. ",
    "internal_error,unclass. ",
};

/// Names of the arrays, by the location code divided by -100.
constexpr const char* array_names[] = {
    "",         "BASIC   ", "FACT_ADR", "LOC_INT1", "STRUC_S0", "WORK_I0 ", "STRUC_S1",
    "STRUC_S2", "STRUC_FI", "LOC_INT2", "UP_UPLEN", "FACT_L&U", "WORK_R0 ", "CGS_ARR ",
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
  argument
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
    {code_no_stabilised, "*** Input check: iparam(4) %d, stabilised solves are not available",
     Value::stabilise},
    {code_no_iterative, "*** Input check: iparam(32) %d, the iterative solver is not available",
     Value::iterative},
    {code_no_inversion, "*** Input check: ido %d, selected inversion is not available",
     Value::phase},
    {code_phase, "*** wrong controlstep parameter ido %d", Value::phase},
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
    case Value::argument:
      return outcome.argument;
  }
  return 0;
}

void print_input_message(const Outcome& outcome, const Call& call, const Options& stored) {
  if (outcome.code < 0) {
    print_ci("*** something wrong with diagonal matrix row %d", {-outcome.code});
    return;
  }
  const auto* message = std::ranges::find(input_messages, outcome.code, &InputMessage::code);
  if (message == std::end(input_messages)) return;
  print_ci(message->format, {value_of(message->first, outcome, call, stored),
                             value_of(message->second, outcome, call, stored)});
}

/// Name of the array at a location code.
const char* array_name(std::int64_t location) {
  const std::size_t k = location < 0 ? static_cast<std::size_t>(-location / 100) : 0;
  return k < std::size(array_names) ? array_names[k] : "";
}

void print_memory_message(const Outcome& outcome, const Call& call, std::int64_t wanted) {
  print_ci(std::string("*** error velmora (memory allocation) ") + array_name(outcome.code) +
               ", size to allocate: %d bytes",
           {static_cast<long long>(outcome.bytes)});
  print_ci("total memory wanted here: %d kbyte",
           {static_cast<long long>(outcome.bytes / 1024) + wanted});
  print_ci("symbolic (max): %d symbolic (permanent): %d real(incl. 1 factor): %d",
           {call.iparm(15), call.iparm(16), call.iparm(17)});
}

void print_analysis_message(const Outcome& outcome, const Call& call) {
  print_ci("*** error velmora: reordering, symb. factorization");
  if (outcome.code == status_unsupported)
    print_ci("*** matrix type %d does not exist", {call.mtype});
  if (outcome.code == status_structure && call.iparm(5) > 0)
    print_ci("*** perm is not a permutation of the equations");
  if (outcome.code == status_no_matching)
    print_ci("*** matching iparam(13) %d is not available for matrix type %d",
             {call.iparm(13), call.mtype});
}

void print_numeric_message(const Outcome& outcome, const Call& call) {
  const int status = static_cast<int>(outcome.code);
  if (status == status_unsupported || status == status_type_change) {
    print_ci("*** error velmora: matrix type %d does not fit the analysis", {call.mtype});
    return;
  }
  if (status == status_inaccurate) {
    print_ci("*** error velmora: the solution is useless, see dparam(40) to dparam(43)");
    return;
  }
  // A message on refinement is followed by one of the others.
  if (status == status_contraction)
    print_ci("*** error velmora: iterative refinement contraction rate greater 0.9, interrupt");
  if (status == status_steps)
    print_ci("*** error velmora: iterative refinement exceeds max. iteration number %d",
             {std::llabs(call.iparm(8))});
  if (status == -3 || call.iparm(20) < 0)
    print_ci("*** error velmora: cgs error iparam(20) %d", {call.iparm(20)});
  else if (status == status_work)
    print_ci("*** error velmora: internal error, insuff. memory factorization");
  else if (call.mtype == 2 || call.mtype == 4)
    print_ci("*** error velmora: zero or neg. pivot, A not spd");
  else
    print_ci("*** error velmora: zero pivot");
}

}  // namespace

void error_info_fc(const Outcome& outcome, const Call& call, const Options& stored,
                   std::int64_t wanted) {
  if (outcome.code == code_empty_handle && outcome.error == error_input) {
    print_ci("*** error VELMORA  (contradictory input, initialization failed)");
    print_ci("handle=0 ?? ido= %d", {call.phase});
    return;
  }
  print_ci(std::string("*** error VELMORA  (") + class_names[-outcome.error] + ") error_num= %d",
           {outcome.code});
  switch (outcome.error) {
    case error_memory:
      print_memory_message(outcome, call, wanted);
      break;
    case error_analysis:
    case error_overflow:
      print_analysis_message(outcome, call);
      break;
    case error_numeric:
      print_numeric_message(outcome, call);
      break;
    case error_matching:
      print_ci("*** error velmora: preordering failed after %d neqns out of %d",
               {-outcome.code, call.n});
      print_ci("struct. sing. or input/parameter problem (matrixtype 11,13)");
      break;
    case error_unclassified:
      print_ci("*** error velmora: unclassified error");
      break;
    default:
      print_input_message(outcome, call, stored);
      break;
  }
}

}  // namespace vlm
