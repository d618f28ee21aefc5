// SPDX-License-Identifier: BSD-3-Clause
// Measures the figures by which nested dissection decides (src/graph/dissection_tuning.hpp).
//
//   ordering_bench --nodend [PROBLEM...]   orders and analyses beside METIS_NodeND
//   ordering_bench --memory PROBLEM...     memory of orders and analyses beside METIS_NodeND
//   ordering_bench --stages PROBLEM...     the stages of analyses, one and two threads
//   ordering_bench --path PROBLEM...       computed times of orders on up to 16 threads
//   ordering_bench --matching PROBLEM...   steps of matchings, and their share of analyses
//   ordering_bench --degree PROBLEM...     minimum degree beside AMD
//   ordering_bench --separators            seconds of separators and of minimum degree
//   ordering_bench --operations            operations a second of the factorization
//   ordering_bench --savings               operations that a level of separators saves
//   ordering_bench --pairs                 operations that exchanges of matched pairs save
//   ordering_bench --vary FIGURE           orders with half and with twice a figure
//
// Seconds are processor time of one thread, the least of three runs.
#include <metis.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/clock.hpp"
#include "base/matrix_types.hpp"
#include "gallery/gallery.hpp"
#include "graph/adjacency.hpp"
#include "graph/compress.hpp"
#include "graph/symbolic_cost.hpp"
#include "matching/mpssym.hpp"
#include "metis/separator.hpp"
#include "ordering/amd.hpp"
#include "ordering/dissect.hpp"
#include "ordering/gepmetis.hpp"
#include "ordering_stages.hpp"
#include "problem.hpp"
#include "velmora.h"

