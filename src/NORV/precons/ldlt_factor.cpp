// SPDX-License-Identifier: BSD-3-Clause
/// Sweeps with an incomplete factor, see ldlt_factor.hpp.  Each entry is read once in a sweep.
#include "NORV/precons/ldlt_factor.hpp"

#include "NORV/precons/condest.hpp"

namespace vlm::norv {
namespace {

/// Row k of L^T, or rows k and k+1.
template <class T>
struct RowView {
  const int* column;
  const T* value;
  std::int64_t length;
};

template <class T>
RowView<T> row(const LdltFactor<T>& f, int k) {
  const std::int64_t p = f.start[k];
  return {f.column.data() + p, f.value.data() + p, f.start[k + 1] - p};
}

/// Block of rows k, k+1 inverted and applied.
template <class T>
void divide_by_pair(const LdltFactor<T>& f, int k, T* y) {
  const PivotBlock<T, 2> block{f.d[k], f.e[k], f.d[k + 1]};
  const T rhs[2] = {y[k], y[k + 1]};
  T solution[2];
  block.solve(rhs, solution);
  y[k] = solution[0];
  y[k + 1] = solution[1];
}

/// y(k) -= row k of L^T behind the diagonal times y, and y(k+1) for a pair.
template <class T>
void subtract_row(const LdltFactor<T>& f, int k, T* y) {
  const RowView<T> r = row(f, k);
  if (!f.is_pair[k]) {
    T sum[2] = {};  // two chains of additions
    std::int64_t p = 0;
    for (; p + 1 < r.length; p += 2) {
      sum[0] += product(r.value[p], y[r.column[p]]);
      sum[1] += product(r.value[p + 1], y[r.column[p + 1]]);
    }
    if (p < r.length) sum[0] += product(r.value[p], y[r.column[p]]);
    y[k] -= sum[0] + sum[1];
    return;
  }
  T first = T(), second = T();
  for (std::int64_t p = 0; p < r.length; p += 2) {
    const T x = y[r.column[p]];
    first += product(r.value[p], x);
    second += product(r.value[p + 1], x);
  }
  y[k] -= first;
  y[k + 1] -= second;
}

/// Walks the pivots from the last to the first: f(k) for their first rows.
template <class T, class F>
void backwards(const LdltFactor<T>& factor, F f) {
  for (int k = factor.pivots - 1; k >= 0; --k) {
    if (k > 0 && factor.is_pair[k - 1]) --k;
    f(k);
  }
}

}  // namespace

template <class T>
std::int64_t LdltFactor<T>::sweep_bytes() const {
  const auto bytes = [](std::size_t count, std::size_t size) {
    return static_cast<std::int64_t>(count * size);
  };
  return 2 * entries() * static_cast<std::int64_t>(sizeof(T) + sizeof(int)) +
         bytes(d.size(), 2 * sizeof(T)) + bytes(start.size(), 2 * sizeof(std::int64_t)) +
         bytes(is_pair.size(), 2);
}

template <class T>
void solve_forward(const LdltFactor<T>& f, T* y) {
  for (int k = 0; k < f.pivots; ++k) {
    const RowView<T> r = row(f, k);
    const T first = y[k];
    if (!f.is_pair[k]) {
      for (std::int64_t p = 0; p < r.length; ++p) y[r.column[p]] -= product(r.value[p], first);
      continue;
    }
    const T second = y[++k];
    for (std::int64_t p = 0; p < r.length; p += 2)
      y[r.column[p]] -= product(r.value[p], first) + product(r.value[p + 1], second);
  }
}

template <class T>
void solve_backward(const LdltFactor<T>& f, T* y) {
  backwards(f, [&](int k) { subtract_row(f, k, y); });
}

template <class T>
void solve_diagonal(const LdltFactor<T>& f, T* y) {
  for (int k = 0; k < f.pivots; ++k) {
    if (!f.is_pair[k])
      y[k] = divide(y[k], f.d[k]);
    else
      divide_by_pair(f, k++, y);
  }
}

template <class T>
void solve_diagonal_backward(const LdltFactor<T>& f, T* y) {
  backwards(f, [&](int k) {
    if (f.is_pair[k])
      divide_by_pair(f, k, y);
    else
      y[k] = divide(y[k], f.d[k]);
    subtract_row(f, k, y);
  });
}

#define NORV_INSTANTIATE(T)                               \
  template struct LdltFactor<T>;                          \
  template void solve_forward(const LdltFactor<T>&, T*);  \
  template void solve_backward(const LdltFactor<T>&, T*); \
  template void solve_diagonal(const LdltFactor<T>&, T*); \
  template void solve_diagonal_backward(const LdltFactor<T>&, T*)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
