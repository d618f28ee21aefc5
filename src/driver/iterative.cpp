// SPDX-License-Identifier: BSD-3-Clause
/// The iterative road: maps dparm to the parameters of the library, keeps its preconditioner on the
/// handle, and turns its faults into outcomes.
///
/// The caller's ia and ja are copied to base 0 for the time of a call: they may be read-only, or in
/// use by other calls.  A setup and the solve for each right-hand side are steps of their own, so
/// that a solve that fails leaves the preconditioner as it was.
#include "driver/iterative.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <string>

#include "NORV/bridge/norv_interface.hpp"
#include "NORV/corelib/faults.hpp"
#include "base/matrix_types.hpp"
#include "base/progress.hpp"
#include "base/status.hpp"
#include "base/thread_guard.hpp"
#include "driver/check_input_fc.hpp"
#include "driver/factor_store.hpp"
#include "driver/input_scan.hpp"
#include "driver/options.hpp"

namespace vlm {
namespace {

/// What a handle in iterative mode holds.
struct IterativeState {
  Ledger ledger;
  MemoryMeter meter;  ///< of the arrays that are no blocks of the ledger
  precon* M = nullptr;
};

IterativeState* state_of(void** pt) {
  return static_cast<IterativeState*>(slot(pt, slot_iterative));
}

bool has_preconditioner(void** pt) {
  const IterativeState* const state = state_of(pt);
  return state != nullptr && state->M != nullptr;
}

InputMatrix matrix_of(const Call& call) { return {call.n, call.ia, call.ja, call.a}; }

bool covers_type(int mtype) { return mtype == 2 || mtype == -2 || mtype == 6 || mtype == 11; }

/// The entries of dparm that the solver reads, with the values that make sense.
struct Bound {
  double least, most;
};
constexpr double most_int = std::numeric_limits<int>::max();
constexpr double huge = std::numeric_limits<double>::max();
constexpr int most_levels = 32;
constexpr Bound bounds[] = {
    {0, most_int},          // 1 iterations
    {0, huge},              // 2 tolerance
    {0, most_int},          // 3 smallest level
    {1, most_levels},       // 4 levels
    {0, huge},              // 5 dropping
    {0, huge},              // 6 dropping in the Schur complement
    {-most_int, most_int},  // 7 fill; 0 and below: no limit
    {-huge, huge},          // 8 bound on the inverse; 0 and below: none
    {0, most_int},          // 9 stagnation
    {0, 1},                 // 10 second dropping, times dparm(5)
    {0, 1},                 // 11 levels in an order of minimum degree
};

Outcome fault(int code, int argument) { return {error_input, code, argument, 0}; }

NorvPars parameters_of(const Call& call) {
  NorvPars pars;
  InitNorvPars(0, &pars);
  const View<double>& dparm = call.dparm;
  pars.maxiter = static_cast<int>(dparm(1));
  pars.epsilon = dparm(2);
  pars.min_level_size = static_cast<int>(dparm(3));
  pars.max_levels = static_cast<int>(dparm(4));
  pars.drop_tol = dparm(5);
  pars.schur_drop = std::min(dparm(5), dparm(6));
  pars.max_fill = static_cast<int>(dparm(7));
  pars.kappa = dparm(8);
  pars.non_improvement = static_cast<int>(dparm(9));
  pars.msglvl = call.msg;
  if (call.mtype == 11) {
    constexpr int bicgstab = 1, iluc = 9;
    pars.method = bicgstab;
    pars.precon = iluc;
  }
  return pars;
}

/// The class of an error of the inner direct solver.
int class_of_inner(int error) {
  switch (error) {
    case error_memory:
      return error_memory;
    case error_analysis:
    case error_matching:
    case error_overflow:
      return error_analysis;
    default:
      return error_numeric;
  }
}

Outcome outcome_of(const Fault& fault) {
  Outcome outcome;
  outcome.detail = fault.text;
  switch (fault.kind) {
    case FaultKind::memory:
      outcome.error = error_memory;
      outcome.code = at_iterative;
      outcome.bytes = fault.bytes;
      break;
    case FaultKind::options:
      outcome.error = error_input;
      outcome.code = code_refused;
      break;
    case FaultKind::direct:
      outcome.error = class_of_inner(fault.code);
      outcome.code = outcome.error == error_memory ? std::int64_t{at_iterative} : fault.code;
      break;
    case FaultKind::assertion:
      outcome.error = error_numeric;
      outcome.code = status_iterative;
      break;
  }
  return outcome;
}

/// The caller's pattern with base 0.
struct Pattern {
  explicit Pattern(const Call& call)
      : ia(static_cast<std::size_t>(call.n) + 1),
        ja(static_cast<std::size_t>(call.ia[call.n] - 1)) {
    const auto shift = [](int index) { return index - 1; };
    std::transform(call.ia, call.ia + call.n + 1, ia.begin(), shift);
    std::transform(call.ja, call.ja + ja.size(), ja.begin(), shift);
  }
  Vector<int> ia, ja;
};

/// Record over the pattern and the caller's values, which are only read.
class MatrixRecord {
 public:
  MatrixRecord(const Call& call, Pattern& pattern)
      : A_(smat_new_from(static_cast<unsigned>(call.n), static_cast<unsigned>(call.n),
                         pattern.ia.data(), pattern.ja.data(), const_cast<double*>(call.a),
                         call.mtype == 11                       ? NORV_REAL_UNSYM
                         : matrix_type(call.mtype).nvals() == 2 ? NORV_CPX_SYM
                                                                : NORV_REAL_SYM,
                         0)) {}
  ~MatrixRecord() { release_block(A_); }
  MatrixRecord(const MatrixRecord&) = delete;
  MatrixRecord& operator=(const MatrixRecord&) = delete;
  smat* get() const { return A_; }

