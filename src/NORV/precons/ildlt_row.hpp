// SPDX-License-Identifier: BSD-3-Clause
/// The row that an incomplete factorization is forming, and the lists in which finished rows wait.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "NORV/precons/scalars.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

/// A sparse row: packed entries, and where a column's entry is.
template <class T>
class GatheredRow {
 public:
  GatheredRow() = default;
  /// @param columns  columns are 0 to columns - 1
  /// @param longest  entries at most
  GatheredRow(std::size_t columns, std::size_t longest)
      : place_(columns, -1), column_(longest), value_(longest) {}

  T diagonal = T();

  int length() const { return length_; }
  const int* columns() const { return column_.data(); }
  const T* values() const { return value_.data(); }

  void add(int column, const T& x) {
    const int at = place_[column];
    if (at >= 0) {
      value_[at] += x;
      return;
    }
    place_[column] = length_;
    column_[length_] = column;
    value_[length_++] = x;
  }
  /// Adds value_of(p) at column[p] for p = from, from + step, ... below end.  The lengths of rows
  /// and updates leave no pattern to predict, so that no branch depends on what a row holds.
  template <int step, class F>
  void add_each(const int* column, std::int64_t from, std::int64_t end, F value_of) {
    int* const place = place_.data();
    int* const columns = column_.data();
    T* const values = value_.data();
    int length = length_;
    for (std::int64_t p = from; p < end; p += step) {
      const int at_column = column[p];
      int at = place[at_column];
      const bool is_new = at < 0;
      at = is_new ? length : at;
      length += is_new;
      place[at_column] = at;
      columns[at] = at_column;
      values[at] += value_of(p);
    }
    length_ = length;
  }
  /// The entry of a column; null where there is none.
  const T* find(int column) const {
    const int at = place_[column];
    return at >= 0 ? &value_[at] : nullptr;
  }
  /// Takes the entries of those columns out.
  template <class Test>
  void remove_if(Test test) {
    int kept = 0;
    for (int p = 0; p < length_; ++p) {
      const int column = column_[p];
      if (test(column)) {
        place_[column] = -1;
        continue;
      }
      place_[column] = kept;
      column_[kept] = column;
      value_[kept++] = value_[p];
    }
    std::fill(value_.begin() + kept, value_.begin() + length_, T());
    length_ = kept;
  }
  void clear() {
    for (int p = 0; p < length_; ++p) place_[column_[p]] = -1;
    std::fill(value_.begin(), value_.begin() + length_, T());
    length_ = 0;
    diagonal = T();
  }

 private:
  Vector<int> place_, column_;
  Vector<T> value_;  ///< zero behind the entries
  int length_ = 0;
};

/// Rows that wait for a column, each in at most one list.
class WaitingRows {
 public:
  WaitingRows() = default;
  WaitingRows(std::size_t columns, std::size_t rows) : head_(columns, -1), next_(rows, -1) {}

  void put(int column, int row) {
    if (static_cast<std::size_t>(row) >= next_.size()) next_.resize(row + 1, -1);
    next_[row] = std::exchange(head_[column], row);
  }
  /// First row of a list, -1 when it is empty.
  int first(int column) const { return head_[column]; }
  int next(int row) const { return next_[row]; }
  /// The list, which is empty afterwards; next() leads on as long as a row isn't put elsewhere.
  int take(int column) { return std::exchange(head_[column], -1); }

 private:
  Vector<int> head_, next_;
};

}  // namespace vlm::norv
