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

int build_adjacency(const OrderInput& input, const OrderOptions& options, Adjacency& graph) {
  const InputMatrix& matrix = input.matrix;
  const auto n = static_cast<std::size_t>(matrix.n);
  const Pattern pattern{matrix.n, View<const int>(matrix.ia, n + 1),
                        View<const int>(matrix.ja, static_cast<std::size_t>(matrix.nnz()))};
  if (options.symmetric) return ladj_mod_velmora(pattern, graph, options.threads);
  const View<const int> rows =
      input.row_perm != nullptr ? View<const int>(input.row_perm, n) : View<const int>();
  return ladjun_velmora(pattern, rows, graph, options.threads);
}

DissectionRequest dissection_request(const OrderOptions& options) {
  return {options.domains, options.parallel ? options.threads : 1, options.operation_cost};
}

// Row of the matrix in the place of a node.
int row_of(const OrderInput& input, int node) {
  return input.row_perm != nullptr ? input.row_perm[node - 1] : node;
}

// The nodes that the ordering keeps for the end: those of the Schur complement, and marked ones
// while they are so few that their block of the factor, were it dense, would hold no more entries
// than the matrix.  A partial solve then ends in that block; more of them would cost the
// factorization, and stay where the order has them.
Vector<char> nodes_held_back(const OrderInput& input, const OrderOptions& options,
                             const Adjacency& graph) {
  const int n = graph.n;
  Vector<char> held;
  if (input.marks != nullptr) {
    held.resize(n);
    for (int i = 0; i < n; ++i)
      held[i] = input.marks[i] != 0 || input.marks[row_of(input, i + 1) - 1] != 0;
    const auto count = static_cast<double>(std::count(held.begin(), held.end(), 1));
    const double entries = static_cast<double>(graph.adjncy.size()) + n;
    if (count == 0 || count * count > entries) held.clear();
  }
  if (options.schur > 0) {
    held.resize(n);
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
  return order_by_method(options, ordered.graph, order,
                         nodes_held_back(input, options, ordered.graph));
}

// Positions of the marked right-hand sides and solutions, and with them those of the Schur
// complement, which a solve always reaches.
void place_marks(const OrderInput& input, OrderedGraph& ordered) {
  const int n = ordered.graph.n, *marks = input.marks;
  if (std::all_of(marks, marks + n, [](int mark) { return mark == 0; })) return;
  const View<const int> perm(ordered.order.perm);
  for (int i = 1; i <= n; ++i) {
    const int node = perm(i), row = row_of(input, node);
    const bool always = i > n - ordered.trailing;
    if (always || marks[row - 1] != 0) ordered.marked_rows.push_back(i);
    if (always || marks[node - 1] != 0) ordered.marked_columns.push_back(i);
  }
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
      gepcmd_velmora(graph, options.threads, order, held);
      return status_ok;
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
  ordered.marked_rows.clear();
  ordered.marked_columns.clear();
  {
    const Stopwatch watch(times.adjacency);
    const int status = build_adjacency(input, options, ordered.graph);
    if (status != status_ok) return status;
  }
  const Stopwatch watch(times.order);
  if (const int status = choose_order(input, options, ordered)) return status;
  ordered.trailing = options.schur;
  regroup_by_ranges(ordered.order, ordered.trailing);
  if (input.marks != nullptr) place_marks(input, ordered);
  return status_ok;
}

}  // namespace vlm
