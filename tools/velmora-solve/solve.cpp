// SPDX-License-Identifier: BSD-3-Clause
#include "solve.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include "pictures.hpp"
#include "replay.hpp"
#include "session.hpp"
#include "types.hpp"

namespace tool {
namespace {

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

struct Rhs {
  std::vector<double> b;
  bool solution_is_ones = false;
};

/// The matrix from its file; `dumped_rhs` receives the right-hand side of a dump that has one.
SparseMatrix read_matrix(const Options& options, Report& report, std::vector<double>& dumped_rhs) {
  if (!options.replay.empty()) {
    Dump dump = read_dump(options.replay, options.type);
    report.file = options.replay;
    report.described = dump.matrix.complex ? "complex, from a dump" : "real, from a dump";
    if (dump.assumed_triangle) {
      report.notes.push_back(
          "the dump is taken as the upper triangle of a symmetric matrix; --type unsym or "
          "complex-unsym if it is a triangular one");
    }
    dumped_rhs = std::move(dump.rhs);
    return std::move(dump.matrix);
  }
  report.file = options.matrix;
  MarketFile file = read_market(options.matrix);
  report.described = fmt::format("{} {}{}", name(file.field), name(file.symmetry),
                                 file.layout == Layout::array ? " array" : "");
  BuildNotes notes;
  SparseMatrix matrix = build_matrix(std::move(file), notes);
  if (notes.duplicates > 0) {
    report.notes.push_back(fmt::format("{} duplicate entries summed", notes.duplicates));
  }
  if (notes.dropped_imaginary) {
    report.notes.emplace_back("all imaginary parts are zero: taken as real");
  }
  return matrix;
}

/// Right-hand sides from a file, fitted to the kind of the matrix.
std::vector<double> read_rhs(const std::string& path, const SparseMatrix& matrix, int& nrhs) {
  DenseColumns columns = read_columns(path);
  if (columns.rows != matrix.n && columns.cols == 1 && columns.rows % matrix.n == 0) {
    columns.cols = columns.rows / matrix.n;  // plain numbers, column after column
    columns.rows = matrix.n;
  }
  if (columns.rows != matrix.n) {
    throw InputError(fmt::format("{} has {} rows, the matrix {}", path, columns.rows, matrix.n));
  }
  if (columns.complex && !matrix.complex) {
    throw InputError(
        fmt::format("{} is complex, the matrix real; a complex --type takes both", path));
  }
  if (!columns.complex && matrix.complex) {
    std::vector<double> pairs(2 * columns.value.size(), 0.0);
    for (std::size_t k = 0; k < columns.value.size(); ++k) pairs[2 * k] = columns.value[k];
    columns.value = std::move(pairs);
  }
  nrhs = columns.cols;
  return std::move(columns.value);
}

Rhs make_rhs(const Options& options, const SparseMatrix& matrix, std::vector<double>&& dumped,
             Report& report) {
  report.nrhs = options.nrhs;
  if (!options.rhs.empty()) {
    report.rhs = options.rhs;
    return {read_rhs(options.rhs, matrix, report.nrhs), false};
  }
  if (!dumped.empty()) {
    report.rhs = "of the dump";
    report.nrhs = 1;
    return {std::move(dumped), false};
  }
  const std::size_t doubles = matrix.complex ? 2 : 1;
  const std::size_t column = static_cast<std::size_t>(matrix.n) * doubles;
  const auto count = static_cast<std::size_t>(options.nrhs);
  std::vector<double> b;
  b.reserve(column * count);
  std::vector<double> ones(column, 0.0);
  for (std::size_t k = 0; k < column; k += doubles) ones[k] = 1;
  if (options.rhs_kind == RhsKind::random) {
    report.rhs = fmt::format("random, seed {}", options.seed);
    std::mt19937_64 bits(options.seed);
    while (b.size() < column * count) b.push_back(static_cast<double>(bits() >> 10) * 0x1p-53 - 1);
    return {std::move(b), false};
  }
  const bool sums = options.rhs_kind == RhsKind::row_sums;
  report.rhs = sums ? "row sums" : "ones";
  const std::vector<double> one =
      sums ? multiply(matrix, options.settings.transposed, ones) : std::move(ones);
  for (std::size_t k = 0; k < count; ++k) b.insert(b.end(), one.begin(), one.end());
  return {std::move(b), sums};
}

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

/// How hard a symmetric indefinite or unsymmetric matrix is taken.
enum class Effort {
  defaults,       ///< of the library, with the user's settings
  bunch_kaufman,  ///< 2x2 pivots
  robust,         ///< matching and scaling as well
  unmatched,      ///< neither matching nor scaling
  lenient         ///< larger perturbations, which refinement undoes
};

/// What is tried.
struct Attempt {
  int mtype = 0;
  Effort effort = Effort::defaults;
};

enum class Outcome {
  solved,
  inaccurate,
  no_factor,  ///< this factorization does not suit the matrix; another may
  error       ///< nothing else will do better
};

const char* describe(Effort effort) {
  constexpr const char* words[] = {
      "default settings", "Bunch-Kaufman pivoting", "matching, scaling and Bunch-Kaufman pivoting",
      "neither matching nor scaling", "larger perturbations and more refinement"};
  return words[static_cast<int>(effort)];
}

/// True when the user leaves pivoting and matching to the program.
bool free_to_choose(const Settings& settings) {
  return !settings.pivoting && !settings.matching && !settings.scaling && !settings.robust &&
         !settings.iterative;
}

/// What follows an attempt that did not solve the system.
std::optional<Attempt> next_attempt(const Options& options, const Attempt& failed,
                                    Outcome outcome) {
  if (outcome == Outcome::error) return std::nullopt;
  if (!options.type) {
    // A Cholesky factor that exists is as good as any other of the same matrix.
    const bool cholesky = failed.mtype == 2 || failed.mtype == 4;
    if (cholesky && outcome == Outcome::no_factor) return Attempt{-failed.mtype};
    if (failed.mtype == 1 || failed.mtype == 3) return Attempt{failed.mtype + 10};
  }
  if (!free_to_choose(options.settings)) return std::nullopt;
  const bool indefinite = failed.mtype == -2;
  const bool unsymmetric = failed.mtype == 11 || failed.mtype == 13;
  if (!indefinite && !unsymmetric) return std::nullopt;
  const auto with = [&](Effort effort) { return Attempt{failed.mtype, effort}; };
  switch (failed.effort) {
    case Effort::defaults:
      // On a matrix close to singular the matching may lead to more zero pivots than it avoids.
      return with(indefinite ? Effort::bunch_kaufman : Effort::unmatched);
    case Effort::bunch_kaufman:
      return with(Effort::robust);
    case Effort::robust:
    case Effort::unmatched:
      return with(Effort::lenient);
    case Effort::lenient:
      return std::nullopt;
  }
  return std::nullopt;
}

/// The user's settings, with what an attempt changes in them.
Settings settings_of(const Attempt& attempt, Settings settings) {
  switch (attempt.effort) {
    case Effort::defaults:
      break;
    case Effort::bunch_kaufman:
      settings.pivoting = 1;
      break;
    case Effort::robust:
      settings.robust = true;
      break;
    case Effort::unmatched:
      settings.matching = settings.scaling = 0;
      break;
    case Effort::lenient:
      settings.robust = true;
      if (!settings.perturbation) settings.perturbation = 6;
      if (!settings.refinement) settings.refinement = 50;
      break;
  }
  return settings;
}

class Solver {
 public:
  Solver(const Options& options, const Printer& printer, Report& report, SparseMatrix& matrix,
         const Rhs& rhs)
      : options_(options), printer_(printer), report_(report), matrix_(matrix), rhs_(rhs) {}

