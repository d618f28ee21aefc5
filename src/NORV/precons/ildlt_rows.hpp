// SPDX-License-Identifier: BSD-3-Clause
/// How an incomplete factorization forms its rows from the matrix and from the finished rows.
///
/// Rows and columns are named by slots.  Row i of the matrix has slot i until it is delayed; the
/// rows that are delayed get the slots n, n+1, ... in turn.  Rows come up by rising slot, so that
/// the entries of a finished row, sorted by slot, are met from the front to the back.  When a
/// column is delayed, its entry in each row that waits for it moves to the end of that row: rows
/// stay sorted.  A delayed row of the matrix waits for its columns as a finished row does, since
/// the rows behind it need its entries.
#pragma once

#include <cstdint>

#include "NORV/precons/ildlt_row.hpp"
#include "NORV/precons/ldlt_factor.hpp"
#include "NORV/precons/upper_rows.hpp"

namespace vlm::norv {

/// Entries of finished rows beside the factor, row k and pairs as there.
template <class T>
struct LeftOut {
  Vector<std::int64_t> start;  ///< [finished rows + 1]; empty: nothing is left out
  Growing<int> column;
  Growing<T> value;
};

template <class T>
class UnfinishedRows {
 public:
  /// @param by_column  rows may be eliminated out of turn; takes an index of L by columns and the
  ///                   lower triangle of A besides; without left_out()
  UnfinishedRows(UpperRows<T>&& A, bool by_column, LdltFactor<T>& factor);

  /// From here on finished rows have entries beside the factor, which take part in updates; only
  /// the products of two of them are passed over.
  void keep_left_out();
  LeftOut<T>& left_out() { return left_out_; }

  int n() const { return n_; }
  int delayed() const { return static_cast<int>(delayed_.size()); }
  int row_of_slot(int slot) const { return slot < n_ ? slot : delayed_[slot - n_]; }
  bool finished(int slot) const { return by_column_ && done_[slot]; }

  /// Row of a slot, all updates applied: entries right of it, and the diagonal.
  void gather(int slot, GatheredRow<T>& row);
  /// The same ahead of its turn, for the partner of the row at hand: the next slot, or with
  /// by_column any.  The entry of `slot` itself is left out.
  void gather_partner(int slot, int partner, GatheredRow<T>& row);

  /// The row k that was stored last (a pair where is_pair says so) waits for its first column.
  void stored(int k);
  /// Slot done: the rows that waited for it go on to their next columns.
  void advance(int slot);
  void finish_slot(int slot) {
    if (by_column_) done_[slot] = 1;
  }
  /// Delays the row and column of a slot.  @return its new slot
  int delay(int slot);

 private:
  void gather_matrix_row(int slot, GatheredRow<T>& row);
  void gather_any(int slot, GatheredRow<T>& row);
  /// Entries of the factor, or of left_out().
  struct Entries {
    int* column;
    T* value;
    const Vector<std::int64_t>& start;
  };
  Entries kept() { return {factor_.column.data(), factor_.value.data(), factor_.start}; }
  Entries left() { return {left_out_.column.data(), left_out_.value.data(), left_out_.start}; }
  bool has_left_out() const { return !left_out_.start.empty(); }
  void subtract(int k, const T* entry, const Entries& of, std::int64_t from, GatheredRow<T>& row);
  void subtract_kept(int k, std::int64_t entry, int slot, GatheredRow<T>& row);
  void subtract_left(int k, std::int64_t entry, int slot, GatheredRow<T>& row);
  static void fetch(const Entries& of, int k, const Vector<std::int64_t>& first);
  T quadratic(int k, const T* x) const;
  std::int64_t behind(const Entries& of, int k, std::int64_t from, int slot) const;
  void add_delayed(int q, std::int64_t from, int slot, GatheredRow<T>& row);
  std::int64_t stride(int k) const { return factor_.is_pair[k] ? 2 : 1; }
  std::int64_t find_column(int k, int slot) const;
  void wait_for_next(int k);
  void left_wait_for_next(int k);
  void wait_delayed(int q);
  void enter_columns(int k);

  struct ColumnLink {
    int row;
    std::int64_t next;
  };

  const int n_;
  const bool by_column_;
  UpperRows<T> a_;
  UpperRows<T> lower_;  ///< by_column: the strict lower triangle by rows
  LdltFactor<T>& factor_;
  Vector<std::int64_t> first_;  ///< by finished row: first entry that is not behind us
  WaitingRows waiting_;         ///< finished rows, by slot
  LeftOut<T> left_out_;
  Vector<std::int64_t> left_first_;  ///< as first_ and waiting_, for left_out_
  WaitingRows left_waiting_;
  Vector<int> delayed_;           ///< row of the matrix in slot n + q
  Vector<std::int64_t> a_first_;  ///< by q, as first_
  WaitingRows a_waiting_;         ///< delayed rows of the matrix, by slot below n
  Vector<char> done_;             ///< by_column: slots that were eliminated
  Vector<int> slot_of_row_;       ///< by_column
  Growing<ColumnLink> link_;      ///< by_column: the finished rows that hold a column
  Vector<std::int64_t> column_;   ///< by_column: first link of a slot
};

}  // namespace vlm::norv
