// SPDX-License-Identifier: BSD-3-Clause
#include "options.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <map>

#include "pairs.hpp"
#include "progress.hpp"
#include "types.hpp"
#include "velmora.h"

namespace tool {
namespace {

std::string footer() {
  std::string text =
      "Matrix types, by word or number (without --type the program finds the cheapest safe one):\n";
  for (const TypeInfo& type : types) {
    text += fmt::format("  {:<15}{:>3}   {}\n", type.word, type.mtype, type.label);
  }
  return text +
         "\nExit status: 0 solved with an acceptable residual; 1 not, with one line on standard "
         "error;\n"
         "2 wrong command line.\n";
}

/// A range without CLI11's own words for it in the help; an error still names the bounds.
template <typename Number>
CLI::Validator in_range(Number least, Number most) {
  return CLI::Range(least, most).description("");
}

/// "N=VALUE" into its parts; N from 1 to 64.
template <typename Value>
std::pair<int, Value> assignment(const std::string& option, const std::string& text) {
  const char* end = text.data() + text.size();
  int number = 0;
  Value value{};
  const auto [equals, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc() && equals != end && *equals == '=' && number >= 1 && number <= 64) {
    const auto [stop, value_error] = std::from_chars(equals + 1, end, value);
    if (value_error == std::errc() && stop == end) return {number, value};
  }
  throw CLI::ValidationError(option, "'" + text + "' is not N=VALUE with N from 1 to 64");
}

/// Entries that change what the arrays of a call mean, which this program could not follow.
void refuse_reserved(int number) {
  constexpr std::pair<int, const char*> reserved[] = {{3, "use --threads"},
                                                      {5, "the order is the program's"},
                                                      {6, "the solution must not overwrite b"},
                                                      {12, "use --transpose"},
                                                      {26, "only complete solves have a residual"},
                                                      {31, "only complete solves have a residual"},
                                                      {32, "use --iterative"},
                                                      {36, "the factor is not used again"},
                                                      {37, "the form is that of the matrix"},
                                                      {38, "a Schur complement needs a program"}};
  for (const auto& [entry, why] : reserved) {
    if (number == entry) {
      throw CLI::ValidationError("--iparm", fmt::format("iparm({}) cannot be set: {}", entry, why));
    }
  }
}

void add_system_options(CLI::App& app, Options& options) {
  const char* group = "System";
  app.add_option("matrix", options.matrix,
                 "Matrix Market file, also gzipped; - reads standard input");
  app.add_option("--replay", options.replay,
                 "Solve again from a dump of the library (FILE.iajaa) instead")
      ->type_name("FILE")
      ->group(group);
  app.add_option_function<std::string>(
         "--type",
         [&options](const std::string& word) {
           if (word == "auto") return;
           options.type = type_of(word);
           if (!options.type) throw CLI::ValidationError("--type", "unknown type '" + word + "'");
         },
         "Matrix type, see below; auto chooses")
      ->type_name("TYPE")
      ->group(group);
  auto* rhs =
      app.add_option("--rhs", options.rhs, "Right-hand sides: Matrix Market file, or plain numbers")
          ->type_name("FILE")
          ->group(group);
  const std::map<std::string, RhsKind> kinds = {
      {"row-sums", RhsKind::row_sums}, {"ones", RhsKind::ones}, {"random", RhsKind::random}};
  app.add_option("--rhs-kind", options.rhs_kind,
                 "Right-hand side without a file: row-sums (default; the solution is all ones), "
                 "ones, random")
      ->transform(CLI::CheckedTransformer(kinds).description(""))
      ->type_name("KIND")
      ->excludes(rhs)
      ->group(group);
  app.add_option("--nrhs", options.nrhs, "Number of such right-hand sides")
      ->check(in_range(1, 1000000))
      ->excludes(rhs)
      ->group(group);
  app.add_option("--seed", options.seed, "Seed of --rhs-kind random")
      ->capture_default_str()
      ->group(group);
  app.add_flag("--transpose", options.settings.transposed, "Solve with the transposed matrix")
      ->group(group);
  app.add_option("-o,--output", options.output,
                 "Write the solution, as a Matrix Market array; gzipped if FILE ends in .gz")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--inverse", options.inverse,
                 "Write the entries of the inverse on the pattern of A, as a Matrix Market file")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--inverse-diagonal", options.inverse_diagonal,
                 "Write the diagonal of the inverse, as a Matrix Market array")
      ->type_name("FILE")
      ->group(group);
}

