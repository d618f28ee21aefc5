// SPDX-License-Identifier: BSD-3-Clause
/// The Crout form of incomplete LU, see lu_factor.hpp.
///
/// Step k forms row k of U from the rows of U whose columns of L reach row k, and column k of L
/// from the columns of L whose rows of U reach column k.  Lists by position name those that reach
/// k; a line moves to the list of its next entry when it has been used.
#include <algorithm>
#include <cmath>

#include "NORV/precons/lu_factor.hpp"
#include "NORV/precons/work_line.hpp"

namespace vlm::norv {
namespace {

/// A factor with the lists of its lines.
template <class T>
struct Side {
  Triangle<T> lines;
  Vector<std::int64_t> first;  ///< [n] next entry of a line, by line
  Vector<int> head, link;      ///< [n] list of the lines whose next entry stands at a position
  Vector<T> estimate;          ///< [n] what the solution with the factor is made from

  explicit Side(int n)
      : first(static_cast<std::size_t>(n), 0),
        head(static_cast<std::size_t>(n), -1),
        link(static_cast<std::size_t>(n), -1),
        estimate(static_cast<std::size_t>(n), T{}) {
    lines.start.reserve(static_cast<std::size_t>(n) + 1);
    lines.start.push_back(0);
  }
  /// Puts a line into the list of its next entry.
  void wait(int line) {
    if (first[line] >= lines.start[line + 1]) return;
    const int at = lines.index[first[line]];
    link[line] = head[at];
    head[at] = line;
  }
  /// Moves the lines that reach k on.
  void advance(int k) {
    for (int line = head[k]; line >= 0;) {
      const int next = link[line];
      ++first[line];
      wait(line);
      line = next;
    }
  }
};

template <class T>
class Iluc {
 public:
  Iluc(const FullRows<T>& A, const IlucOptions& options)
      : A_(A), o_(options), L_(A.n), U_(A.n), row_(A.n), column_(A.n) {
    f_.n = A.n;
    f_.L_by_columns = true;
    f_.pivot.reserve(static_cast<std::size_t>(A.n));
    transpose();
  }

  LuFactor<T> run() {
    for (int k = 0; k < A_.n; ++k) step(k);
    f_.L = std::move(L_.lines);
    f_.U = std::move(U_.lines);
    return std::move(f_);
  }

 private:
  /// Columns of A below the diagonal.
  void transpose() {
    column_start_.assign(static_cast<std::size_t>(A_.n) + 1, 0);
    const auto below = [&](auto f) {
      for (int i = 0; i < A_.n; ++i)
        for (int k = A_.start[i]; k < A_.start[i + 1] && A_.column[k] < i; ++k)
          f(i, A_.column[k], k);
    };
    below([&](int, int j, int) { ++column_start_[j + 1]; });
    for (int j = 0; j < A_.n; ++j) column_start_[j + 1] += column_start_[j];
    column_row_.resize(static_cast<std::size_t>(column_start_[A_.n]));
    column_value_.resize(column_row_.size());
    Vector<int> next(column_start_.begin(), column_start_.end() - 1);
    below([&](int i, int j, int k) {
      column_row_[next[j]] = i;
      column_value_[next[j]++] = A_.value[k];
    });
  }

  /// line -= sum over the lines of `by` that reach k of their entry there times what `of` has from
  /// there on.
  void reduce(int k, WorkLine<T>& line, const Side<T>& by, const Side<T>& of, bool with_diagonal) {
    for (int i = by.head[k]; i >= 0; i = by.link[i]) {
      const T multiplier = by.lines.value[by.first[i]];
      std::int64_t p = of.first[i];
      const std::int64_t end = of.lines.start[i + 1];
      if (!with_diagonal && p < end && of.lines.index[p] == k) ++p;
      line.subtract(multiplier, of.lines.index.data() + p, of.lines.value.data() + p, end - p);
    }
  }

