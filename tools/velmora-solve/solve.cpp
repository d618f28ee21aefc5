// SPDX-License-Identifier: BSD-3-Clause
#include "solve.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <map>
#include <memory>

#include "chosen.hpp"
#include "iterate.hpp"
#include "near_singular.hpp"
#include "pictures.hpp"
#include "problem.hpp"
#include "progress.hpp"
#include "session.hpp"
#include "types.hpp"

namespace tool {
namespace {

struct Stopwatch {
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
};

/// Largest distance of the entries of x from one.
double distance_from_ones(const std::vector<double>& x, bool complex) {
  double most = 0;
  const std::size_t doubles = complex ? 2 : 1;
  for (std::size_t k = 0; k < x.size(); k += doubles) {
    const double off = std::hypot(x[k] - 1, complex ? x[k + 1] : 0.0);
    if (!std::isnan(most) && !(off <= most)) most = off;
  }
  return most;
}

/// The number of nonzeros as iparm(18) tells it: thousands, negative, where it is too large.
std::int64_t nonzeros_of(int told) { return told < 0 ? std::int64_t{-1000} * told : told; }

/// What the library did for the solution, by the rung that it tells.
const char* describe_rung(int rung) {
  constexpr const char* words[] = {"",
                                   "refinement of every row",
                                   "Krylov refinement",
                                   "a new factor, in double precision",
                                   "a factor with matching, scaling and a small perturbation",
                                   "a factor without matching",
                                   "a factor in another order",
                                   "a factor as an unsymmetric matrix",
                                   "a factor with free pivots",
                                   "a factor with a large perturbation, and many Krylov steps"};
  return rung >= 0 && rung < static_cast<int>(std::size(words)) ? words[rung] : "";
}

/// True when the user leaves pivoting and matching to the program.
bool free_to_choose(const Settings& settings) {
  return !settings.pivoting && !settings.matching && !settings.scaling && !settings.robust &&
         !settings.iterative;
}

class Solver {
 public:
  Solver(const Options& options, const Printer& printer, Report& report, SparseMatrix& matrix,
         const Rhs& rhs, const Settings& settings)
      : options_(options),
        printer_(printer),
        report_(report),
        matrix_(matrix),
        rhs_(rhs),
        settings_(settings) {}

  /// A Cholesky factorization found that the matrix is not definite.
  struct NotDefinite : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  /// Solves the system as the type of the report.  @return empty, or why it is not solved
  std::string run() {
    const int mtype = report_.type.mtype;
    if (settings_.names_pair()) return run_chosen();
    Session session(matrix_, mtype, settings_, options_.msglvl > 0 && !options_.quiet);
    session.set_rhs(rhs_.b, report_.nrhs);
    Factor factor;
    factor.mtype = mtype;
    factor.robust = settings_.robust;
    try {
      factor_and_solve(session, factor);
    } catch (const PhaseFailed& failed) {
      return failed.what();
    }
    judge(session, factor);
    report_.factor = std::move(factor);
    const std::string failure = verdict(*report_.factor);
    report_.factor->near_singular = has_inertia(mtype) &&
                                    (report_.factor->doubtful > 0 || !failure.empty()) &&
                                    is_near_singular(matrix_, mtype, settings_.threads);
    if (rhs_.solution_is_ones && failure.empty()) {
      report_.solution_error = distance_from_ones(session.x(), matrix_.complex);
    }
    solution_ = session.x();
    order_ = session.order();
    if (!options_.convergence.empty() && !options_.settings.iterative) trace_refinement(session);
    if (failure.empty()) invert(session);
    return failure;
  }

  const std::vector<double>& solution() const { return solution_; }
  /// Values of the inverse in the layout of the matrix; empty unless wanted, and solved.
  const std::vector<double>& inverse() const { return inverse_; }
  const std::vector<int>& order() const { return order_; }
  const std::vector<RefinementPoint>& refinement() const { return refinement_; }

 private:
  /// The same with the method and the preconditioner that the user names.
  std::string run_chosen() {
    Factor factor;
    factor.mtype = report_.type.mtype;
    const std::string why =
        solve_as_chosen(options_, printer_, matrix_, rhs_.b, report_.nrhs, factor, solution_);
    if (!why.empty()) return why;
    factor.residual =
        residual(matrix_, options_.settings.transposed, report_.nrhs, rhs_.b, solution_);
    report_.factor = std::move(factor);
    const std::string failure = verdict(*report_.factor);
    if (rhs_.solution_is_ones && failure.empty())
      report_.solution_error = distance_from_ones(solution_, matrix_.complex);
    return failure;
  }