/// The iterative method and the preconditioner by name.
void add_pair_options(CLI::App& app, Settings& settings, const char* group) {
  app.add_option_function<std::string>(
         "--method",
         [&settings](const std::string& name) {
           if (find_method(name) == nullptr)
             throw CLI::ValidationError("--method", "unknown method '" + name + "', see --list");
           settings.method = name;
         },
         "Iterative method by name, see --list (default: SQMR, or BICGSTAB where the matrix is not "
         "symmetric)")
      ->type_name("NAME")
      ->group(group);
  app.add_option_function<std::string>(
         "--preconditioner",
         [&settings](const std::string& text) {
           const std::string name = text.substr(0, text.find(':'));
           if (find_precon(name) == nullptr)
             throw CLI::ValidationError("--preconditioner",
                                        "unknown preconditioner '" + name + "', see --list");
           settings.preconditioner = text;
         },
         "Its preconditioner, with parameters as in SMAGGR:i0=3,d0=0.1 (default: none)")
      ->type_name("NAME")
      ->group(group);
  app.add_flag_callback(
         "--list",
         [] {
           fmt::print("{}", list_of_pairs());
           throw CLI::Success();
         },
         "List the methods and preconditioners")
      ->group(group);
}

void add_solver_options(CLI::App& app, Settings& settings) {
  const char* group = "Solver";
  app.add_option("-t,--threads", settings.threads, "Threads (default: as many as OpenMP gives)")
      ->check(in_range(1, 4096))
      ->group(group);
  app.add_option_function<std::string>(
         "--ordering",
         [&settings](const std::string& word) {
           settings.ordering = word == "mmd" ? 0 : word == "cmmd" ? 1 : 2;
           settings.parallel_ordering = word == "pnd";
         },
         "mmd minimum degree, cmmd the same constrained by a partition, nd nested dissection, "
         "pnd the same in parallel")
      ->check(CLI::IsMember({"mmd", "cmmd", "nd", "pnd"}).description(""))
      ->type_name("NAME")
      ->group(group);
  app.add_option("--pivoting", settings.pivoting,
                 "Pivots of symmetric indefinite types: diagonal, or bunch-kaufman (1x1 and 2x2)")
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, int>{{"diagonal", 0}, {"bunch-kaufman", 1}})
              .description(""))
      ->type_name("NAME")
      ->group(group);
  app.add_option("--perturb", settings.perturbation,
                 "Pivots below about 10^-E times the matrix are perturbed")
      ->check(in_range(0, 300))
      ->type_name("E")
      ->group(group);
  app.add_option(
         "--refine", settings.refinement,
         "Most steps of iterative refinement (default: 1 for definite types, else 10); -N is "
         "the same as N")
      ->check(in_range(-1000, 1000))
      ->type_name("N")
      ->group(group);
  app.add_option("--matching", settings.matching,
                 "Weighted matching: 0 off, 1 on, 2 with 2x2 pivots, 3 and 4 the same constrained")
      ->check(in_range(0, 4))
      ->type_name("M")
      ->group(group);
  app.add_option("--scaling", settings.scaling, "1 scale with the factors of the matching, 0 not")
      ->check(in_range(0, 2))
      ->type_name("S")
      ->group(group);
  app.add_flag("--robust", settings.robust,
               "For hard indefinite matrices: matching, scaling and Bunch-Kaufman together")
      ->group(group);
  app.add_flag("--single", settings.single_precision, "Factor in single precision")->group(group);
  app.add_flag("--determinant", settings.determinant, "Also give log |det A|")->group(group);
  app.add_flag("--iterative", settings.iterative,
               "Use the multilevel iterative solver, to a tenth of --tolerance; its limits "
               "are dparm(1) to dparm(9)")
      ->group(group);
  add_pair_options(app, settings, group);
  app.add_option_function<std::vector<std::string>>(
         "--iparm",
         [&settings](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             settings.iparm.push_back(assignment<int>("--iparm", text));
             refuse_reserved(settings.iparm.back().first);
           }
         },
         "Set iparm(N) of the library, after all other options; may be repeated")
      ->type_name("N=V")
      ->take_all()
      ->expected(1)
      ->group(group);
  app.add_option_function<std::vector<std::string>>(
         "--dparm",
         [&settings](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             settings.dparm.push_back(assignment<double>("--dparm", text));
           }
         },
         "Likewise dparm(N)")
      ->type_name("N=V")
      ->take_all()
      ->expected(1)
      ->group(group);
}

