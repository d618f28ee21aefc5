// SPDX-License-Identifier: BSD-3-Clause
/// What the user asked for on the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

/// Right-hand sides made up where no file gives them.
enum class RhsKind {
  row_sums,  ///< A times ones, so that the solution is known
  ones,
  random  ///< uniform in (-1, 1)
};

/// Options of the solver; what is not set stays as the library has it for the matrix type.
struct Settings {
  std::optional<int> ordering;                ///< iparm(2)
  bool parallel_ordering = false;             ///< iparm(28)
  std::optional<int> pivoting;                ///< iparm(21)
  std::optional<int> perturbation;            ///< iparm(10)
  std::optional<int> refinement;              ///< iparm(8)
  std::optional<int> scaling;                 ///< iparm(11)
  std::optional<int> matching;                ///< iparm(13)
  bool robust = false;                        ///< matching, scaling and Bunch-Kaufman together
  bool single_precision = false;              ///< iparm(29)
  bool determinant = false;                   ///< iparm(33)
  bool iterative = false;                     ///< iparm(32)
  std::string method, preconditioner;         ///< by name, in place of the library's choice
  bool transposed = false;                    ///< iparm(12)
  bool draws = false;                         ///< a bar for what takes long
  bool ignores_memory = false;                ///< factor also where memory seems too small
  int threads = 0;                            ///< iparm(3), 0: as many as OpenMP gives
  std::vector<std::pair<int, int>> iparm;     ///< anything else, by number
  std::vector<std::pair<int, double>> dparm;  ///< likewise

  bool names_pair() const { return !method.empty() || !preconditioner.empty(); }
};

struct Options {
  std::string matrix;  ///< Matrix Market file
  std::string replay;  ///< dump to solve again instead
  std::optional<int> type;
  std::string rhs;  ///< file of right-hand sides
  RhsKind rhs_kind = RhsKind::row_sums;
  int nrhs = 1;
  std::uint64_t seed = 1;
  std::string output;
  std::string inverse, inverse_diagonal;  ///< files of entries of the inverse
  Settings settings;
  int refactor = 0, resolve = 0;  ///< repetitions
  double tolerance = 1e-10;
  bool check_only = false;
  bool quiet = false;
  int msglvl = 0;
  std::string json;         ///< file, or "-" for standard output
  std::string spy;          ///< picture of the patterns
  std::string convergence;  ///< picture of the refinement, or of the iterations
};

/// Reads the command line.
/// @return the options, or the exit status when the program has nothing more to do (help, version,
///         an error that has been printed)
struct Parsed {
  Options options;
  std::optional<int> exit_status;
};
Parsed parse_options(int argc, char** argv);

}  // namespace tool
