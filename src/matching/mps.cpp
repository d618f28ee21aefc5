// SPDX-License-Identifier: BSD-3-Clause
#include "matching/mps.hpp"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "base/matrix_types.hpp"
#include "base/memory.hpp"
#include "base/progress.hpp"
#include "base/work_team.hpp"
#include "matching/logarithms.hpp"

namespace vlm {

namespace {

constexpr int unreached = -1;  // Column::place of a column that isn't in the heap
constexpr int finished = -2;   // Column::place of a column whose distance is final

/// Magnitude as the matching sees it: finite, and a NaN loses against every number.
double weight(double value) {
  const double magnitude = std::fabs(value);
  if (std::isnan(magnitude)) return DBL_TRUE_MIN;
  return std::min(magnitude, DBL_MAX);
}

/// Turns weights into costs in place and sets logmax and path_bound.
/// @param cost  on entry val holds weights, logmax the largest weight of each column or 0
void weights_to_costs(mps_csr& cost, int threads) {
  constexpr int block = 1024;  // stays in the nearest cache between the two loops
  for (double& largest : cost.logmax)
    if (!(largest > 0)) largest = 1;
  take_logarithms(cost.logmax.data(), cost.logmax.size());
  const auto nnz = static_cast<int>(cost.col.size());
  const int blocks = (nnz + block - 1) / block, parts = threads_for(nnz, threads);
  Vector<double> smallest(parts, 0);
  double* const val = cost.val.data();
  const double* const top = cost.logmax.data();
  const int* const col = cost.col.data();
  side_by_side(parts, parts, [&](int part) {
    const Slice mine(blocks, part, parts);
    double least = 0;
    for (int b = mine.begin; b < mine.end; ++b) {
      const int first = b * block, last = first + std::min(block, nnz - first);
      take_logarithms(val + first, last - first);
#pragma omp simd reduction(min : least)
      for (int p = first; p < last; ++p) {
        val[p] = std::min(val[p] - top[col[p]], 0.0);
        least = std::min(least, val[p]);
      }
    }
    smallest[part] = least;
  });
  cost.path_bound = *std::min_element(smallest.begin(), smallest.end()) * (-1.0 - cost.n);
}

/// Calls visit(row, column, weight), 0-based, for the entries of the matrix that is to be matched:
/// those stored in some rows that take part, and their mirror images when only one triangle is
/// stored.
template <class Visit>
void for_each_entry(const MatchInput& m, Slice rows, Visit visit) {
  for (int i = rows.begin; i < rows.end; ++i) {
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      if (j >= m.n || m.a[p] == 0) continue;
      const double w = weight(m.a[p]);
      visit(i, j, w);
      if (m.upper && i != j) visit(j, i, w);
    }
  }
}

void pair_up(MatchState& state, int row, int column) {
  state.match[column] = row;
  state.match_of_row[row] = column;
}

/// Shortest augmenting paths on reduced costs.
///
/// Rows wait in a queue in the order of their distance; a column whose edge is tight at the
/// present distance never enters the heap, since near the start most edges are tight.
class Search {
 public:
  Search(const mps_csr& cost, MatchState& state) : cost_(cost), state_(state) {
    columns_.resize(cost.ncol);
    for (int j = 0; j < cost.ncol; ++j) columns_[j] = {state.v[j], 0, state.match[j], 0, unreached};
    heap_.resize(cost.ncol);
    visited_.resize(static_cast<std::size_t>(cost.n) + 1);
  }

  /// Extends the matching by row r if that is possible.
  bool augment(int r) {
    const int sink = find_path(r);
    adjust_duals();
    if (sink < 0) {
      // Every column in reach is finished and stays so: no later path can lead through it.
      heap_size_ = 0;
      return false;
    }
    for (int j = sink, i = -1; i != r;) {
      i = columns_[j].pred;
      const int left = state_.match_of_row[i];
      columns_[j].match = i;
      state_.match_of_row[i] = j;
      j = left;
    }
    for (int k = 1; k < visited_count_; ++k) columns_[visited_[k].column].place = unreached;
    for (int k = 0; k < heap_size_; ++k) columns_[heap_[k].column].place = unreached;
    heap_size_ = 0;
    return true;
  }

