// SPDX-License-Identifier: BSD-3-Clause
/// Forming of rows and the lists in which rows wait, see ildlt_rows.hpp.
#include "NORV/precons/ildlt_rows.hpp"

#include <algorithm>

namespace vlm::norv {
namespace {

/// The strict lower triangle by rows: the transpose of the strict upper one.
template <class T>
UpperRows<T> transposed(const UpperRows<T>& A) {
  UpperRows<T> B;
  B.n = A.n;
  B.start.assign(static_cast<std::size_t>(A.n) + 1, 0);
  for (int i = 0; i < A.n; ++i)
    for (std::int64_t p = A.start[i]; p < A.start[i + 1]; ++p)
      if (A.column[p] != i) ++B.start[A.column[p] + 1];
  for (int r = 0; r < A.n; ++r) B.start[r + 1] += B.start[r];
  B.column.extend(B.entries());
  B.value.extend(B.entries());
  Vector<std::int64_t> next(B.start.begin(), B.start.end() - 1);
  for (int i = 0; i < A.n; ++i)
    for (std::int64_t p = A.start[i]; p < A.start[i + 1]; ++p) {
      if (A.column[p] == i) continue;
      const std::int64_t q = next[A.column[p]]++;
      B.column[q] = i;
      B.value[q] = A.value[p];
    }
  return B;
}

/// Entries [from, end) of which the first `width` get a new slot, the largest one.
template <class C, class V>
void rotate_entry(C* column, V* value, std::int64_t from, std::int64_t end, std::int64_t width,
                  int slot) {
  std::rotate(column + from, column + from + width, column + end);
  std::rotate(value + from, value + from + width, value + end);
  std::fill(column + end - width, column + end, slot);
}

}  // namespace

template <class T>
UnfinishedRows<T>::UnfinishedRows(UpperRows<T>&& A, bool by_column, LdltFactor<T>& factor)
    : n_(A.n),
      by_column_(by_column),
      a_(std::move(A)),
      factor_(factor),
      first_(n_),
      waiting_(2 * static_cast<std::size_t>(n_), n_),
      a_waiting_(n_, 0) {
  if (!by_column) return;
  lower_ = transposed(a_);
  done_.assign(2 * static_cast<std::size_t>(n_), 0);
  slot_of_row_.resize(n_);
  for (int i = 0; i < n_; ++i) slot_of_row_[i] = i;
  column_.assign(2 * static_cast<std::size_t>(n_), -1);
}

/// w -= (row k at a slot) D (row k), off the diagonal.
/// @param entry  value of the slot in row k, or of a pair its two
/// @param of     the entries of row k that are taken, from place `from` on
template <class T>
void UnfinishedRows<T>::subtract(int k, const T* entry, const Entries& of, std::int64_t from,
                                 GatheredRow<T>& row) {
  const int* const column = of.column;
  const T* const value = of.value;
  const std::int64_t end = of.start[k + 1];
  if (!factor_.is_pair[k]) {
    const T u = -product(*entry, factor_.d[k]);
    row.template add_each<1>(column, from, end,
                             [=](std::int64_t p) { return product(u, value[p]); });
    return;
  }
  const T u = -(product(factor_.d[k], entry[0]) + product(factor_.e[k], entry[1]));
  const T v = -(product(factor_.e[k], entry[0]) + product(factor_.d[k + 1], entry[1]));
  row.template add_each<2>(column, from, end, [=](std::int64_t p) {
    return product(u, value[p]) + product(v, value[p + 1]);
  });
}

/// (row k at a slot) D (row k at the slot).
template <class T>
T UnfinishedRows<T>::quadratic(int k, const T* x) const {
  if (!factor_.is_pair[k]) return product(product(*x, factor_.d[k]), *x);
  return product(product(factor_.d[k], x[0]) + product(factor_.e[k], x[1]), x[0]) +
         product(product(factor_.e[k], x[0]) + product(factor_.d[k + 1], x[1]), x[1]);
}

/// First place from `from` on whose column is behind the slot.
template <class T>
std::int64_t UnfinishedRows<T>::behind(const Entries& of, int k, std::int64_t from,
                                       int slot) const {
  while (from < of.start[k + 1] && of.column[from] <= slot) from += stride(k);
  return from;
}

/// The update by row k of the factor, whose entry at the slot stands at `entry`.
template <class T>
void UnfinishedRows<T>::subtract_kept(int k, std::int64_t entry, int slot, GatheredRow<T>& row) {
  const T* const x = factor_.value.data() + entry;
  row.diagonal -= quadratic(k, x);
  subtract(k, x, kept(), entry + stride(k), row);
  if (has_left_out()) subtract(k, x, left(), behind(left(), k, left_first_[k], slot), row);
}

/// The update by an entry of row k that was left out.
template <class T>
void UnfinishedRows<T>::subtract_left(int k, std::int64_t entry, int slot, GatheredRow<T>& row) {
  subtract(k, left_out_.value.data() + entry, kept(), behind(kept(), k, first_[k], slot), row);
}

/// Entry (slot, delayed row q), which stands in the delayed row.
template <class T>
void UnfinishedRows<T>::add_delayed(int q, std::int64_t from, int slot, GatheredRow<T>& row) {
  if (from < a_.start[delayed_[q] + 1] && a_.column[from] == slot) row.add(n_ + q, a_.value[from]);
}

/// Entries of the matrix right of the slot.  Those of a delayed row that are left stand behind
/// a_first_, their columns being slots already.
template <class T>
void UnfinishedRows<T>::gather_matrix_row(int slot, GatheredRow<T>& row) {
  const int i = row_of_slot(slot);
  std::int64_t p = slot < n_ ? a_.start[i] : a_first_[slot - n_];
  const std::int64_t end = a_.start[i + 1];
  const std::int64_t begin = a_.start[i];
  if (begin < end && a_.column[begin] == i) {
    row.diagonal += a_.value[begin];
    p = std::max(p, begin + 1);
  }
  for (; p < end; ++p) row.add(a_.column[p], a_.value[p]);
}

/// Asks for the entries of a row that comes next: rows that wait for a column lie far apart.
template <class T>
void UnfinishedRows<T>::fetch(const Entries& of, int k, const Vector<std::int64_t>& first) {
  if (k < 0) return;
  __builtin_prefetch(of.column + first[k]);
  __builtin_prefetch(of.value + first[k]);
}

template <class T>
void UnfinishedRows<T>::gather(int slot, GatheredRow<T>& row) {
  gather_matrix_row(slot, row);
  if (slot < n_)
    for (int q = a_waiting_.first(slot); q >= 0; q = a_waiting_.next(q))
      add_delayed(q, a_first_[q], slot, row);
  for (int k = waiting_.first(slot), next; k >= 0; k = next) {
    next = waiting_.next(k);
    fetch(kept(), next, first_);
    if (has_left_out()) fetch(left(), next, left_first_);
    subtract_kept(k, first_[k], slot, row);
  }
  if (has_left_out())
    for (int k = left_waiting_.first(slot), next; k >= 0; k = next) {
      next = left_waiting_.next(k);
      fetch(kept(), next, first_);
      subtract_left(k, left_first_[k], slot, row);
    }
  if (by_column_) row.remove_if([this](int column) { return done_[column] != 0; });
}

template <class T>
void UnfinishedRows<T>::gather_partner(int slot, int partner, GatheredRow<T>& row) {
  if (by_column_) {
    gather_any(partner, row);
    row.remove_if([=, this](int column) {
      return column == slot || column == partner || done_[column] != 0;
    });
    return;
  }
  gather(partner, row);
  // Rows that wait for `slot` and have the partner next.
  for (int k = waiting_.first(slot); k >= 0; k = waiting_.next(k)) {
    const std::int64_t p = first_[k] + stride(k);
    if (p < factor_.start[k + 1] && factor_.column[p] == partner) subtract_kept(k, p, partner, row);
  }
  if (has_left_out())
    for (int k = left_waiting_.first(slot); k >= 0; k = left_waiting_.next(k)) {
      const std::int64_t p = left_first_[k] + stride(k);
      if (p < left_out_.start[k + 1] && left_out_.column[p] == partner)
        subtract_left(k, p, partner, row);
    }
  if (partner >= n_) {  // a delayed row that still has the entry
    row.remove_if([=](int column) { return column == slot; });
    return;
  }
  for (int q = a_waiting_.first(slot); q >= 0; q = a_waiting_.next(q))
    add_delayed(q, a_first_[q] + 1, partner, row);
}

/// Row of any slot, entries left of it and at it included.
template <class T>
void UnfinishedRows<T>::gather_any(int slot, GatheredRow<T>& row) {
  gather_matrix_row(slot, row);
  const int i = row_of_slot(slot);
  for (std::int64_t p = lower_.start[i]; p < lower_.start[i + 1]; ++p)
    row.add(slot_of_row_[lower_.column[p]], lower_.value[p]);
  for (std::int64_t l = column_[slot]; l >= 0; l = link_[l].next) {
    const int k = link_[l].row;
    const std::int64_t entry = find_column(k, slot);
    if (entry < 0) continue;
    const T* const x = factor_.value.data() + entry;
    row.diagonal -= quadratic(k, x);
    subtract(k, x, kept(), first_[k], row);
  }
}

/// Place of a column among the entries of row k that are not behind us; -1: none.
template <class T>
std::int64_t UnfinishedRows<T>::find_column(int k, int slot) const {
  const int* const begin = factor_.column.data() + first_[k];
  const int* const end = factor_.column.data() + factor_.start[k + 1];
  const int* const found = std::lower_bound(begin, end, slot);
  return found != end && *found == slot ? found - factor_.column.data() : -1;
}

template <class T>
void UnfinishedRows<T>::keep_left_out() {
  left_out_.start.reserve(static_cast<std::size_t>(n_) + 1);
  left_out_.start.push_back(0);
  left_first_.resize(n_);
  left_waiting_ = WaitingRows(2 * static_cast<std::size_t>(n_), n_);
}

template <class T>
void UnfinishedRows<T>::stored(int k) {
  first_[k] = factor_.start[k];
  wait_for_next(k);
  if (has_left_out()) {
    left_first_[k] = left_out_.start[k];
    left_wait_for_next(k);
  }
  if (by_column_) enter_columns(k);
}

template <class T>
void UnfinishedRows<T>::enter_columns(int k) {
  for (std::int64_t p = factor_.start[k]; p < factor_.start[k + 1]; p += stride(k)) {
    const std::int64_t at = link_.size();
    *link_.extend(1) = {k, column_[factor_.column[p]]};
    column_[factor_.column[p]] = at;
  }
}

template <class T>
void UnfinishedRows<T>::wait_for_next(int k) {
  if (first_[k] < factor_.start[k + 1]) waiting_.put(factor_.column[first_[k]], k);
}

template <class T>
void UnfinishedRows<T>::left_wait_for_next(int k) {
  if (left_first_[k] < left_out_.start[k + 1])
    left_waiting_.put(left_out_.column[left_first_[k]], k);
}

template <class T>
void UnfinishedRows<T>::wait_delayed(int q) {
  const std::int64_t p = a_first_[q];
  if (p < a_.start[delayed_[q] + 1] && a_.column[p] < n_) a_waiting_.put(a_.column[p], q);
}

template <class T>
void UnfinishedRows<T>::advance(int slot) {
  for (int k = waiting_.take(slot), next; k >= 0; k = next) {
    next = waiting_.next(k);
    first_[k] += stride(k);
    wait_for_next(k);
  }
  if (has_left_out())
    for (int k = left_waiting_.take(slot), next; k >= 0; k = next) {
      next = left_waiting_.next(k);
      left_first_[k] += stride(k);
      left_wait_for_next(k);
    }
  if (slot >= n_) return;
  for (int q = a_waiting_.take(slot), next; q >= 0; q = next) {
    next = a_waiting_.next(q);
    ++a_first_[q];
    wait_delayed(q);
  }
}

template <class T>
int UnfinishedRows<T>::delay(int slot) {
  const int i = slot, q = delayed(), moved = n_ + q;
  for (int k = waiting_.take(slot), next; k >= 0; k = next) {
    next = waiting_.next(k);
    rotate_entry(factor_.column.data(), factor_.value.data(), first_[k], factor_.start[k + 1],
                 stride(k), moved);
    wait_for_next(k);
  }
  if (has_left_out())
    for (int k = left_waiting_.take(slot), next; k >= 0; k = next) {
      next = left_waiting_.next(k);
      rotate_entry(left_out_.column.data(), left_out_.value.data(), left_first_[k],
                   left_out_.start[k + 1], stride(k), moved);
      left_wait_for_next(k);
    }
  for (int r = a_waiting_.take(slot), next; r >= 0; r = next) {
    next = a_waiting_.next(r);
    rotate_entry(a_.column.data(), a_.value.data(), a_first_[r], a_.start[delayed_[r] + 1], 1,
                 moved);
    wait_delayed(r);
  }
  delayed_.push_back(i);
  const bool has_diagonal = a_.start[i] < a_.start[i + 1] && a_.column[a_.start[i]] == i;
  a_first_.push_back(a_.start[i] + (has_diagonal ? 1 : 0));
  wait_delayed(q);
  if (by_column_) {
    slot_of_row_[i] = moved;
    column_[moved] = column_[slot];
  }
  return moved;
}

template class UnfinishedRows<double>;
template class UnfinishedRows<zcomplex>;

}  // namespace vlm::norv
