// SPDX-License-Identifier: BSD-3-Clause
#include "matching/mpssym.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <numeric>

#include "base/memory.hpp"
#include "base/work_team.hpp"
#include "graph/dissection_tuning.hpp"

namespace vlm {

namespace {

/// Magnitude above which a diagonal entry may be a pivot of its own.
constexpr double own_pivot = 1e-8;
/// Magnitude in the scaled matrix, where matched entries have 1, up from which an entry may make
/// a pivot.
constexpr double large_entry = 0.1;

/// Cycles of a permutation, each from its smallest member.
struct Cycles {
  Vector<int> member;    ///< [n] cycle by cycle
  Vector<int> start{0};  ///< [cycles + 1]
};

Cycles cycles_of(const Vector<int>& perm) {
  const int n = static_cast<int>(perm.size());
  Cycles cycles;
  cycles.member.reserve(n);
  Vector<bool> seen(n, false);
  for (int first = 0; first < n; ++first) {
    if (seen[first]) continue;
    for (int i = first; !seen[i]; i = perm[i]) {
      seen[i] = true;
      cycles.member.push_back(i);
    }
    cycles.start.push_back(static_cast<int>(cycles.member.size()));
  }
  return cycles;
}

Vector<bool> nodes_with_pivot(const MatchInput& m) {
  Vector<bool> good(m.n, false);
  for (int i = 0; i < m.n; ++i) {
    const int p = m.ia[i] - 1;
    if (m.ia[i] < m.ia[i + 1] && m.ja[p] == i + 1) good[i] = std::fabs(m.a[p]) > own_pivot;
  }
  return good;
}

/// Calls visit(c, d), c < d, for the pairs of compressed nodes that an entry joins; pairs come
/// as often as there are such entries.
template <class Visit>
void for_each_edge(const MatchInput& m, const Vector<int>& map, Visit visit) {
  for (int i = 0; i < m.n; ++i) {
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      if (j >= m.n || map[i] == map[j]) continue;
      visit(std::min(map[i], map[j]), std::max(map[i], map[j]));
    }
  }
}

/// Lists of the larger neighbours, 0-based, each neighbour once, in any order.
struct UpperLists {
  Vector<int> start, end, list;
};

UpperLists upper_lists(const MatchInput& m, const Vector<int>& map, int nodes) {
  UpperLists upper;
  upper.start.assign(nodes, 0);
  for_each_edge(m, map, [&](int c, int) { ++upper.start[c]; });
  int total = 0;
  for (int& s : upper.start) {
    const int length = s;
    s = total;
    total += length;
  }
  upper.list.resize(total);
  upper.end = upper.start;
  for_each_edge(m, map, [&](int c, int d) { upper.list[upper.end[c]++] = d; });
  Vector<int> owner(nodes, -1);  // last node in whose list a neighbour was met
  for (int c = 0; c < nodes; ++c) {
    int kept = upper.start[c];
    for (int p = upper.start[c]; p < upper.end[c]; ++p) {
      const int d = upper.list[p];
      if (owner[d] == c) continue;
      owner[d] = c;
      upper.list[kept++] = d;
    }
    upper.end[c] = kept;
  }
  return upper;
}

/// Both triangles of the lists.  Smaller neighbours arrive in ascending order; the larger ones
/// follow, found through the smaller-neighbour lists, in ascending order too.
int symmetrise(const UpperLists& upper, Adjacency& graph) {
  const int nodes = static_cast<int>(upper.start.size());
  Vector<int> smaller(nodes, 0);
  std::int64_t edges = 0;
  for (int c = 0; c < nodes; ++c) {
    edges += upper.end[c] - upper.start[c];
    for (int p = upper.start[c]; p < upper.end[c]; ++p) ++smaller[upper.list[p]];
  }
  if (2 * edges >= INT_MAX) return status_overflow;
  graph.n = nodes;
  graph.xadj.resize(static_cast<std::size_t>(nodes) + 1);
  graph.xadj[0] = 1;
  for (int c = 0; c < nodes; ++c)
    graph.xadj[c + 1] = graph.xadj[c] + smaller[c] + upper.end[c] - upper.start[c];
  graph.adjncy.resize(2 * edges);
  Vector<int> next(nodes);
  for (int c = 0; c < nodes; ++c) next[c] = graph.xadj[c] - 1;
  for (int c = 0; c < nodes; ++c)
    for (int p = upper.start[c]; p < upper.end[c]; ++p) graph.adjncy[next[upper.list[p]]++] = c + 1;
  for (int d = 0; d < nodes; ++d) {
    const int begin = graph.xadj[d] - 1;
    for (int p = begin; p < begin + smaller[d]; ++p)
      graph.adjncy[next[graph.adjncy[p] - 1]++] = d + 1;
  }
  return status_ok;
}

/// Calls visit(node) for the members of a compressed node and of its neighbours.
template <class Visit>
void for_each_member(const PairedOrder& pairs, const PairGraph& g, int c, Visit visit) {
  const auto members = [&](int d) {
    for (int k = g.first[d]; k < g.first[d + 1]; ++k) visit(pairs.node[k]);
  };
  members(c);
  for (int p = g.graph.xadj[c] - 1; p < g.graph.xadj[c + 1] - 1; ++p)
    members(g.graph.adjncy[p] - 1);
}

}  // namespace

