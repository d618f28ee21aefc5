// SPDX-License-Identifier: BSD-3-Clause
#include "metis/vertex_cut.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "base/memory.hpp"
#include "base/progress.hpp"

namespace vlm {
namespace {

constexpr int none = -1;
constexpr int unbounded = std::numeric_limits<int>::max();

// The network of a graph, kept by its edges: a vertex v is an arc from the node 2v to the node
// 2v+1 with its weight as capacity, an edge two unbounded arcs from second nodes to first ones.
// Flow from the source enters first nodes, flow to the sink leaves second ones.  The arcs at a node
// of v are numbered by the edges of v in the graph; the number before them is the arc of v itself.
class FlowNetwork {
 public:
  FlowNetwork(const WeightedGraph& graph, const Vector<char>& at_source,
              const Vector<char>& at_sink)
      : g_(graph),
        at_source_(at_source),
        at_sink_(at_sink),
        through_(graph.n, 0),
        along_(graph.adj.size(), 0),
        twin_(graph.adj.size()),
        level_(2 * static_cast<std::size_t>(graph.n)),
        current_(level_.size()) {
    find_twins();
  }

  void maximise() {
    while (assign_levels()) {
      for (int v = 0; v < g_.n; ++v) current_[2 * v] = current_[2 * v + 1] = own_arc(v);
      for (int v = 0; v < g_.n; ++v) {
        if (!at_source_[v]) continue;
        pulse();
        push_from(2 * v);
      }
    }
  }

  // Nodes that the source can still send flow to, or backwards, that can send flow to the sink.
  Vector<char> reach(bool backwards) const {
    Vector<char> seen(level_.size(), 0);
    Vector<int> queue;
    const auto take = [&](int node) {
      if (seen[node]) return;
      seen[node] = 1;
      queue.push_back(node);
    };
    for (int v = 0; v < g_.n; ++v)
      if (backwards ? at_sink_[v] : at_source_[v]) take(backwards ? 2 * v + 1 : 2 * v);
    for (std::size_t q = 0; q < queue.size(); ++q) {
      const int node = queue[q], v = node / 2;
      for (int k = own_arc(v); k < g_.ptr[v + 1]; ++k) {
        const int to = head(node, k), arc = k == own_arc(v) ? k : twin_[k];
        if (backwards ? room(to, arc) > 0 : room(node, k) > 0) take(to);
      }
    }
    return seen;
  }

 private:
  struct Step {
    int node, arc;
  };

  int own_arc(int v) const { return g_.ptr[v] - 1; }
  bool is_own(int node, int k) const { return k == own_arc(node / 2); }
  int head(int node, int k) const {
    return is_own(node, k) ? node ^ 1 : 2 * g_.adj[k] + 1 - (node & 1);
  }

  // How much more flow an arc takes, or how much of the opposite flow it can take back.
  int room(int node, int k) const {
    const bool second = node & 1;
    if (is_own(node, k))
      return second ? through_[node / 2] : g_.weight[node / 2] - through_[node / 2];
    return second ? unbounded : along_[twin_[k]];
  }

  void push(int node, int k, int amount) {
    const bool second = node & 1;
    if (is_own(node, k))
      through_[node / 2] += second ? -amount : amount;
    else
      along_[second ? k : twin_[k]] += second ? amount : -amount;
  }

  // The place of each edge in the list of its other end.
  void find_twins() {
    Vector<int> next(g_.ptr.begin(), g_.ptr.end() - 1);
    Vector<int> edge(g_.adj.size()), tail(g_.adj.size());  // those that lead to a vertex
    for (int v = 0; v < g_.n; ++v)
      for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) {
        const int at = next[g_.adj[k]]++;
        edge[at] = k;
        tail[at] = v;
      }
    Vector<int> place(g_.n);
    for (int v = 0; v < g_.n; ++v) {
      for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) place[g_.adj[k]] = k;
      for (int k = g_.ptr[v]; k < g_.ptr[v + 1]; ++k) twin_[edge[k]] = place[tail[k]];
    }
  }

  // Levels by distance from the source, up to that of the sink; false when it is out of reach.
  bool assign_levels() {
    std::fill(level_.begin(), level_.end(), none);
    queue_.clear();
    sink_level_ = std::numeric_limits<int>::max();
    for (int v = 0; v < g_.n; ++v) {
      if (!at_source_[v]) continue;
      level_[2 * v] = 0;
      queue_.push_back(2 * v);
    }
    for (std::size_t q = 0; q < queue_.size(); ++q) {
      const int node = queue_[q], v = node / 2, next = level_[node] + 1;
      if (next >= sink_level_) break;
      for (int k = own_arc(v); k < g_.ptr[v + 1]; ++k) {
        const int to = head(node, k);
        if (level_[to] != none || room(node, k) == 0) continue;
        level_[to] = next;
        queue_.push_back(to);
        if ((to & 1) != 0 && at_sink_[to / 2]) sink_level_ = next + 1;
      }
    }
    return sink_level_ != std::numeric_limits<int>::max();
  }

  // Depth-first search along rising levels; every node remembers the arc it has come to.
  void push_from(int start) {
    path_.clear();
    for (int node = start;;) {
      const int v = node / 2, next = level_[node] + 1;
      if ((node & 1) != 0 && at_sink_[v] && next == sink_level_) {
        node = push_along_path();
        continue;
      }
      int& k = current_[node];
      const int end = g_.ptr[v + 1];
      while (k < end && !(level_[head(node, k)] == next && room(node, k) > 0)) ++k;
      if (k < end) {
        path_.push_back({node, k});
        node = head(node, k);
        continue;
      }
      if (path_.empty()) return;
      level_[node] = none;  // leads nowhere
      node = path_.back().node;
      path_.pop_back();
    }
  }

  // Fills the path, and steps back to the tail of its first full arc: every path crosses an arc of
  // bounded capacity.
  int push_along_path() {
    int amount = unbounded;
    for (const Step& step : path_) amount = std::min(amount, room(step.node, step.arc));
    std::size_t keep = path_.size();
    for (std::size_t s = path_.size(); s-- > 0;) {
      push(path_[s].node, path_[s].arc, amount);
      if (room(path_[s].node, path_[s].arc) == 0) keep = s;
    }
    const int node = path_[keep].node;
    path_.resize(keep);
    return node;
  }

  const WeightedGraph& g_;
  const Vector<char>&at_source_, &at_sink_;
  Vector<int> through_;  // flow of a vertex
  Vector<int> along_;    // flow of an edge away from the vertex that lists it
  Vector<int> twin_, level_, current_, queue_;
  Vector<Step> path_;
  int sink_level_ = 0;
};

}  // namespace

VertexCut minimum_vertex_cut(const WeightedGraph& graph, const Vector<char>& at_source,
                             const Vector<char>& at_sink) {
  FlowNetwork network(graph, at_source, at_sink);
  network.maximise();
  VertexCut cut{Vector<int>(graph.n), Vector<int>(graph.n)};
  const Vector<char> forward = network.reach(false), backward = network.reach(true);
  for (int v = 0; v < graph.n; ++v) {
    const int in = 2 * v, out = 2 * v + 1;
    cut.near_source[v] = forward[out] ? 0 : forward[in] ? 2 : 1;
    cut.near_sink[v] = backward[in] ? 1 : backward[out] ? 2 : 0;
  }
  return cut;
}

}  // namespace vlm
