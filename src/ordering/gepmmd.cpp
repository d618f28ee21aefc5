// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/gepmmd.hpp"

#include <algorithm>
#include <numeric>

#include "base/memory.hpp"
#include "base/progress.hpp"
#include "base/view.hpp"
#include "graph/ordering.hpp"

namespace vlm {
namespace {

// The quotient graph and the degree lists.
//
// A list in adjncy ends with the segment of its node, with a 0, or goes on at segment k where
// the entry -k stands.  State of a node v:
//   free, in degree list d:   forward(v) next in the list, backward(v) previous one or -d
//   waiting for an update:    backward(v) = 0, forward(v) = neighbours in the quotient graph + 1
//   outmatched or held back:  backward(v) = -maxint
//   eliminated (an element):  forward(v) = -number
//   merged into r:            forward(v) = -r, qsize(v) = 0, marker(v) = maxint
class MinimumDegree {
 public:
  MinimumDegree(Adjacency& graph, const Vector<int>& last, Ordering& order,
                const MinimumDegreeOptions& options);
  std::int64_t run();

 private:
  void fill_degree_lists();
  void number_isolated_nodes();
  bool eliminate_batch();
  void renew_tags();
  void eliminate(int pivot);
  void form_element(int pivot);
  void absorb_element(int element, int& loc, int& limit);
  void detach_member(int pivot, int node);
  void update_degrees();
  void update_element(int element);
  int degree_of_pair(int node, int element, int base);
  int degree_of_node(int node, int base);
  void number_merged_nodes();

  void unlink(int node);
  void enter(int node, int degree);
  void merge(int node, int into);

  // Calls visit(v) for the entries of the list of node, following its links.
  template <class Visit>
  void for_list(int node, Visit visit) {
    for (int segment = node; segment > 0;) {
      int next = 0;
      for (int k = xadj_(segment); k < xadj_(segment + 1); ++k) {
        const int v = adjncy_(k);
        if (v <= 0) {
          next = -v;
          break;
        }
        visit(v);
      }
      segment = next;
    }
  }

