// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/dissect.hpp"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

#include "base/memory.hpp"
#include "graph/symbolic_cost.hpp"
#include "metis/separator.hpp"
#include "ordering/amd.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

// A piece of the graph, with its own numbering.
struct Piece {
  WeightedGraph graph;
  Vector<int> vertex;  // vertex of the whole graph
  MeshKind kind = MeshKind::unknown;
};

// Seconds that a separator counts for.
double separator_seconds(const DissectionTuning& tuning, const Piece& piece) {
  const double solid = tuning.seconds_per_vertex * piece.graph.n +
                       tuning.seconds_per_neighbour * static_cast<double>(piece.graph.adj.size());
  return piece.kind == MeshKind::thin ? solid * tuning.thin_share : solid;
}

class Dissector {
 public:
  Dissector(const WeightedGraph& graph, const DissectionGoal& goal, const Vector<char>& held,
            Pairing* pairs)
      : graph_(graph),
        goal_(goal),
        tuning_(goal.tuning),
        pairs_(pairs),
        held_(held.begin(), held.end()),
        local_(graph.n, none),
        index_(graph.n) {
    result_.order.reserve(graph.n);
    result_.domain.assign(graph.n, 0);
    if (pairs_ == nullptr) return;
    keeper_.emplace(*pairs_);
    keeper_->break_rings();
  }

  Dissection run();

 private:
  void cut_into_domains(Piece piece, int domains);
  void order_domain(Piece piece);
  void cut_while_it_pays(Piece piece, double flops);
  bool pays(const Piece& piece, double flops, double cost_factor = 1) const;
  bool split(Piece& piece, Piece& left, Piece& right, Vector<int>& separator);
  Piece take_side(const Piece& piece, const Vector<int>& side, int wanted);
  FactorCost order_leaf(const Piece& piece);
  Vector<int> partners_within(const Piece& piece, int size);
  Piece whole_graph();
  FactorCost finish(Vector<int>& order) const;
  FactorCost postorder(Vector<int>& order) const;
  WeightedGraph with_halo(const Piece& piece, Vector<int>& vertex);
  // Adds a vertex with its partner.
  void append(int v, Vector<int>& order) const {
    order.push_back(v);
    if (pairs_ != nullptr && pairs_->partner[v] != none) order.push_back(pairs_->partner[v]);
  }
  void append(const Vector<int>& vertices) {
    result_.order.insert(result_.order.end(), vertices.begin(), vertices.end());
  }

  const WeightedGraph& graph_;
  const DissectionGoal& goal_;
  const DissectionTuning& tuning_;
  Pairing* pairs_;          // null: each vertex stands alone
  const Vector<int> held_;  // not 0: the vertex comes last; empty: none does
  std::optional<PairKeeper> keeper_;
  Vector<int> local_;  // number of a vertex in the piece at hand
  Vector<int> index_;  // number of a vertex in the part taken from it
  AmdWorkspace workspace_;
  Dissection result_;
};

// The graph without its held vertices.
Piece Dissector::whole_graph() {
  Piece whole{graph_, Vector<int>(graph_.n), MeshKind::unknown};
  std::iota(whole.vertex.begin(), whole.vertex.end(), 0);
  if (!held_.empty()) whole = take_side(whole, held_, 0);
  return whole;
}

Dissection Dissector::run() {
  Piece whole = whole_graph();
  if (goal_.domains > 1) {
    cut_into_domains(std::move(whole), goal_.domains);
    finish(result_.order);
    return std::move(result_);
  }
  FactorCost plain = order_leaf(whole);
  for (const int v : whole.vertex) result_.domain[v] = 1;
  result_.domains = 1;
  const bool cuts = pays(whole, plain.flops, tuning_.first_cut);
  if (!held_.empty()) plain = finish(result_.order);
  if (!cuts) return std::move(result_);
  Vector<int> plain_order;
  plain_order.swap(result_.order);
  Vector<int> plain_partners;
  if (pairs_ != nullptr) plain_partners = pairs_->partner;
  result_.order.reserve(graph_.n);
  cut_while_it_pays(std::move(whole), plain.flops);
  if (finish(result_.order).flops > plain.flops) {
    result_.order.swap(plain_order);
    if (pairs_ != nullptr) pairs_->partner.swap(plain_partners);
  }
  return std::move(result_);
}