  /// The next component of the solution that makes the inverse of a factor look large.
  double grow(const T& gathered, T& component) const {
    const T up = T(1) - gathered, down = T(-1) - gathered;
    component = magnitude(up) >= magnitude(down) ? up : down;
    return std::max(1.0, magnitude(component));
  }

  /// Drops and appends the entries behind k of a line, divided by the pivot for L.  What is compared
  /// is weight |entry|.
  void keep(int k, WorkLine<T>& line, Side<T>& side, T by, double weight, double& norm) {
    kept_.clear();
    int seen = 0;
    for (int p = 0; p < line.size(); ++p) {
      const int j = line.position(p);
      if (j == k) continue;
      const T v = line[j];
      ++seen;
      if (!(weight * magnitude(v) < o_.drop || v == T{})) kept_.push_back(j, v);
    }
    line.clear();
    const std::int64_t before = side.lines.entries();
    norm = std::max(norm, kept_.append_to(side.lines, o_.most, by));
    f_.seen += seen;
    f_.dropped += seen - (side.lines.entries() - before);
  }

  void step(int k) {
    double largest = 0;
    for (int p = A_.start[k]; p < A_.start[k + 1]; ++p) {
      largest = std::max(largest, magnitude(A_.value[p]));
      if (A_.column[p] >= k) row_.add(A_.column[p], A_.value[p]);
    }
    for (int p = column_start_[k]; p < column_start_[k + 1]; ++p)
      column_.add(column_row_[p], column_value_[p]);
    row_.add(k, T{});
    reduce(k, row_, L_, U_, true);
    reduce(k, column_, U_, L_, false);
    L_.advance(k);
    U_.advance(k);
    const T reciprocal = divide(T(1), accepted(k, row_[k], largest));
    f_.pivot.push_back(reciprocal);
    T in_L{}, in_U{};
    const double growth_L = grow(L_.estimate[k], in_L), growth_U = grow(U_.estimate[k], in_U);
    const double relative = magnitude(reciprocal);
    keep(k, row_, U_, T(1), (o_.by_inverse ? growth_U : 1.0) * relative, f_.norm_U);
    keep(k, column_, L_, reciprocal, (o_.by_inverse ? growth_L : 1.0) * relative, f_.norm_L);
    extend(L_, k, in_L, T(1));
    extend(U_, k, in_U, reciprocal);
  }

  /// Enters the new line into the lists and its entries, times `by`, into the estimate.
  void extend(Side<T>& side, int k, T component, T by) {
    side.first[k] = side.lines.start[k];
    side.wait(k);
    const T step = product(component, by);
    for (std::int64_t p = side.lines.start[k]; p < side.lines.start[k + 1]; ++p)
      side.estimate[side.lines.index[p]] += product(side.lines.value[p], step);
  }

  T accepted(int k, T pivot, double largest) {
    constexpr double replacement = 1e-8;
    const double size = magnitude(pivot);
    if (size > o_.pivot && size > 0) return pivot;
    if (f_.perturbed++ == 0) f_.first_perturbed = k;
    const double to = std::max(o_.pivot, replacement * (largest > 0 ? largest : 1.0));
    return size > 0 ? pivot * (to / size) : T(to);
  }

  const FullRows<T>& A_;
  const IlucOptions o_;
  LuFactor<T> f_;
  Side<T> L_, U_;
  WorkLine<T> row_, column_;
  Vector<int> column_start_, column_row_;
  Vector<T> column_value_;
  KeptEntries<T> kept_;
};

}  // namespace

template <class T>
LuFactor<T> factorize_iluc(const FullRows<T>& A, const IlucOptions& options) {
  return Iluc<T>(A, options).run();
}

template LuFactor<double> factorize_iluc(const FullRows<double>&, const IlucOptions&);
template LuFactor<zcomplex> factorize_iluc(const FullRows<zcomplex>&, const IlucOptions&);

}  // namespace vlm::norv
