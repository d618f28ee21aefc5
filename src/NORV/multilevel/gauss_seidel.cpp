// SPDX-License-Identifier: BSD-3-Clause
/// Gauss-Seidel sweeps, see gauss_seidel.hpp.
#include "NORV/multilevel/gauss_seidel.hpp"

#include "NORV/corelib/row_shares.hpp"

namespace vlm::norv {
namespace {

/// Entries below which a part isn't worth a thread.
constexpr int worth_a_part = 100000;

int count_parts(int entries) {
  return std::clamp(entries / worth_a_part, 1, sparse::threads_offered());
}

}  // namespace

template <class T>
template <class F>
void GaussSeidel<T>::for_each_part(const F& f) const {
  if (parts() == 1) return f(0);
  sum_over_team(parts(), [&](int thread, int team) {
    for (int part = thread; part < parts(); part += team) f(part);
    return 0.0;
  });
}

template <class T>
GaussSeidel<T>::GaussSeidel(const Rows<T>& A, bool symmetric) : A_(A), symmetric_(symmetric) {
  const int entries = A.ia[A.m], count = count_parts(entries);
  begin_.resize(count + 1);
  for (int part = 0; part <= count; ++part) begin_[part] = first_row(A.ia, A.m, part, count);
  upper_.resize(A.m);
  inverse_.resize(A.m);
  for_each_part([&](int part) {
    const int first = begin_[part], last = begin_[part + 1];
    for (int i = first; i < last; ++i) {
      int k = A.ia[i];
      double outside = 0;
      T d{};
      upper_[i] = A.ia[i + 1];
      for (; k < A.ia[i + 1]; ++k) {
        const int j = A.ja[k];
        if (j >= i && upper_[i] == A.ia[i + 1]) upper_[i] = k;
        if (j == i) d = A.a[k];
        if (j < first || j >= last) outside += modulus(A.a[k]);
      }
      const double size = modulus(d);
      if (size > 0) d += product(d, 0.5 * outside / size);
      inverse_[i] = size > 0 ? quotient(T(1), d) : T();
    }
  });
  for (int part = 0; count > 1 && part < count; ++part)
    for (int i = begin_[part]; i < begin_[part + 1]; ++i)
      if (A.ia[i] < A.ia[i + 1] &&
          (A.ja[A.ia[i]] < begin_[part] || A.ja[A.ia[i + 1] - 1] >= begin_[part + 1]))
        crossing_.push_back(i);
}

/// The rows of a part from its first to its last: each takes what those before it in the part give,
/// and what it gives to them where the matrix is symmetric.
template <class T>
void GaussSeidel<T>::correct_part(int part, T* x, T* r, T* change, bool fresh) const {
  const int first = begin_[part], last = begin_[part + 1];
  const int *const ja = A_.ja, *const ia = A_.ia;
  const T* const a = A_.a;
  for (int i = first; i < last; ++i) {
    int begin = ia[i];
    const int end = upper_[i];
    while (begin < end && ja[begin] < first) ++begin;
    T rest = r[i];
    for (int k = begin; k < end; ++k) rest -= product(a[k], change[ja[k]]);
    const T by = product(rest, inverse_[i]);
    if (symmetric_)  // the entries of column i above the diagonal
      for (int k = begin; k < end; ++k) r[ja[k]] -= product(a[k], by);
    if (end < ia[i + 1] && ja[end] == i) rest -= product(a[end], by);
    change[i] = by;
    r[i] = rest;
    x[i] = fresh ? by : x[i] + by;
  }
}

/// What is left to take off the residual: entries outside of the part, and those right of the
/// diagonal where no row before has told them.
template <class T>
void GaussSeidel<T>::finish_part(int part, T* r, const T* change) const {
  const int first = begin_[part], last = begin_[part + 1];
  const int *const ja = A_.ja, *const ia = A_.ia;
  const auto take = [&](int i, int begin, int end) {
    T rest = r[i];
    for (int k = begin; k < end; ++k) rest -= product(A_.a[k], change[ja[k]]);
    r[i] = rest;
  };
  if (!symmetric_)
    for (int i = first; i < last; ++i)
      take(i, upper_[i] + (upper_[i] < ia[i + 1] && ja[upper_[i]] == i), ia[i + 1]);
  for (auto row = std::lower_bound(crossing_.begin(), crossing_.end(), first);
       row != crossing_.end() && *row < last; ++row) {
    const int i = *row;
    int k = ia[i], end = ia[i + 1];
    while (k < end && ja[k] < first) ++k;
    take(i, ia[i], k);
    if (!symmetric_) continue;  // the others were among those right of the diagonal
    while (end > k && ja[end - 1] >= last) --end;
    take(i, end, ia[i + 1]);
  }
}

template <class T>
void GaussSeidel<T>::correct(T* x, T* r, T* change, bool fresh) const {
  for_each_part([&](int part) { correct_part(part, x, r, change, fresh); });
  if (parts() == 1 && symmetric_) return;
  for_each_part([&](int part) { finish_part(part, r, change); });
}

template <class T>
void GaussSeidel<T>::backward_part(int part, const T* b, T* x, const T* before) const {
  const int first = begin_[part], last = begin_[part + 1];
  const int *const ja = A_.ja, *const ia = A_.ia;
  const T* const a = A_.a;
  for (int i = last; i-- > first;) {
    int k = ia[i];
    const int end = ia[i + 1];
    T rest = b[i];
    for (; k < end && ja[k] < first; ++k) rest -= product(a[k], before[ja[k]]);
    for (; k < end && ja[k] < last; ++k) rest -= product(a[k], x[ja[k]]);
    for (; k < end; ++k) rest -= product(a[k], before[ja[k]]);
    x[i] += product(rest, inverse_[i]);
  }
}

template <class T>
void GaussSeidel<T>::backward(const T* b, T* x, T* before) const {
  if (parts() > 1)
    for_each_part([&](int part) {
      std::copy(x + begin_[part], x + begin_[part + 1], before + begin_[part]);
    });
  for_each_part([&](int part) { backward_part(part, b, x, before); });
}

template class GaussSeidel<double>;
template class GaussSeidel<zcomplex>;

}  // namespace vlm::norv
