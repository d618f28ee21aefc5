// SPDX-License-Identifier: BSD-3-Clause
/// The factor that an incomplete factorization builds, see ildlt_store.hpp.
#include "NORV/precons/ildlt_store.hpp"

namespace vlm::norv {

template <class T>
FactorStore<T>::FactorStore(UpperRows<T>&& A, const IldltOptions& options, const T* target)
    : options_(options),
      n_(A.n),
      per_row_(options.most_entries >= 0 ? options.most_entries : fill_limit(options.max_fill, A)),
      target_(target),
      compensation_(options.compensate ? n_ : 0),
      slot_of_pivot_(n_),
      rows_(prepare(std::move(A)), options.pair_choice == PairChoice::column, result_.factor) {
  if (takes_left_out()) rows_.keep_left_out();
}

template <class T>
UpperRows<T>&& FactorStore<T>::prepare(UpperRows<T>&& A) {
  LdltFactor<T>& f = result_.factor;
  f.n = n_;
  f.d.resize(n_);
  f.e.resize(n_);
  f.is_pair.resize(n_);
  f.start.reserve(static_cast<std::size_t>(n_) + 1);
  f.start.push_back(0);
  f.column.reserve(A.entries());
  f.value.reserve(A.entries());
  result_.statistics.smallest_diagonal = std::numeric_limits<double>::max();
  original_diagonal_.resize(n_);
  for (int i = 0; i < n_; ++i)
    if (A.start[i] < A.start[i + 1] && A.column[A.start[i]] == i)
      original_diagonal_[i] = A.value[A.start[i]];
  return std::move(A);
}

template <class T>
bool FactorStore<T>::perturb(int slot, T& d) {
  const double size = magnitude(d);
  const bool small = options_.small_pivot == SmallPivot::perturb && size < options_.pivot_1x1;
  if (!small && size != 0) return false;
  const double least = options_.pivot_1x1 > 0 ? options_.pivot_1x1 : 1e-8;
  if constexpr (is_complex_v<T>)
    d = size > 0 ? d * (least / size) : T(-least);
  else
    d = d > 0 ? least : -least;
  if (statistics_.perturbed++ == 0) statistics_.first_perturbed = rows_.row_of_slot(slot);
  return true;
}

// ---- dropping -----------------------------------------------------------------------------------

/// @param size     of the pivot
/// @param largest  entry behind it
template <class T>
double FactorStore<T>::threshold(double size, double largest) {
  double tau = options_.drop * size;
  if (options_.drop_style == DropStyle::inverse)
    tau = largest > 0 ? tau / (std::max(statistics_.norm, 1.0) * largest) : 0;
  statistics_.largest_threshold = std::max(statistics_.largest_threshold, tau);
  return tau;
}

/// Brings the largest candidates to the front, as many as the limit allows.
/// @return how many
template <class T>
std::size_t FactorStore<T>::clip() {
  const auto limit = static_cast<std::size_t>(per_row_), count = candidates_.size();
  if (count <= limit) return count;
  std::nth_element(candidates_.begin(), candidates_.begin() + per_row_, candidates_.end(),
                   [](const Candidate& a, const Candidate& b) {
                     return a.size > b.size || (a.size == b.size && a.column < b.column);
                   });
  statistics_.clipped += static_cast<std::int64_t>(count - limit);
  ++statistics_.clipped_rows;
  return limit;
}

template <class T>
void FactorStore<T>::sort_by_column(Vector<Candidate>& entries) {
  std::sort(entries.begin(), entries.end(),
            [](const Candidate& a, const Candidate& b) { return a.column < b.column; });
}

/// Of the candidates behind the first `kept` and of `left_` those above the second threshold stay,
/// by column, in `left_`; the first `kept` stay in `candidates_`.
template <class T>
void FactorStore<T>::leave_out(std::size_t kept, double tau) {
  if (takes_left_out()) {
    const double least = tau * options_.second_drop;
    std::erase_if(left_, [=](const Candidate& c) { return !(c.size > least); });
    const auto clipped = candidates_.begin() + static_cast<std::ptrdiff_t>(kept);
    left_.insert(left_.end(), clipped, candidates_.end());
    sort_by_column(left_);
  }
  candidates_.resize(kept);
  sort_by_column(candidates_);
}

/// The effect of a dropped entry on the target goes on the two diagonals.
template <class T>
void FactorStore<T>::compensate(int row, int column_slot, T value) {
  if (compensation_.empty()) return;
  const int column = rows_.row_of_slot(column_slot);
  const T ratio = divide(target_[column], target_[row]);
  compensation_[row] += product(value, ratio);
  compensation_[column] += divide(value, ratio);
}

/// The entries that stay, by column; the effect of the others is made up for.
template <class T>
void FactorStore<T>::select_single(int row, const GatheredRow<T>& entries, double tau) {
  candidates_.clear();
  left_.clear();
  for (int p = 0; p < entries.length(); ++p) {
    const double size = magnitude(entries.values()[p]);
    const Candidate c{size, entries.columns()[p], p};
    if (size > tau) {
      candidates_.push_back(c);
      continue;
    }
    compensate(row, entries.columns()[p], entries.values()[p]);
    if (takes_left_out()) left_.push_back(c);
  }
  statistics_.entries_1x1 += entries.length();
  statistics_.dropped_1x1 += entries.length() - static_cast<std::int64_t>(candidates_.size());
  const std::size_t kept = clip();
  for (std::size_t p = kept; p < candidates_.size(); ++p)
    compensate(row, candidates_[p].column, entries.values()[candidates_[p].at]);
  leave_out(kept, tau);
}

/// The same for two rows: a column stays in both or in none.
template <class T>
void FactorStore<T>::select_pair(int row, int row2, const PairedRows<T>& pair, double tau) {
  const auto drop = [&](int at) {
    compensate(row, pair.column[at], pair.value[0][at]);
    compensate(row2, pair.column[at], pair.value[1][at]);
  };
  candidates_.clear();
  left_.clear();
  const auto entries = static_cast<int>(pair.column.size());
  for (int p = 0; p < entries; ++p) {
    const double size = std::max(magnitude(pair.value[0][p]), magnitude(pair.value[1][p]));
    const Candidate c{size, pair.column[p], p};
    if (size > tau) {
      candidates_.push_back(c);
      continue;
    }
    drop(p);
    if (takes_left_out()) left_.push_back(c);
  }
  statistics_.entries_2x2 += 2 * std::int64_t{entries};
  statistics_.dropped_2x2 += 2 * (entries - static_cast<std::int64_t>(candidates_.size()));
  const std::size_t kept = clip();
  for (std::size_t p = kept; p < candidates_.size(); ++p) drop(candidates_[p].at);
  leave_out(kept, tau);
}

// ---- storing ------------------------------------------------------------------------------------

template <class T>
void FactorStore<T>::check_positive(int row, T d) const {
  const double pivot = real_part(d);
  if (pivot > 0) return;
  _norv_print_error_msg("Diagonal element negative:  %5d %e", row, pivot);
  NORV_ASSERT_TEXT(pivot > 0, "v->v[k] > 0.0");
}

template <class T>
void FactorStore<T>::accept_slot(int slot) {
  slot_of_pivot_[f_.pivots++] = slot;
  rows_.finish_slot(slot);
}

/// Appends one row, or two, to the factor or to what is left out.
/// @param values_of  of an entry: its value in each of the W rows
template <class T>
template <int W, class Rows, class F>
void FactorStore<T>::store_rows(const Vector<Candidate>& entries, Rows& rows, F values_of) {
  const auto count = static_cast<std::int64_t>(entries.size());
  int* const column = rows.column.extend(W * count);
  T* const value = rows.value.extend(W * count);
  for (std::int64_t p = 0; p < count; ++p) {
    std::fill(column + W * p, column + W * (p + 1), entries[p].column);
    values_of(entries[p], value + W * p);
  }
  for (int w = 0; w < W; ++w) rows.start.push_back(rows.column.size());
}

template <class T>
void FactorStore<T>::store_single(int slot, const GatheredRow<T>& entries) {
  const int row = rows_.row_of_slot(slot), k = f_.pivots;
  double largest = 0;
  for (int p = 0; p < entries.length(); ++p)
    largest = std::max(largest, magnitude(entries.values()[p]));
  T d = entries.diagonal;
  select_single(row, entries, is_precious(row) ? 0 : threshold(magnitude(d), largest));
  if (options_.positive) check_positive(row, d);
  if (!compensation_.empty()) {
    d += compensation_[row];
    if (d == T()) perturb(slot, d);
  }
  f_.d[k] = d;
  statistics_.smallest_diagonal = std::min(statistics_.smallest_diagonal, magnitude(d));
  if constexpr (!is_complex_v<T>) {
    ++(d > 0 ? f_.npos : f_.nneg);
    statistics_.sign_changes += original_diagonal_[row] * d < 0 ? 1 : 0;
  }
  const T reciprocal = divide(T(1), d);
  const auto scaled = [&](const Candidate& c, T* value) {
    *value = product(entries.values()[c.at], reciprocal);
  };
  store_rows<1>(candidates_, f_, scaled);
  if (takes_left_out()) store_rows<1>(left_, rows_.left_out(), scaled);
  accept_slot(slot);
  rows_.advance(slot);
  rows_.stored(k);
}

template <class T>
void FactorStore<T>::store_pair(int slot, int partner, PairedRows<T>& pair) {
  const int row = rows_.row_of_slot(slot), row2 = rows_.row_of_slot(partner), k = f_.pivots;
  PivotBlock<T, 2>& block = pair.block;
  double largest = 0;
  for (const auto& values : pair.value)
    for (const T& v : values) largest = std::max(largest, magnitude(v));
  select_pair(
      row, row2, pair,
      threshold(std::max({magnitude(block.d), magnitude(block.e), magnitude(block.f)}), largest));
  if (!compensation_.empty()) {
    const PivotBlock<T, 2> plain = block;
    block.d += compensation_[row];
    block.f += compensation_[row2];
    if (is_singular(block)) block = plain;
  }
  f_.d[k] = block.d;
  f_.e[k] = block.e;
  f_.d[k + 1] = block.f;
  f_.is_pair[k] = 1;
  if constexpr (!is_complex_v<T>) {
    const int negative = eigenvalues(block.d, block.e, block.f).negative;
    f_.nneg += negative;
    f_.npos += 2 - negative;
  }
  ++statistics_.pairs;
  const auto solved = [&](const Candidate& c, T* value) {
    const T rhs[2] = {pair.value[0][c.at], pair.value[1][c.at]};
    T solution[2];
    block.solve(rhs, solution);
    std::copy(solution, solution + 2, value);
  };
  store_rows<2>(candidates_, f_, solved);
  if (takes_left_out()) store_rows<2>(left_, rows_.left_out(), solved);
  accept_slot(slot);
  accept_slot(partner);
  rows_.advance(slot);
  if (partner == slot + 1) rows_.advance(partner);
  rows_.stored(k);
}

// ---- what is left -------------------------------------------------------------------------------

template <class T>
void FactorStore<T>::store_schur_row(int position, const GatheredRow<T>& row, T diagonal) {
  candidates_.clear();
  for (int p = 0; p < row.length(); ++p)
    if (!(magnitude(row.values()[p]) <= options_.schur_drop))
      candidates_.push_back({0, row.columns()[p], p});
  sort_by_column(candidates_);
  UpperRows<T>& S = result_.schur;
  const auto count = static_cast<std::int64_t>(candidates_.size());
  int* const column = S.column.extend(count + 1);
  T* const value = S.value.extend(count + 1);
  column[0] = schur_slots_[position];
  value[0] = f_.d[f_.pivots + position] = diagonal;
  for (std::int64_t p = 0; p < count; ++p) {
    column[p + 1] = candidates_[p].column;
    value[p + 1] = row.values()[candidates_[p].at];
  }
  S.start.push_back(S.column.size());
}

template <class T>
void FactorStore<T>::build_schur(int from, GatheredRow<T>& row) {
  const int end = n_ + rows_.delayed();
  for (int slot = from; slot < end; ++slot)
    if (!rows_.finished(slot)) schur_slots_.push_back(slot);
  UpperRows<T>& S = result_.schur;
  S.n = static_cast<int>(schur_slots_.size());
  S.start.reserve(static_cast<std::size_t>(S.n) + 1);
  S.start.push_back(0);
  for (int r = 0; r < S.n; ++r) {
    const int slot = schur_slots_[r];
    rows_.gather(slot, row);
    T d = row.diagonal;
    if (!compensation_.empty()) d += compensation_[rows_.row_of_slot(slot)];
    store_schur_row(r, row, d);
    rows_.advance(slot);
    row.clear();
  }
}

template <class T>
void FactorStore<T>::place_rows() {
  Vector<int> position(static_cast<std::size_t>(n_) + rows_.delayed(), -1);
  for (int k = 0; k < f_.pivots; ++k) position[slot_of_pivot_[k]] = k;
  for (std::size_t r = 0; r < schur_slots_.size(); ++r)
    position[schur_slots_[r]] = f_.pivots + static_cast<int>(r);
  result_.place.resize(n_);
  for (std::size_t slot = 0; slot < position.size(); ++slot)
    if (position[slot] >= 0)
      result_.place[rows_.row_of_slot(static_cast<int>(slot))] = position[slot];
  for (std::int64_t p = 0; p < f_.column.size(); ++p) f_.column[p] = position[f_.column[p]];
  Growing<int>& column = result_.schur.column;
  for (std::int64_t p = 0; p < column.size(); ++p) column[p] = position[column[p]] - f_.pivots;
}

template <class T>
IldltResult<T> FactorStore<T>::finish() {
  place_rows();
  f_.column.shrink();
  f_.value.shrink();
  result_.schur.column.shrink();
  result_.schur.value.shrink();
  statistics_.schur_size = static_cast<int>(schur_slots_.size());
  return std::move(result_);
}

template class FactorStore<double>;
template class FactorStore<zcomplex>;

}  // namespace vlm::norv
