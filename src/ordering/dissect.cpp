// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/dissect.hpp"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>
#include <optional>
#include <utility>

#include "base/backoff.hpp"
#include "base/clock.hpp"
#include "base/memory.hpp"
#include "base/work_team.hpp"
#include "graph/ordering.hpp"
#include "graph/symbolic_cost.hpp"
#include "metis/separator.hpp"
#include "ordering/amd.hpp"
#include "ordering/domains.hpp"
#include "ordering/pieces.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

// A piece, and what is known of it before it is cut.
struct Task {
  Piece piece;
  int first = 0;         // its places in the order begin there
  double separator = 0;  // weight that its separator is expected to have; 0: unknown
  double flops = 0;      // that minimum degree is expected to need; 0: unknown
  bool ordered = false;  // by minimum degree, to see how many these are
  bool layered = true;   // layers may be good separators
  int parent = none;     // number in the trace
  int depth = 0;
};

// What a thread works with.
struct Workspace {
  Vector<int> local;  // number of a vertex in the piece at hand
  AmdWorkspace amd;
  SeparatorWorkspace separator;
};

class Dissector {
 public:
  Dissector(const WeightedGraph& graph, const DissectionGoal& goal, const Vector<char>& held,
            Pairing* pairs)
      : graph_(graph),
        goal_(goal),
        tuning_(goal.tuning),
        pairs_(pairs),
        held_(held),
        order_(graph.n),
        workspaces_(std::max(goal.threads, 1)),
        team_(goal.threads) {
    if (pairs_ == nullptr) return;
    keeper_.emplace(*pairs_);
    keeper_->break_rings();
  }

  Dissection run();

 private:
  Piece whole_graph();
  void cut_all(Piece whole);
  void dissect_piece(Task task);
  int note(const Task& task, double start, double saved) const;
  void leave(Task task);
  std::unique_ptr<Task> largest_waiting(bool& finished);
  void work();
  bool worth(const WeightedGraph& g, double operations) const;
  double saving(const Task& task) const;
  bool small(const WeightedGraph& g) const;
  bool surely_pays(const WeightedGraph& g, double separator) const;
  bool minimum_degree_does(Task& task);
  bool find_sides(Task& task, Sides& side);
  void split(const Task& task, const Sides& side, Task& left, Task& right);
  double order_leaf(const Piece& piece, int first);
  Vector<int> partners_within(const Piece& piece, int size, Vector<int>& local) const;
  FactorCost postorder(Vector<int>& order, EliminationTree* tree) const;
  FactorCost finish(Dissection& found) const;
  Workspace& workspace() { return workspaces_[in_team_ ? omp_get_thread_num() : 0]; }

  const WeightedGraph& graph_;
  const DissectionGoal& goal_;
  const DissectionTuning& tuning_;
  Pairing* pairs_;            // null: each vertex stands alone
  const Vector<char>& held_;  // not 0: the vertex comes last; empty: none does
  std::optional<PairKeeper> keeper_;
  std::mutex latch_pairs_;  // the keeper serves one piece at a time
  Vector<int> order_;
  Vector<Workspace> workspaces_;
  WorkTeam team_;
  TeamFailure failure_;
  std::mutex latch_waiting_;
  Vector<Task*> waiting_;  // pieces that a thread of the team may take; owned
  int unfinished_ = 0;     // pieces that wait or are worked on
  Task uncut_;             // the whole, when it has no useful separator
  bool in_team_ = false;
  bool poor_ = false;  // the first separator was no better than none
};

// The graph without its held vertices.
Piece Dissector::whole_graph() {
  Piece whole;
  whole.all = &graph_;
  if (pairs_ != nullptr) {  // their keeper asks for a list
    whole.vertex.resize(graph_.n);
    std::iota(whole.vertex.begin(), whole.vertex.end(), 0);
  }
  if (!held_.empty()) {
    Vector<int> index(graph_.n);
    whole = take_side(whole, held_, 0, index);
  }
  return whole;
}