void add_run_options(CLI::App& app, Options& options) {
  const char* group = "Run and report";
  app.add_option("--refactor", options.refactor, "Factor again N times, and give the times")
      ->check(in_range(0, 100000))
      ->type_name("N")
      ->group(group);
  app.add_option("--resolve", options.resolve, "Solve again N times, and give the times")
      ->check(in_range(0, 100000))
      ->type_name("N")
      ->group(group);
  app.add_option("--tolerance", options.tolerance,
                 "Largest scaled residual max|r| / (|A| max|x| + max|b|) that counts as "
                 "solved, beside the library's own verdict")
      ->capture_default_str()
      ->check(in_range(0.0, 1.0))
      ->type_name("T")
      ->group(group);
  app.add_flag("--check", options.check_only, "Only read and check the matrix, and tell its type")
      ->group(group);
  app.add_option("--json", options.json, "Write the report as JSON, - to standard output")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--spy", options.spy,
                 "Draw the patterns of matrix and factor as PNG (needs gnuplot)")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--plot-convergence", options.convergence,
                 "Draw the residual over the steps of refinement, or over the iterations of "
                 "--iterative, as PNG (needs gnuplot)")
      ->type_name("FILE")
      ->group(group);
  app.add_flag("--ignore-memory", options.settings.ignores_memory,
               "Factor also where the machine has less memory left than that is forecast to take")
      ->group(group);
  app.add_flag("-q,--quiet", options.quiet, "Print nothing but errors")->group(group);
  app.add_option("--msglvl", options.msglvl, "1: show the library's own messages and report")
      ->check(in_range(0, 1))
      ->type_name("L")
      ->group(group);
}

}  // namespace

Parsed parse_options(int argc, char** argv) {
  Parsed parsed;
  Options& options = parsed.options;
  CLI::App app{"Solves a sparse system of linear equations A x = b from a file."};
  app.set_version_flag("--version", std::string("velmora-solve ") + velmora_version());
  app.footer(footer());
  add_system_options(app, options);
  add_solver_options(app, options.settings);
  add_run_options(app, options);
  try {
    app.parse(argc, argv);
    if (options.matrix.empty() == options.replay.empty()) {
      throw CLI::ValidationError("matrix", options.matrix.empty()
                                               ? "give a Matrix Market file, or --replay FILE"
                                               : "give either a matrix or --replay, not both");
    }
    if (options.settings.iterative && !options.spy.empty())
      throw CLI::ValidationError("--spy", "draws a factor that --iterative doesn't make");
    if (options.settings.names_pair() && !options.settings.iterative)
      throw CLI::ValidationError("--method and --preconditioner", "need --iterative");
    options.settings.draws = !options.quiet && options.msglvl == 0 && can_draw();
  } catch (const CLI::Success& done) {
    parsed.exit_status = app.exit(done);
  } catch (const CLI::ParseError& error) {
    fmt::print(stderr, "velmora-solve: {} (--help lists the options)\n", error.what());
    parsed.exit_status = 2;
  }
  return parsed;
}

}  // namespace tool