  int n_;
  int total_;  // weight of all nodes
  int maxint_;
  const Vector<int>& last_;
  View<int> xadj_, adjncy_, forward_, backward_;
  Vector<int> head_store_, qsize_store_, chain_store_, marker_store_, held_store_;
  View<int> head_, qsize_, chain_, marker_, held_;
  int num_ = 1;  // next position
  int end_;      // last position of the free phase
  int tag_ = 1;
  int mdeg_ = 2;      // degrees are external degree + 1 throughout
  int span_ = 0;      // bound for the degrees of this batch
  int elements_ = 0;  // elements of this batch, chained
  std::int64_t nofsub_ = 0;
};

MinimumDegree::MinimumDegree(Adjacency& graph, const Vector<int>& last, Ordering& order,
                             const MinimumDegreeOptions& options)
    : n_(graph.n),
      total_(graph.weight.empty() ? n_
                                  : std::accumulate(graph.weight.begin(), graph.weight.end(), 0)),
      maxint_(options.maxint),
      last_(last),
      xadj_(graph.xadj),
      adjncy_(graph.adjncy),
      head_store_(total_ + 1),
      qsize_store_(graph.weight.empty() ? Vector<int>(n_, 1) : graph.weight),
      chain_store_(n_),
      marker_store_(n_),
      held_store_(n_),
      head_(head_store_),
      qsize_(qsize_store_),
      chain_(chain_store_),
      marker_(marker_store_),
      held_(held_store_),
      end_(total_) {
  order.perm.assign(n_, 0);
  order.invp.assign(n_, 0);
  forward_ = View<int>(order.invp);
  backward_ = View<int>(order.perm);
  for (const int v : last_) {
    held_(v) = 1;
    end_ -= qsize_(v);
  }
}

std::int64_t MinimumDegree::run() {
  fill_degree_lists();
  number_isolated_nodes();
  while (num_ <= end_) {
    pulse();
    while (head_(mdeg_) <= 0) ++mdeg_;
    if (eliminate_batch()) break;
    update_degrees();
  }
  for (std::size_t k = 0; k < last_.size(); ++k) {
    forward_(last_[k]) = -(end_ + 1 + static_cast<int>(k));
    qsize_(last_[k]) = 1;
  }
  number_merged_nodes();
  return nofsub_;
}

void MinimumDegree::fill_degree_lists() {
  for (int v = 1; v <= n_; ++v) {
    if (held_(v)) {
      backward_(v) = -maxint_;
      continue;
    }
    int degree = 1;
    for (int k = xadj_(v); k < xadj_(v + 1); ++k) degree += qsize_(adjncy_(k));
    enter(v, degree);
  }
}

void MinimumDegree::number_isolated_nodes() {
  for (int v = head_(1); v > 0;) {
    const int next = forward_(v);
    marker_(v) = maxint_;
    forward_(v) = -num_;
    num_ += qsize_(v);
    v = next;
  }
  head_(1) = 0;
}

// Eliminates an independent set of nodes of degree mdeg, chained as elements_.
// True when every free node has its number or its representative.
bool MinimumDegree::eliminate_batch() {
  elements_ = 0;
  while (head_(mdeg_) > 0) {
    const int pivot = head_(mdeg_);
    const int next = forward_(pivot);
    head_(mdeg_) = next;
    if (next > 0) backward_(next) = -mdeg_;
    forward_(pivot) = -num_;
    nofsub_ += mdeg_ + qsize_(pivot) - 2;
    if (num_ + qsize_(pivot) > end_) return true;
    if (++tag_ >= maxint_) renew_tags();
    eliminate(pivot);
    num_ += qsize_(pivot);
    chain_(pivot) = elements_;
    elements_ = pivot;
    if (num_ > end_) return true;
  }
  ++mdeg_;
  return false;
}

void MinimumDegree::renew_tags() {
  tag_ = 1;
  for (int& m : marker_store_)
    if (m < maxint_) m = 0;
}

// Turns the pivot into an element and takes it up in the lists of its members.
void MinimumDegree::eliminate(int pivot) {
  marker_(pivot) = tag_;
  form_element(pivot);
  for_list(pivot, [&](int v) { detach_member(pivot, v); });
}

// Replaces the list of the pivot by its reach: its own free neighbours and those of the
// elements next to it, whose storage the list runs on into.
void MinimumDegree::form_element(int pivot) {
  int loc = xadj_(pivot), limit = xadj_(pivot + 1) - 1;
  int element = 0;
  for (int k = loc; k < xadj_(pivot + 1); ++k) {
    const int v = adjncy_(k);
    if (v == 0) break;
    if (marker_(v) >= tag_) continue;
    marker_(v) = tag_;
    if (forward_(v) < 0) {
      chain_(v) = element;
      element = v;
    } else {
      adjncy_(loc++) = v;
    }
  }
  for (; element > 0; element = chain_(element)) absorb_element(element, loc, limit);
  if (loc <= limit) adjncy_(loc) = 0;
}

// Appends the members of one absorbed element.  The last entry of the current segment becomes
// the link to the segments of that element.
void MinimumDegree::absorb_element(int element, int& loc, int& limit) {
  adjncy_(limit) = -element;
  for_list(element, [&](int v) {
    if (marker_(v) >= tag_ || forward_(v) < 0) return;
    marker_(v) = tag_;
    while (loc >= limit) {
      const int segment = -adjncy_(limit);
      loc = xadj_(segment);
      limit = xadj_(segment + 1) - 1;
    }
    adjncy_(loc++) = v;
  });
}

// Shortens the list of one member to what the new element does not cover, with the element at
// its end; a member with nothing else left is eliminated along with the pivot.
void MinimumDegree::detach_member(int pivot, int node) {
  unlink(node);
  const int first = xadj_(node), stop = xadj_(node + 1);
  int loc = first;
  for (int k = first; k < stop; ++k) {
    const int v = adjncy_(k);
    if (v == 0) break;
    if (marker_(v) < tag_) adjncy_(loc++) = v;
  }
  const int left = loc - first;
  if (left == 0 && !held_(node)) {
    merge(node, pivot);
    return;
  }
  if (!held_(node)) {
    forward_(node) = left + 1;
    backward_(node) = 0;
  }
  adjncy_(loc++) = pivot;
  if (loc < stop) adjncy_(loc) = 0;
}

void MinimumDegree::update_degrees() {
  span_ = mdeg_;
  for (int element = elements_; element > 0; element = chain_(element)) update_element(element);
}

// New degrees of the members of one element: first of those with one further neighbour, where
// indistinguishable and outmatched nodes show up, then of the rest.
void MinimumDegree::update_element(int element) {
  // The element has fewer members than the largest degree of its batch, hence fewer tags.
  if (static_cast<std::int64_t>(tag_) + span_ >= maxint_) renew_tags();
  const int mtag = tag_ + span_;
  int pairs = 0, others = 0, base = 0;
  for_list(element, [&](int v) {
    if (qsize_(v) == 0) return;
    base += qsize_(v);
    marker_(v) = mtag;
    if (backward_(v) != 0) return;
    int& queue = forward_(v) == 2 ? pairs : others;
    chain_(v) = queue;
    queue = v;
  });
  for (int v = pairs; v > 0; v = chain_(v)) {
    if (backward_(v) != 0) continue;
    ++tag_;
    const int degree = degree_of_pair(v, element, base);
    enter(v, degree - qsize_(v) + 1);
  }
  for (int v = others; v > 0; v = chain_(v)) {
    if (backward_(v) != 0) continue;
    ++tag_;
    const int degree = degree_of_node(v, base);
    enter(v, degree - qsize_(v) + 1);
  }
  tag_ = mtag;
}

// Degree of a node whose quotient neighbours are the element and one more.
int MinimumDegree::degree_of_pair(int node, int element, int base) {
  int other = adjncy_(xadj_(node));
  if (other == element) other = adjncy_(xadj_(node) + 1);
  if (forward_(other) >= 0) return base + qsize_(other);
  int degree = base;
  for_list(other, [&](int v) {
    if (v == node || qsize_(v) == 0) return;
    if (marker_(v) < tag_) {
      marker_(v) = tag_;
      degree += qsize_(v);
    } else if (backward_(v) == 0) {
      // v lies in both elements: it equals the node, or the node's reach covers less.
      if (forward_(v) == 2)
        merge(v, node);
      else
        backward_(v) = -maxint_;
    }
  });
  return degree;
}

int MinimumDegree::degree_of_node(int node, int base) {
  int degree = base;
  for (int k = xadj_(node); k < xadj_(node + 1); ++k) {
    const int u = adjncy_(k);
    if (u == 0) break;
    if (marker_(u) >= tag_) continue;
    marker_(u) = tag_;
    if (forward_(u) >= 0) {
      degree += qsize_(u);
    } else {
      for_list(u, [&](int v) {
        if (marker_(v) >= tag_) return;
        marker_(v) = tag_;
        degree += qsize_(v);
      });
    }
  }
  return degree;
}

// Takes a node out of its degree list, if it is in one.
void MinimumDegree::unlink(int node) {
  const int previous = backward_(node);
  if (previous == 0 || previous == -maxint_) return;
  const int next = forward_(node);
  if (next > 0) backward_(next) = previous;
  if (previous > 0) forward_(previous) = next;
  if (previous < 0) head_(-previous) = next;
}

void MinimumDegree::enter(int node, int degree) {
  const int first = head_(degree);
  forward_(node) = first;
  backward_(node) = -degree;
  if (first > 0) backward_(first) = node;
  head_(degree) = node;
  mdeg_ = std::min(mdeg_, degree);
}

void MinimumDegree::merge(int node, int into) {
  qsize_(into) += qsize_(node);
  qsize_(node) = 0;
  marker_(node) = maxint_;
  forward_(node) = -into;
  backward_(node) = -maxint_;
}

// Merged nodes are numbered behind their representative, in increasing index.  Numbers count
// weight: those that no node got are closed up at the end.
void MinimumDegree::number_merged_nodes() {
  const View<int> owner = backward_;  // -owner for a merged node; last number for the others
  for (int v = 1; v <= n_; ++v) owner(v) = qsize_(v) > 0 ? -forward_(v) : forward_(v);
  for (int v = 1; v <= n_; ++v) {
    if (owner(v) > 0) continue;
    int root = v;
    while (owner(root) <= 0) root = -owner(root);
    const int number = ++owner(root);
    forward_(v) = -number;
    for (int u = v; owner(u) <= 0;) {  // path compression
      const int up = -owner(u);
      owner(u) = -root;
      u = up;
    }
  }
  Vector<int> node_store(total_, 0);  // node with a number
  const View<int> node(node_store);
  for (int v = 1; v <= n_; ++v) node(-forward_(v)) = v;
  int position = 0;
  for (const int v : node_store) {
    if (v == 0) continue;
    backward_(++position) = v;
    forward_(v) = position;
  }
}

}  // namespace

std::int64_t gepmmd_velmora(Adjacency graph, Ordering& order, const MinimumDegreeOptions& options) {
  return cmd_velmora(std::move(graph), {}, order, options);
}

std::int64_t cmd_velmora(Adjacency graph, const Vector<int>& last, Ordering& order,
                         const MinimumDegreeOptions& options) {
  const std::int64_t nofsub = graph.n < 1 ? 0 : MinimumDegree(graph, last, order, options).run();
  if (graph.n < 1) order = {};
  set_single_range(order, graph.n);
  return nofsub;
}

}  // namespace vlm
