// SPDX-License-Identifier: BSD-3-Clause
#include "metis/vertex_cut.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "base/memory.hpp"

namespace vlm {
namespace {

constexpr int none = -1;
constexpr int unbounded = std::numeric_limits<int>::max();

// Arcs come in pairs: arc a and its reverse a^1.
class FlowNetwork {
 public:
  FlowNetwork(int nodes, std::size_t arcs) : first_(nodes, none) {
    head_.reserve(2 * arcs);
    room_.reserve(2 * arcs);
    next_.reserve(2 * arcs);
  }

  void add(int from, int to, int capacity) {
    append(from, to, capacity);
    append(to, from, 0);
  }

  void maximise(int source, int sink) {
    while (assign_levels(source, sink)) {
      current_ = first_;
      push_blocking_flow(source, sink);
    }
  }

  // Nodes that a node can still send flow to, or backwards, that can send flow to it.
  Vector<char> reach(int from, bool backwards) const {
    Vector<char> seen(first_.size(), 0);
    Vector<int> queue{from};
    seen[from] = 1;
    for (std::size_t q = 0; q < queue.size(); ++q)
      for (int a = first_[queue[q]]; a != none; a = next_[a])
        if (room_[backwards ? a ^ 1 : a] > 0 && !seen[head_[a]]) {
          seen[head_[a]] = 1;
          queue.push_back(head_[a]);
        }
    return seen;
  }

 private:
  void append(int from, int to, int capacity) {
    head_.push_back(to);
    room_.push_back(capacity);
    next_.push_back(first_[from]);
    first_[from] = static_cast<int>(head_.size()) - 1;
  }

  bool assign_levels(int source, int sink) {
    level_.assign(first_.size(), none);
    level_[source] = 0;
    queue_.assign(1, source);
    for (std::size_t q = 0; q < queue_.size() && level_[sink] == none; ++q)
      for (int a = first_[queue_[q]]; a != none; a = next_[a])
        if (room_[a] > 0 && level_[head_[a]] == none) {
          level_[head_[a]] = level_[queue_[q]] + 1;
          queue_.push_back(head_[a]);
        }
    return level_[sink] != none;
  }

  // Depth-first search along rising levels; every node remembers the arc it has come to.
  void push_blocking_flow(int source, int sink) {
    path_.clear();
    for (int node = source;;) {
      if (node == sink) {
        node = push_along_path();
        continue;
      }
      int& a = current_[node];
      while (a != none && !(room_[a] > 0 && level_[head_[a]] == level_[node] + 1)) a = next_[a];
      if (a != none) {
        path_.push_back(a);
        node = head_[a];
        continue;
      }
      if (path_.empty()) return;
      level_[node] = none;  // leads nowhere
      node = head_[path_.back() ^ 1];
      path_.pop_back();
    }
  }

  // Fills the path, and steps back to the tail of its first full arc.  Every path crosses an
  // arc of bounded capacity, which is full afterwards or limits the amount.
  int push_along_path() {
    int amount = unbounded;
    for (const int a : path_) amount = std::min(amount, room_[a]);
    std::size_t keep = path_.size();
    for (std::size_t k = path_.size(); k-- > 0;) {
      const int a = path_[k];
      if (room_[a] != unbounded) room_[a] -= amount;
      if (room_[a ^ 1] != unbounded) room_[a ^ 1] += amount;
      if (room_[a] == 0) keep = k;
    }
    const int node = head_[path_[keep] ^ 1];
    path_.resize(keep);
    return node;
  }

  Vector<int> first_, head_, room_, next_, level_, current_, queue_, path_;
};

}  // namespace

VertexCut minimum_vertex_cut(const WeightedGraph& graph, const Vector<char>& at_source,
                             const Vector<char>& at_sink) {
  const int n = graph.n, source = 2 * n, sink = 2 * n + 1;
  FlowNetwork network(2 * n + 2, graph.adj.size() + 3 * static_cast<std::size_t>(n));
  for (int v = 0; v < n; ++v) {
    const int in = 2 * v, out = 2 * v + 1;
    network.add(in, out, graph.weight[v]);
    for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k)
      network.add(out, 2 * graph.adj[k], unbounded);
    if (at_source[v]) network.add(source, in, unbounded);
    if (at_sink[v]) network.add(out, sink, unbounded);
  }
  network.maximise(source, sink);

  VertexCut cut{Vector<int>(n), Vector<int>(n)};
  const Vector<char> forward = network.reach(source, false);
  const Vector<char> backward = network.reach(sink, true);
  for (int v = 0; v < n; ++v) {
    const int in = 2 * v, out = 2 * v + 1;
    cut.near_source[v] = forward[out] ? 0 : forward[in] ? 2 : 1;
    cut.near_sink[v] = backward[in] ? 1 : backward[out] ? 2 : 0;
  }
  return cut;
}

}  // namespace vlm
