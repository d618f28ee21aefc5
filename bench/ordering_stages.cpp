// SPDX-License-Identifier: BSD-3-Clause
#include "ordering_stages.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "base/clock.hpp"
#include "graph/compress.hpp"
#include "ordering/reorder1.hpp"
#include "problem.hpp"
#include "symbolic/sched.hpp"
#include "symbolic/sfinit.hpp"
#include "symbolic/structure.hpp"
#include "symbolic/symfct.hpp"

namespace vlm {
namespace {

enum Step { adjacency, order, counts, panels, lists, map, steps };

struct Stages {
  double seconds[steps] = {};
  double total() const {
    double sum = 0;
    for (const double s : seconds) sum += s;
    return sum;
  }
};

/// One analysis without matching, stage by stage.
Stages analyse(const gallery::Matrix& m, int threads) {
  Stages out;
  const auto timed = [&](Step step, auto run) {
    const double start = timer_velmora();
    run();
    out.seconds[step] += timer_velmora() - start;
  };
  Analysis analysis;
  OrderInput input;
  input.matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()};
  OrderOptions options;
  options.symmetric = m.triangle();
  options.threads = options.domains = threads;
  OrderTimes times;
  reorder1_velmora(input, options, analysis, times);
  out.seconds[adjacency] = times.adjacency;
  out.seconds[order] = times.order;
  const SymbolicOptions symbolic{.symmetric = m.triangle(), .threads = threads};
  timed(counts, [&] { sfinit_velmora(symbolic, analysis); });
  timed(panels, [&] { reorder2_velmora(symbolic, analysis); });
  if (threads > 1) timed(lists, [&] { reorder3_velmora(symbolic, analysis); });
  timed(map, [&] {
    const MapInput entries{input.matrix, nullptr, m.triangle()};
    const StructurePlan plan = plan_structure(entries, analysis);
    void* const block = std::malloc(plan.bytes);
    if (block == nullptr) throw std::bad_alloc();
    build_structure(block, entries, plan, analysis);
    std::free(block);
  });
  return out;
}

}  // namespace

void print_stages(const std::vector<std::string>& problems) {
  std::printf(
      "| matrix | threads | adjacency | order | tree, counts | panels, rows | lists | input map | "
      "sum |\n|---|---|---|---|---|---|---|---|---|\n");
  for (const std::string& name : problems) {
    const gallery::Matrix m = bench::load(name, 0).matrix;
    for (const int threads : {1, 2}) {
      Stages least;
      for (int run = 0; run < 3; ++run) {
        const Stages now = analyse(m, threads);
        if (run == 0 || now.total() < least.total()) least = now;
      }
      std::printf("| %s | %d |", m.name.c_str(), threads);
      for (const double s : least.seconds) std::printf(" %.3g |", s * 1e3);
      std::printf(" %.3g ms |\n", least.total() * 1e3);
      std::fflush(stdout);
    }
  }
}

}  // namespace vlm
