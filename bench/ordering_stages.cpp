// SPDX-License-Identifier: BSD-3-Clause
#include "ordering_stages.hpp"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#ifdef BENCH_HAS_AMD
#include <amd.h>
#endif

#include "base/clock.hpp"
#include "graph/compress.hpp"
#include "graph/symbolic_cost.hpp"
#include "matching/mps.hpp"
#include "matching/mpssym.hpp"
#include "ordering/amd.hpp"
#include "ordering/dissect.hpp"
#include "ordering/reorder1.hpp"
#include "problem.hpp"
#include "symbolic/sched.hpp"
#include "symbolic/sfinit.hpp"
#include "symbolic/structure.hpp"
#include "symbolic/symfct.hpp"
#include "velmora.h"

namespace vlm {
namespace {

#ifdef BENCH_HAS_AMD
constexpr bool has_amd = true;
void order_by_amd(const WeightedGraph& graph, Vector<int>& order) {
  amd_order(graph.n, graph.ptr.data(), graph.adj.data(), order.data(), nullptr, nullptr);
}
#else
constexpr bool has_amd = false;
void order_by_amd(const WeightedGraph&, Vector<int>&) {}
#endif

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
    StructurePlan plan = plan_structure(entries, analysis, threads);
    void* const block = std::malloc(plan.bytes);
    if (block == nullptr) throw std::bad_alloc();
    build_structure(block, entries, plan, analysis);
    std::free(block);
  });
  return out;
}

Adjacency adjacency_of(const gallery::Matrix& m) {
  Adjacency graph;
  const Pattern pattern{m.n, View<const int>(m.ia), View<const int>(m.ja)};
  m.triangle() ? ladj_mod_velmora(pattern, graph) : ladjun_velmora(pattern, {}, graph);
  return graph;
}

/// The longest way from the whole graph to a leaf, loops being shared.
double longest_path(const DissectionTrace& trace) {
  std::vector<double> end(trace.pieces.size());
  double longest = 0;
  for (std::size_t k = 0; k < end.size(); ++k) {  // parents come first
    const DissectionTrace::Piece& piece = trace.pieces[k];
    end[k] = piece.shared + (piece.parent < 0 ? 0 : end[piece.parent]);
    longest = std::max(longest, end[k]);
  }
  return longest;
}

}  // namespace

gallery::Matrix named_matrix(const std::string& problem) {
  gallery::Matrix m = bench::load(problem, 0).matrix;
  if (m.name.empty()) m.name = problem.substr(problem.rfind('/') + 1);
  return m;
}

double memory_of(const std::function<void()>& run) {
  int ends[2];
  if (pipe(ends) != 0) return 0;
  const pid_t child = fork();
  if (child == 0) {
    const auto kilobytes = [](const char* name) {
      double value = 0;
      if (std::FILE* status = std::fopen("/proc/self/status", "r")) {
        char line[256];
        while (std::fgets(line, sizeof line, status) != nullptr)
          if (std::strncmp(line, name, std::strlen(name)) == 0)
            value = std::atof(line + std::strlen(name) + 1);
        std::fclose(status);
      }
      return value;
    };
    malloc_trim(0);
    if (std::FILE* peak = std::fopen("/proc/self/clear_refs", "w")) {  // begins anew
      std::fputs("5", peak);
      std::fclose(peak);
    }
    const double before = kilobytes("VmRSS");
    run();
    const double bytes = (kilobytes("VmHWM") - before) * 1024;
    _exit(write(ends[1], &bytes, sizeof bytes) == sizeof bytes ? 0 : 1);
  }
  double bytes = 0;
  const bool told = child > 0 && read(ends[0], &bytes, sizeof bytes) == sizeof bytes;
  close(ends[0]);
  close(ends[1]);
  if (child > 0) waitpid(child, nullptr, 0);
  return told ? bytes : 0;
}

void print_paths(const std::vector<std::string>& problems) {
  std::printf(
      "| matrix | threads | compression | pieces | longest path | pieces on the threads | tree, "
      "counts, domains | sum | speed-up |\n|---|---|---|---|---|---|---|---|---|\n");
  for (const std::string& name : problems) {
    const gallery::Matrix m = named_matrix(name);
    const Adjacency graph = adjacency_of(m);
    for (const int threads : {1, 2, 4, 8, 16}) {
      double start = timer_velmora();
      const CompressedGraph compressed = compress_graph(graph);
      const double compression = timer_velmora() - start;
      DissectionTrace trace;
      trace.threads = threads;
      dissect(compressed.graph, {.domains = threads, .trace = &trace});
      double work = 0;
      for (const DissectionTrace::Piece& piece : trace.pieces) work += piece.seconds;
      const double path = longest_path(trace), pieces = std::max(path, work / threads);
      const double one = compression + work + trace.rest, sum = compression + pieces + trace.rest;
      std::printf("| %s | %d | %.3g | %.3g | %.3g | %.3g | %.3g | %.3g ms | %.2f |\n",
                  m.name.c_str(), threads, compression * 1e3, work * 1e3, path * 1e3, pieces * 1e3,
                  trace.rest * 1e3, sum * 1e3, one / sum);
      std::fflush(stdout);
    }
  }
}

