// SPDX-License-Identifier: BSD-3-Clause
// The report shows each line under its condition, for finished and for failed calls.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "driver/statistics_fc.hpp"
#include "velmora.h"

namespace {

using vlm::Control;
using vlm::StatisticsCall;

std::string report(const Control& control, const StatisticsCall& call) {
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
  c.msg = 1;
  c.mtype = -2;
  c.neqns = 1000;
  c.order = 2;
  c.nthreads = 3;
  c.nnodes = 1;
  c.serial = 0;
  c.panel = 80;
  c.nsuper = 61;
  c.maxsup = 44;
  c.nnz_l = 2000000000;
  c.nnz_u = 2000000000;
  c.perturbed = 5;
  c.gflop = 12.5;
  c.dpar.timer = {
      .fulladj = 0.5, .reorder = 2, .symbfct = 1, .numfct = 4, .solve = 0.25, .total = 8};
  c.flags = {.fulladj = true,
             .reorder = true,
             .symbfct = true,
             .numfct = true,
             .solve = true,
             .total = true};
  return c;
}

StatisticsCall call_of(int phase) {
  return {.phase = phase, .mtype = -2, .n = 1000, .nnz = 5000, .nrhs = 7, .mnum = 1};
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
  EXPECT_EQ(figure(text, "# of independent subgraphs:"), 0);
  EXPECT_EQ(figure(text, "#supernodes:"), 61);
  EXPECT_EQ(figure(text, "size of largest supernode:"), 44);
  EXPECT_EQ(figure(text, "number of nonzeros in L  "), 2e9);
  EXPECT_EQ(figure(text, "number of nonzeros in L+U"), 4e9);
  EXPECT_EQ(figure(text, "number of perturbed pivots"), 5);
  EXPECT_EQ(figure(text, "number of (compressed) nodes in solve"), 1000);
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
      {"< Using VELMORA in 32-bit for factorization/solve >", [](Control& c) { c.single32 = 1; },
       true},
      {"< Using schur-complement factorization and #nodes: >", [](Control& c) { c.nschur = 4; },
       true},
      {"< Hybrid Solver VELMORA with CGS/CG Iteration >", [](Control& c) { c.cgs_k = 1; }, true},
      {"< Numerical Factorization with BLAS3 and O(n) synchronization >",
       [](Control& c) { c.cgs_k = 1; }, false},
      {"< Numerical Factorization with BLAS3 and O(n) synchronization >",
       [](Control& c) { c.serial = 1; }, false},
      {"< Numerical Factorization with Level-3 BLAS performance >",
       [](Control& c) { c.serial = 1; }, true},
      {"< Linear system Ax = b> <transpose>", [](Control& c) { c.transpose = 1; }, true},
      {"< preprocessing with multiple minimum degree, tree height >",
       [](Control& c) { c.order = 0; }, true},
      {"< reduction for efficient parallel factorization >", [](Control& c) { c.order = 0; }, true},
      {"< preprocessing with multiple minimum degree with constraints >",
       [](Control& c) { c.order = 1; }, true},
      {"<   no multiple minimum degree on the separator nodes         >",
       [](Control& c) { c.order = 1; }, true},
      {"< preprocessing with state of the art partitioning metis>", [](Control& c) { c.order = 1; },
       false},
      {"< preprocessing with state of the art partitioning metis>",
       [](Control& c) { c.user_perm = 1; }, false},
      {"< preprocessing with input permutation >", [](Control& c) { c.user_perm = 1; }, true},
      {"number of nodes in solve", [](Control& c) { c.order = 1; }, true},
      {"number of (compressed) nodes in solve", [](Control& c) { c.order = 1; }, false},
      {"number of global separator nodes", [](Control& c) { c.dist_mode = 1; }, true},
      {"Statistics (Distributed-Memory Version):\n", [](Control& c) { c.dist_mode = 1; }, true},
      {"||A||", [](Control& c) { c.dpar.norm_a = 2; }, true},
      {"Gflop/s", [](Control& c) { c.dpar.timer.numfct = 0; }, false},
      {"      Time malloc :", [](Control& c) { c.flags.malloc = true; }, true},
      {"      Time A to LU:", [](Control& c) { c.flags.a_to_lu = true; }, true},
      {"      Time parlist:", [](Control& c) { c.flags.parlist = true; }, true},
      {" s cgx iterations 9\n", [](Control& c) { c.flags.cgs = true; }, true},
  };
  StatisticsCall call = call_of(23);
  call.cg_iterations = 9;
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
  control.msg = 0;
  EXPECT_EQ(report(control, call), "");
  EXPECT_EQ(report(control, call_of(13)), "");
}

TEST(Report, CallThatFailedBeforeAnythingWasKnown) {
  Control control;
  control.msg = 1;
  const std::string text = report(control, {.phase = 11, .mtype = 7});
  EXPECT_TRUE(shows(text, "VELMORA: solving a unknown type system"));
  EXPECT_EQ(figure(text, "#equations:"), 0);
  EXPECT_EQ(figure(text, "non-zeros in A (%):"), 0);
  EXPECT_FALSE(shows(text, "Time "));
}

TEST(Report, TimersOfASilentCallAreClosedToo) {
  Control control;
  const double now = vlm::timer_velmora();
  control.dpar.start = now - 2;
  control.dpar.stage_end = now - 1;
  control.dpar.timer.malloc = 10;
  vlm::finish_timers(control);
  EXPECT_TRUE(control.flags.total);
  EXPECT_GE(control.dpar.timer.total, 2.0);
  EXPECT_GE(control.dpar.timer.malloc, 11.0);
  EXPECT_LE(control.dpar.timer.malloc - 10, control.dpar.timer.total);

  // A stage end from an earlier call is no allocation time of this one.
  control.dpar.stage_end = now - 100;
  control.dpar.timer.malloc = 0;
  vlm::finish_timers(control);
  EXPECT_EQ(control.dpar.timer.malloc, 0.0);
}

}  // namespace
