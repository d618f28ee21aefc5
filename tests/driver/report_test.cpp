// SPDX-License-Identifier: BSD-3-Clause
// The report shows each line under its condition, for finished and for failed calls.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "base/clock.hpp"
#include "driver/statistics_fc.hpp"
#include "velmora.h"

namespace {

using vlm::Control;
using vlm::StatisticsCall;

std::string report(const Control& control, StatisticsCall call, int msg = 1) {
  call.msg = msg;
  testing::internal::CaptureStdout();
  vlm::statistics_fc(control, call);
  return testing::internal::GetCapturedStdout();
}

bool shows(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// The number at the end of the line that holds the label; -1 when there is no such line.
double figure(const std::string& text, const std::string& label) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 80U) << line;
    if (!shows(line, label)) continue;
    return std::stod(line.substr(line.find_last_of(' ') + 1));
  }
  return -1;
}

/// A finished call of a combined phase.
Control finished() {
  Control c;
  c.options.mtype = -2;
  c.options.type = &vlm::matrix_type(-2);
  c.options.n = 1000;
  c.options.nnz = 5000;
  c.options.threads = 3;
  c.results.figures = {.supernodes = 61,
                       .largest_supernode = 44,
                       .trees = 2,
                       .nnz_l = 3000000000,
                       .nnz_u = 2000000000,
                       .flops = 12.5e9};
  c.results.ordered_nodes = 400;
  c.results.factor.perturbed = 5;
  c.results.factor_seconds = 4;
  c.clocks.timer.fulladj = 0.5;
  c.clocks.timer.reorder = 2;
  c.clocks.timer.symbfct = 1;
  c.clocks.timer.numfct = 4;
  c.clocks.timer.solve = 0.25;
  c.clocks.timer.total = 8;
  return c;
}

StatisticsCall call_of(int phase) {
  return {.phase = phase, .mtype = -2, .n = 1000, .nrhs = 7, .mnum = 1};
}

TEST(Report, ShowsStepsTimesAndFigures) {
  const std::string text = report(finished(), call_of(13));
  EXPECT_TRUE(text.starts_with(
      "================  VELMORA: solving a symmetric indef. system  ================\n"
      "\n\nSummary VELMORA " VELMORA_VERSION_STRING
      ": ( reorder to solve )\n=======================\n\n"
      "Times:\n======\n"
      "      Time fulladj: 0.500000 s\n"
      "      Time reorder: 2.000000 s\n"
      "      Time symbfct: 1.000000 s\n"
      "      Time numfct : 4.000000 s\n"
      "      Time solve  : 0.250000 s\n"
      "      Time total  : 8.000000 s total - sum: 0.250000 s\n\n"
      "Statistics:\n===========\n"))
      << text;
  EXPECT_EQ(figure(text, "< Parallel Direct Factorization with #cores: >"), 3);
  EXPECT_EQ(figure(text, "<                                and #nodes: >"), 1);
  EXPECT_EQ(figure(text, "#equations:"), 1000);
  EXPECT_EQ(figure(text, "#non-zeros in A:"), 5000);
  EXPECT_DOUBLE_EQ(figure(text, "non-zeros in A (%):"), 0.5);
  EXPECT_EQ(figure(text, "#right-hand sides:"), 7);
  EXPECT_EQ(figure(text, "#columns for each panel:"), 80);
  EXPECT_EQ(figure(text, "# of independent subgraphs:"), 2);
  EXPECT_EQ(figure(text, "#supernodes:"), 61);
  EXPECT_EQ(figure(text, "size of largest supernode:"), 44);
  EXPECT_EQ(figure(text, "number of nonzeros in L  "), 3e9);
  EXPECT_EQ(figure(text, "number of nonzeros in L+U"), 5e9);
  EXPECT_EQ(figure(text, "number of perturbed pivots"), 5);
  EXPECT_EQ(figure(text, "number of (compressed) nodes in solve"), 400);
  EXPECT_EQ(figure(text, "Gflop   for the numerical factorization:"), 12.5);
  EXPECT_EQ(figure(text, "Gflop/s for the numerical factorization:"), 3.125);
}

TEST(Report, HeadlineNamesFirstAndLastStep) {
  const std::vector<std::pair<int, std::string>> headlines = {{11, "reorder to reorder"},
                                                              {12, "reorder to factorize"},
                                                              {22, "factorize to factorize"},
                                                              {23, "factorize to solve"},
                                                              {33, "solve to solve"}};
  for (const auto& [phase, words] : headlines)
    EXPECT_TRUE(
        shows(report(finished(), call_of(phase)), VELMORA_VERSION_STRING ": ( " + words + " )\n"));
  // A refused phase code that ends in 4 has no times.
  EXPECT_FALSE(shows(report(finished(), call_of(14)), "Times:"));
  EXPECT_FALSE(shows(report(finished(), call_of(11)), "Gflop/s"));
}