Dissection Dissector::run() {
  Dissection result;
  int inner = 0;
  {
    Piece whole = whole_graph();
    inner = whole.graph().n;
    order_.resize(inner);
    cut_all(std::move(whole));
  }
  result.order = std::move(order_);
  const double start = timer_velmora();
  const FactorCost cost = finish(result);
  if (goal_.trace != nullptr) goal_.trace->rest = timer_velmora() - start;
  if (!poor_) return result;
  // Minimum degree for the whole as well.
  Vector<int> partners;
  if (pairs_ != nullptr) partners = pairs_->partner;
  Dissection plain;
  order_.resize(inner);
  order_leaf(whole_graph(), 0);
  plain.order = std::move(order_);
  if (finish(plain).flops < cost.flops) return plain;
  if (pairs_ != nullptr) pairs_->partner.swap(partners);
  return result;
}

// Cuts and orders the graph; pieces go side by side.
void Dissector::cut_all(Piece whole) {
  Task task{.piece = std::move(whole)};
  const auto size = [](const WeightedGraph& g) { return g.n + static_cast<double>(g.adj.size()); };
  // A forest has nothing that separators could save.
  const bool forest =
      static_cast<std::int64_t>(task.piece.graph().adj.size()) <= 2LL * (graph_.n - 1);
  if (forest) {
    order_leaf(task.piece, 0);
    return;
  }
  // One thread tries minimum degree on what it orders in little time.
  if (size(task.piece.graph()) <= tuning_.tried_first && minimum_degree_does(task)) return;
  const TeamCaller caller;
  const int threads =
      size(task.piece.graph()) > tuning_.least_team ? std::max(goal_.threads, 1) : 1;
  leave(std::move(task));
  in_team_ = true;
#pragma omp parallel num_threads(threads)
  {
    const TeamScope of(caller);
    work();
  }
  in_team_ = false;
  failure_.rethrow();
  if (uncut_.piece.graph().n == 0 || (uncut_.ordered && pairs_ == nullptr)) return;
  const double start = timer_velmora();
  order_leaf(uncut_.piece, 0);
  note(uncut_, start, team_.saved());
}

// Leaves a piece to the team.
void Dissector::leave(Task task) {
  std::unique_ptr<Task> piece(new (std::nothrow) Task(std::move(task)));
  if (piece == nullptr) throw AllocationFailure(sizeof(Task));
  const std::lock_guard hold(latch_waiting_);
  waiting_.push_back(piece.get());
  piece.release();
  ++unfinished_;
}

// The largest of the pieces, which has most below it; none while all are being worked on.
std::unique_ptr<Task> Dissector::largest_waiting(bool& finished) {
  const std::lock_guard hold(latch_waiting_);
  finished = unfinished_ == 0;
  if (waiting_.empty()) return nullptr;
  const auto largest = std::ranges::max_element(
      waiting_, {}, [](const Task* task) { return task->piece.graph().adj.size(); });
  std::unique_ptr<Task> taken(*largest);
  *largest = waiting_.back();
  waiting_.pop_back();
  return taken;
}

// One thread of the team: until no piece is left.
void Dissector::work() {
  Backoff backoff;
  for (bool finished = false; !finished;) {
    const std::unique_ptr<Task> piece = largest_waiting(finished);
    if (piece == nullptr) {
      if (team_.help()) {
        backoff.reset();
      } else {
        backoff.wait();
        failure_.guard(pulse);
      }
      continue;
    }
    backoff.reset();
    failure_.guard([&] { dissect_piece(std::move(*piece)); });
    const std::lock_guard hold(latch_waiting_);
    --unfinished_;
  }
}

// Notes how long a piece took; its number in the trace.
int Dissector::note(const Task& task, double start, double saved) const {
  if (goal_.trace == nullptr || goal_.threads > 1) return none;
  const double seconds = timer_velmora() - start;
  goal_.trace->pieces.push_back({task.parent, seconds, seconds - (team_.saved() - saved)});
  return static_cast<int>(goal_.trace->pieces.size()) - 1;
}

void Dissector::dissect_piece(Task task) {
  const double start = timer_velmora(), saved = team_.saved();
  if (goal_.trace != nullptr && goal_.threads < 2)
    team_.assume(std::max(1, goal_.trace->threads >> std::min(task.depth, 30)));
  pulse();
  const WeightedGraph& g = task.piece.graph();
  const auto stays_whole = [&] {
    return task.separator > 0 && !task.ordered && !surely_pays(g, task.separator) &&
           minimum_degree_does(task);
  };
  if (stays_whole()) {
    note(task, start, saved);
    return;
  }
  Sides side;
  if (!find_sides(task, side)) {
    if (task.depth == 0) {  // nobody has work beside it
      const int number = note(task, start, saved);
      uncut_ = std::move(task);
      uncut_.parent = number;
      return;
    }
    if (!task.ordered || pairs_ != nullptr) order_leaf(task.piece, task.first);
    note(task, start, saved);
    return;
  }
  if (task.depth == 0 && stays_whole()) {  // now the weight of a separator is known
    note(task, start, saved);
    return;
  }
  Task left, right;
  split(task, side, left, right);
  if (task.depth == 0 && task.piece.graph().n > most_kept) trim_heap();
  task.piece = {};
  left.parent = right.parent = note(task, start, saved);
  left.depth = right.depth = task.depth + 1;
  leave(std::move(left));
  dissect_piece(std::move(right));
}

