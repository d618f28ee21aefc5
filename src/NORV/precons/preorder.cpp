// SPDX-License-Identifier: BSD-3-Clause
/// Order and scaling of a level, see preorder.hpp.  They come from the matching and the orderings
/// of the direct solver, which take 1-based rows with 32-bit positions.
#include "NORV/precons/preorder.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "matching/mpssym.hpp"
#include "ordering/amd.hpp"
#include "ordering/gepmetis.hpp"

namespace vlm::norv {

const char* const preordering_names[5] = {"Identity", "Metis + Equilibration",
                                          "AMD + Equilibration", "Metis + 2x2 Matching + Scaling",
                                          "AMD + 2x2 Matching + Scaling"};

namespace {

/// Magnitudes in 1-based rows, the diagonal stored in each.
struct Magnitudes {
  Vector<int> ia, ja;
  Vector<double> a;
  MatchInput input(int n) const { return {n, ia.data(), ja.data(), a.data(), true}; }
};

template <class T>
Magnitudes magnitudes(const UpperRows<T>& A) {
  if (A.entries() + A.n >= std::numeric_limits<int>::max())
    out_of_memory("ERROR: more entries than 32-bit row starts can count!");
  Magnitudes m;
  m.ia.reserve(static_cast<std::size_t>(A.n) + 1);
  m.ja.reserve(static_cast<std::size_t>(A.entries() + A.n));
  m.a.reserve(static_cast<std::size_t>(A.entries() + A.n));
  m.ia.push_back(1);
  for (int i = 0; i < A.n; ++i) {
    std::int64_t p = A.start[i];
    const bool has_diagonal = p < A.start[i + 1] && A.column[p] == i;
    m.ja.push_back(i + 1);
    m.a.push_back(has_diagonal ? magnitude(A.value[p++]) : 0.0);
    for (; p < A.start[i + 1]; ++p) {
      m.ja.push_back(A.column[p] + 1);
      m.a.push_back(magnitude(A.value[p]));
    }
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  }
  return m;
}

/// Fills the order of a graph.
int order_by_metis(const Adjacency& graph, Ordering& order) {
  constexpr int smallest_dissection = 9;  // below it nested dissection leaves the order alone
  if (graph.n < smallest_dissection)
    set_identity(order, graph.n);
  else
    gepmetis_velmora(graph, DissectionRequest{}, order);
  return status_ok;
}

int order_by_amd(const Adjacency& graph, Ordering& order) {
  Vector<int> sequence;
  minimum_score(weighted_graph(graph), 0, EliminationScore::degree, sequence);
  order.perm.resize(graph.n);
  std::transform(sequence.begin(), sequence.end(), order.perm.begin(), [](int v) { return v + 1; });
  set_single_range(order, graph.n);
  return invert_order(order) ? status_ok : status_structure;
}

/// Factors under which every row has a largest entry of 1, or nearly (D. Ruiz, "A scaling algorithm
/// to equilibrate both rows and columns norms in matrices", 2001).
Vector<double> equilibrate(int n, const Magnitudes& m) {
  constexpr int most_rounds = 10;
  constexpr double close_enough = 0.05;
  Vector<double> scale(n, 1.0), largest(n);
  for (int round = 0; round < most_rounds; ++round) {
    std::fill(largest.begin(), largest.end(), 0.0);
    for (int i = 0; i < n; ++i)
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
        const int j = m.ja[p] - 1;
        const double size = m.a[p] * scale[i] * scale[j];
        largest[i] = std::max(largest[i], size);
        largest[j] = std::max(largest[j], size);
      }
    double worst = 0;
    for (int i = 0; i < n; ++i) {
      if (!(largest[i] > 0) || !std::isfinite(largest[i])) continue;
      worst = std::max(worst, std::fabs(1 - largest[i]));
      scale[i] /= std::sqrt(largest[i]);
    }
    if (worst < close_enough) break;
  }
  return scale;
}

/// The geometric mean of row and column factors of the matching, which is symmetric.
Vector<double> scaling_of(const MatchResult& match) {
  Vector<double> scale(match.u.size());
  constexpr double largest = 600;  // exponents beyond it only come from entries that are no numbers
  for (std::size_t i = 0; i < scale.size(); ++i)
    scale[i] = std::exp(std::clamp(0.5 * (match.u[i] + match.v[i]), -largest, largest));
  return scale;
}

void require_ordered(int status) {
  if (status != status_ok) out_of_memory("ERROR: the graph does not fit 32-bit positions!");
}

}  // namespace