TEST(Report, LinesFollowTheirConditions) {
  struct Case {
    const char* label;
    void (*change)(Control&);  ///< makes the line appear, or disappear, in a finished call
    bool appears;
  };
  const Case cases[] = {
      {"< Using VELMORA in 32-bit for factorization/solve >",
       [](Control& c) { c.options.single = true; }, true},
      {"< Using schur-complement factorization and #nodes: >",
       [](Control& c) { c.options.schur = 4; }, true},
      {"< Numerical Factorization with BLAS3 and O(n) synchronization >",
       [](Control& c) { c.options.threads = 1; }, false},
      {"< Numerical Factorization with Level-3 BLAS performance >",
       [](Control& c) { c.options.threads = 1; }, true},
      {"< Linear system Ax = b> <transpose>", [](Control& c) { c.options.transpose = true; }, true},
      {"< preprocessing with multiple minimum degree, tree height >",
       [](Control& c) { c.options.order = vlm::OrderMethod::minimum_degree; }, true},
      {"< reduction for efficient parallel factorization >",
       [](Control& c) { c.options.order = vlm::OrderMethod::minimum_degree; }, true},
      {"< preprocessing with multiple minimum degree with constraints >",
       [](Control& c) { c.options.order = vlm::OrderMethod::constrained; }, true},
      {"<   no multiple minimum degree on the separator nodes         >",
       [](Control& c) { c.options.order = vlm::OrderMethod::constrained; }, true},
      {"< preprocessing with state of the art partitioning metis>",
       [](Control& c) { c.options.order = vlm::OrderMethod::constrained; }, false},
      {"< preprocessing with state of the art partitioning metis>",
       [](Control& c) { c.options.user_order = true; }, false},
      {"< preprocessing with input permutation >", [](Control& c) { c.options.user_order = true; },
       true},
      {"number of nodes in solve",
       [](Control& c) { c.options.order = vlm::OrderMethod::constrained; }, true},
      {"number of (compressed) nodes in solve",
       [](Control& c) { c.options.order = vlm::OrderMethod::constrained; }, false},
      {"Gflop/s", [](Control& c) { c.results.factor_seconds = 0; }, false},
      {"      Time malloc :", [](Control& c) { c.clocks.timer.malloc = 1; }, true},
      {"      Time A to LU:", [](Control& c) { c.clocks.timer.a_to_lu = 1; }, true},
      {"      Time parlist:", [](Control& c) { c.clocks.timer.parlist = 1; }, true},
  };
  const StatisticsCall call = call_of(23);
  for (const Case& c : cases) {
    Control control = finished();
    EXPECT_EQ(shows(report(control, call), c.label), !c.appears) << c.label;
    c.change(control);
    EXPECT_EQ(shows(report(control, call), c.label), c.appears) << c.label;
  }
}

TEST(Report, CleaningAndSilentCalls) {
  Control control = finished();
  StatisticsCall call = call_of(0);
  call.mnum = 3;
  call.deleted = 1;
  const std::string headline =
      "\n\nSummary VELMORA " VELMORA_VERSION_STRING ": ( clean )\n=======================\n\n";
  EXPECT_EQ(report(control, call), headline + " L&U for matrix number 3 deleted\n");
  call.deleted = -2;
  call.phase = -1;
  EXPECT_EQ(report(control, call),
            headline + " cleaned memory, deleted number of L&U-factorizations: 2\n");
  EXPECT_EQ(report(control, call, 0), "");
  EXPECT_EQ(report(control, call_of(13), 0), "");
}

TEST(Report, CallThatFailedBeforeAnythingWasKnown) {
  const Control control{};
  const std::string text = report(control, {.phase = 11, .mtype = 7});
  EXPECT_TRUE(shows(text, "VELMORA: solving a unknown type system"));
  EXPECT_EQ(figure(text, "#equations:"), 0);
  EXPECT_EQ(figure(text, "non-zeros in A (%):"), 0);
  EXPECT_FALSE(shows(text, "Time "));
}

TEST(Report, TimersOfASilentCallAreClosedToo) {
  vlm::Clocks clocks;
  const double now = vlm::timer_velmora();
  clocks.start = now - 2;
  clocks.stage_end = now - 1;
  clocks.timer.malloc = 10;
  vlm::finish_timers(clocks);
  EXPECT_GE(clocks.timer.total, 2.0);
  EXPECT_GE(clocks.timer.malloc, 11.0);
  EXPECT_LE(clocks.timer.malloc - 10, clocks.timer.total);

  vlm::Clocks unused;  // no stage ran: nothing was allocated between stages
  unused.start = now;
  vlm::finish_timers(unused);
  EXPECT_LT(unused.timer.malloc, 0.0);
}

}  // namespace
