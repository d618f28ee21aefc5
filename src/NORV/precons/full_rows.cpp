// SPDX-License-Identifier: BSD-3-Clause
/// Matrices for incomplete LU, see full_rows.hpp.
#include "NORV/precons/full_rows.hpp"

#include <algorithm>
#include <cmath>

#include "matching/mps.hpp"
#include "norv/sort.h"
#include "ordering/amd.hpp"

namespace vlm::norv {
namespace {

/// Indices that count from 1.
Vector<int> from_one(const int* from, std::size_t count) {
  Vector<int> to(from, from + count);
  for (int& each : to) ++each;
  return to;
}

}  // namespace

template <class T>
bool has_weak_diagonal(const smat* A) {
  constexpr double weak = 0.01;
  const Rows<T> R = rows<T>(A);
  for (int i = 0; i < R.m; ++i) {
    double diagonal = 0, largest = 0;
    for (int k = R.ia[i]; k < R.ia[i + 1]; ++k) {
      const double size = magnitude(R.a[k]);
      largest = std::max(largest, size);
      if (R.ja[k] == i) diagonal = size;
    }
    if (diagonal < weak * largest || diagonal == 0) return true;
  }
  return false;
}

template <class T>
Transversal match_rows(const smat* A) {
  const Rows<T> R = rows<T>(A);
  const Vector<int> ia = from_one(R.ia, A->m + std::size_t{1}), ja = from_one(R.ja, A->nnz);
  Vector<double> size(A->nnz);
  for (unsigned k = 0; k < A->nnz; ++k) size[k] = magnitude(R.a[k]);
  const MatchResult match = mps_velmora({R.m, ia.data(), ja.data(), size.data(), false});
  if (match.count < R.m || match.u.empty()) return {};
  Transversal result;
  result.row = match.perm;
  const auto factors = [](const Vector<double>& logarithms) {
    constexpr double largest = 600;  // exponents beyond it come from entries that are no numbers
    Vector<double> to(logarithms.size());
    for (std::size_t i = 0; i < to.size(); ++i)
      to[i] = std::exp(std::clamp(logarithms[i], -largest, largest));
    return to;
  };
  result.row_scale = factors(match.u);
  result.column_scale = factors(match.v);
  return result;
}

template <class T>
void order_by_degree(const smat* A, Transversal& transversal) {
  const int n = static_cast<int>(A->m);
  const Vector<int> ia = from_one(A->ia, A->m + std::size_t{1}), ja = from_one(A->ja, A->nnz);
  Vector<int> rows(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) rows[i] = transversal.empty() ? i : transversal.row[i];
  const Vector<int> rows_from_one = from_one(rows.data(), rows.size());
  Adjacency graph;
  if (ladjun_velmora({n, {ia.data(), ia.size()}, {ja.data(), ja.size()}},
                     {rows_from_one.data(), rows_from_one.size()}, graph) != status_ok)
    throw AllocationFailure(2 * sizeof(int) * std::size_t{A->nnz});  // beyond 32-bit positions
  transversal.column.clear();
  minimum_score(weighted_graph(graph), 0, EliminationScore::degree, transversal.column);
  transversal.row.resize(rows.size());
  for (int k = 0; k < n; ++k) transversal.row[k] = rows[transversal.column[k]];
}

template <class T>
FullRows<T> full_rows(const smat* A, const Transversal& t) {
  const Rows<T> R = rows<T>(A);
  FullRows<T> to;
  to.n = R.m;
  to.start.reserve(static_cast<std::size_t>(to.n) + 1);
  to.start.push_back(0);
  to.column.reserve(A->nnz);
  to.value.reserve(A->nnz);
  Vector<int> place;
  if (!t.column.empty()) {
    place.resize(t.column.size());
    for (int k = 0; k < to.n; ++k) place[t.column[k]] = k;
  }
  for (int i = 0; i < to.n; ++i) {
    const int row = t.empty() ? i : t.row[i];
    for (int k = R.ia[row]; k < R.ia[row + 1]; ++k) {
      const int j = R.ja[k];
      to.column.push_back(place.empty() ? j : place[j]);
      to.value.push_back(t.row_scale.empty() ? R.a[k]
                                             : R.a[k] * (t.row_scale[row] * t.column_scale[j]));
    }
    const int first = to.start.back(), last = static_cast<int>(to.column.size());
    if (!place.empty())
      sort_row_qs(last - first, is_complex_v<T>, reinterpret_cast<double*>(to.value.data() + first),
                  to.column.data() + first);
    to.start.push_back(last);
  }
  return to;
}

template <class T>
Transversal choose_transversal(const smat* A, UseMatching use, UseOrder order) {
  Transversal t;
  if (use == UseMatching::always ||
      (use == UseMatching::where_it_helps && has_weak_diagonal<T>(A))) {
    t = match_rows<T>(A);
    _norv_print_stat_msg(t.empty() ? "NOT using MPS scaling." : "USING MPS scaling.");
  }
  if (order == UseOrder::always || (order == UseOrder::where_it_helps && !t.empty()))
    order_by_degree<T>(A, t);
  return t;
}

#define NORV_INSTANTIATE(T)                                        \
  template bool has_weak_diagonal<T>(const smat*);                 \
  template Transversal match_rows<T>(const smat*);                 \
  template void order_by_degree<T>(const smat*, Transversal&);     \
  template FullRows<T> full_rows(const smat*, const Transversal&); \
  template Transversal choose_transversal<T>(const smat*, UseMatching, UseOrder)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
