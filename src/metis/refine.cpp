// SPDX-License-Identifier: BSD-3-Clause
#include "metis/refine.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "metis/vertex_cut.hpp"

namespace vlm {
namespace {

constexpr int none = -1;
constexpr int buckets = 384, zero_bucket = 288;

}  // namespace

void Separation::GainQueue::prepare(int n) {
  if (head_.empty()) head_.assign(buckets, none);
  if (static_cast<int>(slot_.size()) < n) {
    slot_.resize(n, none);
    next_.resize(n);
    previous_.resize(n);
  }
}

void Separation::GainQueue::insert(int v, int bucket) {
  const int first = head_[bucket];
  next_[v] = first;
  previous_[v] = none;
  if (first != none) previous_[first] = v;
  head_[bucket] = v;
  slot_[v] = static_cast<short>(bucket);
  low_ = top_ < 0 ? bucket : std::min(low_, bucket);
  top_ = std::max(top_, bucket);
}

void Separation::GainQueue::remove(int v) {
  if (next_[v] != none) previous_[next_[v]] = previous_[v];
  if (previous_[v] != none)
    next_[previous_[v]] = next_[v];
  else
    head_[slot_[v]] = next_[v];
  slot_[v] = none;
}

int Separation::GainQueue::top() {
  while (top_ >= low_ && head_[top_] == none) --top_;
  if (top_ < low_) top_ = none;
  return top_ < 0 ? none : head_[top_];
}

void Separation::GainQueue::clear() {
  for (int b = low_; b <= top_; ++b) {
    for (int v = head_[b]; v != none; v = next_[v]) slot_[v] = none;
    head_[b] = none;
  }
  top_ = none;
}

void Separation::set_scale() {
  const int n = graph_.n;
  if (static_cast<int>(near_[0].size()) < n)
    for (int s : {0, 1}) near_[s].resize(n);
  for (int s : {0, 1}) queue_[s].prepare(n);
  if (static_cast<int>(locked_.size()) < n) locked_.resize(n, 0);
  const std::int64_t total = weight_[0] + weight_[1] + weight_[2];
  set_most(total);
  unit_ = static_cast<int>(std::max<std::int64_t>(1, total / std::max(n, 1) / 8));
}

void Separation::weigh(const Slice& slice, std::array<std::int64_t, 3>& weight,
                       Vector<int>& separator) const {
  for (int v = slice.begin; v < slice.end; ++v) {
    weight[side_[v]] += graph_.weight[v];
    if (side_[v] == 2) separator.push_back(v);
  }
}

void Separation::load(const LevelGraph& graph, Sides sides) {
  graph_ = graph;
  side_ = std::move(sides);
  separator_.clear();
  weight_ = {0, 0, 0};
  weigh(Slice(graph_.n, 0, 1), weight_, separator_);
  set_scale();
  for (const int v : separator_) count_neighbours(v);
}

void Separation::load(const LevelGraph& graph, const Sides& coarse, const Vector<int>& cluster,
                      WorkTeam& team) {
  graph_ = graph;
  side_.resize(graph.n);
  separator_.clear();
  weight_ = {0, 0, 0};
  struct Part {
    std::array<std::int64_t, 3> weight = {0, 0, 0};
    Vector<int> separator;
  };
  constexpr int part_vertices = 16384;
  const int count = std::max(1, graph.n / part_vertices);
  Vector<Part> parts(count);
  team.loop(count, [&](int p) {
    const Slice slice(graph.n, p, count);
    for (int v = slice.begin; v < slice.end; ++v) side_[v] = coarse[cluster[v]];
    weigh(slice, parts[p].weight, parts[p].separator);
  });
  for (const Part& part : parts) {
    for (const int s : {0, 1, 2}) weight_[s] += part.weight[s];
    separator_.insert(separator_.end(), part.separator.begin(), part.separator.end());
  }
  set_scale();
  for (const int v : separator_) count_neighbours(v);
}

void Separation::count_neighbours(int v) {
  int sum[3] = {0, 0, 0};
  for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k)
    sum[side_[graph_.adj[k]]] += graph_.weight[graph_.adj[k]];
  near_[0][v] = sum[0];
  near_[1][v] = sum[1];
}

int Separation::bucket(int v, int to) const {
  return std::clamp(zero_bucket + gain(v, to) / unit_, 0, buckets - 1);
}

void Separation::enqueue(int v, int to) { queue_[to].insert(v, bucket(v, to)); }