template <class T>
LevelOrder order_level(const UpperRows<T>& A, Preordering preordering) {
  LevelOrder level;
  level.place.resize(A.n);
  if (preordering == Preordering::identity) {
    for (int i = 0; i < A.n; ++i) level.place[i] = i;
    level.scale.assign(A.n, 1.0);
    return level;
  }
  const Magnitudes m = magnitudes(A);
  const MatchInput input = m.input(A.n);
  const bool by_amd =
      preordering == Preordering::amd_equilibrated || preordering == Preordering::amd_matched;
  const bool matched =
      preordering == Preordering::metis_matched || preordering == Preordering::amd_matched;
  const GraphOrdering order_graph = by_amd ? order_by_amd : order_by_metis;
  Ordering order;
  if (matched) {
    const MatchResult match = mps_velmora(input);
    // Without a complete matching there are no scalings.
    level.scale = match.count == A.n && !match.u.empty() ? scaling_of(match) : equilibrate(A.n, m);
    PairedOrder candidates;
    require_ordered(mps_sym_velmora(input, reordering_matching_sym2x2(input, match.perm),
                                    order_graph, order, candidates));
  } else {
    level.scale = equilibrate(A.n, m);
    Adjacency graph;
    require_ordered(uncompressed_graph(input, graph));
    require_ordered(order_graph(graph, order));
  }
  for (int k = 0; k < A.n; ++k) level.place[order.perm[k] - 1] = k;
  return level;
}

namespace {

/// A row that an order doesn't know, behind the place of its strongest neighbour.
struct Newcomer {
  int behind, row;
  double largest = 0;  ///< entry between the two, scaled on the neighbour's side
  bool operator<(const Newcomer& other) const {
    return behind != other.behind ? behind < other.behind : row < other.row;
  }
};

/// Whether nearly all rows have a largest entry that isn't far from 1.
template <class T>
bool scaling_fits(const UpperRows<T>& A, const Vector<double>& scale) {
  constexpr double far = 16;
  Vector<double> largest(A.n, 0.0);
  for (int i = 0; i < A.n; ++i)
    for (std::int64_t p = A.start[i]; p < A.start[i + 1]; ++p) {
      const int j = A.column[p];
      const double size = magnitude(A.value[p]) * scale[i] * scale[j];
      largest[i] = std::max(largest[i], size);
      largest[j] = std::max(largest[j], size);
    }
  const auto strange =
      std::ranges::count_if(largest, [=](double x) { return !(x < far && x > 1 / far); });
  return strange <= A.n / 100;
}

/// Neighbour and scaling of each row that has no place yet.
template <class T>
Vector<Newcomer> settle(const UpperRows<T>& A, const Vector<int>& place, int last,
                        Vector<double>& scale) {
  Vector<int> number(A.n, -1);
  Vector<Newcomer> newcomers;
  for (int i = 0; i < A.n; ++i)
    if (place[i] < 0) {
      number[i] = static_cast<int>(newcomers.size());
      newcomers.push_back({last, i});
    }
  const auto meet = [&](int i, int j, const T& value) {
    if (place[i] >= 0 || place[j] < 0) return;
    Newcomer& each = newcomers[number[i]];
    const double size = magnitude(value) * scale[j];
    if (size > each.largest) each.largest = size, each.behind = place[j];
  };
  for (int i = 0; i < A.n; ++i)
    for (std::int64_t p = A.start[i]; p < A.start[i + 1]; ++p) {
      meet(i, A.column[p], A.value[p]);
      meet(A.column[p], i, A.value[p]);
    }
  for (const Newcomer& each : newcomers) {
    const std::int64_t first = A.start[each.row];
    const bool has_diagonal = first < A.start[each.row + 1] && A.column[first] == each.row;
    const double diagonal = has_diagonal ? std::sqrt(magnitude(A.value[first])) : 0;
    const double largest = std::max(each.largest, diagonal);
    scale[each.row] = largest > 0 && std::isfinite(largest) ? 1 / largest : 1;
  }
  std::sort(newcomers.begin(), newcomers.end());
  return newcomers;
}

}  // namespace