  void store() {
    for (int j = 0; j < cost_.ncol; ++j) {
      state_.v[j] = columns_[j].v;
      state_.match[j] = columns_[j].match;
    }
  }

 private:
  struct Column {
    double v;    // dual variable
    double key;  // tentative distance
    int match;   // row or -1
    int pred;    // row from which it was reached
    int place;   // in the heap, or unreached, or finished
  };
  struct Node {
    double key;
    int column;
  };
  struct Visit {
    int row, column;  // a row and the column it is matched to; no column for the first row
    double dist;
  };

  /// @return the free column that ends the shortest path, or -1
  int find_path(int r) {
    dist_ = 0;
    best_ = cost_.path_bound;
    visited_[0] = {r, -1, 0};
    visited_count_ = 1;
    for (int head = 0;;) {
      while (head < visited_count_) {
        const int sink = scan_row(visited_[head++].row);
        if (sink >= 0) return sink;
      }
      if (heap_size_ == 0) return -1;
      dist_ = heap_[0].key;
      do {
        const int j = heap_[0].column;
        pq_remove_element(0);
        if (columns_[j].match < 0) return sink_taken(j);
        finish(j);
      } while (heap_size_ > 0 && heap_[0].key == dist_);
    }
  }

  int sink_taken(int j) {
    columns_[j].place = unreached;
    return j;
  }

  /// Relaxes the edges of row i.  @return a free column at the present distance, or -1
  int scan_row(int i) {
    const double u = state_.u[i], tol = dist_ * DBL_EPSILON;
    for (int p = cost_.rowptr[i]; p < cost_.rowptr[i + 1]; ++p) {
      const int j = cost_.col[p];
      Column& c = columns_[j];
      if (c.place == finished) continue;
      const double d = u + c.v - cost_.val[p], key = dist_ + d;
      if (key > best_) continue;
      const bool is_free = c.match < 0;
      if (is_free) best_ = key;
      if (c.place != unreached && key >= c.key) continue;
      c.pred = i;
      if (d > tol) {
        c.key = key;
        if (c.place == unreached)
          pq_insert(j, key);
        else
          pq_decrease_weight(c.place, key);
      } else {
        if (c.place != unreached) pq_remove_element(c.place);
        if (is_free) return sink_taken(j);
        finish(j);
      }
    }
    return -1;
  }

  /// Makes the present distance final for a matched column and queues its row.
  void finish(int j) {
    columns_[j].place = finished;
    visited_[visited_count_++] = {columns_[j].match, j, dist_};
  }

  /// Lowers u on the rows and raises v on the columns that lie nearer than the path's end, so
  /// that the path becomes tight and no edge loses its feasibility.
  void adjust_duals() {
    for (int k = 0; k < visited_count_; ++k) {
      const Visit& seen = visited_[k];
      state_.u[seen.row] -= dist_ - seen.dist;
      if (seen.column >= 0) columns_[seen.column].v += dist_ - seen.dist;
    }
  }

  // Binary heap with the smallest key on top.

  void put(int place, Node node) {
    heap_[place] = node;
    columns_[node.column].place = place;
  }

  void sift_up(int place, Node node) {
    while (place > 0) {
      const int parent = (place - 1) / 2;
      if (!(node.key < heap_[parent].key)) break;
      put(place, heap_[parent]);
      place = parent;
    }
    put(place, node);
  }

  void sift_down(int place, Node node) {
    for (;;) {
      int child = 2 * place + 1;
      if (child >= heap_size_) break;
      if (child + 1 < heap_size_ && heap_[child + 1].key < heap_[child].key) ++child;
      if (!(heap_[child].key < node.key)) break;
      put(place, heap_[child]);
      place = child;
    }
    put(place, node);
  }

  void pq_insert(int j, double key) { sift_up(heap_size_++, {key, j}); }
  void pq_decrease_weight(int place, double key) { sift_up(place, {key, heap_[place].column}); }

  /// Takes the element at a place out of the heap; its column's own mark is left to the caller.
  void pq_remove_element(int place) {
    const Node last = heap_[--heap_size_];
    if (place == heap_size_) return;
    if (place > 0 && last.key < heap_[(place - 1) / 2].key)
      sift_up(place, last);
    else
      sift_down(place, last);
  }