  /// A call of the library that ended with an error, explained.
  struct PhaseFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
  };

  static Call step(Session& session, Phase phase, int mtype) {
    Call call = session.run(phase);
    if (call.error == 0) return call;
    const bool cholesky = mtype == 2 || mtype == 4;
    if (cholesky && call.error == -4 && phase == Phase::factorization && !call.diagonal)
      throw NotDefinite(explain(call, phase, mtype));
    throw PhaseFailed(explain(call, phase, mtype));
  }

  /// Factors; false where a pivot was zero, with which the solve can deal.
  bool factorize(Session& session, Factor& factor) {
    const bool cholesky = factor.mtype == 2 || factor.mtype == 4;
    Call call = session.run(Phase::factorization);
    factor.factorization_seconds = call.seconds;
    if (call.error == -4 && !cholesky && !call.diagonal) {
      const std::string note = explain(call, Phase::factorization, factor.mtype);
      report_.notes.push_back(note);
      printer_.line("note", note);
      return false;
    }
    if (call.error != 0) {
      if (cholesky && call.error == -4 && !call.diagonal)
        throw NotDefinite(explain(call, Phase::factorization, factor.mtype));
      throw PhaseFailed(explain(call, Phase::factorization, factor.mtype));
    }
    factor.perturbed = session.iparm(14);
    printer_.line("factorization",
                  fmt::format("{}   {} perturbed pivots, {} threads", seconds(call.seconds),
                              factor.perturbed, factor.threads));
    for (int k = 0; k < options_.refactor; ++k) {
      call = step(session, Phase::factorization, factor.mtype);
      factor.refactor_seconds.push_back(call.seconds);
    }
    return true;
  }

  void factor_and_solve(Session& session, Factor& factor) {
    if (options_.settings.iterative) {
      const auto why =
          set_up_and_iterate(session, options_, printer_, rhs_.b, report_.nrhs, factor);
      return why.empty() ? void() : throw PhaseFailed(why);
    }
    const Call call = step(session, Phase::analysis, factor.mtype);
    factor.analysis_seconds = call.seconds;
    factor.threads = session.iparm(3);
    factor.nonzeros = nonzeros_of(session.iparm(18));
    factor.gflop = session.iparm(19);
    printer_.line(
        "analysis",
        fmt::format("{}   {} nonzeros in the factor, {}", seconds(call.seconds), factor.nonzeros,
                    factor.gflop > 0 ? fmt::format("{} Gflop", factor.gflop) : "below 1 Gflop"));
    if (!settings_.ignores_memory) printer_.line("room", require_memory(session.iparm(17)));
    if (factorize(session, factor)) time_solves(session, factor);
    solve_well(session, factor);
  }

  /// Solves as a program does that asks for nothing but the solution.
  void time_solves(Session& session, Factor& factor) {
    session.judge(false);
    for (int k = 0; k <= options_.resolve; ++k) {
      const Call call = step(session, Phase::solution, factor.mtype);
      if (k == 0) {
        factor.solution_seconds = call.seconds;
      } else {
        factor.resolve_seconds.push_back(call.seconds);
      }
    }
    factor.refinement_steps = session.iparm(7);
    printer_.line("solution", fmt::format("{}   {} right-hand side{}, {} refinement step{}",
                                          seconds(factor.solution_seconds), report_.nrhs,
                                          report_.nrhs == 1 ? "" : "s", factor.refinement_steps,
                                          factor.refinement_steps == 1 ? "" : "s"));
  }

  /// Solves again, measured, and as far as the library can go.
  void solve_well(Session& session, Factor& factor) {
    session.judge(true);
    const Call call = session.run(Phase::solution);
    session.judge(false);
    factor.accuracy_seconds = call.seconds;
    factor.verdict = call.diagonal ? -1 : session.iparm(41);
    factor.rung = call.diagonal ? 0 : session.iparm(43);
    if (call.error != 0 && factor.verdict != 2)
      throw PhaseFailed(explain(call, Phase::solution, factor.mtype));
    factor.warning = call.error != 0 ? std::string() : call.complaint;
    factor.condition = session.dparm(42);
    factor.error_bound = session.dparm(43);
    if (factor.verdict < 0) return;
    printer_.line("accuracy", fmt::format("{}   {}", seconds(call.seconds), in_words(factor)));
  }

