// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T with pivoting, see ildlt.hpp.
#include "NORV/precons/ildlt.hpp"

#include <algorithm>
#include <limits>

#include "NORV/precons/ildlt_rows.hpp"
#include "base/clock.hpp"

namespace vlm::norv {
namespace {

/// Eigenvalues of a real pivot below this, in a scaled matrix, are put off.
constexpr double small_eigenvalue = 0.01;

/// Eigenvalues of [d e; e f]: the smaller magnitude, and how many are negative.
struct BlockEigenvalues {
  double smallest = 0;
  int negative = 0;
};
BlockEigenvalues eigenvalues(double d, double e, double f) {
  const double middle = 0.5 * (d + f), radius = std::hypot(0.5 * (d - f), e);
  const double large = middle < 0 ? middle - radius : middle + radius;
  const double small = large != 0 ? (d * f - e * e) / large : 0;  // without cancellation
  return {std::min(std::fabs(large), std::fabs(small)), (large < 0) + (small < 0)};
}

template <class T>
bool is_singular(const PivotBlock<T, 2>& block) {
  return block.e == T() || product(block.d, block.f) == product(block.e, block.e);
}

template <class T>
class Elimination {
 public:
  Elimination(UpperRows<T>&& A, const IldltOptions& options, const T* target)
      : options_(options),
        n_(A.n),
        per_row_(fill_limit(options.max_fill, A)),
        kappa_(options.kappa > 0 ? options.kappa : std::numeric_limits<double>::max()),
        target_(target),
        compensation_(options.compensate ? n_ : 0),
        slot_of_pivot_(n_),
        row_(2 * static_cast<std::size_t>(n_), n_),
        row2_(two_rows() ? 2 * static_cast<std::size_t>(n_) : 0, two_rows() ? n_ : 0),
        z_(options.estimator != Estimator::none ? 2 * static_cast<std::size_t>(n_) : 0),
        rows_(prepare(std::move(A)), options.pair_choice == PairChoice::column, result_.factor) {}

  IldltResult<T> run() {
    eliminate();
    {
      const Stopwatch watch(statistics_.schur_seconds);
      if (options_.keep_schur) build_schur();
    }
    finish();
    return std::move(result_);
  }

 private:
  /// The two rows of a 2x2 candidate over the union of their columns.
  struct PairRows {
    Vector<int> column;
    Vector<T> value[2];
    PivotBlock<T, 2> block{};
    PivotRows<T, 2> view() const {
      return {static_cast<int>(column.size()), column.data(), {value[0].data(), value[1].data()}};
    }
  };
  /// An entry that may be kept.
  struct Candidate {
    double size;
    int column, at;  ///< its slot; its place in the row
  };
  enum class Verdict { accept, put_off, to_schur };

  bool two_rows() const { return options_.pair_choice != PairChoice::none; }
  UpperRows<T>&& prepare(UpperRows<T>&& A);
  int slot_limit() const { return options_.keep_schur ? n_ : n_ + rows_.delayed(); }
  bool may_put_off(int slot) const {
    if (options_.postponing == Postponing::skip) return true;
    return options_.postponing == Postponing::delay && slot < n_ && slot != slot_limit() - 1;
  }
  PivotRows<T, 1> view() const { return {row_.length(), row_.columns(), {row_.values()}}; }

  void eliminate();
  int choose_partner(int slot);
  bool dominates(T e) const;
  bool eliminate_single(int slot);
  Verdict judge_single(int slot, CondestStep<T, 1>& step);
  Verdict judge_estimate(int slot, CondestStep<T, 1>& step);
  Verdict last_resort(int slot);
  void estimate(int slot, CondestStep<T, 1>& step);
  bool perturb(int slot, T& d);
  void put_off(int slot);
  int eliminate_pair(int slot, int partner);
  bool put_off_pair(int slot, int partner, CondestStep<T, 2>& step);
  void merge_rows(int slot, int partner, T e);

  double threshold(double size, double largest);
  void clip(std::size_t& kept);
  void compensate(int row, int column_slot, T value);
  void store_single(int slot);
  void store_pair(int slot, int partner);
  void accept_slot(int slot);
  void count_signs(double pivot);
  void count_signs(const zcomplex&) {}