PairedOrder reordering_matching_sym2x2(const MatchInput& matrix, const Vector<int>& match) {
  const Cycles cycles = cycles_of(match);
  const Vector<bool> good = nodes_with_pivot(matrix);
  PairedOrder pairs;
  pairs.node.resize(matrix.n);
  pairs.block1x1.assign(matrix.n, false);
  int head = 0, tail = matrix.n;  // positions in [head, tail) are still empty
  const int count = static_cast<int>(cycles.start.size()) - 1;
  for (int c = 0; c < count; ++c) {
    if (cycles.start[c + 1] - cycles.start[c] != 1) continue;
    pairs.block1x1[head] = true;
    pairs.node[head++] = cycles.member[cycles.start[c]];
  }
  for (int c = 0; c < count; ++c) {
    int k = cycles.start[c];
    const int end = cycles.start[c + 1];
    if (end - k == 1) continue;
    if ((end - k) % 2 != 0) {
      pairs.block1x1[--tail] = true;
      pairs.node[tail] = cycles.member[k++];
    }
    for (; k < end; k += 2) {
      const int a = cycles.member[k], b = cycles.member[k + 1];
      pairs.block1x1[head] = pairs.block1x1[head + 1] = good[a] && good[b];
      pairs.node[head++] = a;
      pairs.node[head++] = b;
    }
  }
  return pairs;
}

int compress_2x2_blocks(const MatchInput& matrix, const PairedOrder& pairs, PairGraph& compressed) {
  compressed.first.clear();
  compressed.graph.weight.clear();
  compressed.map.resize(matrix.n);
  for (int k = 0; k < matrix.n;) {
    const int c = static_cast<int>(compressed.first.size()), size = pairs.block1x1[k] ? 1 : 2;
    compressed.first.push_back(k);
    compressed.graph.weight.push_back(size);
    for (int member = 0; member < size; ++member) compressed.map[pairs.node[k++]] = c;
  }
  const int nodes = static_cast<int>(compressed.first.size());
  compressed.first.push_back(matrix.n);
  return symmetrise(upper_lists(matrix, compressed.map, nodes), compressed.graph);
}

void expand_cond_perm(const PairedOrder& pairs, const PairGraph& compressed, const Ordering& order,
                      Ordering& expanded, PairedOrder& candidates) {
  const int n = static_cast<int>(pairs.node.size()), nodes = compressed.graph.n;
  candidates.node.resize(n);
  candidates.block1x1.resize(n);
  expanded.perm.resize(n);
  expanded.invp.resize(n);
  Vector<int> start(static_cast<std::size_t>(nodes) + 1);  // expanded position, 1-based
  int position = 0;
  for (int k = 0; k < nodes; ++k) {
    start[k] = position + 1;
    const int c = order.perm[k] - 1;
    for (int p = compressed.first[c]; p < compressed.first[c + 1]; ++p, ++position) {
      candidates.node[position] = pairs.node[p];
      candidates.block1x1[position] = pairs.block1x1[p];
      expanded.perm[position] = pairs.node[p] + 1;
      expanded.invp[pairs.node[p]] = position + 1;
    }
  }
  start[nodes] = n + 1;
  expanded.nparts = order.nparts;
  expanded.nodes = order.nodes > 0 ? order.nodes : nodes;
  if (order.nparts == 1) {
    expanded.ranges = {{1, n - 1}, {n, n}};
    return;
  }
  expanded.ranges.clear();
  for (const Range& r : order.ranges)
    expanded.ranges.push_back({start[r.first - 1], start[r.last] - 1});
}

int mps_sym_velmora(const MatchInput& matrix, const PairedOrder& pairs,
                    const GraphOrdering& order_graph, Ordering& order, PairedOrder& candidates) {
  PairGraph compressed;
  if (const int status = compress_2x2_blocks(matrix, pairs, compressed); status != status_ok)
    return status;
  Ordering small;
  if (const int status = order_graph(compressed.graph, small); status != status_ok) return status;
  expand_cond_perm(pairs, compressed, small, order, candidates);
  return status_ok;
}

int uncompressed_graph(const MatchInput& matrix, Adjacency& graph) {
  Vector<int> self(matrix.n);
  std::iota(self.begin(), self.end(), 0);
  return symmetrise(upper_lists(matrix, self, matrix.n), graph);
}