void Dissector::cut_into_domains(Piece piece, int domains) {
  Piece left, right;
  Vector<int> separator;
  if (domains > 1 && split(piece, left, right, separator)) {
    piece = {};
    cut_into_domains(std::move(left), domains / 2);
    cut_into_domains(std::move(right), domains / 2);
    append(separator);
    return;
  }
  ++result_.domains;
  for (const int v : piece.vertex) result_.domain[v] = result_.domains;
  order_domain(std::move(piece));
}

void Dissector::order_domain(Piece piece) {
  const std::size_t before = result_.order.size();
  const FactorCost plain = order_leaf(piece);
  if (!pays(piece, plain.flops, tuning_.first_cut)) return;
  result_.order.resize(before);
  cut_while_it_pays(std::move(piece), plain.flops);
}

bool Dissector::pays(const Piece& piece, double flops, double cost_factor) const {
  return goal_.flop_weight * flops * tuning_.expected_saving * tuning_.seconds_per_flop >
         cost_factor * separator_seconds(tuning_, piece);
}

// Cuts a piece that is expected to take that many operations, and orders what is left.
void Dissector::cut_while_it_pays(Piece piece, double flops) {
  Piece left, right;
  Vector<int> separator;
  if (!pays(piece, flops) || !split(piece, left, right, separator)) {
    order_leaf(piece);
    return;
  }
  // Operations grow like the square of the vertices, or a little less.
  const auto share = [&, n = piece.graph.n](const Piece& part) {
    const double ratio = static_cast<double>(part.graph.n) / n;
    return flops * ratio * ratio;
  };
  const double left_flops = share(left), right_flops = share(right);
  piece = {};
  cut_while_it_pays(std::move(left), left_flops);
  cut_while_it_pays(std::move(right), right_flops);
  append(separator);
}

// False when the piece is too small, or has no useful separator.
bool Dissector::split(Piece& piece, Piece& left, Piece& right, Vector<int>& separator) {
  const int n = piece.graph.n;
  if (n <= tuning_.least_piece) return false;
  Vector<int> side;
  if (!find_separator(piece.graph, tuning_, piece.kind, side)) return false;
  if (keeper_) keeper_->keep_together(piece.vertex, side);
  const auto count = [&](int s) { return std::count(side.begin(), side.end(), s); };
  if (count(0) == 0 || count(1) == 0 || count(2) > n / 3) return false;
  left = take_side(piece, side, 0);
  right = take_side(piece, side, 1);
  for (int i = 0; i < n; ++i)
    if (side[i] == 2) separator.push_back(piece.vertex[i]);
  return true;
}

Piece Dissector::take_side(const Piece& piece, const Vector<int>& side, int wanted) {
  Piece part;
  part.kind = piece.kind;
  part.graph = induced(piece.graph, side, wanted, index_, part.vertex);
  for (int& v : part.vertex) v = piece.vertex[v];
  return part;
}

