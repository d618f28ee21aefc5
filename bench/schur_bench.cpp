// SPDX-License-Identifier: BSD-3-Clause
// What a Schur complement costs: fill of the eliminated part where the kept nodes are held back
// while the others are ordered, against an order of all nodes from which they are moved behind.
//
//   schur_bench
//
// Seconds are processor time of one thread for the ordering, the least of three runs.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "gallery/gallery.hpp"
#include "graph/adjacency.hpp"
#include "graph/ordering.hpp"
#include "ordering/reorder1.hpp"
#include "symbolic/sfinit.hpp"

namespace vlm {
namespace {

double seconds_of(const std::function<void()>& run) {
  double least = 1e300;
  for (int k = 0; k < 3; ++k) {
    const std::clock_t start = std::clock();
    run();
    least = std::min(least, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
  }
  return least;
}

struct Problem {
  std::string name;
  Adjacency graph;
  Vector<char> kept;  // [n] nodes of the Schur complement
};

Adjacency adjacency_of(const gallery::Matrix& m) {
  Adjacency graph;
  const Pattern pattern{m.n, View<const int>(m.ia), View<const int>(m.ja)};
  m.triangle() ? ladj_mod_velmora(pattern, graph) : ladjun_velmora(pattern, {}, graph);
  return graph;
}

// Nodes of a grid with g points an edge, `unknowns` a point, chosen by their coordinates.
Problem grid_problem(const std::string& name, const gallery::Matrix& m, int g, int dimensions,
                     int unknowns, const std::function<bool(const int*)>& keeps) {
  Problem p{name, adjacency_of(m), Vector<char>(m.n, 0)};
  for (int i = 0; i < m.n; ++i) {
    int at[3] = {}, rest = i / unknowns;
    for (int d = 0; d < dimensions; ++d, rest /= g) at[d] = rest % g;
    p.kept[i] = keeps(at);
  }
  return p;
}

std::vector<Problem> problems() {
  std::vector<Problem> list;
  const auto side = [](const int* at) { return at[0] == 0; };
  const auto frame = [](int g, int dimensions) {
    return [=](const int* at) {
      return std::any_of(at, at + dimensions, [&](int x) { return x == 0 || x == g - 1; });
    };
  };
  const auto few = [](int every) {
    return [=](const int* at) { return (at[0] * 7919 + at[1] * 104729 + at[2] * 31) % every == 0; };
  };
  for (const int g : {200, 600}) {
    const gallery::Matrix m = gallery::poisson2d(g);
    const std::string name = "poisson2d " + std::to_string(g);
    list.push_back(grid_problem(name + ", one side", m, g, 2, 1, side));
    list.push_back(grid_problem(name + ", all sides", m, g, 2, 1, frame(g, 2)));
    list.push_back(grid_problem(name + ", scattered", m, g, 2, 1, few(g)));
  }
  for (const int g : {20, 40}) {
    const gallery::Matrix m = gallery::poisson3d(g);
    const std::string name = "poisson3d " + std::to_string(g);
    list.push_back(grid_problem(name + ", one side", m, g, 3, 1, side));
    list.push_back(grid_problem(name + ", all sides", m, g, 3, 1, frame(g, 3)));
    list.push_back(grid_problem(name + ", scattered", m, g, 3, 1, few(g * g)));
  }
  const int g = 24;
  const gallery::Matrix m = gallery::elasticity3d(g, 1);
  list.push_back(grid_problem("elasticity3d 24, one side", m, g, 3, 3, side));
  list.push_back(grid_problem("elasticity3d 24, all sides", m, g, 3, 3, frame(g, 3)));
  return list;
}

// Entries of the columns that are eliminated, and the operations on them.
struct Cost {
  double entries = 0, flops = 0, seconds = 0;
};

Cost cost_of(const Problem& p, const Ordering& order, int kept) {
  Analysis analysis;
  analysis.graph = p.graph;
  analysis.order = order;
  analysis.trailing = kept;
  sfinit_velmora({}, analysis);
  Cost cost;
  for (int j = 0; j < p.graph.n - kept; ++j) {
    const double count = analysis.colcnt[j];
    cost.entries += count;
    cost.flops += count * count;
  }
  return cost;
}

Cost measure(const Problem& p, const OrderOptions& options, bool hold_back) {
  const int kept = static_cast<int>(std::count(p.kept.begin(), p.kept.end(), 1));
  Ordering order;
  const double seconds = seconds_of([&] {
    order = {};
    order_by_method(options, p.graph, order, hold_back ? p.kept : Vector<char>());
  });
  Vector<int> group(p.graph.n);
  std::transform(p.kept.begin(), p.kept.end(), group.begin(), [](int mark) { return 1 + mark; });
  regroup(order, group, 2);
  Cost cost = cost_of(p, order, kept);
  cost.seconds = seconds;
  return cost;
}

void compare(const Problem& p) {
  for (const OrderOptions& options : {OrderOptions{.method = OrderMethod::dissection},
                                      OrderOptions{.method = OrderMethod::dissection, .domains = 2},
                                      OrderOptions{.method = OrderMethod::minimum_degree}}) {
    const Cost moved = measure(p, options, false), held = measure(p, options, true);
    std::printf("| %s | %d | %d, %d | %.3g | %.3g | %.2f | %.3g | %.3g | %.2f | %.3f | %.3f |\n",
                p.name.c_str(), static_cast<int>(std::count(p.kept.begin(), p.kept.end(), 1)),
                static_cast<int>(options.method), options.domains, moved.entries, held.entries,
                held.entries / moved.entries, moved.flops, held.flops, held.flops / moved.flops,
                moved.seconds, held.seconds);
  }
}

}  // namespace
}  // namespace vlm

int main() {
  std::puts(
      "| graph, kept nodes | kept | iparm(2), domains | entries moved | held | ratio | operations "
      "moved "
      "| held | ratio | order s moved | held |\n|---|---|---|---|---|---|---|---|---|---|---|");
  for (const vlm::Problem& p : vlm::problems()) vlm::compare(p);
}
