// SPDX-License-Identifier: BSD-3-Clause
/// Graphs of a multilevel scheme: the caller's by reference, coarser ones with edge weights.
#pragma once

#include <cstdint>

#include "base/memory.hpp"
#include "graph/weighted_graph.hpp"

namespace vlm {

/// A graph of some level, by reference; 0-based compressed rows, both triangles, no diagonal.
struct LevelGraph {
  int n = 0;
  const int* ptr = nullptr;     ///< [n+1]
  const int* adj = nullptr;     ///< [ptr[n]]
  const int* weight = nullptr;  ///< [n]
  const int* edge = nullptr;    ///< [ptr[n]] weight of an edge; null: all are 1
};

/// A contracted graph, and where the vertices of the finer one went.
struct CoarseLevel {
  WeightedGraph graph;
  Vector<int> edge;     ///< [graph.ptr[graph.n]] edges of the finer graph that an edge stands for
  Vector<int> cluster;  ///< vertex of this graph for each of the finer one
};

inline LevelGraph level_of(const WeightedGraph& g) {
  return {g.n, g.ptr.data(), g.adj.data(), g.weight.data(), nullptr};
}

inline LevelGraph level_of(const CoarseLevel& level) {
  LevelGraph out = level_of(level.graph);
  out.edge = level.edge.data();
  return out;
}

/// Random numbers of a separator: the same in each run, and nobody else's (S. Vigna, "Further
/// scramblings of Marsaglia's xorshift generators", 2017: the finisher of splitmix64).
class SplitMix {
 public:
  explicit SplitMix(std::uint64_t seed) : state_(seed) {}
  std::uint64_t operator()() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15U;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31);
  }
  int below(int n) {
    return static_cast<int>(((*this)() >> 32) * static_cast<std::uint64_t>(n) >> 32);
  }

 private:
  std::uint64_t state_;
};

}  // namespace vlm