  const mps_csr& cost_;
  MatchState& state_;
  Vector<Column> columns_;
  Vector<Node> heap_;
  Vector<Visit> visited_;  // visited rows, in the order of their distance
  int heap_size_ = 0, visited_count_ = 0;
  double dist_ = 0;  // present distance from the root
  double best_ = 0;  // distance of the nearest free column so far
};

/// Finds a column for row i among those of its largest cost u(i); see kuhn_munkres_init.
class GreedyStart {
 public:
  GreedyStart(const mps_csr& cost, MatchState& state)
      : cost_(cost), state_(state), next_(cost.rowptr.begin(), cost.rowptr.end() - 1) {}

  /// @param best  the last column of largest cost, or -1
  void match_row(int i, int best) {
    if (best < 0) return;
    const int first = cost_.rowptr[i], last = cost_.rowptr[i + 1];
    const double top = state_.u[i];
    if (state_.match[best] < 0) return take(i, best);
    for (int p = first; p < last; ++p)
      if (cost_.val[p] == top && state_.match[cost_.col[p]] < 0) return take(i, cost_.col[p]);
    for (int p = first; p < last; ++p) {
      const int j = cost_.col[p];
      if (cost_.val[p] != top) continue;
      const int owner = state_.match[j], other = free_column(owner);
      if (other < 0) continue;
      pair_up(state_, owner, other);
      return take(i, j);
    }
  }

 private:
  void take(int i, int j) {
    pair_up(state_, i, j);
    ++state_.count;
  }

  /// A free column of largest cost in row i, or -1.  The scan goes on where the last one of this
  /// row ended: an entry passed over then is not tight or its column is taken for good.
  int free_column(int i) {
    for (int& p = next_[i]; p < cost_.rowptr[i + 1]; ++p)
      if (cost_.val[p] == state_.u[i] && state_.match[cost_.col[p]] < 0) return cost_.col[p];
    return -1;
  }

  const mps_csr& cost_;
  MatchState& state_;
  Vector<int> next_;
};

}  // namespace

mps_csr csr_create_log(const MatchInput& m) {
  constexpr int most_parts = 8;  // each has counters of its own
  mps_csr cost;
  cost.n = cost.ncol = m.n;
  const std::size_t stored = m.n > 0 ? m.ia[m.n] - 1 : 0;
  const int parts = std::min(threads_for(stored, m.threads), most_parts);
  Vector<Vector<int>> next(parts);    // entries of each row, then where the next one comes
  Vector<Vector<double>> top(parts);  // largest weight of each column
  Vector<std::int64_t> counted(parts, 0);
  side_by_side(parts, parts, [&](int part) {
    next[part].assign(m.n, 0);
    top[part].assign(m.n, 0);
    int* const length = next[part].data();
    double* const largest = top[part].data();
    std::int64_t count = 0;
    for_each_entry(m, Slice(m.n, part, parts), [=, &count](int i, int j, double w) {
      ++count;
      ++length[i];
      largest[j] = std::max(largest[j], w);
    });
    counted[part] = count;
  });
  if (std::accumulate(counted.begin(), counted.end(), std::int64_t{0}) > INT_MAX)
    throw std::length_error("matching: too many entries");

  cost.rowptr.resize(static_cast<std::size_t>(m.n) + 1);
  int start = 0;
  for (int i = 0; i < m.n; ++i) {
    cost.rowptr[i] = start;
    for (Vector<int>& of_part : next) start += std::exchange(of_part[i], start);
  }
  cost.rowptr[m.n] = start;
  cost.logmax = std::move(top[0]);
  for (int part = 1; part < parts; ++part)
    for (int j = 0; j < m.n; ++j) cost.logmax[j] = std::max(cost.logmax[j], top[part][j]);
  top.clear();
  cost.col.resize(start);
  cost.val.resize(start);
  side_by_side(parts, parts, [&](int part) {
    int *const place = next[part].data(), *const col = cost.col.data();
    double* const val = cost.val.data();
    for_each_entry(m, Slice(m.n, part, parts), [=](int i, int j, double w) {
      const int p = place[i]++;
      col[p] = j;
      val[p] = w;
    });
  });
  weights_to_costs(cost, m.threads);
  return cost;
}