double Separation::cost_of(const std::array<std::int64_t, 3>& weight) const {
  const auto heavy = static_cast<double>(std::max(weight[0], weight[1]));
  const auto light = static_cast<double>(std::min(weight[0], weight[1]));
  const auto separator = static_cast<double>(weight[2]);
  const double difference = (heavy - light) / std::max(heavy + light, 1.0);
  const double excess = std::max(0.0, heavy - static_cast<double>(most_));
  return separator * (1 + limits_.unlike_sides * difference * difference) + 1000 * excess +
         1e-3 * difference;
}

void Separation::grow_from(int seed) {
  trail_.clear();
  trail_to_.clear();
  double best = cost();
  std::size_t best_moves = 0;
  for (int v = seed, next_seed = 0; weight_[0] <= most_ && weight_[1] > 0; v = none) {
    if (v == none) v = queue_[0].top();
    while (v == none) {  // the component is used up
      if (side_[next_seed] == 1) v = next_seed;
      ++next_seed;
    }
    if (side_[v] == 1) pull(v, 0);
    queue_[0].remove(v);
    move(v, 0);
    const double now = cost();
    if (now >= best) continue;
    best = now;
    best_moves = trail_to_.size();
  }
  queue_[0].clear();
  for (const int u : separator_) locked_[u] = 0;
  take_back(best_moves);
}

// Takes a vertex into the separator, on its way to the side `to`.
void Separation::pull(int u, int to) {
  const int other = 1 - to;
  side_[u] = 2;
  weight_[other] -= graph_.weight[u];
  weight_[2] += graph_.weight[u];
  separator_.push_back(u);
  trail_.push_back(u);
  int sum[3] = {0, 0, 0};
  for (int k = graph_.ptr[u]; k < graph_.ptr[u + 1]; ++k) {
    const int x = graph_.adj[k];
    sum[side_[x]] += graph_.weight[x];
    if (side_[x] != 2) continue;
    near_[other][x] -= graph_.weight[u];
    if (queue_[to].holds(x)) queue_[to].change(x, bucket(x, to));
  }
  near_[0][u] = sum[0];
  near_[1][u] = sum[1];
  if (!locked_[u]) enqueue(u, to);
}

void Separation::move(int v, int to) {
  const int other = 1 - to, w = graph_.weight[v];
  side_[v] = static_cast<signed char>(to);
  weight_[2] -= w;
  weight_[to] += w;
  locked_[v] = 1;
  for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k) {
    const int u = graph_.adj[k];
    if (side_[u] == 2) {
      near_[to][u] += w;
      if (queue_[other].holds(u)) queue_[other].change(u, bucket(u, other));
    } else if (side_[u] == other) {
      pull(u, to);
    }
  }
  trail_.push_back(-1 - v);
  trail_to_.push_back(static_cast<signed char>(to));
}

// The next move: the larger gain; in doubt to the lighter side, never above its limit.
bool Separation::choose(int& v, int& to) {
  for (;;) {
    const int top[2] = {queue_[0].top(), queue_[1].top()};
    if (top[0] == none && top[1] == none) return false;
    const int lighter = weight_[0] <= weight_[1] ? 0 : 1;
    if (over_limit()) {
      to = lighter;
      if (top[to] == none) return false;
    } else if (top[0] == none || top[1] == none) {
      to = top[0] == none ? 1 : 0;
    } else {
      const int g0 = gain(top[0], 0), g1 = gain(top[1], 1);
      to = g0 == g1 ? lighter : g0 > g1 ? 0 : 1;
    }
    v = top[to];
    queue_[to].remove(v);
    if (weight_[to] + graph_.weight[v] > most_ && to != lighter) continue;
    if (queue_[1 - to].holds(v)) queue_[1 - to].remove(v);
    return true;
  }
}

void Separation::take_back(std::size_t kept) {
  while (trail_to_.size() > kept) {
    const int to = trail_to_.back(), other = 1 - to, v = -1 - trail_.back();
    trail_to_.pop_back();
    trail_.pop_back();
    for (; !trail_.empty() && trail_.back() >= 0; trail_.pop_back()) {
      const int u = trail_.back(), w = graph_.weight[u];
      side_[u] = static_cast<signed char>(other);
      weight_[2] -= w;
      weight_[other] += w;
      for (int k = graph_.ptr[u]; k < graph_.ptr[u + 1]; ++k)
        if (side_[graph_.adj[k]] == 2) near_[other][graph_.adj[k]] += w;
    }
    const int w = graph_.weight[v];
    side_[v] = 2;
    weight_[to] -= w;
    weight_[2] += w;
    for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k)
      if (side_[graph_.adj[k]] == 2) near_[to][graph_.adj[k]] -= w;
    count_neighbours(v);
  }
}

