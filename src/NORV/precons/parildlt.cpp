// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T by parts, see parildlt.hpp.
///
/// Three numberings meet here: positions of the order, the rows of a part (its domain, then the
/// separator rows that it touches), and the rest (all separator rows, then the delayed ones).
#include "NORV/precons/parildlt.hpp"

#include <algorithm>

#include "base/clock.hpp"
#include "base/team.hpp"

namespace vlm::norv {
namespace {

/// A factorized domain.
template <class T>
struct Part {
  PartRange domain{};
  Vector<int> separator;  ///< positions of the separator rows it touches, ascending
  IldltResult<T> result;
  int first_pivot = 0;   ///< in the whole factor
  Vector<int> rest_row;  ///< by row of its Schur complement: row of the rest
  int rows() const { return domain.end - domain.begin; }
  int pivots() const { return result.factor.pivots; }
};

template <class T>
class PartedFactorization {
 public:
  PartedFactorization(UpperRows<T>&& A, const PartedOrder& order, const IldltOptions& options,
                      Vector<T>&& target)
      : A_(std::move(A)),
        options_(options),
        target_(std::move(target)),
        separators_(order.domain.empty() ? 0 : order.domain.back().end),
        parts_(order.domain.size()) {
    for (std::size_t k = 0; k < parts_.size(); ++k) parts_[k].domain = order.domain[k];
  }

  /// @return place is by position
  IldltResult<T> run(int threads);

 private:
  struct Entry {
    int row, column;
    T value;
  };

  void factor_part(Part<T>& part) const;
  UpperRows<T> rows_of(Part<T>& part) const;
  void number_rest();
  UpperRows<T> setup_separators() const;
  IldltResult<T> unify(const IldltResult<T>& rest) const;
  void append_rows(const LdltFactor<T>& from, const Vector<int>& position, LdltFactor<T>& to) const;

