// SPDX-License-Identifier: BSD-3-Clause
/// First stage of an analysis, see reorder1.hpp.  All but the ordering itself is linear in the
/// matrix.
#include "ordering/reorder1.hpp"

#include <algorithm>
#include <cstdlib>

#include "base/clock.hpp"
#include "base/memory.hpp"
#include "ordering/gepcmd.hpp"
#include "ordering/gepmetis.hpp"
#include "ordering/gepmmd.hpp"

namespace vlm {
namespace {

int build_adjacency(const OrderInput& input, bool symmetric, Adjacency& graph) {
  const InputMatrix& matrix = input.matrix;
  const auto n = static_cast<std::size_t>(matrix.n);
  const Pattern pattern{matrix.n, View<const int>(matrix.ia, n + 1),
                        View<const int>(matrix.ja, static_cast<std::size_t>(matrix.nnz()))};
  if (symmetric) return ladj_mod_velmora(pattern, graph);
  const View<const int> rows =
      input.row_perm != nullptr ? View<const int>(input.row_perm, n) : View<const int>();
  return ladjun_velmora(pattern, rows, graph);
}

DissectionRequest dissection_request(const OrderOptions& options) {
  return {options.domains, options.parallel ? options.threads : 1};
}

// The nodes that the ordering keeps for the end.
Vector<char> nodes_held_back(const OrderOptions& options, const Adjacency& graph) {
  Vector<char> held;
  if (options.schur > 0) {
    held.assign(graph.n, 0);
    std::fill(held.end() - options.schur, held.end(), 1);
  }
  return held;
}

int choose_order(const OrderInput& input, const OrderOptions& options, OrderedGraph& ordered) {
  Ordering& order = ordered.order;
  const int n = ordered.graph.n;
  if (input.user_perm != nullptr) {
    order.perm.assign(input.user_perm, input.user_perm + n);
    set_single_range(order, n);
    return invert_order(order) ? status_ok : status_structure;
  }
  if (input.matched != nullptr) {
    order = *input.matched;
    for (int& node : order.perm) node = std::abs(node);
    return invert_order(order) ? status_ok : status_structure;
  }
  return order_by_method(options, ordered.graph, order, nodes_held_back(options, ordered.graph));
}

// Sends the marked nodes last, in the sequence they have.  The leaf domains would no longer
// be contiguous in what is left: one range remains.
void move_marked_last(const int* marks, OrderedGraph& ordered) {
  const int n = ordered.graph.n;
  Vector<int> group(n);
  std::transform(marks, marks + n, group.begin(), [](int mark) { return mark != 0 ? 2 : 1; });
  const Range marked = regroup(ordered.order, group, 2).back();
  set_single_range(ordered.order, n);
  ordered.trailing = marked.last - marked.first + 1;
  ordered.nfw = ordered.nbw = ordered.trailing;
}

}  // namespace

int order_by_method(const OrderOptions& options, const Adjacency& graph, Ordering& order,
                    const Vector<char>& held) {
  switch (options.method) {
    case OrderMethod::minimum_degree: {
      Vector<int> last;
      for (std::size_t i = 0; i < held.size(); ++i)
        if (held[i] != 0) last.push_back(static_cast<int>(i) + 1);
      cmd_velmora(graph, last, order);
      return status_ok;
    }
    case OrderMethod::constrained:
      return gepcmd_velmora(graph, options.threads, order, held);
    case OrderMethod::dissection:
      break;
  }
  gepmetis_velmora(graph, dissection_request(options), order, held);
  return status_ok;
}

bool order_with_pairs(const OrderOptions& options, const Adjacency& graph, Pairing& pairs,
                      Ordering& order) {
  return dissect_with_pairs(graph, dissection_request(options), pairs, order);
}

int reorder1_velmora(const OrderInput& input, const OrderOptions& options, OrderedGraph& ordered,
                     OrderTimes& times) {
  ordered.trailing = ordered.nfw = ordered.nbw = 0;
  {
    const Stopwatch watch(times.adjacency);
    const int status = build_adjacency(input, options.symmetric, ordered.graph);
    if (status != status_ok) return status;
  }
  const Stopwatch watch(times.order);
  if (const int status = choose_order(input, options, ordered)) return status;
  if (input.marks != nullptr) {
    move_marked_last(input.marks, ordered);
  } else {
    ordered.trailing = options.schur;
    regroup_by_ranges(ordered.order, ordered.trailing);
  }
  return status_ok;
}

}  // namespace vlm
