// SPDX-License-Identifier: BSD-3-Clause
/// LU with free pivots, see free_lu.hpp.
///
/// Step k takes one row of A, as a column of B = A^T, solves it with the part of L that is there,
/// and chooses among the columns of A that are left.  B = L U up to the order of rows, so that
/// A x = b is a solve with U^T and one with L^T.
#include "numeric/free_lu.hpp"

#include <algorithm>
#include <cmath>

#include "base/progress.hpp"
#include "base/scalar.hpp"
#include "base/status.hpp"
#include "base/values.hpp"

namespace vlm {
namespace {

/// Part of the largest candidate that the preferred pivot has to be.
constexpr double threshold = 0.1;
/// Replacement of a pivot that does not exist, beside the largest entry of the matrix.
constexpr double replacement = 0x1p-53;

template <class T>
void append(Vector<double>& values, const T& v) {
  values.push_back(std::real(v));
  if constexpr (is_complex_v<T>) values.push_back(std::imag(v));
}

}  // namespace

template <class T>
class FreeLuWork {
 public:
  FreeLuWork(FreeLu& lu, const FreeLuInput& input)
      : lu_(lu),
        input_(input),
        n_(static_cast<std::size_t>(input.matrix.n)),
        x_(n_, T(0)),
        step_(n_, -1),
        mark_(n_, -1),
        place_(n_),
        stack_(n_),
        pattern_(n_) {
    lu_.row_.resize(n_);
    lu_.column_.resize(n_);
    lu_.scale_.assign(2 * n_, 1.0);
    if (input.matching.scale != nullptr)
      std::copy_n(input.matching.scale, 2 * n_, lu_.scale_.begin());
    else
      scale_rows();
    for (FreeLu::Triangle* t : {&lu_.lower_, &lu_.upper_}) t->start.assign(n_ + 1, 0);
    lu_.pivot_.reserve(n_ * static_cast<std::size_t>(input.type.nvals()));
  }

  int run() {
    for (std::size_t k = 0; k < n_; ++k) {
      pulse();
      const int preferred = input_.order[k] - 1;
      const int row =
          input_.matching.perm != nullptr ? input_.matching.perm[preferred] - 1 : preferred;
      lu_.row_[k] = row;
      const std::size_t top = find_reach(row, static_cast<int>(k));
      if (!eliminate(row, top)) return status_pivot;
      if (operations_ > input_.most_operations) return status_work;
      finish_step(static_cast<int>(k), top, preferred);
    }
    return status_ok;
  }

 private:
  /// Rows to a largest entry of 1.
  void scale_rows() {
    const InputMatrix& m = input_.matrix;
    for (int i = 0; i < m.n; ++i) {
      double largest = 0;
      for (int p = m.ia[i]; p < m.ia[i + 1]; ++p)
        largest = std::max(largest, std::abs(value_at<T>(m.a, p - 1)));
      if (largest > 0) lu_.scale_[n_ + static_cast<std::size_t>(i)] = 1 / largest;
    }
  }

  /// Columns of A that the row fills, in an order in which L can be applied: places top to n - 1
  /// of the pattern.  Depth-first walks through the columns of L.
  std::size_t find_reach(int row, int k) {
    const InputMatrix& m = input_.matrix;
    std::size_t top = n_;
    for (int p = m.ia[row]; p < m.ia[row + 1]; ++p) {
      const int start = m.ja[p - 1] - 1;
      if (mark(start) == k) continue;
      std::size_t depth = 0;
      enter(start, k, depth);
      for (;;) {
        const int column = stack_[depth];
        const int step = step_of(column);
        bool descended = false;
        if (step >= 0) {
          const std::size_t stop = lu_.lower_.start[static_cast<std::size_t>(step) + 1];
          for (std::size_t& next = place_[depth]; next < stop && !descended;) {
            const int child = lu_.lower_.index[next++];
            if (mark(child) == k) continue;
            enter(child, k, ++depth);
            descended = true;
          }
        }
        if (descended) continue;
        pattern_[--top] = column;
        if (depth == 0) break;
        --depth;
      }
    }
    return top;
  }

  void enter(int column, int k, std::size_t depth) {
    mark(column) = k;
    stack_[depth] = column;
    const int step = step_of(column);
    place_[depth] = step >= 0 ? lu_.lower_.start[static_cast<std::size_t>(step)] : 0;
  }