MatchState kuhn_munkres_init(const mps_csr& cost, int threads) {
  MatchState state;
  state.match.assign(cost.ncol, -1);
  state.match_of_row.assign(cost.n, -1);
  state.u.assign(cost.n, 0);
  state.v.assign(cost.ncol, 0);
  Vector<int> best(cost.n, -1);  // column of the largest cost of a row, the last one of equals
  const int parts = threads_for(cost.col.size(), threads);
  side_by_side(parts, parts, [&](int part) {
    const Slice rows(cost.n, part, parts);
    const double* const val = cost.val.data();
    for (int i = rows.begin; i < rows.end; ++i) {
      double top = -DBL_MAX;
      int at = -1;
      for (int p = cost.rowptr[i]; p < cost.rowptr[i + 1]; ++p) {
        at = top <= val[p] ? p : at;
        top = std::max(top, val[p]);
      }
      state.u[i] = top;
      best[i] = at < 0 ? -1 : cost.col[at];
    }
  });
  GreedyStart start(cost, state);
  for (int i = 0; i < cost.n; ++i) start.match_row(i, best[i]);
  return state;
}

int kuhn_munkres(const mps_csr& cost, MatchState& state) {
  if (state.count < cost.n) {
    Search search(cost, state);
    for (int r = 0; r < cost.n; ++r) {
      if (state.match_of_row[r] >= 0) continue;
      pulse();
      if (search.augment(r)) ++state.count;
    }
    search.store();
  }
  return state.count;
}

int expand_matching(Vector<int>& match) {
  const int n = static_cast<int>(match.size());
  Vector<char> row_matched(n, 0);
  for (int row : match)
    if (row >= 0) row_matched[row] = 1;
  int added = 0;
  for (int row = 0; row < n; ++row) {
    if (row_matched[row]) continue;
    int end = row;
    while (match[end] >= 0) end = match[end];
    match[end] = row;
    ++added;
  }
  return added;
}

MatchResult mps_velmora(const MatchInput& matrix) {
  const mps_csr cost = csr_create_log(matrix);
  MatchState state = kuhn_munkres_init(cost, matrix.threads);
  MatchResult result;
  result.count = kuhn_munkres(cost, state);
  if (result.count < cost.n) {
    expand_matching(state.match);
  } else {
    for (double& u : state.u) u = -u;
    for (int j = 0; j < cost.n; ++j) state.v[j] = -(state.v[j] + cost.logmax[j]);
    result.u = std::move(state.u);
    result.v = std::move(state.v);
  }
  result.perm = std::move(state.match);
  return result;
}

Vector<double> convert2abs(std::int64_t nnz, const double* a) {
  Vector<double> magnitude(nnz);
  for (std::int64_t k = 0; k < nnz; ++k) {
    const double re = a[2 * k], im = a[2 * k + 1], square = re * re + im * im;
    magnitude[k] = square > 1e-280 && square < 1e300 ? std::sqrt(square) : std::hypot(re, im);
  }
  return magnitude;
}

void rr33adcopy(ScaleMode mode, int n, const int* perm, const double* u, const double* v, int mtype,
                int nschur, int* perm_store, double* scale_store) {
  // The exponential of more than this, or the product of two such, is out of range.
  constexpr double limit = 700;
  const auto factor = [=](double log) { return std::exp(std::clamp(log, -limit, limit)); };
  double *c = scale_store, *r = scale_store + n;
  const bool symmetric = matrix_type(mtype).symmetric;
  for (int i = 0; i < n; ++i) {
    perm_store[i] = perm[i] + 1;
    const bool scaled = mode == ScaleMode::scale && perm_store[i] <= n - nschur;
    if (!scaled)
      c[i] = r[i] = 1;
    else if (symmetric)
      c[i] = r[i] = factor((u[i] + v[i]) / 2);
    else
      r[i] = factor(u[i]), c[i] = factor(v[i]);
  }
}

}  // namespace vlm
