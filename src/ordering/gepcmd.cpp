// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/gepcmd.hpp"

#include <algorithm>
#include <numeric>

#include "base/memory.hpp"
#include "base/view.hpp"
#include "graph/weighted_graph.hpp"
#include "metis/kway.hpp"
#include "ordering/gepmmd.hpp"

namespace vlm {
namespace {

// Deterministic shuffle of 1..n (Fisher and Yates with a linear congruential generator).
Vector<int> random_sequence(int n) {
  Vector<int> sequence(n);
  std::iota(sequence.begin(), sequence.end(), 1);
  std::uint64_t state = 4321;
  for (int k = n - 1; k > 0; --k) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    std::swap(sequence[k], sequence[(state >> 33) % static_cast<std::uint64_t>(k + 1)]);
  }
  return sequence;
}

// Marks the vertices with a neighbour in another part, then drops each one whose neighbours
// across the cut are all marked: what stays covers every cut edge.
Vector<char> interface_cover(const Adjacency& graph, const Vector<int>& part) {
  const View<const int> xadj(graph.xadj), adjncy(graph.adjncy), part_of(part);
  Vector<char> marks(graph.n, 0);
  const View<char> marked(marks);
  const auto any_across = [&](int v, auto test) {
    for (int k = xadj(v); k < xadj(v + 1); ++k)
      if (part_of(adjncy(k)) != part_of(v) && test(adjncy(k))) return true;
    return false;
  };
  for (int v = 1; v <= graph.n; ++v) marked(v) = any_across(v, [](int) { return true; });
  for (const int v : random_sequence(graph.n))
    if (marked(v)) marked(v) = any_across(v, [&](int u) { return !marked(u); });
  return marks;
}

}  // namespace

DomainSplit ddecomp_velmora(const Adjacency& graph, int parts) {
  const int n = graph.n;
  parts = std::clamp(parts, 1, std::max(n, 1));
  const Vector<int> part = kway_parts(weighted_graph(graph), parts);
  const Vector<char> marks = interface_cover(graph, part);

  // Counting sort by interior part, then by interface part.
  Vector<int> start(2 * static_cast<std::size_t>(parts) + 1, 0);
  const auto group = [&](int i) { return part[i] + (marks[i] ? parts : 0); };
  for (int i = 0; i < n; ++i) ++start[group(i) + 1];
  for (std::size_t g = 1; g < start.size(); ++g) start[g] += start[g - 1];
  DomainSplit split;
  split.interface_nodes = n - start[parts];
  split.perm.resize(n);
  for (int i = 0; i < n; ++i) split.perm[start[group(i)]++] = i + 1;
  return split;
}

void gepcmd_velmora(const Adjacency& graph, int parts, Ordering& order, const Vector<char>& held) {
  const DomainSplit split = ddecomp_velmora(graph, parts);
  // Two nodes more than the interface keep their place in the split.
  const int count = std::min(graph.n, split.interface_nodes + 2);
  Vector<int> last(split.perm.end() - count, split.perm.end());
  if (!held.empty()) {
    std::erase_if(last, [&](int node) { return held[node - 1] != 0; });
    for (int node = 1; node <= graph.n; ++node)
      if (held[node - 1] != 0) last.push_back(node);
  }
  cmd_velmora(graph, last, order);
}

}  // namespace vlm
