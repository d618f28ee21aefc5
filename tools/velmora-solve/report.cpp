// SPDX-License-Identifier: BSD-3-Clause
#include "report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "velmora.h"

namespace tool {
namespace {

std::string median_and_least(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  return fmt::format("{} times: least {}, median {}", times.size(), seconds(times.front()),
                     seconds(times[times.size() / 2]));
}

std::string megabytes(int kilobytes) { return fmt::format("{:.1f} MB", kilobytes / 1024.0); }

/// JSON has no NaN and no infinity; they become null, and the status says what happened.
nlohmann::ordered_json number(double value) {
  if (std::isfinite(value)) return value;
  return nullptr;
}

nlohmann::ordered_json factor_to_json(const Factor& factor, int n) {
  nlohmann::ordered_json out;
  out["type"] = factor.mtype;
  if (!factor.method.empty()) {
    out["method"] = factor.method;
    out["preconditioner"] = factor.preconditioner;
  }
  out["robust"] = factor.robust;
  out["threads"] = factor.threads;
  out["nonzeros"] = factor.nonzeros;
  out["gflop"] = factor.gflop;
  out["perturbed_pivots"] = factor.perturbed;
  if (factor.method.empty() && has_inertia(factor.mtype)) {
    out["inertia"] = {{"positive", factor.positive},
                      {"negative", factor.negative},
                      {"uncertain", factor.doubtful},
                      {"uncertain_positive", factor.doubtful_positive},
                      {"near_singular", factor.near_singular}};
    // A zero eigenvalue gets a sign like any other, which is then uncertain.
    if (factor.doubtful == 0 && factor.verdict >= 0 && factor.verdict < 2) {
      out["inertia"]["zero"] = n - factor.positive - factor.negative;
    } else {
      out["inertia"]["zero"] = nullptr;
    }
  }
  if (factor.log_determinant) out["log_determinant"] = number(*factor.log_determinant);
  out["refinement_steps"] = factor.refinement_steps;
  if (factor.method.empty())
    out["memory_kb"] = {{"analysis_peak", factor.memory_analysis_peak},
                        {"analysis", factor.memory_analysis},
                        {"factor", factor.memory_factor}};
  out["seconds"] = {{"analysis", factor.analysis_seconds},
                    {"factorization", factor.factorization_seconds},
                    {"solution", factor.solution_seconds},
                    {"accuracy", factor.accuracy_seconds}};
  if (!factor.refactor_seconds.empty()) out["seconds"]["refactor"] = factor.refactor_seconds;
  if (!factor.resolve_seconds.empty()) out["seconds"]["resolve"] = factor.resolve_seconds;
  if (factor.inversion_seconds) out["seconds"]["inversion"] = *factor.inversion_seconds;
  out["residual"] = {{"componentwise", number(factor.residual.componentwise)},
                     {"normwise", number(factor.residual.normwise)},
                     {"two_norm", number(factor.residual.two_norm)}};
  if (factor.verdict >= 0) {
    out["accuracy"] = {{"verdict", factor.verdict},
                       {"rung", factor.rung},
                       {"condition", number(factor.condition)},
                       {"error_bound", number(factor.error_bound)}};
  }
  if (!factor.history.empty()) {
    out["iterations"] = factor.history.size() - 1;
    out["history"] = nlohmann::ordered_json::array();
    for (const double each : factor.history) out["history"].push_back(number(each));
  }
  if (!factor.warning.empty()) out["warning"] = factor.warning;
  return out;
}

}  // namespace

void Printer::line(const std::string& name, const std::string& text) const {
  if (quiet_) return;
  fmt::print("{:<14}  {}\n", name, text);
  std::fflush(stdout);
}

std::string seconds(double value) {
  return value < 10 ? fmt::format("{:.4f} s", value) : fmt::format("{:.2f} s", value);
}

void print_factor(const Printer& printer, const Report& report) {
  const Factor& factor = *report.factor;
  if (factor.method.empty() && has_inertia(factor.mtype)) {
    const auto signs = [](int count, const char* kind, int uncertain) {
      std::string text = fmt::format("{} {}", count, kind);
      if (uncertain > 0) text += fmt::format(", of which {} uncertain", uncertain);
      return text;
    };
    printer.line("inertia", signs(factor.positive, "positive", factor.doubtful_positive) + ", " +
                                signs(factor.negative, "negative",
                                      factor.doubtful - factor.doubtful_positive));
    if (factor.near_singular) {
      printer.line("near-singular", "at least 1 eigenvalue below 1e-14 of the largest");
    }
  }
  if (factor.log_determinant) {
    printer.line("determinant", fmt::format("log |det A| = {:.10g}", *factor.log_determinant));
  }
  if (factor.method.empty())
    printer.line("memory",
                 fmt::format("analysis {} at its peak and {} kept, factor and work {}",
                             megabytes(factor.memory_analysis_peak),
                             megabytes(factor.memory_analysis), megabytes(factor.memory_factor)));
  if (!factor.refactor_seconds.empty()) {
    printer.line("factored again", median_and_least(factor.refactor_seconds));
  }
  if (!factor.resolve_seconds.empty()) {
    printer.line("solved again", median_and_least(factor.resolve_seconds));
  }
}

void print_outcome(const Printer& printer, const Report& report) {
  const Factor& factor = *report.factor;
  printer.line("residual", fmt::format("{:.2e} componentwise, {:.2e} normwise, {:.2e} |r|/|b|",
                                       factor.residual.componentwise, factor.residual.normwise,
                                       factor.residual.two_norm));
  if (report.solution_error) {
    printer.line("error", fmt::format("{:.2e} against the known solution", *report.solution_error));
  }
  printer.line("status", report.failure.empty() ? "solved" : "failed: " + report.failure);
}

std::string to_json(const Report& report) {
  nlohmann::ordered_json out;
  out["program"] = "velmora-solve";
  out["version"] = velmora_version();
  out["status"] = report.failure.empty() ? "solved" : "failed";
  if (!report.failure.empty()) out["failure"] = report.failure;
  out["matrix"] = {{"file", report.file},
                   {"n", report.n},
                   {"entries", report.entries},
                   {"described", report.described}};
  if (report.type.mtype != 0) {
    out["type"] = {{"number", report.type.mtype},
                   {"name", label(report.type.mtype)},
                   {"reason", report.type.reason}};
  }
  out["notes"] = report.notes;
  out["rhs"] = {{"kind", report.rhs}, {"count", report.nrhs}};
  out["seconds"] = {{"read", report.read_seconds}, {"check", report.check_seconds}};
  if (report.factor) out["factor"] = factor_to_json(*report.factor, report.n);
  if (report.solution_error) out["solution_error"] = number(*report.solution_error);
  out["tolerance"] = report.tolerance;
  return out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace tool
