// SPDX-License-Identifier: BSD-3-Clause
#include "matching/mps_constraint.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>
#include <utility>

#include "base/memory.hpp"

namespace vlm {

namespace {

constexpr double zero_diagonal = 1e-8;
constexpr double largest_dual = 354.891356446692;  // 512 ln 2

double log_magnitude(double value) {
  const double magnitude = std::fabs(value);
  return std::isnan(magnitude) ? std::log(DBL_TRUE_MIN) : std::log(std::min(magnitude, DBL_MAX));
}

/// Rows of B as a rectangle nc by nf: the lower left block, or with one triangle stored the
/// transpose of the upper right one.
mps_csr constraint_rows(const MatchInput& m, int nf) {
  mps_csr b;
  b.n = m.n - nf;
  b.ncol = nf;
  const auto for_each = [&](auto visit) {
    const int first = m.upper ? 0 : nf, last = m.upper ? nf : m.n;
    for (int i = first; i < last; ++i)
      for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
        const int j = m.ja[p] - 1, row = m.upper ? j : i, column = m.upper ? i : j;
        if (row >= nf && row < m.n && column < nf && m.a[p] != 0) visit(row - nf, column, p);
      }
  };
  b.rowptr.assign(static_cast<std::size_t>(b.n) + 1, 0);
  for_each([&](int row, int, int) { ++b.rowptr[row + 1]; });
  std::partial_sum(b.rowptr.begin(), b.rowptr.end(), b.rowptr.begin());
  b.col.resize(b.rowptr[b.n]);
  b.val.resize(b.rowptr[b.n]);
  Vector<int> next(b.rowptr.begin(), b.rowptr.end() - 1);
  for_each([&](int row, int column, int p) {
    b.col[next[row]] = column;
    b.val[next[row]++] = log_magnitude(m.a[p]);
  });
  return b;
}

/// Half the logarithm of the leading diagonal entries, 0 for a zero or missing one.
Vector<double> diagonal_weights(const MatchInput& m, int nf) {
  Vector<double> weight(nf, 0);
  for (int i = 0; i < nf; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p)
      if (m.ja[p] == i + 1 && m.a[p] != 0) weight[i] = 0.5 * log_magnitude(m.a[p]);
  return weight;
}

double max_norm(const Vector<double>& x) {
  double norm = 0;
  for (double value : x) norm = std::max(norm, std::fabs(value));
  return norm;
}

}  // namespace

int guess_constraint_size(const MatchInput& m) {
  for (int i = 0; i < m.n - 1; ++i) {
    int diagonal = -1;
    bool beyond = false;
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      if (j == i) diagonal = p;
      beyond = beyond || (j > i && j < m.n);
    }
    if (diagonal >= 0 && !beyond && std::fabs(m.a[diagonal]) <= zero_diagonal) return m.n - i;
  }
  return 0;
}

int unsym_reordering_mps(mps_csr& b, const Vector<double>& weight, Vector<int>& match,
                         Vector<double>& u, Vector<double>& v) {
  double smallest = 0;
  for (int i = 0; i < b.n; ++i) {
    double top = -DBL_MAX;
    for (int p = b.rowptr[i]; p < b.rowptr[i + 1]; ++p) {
      b.val[p] -= weight[b.col[p]];
      top = std::max(top, b.val[p]);
    }
    v[i] = top;
    for (int p = b.rowptr[i]; p < b.rowptr[i + 1]; ++p) {
      b.val[p] -= top;
      smallest = std::min(smallest, b.val[p]);
    }
  }
  b.path_bound = smallest * (-1.0 - b.n);

  MatchState state = kuhn_munkres_init(b);
  const int count = kuhn_munkres(b, state);
  match = std::move(state.match);
  for (int j = 0; j < b.ncol; ++j) u[j] = -(weight[j] + state.v[j]);
  for (int i = 0; i < b.n; ++i) v[i] = -(v[i] + state.u[i]);
  if (count < b.n || max_norm(u) >= largest_dual || max_norm(v) >= largest_dual) {
    std::fill(u.begin(), u.end(), 0.0);
    std::fill(v.begin(), v.end(), 0.0);
  }
  return count;
}

bool constrained_matching(const MatchInput& matrix, MatchResult& result) {
  const int n = matrix.n, nc = guess_constraint_size(matrix), nf = n - nc;
  if (nc == 0 || nc > nf) return false;
  mps_csr b = constraint_rows(matrix, nf);
  Vector<int> match;
  Vector<double> u(nf), v(nc);
  unsym_reordering_mps(b, diagonal_weights(matrix, nf), match, u, v);

  result.count = n;
  result.perm.resize(n);
  std::iota(result.perm.begin(), result.perm.end(), 0);
  for (int i = 0; i < nf; ++i)
    if (match[i] >= 0) std::swap(result.perm[i], result.perm[nf + match[i]]);
  result.u = std::move(u);
  result.u.insert(result.u.end(), v.begin(), v.end());
  result.v = result.u;
  return true;
}

}  // namespace vlm
