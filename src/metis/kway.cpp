// SPDX-License-Identifier: BSD-3-Clause
#include "metis/kway.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>

#include "metis/separator.hpp"

namespace vlm {
namespace {

std::int64_t weight_of(const WeightedGraph& graph) {
  return std::accumulate(graph.weight.begin(), graph.weight.end(), std::int64_t{0});
}

class Partitioner {
 public:
  explicit Partitioner(const WeightedGraph& graph) : part_(graph.n, 0), place_(graph.n) {}

  void divide(const WeightedGraph& graph, const Vector<int>& vertex, int first, int parts) {
    if (parts == 1) {
      for (const int v : vertex) part_[v] = first;
      return;
    }
    const int before = parts / 2;
    const Vector<int> side = bisect(graph, weight_of(graph) * before / parts);
    for (const int s : {0, 1}) {
      Vector<int> inside;
      const WeightedGraph half = induced(graph, side, s, place_, inside);
      for (int& v : inside) v = vertex[v];
      divide(half, inside, s == 0 ? first : first + before, s == 0 ? before : parts - before);
    }
  }

  Vector<int> take() { return std::move(part_); }

 private:
  /// Sides 0 and 1, the first of about the weight `wanted`.
  Vector<int> bisect(const WeightedGraph& graph, std::int64_t wanted) {
    Vector<int> side(graph.n, 1);
    bool layered = false;
    if (!graph.adj.empty()) {
      const Sides sides = find_separator(graph, {}, layered, separator_, alone_);
      std::ranges::copy(sides, side.begin());
    }
    std::int64_t lacking = wanted;  // of side 0
    for (int v = 0; v < graph.n; ++v)
      if (side[v] == 0) lacking -= graph.weight[v];
    for (int v = 0; v < graph.n; ++v) {
      if (side[v] != 2) continue;
      side[v] = lacking > 0 ? 0 : 1;
      if (side[v] == 0) lacking -= graph.weight[v];
    }
    if (10 * std::abs(lacking) > wanted) grow(graph, lacking > 0 ? 0 : 1, std::abs(lacking), side);
    return side;
  }

  /// Moves vertices of the other side that are nearest to side s there, until the weight is moved.
  static void grow(const WeightedGraph& graph, int s, std::int64_t weight, Vector<int>& side) {
    Vector<int> queue;
    queue.reserve(graph.n);
    for (int v = 0; v < graph.n; ++v)
      if (side[v] == s) queue.push_back(v);
    const auto take = [&](int v) {
      if (side[v] == s || 2 * weight < graph.weight[v]) return;
      side[v] = s;
      weight -= graph.weight[v];
      queue.push_back(v);
    };
    int start = 0;  // of what no path leads to
    for (std::size_t q = 0; weight > 0; ++q) {
      while (q == queue.size() && start < graph.n) take(start++);
      if (q == queue.size()) return;
      for (int k = graph.ptr[queue[q]]; k < graph.ptr[queue[q] + 1]; ++k) take(graph.adj[k]);
    }
  }

  Vector<int> part_, place_;
  SeparatorWorkspace separator_;
  WorkTeam alone_;
};

}  // namespace

Vector<int> kway_parts(const WeightedGraph& graph, int parts) {
  Partitioner partitioner(graph);
  Vector<int> all(graph.n);
  std::iota(all.begin(), all.end(), 0);
  partitioner.divide(graph, all, 0, parts);
  return partitioner.take();
}

}  // namespace vlm