  /// Runs one attempt; `failure` receives why it did not solve the system.
  Outcome run(const Attempt& attempt, std::string& failure) {
    const Settings settings = settings_of(attempt, options_.settings);
    Session session(matrix_, attempt.mtype, settings, options_.msglvl > 0 && !options_.quiet);
    session.set_rhs(rhs_.b, report_.nrhs);
    Factor factor;
    factor.mtype = attempt.mtype;
    factor.robust = settings.robust;
    try {
      factor_and_solve(session, factor);
    } catch (const PhaseFailed& failed) {
      failure = failed.what();
      return failed.other_factor_may_do ? Outcome::no_factor : Outcome::error;
    }
    judge(session, factor);
    failure = verdict(factor);
    const Outcome outcome = failure.empty() ? Outcome::solved : Outcome::inaccurate;
    // A later attempt replaces an earlier one only when it is better.
    if (report_.factor && !(shortfall(factor.residual) < shortfall(report_.factor->residual))) {
      return outcome;
    }
    report_.factor = std::move(factor);
    if (rhs_.solution_is_ones) {
      report_.solution_error = distance_from_ones(session.x(), matrix_.complex);
    }
    solution_ = session.x();
    order_ = session.order();
    if (!options_.convergence.empty()) trace_refinement(session);
    if (outcome == Outcome::solved) invert(session);
    return outcome;
  }

