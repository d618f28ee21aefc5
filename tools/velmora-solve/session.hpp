// SPDX-License-Identifier: BSD-3-Clause
/// One handle of the library, and what its calls said.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "options.hpp"
#include "system.hpp"
#include "types.hpp"

namespace tool {

/// Result of one call of the library.
struct Call {
  int error = 0;
  double seconds = 0;
  bool diagonal = false;  ///< solved at once; a failure is one of a row
  std::string complaint;  ///< its error line, without decoration; empty where it gave none
  std::string remedy;     ///< what its last line advises, likewise
};

/// Phases of the library, by number.
enum class Phase { analysis = 11, setup = 12, factorization = 22, solution = 33, inversion = -22 };

class Session {
 public:
  /// Loads the defaults of `mtype`, then the settings.  The matrix must outlive the session.
  /// @throws InputError when a setting does not fit the type
  Session(const SparseMatrix& matrix, int mtype, const Settings& settings, bool show_messages);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  Call run(Phase phase);

  /// The entries of the inverse on the pattern of the matrix; the factor is gone then.
  /// @param values  of the matrix's layout, out
  Call invert(std::vector<double>& values);

  /// Right-hand sides for the solution phase; x becomes as long.
  void set_rhs(const std::vector<double>& b, int nrhs);
  const std::vector<double>& x() const { return x_; }

  /// Elimination order that the analysis found: node, from 1, at each position; with full storage
  /// the row that the matching gives each column, behind it.
  const std::vector<int>& order() const { return perm_; }

  /// Sets dparm(2), the tolerance of the iterative solver, unless the user did.
  void set_iterative_tolerance(double tolerance);

  /// Most steps of refinement in later solves.
  void limit_refinement(int steps) { option(8) = steps; }

  /// Whether later solves are measured, and go on until the solution is good.
  void judge(bool wanted);

  /// iparm and dparm by the numbers of the header, from 1.
  int iparm(int number) const { return iparm_[static_cast<std::size_t>(number - 1)]; }
  double dparm(int number) const { return dparm_[static_cast<std::size_t>(number - 1)]; }

 private:
  void apply(const Settings& settings);
  Call call(Phase phase, const double* values);
  int& option(int number) { return iparm_[static_cast<std::size_t>(number - 1)]; }

  const SparseMatrix& matrix_;
  int mtype_;
  bool show_messages_, draws_;
  bool own_tolerance_ = false;  ///< the user set dparm(2)
  /// The transpose of a Hermitian matrix is its conjugate: A conj(x) = conj(b) is solved for it.
  bool conjugated_ = false;
  int accuracy_ = 0, ladder_ = 0;  ///< iparm(40) and (42) of a solve that is judged
  int nrhs_ = 1;
  std::array<void*, 64> handle_{};
  std::array<int, 64> iparm_{};
  std::array<double, 64> dparm_{};
  std::vector<int> perm_;
  std::vector<double> b_, x_;
};

/// The checker of the library on matrix and right-hand sides.
/// @return empty, or what it found, in one line
std::string check(const SparseMatrix& matrix, int mtype, const std::vector<double>& b, int nrhs);

/// What an error of the library means to the user, in one line.
std::string explain(const Call& call, Phase phase, int mtype);

}  // namespace tool