  static std::string in_words(const Factor& factor) {
    constexpr const char* verdicts[] = {"good", "solution of a nearby system", "useless"};
    std::string text = fmt::format("verdict {}: {}", factor.verdict, verdicts[factor.verdict]);
    if (factor.error_bound > 0) text += fmt::format(", error at most {:.1e}", factor.error_bound);
    if (factor.condition > 0) text += fmt::format(", condition {:.1e}", factor.condition);
    if (factor.rung > 0) text += fmt::format("; by {}", describe_rung(factor.rung));
    return text;
  }

  /// Solves with more and more steps allowed.  A solve may take fewer, and where pivots were
  /// perturbed it takes two when it is allowed none.
  void trace_refinement(Session& session) {
    constexpr int most = 10;
    std::map<int, Residual> after;
    for (int limit = 0; limit <= most; ++limit) {
      session.limit_refinement(limit);
      step(session, Phase::solution, report_.factor->mtype);
      after[session.iparm(7)] =
          residual(matrix_, options_.settings.transposed, report_.nrhs, rhs_.b, session.x());
    }
    refinement_.clear();
    for (const auto& [steps, worst] : after) refinement_.push_back({steps, worst});
  }

  /// Where entries of the inverse are wanted.
  void invert(Session& session) {
    if (options_.inverse.empty() && options_.inverse_diagonal.empty()) return;
    if (report_.factor->rung > 0) {
      throw InputError(
          "the inverse needs a factor that solves the system by itself: --robust, --perturb or "
          "another --type may give one");
    }
    const Call call = session.invert(inverse_);
    if (call.error != 0) {
      throw InputError(explain(call, Phase::inversion, report_.factor->mtype));
    }
    report_.factor->inversion_seconds = call.seconds;
    printer_.line("inverse",
                  fmt::format("{}   {} entries", seconds(call.seconds), matrix_.entries()));
  }

  void judge(const Session& session, Factor& factor) {
    factor.positive = session.iparm(22);
    factor.negative = session.iparm(23);
    factor.doubtful = session.iparm(44);
    factor.doubtful_positive = session.iparm(45);
    factor.memory_analysis_peak = session.iparm(15);
    factor.memory_analysis = session.iparm(16);
    factor.memory_factor = session.iparm(17);
    if (options_.settings.determinant) factor.log_determinant = session.dparm(33);
    factor.residual =
        residual(matrix_, options_.settings.transposed, report_.nrhs, rhs_.b, session.x());
  }

  /// Why the solution is not acceptable, empty when it is.  The library's verdict counts, beside
  /// the residual that this program forms itself.
  std::string verdict(const Factor& factor) const {
    const double usable = options_.settings.iterative ? std::sqrt(options_.tolerance) : 1e-10;
    const Residual& left = factor.residual;
    const std::string why = factor.warning.empty() ? "" : " (" + factor.warning + ")";
    if (!(left.normwise <= options_.tolerance) || options_.tolerance == 0) {
      return fmt::format("residual {:.2e} is above the tolerance {:.0e}{}", left.normwise,
                         options_.tolerance, why);
    }
    if (!(left.componentwise <= 1.1 * usable)) {
      return fmt::format(
          "componentwise residual {:.2e} is above {:.0e}: the matrix is singular to "
          "working precision, or badly scaled{}",
          left.componentwise, usable, why);
    }
    if (factor.verdict == 2 || std::isinf(factor.condition)) {
      return fmt::format(
          "the matrix is singular to working precision: x satisfies the equations "
          "(componentwise residual {:.2e}), but so do others{}",
          left.componentwise, why);
    }
    return {};
  }

