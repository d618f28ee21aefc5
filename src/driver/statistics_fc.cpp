// SPDX-License-Identifier: BSD-3-Clause
/// The report: banner, headline with the steps that ran, timers, figures of system and factor.
///
/// Every line is built here and printed at once, label first and the number at the end in 15
/// columns.  Nothing is kept between calls.
#include "driver/statistics_fc.hpp"

#include <cstdio>
#include <string>

#include "base/matrix_types.hpp"
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

void print_heading(const std::string& text, char rule_mark, std::size_t rule_length) {
  std::printf("%s\n%s\n", text.c_str(), std::string(rule_length, rule_mark).c_str());
}

void print_text(const char* text) { std::printf(" %s\n", text); }

void print_integer(const char* label, int value) {
  const int indent = label[0] == '<' ? 1 : 10;
  std::printf("%*s%-*s%15d\n", indent, "", 62 - indent, label, value);
}

void print_real(const char* label, double value) {
  const int indent = label[0] == '<' ? 1 : 10;
  std::printf("%*s%-*s%15.7g\n", indent, "", 62 - indent, label, value);
}

void print_headline(int phase) {
  std::string steps = "clean";
  if (phase >= 1) steps = std::string(step_word(phase / 10)) + " to " + step_word(phase % 10);
  std::printf("\n\n");
  print_heading("Summary VELMORA " VELMORA_VERSION_STRING ": ( " + steps + " )", '=', 23);
  std::printf("\n");
}

void print_times(const Control& control, int cg_iterations) {
  const StageFlags& ran = control.flags;
  const Timers& timer = control.dpar.timer;
  double sum = 0;
  const auto line = [&sum](bool shown, const char* label, double seconds, const char* end) {
    if (!shown) return;
    sum += seconds;
    std::printf("      Time %s %f s%s", label, seconds, end);
  };
  print_heading("Times:", '=', 6);
  line(ran.fulladj, "fulladj:", timer.fulladj, "\n");
  line(ran.reorder, "reorder:", timer.reorder, "\n");
  line(ran.symbfct, "symbfct:", timer.symbfct, "\n");
  line(ran.parlist, "parlist:", timer.parlist, "\n");
  line(ran.a_to_lu, "A to LU:", timer.a_to_lu, "\n");
  line(ran.numfct, "numfct :", timer.numfct, "\n");
  line(ran.solve, "solve  :", timer.solve, "\n");
  line(ran.cgs, "cgs    :", timer.cgs, "");
  if (ran.cgs) std::printf(" cgx iterations %d\n", cg_iterations);
  line(ran.malloc, "malloc :", timer.malloc, "\n");
  if (ran.total)
    std::printf("      Time total  : %f s total - sum: %f s\n", timer.total, timer.total - sum);
  std::printf("\n");
}

void print_machine_and_method(const Control& control) {
  print_integer("< Parallel Direct Factorization with #cores: >", control.nthreads);
  print_integer("<                                and #nodes: >", control.nnodes);
  if (control.single32 == 1) print_text("< Using VELMORA in 32-bit for factorization/solve >");
  if (control.nschur > 0)
    print_integer("< Using schur-complement factorization and #nodes: >", control.nschur);
  if (control.cgs_k > 0)
    print_text("< Hybrid Solver VELMORA with CGS/CG Iteration >");
  else if (control.serial == 0)
    print_text("< Numerical Factorization with BLAS3 and O(n) synchronization >");
  else
    print_text("< Numerical Factorization with Level-3 BLAS performance >");
}

void print_system(const Control& control, const StatisticsCall& call) {
  print_text(control.transpose == 1 ? "< Linear system Ax = b> <transpose>"
                                    : "< Linear system Ax = b>");
  print_integer("#equations:", call.n);
  print_integer("#non-zeros in A:", call.nnz);
  const double n = call.n;
  print_real("non-zeros in A (%):", call.n > 0 ? call.nnz / (n * n) * 100 : 0);
  print_integer("#right-hand sides:", call.nrhs);
}

void print_preprocessing(const Control& control) {
  print_text("< Factors L and U >");
  if (control.order == 0) {
    print_text("< preprocessing with multiple minimum degree, tree height >");
    print_text("< reduction for efficient parallel factorization >");
  }
  print_integer("#columns for each panel:", control.panel);
  print_integer("# of independent subgraphs:", control.nsets);
  if (control.user_perm > 0) {
    print_text("< preprocessing with input permutation >");
  } else if (control.order == 1) {
    print_text("< preprocessing with multiple minimum degree with constraints >");
    // The constrained ordering keeps its separators in the order of the split.
    print_text("<   no multiple minimum degree on the separator nodes         >");
  } else if (control.order == 2) {
    print_text("< preprocessing with state of the art partitioning metis>");
  }
}

void print_factor(const Control& control, const StatisticsCall& call) {
  print_integer("#supernodes:", control.nsuper);
  print_integer("size of largest supernode:", control.maxsup);
  print_integer("number of nonzeros in L", control.nnz_l);
  print_integer("number of nonzeros in U", control.nnz_u);
  print_real("number of nonzeros in L+U", static_cast<double>(control.nnz_l) + control.nnz_u);
  if (control.dist_mode == 1) {
    print_integer("number of local separator nodes", call.local_separators);
    print_integer("number of global separator nodes", call.global_separators);
  }
  print_integer("number of perturbed pivots", control.perturbed);
  if (control.order < 2)
    print_integer("number of nodes in solve", control.neqns);
  else if (control.order == 2)
    print_integer("number of (compressed) nodes in solve", control.neqns);
  print_real("Gflop   for the numerical factorization:", control.gflop);
  if (call.phase <= 11) return;
  const double seconds = control.dpar.timer.numfct;
  if (seconds > 0) print_real("Gflop/s for the numerical factorization:", control.gflop / seconds);
  if (control.dpar.norm_a > 0) print_real("||A||", control.dpar.norm_a);
}

}  // namespace

void finish_timers(Control& control) {
  Clocks& clocks = control.dpar;
  const double now = timer_velmora();
  clocks.timer.total = now - clocks.start;
  if (clocks.stage_end > clocks.start) clocks.timer.malloc += now - clocks.stage_end;
  control.flags.total = true;
}

void print_info_velmora(int msg, int mtype) {
  if (msg == 0) return;
  std::printf("================  VELMORA: solving a %s system  ================\n",
              matrix_type_name(mtype).report);
}

void statistics_fc(const Control& control, const StatisticsCall& call) {
  if (control.msg == 0) return;
  if (call.phase >= 1) print_info_velmora(control.msg, call.mtype);
  print_headline(call.phase);
  if (call.phase < 1) {
    if (call.deleted > 0)
      std::printf(" L&U for matrix number %d deleted\n", call.mnum);
    else
      std::printf(" cleaned memory, deleted number of L&U-factorizations: %d\n", -call.deleted);
  } else {
    if (call.phase % 10 != 4) print_times(control, call.cg_iterations);
    print_heading(
        control.dist_mode == 1 ? "Statistics (Distributed-Memory Version):" : "Statistics:", '=',
        11);
    print_machine_and_method(control);
    print_system(control, call);
    print_preprocessing(control);
    print_factor(control, call);
  }
  std::fflush(stdout);
}

}  // namespace vlm