// Whether a separator that saves so many operations pays for the time that it takes to find.
bool Dissector::worth(const WeightedGraph& g, double operations) const {
  const double seconds = tuning_.seconds_per_separator + tuning_.seconds_per_vertex * g.n +
                         tuning_.seconds_per_neighbour * static_cast<double>(g.adj.size());
  return operations * goal_.operation_cost * tuning_.seconds_per_flop > seconds;
}

bool Dissector::small(const WeightedGraph& g) const {
  return g.n + static_cast<double>(g.adj.size()) <= tuning_.least_piece;
}

// Operations that separators save of those of minimum degree.
double Dissector::saving(const Task& task) const {
  if (task.depth > 0) return tuning_.saved_of_piece * task.flops;
  const Vector<int>& w = task.piece.graph().weight;
  const double weight = std::accumulate(w.begin(), w.end(), 0.0);
  const bool solid = task.flops > tuning_.solid_work * weight * weight;
  return (solid ? tuning_.saved_of_solid : tuning_.saved_of_whole) * task.flops;
}

// Whether a separator of this weight pays, however good minimum degree is.
bool Dissector::surely_pays(const WeightedGraph& g, double separator) const {
  return !small(g) && worth(g, tuning_.saved_cubes * std::pow(separator, 3));
}

// Orders a piece by minimum degree, unless that is expected not to do; whether it does.
bool Dissector::minimum_degree_does(Task& task) {
  const WeightedGraph& g = task.piece.graph();
  if (!small(g) && worth(g, saving(task))) return false;
  task.flops = order_leaf(task.piece, task.first);
  task.ordered = true;
  if (small(g) || !worth(g, saving(task))) return true;
  if (task.depth == 0 && g.n > most_kept) trim_heap();  // a separator's work stands in its place
  return false;
}

// Finds a separator; false when there is no useful one.
bool Dissector::find_sides(Task& task, Sides& side) {
  const WeightedGraph& g = task.piece.graph();
  side = find_separator(g, tuning_, task.layered, workspace().separator, team_);
  if (keeper_) {
    Vector<int> paired(side.begin(), side.end());
    const std::lock_guard hold(latch_pairs_);
    keeper_->keep_together(task.piece.vertex, paired);
    std::copy(paired.begin(), paired.end(), side.begin());
  }
  int count[3] = {0, 0, 0};
  double weight = 0;
  for (int i = 0; i < g.n; ++i) {
    ++count[side[i]];
    if (side[i] == 2) weight += g.weight[i];
  }
  if (task.depth == 0 && count[2] > tuning_.poor_separator * g.n) {
    // What is worse than in any mesh has no separators: the whole goes to minimum degree at once.
    if (count[2] > tuning_.hopeless_separator * std::pow(g.n, 2.0 / 3)) return false;
    poor_ = true;
  }
  task.separator = weight;
  return count[0] > 0 && count[1] > 0 && count[2] <= g.n / 3;
}

// Puts a separator at the end of the places of a piece, and its sides before it.
void Dissector::split(const Task& task, const Sides& side, Task& left, Task& right) {
  const WeightedGraph& g = task.piece.graph();
  Vector<int> index(g.n);
  const auto take = [&](int s) {
    (s == 0 ? left : right).piece = take_side(task.piece, side, s, index);
  };
  if (g.n < tuning_.least_shared)
    for (const int s : {0, 1}) take(s);
  else
    team_.loop(2, take);
  left.layered = right.layered = task.layered;
  left.first = task.first;
  right.first = left.first + left.piece.graph().n;
  const int first = right.first + right.piece.graph().n;
  int at = first;
  for (int i = 0; i < g.n; ++i)
    if (side[i] == 2) order_[at++] = task.piece.vertex_of(i);
  const double cut = at - first;
  const bool flat = cut * cut <= tuning_.flat_factor * g.n;
  for (Task* half : {&left, &right}) {
    const double part = static_cast<double>(half->piece.graph().n) / g.n;
    half->separator = task.separator * std::pow(part, flat ? 1.0 / 2 : 2.0 / 3);
    half->flops = task.flops * part;
  }
}