  const UpperRows<T> A_;
  const IldltOptions options_;
  const Vector<T> target_;  ///< by position, or empty
  const int separators_;    ///< first position of them
  Vector<Part<T>> parts_;
  Vector<int> rest_position_;  ///< by row of the rest: position of the order
};

/// Rows of the part, its separator rows without entries of their own.
template <class T>
UpperRows<T> PartedFactorization<T>::rows_of(Part<T>& part) const {
  const auto [begin, end] = part.domain;
  for (std::int64_t p = A_.start[begin]; p < A_.start[end]; ++p)
    if (A_.column[p] >= separators_) part.separator.push_back(A_.column[p]);
  std::sort(part.separator.begin(), part.separator.end());
  part.separator.erase(std::unique(part.separator.begin(), part.separator.end()),
                       part.separator.end());
  UpperRows<T> rows;
  rows.n = part.rows() + static_cast<int>(part.separator.size());
  rows.start.assign(static_cast<std::size_t>(rows.n) + 1, A_.start[end] - A_.start[begin]);
  rows.column.extend(rows.start.back());
  rows.value.extend(rows.start.back());
  for (int i = begin; i < end; ++i) {
    rows.start[i - begin] = A_.start[i] - A_.start[begin];
    for (std::int64_t p = A_.start[i]; p < A_.start[i + 1]; ++p) {
      const int j = A_.column[p];
      const auto found = std::lower_bound(part.separator.begin(), part.separator.end(), j);
      rows.column[p - A_.start[begin]] =
          j < separators_ ? j - begin
                          : part.rows() + static_cast<int>(found - part.separator.begin());
      rows.value[p - A_.start[begin]] = A_.value[p];
    }
  }
  return rows;
}

template <class T>
void PartedFactorization<T>::factor_part(Part<T>& part) const {
  IldltOptions o = options_;
  o.keep_schur = true;
  o.leading = part.rows();
  UpperRows<T> rows = rows_of(part);
  Vector<T> target;
  if (!target_.empty()) {
    target.assign(target_.begin() + part.domain.begin, target_.begin() + part.domain.end);
    for (const int s : part.separator) target.push_back(target_[s]);
  }
  part.result = factorize_ildlt(std::move(rows), o, target.data());
}

/// Rows of the rest: the separators, and behind them what the parts delayed.
template <class T>
void PartedFactorization<T>::number_rest() {
  for (int i = separators_; i < A_.n; ++i) rest_position_.push_back(i);
  int pivots = 0;
  for (Part<T>& part : parts_) {
    part.first_pivot = pivots;
    pivots += part.pivots();
    part.rest_row.resize(part.result.schur.n);
    for (std::size_t i = 0; i < part.result.place.size(); ++i) {
      const int row = part.result.place[i] - part.pivots(), local = static_cast<int>(i);
      if (row < 0) continue;
      if (local >= part.rows()) {
        part.rest_row[row] = part.separator[local - part.rows()] - separators_;
        continue;
      }
      part.rest_row[row] = static_cast<int>(rest_position_.size());
      rest_position_.push_back(part.domain.begin + local);
    }
  }
}

/// The separators' own entries and the shares of the parts, added up.
template <class T>
UpperRows<T> PartedFactorization<T>::setup_separators() const {
  Vector<Entry> entries;
  const auto add = [&](int i, int j, T value) {
    entries.push_back({std::min(i, j), std::max(i, j), value});
  };
  for (int i = separators_; i < A_.n; ++i)
    for (std::int64_t p = A_.start[i]; p < A_.start[i + 1]; ++p)
      add(i - separators_, A_.column[p] - separators_, A_.value[p]);
  for (const Part<T>& part : parts_) {
    const UpperRows<T>& S = part.result.schur;
    for (int i = 0; i < S.n; ++i)
      for (std::int64_t p = S.start[i]; p < S.start[i + 1]; ++p)
        add(part.rest_row[i], part.rest_row[S.column[p]], S.value[p]);
  }
  // The order of the sums is that of the parts.
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return a.row < b.row || (a.row == b.row && a.column < b.column);
  });
  UpperRows<T> rest;
  rest.n = static_cast<int>(rest_position_.size());
  rest.start.assign(static_cast<std::size_t>(rest.n) + 1, 0);
  for (std::size_t k = 0; k < entries.size(); ++k) {
    const Entry& e = entries[k];
    if (k > 0 && e.row == entries[k - 1].row && e.column == entries[k - 1].column) {
      rest.value[rest.value.size() - 1] += e.value;
      continue;
    }
    *rest.column.extend(1) = e.column;
    *rest.value.extend(1) = e.value;
    ++rest.start[e.row + 1];
  }
  for (int i = 0; i < rest.n; ++i) rest.start[i + 1] += rest.start[i];
  return rest;
}

/// Appends the rows of a factor, its columns renumbered.
template <class T>
void PartedFactorization<T>::append_rows(const LdltFactor<T>& from, const Vector<int>& position,
                                         LdltFactor<T>& to) const {
  Vector<std::pair<int, T>> row;
  for (int k = 0; k < from.pivots; ++k) {
    row.clear();
    for (std::int64_t p = from.start[k]; p < from.start[k + 1]; ++p)
      row.emplace_back(position[from.column[p]], from.value[p]);
    std::sort(row.begin(), row.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [column, value] : row) {
      *to.column.extend(1) = column;
      *to.value.extend(1) = value;
    }
    to.start.push_back(to.column.size());
    to.d[to.pivots++] = from.d[k];
  }
  to.npos += from.npos;
  to.nneg += from.nneg;
}

void add_statistics(const IldltStatistics& s, IldltStatistics& sum) {
  sum.perturbed += s.perturbed;
  sum.delayed_scalar += s.delayed_scalar;
  sum.bad_delayed += s.bad_delayed;
  sum.delayed_eigenvalue_1x1 += s.delayed_eigenvalue_1x1;
  sum.dropped_1x1 += s.dropped_1x1;
  sum.entries_1x1 += s.entries_1x1;
  sum.clipped += s.clipped;
  sum.clipped_rows += s.clipped_rows;
  sum.norm = std::max(sum.norm, s.norm);
  if (s.bad_delayed > 0) sum.smallest_bad = s.smallest_bad;
}