Pairing exchangeable_pairs(const MatchInput& matrix, const MatchResult& match,
                           const PairedOrder& order) {
  const int n = matrix.n;
  Pairing pairs;
  pairs.partner.assign(n, -1);
  for (int k = 0; k < n; k += order.block1x1[k] ? 1 : 2) {
    if (order.block1x1[k]) continue;
    pairs.partner[order.node[k]] = order.node[k + 1];
    pairs.partner[order.node[k + 1]] = order.node[k];
  }
  Vector<double> scale(n);
  const auto stored = static_cast<std::size_t>(n > 0 ? matrix.ia[n] - 1 : 0);
  const int parts = threads_for(stored, matrix.threads);
  side_by_side(parts, parts, [&](int part) {
    const Slice mine(n, part, parts);
    for (int i = mine.begin; i < mine.end; ++i)
      scale[i] = std::exp(0.5 * (match.u[i] + match.v[i]));
  });
  struct Entry {
    int i, j;
  };
  Vector<Vector<Entry>> large(parts);  // at or right of the diagonal, row by row
  side_by_side(parts, parts, [&](int part) {
    const Slice mine(n, part, parts);
    for (int i = mine.begin; i < mine.end; ++i)
      for (int p = matrix.ia[i] - 1; p < matrix.ia[i + 1] - 1; ++p)
        if (const int j = matrix.ja[p] - 1;
            j < n && std::fabs(matrix.a[p]) * scale[i] * scale[j] >= large_entry)
          large[part].push_back({i, j});
  });
  const auto for_each_large = [&](auto visit) {
    for (const Vector<Entry>& of_part : large)
      for (const Entry& e : of_part) visit(e.i, e.j);
  };
  pairs.sound.assign(n, 0);
  const Vector<bool> good = nodes_with_pivot(matrix);
  for_each_large([&](int i, int j) { pairs.sound[i] |= i == j && good[i]; });
  pairs.ptr.assign(static_cast<std::size_t>(n) + 1, 0);
  const auto for_each_alternative = [&](auto visit) {
    for_each_large([&](int i, int j) {
      if (i == j || (pairs.sound[i] && pairs.sound[j])) return;
      visit(i, j);
      visit(j, i);
    });
  };
  for_each_alternative([&](int i, int) { ++pairs.ptr[i + 1]; });
  std::partial_sum(pairs.ptr.begin(), pairs.ptr.end(), pairs.ptr.begin());
  pairs.alternative.resize(pairs.ptr[n]);
  Vector<int> next(pairs.ptr.begin(), pairs.ptr.end() - 1);
  for_each_alternative([&](int i, int j) { pairs.alternative[next[i]++] = j; });
  return pairs;
}

bool worth_exchanging(const Pairing& pairs) {
  const int n = static_cast<int>(pairs.partner.size());
  int members = 0, sound = 0;
  for (int v = 0; v < n; ++v) {
    if (pairs.partner[v] < 0) continue;
    ++members;
    sound += pairs.sound[v];
  }
  return n >= DissectionTuning{}.least_exchange && members >= n / 50 && sound >= 0.45 * members;
}

PairedOrder candidates_of(const Ordering& order, const Pairing& pairs) {
  const int n = static_cast<int>(order.perm.size());
  PairedOrder candidates;
  candidates.node.resize(n);
  candidates.block1x1.resize(n);
  for (int k = 0; k < n; ++k) {
    candidates.node[k] = order.perm[k] - 1;
    candidates.block1x1[k] = pairs.partner[order.perm[k] - 1] < 0;
  }
  return candidates;
}

int build_padded_2x2_mat(const InputMatrix& matrix, const PairedOrder& candidates,
                         PaddedMatrix& padded) {
  const int n = matrix.n;
  PairGraph g;
  const MatchInput pattern{n, matrix.ia, matrix.ja, matrix.a, true};
  if (const int status = compress_2x2_blocks(pattern, candidates, g); status != status_ok)
    return status;
  // Column by column, so that the columns of every row come out ascending.
  const auto for_each_upper = [&](auto visit) {
    for (int j = 0; j < n; ++j) {
      for_each_member(candidates, g, g.map[j], [&](int i) {
        if (i <= j) visit(i, j);
      });
    }
  };
  Vector<int> next(n, 0);
  std::int64_t total = 0;
  for_each_upper([&](int i, int) { ++next[i], ++total; });
  if (total >= INT_MAX) return status_overflow;
  padded.n = n;
  padded.ia.resize(static_cast<std::size_t>(n) + 1);
  padded.ia[0] = 1;
  for (int i = 0; i < n; ++i) {
    padded.ia[i + 1] = padded.ia[i] + next[i];
    next[i] = padded.ia[i] - 1;
  }
  padded.ja.resize(total);
  for_each_upper([&](int i, int j) { padded.ja[next[i]++] = j + 1; });

  padded.map.resize(matrix.nnz());
  Vector<int>& place = next;  // of a column in the present row
  for (int i = 0; i < n; ++i) {
    for (int p = padded.ia[i]; p < padded.ia[i + 1]; ++p) place[padded.ja[p - 1] - 1] = p;
    for (int p = matrix.ia[i] - 1; p < matrix.ia[i + 1] - 1; ++p)
      padded.map[p] = place[matrix.ja[p] - 1];
  }
  return status_ok;
}

void scatter_padded_values(const PaddedMatrix& padded, int nvals, const double* a, double* out) {
  std::fill_n(out, padded.ja.size() * nvals, 0.0);
  for (std::size_t p = 0; p < padded.map.size(); ++p) {
    double* to = out + static_cast<std::size_t>(padded.map[p] - 1) * nvals;
    for (int v = 0; v < nvals; ++v) to[v] = a[p * nvals + v];
  }
}

}  // namespace vlm