void print_degrees(const std::vector<std::string>& problems) {
  std::printf(
      "| matrix | n | minimum degree ms | operations | minimum fill ms | operations |%s\n"
      "|---|---|---|---|---|---|%s\n",
      has_amd ? " AMD ms | operations |" : "", has_amd ? "---|---|" : "");
  for (const std::string& name : problems) {
    const gallery::Matrix m = named_matrix(name);
    const WeightedGraph graph = weighted_graph(adjacency_of(m));
    constexpr EliminationScore scores[] = {EliminationScore::degree, EliminationScore::fill};
    double least[3] = {1e300, 1e300, 1e300};
    Vector<int> order[3];
    order[2].resize(graph.n);
    for (int run = 0; run < 5; ++run)
      for (const int k : {0, 1, 2}) {
        const double start = timer_velmora();
        if (k < 2) {
          order[k].clear();
          minimum_score(graph, 0, scores[k], order[k]);
        } else {
          order_by_amd(graph, order[k]);
        }
        least[k] = std::min(least[k], timer_velmora() - start);
      }
    std::printf("| %s | %d |", m.name.c_str(), m.n);
    for (int k = 0; k < (has_amd ? 3 : 2); ++k)
      std::printf(" %.3g | %.3g |", least[k] * 1e3, postorder_and_cost(graph, order[k]).flops);
    std::printf("\n");
    std::fflush(stdout);
  }
}

void print_stages(const std::vector<std::string>& problems) {
  std::printf(
      "| matrix | threads | adjacency | order | tree, counts | panels, rows | lists | input map | "
      "sum |\n|---|---|---|---|---|---|---|---|---|\n");
  for (const std::string& name : problems) {
    const gallery::Matrix m = named_matrix(name);
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

namespace {

/// Seconds of a whole analysis by the library with a matching.
double matched_analysis(const gallery::Matrix& m, int threads) {
  void* pt[64] = {};
  int iparm[64] = {}, one = 1, solver = 0, error = 0, quiet = 0, mtype = m.mtype, n = m.n;
  double dparm[64] = {};
  int phase = 11;
  iparm[2] = threads;
  velmorainit(pt, &mtype, &solver, iparm, dparm, &error);
  iparm[2] = threads;
  iparm[12] = 1;
  const auto run = [&] {
    velmora(pt, &one, &one, &mtype, &phase, &n, const_cast<double*>(m.a.data()),
            const_cast<int*>(m.ia.data()), const_cast<int*>(m.ja.data()), nullptr, &one, iparm,
            &quiet, nullptr, nullptr, &error, dparm);
  };
  const double start = timer_velmora();
  run();
  const double seconds = timer_velmora() - start;
  phase = -1;
  run();
  return seconds;
}

}  // namespace

void print_matchings(const std::vector<std::string>& problems) {
  std::printf(
      "| matrix | threads | costs | start | paths | pairs | matching | analysis | share |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
  for (const std::string& name : problems) {
    const gallery::Matrix m = named_matrix(name);
    for (const int threads : {1, 2}) {
      double least[5] = {1e300, 1e300, 1e300, 0, 1e300};
      const auto keep = [](double& at, double start) {
        at = std::min(at, timer_velmora() - start);
      };
      if (m.triangle()) least[3] = 1e300;
      for (int run = 0; run < 5; ++run) {
        const MatchInput input{m.n, m.ia.data(), m.ja.data(), m.a.data(), m.triangle(), threads};
        double start = timer_velmora();
        const mps_csr cost = csr_create_log(input);
        keep(least[0], start);
        start = timer_velmora();
        MatchState state = kuhn_munkres_init(cost, threads);
        keep(least[1], start);
        start = timer_velmora();
        kuhn_munkres(cost, state);
        keep(least[2], start);
        if (m.triangle()) {
          const MatchResult match = mps_velmora(input);
          start = timer_velmora();
          const PairedOrder pairs = reordering_matching_sym2x2(input, match.perm);
          if (match.u.empty() || !worth_exchanging(exchangeable_pairs(input, match, pairs))) {
            PairGraph compressed;
            compress_2x2_blocks(input, pairs, compressed);
          } else {
            Adjacency graph;
            uncompressed_graph(input, graph);
          }
          keep(least[3], start);
        }
        least[4] = std::min(least[4], matched_analysis(m, threads));
      }
      const double sum = least[0] + least[1] + least[2] + least[3];
      std::printf("| %s | %d |", m.name.c_str(), threads);
      for (int k = 0; k < 4; ++k) std::printf(" %.3g |", least[k] * 1e3);
      std::printf(" %.3g | %.3g ms | %.2f |\n", sum * 1e3, least[4] * 1e3, sum / least[4]);
      std::fflush(stdout);
    }
  }
}

}  // namespace vlm
