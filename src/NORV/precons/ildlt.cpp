// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T with pivoting, see ildlt.hpp.
#include "NORV/precons/ildlt.hpp"

#include <algorithm>
#include <limits>

#include "NORV/precons/ildlt_store.hpp"
#include "base/clock.hpp"
#include "base/progress.hpp"

namespace vlm::norv {
namespace {

/// Eigenvalues of a real pivot below this, in a scaled matrix, are put off.
constexpr double small_eigenvalue = 0.01;

template <class T>
class Elimination {
 public:
  Elimination(UpperRows<T>&& A, const IldltOptions& options, const T* target)
      : options_(options),
        n_(A.n),
        leading_(options.keep_schur && options.leading >= 0 ? options.leading : n_),
        kappa_(options.kappa > 0 ? options.kappa : std::numeric_limits<double>::max()),
        row_(2 * static_cast<std::size_t>(n_), n_),
        row2_(two_rows() ? 2 * static_cast<std::size_t>(n_) : 0, two_rows() ? n_ : 0),
        z_(options.estimator != Estimator::none ? 2 * static_cast<std::size_t>(n_) : 0),
        store_(std::move(A), options, target) {}

  IldltResult<T> run() {
    const int rest = eliminate();
    if (options_.keep_schur) {
      const Stopwatch watch(statistics_.schur_seconds);
      store_.build_schur(rest, row_);
    }
    return store_.finish();
  }

 private:
  enum class Verdict { accept, put_off, to_schur };

  bool two_rows() const { return options_.pair_choice != PairChoice::none; }
  int slot_limit() const { return options_.keep_schur ? leading_ : n_ + rows_.delayed(); }
  bool may_put_off(int slot) const {
    if (options_.postponing == Postponing::skip) return true;
    return options_.postponing == Postponing::delay && slot < n_ &&
           (slot != slot_limit() - 1 || leading_ < n_);
  }
  PivotRows<T, 1> view() const { return {row_.length(), row_.columns(), {row_.values()}}; }

  int eliminate();
  int choose_partner(int slot);
  bool dominates(T e) const;
  bool eliminate_single(int slot);
  Verdict judge_single(int slot, CondestStep<T, 1>& step);
  Verdict judge_estimate(int slot, CondestStep<T, 1>& step);
  Verdict last_resort(int slot);
  void estimate(int slot, CondestStep<T, 1>& step);
  void put_off(int slot);
  int eliminate_pair(int slot, int partner);
  bool put_off_pair(int slot, int partner, CondestStep<T, 2>& step);
  void merge_rows(int slot, int partner, T e);

  const IldltOptions options_;
  const int n_;
  const int leading_;  ///< rows that are eliminated in their turn
  const double kappa_;
  GatheredRow<T> row_, row2_;  ///< the row at hand and its partner
  PairedRows<T> pair_;
  Vector<T> z_;  ///< by slot, see condest.hpp
  FactorStore<T> store_;
  UnfinishedRows<T>& rows_ = store_.rows();
  IldltStatistics& statistics_ = store_.statistics();
};

// ---- decisions ------------------------------------------------------------------------------

/// @return first slot of the Schur complement
template <class T>
int Elimination<T>::eliminate() {
  int slot = 0;
  while (slot < slot_limit()) {
    if (rows_.finished(slot)) {
      rows_.advance(slot++);
      continue;
    }
    pulse();
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
  return slot;
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
  if (store_.perturb(slot, row_.diagonal) || options_.estimator == Estimator::none)
    return Verdict::accept;
  return judge_estimate(slot, step);
}

template <class T>
typename Elimination<T>::Verdict Elimination<T>::judge_estimate(int slot, CondestStep<T, 1>& step) {
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
  store_.perturb(slot, row_.diagonal);
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
  T d = store_.original_diagonal(slot);
  if (magnitude(d) < options_.pivot_1x1) d = T(options_.pivot_1x1 > 0 ? 1.0 : -1.0);
  row_.clear();
  row_.diagonal = d;
  store_.store_single(slot, row_);
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
  store_.store_single(slot, row_);
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
  store_.store_pair(slot, partner, pair_);
  return slots;
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

#define NORV_INSTANTIATE(T)                             \
  template int fill_limit(double, const UpperRows<T>&); \
  template IldltResult<T> factorize_ildlt(UpperRows<T>&&, const IldltOptions&, const T*)
NORV_INSTANTIATE(double);
NORV_INSTANTIATE(zcomplex);
#undef NORV_INSTANTIATE

}  // namespace vlm::norv
