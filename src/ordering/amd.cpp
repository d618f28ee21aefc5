// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/amd.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <numeric>

#include "base/memory.hpp"
#include "base/progress.hpp"
#include "graph/forest.hpp"

namespace vlm {
namespace {

constexpr int none = -1;

double pairs(double of) { return of * (of - 1) / 2; }

// Where a variable waits that costs so much and has this weight: by the logarithm of the cost over
// the square root of the weight, eight places an octave from 2^-24 on.  The bits of a double are
// its logarithm, by straight lines between the powers of two.
constexpr int cost_places = 8 * (24 + 64);
constexpr int bits_of_place = 49;
constexpr std::int64_t least_logarithm =
    std::bit_cast<std::int64_t>(0x1p-24) - std::bit_cast<std::int64_t>(1.0) / 2;
int cost_place(double cost, int weight) {
  const auto logarithm =
      std::bit_cast<std::int64_t>(cost) - std::bit_cast<std::int64_t>(double(weight)) / 2;
  return static_cast<int>(std::max<std::int64_t>(0, logarithm - least_logarithm) >> bits_of_place);
}

// The quotient graph.
//
// A live variable i has its list in lists[start[i] ...): elements[i] elements first, then
// variables, length[i] entries in all.  A live element e has its variables there.  size[i] is
// the weight of a supervariable: positive while alive, negative while it is a member of the
// pivot element, 0 when it has been absorbed or eliminated with owner[i].  work[e] is 0 for a
// dead element; otherwise its distance from `flag` is the part of the element outside the
// pivot element.
//
// Variables wait in rings by their place in the sequence of scores; next[n + place] and
// previous[n + place] are the ends of a ring.
template <EliminationScore score>
class QuotientGraph {
 public:
  QuotientGraph(const WeightedGraph& graph, int halo, AmdWorkspace& w)
      : n_(graph.n),
        inner_(graph.n - halo),
        lists_(w.lists),
        start_(w.start),
        length_(w.length),
        elements_(w.elements),
        size_(w.size),
        degree_(w.degree),
        work_(w.work),
        next_(w.next),
        previous_(w.previous),
        bucket_(w.bucket),
        owner_(w.owner),
        known_(w.known) {
    load(graph);
  }

  FactorCost eliminate_all();
  void postorder(Vector<int>& order);

 private:
  void load(const WeightedGraph& graph);
  int pop_least();
  void unlink(int i);
  void form_element(int me);
  void gather_member(int i);
  void kill_element(int e, int absorber);
  void make_room(int me);
  void measure_overlaps();
  void update_members(int me);
  void update_member(int me, int p);
  void merge_indistinguishable();
  void merge_with_followers(int i);
  void close_element(int me);
  void renew_flag();

  void enqueue(int i, int place);
  int place_of(int weight, int degree, const KnownFill& known) const;

  static constexpr bool by_fill = score == EliminationScore::fill;

  bool is_halo(int i) const { return i >= inner_; }

