// SPDX-License-Identifier: BSD-3-Clause
/// Defaults, acceptance of a call's options, and the records of the stages; see options.hpp.
#include "driver/options.hpp"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "NORV/corelib/base.hpp"
#include "base/thread_guard.hpp"

namespace vlm {
namespace {

/// Orders below which an analysis is not worth dividing among threads.
constexpr int undivided_order = 200;
/// Wider panels than there is memory for, within what arithmetic on them can hold.
constexpr int widest_panel = 1 << 20;
constexpr int most = std::numeric_limits<int>::max();

void set_by_type(const TypeDefaults& defaults, View<int> iparm) {
  iparm(8) = defaults.refinement;
  iparm(10) = defaults.perturbation;
  iparm(11) = defaults.scaling;
  iparm(13) = defaults.matching;
  iparm(21) = defaults.pivoting;
}

/// Options that are read in every call.
void accept_options(const Call& call, Options& options) {
  const View<int>& iparm = call.iparm;
  options.transpose = transpose_asked(call);
  options.partial = iparm(31);
  options.factor_domains = options.partial == 0 && iparm(24) != 0;
  options.solve_domains = options.partial == 0 && iparm(25) != 0;
  options.single = options.type->single && iparm(29) != 0;
  if (iparm(51) == 0) iparm(52) = 1;
  if (iparm(51) == 1) iparm(51) = 2;
  if (options.threads == 1 && iparm(52) == 1) iparm(51) = 0;
  options.nodes = std::max(iparm(52), 1);
  if (iparm(51) == 1 || iparm(51) == 2) {
    options.factor_domains = options.solve_domains = true;
    options.partial = 0;
    options.single = false;
  }
  options.fixed_order = iparm(2) > 1 && iparm(24) == 1 && iparm(25) == 1 && iparm(34) != 0;
  options.logdet = iparm(33) == 1;
  options.stabilised = stabilised_option(iparm(4));
}

/// Options that decide the structure.
void accept_analysis_options(const Call& call, Options& options) {
  const View<int>& iparm = call.iparm;
  const MatrixType& type = *options.type;
  options.symmetric = type.symmetric;
  options.matching = matching_asked(call) ? iparm(13) : 0;
  const bool scaled = iparm(11) == 1 || (iparm(11) == 2 && iparm(30) > 0);
  options.scaled = options.matching > 0 && scaled;
  options.schur = schur_asked(call);
  options.order =
      iparm(2) < 0 || iparm(2) > 2 ? OrderMethod::dissection : static_cast<OrderMethod>(iparm(2));
  options.user_order = iparm(5) > 0;
  const bool crowded = options.threads > 4;
  options.panel = type.symmetric ? (crowded ? 64 : 80) : (crowded ? 112 : 128);
  if (iparm(30) > 1) options.panel = std::min(iparm(30), widest_panel);
}

}  // namespace

void initial_settings(int mtype, int solver, View<int> iparm, double* dparm) {
  iparm(1) = 1;
  iparm(2) = 2;
  std::fill(iparm.at(4), iparm.end(), 0);
  if (solver == 10 || solver == 11) iparm(35) = 10;
  iparm(18) = iparm(19) = -1;
  iparm(24) = iparm(25) = 1;
  set_by_type(matrix_type(mtype).initial, iparm);

  const bool iterative = solver == 1 || solver == 11;
  if (iterative && (mtype == -2 || mtype == 6 || mtype == 11)) {
    constexpr double limits[] = {300, 1e-6, 5000, 10, 0.01, 0.005, 10, 500, 25};
    iparm(32) = 1;
    empty_log();  // where it can't be made, standard error takes over when there is a message
    std::fill_n(dparm, 64, 0.0);
    std::ranges::copy(limits, dparm);
  }
}

void load_defaults(int mtype, View<int> iparm) {
  if (iparm(1) != 0) return;
  iparm(2) = 2;
  for (int i = 4; i <= 14; ++i) iparm(i) = 0;
  iparm(18) = iparm(19) = -1;
  for (int i = 20; i <= 23; ++i) iparm(i) = 0;
  for (const int i : {24, 25, 28, 29, 31, 33, 38, 50, 51}) iparm(i) = 0;
  iparm(52) = 1;
  set_by_type(matrix_type(mtype).plain, iparm);
}

bool transpose_asked(const Call& call) {
  return call.iparm(12) == 1 || call.iparm(12) == diagonal_transposed;
}

bool stabilised_asked(const Call& call) { return call.iparm(1) != 0 && call.iparm(4) % 10 != 0; }

bool matching_asked(const Call& call) {
  return matrix_type(call.mtype).matched && call.iparm(13) > 0;
}

int schur_asked(const Call& call) {
  const int leading = call.iparm(38);
  return leading >= 1 && leading < call.n ? call.n - leading : 0;
}

Options accept_input(const Call& call, const Options& before) {
  Options options = before;
  const bool analyses = call.first_digit() == 1;
  options.mtype = call.mtype;
  options.type = &matrix_type(call.mtype);
  options.n = call.n;
  if (call.first_digit() < 3) options.nnz = call.ia[call.n] - 1;
  options.nrhs = call.nrhs;
  options.maxfct = call.maxfct;
  options.threads = affordable_threads(call.iparm(3));
  // With iparm(1) 0 the options stay those of the analysis, which set the defaults.
  if (analyses || call.iparm(1) != 0) accept_options(call, options);
  if (analyses) accept_analysis_options(call, options);
  if (options.symmetric) options.transpose = false;
  options.solution_in_b = call.iparm(6) == 1;
  options.solve_steps = call.iparm(26);
  options.refinement = std::max(call.iparm(8), -most);  // both have an absolute value
  options.perturbation = std::max(call.iparm(10), -most);
  options.pairs = call.iparm(21) != 0;
  return options;
}

int count_domains(const Options& options) {
  if (options.n < undivided_order) return 1;
  return std::min(options.threads, options.n);
}

OrderOptions order_options(const Options& options) {
  return {.method = options.order,
          .symmetric = options.symmetric,
          .threads = options.threads,
          .domains = options.partial != 0 ? 1 : count_domains(options),
          .schur = options.schur,
          .operation_cost = (options.symmetric ? 1.0 : 2.0) * (options.type->complex ? 4.0 : 1.0)};
}

SymbolicOptions symbolic_options(const Options& options) {
  return {.symmetric = options.symmetric,
          .complex = options.type->complex,
          .panel = options.panel,
          .threads = options.threads,
          .use_domains = options.factor_domains};
}

FactorOptions factor_options(const Options& options) {
  return {.type = *options.type,
          .single = options.single,
          .pairs = options.pairs,
          .perturbation = options.perturbation,
          .fixed_order = options.fixed_order,
          .logdet = options.logdet,
          .schur = options.schur,
          .threads = options.threads};
}

SolveOptions solve_options(const Options& options) {
  return {.type = *options.type,
          .single = options.single,
          .transpose = options.transpose,
          .steps = options.solve_steps,
          .partial = options.partial != 0,
          .schur = options.schur,
          .threads = options.threads,
          .use_domains = options.solve_domains};
}

SchurOptions schur_options(const Options& options) {
  return {.schur = options.schur,
          .symmetric = options.type->symmetric,
          .hermitian = options.type->hermitian,
          .complex = options.type->complex,
          .single = options.single};
}

RefineOptions refine_options(const Options& options, const Call& call, int perturbed) {
  const bool due = (perturbed > 0 || options.refinement != 0) && options.solve_steps == 0 &&
                   options.partial == 0 && call.iparm(34) == 0;
  return {.type = *options.type,
          .transpose = options.transpose,
          .due = due,
          .limit = options.refinement,
          .to_the_end = accuracy_asked(call),
          .solution_in_b = options.solution_in_b,
          .schur = options.schur,
          .threads = options.threads};
}

StabiliseOptions stabilise_options(const Options& options) {
  const MatrixType& type = *options.type;
  return {.type = type,
          .transpose = options.transpose,
          .conjugate_gradients = std::abs(options.stabilised.k) == 2 && type.symmetric,
          .tolerance = options.stabilised.tolerance,
          .threads = options.threads};
}

AccuracyOptions accuracy_options(const Options& options, const Call& call) {
  const bool complete = options.solve_steps == 0 && options.partial == 0 && options.schur == 0;
  return {.type = *options.type,
          .transpose = options.transpose,
          .level = complete ? std::clamp(call.iparm(40), call.iparm(42) == 1 ? 1 : 0, 2) : 0,
          .solution_in_b = options.solution_in_b,
          .threads = options.threads};
}

bool accuracy_asked(const Call& call) { return call.iparm(40) > 0 || call.iparm(42) == 1; }

void forget_accuracy(const Call& call) {
  if (!accuracy_asked(call) || call.phase < 1 || call.last_digit() != 3) return;
  call.iparm(41) = verdict_none;
  if (call.iparm(42) == 1) call.iparm(43) = 0;
  if (call.dparm.data() != nullptr) std::fill_n(call.dparm.at(40), 4, 0.0);
}

}  // namespace vlm