  void build_schur();
  void finish();
  void place_rows();

  const IldltOptions options_;
  const int n_;
  const int per_row_;
  const double kappa_;
  const T* target_;
  Vector<T> compensation_;     ///< by row of the matrix: what goes on the diagonal
  Vector<int> slot_of_pivot_;  ///< by position
  GatheredRow<T> row_, row2_;  ///< the row at hand and its partner
  PairRows pair_;
  Vector<Candidate> candidates_;
  Vector<T> z_;  ///< by slot, see condest.hpp
  Vector<T> original_diagonal_;  ///< by row of the matrix
  int schur_from_ = 0;  ///< first slot of the Schur complement
  Vector<int> schur_slots_;
  IldltResult<T> result_;
  LdltFactor<T>& f_ = result_.factor;
  IldltStatistics& statistics_ = result_.statistics;
  UnfinishedRows<T> rows_;
};

template <class T>
UpperRows<T>&& Elimination<T>::prepare(UpperRows<T>&& A) {
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

// ---- decisions ------------------------------------------------------------------------------

template <class T>
void Elimination<T>::eliminate() {
  int slot = 0;
  while (slot < slot_limit()) {
    if (rows_.finished(slot)) {
      rows_.advance(slot++);
      continue;
    }
    rows_.gather(slot, row_);
    const int partner = choose_partner(slot);
    bool more = true;
    if (partner >= 0)
      slot += eliminate_pair(slot, partner);
    else if ((more = eliminate_single(slot)))
      ++slot;
    row_.clear();
    if (two_rows()) row2_.clear();
    if (!more) break;
  }
  schur_from_ = slot;
}

/// The slot that is eliminated together with this one, its row gathered; -1: none.
template <class T>
int Elimination<T>::choose_partner(int slot) {
  int partner = slot + 1;
  if (options_.pair_choice == PairChoice::none) return -1;
  if (options_.pair_choice == PairChoice::column) {
    double largest = 0;
    for (int p = 0; p < row_.length(); ++p) {
      const int j = row_.columns()[p];
      const double size = magnitude(row_.values()[p]);
      if (j >= slot_limit() || size < largest || (size == largest && largest > 0 && j > partner))
        continue;
      largest = size;
      partner = j;
    }
    if (largest == 0) return -1;
  }
  if (partner >= slot_limit()) return -1;
  const T* const entry = row_.find(partner);
  if (entry == nullptr && options_.pair_choice != PairChoice::dominance) return -1;
  const T e = entry != nullptr ? *entry : T();
  const double size = magnitude(e);
  if (options_.pair_choice != PairChoice::dominance &&
      !(magnitude(row_.diagonal) < options_.pivot_2x2 * size * size))
    return -1;
  rows_.gather_partner(slot, partner, row2_);
  pair_.block = {row_.diagonal, e, row2_.diagonal};
  const bool taken = options_.pair_choice != PairChoice::dominance || dominates(e);
  if (taken && !is_singular(pair_.block)) return partner;
  row2_.clear();
  return -1;
}

/// Whether the rest of the two rows times the inverse of the block is larger than that of the
/// first row over its diagonal.
template <class T>
bool Elimination<T>::dominates(T e) const {
  double sum = 0, sum2 = 0;
  for (int p = 0; p < row_.length(); ++p) sum += magnitude(row_.values()[p]);
  for (int p = 0; p < row2_.length(); ++p) sum2 += magnitude(row2_.values()[p]);
  const double dominance_1x1 = sum / magnitude(pair_.block.d);
  double dominance_2x2 = 0;
  if (magnitude(e) > 0) {
    const T determinant = product(pair_.block.d, pair_.block.f) - product(e, e);
    const double inverse =
        (magnitude(e) + std::max(magnitude(pair_.block.d), magnitude(pair_.block.f))) /
        magnitude(determinant);
    dominance_2x2 = (sum + sum2) * inverse;
  }
  return dominance_1x1 < dominance_2x2;
}

/// Replaces a pivot that is too small, where it is to be replaced, or that is zero.
template <class T>
bool Elimination<T>::perturb(int slot, T& d) {
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

template <class T>
void Elimination<T>::estimate(int slot, CondestStep<T, 1>& step) {
  const T here[1] = {z_[slot]};
  const PivotBlock<T, 1> block{row_.diagonal};
  if (options_.estimator == Estimator::running) {
    step = condest_look<T, 1>(options_.condest, kappa_, block, here, view(), z_.data(), nullptr);
    return;
  }
  T out;
  step.mu[0] = condest_fixed(row_.diagonal, here[0], view(), z_.data(), nullptr, &out);
  condest_fixed_undo(step.mu[0], view(), z_.data());
  step.bound = magnitude(out);
  step.taken = step.bound <= kappa_;
}

template <class T>
typename Elimination<T>::Verdict Elimination<T>::judge_single(int slot, CondestStep<T, 1>& step) {
  const double size = magnitude(row_.diagonal);
  if (options_.small_pivot == SmallPivot::delay && size < options_.pivot_1x1) {
    if (!may_put_off(slot)) return last_resort(slot);
    if (statistics_.delayed_scalar++ == 0) statistics_.first_delayed = rows_.row_of_slot(slot);
    return Verdict::put_off;
  }
  if (perturb(slot, row_.diagonal) || options_.estimator == Estimator::none) return Verdict::accept;
  return judge_estimate(slot, step);
}

template <class T>
typename Elimination<T>::Verdict Elimination<T>::judge_estimate(int slot,
                                                                CondestStep<T, 1>& step) {
  estimate(slot, step);
  const bool small = !is_complex_v<T> && options_.delay_small_eigenvalues &&
                     options_.small_pivot == SmallPivot::delay &&
                     magnitude(row_.diagonal) < small_eigenvalue;
  if (!small && step.bound <= kappa_) return Verdict::accept;
  if (!may_put_off(slot)) return last_resort(slot);
  if (small)
    ++statistics_.delayed_eigenvalue_1x1;
  else if (statistics_.delayed_scalar++ == 0)
    statistics_.first_delayed = rows_.row_of_slot(slot);
  return Verdict::put_off;
}

/// A bad pivot that can't be put off.
template <class T>
typename Elimination<T>::Verdict Elimination<T>::last_resort(int slot) {
  if (options_.keep_schur) return Verdict::to_schur;
  if (slot < n_ && options_.postponing == Postponing::delay)
    _norv_print_error_msg("SHOULD NOT HAPPEN...");
  const double size = magnitude(row_.diagonal);
  if (statistics_.bad_delayed++ == 0 || size < statistics_.smallest_bad)
    statistics_.smallest_bad = size;
  perturb(slot, row_.diagonal);
  return Verdict::accept;
}

template <class T>
void Elimination<T>::put_off(int slot) {
  if (options_.postponing == Postponing::delay) {
    const int moved = rows_.delay(slot);
    if (!z_.empty()) z_[moved] = z_[slot];
    return;
  }
  // Skipped: the row is its own block, with the diagonal that the matrix gave it.
  if (statistics_.skipped++ == 0) statistics_.first_skipped = slot;
  T d = original_diagonal_[slot];
  if (magnitude(d) < options_.pivot_1x1) d = T(options_.pivot_1x1 > 0 ? 1.0 : -1.0);
  row_.clear();
  row_.diagonal = d;
  store_single(slot);
}

/// @return false: nothing is left but the Schur complement, which begins here
template <class T>
bool Elimination<T>::eliminate_single(int slot) {
  CondestStep<T, 1> step;
  const Verdict verdict = judge_single(slot, step);
  if (verdict == Verdict::to_schur) return false;
  if (verdict == Verdict::put_off) {
    put_off(slot);
    return true;
  }
  if (step.taken) {
    condest_take(view(), step.mu, z_.data());
    statistics_.norm = std::max(statistics_.norm, step.bound);
  }
  store_single(slot);
  return true;
}

template <class T>
void Elimination<T>::merge_rows(int slot, int partner, T e) {
  pair_.block = {row_.diagonal, e, row2_.diagonal};
  pair_.column.clear();
  for (auto& value : pair_.value) value.clear();
  const auto add = [&](int column, T first, T second) {
    pair_.column.push_back(column);
    pair_.value[0].push_back(first);
    pair_.value[1].push_back(second);
  };
  for (int p = 0; p < row_.length(); ++p) {
    const int column = row_.columns()[p];
    if (column == slot || column == partner) continue;
    const T* const other = row2_.find(column);
    add(column, row_.values()[p], other != nullptr ? *other : T());
  }
  for (int p = 0; p < row2_.length(); ++p) {
    const int column = row2_.columns()[p];
    if (row_.find(column) == nullptr) add(column, T(), row2_.values()[p]);
  }
}

/// Tests the pair and puts it off when it is bad.
template <class T>
bool Elimination<T>::put_off_pair(int slot, int partner, CondestStep<T, 2>& step) {
  const bool free = options_.postponing == Postponing::skip ||
                    (options_.postponing == Postponing::delay && partner < n_);
  bool small = false;
  if constexpr (!is_complex_v<T>) {
    small = options_.delay_small_eigenvalues && options_.small_pivot == SmallPivot::delay &&
            eigenvalues(pair_.block.d, pair_.block.e, pair_.block.f).smallest < small_eigenvalue;
  }
  bool grows = false;
  if (!(small && free) && options_.estimator == Estimator::running) {
    const T here[2] = {z_[slot], z_[partner]};
    step = condest_look<T, 2>(options_.condest, kappa_, pair_.block, here, pair_.view(), z_.data(),
                              nullptr);
    grows = step.bound > kappa_;
  }
  if (!small && !grows) return false;
  if (!free) {
    ++statistics_.bad_delayed;
    return false;
  }
  ++(small ? statistics_.delayed_eigenvalue_2x2 : statistics_.delayed_pairs);
  put_off(slot);
  // A partner that stands further back comes up again in its turn.
  if (partner == slot + 1) {
    if (options_.postponing == Postponing::skip) row_.diagonal = row2_.diagonal;
    put_off(partner);
  }
  return true;
}

/// @return slots that are done with
template <class T>
int Elimination<T>::eliminate_pair(int slot, int partner) {
  const int slots = partner == slot + 1 ? 2 : 1;
  merge_rows(slot, partner, pair_.block.e);
  CondestStep<T, 2> step;
  if (put_off_pair(slot, partner, step)) return slots;
  if (step.taken) {
    condest_take(pair_.view(), step.mu, z_.data());
    statistics_.norm = std::max(statistics_.norm, step.bound);
  }
  if (slots == 1) ++statistics_.exchanges;
  store_pair(slot, partner);
  return slots;
}

// ---- dropping and storing -------------------------------------------------------------------

/// @param size     of the pivot
/// @param largest  entry behind it
template <class T>
double Elimination<T>::threshold(double size, double largest) {
  double tau = options_.drop * size;
  if (options_.drop_style == DropStyle::inverse)
    tau = largest > 0 ? tau / (std::max(statistics_.norm, 1.0) * largest) : 0;
  statistics_.largest_threshold = std::max(statistics_.largest_threshold, tau);
  return tau;
}

/// Brings the largest candidates to the front, as many as the limit allows.
template <class T>
void Elimination<T>::clip(std::size_t& kept) {
  const auto limit = static_cast<std::size_t>(per_row_);
  kept = candidates_.size();
  if (kept <= limit) return;
  std::nth_element(candidates_.begin(), candidates_.begin() + per_row_, candidates_.end(),
                   [](const Candidate& a, const Candidate& b) {
                     return a.size > b.size || (a.size == b.size && a.column < b.column);
                   });
  statistics_.clipped += static_cast<std::int64_t>(kept - limit);
  ++statistics_.clipped_rows;
  kept = limit;
}

/// The effect of a dropped entry on the target goes on the two diagonals.
template <class T>
void Elimination<T>::compensate(int row, int column_slot, T value) {
  if (compensation_.empty()) return;
  const int column = rows_.row_of_slot(column_slot);
  const T ratio = divide(target_[column], target_[row]);
  compensation_[row] += product(value, ratio);
  compensation_[column] += divide(value, ratio);
}

template <class T>
void Elimination<T>::count_signs(double pivot) {
  ++(pivot > 0 ? f_.npos : f_.nneg);
}

template <class T>
void Elimination<T>::accept_slot(int slot) {
  slot_of_pivot_[f_.pivots++] = slot;
  rows_.finish_slot(slot);
}

template <class T>
void Elimination<T>::store_single(int slot) {
  const int row = rows_.row_of_slot(slot), k = f_.pivots;
  double largest = 0;
  for (int p = 0; p < row_.length(); ++p)
    largest = std::max(largest, magnitude(row_.values()[p]));
  const double tau = threshold(magnitude(row_.diagonal), largest);
  candidates_.clear();
  for (int p = 0; p < row_.length(); ++p) {
    const double size = magnitude(row_.values()[p]);
    if (size > tau)
      candidates_.push_back({size, row_.columns()[p], p});
    else
      compensate(row, row_.columns()[p], row_.values()[p]);
  }
  statistics_.entries_1x1 += row_.length();
  statistics_.dropped_1x1 += row_.length() - static_cast<std::int64_t>(candidates_.size());
  std::size_t kept;
  clip(kept);
  for (std::size_t p = kept; p < candidates_.size(); ++p)
    compensate(row, candidates_[p].column, row_.values()[candidates_[p].at]);
  candidates_.resize(kept);
  std::sort(candidates_.begin(), candidates_.end(),
            [](const Candidate& a, const Candidate& b) { return a.column < b.column; });
  T d = row_.diagonal;
  if (!compensation_.empty()) {
    d += compensation_[row];
    if (d == T()) perturb(slot, d);
  }
  f_.d[k] = d;
  statistics_.smallest_diagonal = std::min(statistics_.smallest_diagonal, magnitude(d));
  if constexpr (!is_complex_v<T>) {
    count_signs(d);
    statistics_.sign_changes += original_diagonal_[row] * d < 0 ? 1 : 0;
  }
  int* const column = f_.column.extend(static_cast<std::int64_t>(kept));
  T* const value = f_.value.extend(static_cast<std::int64_t>(kept));
  const T reciprocal = divide(T(1), d);
  for (std::size_t p = 0; p < kept; ++p) {
    column[p] = candidates_[p].column;
    value[p] = product(row_.values()[candidates_[p].at], reciprocal);
  }
  f_.start.push_back(f_.column.size());
  accept_slot(slot);
  rows_.advance(slot);
  rows_.stored(k);
}

template <class T>
void Elimination<T>::store_pair(int slot, int partner) {
  const int row = rows_.row_of_slot(slot), row2 = rows_.row_of_slot(partner), k = f_.pivots;
  PivotBlock<T, 2>& block = pair_.block;
  const auto size_at = [this](std::size_t p) {
    return std::max(magnitude(pair_.value[0][p]), magnitude(pair_.value[1][p]));
  };
  double largest = 0;
  for (std::size_t p = 0; p < pair_.column.size(); ++p) largest = std::max(largest, size_at(p));
  const double tau =
      threshold(std::max({magnitude(block.d), magnitude(block.e), magnitude(block.f)}), largest);
  const auto drop = [&](int at) {
    compensate(row, pair_.column[at], pair_.value[0][at]);
    compensate(row2, pair_.column[at], pair_.value[1][at]);
  };
  candidates_.clear();
  for (std::size_t p = 0; p < pair_.column.size(); ++p) {
    const double size = size_at(p);
    if (size > tau)
      candidates_.push_back({size, pair_.column[p], static_cast<int>(p)});
    else
      drop(static_cast<int>(p));
  }
  const auto entries = static_cast<std::int64_t>(pair_.column.size());
  statistics_.entries_2x2 += 2 * entries;
  statistics_.dropped_2x2 += 2 * (entries - static_cast<std::int64_t>(candidates_.size()));
  std::size_t kept;
  clip(kept);
  for (std::size_t p = kept; p < candidates_.size(); ++p) drop(candidates_[p].at);
  candidates_.resize(kept);
  std::sort(candidates_.begin(), candidates_.end(),
            [](const Candidate& a, const Candidate& b) { return a.column < b.column; });
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
  int* const column = f_.column.extend(2 * static_cast<std::int64_t>(kept));
  T* const value = f_.value.extend(2 * static_cast<std::int64_t>(kept));
  for (std::size_t p = 0; p < kept; ++p) {
    const T rhs[2] = {pair_.value[0][candidates_[p].at], pair_.value[1][candidates_[p].at]};
    T solution[2];
    block.solve(rhs, solution);
    column[2 * p] = column[2 * p + 1] = candidates_[p].column;
    value[2 * p] = solution[0];
    value[2 * p + 1] = solution[1];
  }
  f_.start.push_back(f_.column.size());
  f_.start.push_back(f_.column.size());
  accept_slot(slot);
  accept_slot(partner);
  rows_.advance(slot);
  if (partner == slot + 1) rows_.advance(partner);
  rows_.stored(k);
}

// ---- what is left -----------------------------------------------------------------------------

template <class T>
void Elimination<T>::build_schur() {
  const int end = n_ + rows_.delayed();
  for (int slot = schur_from_; slot < end; ++slot)
    if (!rows_.finished(slot)) schur_slots_.push_back(slot);
  UpperRows<T>& S = result_.schur;
  S.n = static_cast<int>(schur_slots_.size());
  S.start.reserve(static_cast<std::size_t>(S.n) + 1);
  S.start.push_back(0);
  for (int r = 0; r < S.n; ++r) {
    const int slot = schur_slots_[r];
    rows_.gather(slot, row_);
    T d = row_.diagonal;
    if (!compensation_.empty()) d += compensation_[rows_.row_of_slot(slot)];
    candidates_.clear();
    for (int p = 0; p < row_.length(); ++p)
      if (!(magnitude(row_.values()[p]) <= options_.schur_drop))
        candidates_.push_back({0, row_.columns()[p], p});
    std::sort(candidates_.begin(), candidates_.end(),
              [](const Candidate& a, const Candidate& b) { return a.column < b.column; });
    const auto count = static_cast<std::int64_t>(candidates_.size());
    int* const column = S.column.extend(count + 1);
    T* const value = S.value.extend(count + 1);
    column[0] = slot;
    value[0] = f_.d[f_.pivots + r] = d;
    for (std::int64_t p = 0; p < count; ++p) {
      column[p + 1] = candidates_[p].column;
      value[p + 1] = row_.values()[candidates_[p].at];
    }
    S.start.push_back(S.column.size());
    rows_.advance(slot);
    row_.clear();
  }
}

/// Final positions instead of slots.
template <class T>
void Elimination<T>::place_rows() {
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
void Elimination<T>::finish() {
  place_rows();
  f_.column.shrink();
  f_.value.shrink();
  result_.schur.column.shrink();
  result_.schur.value.shrink();
  statistics_.schur_size = static_cast<int>(schur_slots_.size());
}

}  // namespace

template <class T>
int fill_limit(double max_fill, const UpperRows<T>& A) {
  if (!(max_fill > 0)) return A.n;
  const double limit = max_fill * static_cast<double>(A.full_entries()) / std::max(A.n, 1);
  return limit < A.n ? static_cast<int>(std::lround(limit)) : A.n;
}

template <class T>
IldltResult<T> factorize_ildlt(UpperRows<T>&& A, const IldltOptions& options, const T* target) {
  double seconds = 0;
  IldltResult<T> result;
  {
    const Stopwatch watch(seconds);
    Elimination<T> elimination(std::move(A), options, target);
    result = elimination.run();
  }
  result.statistics.seconds = seconds;
  return result;
}

#define NORV_INSTANTIATE(T)                              \
  template int fill_limit(double, const UpperRows<T>&);  \
  template IldltResult<T> factorize_ildlt(UpperRows<T>&&, const IldltOptions&, const T*)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