  int n_, inner_;
  Vector<int>&lists_, &start_, &length_, &elements_, &size_, &degree_, &work_;
  Vector<int>&next_, &previous_, &bucket_, &owner_;
  Vector<KnownFill>& known_;  // of the members of the pivot element, by fill
  int free_ = 0;              // first unused place of lists_
  int total_ = 0;             // weight of all vertices
  int to_eliminate_ = 0;      // weight of the inner vertices
  int eliminated_ = 0;
  int least_ = 0;  // no variable waits at a place before
  // A bit for each place at which a variable waits; those of others may be set too.
  std::array<std::uint64_t, (cost_places + 63) / 64> used_ = {};
  int flag_ = 2;
  int largest_ = 0;  // weight of the largest element so far
  // the pivot element
  int begin_ = 0, end_ = 0;
  bool in_place_ = false;
  int members_ = 0;  // weight of its variables
  int pivots_ = 0;   // weight of the columns eliminated in it
  FactorCost cost_;
};

template <EliminationScore score>
void QuotientGraph<score>::load(const WeightedGraph& graph) {
  const int edges = graph.ptr[n_];
  lists_.resize(static_cast<std::size_t>(edges) + edges / 5 + n_ + 1);
  std::copy(graph.adj.begin(), graph.adj.begin() + edges, lists_.begin());
  free_ = edges;
  start_.assign(graph.ptr.begin(), graph.ptr.begin() + n_);
  length_.resize(n_);
  for (int i = 0; i < n_; ++i) length_[i] = graph.ptr[i + 1] - graph.ptr[i];
  size_.assign(graph.weight.begin(), graph.weight.begin() + n_);
  elements_.assign(n_, 0);
  work_.assign(n_, 1);
  owner_.assign(n_, none);
  degree_.assign(n_, 0);
  bucket_.assign(n_, none);
  if constexpr (by_fill) known_.resize(n_);
  for (int i = 0; i < n_; ++i) {
    total_ += size_[i];
    if (!is_halo(i)) to_eliminate_ += size_[i];
    for (int k = start_[i]; k < start_[i] + length_[i]; ++k) degree_[i] += size_[lists_[k]];
  }
  const int places = by_fill ? cost_places : total_ + 1;
  next_.resize(n_ + places);
  previous_.resize(n_ + places);
  std::iota(next_.begin() + n_, next_.end(), n_);
  std::iota(previous_.begin() + n_, previous_.end(), n_);
  least_ = places - 1;
  for (int i = 0; i < inner_; ++i) {
    KnownFill known;
    for (int k = start_[i]; by_fill && k < start_[i] + length_[i]; ++k)
      known.joined += 2 * pairs(size_[lists_[k]]);
    enqueue(i, place_of(size_[i], degree_[i], known));
  }
}

// Where a variable that may be eliminated waits.
//
// By fill, its neighbours become a clique, in which the pairs that share an element, or a vertex,
// are joined already.  A small part of the clique counts whatever is joined of it, as wide elements
// make the next steps dear; and a variable that stands for many spreads its cost over their columns.
template <EliminationScore score>
int QuotientGraph<score>::place_of(int weight, int degree, const KnownFill& known) const {
  if constexpr (!by_fill) return degree;
  const double d = degree;
  const double joined =
      pairs(std::max(members_ - weight, 0)) + known.joined / 2 - weight * known.reach;
  return cost_place(std::max(0.0, pairs(d) - joined) + d * d / 32, weight);
}

template <EliminationScore score>
void QuotientGraph<score>::enqueue(int i, int place) {
  const int head = n_ + place, first = next_[head];
  next_[i] = first;
  previous_[i] = head;
  previous_[first] = next_[head] = i;
  if constexpr (by_fill) used_[place / 64] |= std::uint64_t{1} << place % 64;
  least_ = std::min(least_, place);
}

template <EliminationScore score>
FactorCost QuotientGraph<score>::eliminate_all() {
  for (unsigned elements = 0; eliminated_ < to_eliminate_; ++elements) {
    if (elements % 64 == 0) pulse();
    const int me = pop_least();
    form_element(me);
    renew_flag();
    measure_overlaps();
    update_members(me);
    largest_ = std::max(largest_, members_);
    flag_ += largest_;
    renew_flag();
    merge_indistinguishable();
    close_element(me);
  }
  return cost_;
}

template <EliminationScore score>
int QuotientGraph<score>::pop_least() {
  while (next_[n_ + least_] >= n_) {
    if constexpr (by_fill) {  // most places are empty
      used_[least_ / 64] &= ~(std::uint64_t{1} << least_ % 64);
      int word = least_ / 64;
      while (used_[word] == 0) ++word;
      least_ = 64 * word + std::countr_zero(used_[word]);
    } else {
      ++least_;
    }
  }
  const int me = next_[n_ + least_];
  unlink(me);
  return me;
}

template <EliminationScore score>
void QuotientGraph<score>::unlink(int i) {
  if (is_halo(i)) return;
  previous_[next_[i]] = previous_[i];
  next_[previous_[i]] = next_[i];
}

// Takes variable i into the pivot element, at the free end of the lists.
template <EliminationScore score>
void QuotientGraph<score>::gather_member(int i) {
  const int weight = size_[i];
  if (weight <= 0) return;
  members_ += weight;
  size_[i] = -weight;
  lists_[end_++] = i;
  unlink(i);
}

// Forms the element of the pivot: its variables and those of its elements, which it absorbs.
template <EliminationScore score>
void QuotientGraph<score>::form_element(int me) {
  pivots_ = size_[me];
  eliminated_ += pivots_;
  size_[me] = -pivots_;
  members_ = 0;
  in_place_ = elements_[me] == 0;
  if (in_place_) {
    begin_ = end_ = start_[me];
    for (int k = begin_, stop = begin_ + length_[me]; k < stop; ++k) gather_member(lists_[k]);
  } else {
    make_room(me);
    begin_ = end_ = free_;
    const int variables = start_[me] + elements_[me];
    for (int k = start_[me]; k < variables; ++k) {
      const int e = lists_[k];
      for (int at = start_[e], stop = at + length_[e]; at < stop; ++at) gather_member(lists_[at]);
      kill_element(e, me);
    }
    for (int k = variables, stop = start_[me] + length_[me]; k < stop; ++k)
      gather_member(lists_[k]);
    free_ = end_;
  }
  start_[me] = begin_;
  length_[me] = end_ - begin_;
  degree_[me] = members_;
}

template <EliminationScore score>
void QuotientGraph<score>::kill_element(int e, int absorber) {
  owner_[e] = absorber;
  work_[e] = 0;
  length_[e] = 0;
}

// Sees to it that the element of the pivot fits behind the lists: else the live lists are
// moved together.  They never hold more than the edges of the graph, so that suffices.
template <EliminationScore score>
void QuotientGraph<score>::make_room(int me) {
  std::int64_t needed = length_[me] - elements_[me];
  for (int k = start_[me]; k < start_[me] + elements_[me]; ++k) needed += length_[lists_[k]];
  needed = std::min<std::int64_t>(needed, n_);
  if (free_ + needed <= static_cast<std::int64_t>(lists_.size())) return;

  // The first entry of each live list gives way to its owner's mark, and waits in start_.
  for (int i = 0; i < n_; ++i)
    if (length_[i] > 0) {
      const int at = start_[i];
      start_[i] = lists_[at];
      lists_[at] = -i - 1;
    }
  int to = 0;
  for (int at = 0; at < free_;) {
    const int i = -lists_[at++] - 1;
    if (i < 0) continue;
    lists_[to] = start_[i];
    start_[i] = to++;
    for (int k = 1; k < length_[i]; ++k) lists_[to++] = lists_[at++];
  }
  free_ = to;
}

template <EliminationScore score>
void QuotientGraph<score>::renew_flag() {
  if (flag_ < 2 || flag_ > 2000000000 - total_) {
    for (int& w : work_)
      if (w != 0) w = 1;
    flag_ = 2;
  }
}

// work(e) - flag := weight of element e outside the pivot element, for each element that
// touches it.
template <EliminationScore score>
void QuotientGraph<score>::measure_overlaps() {
  for (int p = begin_; p < end_; ++p) {
    const int i = lists_[p];
    const int weight = -size_[i];
    for (int k = start_[i]; k < start_[i] + elements_[i]; ++k) {
      const int e = lists_[k];
      if (work_[e] >= flag_)
        work_[e] -= weight;
      else if (work_[e] != 0)
        work_[e] = degree_[e] + flag_ - weight;
    }
  }
}

template <EliminationScore score>
void QuotientGraph<score>::update_members(int me) {
  for (int p = begin_; p < end_; ++p) update_member(me, p);
  degree_[me] = members_;
}

// Degree bound and hash of one member; its list loses what the pivot element covers.
template <EliminationScore score>
void QuotientGraph<score>::update_member(int me, int p) {
  const int i = lists_[p];
  const int first = start_[i], variables = first + elements_[i], stop = first + length_[i];
  int to = first;
  std::int64_t degree = 0;
  double joined = 0;               // by the other elements, twice
  std::int64_t joined_within = 0;  // by the weights of neighbours, twice
  std::uint32_t hash = 0;
  for (int k = first; k < variables; ++k) {
    const int e = lists_[k];
    if (work_[e] == 0) continue;
    const int outside = work_[e] - flag_;
    if (outside > 0) {
      degree += outside;
      if constexpr (by_fill)
        joined += static_cast<double>(outside * (2LL * degree_[e] - outside - 1));
      lists_[to++] = e;
      hash += static_cast<std::uint32_t>(e);
    } else {
      kill_element(e, me);  // aggressive absorption: covered though not next to me
    }
  }
  elements_[i] = to - first + 1;
  const int kept_elements = to;
  const std::int64_t reach = degree;
  for (int k = variables; k < stop; ++k) {
    const int j = lists_[k];
    if (size_[j] <= 0) continue;
    degree += size_[j];
    if constexpr (by_fill) joined_within += size_[j] * (size_[j] - 1LL);
    lists_[to++] = j;
    hash += static_cast<std::uint32_t>(j);
  }
  if (to == first && !is_halo(i)) {
    // Nothing outside the pivot element: eliminated along with the pivot.
    const int weight = -size_[i];
    members_ -= weight;
    pivots_ += weight;
    eliminated_ += weight;
    size_[i] = 0;
    owner_[i] = me;
    length_[i] = 0;
    return;
  }
  degree_[i] = static_cast<int>(std::min<std::int64_t>(degree_[i], degree));
  if constexpr (by_fill)
    known_[p - begin_] = {joined + static_cast<double>(joined_within), static_cast<double>(reach)};
  // me goes first.  A place is free, because me or an absorbed element was on the list.
  lists_[to] = lists_[kept_elements];
  lists_[kept_elements] = lists_[first];
  lists_[first] = me;
  length_[i] = to - first + 1;
  const int b = static_cast<int>(hash % static_cast<std::uint32_t>(n_));
  next_[i] = bucket_[b];
  bucket_[b] = i;
  previous_[i] = b;
}

template <EliminationScore score>
void QuotientGraph<score>::merge_indistinguishable() {
  for (int p = begin_; p < end_; ++p) {
    const int i = lists_[p];
    if (size_[i] >= 0) continue;
    const int b = previous_[i];
    int candidate = bucket_[b];
    bucket_[b] = none;
    for (; candidate != none && next_[candidate] != none; candidate = next_[candidate])
      merge_with_followers(candidate);
  }
}

// Absorbs into i the later variables of its bucket that have the same list.
template <EliminationScore score>
void QuotientGraph<score>::merge_with_followers(int i) {
  for (int k = start_[i] + 1; k < start_[i] + length_[i]; ++k) work_[lists_[k]] = flag_;
  int before = i;
  for (int j = next_[i]; j != none;) {
    bool same =
        length_[j] == length_[i] && elements_[j] == elements_[i] && is_halo(i) == is_halo(j);
    for (int k = start_[j] + 1; same && k < start_[j] + length_[j]; ++k)
      same = work_[lists_[k]] == flag_;
    const int after = next_[j];
    if (same) {
      size_[i] += size_[j];
      size_[j] = 0;
      owner_[j] = i;
      length_[j] = 0;
      next_[before] = after;
    } else {
      before = j;
    }
    j = after;
  }
  ++flag_;
}

// Puts the remaining members back into the degree lists and closes the element.
template <EliminationScore score>
void QuotientGraph<score>::close_element(int me) {
  const int left = total_ - eliminated_;
  int to = begin_;
  for (int p = begin_; p < end_; ++p) {
    const int i = lists_[p];
    const int weight = -size_[i];
    if (weight <= 0) continue;
    size_[i] = weight;
    lists_[to++] = i;
    const int degree = static_cast<int>(std::min<std::int64_t>(
        static_cast<std::int64_t>(degree_[i]) + members_ - weight, left - weight));
    degree_[i] = degree;
    if (is_halo(i)) continue;
    enqueue(i, place_of(weight, degree, by_fill ? known_[p - begin_] : KnownFill{}));
  }
  size_[me] = pivots_;
  length_[me] = to - begin_;
  if (length_[me] == 0) work_[me] = 0;
  if (!in_place_) free_ = to;
  cost_ += block_cost(pivots_, members_);
}

// Order of the vertices by a postorder of the assembly tree, in which the child with the most
// rows comes last, next to its parent.
template <EliminationScore score>
void QuotientGraph<score>::postorder(Vector<int>& order) {
  Vector<int>&merged = bucket_, &follower = previous_;
  Forest forest(n_, work_, next_);
  merged.assign(n_, none);
  for (int i = inner_ - 1; i >= 0; --i) {
    int up = owner_[i];
    if (size_[i] > 0) {
      if (up != none) forest.add(i, up);
    } else {
      while (size_[up] == 0) up = owner_[up];
      owner_[i] = up;
      follower[i] = merged[up];
      merged[up] = i;
    }
  }
  for (int i = 0; i < inner_; ++i)
    if (size_[i] > 0) forest.largest_child_last(i, [&](int c) { return degree_[c] + size_[c]; });
  for (int root = 0; root < inner_; ++root) {
    if (size_[root] <= 0 || owner_[root] != none) continue;
    forest.walk(root, length_, [&](int v) {
      order.push_back(v);
      for (int i = merged[v]; i != none; i = follower[i]) order.push_back(i);
    });
  }
}

}  // namespace

FactorCost minimum_score(const WeightedGraph& graph, int halo, EliminationScore score,
                         Vector<int>& order, AmdWorkspace& workspace) {
  const auto run = [&](auto quotient) {
    const FactorCost cost = quotient.eliminate_all();
    quotient.postorder(order);
    return cost;
  };
  if (score == EliminationScore::fill)
    return run(QuotientGraph<EliminationScore::fill>(graph, halo, workspace));
  return run(QuotientGraph<EliminationScore::degree>(graph, halo, workspace));
}

FactorCost minimum_score(const WeightedGraph& graph, int halo, EliminationScore score,
                         Vector<int>& order) {
  AmdWorkspace workspace;
  return minimum_score(graph, halo, score, order, workspace);
}

}  // namespace vlm