template <class T>
IldltResult<T> PartedFactorization<T>::unify(const IldltResult<T>& rest) const {
  IldltResult<T> whole;
  LdltFactor<T>& f = whole.factor;
  f.n = A_.n;
  f.d.resize(A_.n);
  f.e.resize(A_.n);
  f.is_pair.resize(A_.n);
  f.start.push_back(0);
  whole.place.resize(A_.n);
  const int rest_begin = A_.n - rest.factor.n;
  for (const Part<T>& part : parts_) {
    Vector<int> position;
    for (int k = 0; k < part.pivots(); ++k) position.push_back(part.first_pivot + k);
    for (const int r : part.rest_row) position.push_back(rest_begin + rest.place[r]);
    for (int i = 0; i < part.rows(); ++i)
      whole.place[part.domain.begin + i] = position[part.result.place[i]];
    append_rows(part.result.factor, position, f);
    add_statistics(part.result.statistics, whole.statistics);
  }
  Vector<int> position(rest.factor.n);
  for (int r = 0; r < rest.factor.n; ++r) {
    position[r] = rest_begin + r;
    whole.place[rest_position_[r]] = rest_begin + rest.place[r];
  }
  append_rows(rest.factor, position, f);
  add_statistics(rest.statistics, whole.statistics);
  return whole;
}

template <class T>
IldltResult<T> PartedFactorization<T>::run(int threads) {
  TeamFailure failure;
  const auto count = static_cast<std::ptrdiff_t>(parts_.size());
#pragma omp parallel for num_threads(threads) schedule(dynamic, 1) if (threads > 1)
  for (std::ptrdiff_t k = 0; k < count; ++k)
    failure.guard([&] { factor_part(parts_[static_cast<std::size_t>(k)]); });
  failure.rethrow();
  for (const Part<T>& part : parts_)
    NORV_DEBUG("precon_parildlt", "::  fact part (%5d - %5d)", part.domain.begin,
               part.domain.end - 1);
  number_rest();
  NORV_DEBUG("precon_parildlt", ":: setup sepr (%5d - %5d) from (%5d - %5d)", separators_, A_.n - 1,
             0, static_cast<int>(count) - 1);
  UpperRows<T> separators = setup_separators();
  Vector<T> target;
  if (!target_.empty())
    for (const int i : rest_position_) target.push_back(target_[i]);
  const IldltResult<T> rest = factorize_ildlt(std::move(separators), options_, target.data());
  if (rest.statistics.bad_delayed > 0)
    _norv_print_error_msg("Delaying without Schur complement...  SHOULD NOT HAPPEN...");
  NORV_DEBUG("precon_parildlt", "::  unit prts (%5d - %5d)", 0, static_cast<int>(count) - 1);
  return unify(rest);
}

}  // namespace

template <class T>
IldltResult<T> factorize_by_parts(const UpperRows<T>& A, const PartedOrder& order,
                                  const IldltOptions& options, const T* target, int threads) {
  double seconds = 0;
  IldltResult<T> result;
  {
    const Stopwatch watch(seconds);
    Vector<T> ordered;
    if (options.compensate) {
      ordered.resize(A.n);
      for (int i = 0; i < A.n; ++i) ordered[order.place[i]] = target[i];
    }
    IldltOptions each = options;
    if (each.most_entries < 0) each.most_entries = fill_limit(options.max_fill, A);
    PartedFactorization<T> parted(permuted_upper(A, order.place.data(), nullptr), order, each,
                                  std::move(ordered));
    result = parted.run(threads);
    Vector<int> place(A.n);
    for (int i = 0; i < A.n; ++i) place[i] = result.place[order.place[i]];
    result.place = std::move(place);
  }
  result.statistics.seconds = seconds;
  return result;
}

#define NORV_INSTANTIATE(T)                                                           \
  template IldltResult<T> factorize_by_parts(const UpperRows<T>&, const PartedOrder&, \
                                             const IldltOptions&, const T*, int)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