template <class T>
LevelOrder inherit_order(const UpperRows<T>& A, const Vector<int>& row, const KeptOrder& kept,
                         int n) {
  if (row.empty() && kept.row.empty()) return kept.order;
  if (row.empty() || kept.row.empty()) return {};
  const auto m = static_cast<int>(kept.row.size());
  const bool scaled = !kept.order.scale.empty();
  Vector<int> known(n, -1);
  for (int k = 0; k < m; ++k) known[kept.row[k]] = k;
  LevelOrder level;
  level.place.assign(A.n, -1);
  level.scale.assign(A.n, 1.0);
  Vector<int> row_at(m, -1);
  int strange = 0;
  for (int i = 0; i < A.n; ++i) {
    const int k = known[row[i]];
    if (k < 0) {
      ++strange;
      continue;
    }
    level.place[i] = kept.order.place[k];
    if (scaled) level.scale[i] = kept.order.scale[k];
    row_at[level.place[i]] = i;
  }
  if (strange > A.n / 10) return {};
  const Vector<Newcomer> newcomers = settle(A, level.place, m - 1, level.scale);
  if (scaled && !scaling_fits(A, level.scale)) return {};
  auto next = newcomers.begin();
  int position = 0;
  for (int k = 0; k < m; ++k) {
    if (row_at[k] >= 0) level.place[row_at[k]] = position++;
    for (; next != newcomers.end() && next->behind == k; ++next)
      level.place[next->row] = position++;
  }
  return level;
}

template <class T>
Vector<int> pivot_candidates(const UpperRows<T>& A) {
  const Magnitudes m = magnitudes(A);
  const MatchInput input = m.input(A.n);
  const PairedOrder pairs = reordering_matching_sym2x2(input, mps_velmora(input).perm);
  Vector<int> partner(A.n, -1);
  for (int k = 0; k + 1 < A.n; ++k) {
    if (pairs.block1x1[k]) continue;
    const int i = pairs.node[k], j = pairs.node[++k];
    partner[i] = j;
    partner[j] = i;
  }
  return partner;
}

template <class T>
PartedOrder order_by_parts(const UpperRows<T>& A, int wanted) {
  const Magnitudes m = magnitudes(A);
  Adjacency graph;
  require_ordered(uncompressed_graph(m.input(A.n), graph));
  Ordering order;
  gepmetis_velmora(graph, {.nparts = wanted, .threads = 1}, order);
  PartedOrder parted;
  parted.place.resize(A.n);
  for (int k = 0; k < A.n; ++k) parted.place[order.perm[k] - 1] = k;
  for (std::size_t k = 0; k + 1 < order.ranges.size(); ++k)
    if (order.ranges[k].first <= order.ranges[k].last)
      parted.domain.push_back({order.ranges[k].first - 1, order.ranges[k].last});
  return parted;
}

template Vector<int> pivot_candidates(const UpperRows<double>&);
template Vector<int> pivot_candidates(const UpperRows<zcomplex>&);
template PartedOrder order_by_parts(const UpperRows<double>&, int);
template PartedOrder order_by_parts(const UpperRows<zcomplex>&, int);
template LevelOrder inherit_order(const UpperRows<double>&, const Vector<int>&, const KeptOrder&,
                                  int);
template LevelOrder inherit_order(const UpperRows<zcomplex>&, const Vector<int>&, const KeptOrder&,
                                  int);
template LevelOrder order_level(const UpperRows<double>&, Preordering);
template LevelOrder order_level(const UpperRows<zcomplex>&, Preordering);

}  // namespace vlm::norv