  const std::vector<double>& solution() const { return solution_; }
  /// Values of the inverse in the layout of the matrix; empty unless wanted, and solved.
  const std::vector<double>& inverse() const { return inverse_; }
  const std::vector<int>& order() const { return order_; }
  const std::vector<RefinementPoint>& refinement() const { return refinement_; }

 private:
  /// A call of the library that ended with an error, explained.
  struct PhaseFailed : std::runtime_error {
    PhaseFailed(const std::string& what, bool hope)
        : std::runtime_error(what), other_factor_may_do(hope) {}
    bool other_factor_may_do;
  };

  static Call step(Session& session, Phase phase, int mtype) {
    Call call = session.run(phase);
    const bool numeric = call.error == -4 || call.error == -6;
    if (call.error != 0) throw PhaseFailed(explain(call, phase, mtype), numeric && !call.diagonal);
    return call;
  }

  void factor_and_solve(Session& session, Factor& factor) {
    Call call = step(session, Phase::analysis, factor.mtype);
    factor.analysis_seconds = call.seconds;
    factor.threads = session.iparm(3);
    factor.nonzeros = nonzeros_of(session.iparm(18));
    factor.gflop = session.iparm(19);
    printer_.line("analysis", fmt::format("{}   {} nonzeros in the factor, {}",
                                          seconds(call.seconds), factor.nonzeros,
                                          factor.gflop > 0 ? fmt::format("{} Gflop", factor.gflop)
                                                           : std::string("below 1 Gflop")));
    call = step(session, Phase::factorization, factor.mtype);
    factor.factorization_seconds = call.seconds;
    factor.perturbed = session.iparm(14);
    printer_.line("factorization",
                  fmt::format("{}   {} perturbed pivots, {} threads", seconds(call.seconds),
                              factor.perturbed, factor.threads));
    for (int k = 0; k < options_.refactor; ++k) {
      call = step(session, Phase::factorization, factor.mtype);
      factor.refactor_seconds.push_back(call.seconds);
    }
    for (int k = 0; k <= options_.resolve; ++k) {
      call = step(session, Phase::solution, factor.mtype);
      if (k == 0) {
        factor.solution_seconds = call.seconds;
      } else {
        factor.resolve_seconds.push_back(call.seconds);
      }
    }
    factor.warning = call.complaint;  // a solve reports success whatever its refinement did
    factor.refinement_steps = session.iparm(7);
    printer_.line("solution", fmt::format("{}   {} right-hand side{}, {} refinement step{}",
                                          seconds(factor.solution_seconds), report_.nrhs,
                                          report_.nrhs == 1 ? "" : "s", factor.refinement_steps,
                                          factor.refinement_steps == 1 ? "" : "s"));
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
    factor.memory_analysis_peak = session.iparm(15);
    factor.memory_analysis = session.iparm(16);
    factor.memory_factor = session.iparm(17);
    if (options_.settings.determinant) factor.log_determinant = session.dparm(33);
    factor.residual =
        residual(matrix_, options_.settings.transposed, report_.nrhs, rhs_.b, session.x());
  }