namespace vlm {
namespace {

using gallery::Matrix;

/// Least processor time of three runs.
double seconds_of(const std::function<void()>& run) {
  double least = 1e300;
  for (int k = 0; k < 3; ++k) {
    const std::clock_t start = std::clock();
    run();
    least = std::min(least, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
  }
  return least;
}

double once(const std::function<void()>& run) {
  const std::clock_t start = std::clock();
  run();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// Least wall clock of three runs.
double wall_seconds_of(const std::function<void()>& run) {
  double least = 1e300;
  for (int k = 0; k < 3; ++k) {
    const double start = timer_velmora();
    run();
    least = std::min(least, timer_velmora() - start);
  }
  return least;
}

/// Geometric means of ratios.
struct Means {
  double sum[4] = {}, most = 0;
  int count = 0;
  void add(double order, double analysis, double flops, double threads) {
    const double ratios[] = {order, analysis, flops, threads};
    for (int k = 0; k < 4; ++k) sum[k] += std::log(ratios[k]);
    most = std::max(most, flops);
    ++count;
  }
  void print() const {
    const auto mean = [&](int k) { return std::exp(sum[k] / std::max(count, 1)); };
    std::printf(
        "geometric means: order %.2f, analysis %.2f, operations %.3f (largest %.3f), two "
        "threads %.2f\n",
        mean(0), mean(1), mean(2), most, mean(3));
  }
};

Adjacency adjacency_of(const Matrix& m) {
  Adjacency graph;
  const Pattern pattern{m.n, View<const int>(m.ia), View<const int>(m.ja)};
  m.triangle() ? ladj_mod_velmora(pattern, graph) : ladjun_velmora(pattern, {}, graph);
  return graph;
}

struct NamedGraph {
  std::string name;
  WeightedGraph graph;
};

NamedGraph compressed(const Matrix& m) { return {m.name, compress_graph(adjacency_of(m)).graph}; }

/// Flat and solid meshes of two sizes each.
std::vector<NamedGraph> meshes() {
  std::vector<NamedGraph> list;
  for (const Matrix& m : {gallery::poisson2d(300), gallery::poisson2d(600), gallery::plate(150, 1),
                          gallery::plate(300, 1), gallery::poisson3d(30), gallery::poisson3d(48),
                          gallery::elasticity3d(30, 1), gallery::elasticity3d(40, 1),
                          gallery::cfd_blocks(30, 1), gallery::convection_diffusion(40, 10, 1)})
    list.push_back(compressed(m));
  return list;
}

/// Least squares of the relative error of a times x plus b times y against z.
struct Fit {
  double xx = 0, xy = 0, yy = 0, x1 = 0, y1 = 0;
  void add(double x, double y, double z) {
    xx += x / z * (x / z);
    xy += x / z * (y / z);
    yy += y / z * (y / z);
    x1 += x / z;
    y1 += y / z;
  }
  double a() const { return (x1 * yy - y1 * xy) / (xx * yy - xy * xy); }
  double b() const { return (y1 * xx - x1 * xy) / (xx * yy - xy * xy); }
};

/// Vertices of the separator that METIS finds.
int metis_separator(const WeightedGraph& g) {
  std::vector<idx_t> ptr(g.ptr.begin(), g.ptr.end()), adj(g.adj.begin(), g.adj.end());
  std::vector<idx_t> weight(g.weight.begin(), g.weight.end()), where(g.n);
  idx_t options[METIS_NOPTIONS], n = g.n, size = 0;
  METIS_SetDefaultOptions(options);
  options[METIS_OPTION_UFACTOR] = 200;
  METIS_ComputeVertexSeparator(&n, ptr.data(), adj.data(), weight.data(), options, &size,
                               where.data());
  return static_cast<int>(std::count(where.begin(), where.end(), 2));
}

/// seconds_per_vertex, seconds_per_neighbour, of the separator alone: the graphs of its sides come on
/// top.
void measure_separators() {
  Fit fit;
  std::printf("%-24s %8s %9s %6s %7s %9s | %6s %9s | %9s\n", "graph", "vertices", "neighbrs", "cut",
              "cut^2/n", "seconds", "METIS", "seconds", "mindeg s");
  for (const NamedGraph& named : meshes()) {
    const WeightedGraph& g = named.graph;
    const double neighbours = static_cast<double>(g.adj.size());
    SeparatorWorkspace workspace;
    WorkTeam alone;
    Sides side;
    Vector<int> order;
    int peer = 0;
    const double seconds = seconds_of([&] {
      bool layered = true;
      side = find_separator(g, {}, layered, workspace, alone);
    });
    const double metis = seconds_of([&] { peer = metis_separator(g); });
    const double degree = seconds_of([&] {
      order.clear();
      minimum_score(g, 0, EliminationScore::fill, order);
    });
    const double cut = static_cast<double>(std::count(side.begin(), side.end(), 2));
    std::printf("%-24s %8d %9.0f %6.0f %7.2f %9.4f | %6d %9.4f | %9.4f\n", named.name.c_str(), g.n,
                neighbours, cut, cut * cut / g.n, seconds, peer, metis, degree);
    fit.add(g.n, neighbours, seconds);
  }
  std::printf("seconds_per_vertex %.2g, seconds_per_neighbour %.2g\n", fit.a(), fit.b());
}

/// Operations of the factor for an order of the nodes.
/// @param base  of the nodes in the order
double operations(const Adjacency& graph, const std::vector<int>& perm, int base = 1) {
  Vector<int> order(perm.begin(), perm.end());
  for (int& v : order) v -= base;
  return postorder_and_cost(weighted_graph(graph), order).flops;
}

/// seconds_per_flop.
void measure_operations() {
  std::printf("%-24s %12s %9s %16s\n", "matrix", "operations", "seconds", "operations / s");
  for (const Matrix& m :
       {gallery::dense(3000, 1, 2), gallery::poisson3d(40), gallery::elasticity3d(20, 1)}) {
    void* pt[64] = {};
    int iparm[64] = {}, one = 1, solver = 0, error = 0, quiet = 0, mtype = m.mtype, n = m.n;
    double dparm[64] = {};
    iparm[2] = 1;
    velmorainit(pt, &mtype, &solver, iparm, dparm, &error);
    iparm[2] = 1;
    iparm[4] = -1;  // the order comes back
    std::vector<int> perm(m.n);
    const auto run = [&](int phase) {
      velmora(pt, &one, &one, &mtype, &phase, &n, m.a.data(), m.ia.data(), m.ja.data(), perm.data(),
              &one, iparm, &quiet, nullptr, nullptr, &error, dparm);
    };
    run(11);
    const double seconds = seconds_of([&] { run(22); });
    run(-1);
    const double flops = operations(adjacency_of(m), perm);
    std::printf("%-24s %12.4g %9.4f %16.3g\n", m.name.c_str(), flops, seconds, flops / seconds);
  }
  std::printf("seconds_per_flop is two over the rate of the largest fronts\n");
}

/// Operations and seconds of an order.
struct Dissected {
  double flops = 0, seconds = 0;
};

Dissected dissected(const WeightedGraph& graph, const DissectionTuning& tuning) {
  Dissected out;
  DissectionGoal goal;
  goal.tuning = tuning;
  Dissection found;
  out.seconds = seconds_of([&] { found = dissect(graph, goal); });
  out.flops = postorder_and_cost(graph, found.order).flops;
  return out;
}

/// The saving of each level of separators, which are found in pieces of half the size, whatever it
/// costs.
void measure_savings() {
  std::printf("%-24s %12s   saving of levels 1 to 5, and operations for each second they take\n",
              "graph", "mindeg flops");
  for (const NamedGraph& named : meshes()) {
    const double size = named.graph.n + static_cast<double>(named.graph.adj.size());
    DissectionTuning tuning;
    tuning.saved_cubes = 1e30;
    tuning.least_piece = static_cast<int>(size) + 1;
    Dissected before = dissected(named.graph, tuning);
    std::printf("%-24s %12.4g  ", named.name.c_str(), before.flops);
    for (int level = 1; level <= 5; ++level) {
      tuning.least_piece = static_cast<int>(size * 1.5 / (1 << level));  // those before are larger
      const Dissected after = dissected(named.graph, tuning);
      std::printf(" %5.2f (%.0e)", 1 - after.flops / before.flops,
                  (before.flops - after.flops) / std::max(after.seconds - before.seconds, 1e-9));
      before = after;
    }
    std::printf("\n");
  }
}

/// least_exchange.
void measure_pairs() {
  std::printf("%-24s %8s %14s %14s %8s\n", "matrix", "nodes", "fixed flops", "exchanged", "ratio");
  std::vector<Matrix> list;
  for (const int g : {6, 8, 10, 14, 20}) list.push_back(gallery::saddle_point(g, 1));
  for (const int g : {12, 20, 28, 40, 80}) list.push_back(gallery::interior_point_kkt(g, 4, 1));
  for (const Matrix& m : list) {
    const MatchInput input{m.n, m.ia.data(), m.ja.data(), m.a.data(), true};
    const MatchResult match = mps_velmora(input);
    const PairedOrder pairs = reordering_matching_sym2x2(input, match.perm);
    const auto flops = [&](const Ordering& order) {
      return operations(adjacency_of(m), {order.perm.begin(), order.perm.end()});
    };
    PairedOrder candidates;
    Ordering fixed, exchanged;
    mps_sym_velmora(
        input, pairs,
        [](const Adjacency& graph, Ordering& order) {
          gepmetis_velmora(graph, {}, order);
          return 0;
        },
        fixed, candidates);
    if (match.u.empty()) continue;
    Pairing pairing = exchangeable_pairs(input, match, pairs);
    Adjacency graph;
    uncompressed_graph(input, graph);
    if (!dissect_with_pairs(graph, {}, pairing, exchanged)) continue;
    const double kept = flops(fixed), moved = flops(exchanged);
    std::printf("%-24s %8d %14.4g %14.4g %8.3f\n", m.name.c_str(), m.n, kept, moved, moved / kept);
  }
}

/// One analysis by the library: processor seconds, and the order that it found.
double analysis_seconds(Matrix& m, int threads, bool wall, std::vector<int>& perm) {
  void* pt[64] = {};
  int iparm[64] = {}, one = 1, solver = 0, error = 0, quiet = 0, mtype = m.mtype, n = m.n;
  double dparm[64] = {};
  iparm[2] = threads;
  velmorainit(pt, &mtype, &solver, iparm, dparm, &error);
  iparm[2] = threads;
  iparm[4] = -1;  // the order comes back
  perm.assign(m.n, 0);
  const auto run = [&](int phase) {
    velmora(pt, &one, &one, &mtype, &phase, &n, m.a.data(), m.ia.data(), m.ja.data(), perm.data(),
            &one, iparm, &quiet, nullptr, nullptr, &error, dparm);
  };
  const auto analyse = [&] { run(11); };
  const double seconds = wall ? wall_seconds_of(analyse) : seconds_of(analyse);
  run(-1);
  return seconds;
}

/// What the library takes for an operation of a factor of the matrix beside a real symmetric one.
double operation_cost(const Matrix& m) {
  return (m.triangle() ? 1.0 : 2.0) * (matrix_type(m.mtype).complex ? 4.0 : 1.0);
}

/// Orders and analyses of a matrix beside METIS_NodeND, which gets the adjacency as it is.
void compare_with_nodend(Matrix m, Means& means) {
  const Adjacency graph = adjacency_of(m);
  std::vector<idx_t> ptr(graph.xadj.begin(), graph.xadj.end());
  std::vector<idx_t> adj(graph.adjncy.begin(), graph.adjncy.end()), perm(m.n), place(m.n);
  for (idx_t& k : ptr) --k;
  for (idx_t& v : adj) --v;
  idx_t n = m.n;
  std::vector<int> own;
  double metis = 1e300, order = 1e300, analysis = 1e300;
  Ordering found;
  const DissectionRequest request{.operation_cost = operation_cost(m)};
  for (int round = 0; round < 3; ++round) {  // in turns: what else runs slows all of them
    metis = std::min(metis, once([&] {
                       METIS_NodeND(&n, ptr.data(), adj.data(), nullptr, nullptr, perm.data(),
                                    place.data());
                     }));
    order = std::min(order, once([&] { gepmetis_velmora(graph, request, found); }));
    analysis = std::min(analysis, analysis_seconds(m, 1, false, own));
  }
  const double one = analysis_seconds(m, 1, true, own);
  const double two = analysis_seconds(m, 2, true, own);
  const double peer = operations(graph, {perm.begin(), perm.end()}, 0);
  const double flops = operations(graph, {found.perm.begin(), found.perm.end()}, 1);
  std::printf("| %s | %d | %.3g | %.3g | %.2f | %.3g | %.2f | %.3g | %.2f | %.3g | %.3g | %.2f |\n",
              m.name.c_str(), m.n, metis, order, order / metis, analysis, analysis / metis, peer,
              flops / peer, one, two, two / one);
  std::fflush(stdout);
  means.add(order / metis, analysis / metis, flops / peer, two / one);
}

int compare_all(int count, char** problems) {
  std::printf(
      "| matrix | n | NodeND s | order s | ratio | analysis s | ratio | NodeND operations | "
      "ratio | analysis wall s | 2 threads | ratio |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|---|\n");
  Means means;
  for (int k = 0; k < count; ++k) {
    try {
      compare_with_nodend(named_matrix(problems[k]), means);
    } catch (const std::runtime_error& failure) {
      return std::fprintf(stderr, "%s\n", failure.what()), 1;
    }
  }
  if (count == 0)
    for (const bench::ProblemClass& c : bench::problem_classes())
      for (const char* size : {"small", "medium", "large"})
        compare_with_nodend(bench::load(std::string(c.name) + ":" + size, 0).matrix, means);
  means.print();
  return 0;
}

/// Memory of METIS_NodeND, which has its graph, of the order, which has the adjacency, and of whole
/// analyses on one and on two threads.
int compare_memory(int count, char** problems) {
  std::printf(
      "| matrix | NodeND MB | order | ratio | order, 2 threads | analysis | analysis, 2 threads |\n"
      "|---|---|---|---|---|---|---|\n");
  for (int k = 0; k < count; ++k) {
    Matrix m = named_matrix(problems[k]);
    const Adjacency graph = adjacency_of(m);
    std::vector<idx_t> ptr(graph.xadj.begin(), graph.xadj.end());
    std::vector<idx_t> adj(graph.adjncy.begin(), graph.adjncy.end()), perm(m.n), place(m.n);
    for (idx_t& p : ptr) --p;
    for (idx_t& v : adj) --v;
    idx_t n = m.n;
    const double metis = memory_of([&] {
      METIS_NodeND(&n, ptr.data(), adj.data(), nullptr, nullptr, perm.data(), place.data());
    });
    double order[2], analysis[2];
    for (const int threads : {1, 2}) {
      order[threads - 1] = memory_of([&] {
        Ordering found;
        gepmetis_velmora(
            graph, {.nparts = threads, .threads = threads, .operation_cost = operation_cost(m)},
            found);
      });
      analysis[threads - 1] = memory_of([&] {
        std::vector<int> own;
        analysis_seconds(m, threads, false, own);
      });
    }
    std::printf("| %s | %.3g | %.3g | %.2f | %.3g | %.3g | %.3g |\n", m.name.c_str(), metis / 1e6,
                order[0] / 1e6, order[0] / metis, order[1] / 1e6, analysis[0] / 1e6,
                analysis[1] / 1e6);
    std::fflush(stdout);
  }
  return 0;
}

/// Scales a figure by its name; false when there is none of that name.
bool scale(DissectionTuning& tuning, const std::string& name, double by) {
  using T = DissectionTuning;
  const std::pair<const char*, double T::*> reals[] = {
      {"seconds_per_vertex", &T::seconds_per_vertex},
      {"seconds_per_neighbour", &T::seconds_per_neighbour},
      {"seconds_per_flop", &T::seconds_per_flop},
      {"seconds_per_separator", &T::seconds_per_separator},
      {"saved_cubes", &T::saved_cubes},
      {"saved_of_whole", &T::saved_of_whole},
      {"saved_of_solid", &T::saved_of_solid},
      {"saved_of_piece", &T::saved_of_piece},
      {"unlike_sides", &T::unlike_sides},
      {"band_share", &T::band_share},
      {"promising_layer", &T::promising_layer},
      {"hopeless_layer", &T::hopeless_layer}};
  const std::pair<const char*, int T::*> counts[] = {{"least_piece", &T::least_piece},
                                                     {"tried_first", &T::tried_first},
                                                     {"coarse_enough", &T::coarse_enough},
                                                     {"first_cluster", &T::first_cluster},
                                                     {"cluster_size", &T::cluster_size},
                                                     {"attempts", &T::attempts},
                                                     {"passes", &T::passes},
                                                     {"idle_moves", &T::idle_moves},
                                                     {"band_layers", &T::band_layers}};
  for (const auto& [figure, member] : reals)
    if (name == figure) return tuning.*member *= by, true;
  for (const auto& [figure, member] : counts)
    if (name == figure) return tuning.*member = static_cast<int>(tuning.*member * by), true;
  return false;
}

int vary(const std::string& name) {
  DissectionTuning tuning;
  if (!scale(tuning, name, 1)) return std::fprintf(stderr, "no figure %s\n", name.c_str()), 1;
  std::printf("%-24s  seconds of the order + those of its operations, for half, once, twice %s\n",
              "graph", name.c_str());
  for (const NamedGraph& named : meshes()) {
    std::printf("%-24s", named.name.c_str());
    for (const double by : {0.5, 1.0, 2.0}) {
      tuning = {};
      scale(tuning, name, by);
      const Dissected d = dissected(named.graph, tuning);
      const double work = d.flops * DissectionTuning{}.seconds_per_flop;
      std::printf("  %7.3f + %7.3f = %7.3f", d.seconds, work, d.seconds + work);
    }
    std::printf("\n");
  }
  return 0;
}

}  // namespace
}  // namespace vlm

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "--nodend") return vlm::compare_all(argc - 2, argv + 2);
  if (what == "--memory") return vlm::compare_memory(argc - 2, argv + 2);
  if (what == "--stages") return vlm::print_stages({argv + 2, argv + argc}), 0;
  if (what == "--path") return vlm::print_paths({argv + 2, argv + argc}), 0;
  if (what == "--matching") return vlm::print_matchings({argv + 2, argv + argc}), 0;
  if (what == "--degree") return vlm::print_degrees({argv + 2, argv + argc}), 0;
  if (what == "--separators") return vlm::measure_separators(), 0;
  if (what == "--operations") return vlm::measure_operations(), 0;
  if (what == "--savings") return vlm::measure_savings(), 0;
  if (what == "--pairs") return vlm::measure_pairs(), 0;
  if (what == "--vary" && argc > 2) return vlm::vary(argv[2]);
  std::fprintf(stderr,
               "ordering_bench --nodend [PROBLEM...] | --memory PROBLEM... | --stages PROBLEM... | "
               "--path PROBLEM... | "
               "--matching PROBLEM... | --degree PROBLEM... | --separators | "
               "--operations | --savings | "
               "--pairs | --vary FIGURE\n");
  return 1;
}
