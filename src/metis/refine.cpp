// SPDX-License-Identifier: BSD-3-Clause
#include "metis/refine.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "base/progress.hpp"
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
}

int Separation::weight_near(int v, int s) const {
  int sum = 0;
  for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k)
    if (side_[graph_.adj[k]] == s) sum += graph_.weight[graph_.adj[k]];
  return sum;
}

int Separation::bucket(int v) const {
  return std::clamp(zero_bucket + (graph_.weight[v] - near_[v]) / unit_, 0, buckets - 1);
}

double Separation::cost_of(const std::array<std::int64_t, 3>& weight) const {
  const auto heavy = static_cast<double>(std::max(weight[0], weight[1]));
  const auto light = static_cast<double>(std::min(weight[0], weight[1]));
  const auto separator = static_cast<double>(weight[2]);
  const double difference = (heavy - light) / std::max(heavy + light, 1.0);
  const double excess = std::max(0.0, heavy - static_cast<double>(most_));
  return separator * (1 + limits_.unlike_sides * difference * difference) + 1000 * excess +
         1e-3 * difference;
}

// The arrays of moves; they would stand beside a search for layers.
void Separation::prepare_moves() {
  if (static_cast<int>(near_.size()) < graph_.n) near_.resize(graph_.n);
  queue_.prepare(graph_.n);
}

void Separation::grow_from(int seed) {
  prepare_moves();
  trail_.clear();
  double best = cost();
  std::size_t kept = 0;
  for (int v = seed, next_seed = 0; weight_[0] <= most_ && weight_[1] > 0; v = none) {
    if (v == none) v = queue_.top();
    while (v == none) {  // the component is used up
      if (side_[next_seed] == 1) v = next_seed;
      ++next_seed;
    }
    if (side_[v] == 1) pull(v, 0);
    queue_.remove(v);
    move(v, 0);
    const double now = cost();
    if (now >= best) continue;
    best = now;
    kept = trail_.size();
  }
  queue_.clear();
  take_back(kept, 0);
}

// Takes a vertex into the separator, on its way to the side `to`.
void Separation::pull(int u, int to) {
  const int other = 1 - to, w = graph_.weight[u];
  side_[u] = 2;
  weight_[other] -= w;
  weight_[2] += w;
  separator_.push_back(u);
  trail_.push_back(u);
  int sum = 0;
  for (int k = graph_.ptr[u]; k < graph_.ptr[u + 1]; ++k) {
    const int x = graph_.adj[k];
    if (side_[x] == other) {
      sum += graph_.weight[x];
    } else if (side_[x] == 2 && queue_.holds(x)) {
      near_[x] -= w;
      queue_.change(x, bucket(x));
    }
  }
  near_[u] = sum;
  queue_.insert(u, bucket(u));
}

void Separation::move(int v, int to) {
  const int other = 1 - to, w = graph_.weight[v];
  side_[v] = static_cast<signed char>(to);
  weight_[2] -= w;
  weight_[to] += w;
  for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k)
    if (const int u = graph_.adj[k]; side_[u] == other) pull(u, to);
  trail_.push_back(-1 - v);
}

// The next vertex to move to a side: that with the largest gain for which there is room.
int Separation::choose(int to) {
  for (;;) {
    const int v = queue_.top();
    if (v == none) return none;
    queue_.remove(v);
    if (weight_[to] + graph_.weight[v] <= most_ || weight_[to] <= weight_[1 - to]) return v;
  }
}

// Takes back all moves to a side but the first, which left so much of the trail.
void Separation::take_back(std::size_t kept, int to) {
  const int other = 1 - to;
  for (; trail_.size() > kept; trail_.pop_back()) {
    const bool moved = trail_.back() < 0;
    const int v = moved ? -1 - trail_.back() : trail_.back(), w = graph_.weight[v];
    weight_[moved ? to : 2] -= w;
    side_[v] = static_cast<signed char>(moved ? 2 : other);
    weight_[side_[v]] += w;
  }
}

// Moves to one side; false when they brought nothing.
bool Separation::pass(int to) {
  if (weight_[to] > most_ && weight_[to] > weight_[1 - to]) return false;
  std::size_t kept = 0;
  for (const int v : separator_) {
    if (side_[v] != 2 || queue_.holds(v)) continue;  // a vertex may be on the list twice
    separator_[kept++] = v;
    near_[v] = weight_near(v, 1 - to);
    queue_.insert(v, bucket(v));
  }
  separator_.resize(kept);
  trail_.clear();
  const double before = cost();
  double best = before;
  std::size_t best_trail = 0;
  for (int idle = 0; idle < limits_.idle_moves; ++idle) {
    const int v = choose(to);
    if (v == none) break;
    move(v, to);
    const double now = cost();
    if (now >= best) continue;
    best = now;
    best_trail = trail_.size();
    idle = 0;
  }
  queue_.clear();
  take_back(best_trail, to);
  return best < before - 0.1;
}

void Separation::refine() {
  prepare_moves();
  int to = weight_[0] < weight_[1] ? 0 : 1;
  for (int done = 0, idle = 0; done < limits_.passes && idle < 2; ++done, to = 1 - to) {
    pulse();
    idle = pass(to) ? 0 : idle + 1;
  }
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
}

}  // namespace vlm