  const Options& options_;
  const Printer& printer_;
  Report& report_;
  SparseMatrix& matrix_;
  const Rhs& rhs_;
  const Settings settings_;
  std::vector<double> solution_, inverse_;
  std::vector<int> order_;
  std::vector<RefinementPoint> refinement_;
};

/// Chooses the type and says why.
void decide_type(const Options& options, const SparseMatrix& matrix, Report& report) {
  report.type = options.type ? TypeChoice{*options.type, "as asked for"} : choose_type(matrix);
  if (options.settings.iterative && !options.type && report.type.mtype == 2)
    report.type = {-2, "symmetric, for the iterative solver"};
}

/// The user's settings, and pivots of a symmetric matrix that suit its diagonal.
Settings choose_settings(const Options& options, const Traits& traits, int mtype,
                         const Printer& printer) {
  Settings settings = options.settings;
  if (mtype == -2 && traits.zero_diagonal > 0 && free_to_choose(settings)) {
    settings.pivoting = 1;
    printer.line("settings", "Bunch-Kaufman pivoting, for the zeros on the diagonal");
  }
  return settings;
}

}  // namespace

void run(const Options& options, const Printer& printer, Report& report) {
  report.tolerance = options.tolerance;
  std::vector<double> dumped_rhs;
  Stopwatch reading;
  SparseMatrix matrix = read_matrix(options, report, dumped_rhs);
  report.n = matrix.n;
  report.entries = static_cast<std::int64_t>(matrix.entries());
  const Traits traits = examine(matrix);
  decide_type(options, matrix, report);
  const std::int64_t added = convert(matrix, traits, report.type.mtype);
  if (added > 0)
    report.notes.push_back(fmt::format("{} missing diagonal entries set to zero", added));
  report.read_seconds = reading.seconds();
  printer.line("matrix", fmt::format("{}: {} equations, {} entries, {}", report.file, report.n,
                                     report.entries, report.described));
  printer.line("type", fmt::format("{} ({}): {}", report.type.mtype, label(report.type.mtype),
                                   report.type.reason));
  for (const std::string& note : report.notes) printer.line("note", note);
  printer.line("read", seconds(report.read_seconds));

  const Rhs rhs = make_rhs(options, matrix, std::move(dumped_rhs), report);
  Stopwatch checking;
  const std::string found = check(matrix, report.type.mtype, rhs.b, report.nrhs);
  report.check_seconds = checking.seconds();
  if (!found.empty()) throw InputError(fmt::format("{}: {}", report.file, found));
  printer.line("check", seconds(report.check_seconds) + "   passed");
  printer.line("right side", report.rhs);
  if (options.check_only) return;
  for (const std::string& picture : {options.spy, options.convergence})
    if (!picture.empty()) check_picture(picture);

  const auto make_solver = [&] {
    return std::make_unique<Solver>(options, printer, report, matrix, rhs,
                                    choose_settings(options, traits, report.type.mtype, printer));
  };
  auto held = make_solver();
  try {
    report.failure = held->run();
  } catch (const Solver::NotDefinite& indefinite) {
    if (options.type) {
      report.failure = indefinite.what();
      return;
    }
    report.type = {-report.type.mtype, "Cholesky found that it is not definite"};
    convert(matrix, traits, report.type.mtype);
    const std::string note =
        fmt::format("{}; now as {}", indefinite.what(), label(report.type.mtype));
    report.notes.push_back(note);
    printer.line("note", note);
    held = make_solver();
    report.failure = held->run();
  }
  Solver& solver = *held;

  if (!report.factor) return;
  print_factor(printer, report);
  print_outcome(printer, report);
  if (!options.output.empty()) {
    write_columns(options.output, {report.n, report.nrhs, matrix.complex, solver.solution()});
    printer.line("written", options.output);
  }
  if (!options.inverse.empty() && !solver.inverse().empty()) {
    write_matrix(options.inverse, matrix, solver.inverse());
    printer.line("written", options.inverse);
  }
  if (!options.inverse_diagonal.empty() && !solver.inverse().empty()) {
    write_columns(options.inverse_diagonal,
                  {report.n, 1, matrix.complex, diagonal_of(matrix, solver.inverse())});
    printer.line("written", options.inverse_diagonal);
  }
  const std::string title =
      fmt::format("{}: {} equations, {}", report.file, report.n, label(report.factor->mtype));
  if (!options.spy.empty()) {
    draw_spy(options.spy, title, matrix, solver.order(), std::max(2, report.factor->threads));
    printer.line("drawn", options.spy);
  }
  if (!options.convergence.empty()) {
    options.settings.iterative ? draw_iterations(options.convergence, title, report.factor->history)
                               : draw_convergence(options.convergence, title, solver.refinement());
    printer.line("drawn", options.convergence);
  }
}

}  // namespace tool
