// SPDX-License-Identifier: BSD-3-Clause
#include "graph/pairing.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

#include "base/memory.hpp"

namespace vlm {
namespace {

constexpr int none = -1;
constexpr int separator = 2;
// Exchanges in a row that a search tries.
constexpr int longest_path = 6;

}  // namespace

PairKeeper::PairKeeper(Pairing& pairs)
    : pairs_(pairs),
      side_(pairs.partner.size(), none),
      waiting_(pairs.partner.size(), 0),
      visit_(pairs.partner.size(), 0),
      tree_(pairs.partner.size()) {}

void PairKeeper::break_rings() {
  Vector<int> all(side_.size());
  std::iota(all.begin(), all.end(), 0);
  std::fill(side_.begin(), side_.end(), 0);
  across_ = false;
  for (const int v : find_trees(all)) part(v, pairs_.partner[v]);
  std::fill(side_.begin(), side_.end(), none);
}

void PairKeeper::keep_together(const Vector<int>& vertex, Vector<int>& side) {
  for (std::size_t i = 0; i < vertex.size(); ++i) side_[vertex[i]] = side[i];
  Vector<int> waiting = settle_sides(vertex);
  for (const int s : {0, 1}) open_side(vertex, s, waiting);
  if (!waiting.empty()) settle_separator(vertex, waiting);
  for (std::size_t i = 0; i < vertex.size(); ++i) side[i] = std::exchange(side_[vertex[i]], none);
}

// Exchanges parted pairs within the sides.  What is left belongs to the separator: the returned
// vertices are in it already, their partners may have to follow.
Vector<int> PairKeeper::settle_sides(const Vector<int>& vertex) {
  Vector<int> waiting;
  across_ = false;
  find_trees(vertex);
  for (int v : vertex) {
    int mate = pairs_.partner[v];
    if (mate == none || side_[v] == side_[mate]) continue;
    if (pairs_.sound[v]) std::swap(v, mate);
    const bool spared = pairs_.sound[mate] && side_[v] == separator;
    if (!spared && part(v, mate)) continue;
    side_[v] = separator;
    if (!spared) side_[mate] = separator;
    waiting.push_back(v);
  }
  return waiting;
}

// Moves one constraint of a side that couples with none outside of it into the separator.
void PairKeeper::open_side(const Vector<int>& vertex, int side, Vector<int>& waiting) {
  int candidate = none;
  for (const int v : vertex) {
    if (side_[v] != side) continue;
    bool at_separator = false, outside = false;
    for (int k = pairs_.ptr[v]; k < pairs_.ptr[v + 1]; ++k) {
      const int u = pairs_.alternative[k];
      at_separator = at_separator || (side_[u] == separator && pairs_.sound[u]);
      outside = outside || side_[u] != side;
    }
    if (pairs_.sound[v] && outside) return;
    const int mate = pairs_.partner[v];
    if (!pairs_.sound[v] && at_separator && mate != none && pairs_.sound[mate]) candidate = v;
  }
  if (candidate == none) return;
  side_[candidate] = separator;
  waiting.push_back(candidate);
}

// Pairs the waiting vertices within the separator; partners for which there is no exchange join
// it.
void PairKeeper::settle_separator(const Vector<int>& vertex, const Vector<int>& waiting) {
  across_ = true;
  for (const int v : waiting) waiting_[v] = 1;
  find_trees(vertex);
  for (const int v : waiting) {
    waiting_[v] = 0;
    const int mate = pairs_.partner[v];
    if (side_[mate] == separator) {
      const int next = next_pair(v, mate);
      if (next == none) continue;
      if (tree_of(v) != tree_of(next)) {
        tree_[tree_of(v)] = tree_of(next);
        continue;
      }
    }
    if (!part(v, mate)) side_[mate] = separator;
  }
}

// Parts two partners; each one that isn't sound gets another partner on its side.
bool PairKeeper::part(int v, int mate) {
  changes_.clear();
  ++search_;
  set_partner(v, none);
  set_partner(mate, none);
  for (const int u : {v, mate}) {
    if (pairs_.sound[u] || pairs_.partner[u] != none) continue;
    if (!find_partner(u, longest_path)) {
      undo(0);
      return false;
    }
  }
  return true;
}

// Pairs v with a vertex on its side that stands alone, or that its own partner can spare.
bool PairKeeper::find_partner(int v, int depth) {
  visit_[v] = search_;
  const int begin = pairs_.ptr[v], end = pairs_.ptr[v + 1];
  for (int k = begin; k < end; ++k) {
    const int w = pairs_.alternative[k], mate = pairs_.partner[w];
    if (side_[w] != side_[v] || visit_[w] == search_) continue;
    if ((mate == none || pairs_.sound[mate]) && link(v, w)) return true;
  }
  for (int k = begin; depth > 0 && k < end; ++k) {
    const int w = pairs_.alternative[k], mate = pairs_.partner[w];
    if (side_[w] != side_[v] || visit_[w] == search_ || mate == none) continue;
    visit_[w] = search_;
    const std::size_t before = changes_.size();
    set_partner(w, none);
    set_partner(mate, none);
    if (find_partner(mate, depth - 1) && pairs_.partner[w] == none) {
      join(v, w);
      return true;
    }
    undo(before);
  }
  return false;
}

// The vertex that the pair of v with a sound w couples with, if there is only one on its side.
int PairKeeper::next_pair(int v, int w) const {
  if (waiting_[v] || pairs_.sound[v] || !pairs_.sound[w]) return none;
  int next = none;
  for (int k = pairs_.ptr[w]; k < pairs_.ptr[w + 1]; ++k) {
    const int u = pairs_.alternative[k];
    if (u == v) continue;
    if (next != none) return none;
    next = u;
  }
  if (next == none || (across_ ? side_[next] == none : side_[next] != side_[v])) return none;
  return next;
}

// Makes a pair of two vertices, unless that closes a ring.
bool PairKeeper::link(int v, int w) {
  if (const int next = next_pair(v, w); next != none) {
    if (tree_of(v) == tree_of(next)) return false;
    tree_[tree_of(v)] = tree_of(next);
  }
  join(v, w);
  return true;
}

void PairKeeper::join(int v, int w) {
  if (const int mate = pairs_.partner[w]; mate != none) set_partner(mate, none);
  set_partner(v, w);
  set_partner(w, v);
}

// Joins pairs with those that they point to: without rings they form trees.  Returns the vertices
// whose pairs close a ring.
Vector<int> PairKeeper::find_trees(const Vector<int>& vertex) {
  Vector<int> closing;
  for (const int v : vertex) tree_[v] = v;
  for (const int v : vertex) {
    const int w = pairs_.partner[v];
    if (w == none || (!across_ && side_[w] != side_[v])) continue;
    const int next = next_pair(v, w);
    if (next == none) continue;
    if (tree_of(v) == tree_of(next))
      closing.push_back(v);
    else
      tree_[tree_of(v)] = tree_of(next);
  }
  return closing;
}

int PairKeeper::tree_of(int v) {
  while (tree_[v] != v) v = tree_[v] = tree_[tree_[v]];
  return v;
}

void PairKeeper::set_partner(int v, int w) {
  changes_.emplace_back(v, pairs_.partner[v]);
  pairs_.partner[v] = w;
}

void PairKeeper::undo(std::size_t changes) {
  for (; changes_.size() > changes; changes_.pop_back())
    pairs_.partner[changes_.back().first] = changes_.back().second;
}

WeightedGraph contract_pairs(const WeightedGraph& graph, const Vector<int>& partner,
                             Vector<int>& lead) {
  Vector<int> vertex(graph.n, none);
  lead.clear();
  for (int v = 0; v < graph.n; ++v) {
    if (vertex[v] != none) continue;
    vertex[v] = static_cast<int>(lead.size());
    if (partner[v] != none) vertex[partner[v]] = vertex[v];
    lead.push_back(v);
  }
  WeightedGraph out;
  out.n = static_cast<int>(lead.size());
  out.ptr.reserve(out.n + 1);
  out.ptr.push_back(0);
  out.adj.reserve(graph.adj.size());
  out.weight.reserve(out.n);
  Vector<int> met(out.n, none);
  for (int c = 0; c < out.n; ++c) {
    met[c] = c;
    int weight = 0;
    for (const int v : {lead[c], partner[lead[c]]}) {
      if (v == none) continue;
      weight += graph.weight[v];
      for (int k = graph.ptr[v]; k < graph.ptr[v + 1]; ++k) {
        const int d = vertex[graph.adj[k]];
        if (met[d] == c) continue;
        met[d] = c;
        out.adj.push_back(d);
      }
    }
    out.weight.push_back(weight);
    out.ptr.push_back(static_cast<int>(out.adj.size()));
  }
  return out;
}

}  // namespace vlm
