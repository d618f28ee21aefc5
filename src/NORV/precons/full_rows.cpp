// SPDX-License-Identifier: BSD-3-Clause
/// Matrices for incomplete LU, see full_rows.hpp.
#include "NORV/precons/full_rows.hpp"

#include <algorithm>
#include <cmath>

#include "matching/mps.hpp"

namespace vlm::norv {

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
  const auto shifted = [](const int* from, std::size_t count) {
    Vector<int> to(from, from + count);
    for (int& each : to) ++each;
    return to;
  };
  const Vector<int> ia = shifted(R.ia, A->m + std::size_t{1}), ja = shifted(R.ja, A->nnz);
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
FullRows<T> full_rows(const smat* A, const Transversal& transversal) {
  const Rows<T> R = rows<T>(A);
  FullRows<T> to;
  to.n = R.m;
  to.start.reserve(static_cast<std::size_t>(to.n) + 1);
  to.start.push_back(0);
  to.column.reserve(A->nnz);
  to.value.reserve(A->nnz);
  for (int i = 0; i < to.n; ++i) {
    const int row = transversal.empty() ? i : transversal.row[i];
    for (int k = R.ia[row]; k < R.ia[row + 1]; ++k) {
      to.column.push_back(R.ja[k]);
      to.value.push_back(transversal.empty() ? R.a[k]
                                             : R.a[k] * (transversal.row_scale[row] *
                                                         transversal.column_scale[R.ja[k]]));
    }
    to.start.push_back(static_cast<int>(to.column.size()));
  }
  return to;
}

template <class T>
Transversal choose_matching(const smat* A, UseMatching use) {
  if (use == UseMatching::never || (use == UseMatching::where_it_helps && !has_weak_diagonal<T>(A)))
    return {};
  Transversal transversal = match_rows<T>(A);
  _norv_print_stat_msg(transversal.empty() ? "NOT using MPS scaling." : "USING MPS scaling.");
  return transversal;
}

#define NORV_INSTANTIATE(T)                                        \
  template bool has_weak_diagonal<T>(const smat*);                 \
  template Transversal match_rows<T>(const smat*);                 \
  template FullRows<T> full_rows(const smat*, const Transversal&); \
  template Transversal choose_matching<T>(const smat*, UseMatching)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
