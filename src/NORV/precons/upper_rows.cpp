// SPDX-License-Identifier: BSD-3-Clause
/// Rows of the upper triangle in the order of elimination, see upper_rows.hpp.
#include "NORV/precons/upper_rows.hpp"

#include <algorithm>
#include <limits>

namespace vlm::norv {
namespace {

/// What both sources look like to the permutation.
template <class T, class Position>
struct Source {
  int n;
  const Position* start;
  const int* column;
  const T* value;
};

/// Sorts one row by column.
template <class T>
void sort_row(int* column, T* value, std::int64_t length, Vector<std::pair<int, T>>& work) {
  if (std::is_sorted(column, column + length)) return;
  work.resize(static_cast<std::size_t>(length));
  for (std::int64_t p = 0; p < length; ++p) work[p] = {column[p], value[p]};
  std::sort(work.begin(), work.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (std::int64_t p = 0; p < length; ++p) {
    column[p] = work[p].first;
    value[p] = work[p].second;
  }
}

template <class T, class Position>
UpperRows<T> permute(const Source<T, Position>& A, const int* place, const double* scale) {
  const auto placed = [place](int i) { return place != nullptr ? place[i] : i; };
  const auto each_entry = [&](auto f) {
    for (int i = 0; i < A.n; ++i)
      for (Position p = A.start[i]; p < A.start[i + 1]; ++p)
        if (A.column[p] >= i) {
          const int r = placed(i), c = placed(A.column[p]);
          f(std::min(r, c), std::max(r, c), i, p);
        }
  };
  UpperRows<T> B;
  B.n = A.n;
  B.start.assign(static_cast<std::size_t>(A.n) + 1, 0);
  each_entry([&](int r, int, int, Position) { ++B.start[r + 1]; });
  for (int r = 0; r < A.n; ++r) B.start[r + 1] += B.start[r];
  B.column.extend(B.entries());
  B.value.extend(B.entries());
  Vector<std::int64_t> next(B.start.begin(), B.start.end() - 1);
  each_entry([&](int r, int c, int i, Position p) {
    const std::int64_t q = next[r]++;
    B.column[q] = c;
    B.value[q] = scale != nullptr ? product(A.value[p], scale[i] * scale[A.column[p]]) : A.value[p];
  });
  Vector<std::pair<int, T>> work;
  for (int r = 0; r < A.n; ++r)
    sort_row(B.column.data() + B.start[r], B.value.data() + B.start[r], B.start[r + 1] - B.start[r],
             work);
  return B;
}

}  // namespace

template <class T>
UpperRows<T> permuted_upper(const smat* A, const int* place, const double* scale) {
  return permute(Source<T, int>{static_cast<int>(A->m), A->ia, A->ja, values_as<T>(A->a)}, place,
                 scale);
}

template <class T>
UpperRows<T> permuted_upper(const UpperRows<T>& A, const int* place, const double* scale) {
  return permute(Source<T, std::int64_t>{A.n, A.start.data(), A.column.data(), A.value.data()},
                 place, scale);
}

template <class T>
smat* to_smat(const UpperRows<T>& rows, bool filled_diagonal) {
  const auto lacks = [&](int i) {
    return filled_diagonal &&
           (rows.start[i] == rows.start[i + 1] || rows.column[rows.start[i]] != i);
  };
  std::int64_t entries = rows.entries();
  for (int i = 0; i < rows.n; ++i) entries += lacks(i) ? 1 : 0;
  if (entries > std::numeric_limits<int>::max())
    out_of_memory("ERROR: more entries than 32-bit row starts can count!");
  smat* const A = smat_new_nnz(static_cast<unsigned>(rows.n), static_cast<unsigned>(rows.n),
                               static_cast<unsigned>(entries), type_of(1, is_complex_v<T>));
  T* const a = values_as<T>(A->a);
  int q = 0;
  for (int i = 0; i < rows.n; ++i) {
    A->ia[i] = q;
    if (lacks(i)) {
      A->ja[q] = i;
      a[q++] = T();
    }
    for (std::int64_t p = rows.start[i]; p < rows.start[i + 1]; ++p, ++q) {
      A->ja[q] = rows.column[p];
      a[q] = rows.value[p];
    }
  }
  A->ia[rows.n] = q;
  return A;
}

#define NORV_INSTANTIATE(T)                                                             \
  template UpperRows<T> permuted_upper(const smat*, const int*, const double*);         \
  template UpperRows<T> permuted_upper(const UpperRows<T>&, const int*, const double*); \
  template smat* to_smat(const UpperRows<T>&, bool)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