  /// x := L^-1 of the row, over its pattern; false where it is no number.
  bool eliminate(int row, std::size_t top) {
    const InputMatrix& m = input_.matrix;
    const double row_scale = lu_.scale_[n_ + static_cast<std::size_t>(row)];
    for (int p = m.ia[row]; p < m.ia[row + 1]; ++p) {
      const auto column = static_cast<std::size_t>(m.ja[p - 1] - 1);
      const T v = value_at<T>(m.a, p - 1) * (row_scale * lu_.scale_[column]);
      x_[column] += v;
      largest_ = std::max(largest_, std::abs(v));
    }
    const T* const l = values_as<T>(lu_.lower_.value.data());
    for (std::size_t at = top; at < n_; ++at) {
      const int step = step_of(pattern_[at]);
      if (step < 0) continue;
      const T v = x_[static_cast<std::size_t>(pattern_[at])];
      if (!std::isfinite(std::abs(v))) return false;
      const std::size_t start = lu_.lower_.start[static_cast<std::size_t>(step)];
      const std::size_t stop = lu_.lower_.start[static_cast<std::size_t>(step) + 1];
      for (std::size_t p = start; p < stop; ++p)
        x_[static_cast<std::size_t>(lu_.lower_.index[p])] -= product(l[p], v);
      operations_ += 2.0 * static_cast<double>(stop - start);
    }
    return true;
  }

  /// Chooses the pivot, and stores the step's columns of L and U.
  void finish_step(int k, std::size_t top, int preferred) {
    int place = -1;
    double largest = 0;
    for (std::size_t at = top; at < n_; ++at) {
      const int column = pattern_[at];
      if (step_of(column) >= 0) continue;
      const double size = std::abs(x_[static_cast<std::size_t>(column)]);
      if (size > largest) largest = size, place = column;
    }
    const auto wanted = static_cast<std::size_t>(preferred);
    const bool wanted_free = step_[wanted] < 0;
    if (wanted_free && std::abs(x_[wanted]) >= threshold * largest) place = preferred;
    if (place < 0) {  // the row depends on those before it
      while (step_[unused_] >= 0) ++unused_;
      place = wanted_free ? preferred : static_cast<int>(unused_);
    }
    T pivot = x_[static_cast<std::size_t>(place)];
    if (!(std::abs(pivot) > 0)) {
      pivot = T(replacement * (largest_ > 0 ? largest_ : 1));
      ++lu_.perturbed_;
    }
    store(top, place, pivot);
    step_[static_cast<std::size_t>(place)] = k;
    lu_.column_[static_cast<std::size_t>(k)] = place;
    lu_.lower_.start[static_cast<std::size_t>(k) + 1] = lu_.lower_.index.size();
    lu_.upper_.start[static_cast<std::size_t>(k) + 1] = lu_.upper_.index.size();
  }

  void store(std::size_t top, int place, const T& pivot) {
    append(lu_.pivot_, pivot);
    for (std::size_t at = top; at < n_; ++at) {
      const int column = pattern_[at], step = step_of(column);
      T& v = x_[static_cast<std::size_t>(column)];
      if (step >= 0) {
        lu_.upper_.index.push_back(step);
        append(lu_.upper_.value, v);
      } else if (column != place && v != T(0)) {
        lu_.lower_.index.push_back(column);
        append(lu_.lower_.value, T(v / pivot));
      }
      v = 0;
    }
    x_[static_cast<std::size_t>(place)] = 0;
  }

  int& mark(int column) { return mark_[static_cast<std::size_t>(column)]; }
  int step_of(int column) const { return step_[static_cast<std::size_t>(column)]; }

