// SPDX-License-Identifier: BSD-3-Clause
/// Sweeps with incomplete factors, and the factorizations by rows, see lu_factor.hpp.
#include "NORV/precons/lu_factor.hpp"

#include <algorithm>
#include <cmath>

#include "NORV/precons/position_set.hpp"
#include "norv/sort.h"

namespace vlm::norv {
namespace {

/// y(i) minus the product of line i of a triangle and y.
template <class T>
T reduced(const Triangle<T>& A, int i, const T* y) {
  T sum[2] = {};  // two chains of additions
  std::int64_t p = A.start[i];
  const std::int64_t end = A.start[i + 1];
  for (; p + 1 < end; p += 2) {
    sum[0] += product(A.value[p], y[A.index[p]]);
    sum[1] += product(A.value[p + 1], y[A.index[p + 1]]);
  }
  if (p < end) sum[0] += product(A.value[p], y[A.index[p]]);
  return y[i] - (sum[0] + sum[1]);
}

/// Takes line i, times y(i), off y.
template <class T>
void spread(const Triangle<T>& A, int i, T* y) {
  const T by = y[i];
  for (std::int64_t p = A.start[i]; p < A.start[i + 1]; ++p)
    y[A.index[p]] -= product(A.value[p], by);
}

/// A row that is being formed: values by column, and which columns hold one.
template <class T>
class WorkRow {
 public:
  explicit WorkRow(int n) : value_(n, T{}), taken_(n, 0) {}
  T& operator[](int j) { return value_[j]; }
  bool holds(int j) const { return taken_[j] != 0; }
  void enter(int j, T v) {
    taken_[j] = 1;
    value_[j] = v;
  }
  void leave(int j) {
    taken_[j] = 0;
    value_[j] = T{};
  }

 private:
  Vector<T> value_;
  Vector<char> taken_;
};

/// Appends the largest entries of a line, columns ascending.
template <class T>
void append(Triangle<T>& A, Vector<int>& index, Vector<T>& value, int most) {
  const int count = static_cast<int>(index.size());
  const int kept = most >= 0 ? std::min(most, count) : count;
  auto* const numbers = reinterpret_cast<double*>(value.data());
  if (kept < count)
    split_factor_row_by_abs_value(count, is_complex_v<T>, numbers, index.data(), kept);
  if (!std::is_sorted(index.data(), index.data() + kept))
    sort_row_qs(kept, is_complex_v<T>, numbers, index.data());
  std::copy_n(index.data(), kept, A.index.extend(kept));
  std::copy_n(value.data(), kept, A.value.extend(kept));
  A.start.push_back(A.index.size());
}

template <class T>
LuFactor<T> new_factor(int n, std::int64_t entries) {
  LuFactor<T> f;
  f.n = n;
  for (Triangle<T>* each : {&f.L, &f.U}) {
    each->start.reserve(static_cast<std::size_t>(n) + 1);
    each->start.push_back(0);
    each->index.reserve(entries / 2);
    each->value.reserve(entries / 2);
  }
  f.pivot.reserve(static_cast<std::size_t>(n));
  return f;
}

/// Keeps the pivot of a row, or a replacement that is `fallback` large.
template <class T>
void enter_pivot(LuFactor<T>& f, T pivot, double smallest, double fallback) {
  const double size = magnitude(pivot);
  if (!(size > smallest)) {
    if (f.perturbed++ == 0) f.first_perturbed = static_cast<int>(f.pivot.size());
    pivot = size > 0 ? pivot * (fallback / size) : T(fallback);
  }
  f.pivot.push_back(divide(T(1), pivot));
}

/// Euclidean norm of a row, 1 for zero.
template <class T>
double row_norm(const FullRows<T>& A, int i) {
  double sum = 0;
  for (int k = A.start[i]; k < A.start[i + 1]; ++k) sum += squared(A.value[k]);
  return sum > 0 ? std::sqrt(sum) : 1.0;
}

/// Forms the rows of ILUT one after the other.
template <class T>
class Ilut {
 public:
  Ilut(const FullRows<T>& A, double drop, int fill)
      : A_(A),
        drop_(drop),
        fill_(fill),
        f_(new_factor<T>(A.n, static_cast<std::int64_t>(A.column.size()) + A.n)),
        row_(A.n),
        waiting_(A.n) {}

  LuFactor<T> run() {
    for (int i = 0; i < A_.n; ++i) form(i);
    return std::move(f_);
  }

 private:
  void enter(int i, int j, T v) {
    row_.enter(j, v);
    if (j < i)
      waiting_.insert(j);
    else if (j > i)
      right_.push_back(j);
  }