  /// How many times too large a residual is; at most 1 is good.  The componentwise measure must
  /// reach the square root of the tolerance only, but some such bound is needed: where a matrix is
  /// singular, x is so large that the normwise one is small whatever is left of an equation.
  double shortfall(const Residual& left) const {
    if (std::isnan(left.normwise) || std::isnan(left.componentwise) || options_.tolerance == 0) {
      return std::numeric_limits<double>::infinity();
    }
    return std::max(left.normwise / options_.tolerance,
                    left.componentwise / std::sqrt(options_.tolerance));
  }

  /// Why the residual is not acceptable, empty when it is.
  std::string verdict(const Factor& factor) const {
    if (shortfall(factor.residual) <= 1) return {};
    const std::string why = factor.warning.empty() ? "" : " (" + factor.warning + ")";
    if (factor.residual.normwise <= options_.tolerance) {
      return fmt::format(
          "componentwise residual {:.2e} is above {:.0e}: the matrix is singular to "
          "working precision, or badly scaled{}",
          factor.residual.componentwise, std::sqrt(options_.tolerance), why);
    }
    return fmt::format("residual {:.2e} is above the tolerance {:.0e}{}", factor.residual.normwise,
                       options_.tolerance, why);
  }

  const Options& options_;
  const Printer& printer_;
  Report& report_;
  SparseMatrix& matrix_;
  const Rhs& rhs_;
  std::vector<double> solution_, inverse_;
  std::vector<int> order_;
  std::vector<RefinementPoint> refinement_;
};

/// Chooses the type and says why.
void decide_type(const Options& options, const SparseMatrix& matrix, const Traits& traits,
                 Report& report) {
  report.type =
      options.type ? TypeChoice{*options.type, "as asked for"} : choose_type(matrix, traits);
}

/// Runs attempts until one solves the system or none is left.
///  empty, or why the best of them failed
std::string solve(const Options& options, const Traits& traits, const Printer& printer,
                  SparseMatrix& matrix, Solver& solver, Report& report) {
  Attempt attempt{report.type.mtype};
  // Diagonal pivots are hopeless where the diagonal has zeros.
  if (attempt.mtype == -2 && traits.zero_diagonal > 0 && free_to_choose(options.settings)) {
    attempt.effort = Effort::bunch_kaufman;
    printer.line("settings",
                 fmt::format("{}, for the zeros on the diagonal", describe(attempt.effort)));
  }
  std::string best;
  for (;;) {
    std::string failure;
    const Outcome outcome = solver.run(attempt, failure);
    if (outcome == Outcome::solved) return {};
    if (best.empty() || outcome == Outcome::inaccurate) best = failure;
    const auto next = next_attempt(options, attempt, outcome);
    if (next) {
      failure += fmt::format("; now as {}, {}", label(next->mtype), describe(next->effort));
    } else if (failure == best) {
      return best;
    }
    report.notes.push_back(failure);
    printer.line("note", failure);
    if (!next) return best;
    attempt = *next;
    report.type.mtype = attempt.mtype;
    convert(matrix, traits, attempt.mtype);
  }
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
  decide_type(options, matrix, traits, report);
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

  const bool unsymmetric = report.type.mtype == 11 || report.type.mtype == 13;
  if (!options.spy.empty() && unsymmetric && options.settings.matching.value_or(1) != 0) {
    throw InputError(
        "--spy of an unsymmetric matrix needs --matching 0: the rows that the matching exchanges "
        "are not known outside of the library");
  }
  Solver solver(options, printer, report, matrix, rhs);
  report.failure = solve(options, traits, printer, matrix, solver, report);
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
    draw_convergence(options.convergence, title, solver.refinement());
    printer.line("drawn", options.convergence);
  }
}

}  // namespace tool