bool Separation::pass() {
  std::size_t kept = 0;
  for (const int v : separator_) {
    if (side_[v] != 2 || locked_[v]) continue;
    locked_[v] = 1;  // a vertex may be on the list twice
    separator_[kept++] = v;
  }
  separator_.resize(kept);
  for (const int v : separator_) {
    locked_[v] = 0;
    enqueue(v, 0);
    enqueue(v, 1);
  }
  trail_.clear();
  trail_to_.clear();
  const double before = cost();
  double best = before;
  std::size_t best_moves = 0;
  int v = none, to = 0;
  for (int idle = 0; idle < limits_.idle_moves && choose(v, to); ++idle) {
    move(v, to);
    const double now = cost();
    if (now >= best) continue;
    best = now;
    best_moves = trail_to_.size();
    idle = 0;
  }
  for (GainQueue& queue : queue_) queue.clear();
  for (const int u : separator_) locked_[u] = 0;
  take_back(best_moves);
  return best < before - 0.1;
}

void Separation::refine() {
  for (int done = 0; done < limits_.passes && pass();) ++done;
}

// The separator and the next vertices, layer by layer.
Vector<int> Separation::band(int layers, double share) {
  if (static_cast<int>(place_.size()) < graph_.n) place_.resize(graph_.n, none);
  Vector<int> members;
  std::int64_t room =
      static_cast<std::int64_t>(share * static_cast<double>(weight_[0] + weight_[1] + weight_[2]));
  const auto take = [&](int v) {
    place_[v] = static_cast<int>(members.size());
    members.push_back(v);
    room -= graph_.weight[v];
  };
  for (const int v : separator_)
    if (side_[v] == 2 && place_[v] == none) take(v);
  std::size_t begin = 0;
  for (int layer = 0; layer < layers; ++layer) {
    const std::size_t end = members.size();
    for (std::size_t m = begin; m < end; ++m)
      for (int k = graph_.ptr[members[m]]; k < graph_.ptr[members[m] + 1]; ++k)
        if (place_[graph_.adj[k]] == none) take(graph_.adj[k]);
    begin = end;
    if (room >= 0 && members.size() > begin) continue;
    if (room < 0 && layer > 0) {  // the layer is one too many
      for (std::size_t m = end; m < members.size(); ++m) place_[members[m]] = none;
      members.resize(end);
    }
    break;
  }
  return members;
}

// The band as a graph, and which of its vertices are next to the sides beyond it.
WeightedGraph Separation::band_graph(const Vector<int>& members, Vector<char>& at_source,
                                     Vector<char>& at_sink) const {
  WeightedGraph out;
  out.n = static_cast<int>(members.size());
  out.ptr.reserve(out.n + 1);
  out.ptr.push_back(0);
  out.weight.reserve(out.n);
  at_source.assign(out.n, 0);
  at_sink.assign(out.n, 0);
  for (int b = 0; b < out.n; ++b) {
    const int v = members[b];
    out.weight.push_back(graph_.weight[v]);
    for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k) {
      const int u = graph_.adj[k];
      if (place_[u] != none)
        out.adj.push_back(place_[u]);
      else
        (side_[u] == 0 ? at_source : at_sink)[b] = 1;
    }
    out.ptr.push_back(static_cast<int>(out.adj.size()));
  }
  return out;
}

void Separation::cut_through_band(int layers, double share) {
  if (weight_[2] == 0) return;
  const Vector<int> members = band(layers, share);
  Vector<char> at_source, at_sink;
  const WeightedGraph inside = band_graph(members, at_source, at_sink);
  for (const int v : members) place_[v] = none;
  const VertexCut cut = minimum_vertex_cut(inside, at_source, at_sink);
  double best = cost();
  const Vector<int>* better = nullptr;
  std::array<std::int64_t, 3> best_weight = {};
  for (const Vector<int>* part : {&cut.near_source, &cut.near_sink}) {
    std::array<std::int64_t, 3> weight = weight_;
    for (int b = 0; b < inside.n; ++b) {
      weight[side_[members[b]]] -= inside.weight[b];
      weight[(*part)[b]] += inside.weight[b];
    }
    const double now = cost_of(weight);
    if (now >= best) continue;
    best = now;
    better = part;
    best_weight = weight;
  }
  if (better == nullptr) return;
  weight_ = best_weight;
  separator_.clear();
  for (int b = 0; b < inside.n; ++b) {
    side_[members[b]] = static_cast<signed char>((*better)[b]);
    if ((*better)[b] == 2) separator_.push_back(members[b]);
  }
  for (const int v : separator_) count_neighbours(v);
}

}  // namespace vlm
