// SPDX-License-Identifier: BSD-3-Clause
/// The factor that an incomplete factorization builds: rows are thinned out and stored, what is
/// dropped is made up for, what is left becomes the Schur complement, slots become positions.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "NORV/precons/ildlt.hpp"
#include "NORV/precons/ildlt_rows.hpp"

namespace vlm::norv {

/// Eigenvalues of [d e; e f]: the smaller magnitude, and how many are negative.
struct BlockEigenvalues {
  double smallest = 0;
  int negative = 0;
};
inline BlockEigenvalues eigenvalues(double d, double e, double f) {
  const double middle = 0.5 * (d + f), radius = std::hypot(0.5 * (d - f), e);
  const double large = middle < 0 ? middle - radius : middle + radius;
  const double small = large != 0 ? (d * f - e * e) / large : 0;  // without cancellation
  return {std::min(std::fabs(large), std::fabs(small)), (large < 0) + (small < 0)};
}

template <class T>
bool is_singular(const PivotBlock<T, 2>& block) {
  return block.e == T() || product(block.d, block.f) == product(block.e, block.e);
}

/// The two rows of a 2x2 candidate over the union of their columns.
template <class T>
struct PairedRows {
  Vector<int> column;
  Vector<T> value[2];
  PivotBlock<T, 2> block{};
  PivotRows<T, 2> view() const {
    return {static_cast<int>(column.size()), column.data(), {value[0].data(), value[1].data()}};
  }
};

template <class T>
class FactorStore {
 public:
  FactorStore(UpperRows<T>&& A, const IldltOptions& options, const T* target);

  UnfinishedRows<T>& rows() { return rows_; }
  IldltStatistics& statistics() { return result_.statistics; }
  /// Diagonal entry of a row as the matrix gives it.
  T original_diagonal(int row) const { return original_diagonal_[row]; }

  /// Replaces a pivot that is too small, where it is to be replaced, or that is zero.
  bool perturb(int slot, T& d);
  /// Takes the rows over as pivots; the slots are finished.
  void store_single(int slot, const GatheredRow<T>& row);
  void store_pair(int slot, int partner, PairedRows<T>& pair);
  /// Forms the Schur complement of the slots from there on.
  void build_schur(int from, GatheredRow<T>& row);
  /// Final positions instead of slots.  Nothing is left here.
  IldltResult<T> finish();

 private:
  /// An entry that may be kept.
  struct Candidate {
    double size;
    int column, at;  ///< its slot; its place in the row
  };

  UpperRows<T>&& prepare(UpperRows<T>&& A);
  double threshold(double size, double largest);
  std::size_t clip();
  static void sort_by_column(Vector<Candidate>& entries);
  void compensate(int row, int column_slot, T value);
  bool is_precious(int row) const { return options_.precious && options_.precious[row]; }
  void check_positive(int row, T d) const;
  bool takes_left_out() const { return options_.second_drop >= 0; }
  void leave_out(std::size_t kept, double tau);
  template <int W, class Rows, class F>
  void store_rows(const Vector<Candidate>& entries, Rows& rows, F values_of);
  void select_single(int row, const GatheredRow<T>& entries, double tau);
  void select_pair(int row, int row2, const PairedRows<T>& pair, double tau);
  void accept_slot(int slot);
  void store_schur_row(int position, const GatheredRow<T>& row, T diagonal);
  void place_rows();

  const IldltOptions options_;
  const int n_;
  const int per_row_;
  const T* target_;
  Vector<T> compensation_;     ///< by row of the matrix: what goes on the diagonal
  Vector<int> slot_of_pivot_;  ///< by position
  Vector<Candidate> candidates_;
  Vector<Candidate> left_;       ///< entries that take part in the updates alone
  Vector<T> original_diagonal_;  ///< by row of the matrix
  Vector<int> schur_slots_;
  IldltResult<T> result_;
  LdltFactor<T>& f_ = result_.factor;
  IldltStatistics& statistics_ = result_.statistics;
  UnfinishedRows<T> rows_;
};

}  // namespace vlm::norv
