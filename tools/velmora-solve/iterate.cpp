// SPDX-License-Identifier: BSD-3-Clause
#include "iterate.hpp"

#include <fmt/format.h>
#include <norv/solver.h>

namespace tool {

Follower::Follower(const Printer& printer) : printer_(printer) { norv_set_progress(follow, this); }
Follower::~Follower() { norv_set_progress(nullptr, nullptr); }

void Follower::tell() {
  if (told_ == history_.size()) return;
  told_ = history_.size();
  printer_.line("iteration", fmt::format("{:>6}   relative residual {:.2e}", history_.size() - 1,
                                         history_.back()));
}

void Follower::follow(void* data, int iteration, double relative_residual) {
  Follower& self = *static_cast<Follower*>(data);
  if (iteration == 0) self.history_.clear(), self.told_ = 0;
  self.history_.push_back(relative_residual);
  int digit = iteration;
  while (digit >= 10 && digit % 10 == 0) digit /= 10;
  if (digit == 0 || digit == 1 || digit == 2 || digit == 5) self.tell();
}

std::string set_up_and_iterate(Session& session, const Options& options, const Printer& printer,
                               const std::vector<double>& b, int nrhs, Factor& factor) {
  // The measures of a good residual differ from |r| / |b| by small factors.
  session.set_iterative_tolerance(options.tolerance / 10);
  Call call = session.run(Phase::setup);
  if (call.error != 0) return explain(call, Phase::setup, factor.mtype);
  factor.factorization_seconds = call.seconds;
  factor.threads = session.iparm(3);
  factor.nonzeros = session.iparm(18);
  factor.perturbed = session.iparm(14);
  printer.line("setup", fmt::format("{}   {} nonzeros in the factors, {} perturbed pivots",
                                    seconds(factor.factorization_seconds), factor.nonzeros,
                                    factor.perturbed));
  for (int k = 0; k < options.refactor; ++k) {
    call = session.run(Phase::factorization);
    if (call.error != 0) return explain(call, Phase::setup, factor.mtype);
    factor.refactor_seconds.push_back(call.seconds);
  }
  {
    Follower follower(printer);
    call = session.run(Phase::solution);
    factor.solution_seconds = call.seconds;
    factor.history = follower.history();
    if (!factor.history.empty()) follower.tell();
  }
  for (int k = 0; k < options.resolve && call.error == 0; ++k) {
    session.set_rhs(b, nrhs);  // begins at 0 again
    call = session.run(Phase::solution);
    factor.resolve_seconds.push_back(call.seconds);
  }
  if (call.error != 0) return explain(call, Phase::solution, factor.mtype);
  printer.line("solution", fmt::format("{}   {} right-hand side{}, {} iterations",
                                       seconds(factor.solution_seconds), nrhs, nrhs == 1 ? "" : "s",
                                       session.dparm(35)));
  return {};
}

}  // namespace tool