// Minimum fill or degree on the piece, with the separators around it as halo.
// Its operations.
double Dissector::order_leaf(const Piece& piece, int first) {
  Workspace& own = workspace();
  Vector<int> vertex, order, lead;
  WeightedGraph made;
  const bool alone = piece.all != nullptr && pairs_ == nullptr;  // no halo, no list of vertices
  if (!alone) {
    if (own.local.empty()) own.local.assign(graph_.n, none);
    made = with_halo(graph_, piece, own.local, vertex);
  }
  const int halo = alone ? 0 : made.n - piece.graph().n;
  if (pairs_ != nullptr)
    made = contract_pairs(made, partners_within(piece, made.n, own.local), lead);
  const WeightedGraph& leaf = alone ? piece.graph() : made;
  order.reserve(leaf.n);
  const bool by_fill =
      halo > 0 || static_cast<double>(leaf.adj.size()) <= tuning_.sparse_whole * leaf.n;
  const auto score = by_fill ? EliminationScore::fill : EliminationScore::degree;
  const double flops = minimum_score(leaf, halo, score, order, own.amd).flops;
  if (leaf.n > most_kept) own.amd = {};
  int at = first;
  for (const int i : order) {
    const int v = alone ? i : pairs_ == nullptr ? vertex[i] : vertex[lead[i]];
    order_[at++] = v;
    if (pairs_ != nullptr && pairs_->partner[v] != none) order_[at++] = pairs_->partner[v];
  }
  return flops;
}

// Partners of the vertices of a piece in its own numbering.
Vector<int> Dissector::partners_within(const Piece& piece, int size, Vector<int>& local) const {
  Vector<int> partner(size, none);
  const int n = piece.graph().n;
  for (int i = 0; i < n; ++i) local[piece.vertex[i]] = i;
  for (int i = 0; i < n; ++i)
    if (const int mate = pairs_->partner[piece.vertex[i]]; mate != none) partner[i] = local[mate];
  for (const int v : piece.vertex) local[v] = none;
  return partner;
}

// Completes the order by the held vertices, postorders the elimination before them, and finds the
// domains in it.
FactorCost Dissector::finish(Dissection& found) const {
  Vector<int>& order = found.order;
  for (int v = 0; v < graph_.n && !held_.empty(); ++v)
    if (held_[v] != 0) order.push_back(v);
  EliminationTree tree;
  Vector<int> lead;
  WeightedGraph paired;
  Vector<int> single;  // the order of what is eliminated at once
  if (pairs_ == nullptr) {
    single.swap(order);
  } else {
    paired = contract_pairs(graph_, pairs_->partner, lead);
    Vector<int> vertex(graph_.n, none);
    for (int c = 0; c < paired.n; ++c) vertex[lead[c]] = c;
    for (const int v : order)
      if (vertex[v] != none) single.push_back(vertex[v]);
  }
  const FactorCost cost = postorder_and_cost(pairs_ == nullptr ? graph_ : paired, single, &tree);
  Vector<char> held(held_.empty() ? 0 : graph_.n);
  for (std::size_t k = 0; k < held.size(); ++k) held[k] = held_[single[k]];
  Vector<int> of_place;
  found.domains = deal_out_domains(tree.parent, tree.work, held, goal_.domains, of_place);
  found.domain.assign(graph_.n, 0);
  order.clear();
  order.reserve(graph_.n);
  const auto append = [&](int v, int d) {
    order.push_back(v);
    found.domain[v] = d;
  };
  for (std::size_t k = 0; k < single.size(); ++k) {
    const int v = pairs_ == nullptr ? single[k] : lead[single[k]];
    append(v, of_place[k]);
    if (pairs_ != nullptr && pairs_->partner[v] != none) append(pairs_->partner[v], of_place[k]);
  }
  // The ancestors of a held vertex are held: what is left is still a postorder.
  if (!held_.empty()) move_held_behind(order, held_, 0);
  if (held_.empty() && pairs_ == nullptr) found.tree = std::move(tree);
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