  void form(int i) {
    right_.clear();
    left_.clear();
    left_value_.clear();
    const double norm = row_norm(A_, i), least = drop_ * norm;
    row_.enter(i, T{});
    for (int k = A_.start[i]; k < A_.start[i + 1]; ++k) {
      if (A_.column[k] == i)
        row_[i] = A_.value[k];
      else
        enter(i, A_.column[k], A_.value[k]);
    }
    eliminate(i, least);
    const T pivot = row_[i];
    row_.leave(i);
    constexpr double tiny = 1e-14, replacement = 1e-4;
    enter_pivot(f_, pivot, tiny * norm, (drop_ + replacement) * norm);
    keep(least);
  }

  /// Takes the rows before i off, columns ascending.
  void eliminate(int i, double least) {
    while (!waiting_.empty()) {
      const int k = waiting_.take_first();
      const T entry = row_[k];
      row_.leave(k);
      ++f_.seen;
      if (magnitude(entry) <= least) {
        ++f_.dropped;
        continue;
      }
      const T multiplier = product(entry, f_.pivot[k]);
      left_.push_back(k);
      left_value_.push_back(multiplier);
      for (std::int64_t p = f_.U.start[k]; p < f_.U.start[k + 1]; ++p) {
        const int j = f_.U.index[p];
        const T off = product(multiplier, f_.U.value[p]);
        if (row_.holds(j))
          row_[j] -= off;
        else
          enter(i, j, -off);
      }
    }
  }

  void keep(double least) {
    right_value_.clear();
    std::size_t kept = 0;
    f_.seen += static_cast<std::int64_t>(right_.size());
    for (const int j : right_) {
      const T v = row_[j];
      row_.leave(j);
      if (magnitude(v) <= least) continue;
      right_[kept++] = j;
      right_value_.push_back(v);
    }
    f_.dropped += static_cast<std::int64_t>(right_.size() - kept);
    right_.resize(kept);
    append(f_.L, left_, left_value_, fill_);
    append(f_.U, right_, right_value_, fill_);
  }

  const FullRows<T>& A_;
  const double drop_;
  const int fill_;
  LuFactor<T> f_;
  WorkRow<T> row_;
  PositionSet waiting_;       ///< columns before the diagonal, to be taken
  Vector<int> left_, right_;  ///< taken; behind the diagonal
  Vector<T> left_value_, right_value_;
};

}  // namespace

template <class T>
void solve(const LuFactor<T>& f, T* y) {
  for (int i = 0; i < f.n; ++i) {
    if (f.L_by_columns)
      spread(f.L, i, y);
    else
      y[i] = reduced(f.L, i, y);
  }
  for (int i = f.n - 1; i >= 0; --i) y[i] = product(reduced(f.U, i, y), f.pivot[i]);
}

template <class T>
void solve_trans(const LuFactor<T>& f, T* y) {
  for (int i = 0; i < f.n; ++i) {
    y[i] = product(y[i], f.pivot[i]);
    spread(f.U, i, y);
  }
  for (int i = f.n - 1; i >= 0; --i) {
    if (f.L_by_columns)
      y[i] = reduced(f.L, i, y);
    else
      spread(f.L, i, y);
  }
}

template <class T>
LuFactor<T> factorize_ilut(const FullRows<T>& A, double drop, int fill) {
  return Ilut<T>(A, drop, fill).run();
}

template <class T>
LuFactor<T> factorize_ilu0(const FullRows<T>& A) {
  LuFactor<T> f = new_factor<T>(A.n, static_cast<std::int64_t>(A.column.size()));
  WorkRow<T> row(A.n);
  Vector<int> left, right;
  Vector<T> left_value, right_value;
  for (int i = 0; i < A.n; ++i) {
    const double norm = row_norm(A, i);
    row.enter(i, T{});
    for (int k = A.start[i]; k < A.start[i + 1]; ++k) row.enter(A.column[k], A.value[k]);
    left.clear(), right.clear(), left_value.clear(), right_value.clear();
    for (int p = A.start[i]; p < A.start[i + 1]; ++p) {
      const int k = A.column[p];
      if (k > i) {
        right.push_back(k);
        right_value.push_back(row[k]);
      }
      if (k >= i) continue;
      const T multiplier = product(row[k], f.pivot[k]);
      left.push_back(k);
      left_value.push_back(multiplier);
      for (std::int64_t q = f.U.start[k]; q < f.U.start[k + 1]; ++q)
        if (row.holds(f.U.index[q])) row[f.U.index[q]] -= product(multiplier, f.U.value[q]);
    }
    constexpr double tiny = 1e-14, replacement = 1e-4;
    enter_pivot(f, row[i], tiny * norm, replacement * norm);
    row.leave(i);
    for (int k = A.start[i]; k < A.start[i + 1]; ++k) row.leave(A.column[k]);
    append(f.L, left, left_value, -1);
    append(f.U, right, right_value, -1);
  }
  return f;
}

#define NORV_INSTANTIATE(T)                                             \
  template void solve(const LuFactor<T>&, T*);                          \
  template void solve_trans(const LuFactor<T>&, T*);                    \
  template LuFactor<T> factorize_ilut(const FullRows<T>&, double, int); \
  template LuFactor<T> factorize_ilu0(const FullRows<T>&)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