 private:
  smat* A_;
};

/// One call on the handle: its parameters and what it has found so far.
struct Run {
  const Call& call;
  IterativeState& state;
  NorvPars pars;
  NorvInfo info{};
  int perturbed, positive, negative, nnz, iterations = 0;
  double relres;
  bool set_up = false;  ///< the preconditioner on the handle is whole

  explicit Run(const Call& c)
      : call(c),
        state(*state_of(c.pt)),
        pars(parameters_of(c)),
        perturbed(c.iparm(14)),
        positive(c.iparm(22)),
        negative(c.iparm(23)),
        nnz(c.iparm(18)),
        relres(c.dparm(34)),
        set_up(c.first_digit() == 3) {}

  /// Runs one phase of the library.
  int step(int phase, smat* A, smat* transpose, double* b, double* x, bool checked) {
    return iterative_phase(state.M,
                           {.pars = &pars,
                            .phase = phase,
                            .is_complex = A->is_complex,
                            .A = A,
                            .b = b,
                            .x = x,
                            .solution_in_b = call.iparm(6) == 1,
                            .expected_negative = call.iparm(48),
                            .transpose = transpose,
                            .checked = checked,
                            .second_drop = call.dparm(10),
                            .minimum_degree = call.dparm(11) != 0},
                           {&info, &perturbed, &positive, &negative, &nnz, &relres, &iterations});
  }

