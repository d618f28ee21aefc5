// SPDX-License-Identifier: BSD-3-Clause
/// The report of a run, for reading and as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "options.hpp"
#include "system.hpp"
#include "types.hpp"

namespace tool {

/// What one factorization and its solution gave.
struct Factor {
  int mtype = 0;
  std::string method, preconditioner;  ///< iterative, by name; empty: the library's choice
  bool robust = false;                 ///< with matching, scaling and Bunch-Kaufman
  int threads = 0;
  std::int64_t nonzeros = 0;
  int gflop = 0;  ///< truncated
  int perturbed = 0;
  int positive = 0, negative = 0;
  int doubtful = 0, doubtful_positive = 0;  ///< of these, signs that rounding decided
  bool near_singular = false;               ///< an eigenvalue is below 1e-14 of the largest
  int verdict = -1;                         ///< the library's, iparm(41)
  int rung = 0;                             ///< what the library did for it, iparm(43)
  double condition = 0, error_bound = 0;    ///< 0: not measured
  int refinement_steps = 0;
  int memory_analysis_peak = 0, memory_analysis = 0, memory_factor = 0;  ///< KB
  std::optional<double> log_determinant;
  double analysis_seconds = 0, factorization_seconds = 0, solution_seconds = 0;
  double accuracy_seconds = 0;  ///< of the solve that is measured
  std::vector<double> refactor_seconds, resolve_seconds;
  std::optional<double> inversion_seconds;
  Residual residual;
  std::vector<double> history;  ///< iterative: relative residual before and after each iteration
  std::string warning;          ///< what the library complained about although it went on
};

/// Everything a run knows; filled as it goes on.
struct Report {
  std::string file;
  int n = 0;
  std::int64_t entries = 0;
  std::string described;  ///< what the file holds, in its own words
  TypeChoice type;
  std::vector<std::string> notes;  ///< what was changed, tried and dropped
  double read_seconds = 0, check_seconds = 0;
  std::string rhs;
  int nrhs = 1;
  std::optional<Factor> factor;
  std::optional<double> solution_error;  ///< where the solution is known: max|x - exact|
  double tolerance = 0;
  std::string failure;  ///< empty when solved
};

/// Prints the lines of a report as they become known; silent when the user wants it so.
class Printer {
 public:
  explicit Printer(bool quiet) : quiet_(quiet) {}
  void line(const std::string& name, const std::string& text) const;

 private:
  bool quiet_;
};

/// Lines on the factor and on the solution, after a solve.
void print_factor(const Printer& printer, const Report& report);
void print_outcome(const Printer& printer, const Report& report);

/// The report as JSON text.
std::string to_json(const Report& report);

/// "0.123 s", with digits that suit the size.
std::string seconds(double value);

}  // namespace tool
