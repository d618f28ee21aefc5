// SPDX-License-Identifier: BSD-3-Clause
/// Sweeps with incomplete factors, and the factorizations by rows, see lu_factor.hpp.
#include "NORV/precons/lu_factor.hpp"

#include <algorithm>
#include <cmath>

#include "NORV/precons/position_set.hpp"
#include "NORV/precons/work_line.hpp"

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
  void form(int i) {
    const double norm = row_norm(A_, i), least = drop_ * norm;
    row_.add(i, T{});
    for (int k = A_.start[i]; k < A_.start[i + 1]; ++k) row_.add(A_.column[k], A_.value[k]);
    eliminate(i, least);
    constexpr double tiny = 1e-14, replacement = 1e-4;
    enter_pivot(f_, row_[i], tiny * norm, (drop_ + replacement) * norm);
    keep(i, least);
    row_.clear();
  }

  /// Takes the rows before i off, columns ascending.
  void eliminate(int i, double least) {
    kept_.clear();
    for (int seen = 0;;) {
      for (; seen < row_.size(); ++seen)
        if (row_.position(seen) < i) waiting_.insert(row_.position(seen));
      if (waiting_.empty()) break;
      const int k = waiting_.take_first();
      const T entry = row_[k];
      ++f_.seen;
      if (magnitude(entry) <= least) {
        ++f_.dropped;
        continue;
      }
      const T multiplier = product(entry, f_.pivot[k]);
      kept_.push_back(k, multiplier);
      const std::int64_t first = f_.U.start[k];
      row_.subtract(multiplier, f_.U.index.data() + first, f_.U.value.data() + first,
                    f_.U.start[k + 1] - first);
    }
    kept_.append_to(f_.L, fill_);
  }

  void keep(int i, double least) {
    kept_.clear();
    for (int p = 0; p < row_.size(); ++p) {
      const int j = row_.position(p);
      if (j <= i) continue;
      ++f_.seen;
      if (magnitude(row_[j]) <= least)
        ++f_.dropped;
      else
        kept_.push_back(j, row_[j]);
    }
    kept_.append_to(f_.U, fill_);
  }

  const FullRows<T>& A_;
  const double drop_;
  const int fill_;
  LuFactor<T> f_;
  WorkLine<T> row_;
  PositionSet waiting_;  ///< columns before the diagonal, to be taken
  KeptEntries<T> kept_;
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
  Vector<T> row(static_cast<std::size_t>(A.n), T{});
  Vector<char> held(static_cast<std::size_t>(A.n), 0);
  KeptEntries<T> left, right;
  for (int i = 0; i < A.n; ++i) {
    const double norm = row_norm(A, i);
    const int first = A.start[i], last = A.start[i + 1];
    held[i] = 1;
    for (int k = first; k < last; ++k) {
      held[A.column[k]] = 1;
      row[A.column[k]] = A.value[k];
    }
    left.clear();
    right.clear();
    for (int p = first; p < last; ++p) {
      const int k = A.column[p];
      if (k > i) right.push_back(k, row[k]);
      if (k >= i) continue;
      const T multiplier = product(row[k], f.pivot[k]);
      left.push_back(k, multiplier);
      for (std::int64_t q = f.U.start[k]; q < f.U.start[k + 1]; ++q)
        if (held[f.U.index[q]]) row[f.U.index[q]] -= product(multiplier, f.U.value[q]);
    }
    constexpr double tiny = 1e-14, replacement = 1e-4;
    enter_pivot(f, row[i], tiny * norm, replacement * norm);
    held[i] = 0;
    row[i] = T{};
    for (int k = first; k < last; ++k) {
      held[A.column[k]] = 0;
      row[A.column[k]] = T{};
    }
    left.append_to(f.L, -1);
    right.append_to(f.U, -1);
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