  /// Runs f on the matrix, as a call of the ledger; a fault in it becomes the outcome.
  template <class F>
  Outcome in_scope(Pattern& pattern, F f) {
    try {
      const CallScope scope(state.ledger, call.msg != 0 ? 2 : 0, call.iparm(3));
      const MatrixRecord A(call, pattern);
      return f(A.get());
    } catch (const Fault& fault) {
      state.ledger.release_call();
      pulse();  // the listener may have ended the direct solver inside
      return outcome_of(fault);
    } catch (...) {
      state.ledger.release_call();
      throw;
    }
  }
};

Outcome outcome_of_status(int status) {
  if (status == 0) return {};
  return {status, status, 0, 0};
}

/// Phases 11 to 23 up to the solve.
Outcome set_up(Run& run, Pattern& pattern) {
  const int phase = run.call.first_digit() == 1 ? 12 : 22;
  Outcome outcome = run.in_scope(pattern, [&](smat* A) {
    return outcome_of_status(run.step(phase, A, nullptr, nullptr, nullptr, false));
  });
  run.set_up = !outcome;
  return outcome;
}

/// First of the n values that is NaN or infinite, from 1; 0 for none.
int first_not_finite_of(const double* v, int n, int nvals) {
  const double* const end = v + std::ptrdiff_t{n} * nvals;
  const double* const at = std::find_if_not(v, end, [](double x) { return std::isfinite(x); });
  return at == end ? 0 : static_cast<int>((at - v) / nvals) + 1;
}

/// Solves for one right-hand side after the other; the first that fails ends it.
Outcome solve(Run& run, Pattern& pattern) {
  const Call& call = run.call;
  const int nvals = matrix_type(call.mtype).nvals();
  const std::ptrdiff_t length = std::ptrdiff_t{call.n} * nvals;
  double worst = 0;
  int iterations = 0;
  // Without x the work space for the solution is the library's.
  Vector<double> own(call.x == nullptr ? static_cast<std::size_t>(length) : 0);
  const auto solve_one = [&](int k, smat* A, smat* transpose) -> Outcome {
    double* const b = call.b + k * length;
    double* const x = call.x != nullptr ? call.x + k * length : own.data();
    if (const int place = first_not_finite_of(b, call.n, nvals)) {
      Outcome outcome{error_numeric, status_iterative, place, 0};
      outcome.detail = "the right-hand side has NaN or infinity in row " + std::to_string(place);
      return outcome;
    }
    const bool checked = k > 0 || call.first_digit() < 3;
    const int status = run.step(33, A, transpose, b, x, checked);
    iterations += run.iterations;
    worst = k == 0 ? run.relres : std::fmax(worst, run.relres);
    return outcome_of_status(status);
  };
  Outcome outcome = run.in_scope(pattern, [&](smat* A) {
    smat* const transpose =
        call.mtype == 11 && transpose_asked(call) ? smat_copy_trans(A) : nullptr;
    Outcome failed;
    for (int k = 0; k < call.nrhs && !failed; ++k) failed = solve_one(k, A, transpose);
    if (transpose != nullptr) smat_free(transpose);
    return failed;
  });
  call.dparm(34) = worst;
  call.dparm(35) = iterations;
  return outcome;
}

/// All that the call's phase asks for.
Outcome run_phases(Run& run) {
  const Call& call = run.call;
  const MeterScope metered(run.state.meter);
  Pattern pattern(call);
  Outcome outcome;
  const auto told = [](int phase, auto work) {
    PhaseProgress progress(phase, 0);
    Outcome result = work();
    if (!result) progress.finish();
    return result;
  };
  if (call.first_digit() < 3)
    outcome = told(call.first_digit() * 11, [&] { return set_up(run, pattern); });
  if (!outcome && call.last_digit() == 3 && call.nrhs > 0)
    outcome = told(33, [&] { return solve(run, pattern); });
  return outcome;
}

/// A handle whose setup failed holds nothing.
void drop_unfinished(Run& run) {
  if (run.set_up) return;
  run.state.ledger.release_all();
  run.state.M = nullptr;
}

}  // namespace

bool passes_by(const Call& call, bool empty) {
  return empty ? !is_work_phase(call.phase) : call.phase == 0 && has_preconditioner(call.pt);
}

Outcome check_iterative(const Call& call) {
  if (call.first_digit() > 1 && !has_preconditioner(call.pt)) return fault(code_no_analysis, 0);
  if (!covers_type(call.mtype)) return fault(code_no_iterative, 0);
  if (call.dparm.data() == nullptr) return fault(code_null, 17);
  if (call.a == nullptr) return fault(code_null, 7);
  if (call.ia == nullptr) return fault(code_null, 8);
  if (call.ja == nullptr) return fault(code_null, 9);
  for (int k = 1; k <= static_cast<int>(std::size(bounds)); ++k) {
    const auto [least, most] = bounds[k - 1];
    if (!(call.dparm(k) >= least && call.dparm(k) <= most)) return fault(code_dparm, k);
  }
  if (Outcome failed = test_pattern(call, 0)) return failed;
  const InputMatrix matrix = matrix_of(call);
  if (call.first_digit() == 2 && pattern_checksum(matrix) != control_of(call.pt).pattern)
    return fault(code_pattern, 0);
  const std::ptrdiff_t place = first_not_finite(matrix, matrix_type(call.mtype).nvals());
  if (place != 0) return {error_numeric, status_not_finite, static_cast<int>(place), 0};
  return {};
}

void destroy_iterative(void* state) {
  if (state == nullptr) return;
  auto* const held = static_cast<IterativeState*>(state);
  {
    const CallScope scope(held->ledger, 0, 1);
    precon_free(held->M, -1);
  }
  held->~IterativeState();
}

Outcome run_iterative(const Call& call) {
  Control& control = control_of(call.pt);
  if (state_of(call.pt) == nullptr) {
    void* const block = allocate(sizeof(IterativeState), at_iterative);
    slot(call.pt, slot_iterative) = new (block) IterativeState;
  }
  if (call.first_digit() == 1) control.pattern = pattern_checksum(matrix_of(call));
  const ThreadGuard team(call.iparm(3));
  Run run(call);
  Outcome outcome;
  try {
    outcome = run_phases(run);
  } catch (...) {
    drop_unfinished(run);
    throw;
  }
  drop_unfinished(run);
  call.iparm(14) = run.perturbed;
  call.iparm(22) = run.positive;
  call.iparm(23) = run.negative;
  call.iparm(18) = run.nnz;
  const Ledger& ledger = run.state.ledger;
  const MemoryMeter& meter = run.state.meter;
  const auto held = [](std::int64_t bytes) {
    return kilobytes(static_cast<std::size_t>(std::max<std::int64_t>(bytes, 0)));
  };
  control.memory = {.peak = held(ledger.peak_bytes() + meter.peak()),
                    .permanent = kilobytes(sizeof(IterativeState)),
                    .numeric = held(ledger.bytes() + meter.now())};
  publish_records(run.pars, run.info);
  return outcome;
}

}  // namespace vlm
