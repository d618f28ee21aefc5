// SPDX-License-Identifier: BSD-3-Clause
/// One direct solver behind the interface that the benchmark times.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "problem.hpp"

namespace bench {

struct Settings {
  int threads = 1;
  std::vector<std::pair<int, int>> iparm;  ///< overrides for velmora, entry and value
};

/// The order of calls is analyse, factor, then solve and factor as often as wished.
/// Every call throws std::runtime_error when it fails.
class Solver {
 public:
  virtual ~Solver() = default;
  virtual void analyse() = 0;
  virtual void factor() = 0;
  /// n by nrhs; b stays.
  virtual void solve(const double* b, double* x, int nrhs) = 0;
  /// One forward and one backward substitution, without refinement.
  virtual void sweep(const double* b, double* x, int nrhs) { solve(b, x, nrhs); }
  /// Entries of the factors and 1e9 operations (real ones), as the solver counts them.
  virtual double factor_entries() const = 0;
  virtual double gflop() const = 0;
};

/// Null where the solver does not take the matrix type or was not built in.
std::unique_ptr<Solver> make_velmora(const Problem& problem, const Settings& settings);
std::unique_ptr<Solver> make_cholmod(const Problem& problem, const Settings& settings);
std::unique_ptr<Solver> make_mumps(const Problem& problem, const Settings& settings);

/// Nested dissection by METIS for solvers that were built without it: position to node, from 0.
std::vector<int> metis_order(const Matrix& m);

}  // namespace bench
