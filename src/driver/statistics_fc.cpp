// SPDX-License-Identifier: BSD-3-Clause
/// The report: banner, headline with the steps that ran, timers, figures of system and factor.
///
/// Every line is printed at once, label first and the number at the end in 15 columns.  Nothing is
/// kept between calls, and nothing allocated.
#include "driver/statistics_fc.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "base/clock.hpp"
#include "velmora.h"

namespace vlm {
namespace {

/// Word for a digit of the phase code; other digits name no step.
const char* step_word(int digit) {
  switch (digit) {
    case 1:
      return "reorder";
    case 2:
      return "factorize";
    case 3:
      return "solve";
    default:
      return "unknown";
  }
}

constexpr char rule[] = "=======================";

void print_heading(const char* text, std::size_t rule_length) {
  std::printf("%s\n%.*s\n", text, static_cast<int>(rule_length), rule);
}

void print_text(const char* text) { std::printf(" %s\n", text); }

void print_integer(const char* label, std::int64_t value) {
  const int indent = label[0] == '<' ? 1 : 10;
  std::printf("%*s%-*s%15lld\n", indent, "", 62 - indent, label, static_cast<long long>(value));
}

void print_real(const char* label, double value) {
  const int indent = label[0] == '<' ? 1 : 10;
  std::printf("%*s%-*s%15.7g\n", indent, "", 62 - indent, label, value);
}

void print_headline(int phase) {
  char heading[100], steps[40] = "clean";
  if (phase >= 1)
    std::snprintf(steps, sizeof steps, "%s to %s", step_word(phase / 10), step_word(phase % 10));
  std::snprintf(heading, sizeof heading, "Summary VELMORA %s: ( %s )", VELMORA_VERSION_STRING,
                steps);
  std::printf("\n\n");
  print_heading(heading, 23);
  std::printf("\n");
}

void print_times(const Timers& timer, int iterations) {
  double sum = 0;
  const auto line = [&sum](const char* label, double seconds) {
    if (seconds < 0) return;
    sum += seconds;
    std::printf("      Time %s %f s\n", label, seconds);
  };
  print_heading("Times:", 6);
  line("fulladj:", timer.fulladj);
  line("reorder:", timer.reorder);
  line("symbfct:", timer.symbfct);
  line("parlist:", timer.parlist);
  line("A to LU:", timer.a_to_lu);
  line("numfct :", timer.numfct);
  line("solve  :", timer.solve);
  if (timer.cgs >= 0) {
    sum += timer.cgs;
    std::printf("      Time cgs    : %f s cgx iterations %d\n", timer.cgs, iterations);
  }
  line("malloc :", timer.malloc);
  if (timer.total >= 0)
    std::printf("      Time total  : %f s total - sum: %f s\n", timer.total, timer.total - sum);
  std::printf("\n");
}

void print_machine_and_method(const Options& options) {
  print_integer("< Parallel Direct Factorization with #cores: >", options.threads);
  print_integer("<                                and #nodes: >", options.nodes);
  if (options.single) print_text("< Using VELMORA in 32-bit for factorization/solve >");
  if (options.schur > 0)
    print_integer("< Using schur-complement factorization and #nodes: >", options.schur);
  if (options.stabilised.k > 0)
    print_text("< Hybrid Solver VELMORA with CGS/CG Iteration >");
  else if (options.threads > 1 || options.nodes > 1)
    print_text("< Numerical Factorization with BLAS3 and O(n) synchronization >");
  else
    print_text("< Numerical Factorization with Level-3 BLAS performance >");
}

void print_system(const Options& options, const StatisticsCall& call) {
  print_text(options.transpose ? "< Linear system Ax = b> <transpose>" : "< Linear system Ax = b>");
  print_integer("#equations:", call.n);
  print_integer("#non-zeros in A:", options.nnz);
  const double n = call.n;
  print_real("non-zeros in A (%):", call.n > 0 ? options.nnz / (n * n) * 100 : 0);
  print_integer("#right-hand sides:", call.nrhs);
}

void print_preprocessing(const Options& options, int trees) {
  const bool minimum_degree = options.order == OrderMethod::minimum_degree;
  print_text("< Factors L and U >");
  if (minimum_degree) {
    print_text("< preprocessing with multiple minimum degree, tree height >");
    print_text("< reduction for efficient parallel factorization >");
  }
  print_integer("#columns for each panel:", options.panel);
  print_integer("# of independent subgraphs:", trees);
  if (options.user_order) {
    print_text("< preprocessing with input permutation >");
  } else if (options.order == OrderMethod::constrained) {
    print_text("< preprocessing with multiple minimum degree with constraints >");
    // The constrained ordering keeps its separators in the order of the split.
    print_text("<   no multiple minimum degree on the separator nodes         >");
  } else if (!minimum_degree) {
    print_text("< preprocessing with state of the art partitioning metis>");
  }
}

/// Signs of D where they are counted, and how many of them say nothing.
void print_inertia(const Options& options, const FactorResult& factor) {
  const bool definite = options.type->family == Family::cholesky && factor.doubtful == 0;
  if (definite || factor.positive + factor.negative == 0) return;
  print_integer("number of positive eigenvalues", factor.positive);
  print_integer("number of negative eigenvalues", factor.negative);
  if (factor.doubtful == 0) return;
  print_integer("  of these uncertain (perturbed or tiny pivots)", factor.doubtful);
  print_integer("  of the uncertain ones counted as positive", factor.doubtful_positive);
}

/// What was measured of a solution, and which rungs of the ladder it took.
void print_accuracy(const Results& results) {
  constexpr const char* names[rung_count] = {"backward error of the solve as asked for",
                                             "after refinement by rows",
                                             "after Krylov refinement",
                                             "with a new factor, in double precision",
                                             "with matching, scaling, small perturbation",
                                             "without matching",
                                             "with another order",
                                             "as an unsymmetric matrix",
                                             "with free pivots",
                                             "with a large perturbation"};
  const Ladder& ladder = results.ladder;
  for (int k = 0; k < ladder.count; ++k)
    print_real(names[ladder.taken[k].rung], ladder.taken[k].error);
  if (results.accuracy.verdict == verdict_none) return;
  if (ladder.count == 0) print_real("componentwise backward error", results.accuracy.componentwise);
  print_integer("verdict: 0 good, 1 of a nearby system, 2 useless", results.accuracy.verdict);
}

void print_factor(const Options& options, const Results& results, int phase) {
  const FactorFigures& figures = results.figures;
  const double gflop = figures.flops * 1e-9;
  print_integer("#supernodes:", figures.supernodes);
  print_integer("size of largest supernode:", figures.largest_supernode);
  print_integer("number of nonzeros in L", figures.nnz_l);
  print_integer("number of nonzeros in U", figures.nnz_u);
  print_real("number of nonzeros in L+U", static_cast<double>(figures.nnz_l + figures.nnz_u));
  print_integer("number of perturbed pivots", results.factor.perturbed);
  if (results.factor.grown > 0)
    print_integer("number of pivots with growing updates", results.factor.grown);
  if (phase > 11) print_inertia(options, results.factor);
  if (options.order == OrderMethod::dissection)
    print_integer("number of (compressed) nodes in solve", results.ordered_nodes);
  else
    print_integer("number of nodes in solve", options.n);
  print_real("Gflop   for the numerical factorization:", gflop);
  if (phase > 11 && results.factor_seconds > 0)
    print_real("Gflop/s for the numerical factorization:", gflop / results.factor_seconds);
  if (phase % 10 == 3) print_accuracy(results);
}

}  // namespace

void finish_timers(Clocks& clocks) {
  const double now = timer_velmora();
  double& allocation = clocks.timer.malloc;
  clocks.timer.total = now - clocks.start;
  if (clocks.stage_end > 0) allocation = std::max(allocation, 0.0) + now - clocks.stage_end;
}

void statistics_fc(const Control& control, const StatisticsCall& call) {
  if (call.msg == 0) return;
  if (call.phase >= 1)
    std::printf("================  VELMORA: solving a %s system  ================\n",
                matrix_type(call.mtype).report);
  print_headline(call.phase);
  if (call.phase < 1) {
    if (call.deleted > 0)
      std::printf(" L&U for matrix number %d deleted\n", call.mnum);
    else
      std::printf(" cleaned memory, deleted number of L&U-factorizations: %d\n", -call.deleted);
  } else {
    const Options& options = control.options;
    if (call.phase % 10 != 4) print_times(control.clocks.timer, call.iterations);
    print_heading("Statistics:", 11);
    print_machine_and_method(options);
    print_system(options, call);
    print_preprocessing(options, control.results.figures.trees);
    print_factor(options, control.results, call.phase);
  }
  std::fflush(stdout);
}

}  // namespace vlm