// The piece with the separator vertices next to it behind its own vertices.
WeightedGraph Dissector::with_halo(const Piece& piece, Vector<int>& vertex) {
  vertex = piece.vertex;
  const int inner = piece.graph.n;
  for (int i = 0; i < inner; ++i) local_[vertex[i]] = i;
  WeightedGraph out;
  out.ptr.assign(inner + 1, 0);
  Vector<int> degree;  // of the halo vertices
  for (int i = 0; i < inner; ++i) {
    const int v = vertex[i];
    for (int k = graph_.ptr[v]; k < graph_.ptr[v + 1]; ++k) {
      const int u = graph_.adj[k];
      if (local_[u] == none) {
        local_[u] = static_cast<int>(vertex.size());
        vertex.push_back(u);
        degree.push_back(0);
      }
      out.adj.push_back(local_[u]);
      if (local_[u] >= inner) ++degree[local_[u] - inner];
    }
    out.ptr[i + 1] = static_cast<int>(out.adj.size());
  }
  out.n = static_cast<int>(vertex.size());
  for (const int d : degree) out.ptr.push_back(out.ptr.back() + d);
  out.adj.resize(out.ptr.back());
  Vector<int> next(out.ptr.begin() + inner, out.ptr.end());
  for (int i = 0; i < inner; ++i)
    for (int k = out.ptr[i]; k < out.ptr[i + 1]; ++k)
      if (out.adj[k] >= inner) out.adj[next[out.adj[k] - inner]++] = i;
  out.weight.resize(out.n);
  for (int i = 0; i < out.n; ++i) {
    out.weight[i] = graph_.weight[vertex[i]];
    local_[vertex[i]] = none;
  }
  return out;
}

// Minimum degree on the piece, with the separators around it as halo.
FactorCost Dissector::order_leaf(const Piece& piece) {
  Vector<int> vertex, order;
  WeightedGraph leaf = with_halo(piece, vertex);
  const int halo = leaf.n - piece.graph.n;
  Vector<int> lead;
  if (pairs_ != nullptr) leaf = contract_pairs(leaf, partners_within(piece, leaf.n), lead);
  const FactorCost cost = approximate_minimum_degree(leaf, halo, order, workspace_);
  for (const int i : order) append(pairs_ == nullptr ? vertex[i] : vertex[lead[i]], result_.order);
  return cost;
}

// Partners of the vertices of a piece in its own numbering.
Vector<int> Dissector::partners_within(const Piece& piece, int size) {
  Vector<int> partner(size, none);
  const int n = piece.graph.n;
  for (int i = 0; i < n; ++i) local_[piece.vertex[i]] = i;
  for (int i = 0; i < n; ++i)
    if (const int mate = pairs_->partner[piece.vertex[i]]; mate != none) partner[i] = local_[mate];
  for (const int v : piece.vertex) local_[v] = none;
  return partner;
}

// Completes the order by the held vertices, and postorders the elimination before them.
FactorCost Dissector::finish(Vector<int>& order) const {
  for (int v = 0; v < graph_.n && !held_.empty(); ++v)
    if (held_[v] != 0) order.push_back(v);
  const FactorCost cost = postorder(order);
  // The ancestors of a held vertex are held: what is left is still a postorder.
  if (!held_.empty())
    std::stable_partition(order.begin(), order.end(), [&](int v) { return held_[v] == 0; });
  return cost;
}

// Postorders the elimination; partners stay next to each other.
FactorCost Dissector::postorder(Vector<int>& order) const {
  if (pairs_ == nullptr) return postorder_and_cost(graph_, order);
  Vector<int> lead, contracted;
  const WeightedGraph paired = contract_pairs(graph_, pairs_->partner, lead);
  Vector<int> vertex(graph_.n, none);
  for (int c = 0; c < paired.n; ++c) vertex[lead[c]] = c;
  for (const int v : order)
    if (vertex[v] != none) contracted.push_back(vertex[v]);
  const FactorCost cost = postorder_and_cost(paired, contracted);
  order.clear();
  for (const int c : contracted) append(lead[c], order);
  return cost;
}

}  // namespace

Dissection dissect(const WeightedGraph& graph, const DissectionGoal& goal,
                   const Vector<char>& held) {
  return Dissector(graph, goal, held, nullptr).run();
}

Dissection dissect_pairs(const WeightedGraph& graph, const DissectionGoal& goal, Pairing& pairs) {
  return Dissector(graph, goal, {}, &pairs).run();
}

}  // namespace vlm
