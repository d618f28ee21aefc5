// SPDX-License-Identifier: BSD-3-Clause
/// Setup and iterations of the iterative solver, with what the user sees of them.
#pragma once

#include <string>
#include <vector>

#include "options.hpp"
#include "report.hpp"
#include "session.hpp"

namespace tool {

/// Keeps the residuals of a solve as they come, and prints those of iterations 0, 1, 2, 5, 10, 20
/// and so on.
class Follower {
 public:
  explicit Follower(const Printer& printer);
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  /// Prints the last one, unless that has been done.
  void tell();
  /// Of the last right-hand side.
  const std::vector<double>& history() const { return history_; }

 private:
  static void follow(void* data, int iteration, double relative_residual);

  const Printer& printer_;
  std::vector<double> history_;
  std::size_t told_ = 0;  ///< its length when a line was printed
};

/// Sets up the preconditioner, solves from a zero start, and repeats both as the options say.
/// @param factor  receives times, figures and the history of the residual
/// @return empty, or why a call failed
std::string set_up_and_iterate(Session& session, const Options& options, const Printer& printer,
                               const std::vector<double>& b, int nrhs, Factor& factor);

}  // namespace tool