  FreeLu& lu_;
  const FreeLuInput& input_;
  const std::size_t n_;
  Vector<T> x_;                ///< the row that is eliminated, zero between the steps
  Vector<int> step_;           ///< in which a column of A was the pivot, -1: not yet
  Vector<int> mark_;           ///< last step that reached a column
  Vector<std::size_t> place_;  ///< of the walk, at each depth
  Vector<int> stack_, pattern_;
  std::size_t unused_ = 0;  ///< columns before have been pivots
  double largest_ = 0, operations_ = 0;
};

namespace {

struct TriangleView {
  const Vector<std::size_t>& start;
  const Vector<int>& index;
  const Vector<double>& value;
};

/// v(k) -= sum over column k of t times v.
template <class T, class Place>
T gathered(const TriangleView& t, std::size_t k, const T* v, T sum, const Place& place) {
  const T* const a = values_as<T>(t.value.data());
  for (std::size_t p = t.start[k]; p < t.start[k + 1]; ++p)
    sum -= product(a[p], v[place(t.index[p])]);
  return sum;
}

template <class T>
void scatter(const TriangleView& t, std::size_t k, const T& f, T* v) {
  const T* const a = values_as<T>(t.value.data());
  for (std::size_t p = t.start[k]; p < t.start[k + 1]; ++p)
    v[static_cast<std::size_t>(t.index[p])] -= product(a[p], f);
}

/// What a solve reads.
struct Solve {
  std::size_t n;
  const Vector<int>&row, &column;
  const Vector<double>&scale, &pivot;
  TriangleView lower, upper;
};

/// A x = b for one column; y and z are scratch.
template <class T>
void solve_plain(const Solve& s, const T* b, T* x, Vector<T>& z, Vector<T>& y) {
  const auto at = [](int k) { return static_cast<std::size_t>(k); };
  const T* const pivot = values_as<T>(s.pivot.data());
  for (std::size_t k = 0; k < s.n; ++k) {
    const std::size_t row = at(s.row[k]);
    z[k] = gathered(s.upper, k, z.data(), T(b[row] * s.scale[s.n + row]), at) / pivot[k];
  }
  for (std::size_t k = s.n; k-- > 0;) y[at(s.column[k])] = gathered(s.lower, k, y.data(), z[k], at);
  for (std::size_t j = 0; j < s.n; ++j) x[j] = y[j] * s.scale[j];
}

template <class T>
void solve_transposed(const Solve& s, const T* b, T* x, Vector<T>& z, Vector<T>& y) {
  const auto at = [](int k) { return static_cast<std::size_t>(k); };
  const T* const pivot = values_as<T>(s.pivot.data());
  for (std::size_t j = 0; j < s.n; ++j) y[j] = b[j] * s.scale[j];
  for (std::size_t k = 0; k < s.n; ++k) {
    z[k] = y[at(s.column[k])];
    scatter(s.lower, k, z[k], y.data());
  }
  for (std::size_t k = s.n; k-- > 0;) {
    z[k] /= pivot[k];
    scatter(s.upper, k, z[k], z.data());
  }
  for (std::size_t k = 0; k < s.n; ++k) {
    const std::size_t row = at(s.row[k]);
    x[row] = z[k] * s.scale[s.n + row];
  }
}

template <class T>
void solve_columns(const Solve& s, bool transpose, int nrhs, const double* in, double* out) {
  Vector<T> z(s.n), y(s.n);
  for (int k = 0; k < nrhs; ++k) {
    const std::size_t at = s.n * static_cast<std::size_t>(k);
    const T* const b = values_as<T>(in) + at;
    T* const x = values_as<T>(out) + at;
    transpose ? solve_transposed(s, b, x, z, y) : solve_plain(s, b, x, z, y);
  }
}

}  // namespace

int FreeLu::factor(const FreeLuInput& input) {
  *this = {};
  n_ = input.matrix.n;
  complex_ = input.type.complex;
  return complex_ ? FreeLuWork<zcomplex>(*this, input).run()
                  : FreeLuWork<double>(*this, input).run();
}

int FreeLu::solve(bool transpose, int nrhs, const double* in, double* out) const {
  const Solve s{static_cast<std::size_t>(n_),
                row_,
                column_,
                scale_,
                pivot_,
                {lower_.start, lower_.index, lower_.value},
                {upper_.start, upper_.index, upper_.value}};
  complex_ ? solve_columns<zcomplex>(s, transpose, nrhs, in, out)
           : solve_columns<double>(s, transpose, nrhs, in, out);
  return status_ok;
}

std::size_t FreeLu::bytes() const {
  std::size_t doubles = scale_.capacity() + pivot_.capacity(), integers = 2 * row_.capacity();
  for (const Triangle* t : {&lower_, &upper_}) {
    doubles += t->value.capacity() + t->start.capacity();
    integers += t->index.capacity();
  }
  return doubles * sizeof(double) + integers * sizeof(int);
}

}  // namespace vlm
