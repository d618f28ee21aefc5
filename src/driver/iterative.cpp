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

/// The caller's matrix with base 0, for the time of a scope.
class ShiftedMatrix {
 public:
  explicit ShiftedMatrix(const Call& call)
      : A_(smat_new(static_cast<unsigned>(call.n), static_cast<unsigned>(call.n),
                    call.mtype == 11                       ? NORV_REAL_UNSYM
                    : matrix_type(call.mtype).nvals() == 2 ? NORV_CPX_SYM
                                                           : NORV_REAL_SYM)) {
    const int nnz = call.ia[call.n] - 1;
    A_->nnz = static_cast<unsigned>(nnz);
    A_->ja = vlm::allocate<int>(static_cast<std::uint64_t>(nnz));
    const auto shift = [](int index) { return index - 1; };
    std::transform(call.ia, call.ia + call.n + 1, A_->ia, shift);
    std::transform(call.ja, call.ja + nnz, A_->ja, shift);
    A_->a = const_cast<double*>(call.a);  // read only
  }
  ~ShiftedMatrix() {
    A_->a = nullptr;
    smat_free(A_);
  }
  ShiftedMatrix(const ShiftedMatrix&) = delete;
  ShiftedMatrix& operator=(const ShiftedMatrix&) = delete;
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

  explicit Run(const Call& c)
      : call(c),
        state(*state_of(c.pt)),
        pars(parameters_of(c)),
        perturbed(c.iparm(14)),
        positive(c.iparm(22)),
        negative(c.iparm(23)),
        nnz(c.iparm(18)),
        relres(c.dparm(34)) {}

  /// Runs one phase of the library; a fault becomes the outcome, and what it took goes back.
  Outcome step(int phase, double* b, double* x) {
    int status = 0;
    try {
      const MeterScope metered(state.meter);
      const CallScope scope(state.ledger, call.msg != 0 ? 2 : 0, call.iparm(3));
      const ShiftedMatrix A(call);
      status =
          iterative_phase(state.M,
                          {.pars = &pars,
                           .phase = phase,
                           .is_complex = A.get()->is_complex,
                           .A = A.get(),
                           .b = b,
                           .x = x,
                           .solution_in_b = call.iparm(6) == 1,
                           .expected_negative = call.iparm(48),
                           .transposed = call.mtype == 11 && transpose_asked(call),
                           .second_drop = call.dparm(10)},
                          {&info, &perturbed, &positive, &negative, &nnz, &relres, &iterations});
    } catch (const Fault& fault) {
      state.ledger.release_call();
      pulse();  // the listener may have ended the direct solver inside
      return outcome_of(fault);
    } catch (...) {
      state.ledger.release_call();
      throw;
    }
    if (status == 0) return {};
    return {status, status, 0, 0};
  }
};

/// Phases 11 to 23 up to the solve.
Outcome set_up(Run& run) {
  const int phase = run.call.first_digit() == 1 ? 12 : 22;
  Outcome outcome;
  try {
    outcome = run.step(phase, nullptr, nullptr);
  } catch (...) {
    run.state.ledger.release_all();
    run.state.M = nullptr;
    throw;
  }
  if (outcome) {
    run.state.ledger.release_all();
    run.state.M = nullptr;
  }
  return outcome;
}

/// First of the n values that is NaN or infinite, from 1; 0 for none.
int first_not_finite_of(const double* v, int n, int nvals) {
  const double* const end = v + std::ptrdiff_t{n} * nvals;
  const double* const at = std::find_if_not(v, end, [](double x) { return std::isfinite(x); });
  return at == end ? 0 : static_cast<int>((at - v) / nvals) + 1;
}

/// Solves for one right-hand side after the other; the first that fails ends it.
Outcome solve(Run& run) {
  const Call& call = run.call;
  const int nvals = matrix_type(call.mtype).nvals();
  const std::ptrdiff_t length = std::ptrdiff_t{call.n} * nvals;
  double worst = 0;
  int iterations = 0;
  Outcome outcome;
  // Without x the work space for the solution is the library's.
  Vector<double> own(call.x == nullptr ? static_cast<std::size_t>(length) : 0);
  for (int k = 0; k < call.nrhs && !outcome; ++k) {
    double* const b = call.b + k * length;
    double* const x = call.x != nullptr ? call.x + k * length : own.data();
    if (const int place = first_not_finite_of(b, call.n, nvals)) {
      outcome = {error_numeric, status_iterative, place, 0};
      outcome.detail = "the right-hand side has NaN or infinity in row " + std::to_string(place);
      break;
    }
    outcome = run.step(33, b, x);
    iterations += run.iterations;
    worst = k == 0 ? run.relres : std::fmax(worst, run.relres);
  }
  call.dparm(34) = worst;
  call.dparm(35) = iterations;
  return outcome;
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
  const auto told = [](int phase, auto work) {
    PhaseProgress progress(phase, 0);
    Outcome result = work();
    if (!result) progress.finish();
    return result;
  };
  if (call.first_digit() < 3) outcome = told(call.first_digit() * 11, [&] { return set_up(run); });
  if (!outcome && call.last_digit() == 3 && call.nrhs > 0)
    outcome = told(33, [&] { return solve(run); });
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
