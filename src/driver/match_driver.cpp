// SPDX-License-Identifier: BSD-3-Clause
/// Weighted matching within an analysis, see match_driver.hpp.
#include "driver/match_driver.hpp"

#include <numeric>
#include <stdexcept>

#include "base/memory.hpp"
#include "base/status.hpp"
#include "graph/ordering.hpp"
#include "matching/mps.hpp"
#include "matching/mps_constraint.hpp"
#include "ordering/reorder1.hpp"

namespace vlm {
namespace {

constexpr int last_mode = 4;
/// Below this many compressed nodes nested dissection leaves the order alone.
constexpr int smallest_dissection = 9;
bool is_constrained(int mode) { return mode == 3 || mode == 4; }
bool is_padded(int mode) { return mode == 2 || mode == 4; }

MatchResult match(const MatchInput& matrix, const Options& options) {
  MatchResult result;
  const bool constrained = is_constrained(options.matching) && options.type->nvals() == 1;
  if (!constrained || !constrained_matching(matrix, result)) result = mps_velmora(matrix);
  return result;
}

/// Stores the scalings of all n nodes; those that took no part, behind the matched ones, get
/// the factor 1, as do all when the matching is incomplete.
void store_matching(const MatchInput& matrix, const Options& options, MatchResult& result,
                    int* perm_store, double* scale_store) {
  const int n = options.n;
  const bool scaled = options.scaled && result.count == matrix.n;
  // The rows of a symmetric matrix stay with their columns.
  const std::size_t kept = options.symmetric ? 0 : result.perm.size();
  result.perm.resize(static_cast<std::size_t>(n));
  std::iota(result.perm.begin() + static_cast<std::ptrdiff_t>(kept), result.perm.end(),
            static_cast<int>(kept));
  result.u.resize(static_cast<std::size_t>(n));
  result.v.resize(static_cast<std::size_t>(n));
  rr33adcopy(scaled ? ScaleMode::scale : ScaleMode::permute, n, result.perm.data(), result.u.data(),
             result.v.data(), options.mtype, n - matrix.n, perm_store, scale_store);
}

/// Puts the nodes that took no part behind the ordered ones, each a pivot of its own.
void append_unmatched(int n, Ordering& order, PairedOrder& candidates) {
  for (int node = static_cast<int>(order.perm.size()) + 1; node <= n; ++node) {
    order.perm.push_back(node);
    order.invp.push_back(node);
    candidates.node.push_back(node - 1);
    candidates.block1x1.push_back(true);
  }
  order.ranges.back().last = n;
}

// Nested dissection with exchanges of pairs, where scalings tell which entries are large.  False
// when the pairs are to stay as they are.
bool dissect_with_exchanges(const MatchInput& part, const MatchResult& match,
                            const PairedOrder& pairs, const Options& options, Ordering& order,
                            PairedOrder& candidates) {
  if (options.order != OrderMethod::dissection || match.count < part.n || match.u.empty())
    return false;
  Pairing pairing = exchangeable_pairs(part, match, pairs);
  Adjacency graph;
  if (!worth_exchanging(pairing) || uncompressed_graph(part, graph) != status_ok ||
      !order_with_pairs(order_options(options), graph, pairing, order))
    return false;
  candidates = candidates_of(order, pairing);
  return true;
}

Outcome order_symmetrically(const InputMatrix& matrix, const MatchInput& part,
                            const Options& options, const MatchResult& match,
                            MatchedOrder& matched) {
  PairedOrder candidates;
  Ordering& order = matched.order.emplace();
  const OrderOptions order_as = order_options(options);
  const auto order_graph = [&order_as](const Adjacency& graph, Ordering& found) -> int {
    if (order_as.method != OrderMethod::dissection || graph.n >= smallest_dissection)
      return order_by_method(order_as, graph, found);
    set_identity(found, graph.n);
    return status_ok;
  };
  const PairedOrder pairs = reordering_matching_sym2x2(part, match.perm);
  int status = status_ok;
  if (!dissect_with_exchanges(part, match, pairs, options, order, candidates))
    status = mps_sym_velmora(part, pairs, order_graph, order, candidates);
  if (status == status_ok) {
    append_unmatched(matrix.n, order, candidates);
    if (is_padded(options.matching))
      status = build_padded_2x2_mat(matrix, candidates, matched.padded.emplace());
  }
  if (status == status_ok) return {};
  return {status == status_overflow ? error_overflow : error_analysis, status, 0, 0};
}

}  // namespace

Outcome run_matching(const InputMatrix& matrix, const Options& options, int* perm_store,
                     double* scale_store, MatchedOrder& matched) try {
  if (options.matching > last_mode) return {error_analysis, status_no_matching, 0, 0};
  const bool symmetric = options.symmetric;
  const Vector<double> magnitudes =
      options.type->nvals() == 2 ? convert2abs(matrix.nnz(), matrix.a) : Vector<double>();
  const MatchInput part{matrix.n - options.schur,
                        matrix.ia,
                        matrix.ja,
                        options.type->nvals() == 2 ? magnitudes.data() : matrix.a,
                        symmetric,
                        options.threads};
  MatchResult result = match(part, options);
  if (!symmetric && result.count < part.n) return {error_matching, -result.count, 0, 0};
  // A given order stands; the matching then only scales.
  if (symmetric && !options.user_order)
    if (Outcome failed = order_symmetrically(matrix, part, options, result, matched)) return failed;
  store_matching(part, options, result, perm_store, scale_store);
  return {};
} catch (const std::length_error&) {  // both triangles don't fit 32-bit positions
  return {error_overflow, status_overflow, 0, 0};
}

}  // namespace vlm
