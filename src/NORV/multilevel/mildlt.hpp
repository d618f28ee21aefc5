// SPDX-License-Identifier: BSD-3-Clause
/// Multilevel incomplete LDL^T: the rows that a level postpones are the next level.
///
/// A level is ordered, scaled and factorized incompletely; what has been delayed remains as a Schur
/// complement, is thinned out and becomes the next level; the last one goes to the direct solver,
/// as does a dense remainder of a level that eliminates hardly a quarter of its rows
/// (M. Bollhoefer, Y. Saad, "Multilevel preconditioners constructed from inverse-based ILUs",
/// 2006).
///
/// An application runs through the levels and back: each entry of a factor is read twice.
#pragma once

#include <memory>

#include "NORV/precons/factor_parts.hpp"
#include "NORV/precons/ildlt.hpp"
#include "NORV/precons/preorder.hpp"
#include "norv/direct.h"

namespace vlm::norv {

/// What the target of a compensation is.
enum class Compensation : int { none = 0, target = 1, eigenvector = 2 };

struct MildltOptions {
  IldltOptions factor;  ///< keep_schur and schur_drop are set by the setup
  double schur_drop = 1e-4;
  Preordering preordering = Preordering::metis_matched;
  int max_levels = 10;
  int min_level_size = 5000;
  Compensation compensation = Compensation::none;
};

/// What a setup found.
struct MildltTotals {
  std::int64_t entries = 0;
  std::int64_t positive = 0, negative = 0, perturbed = 0;
};

/// What a setup passes on to a later one of the same pattern.
struct KeptOrders {
  Vector<KeptOrder> level;
  KeptOrder coarse;  ///< without scaling
  /// Rows of the matrix that they are for.
  std::size_t size() const { return (level.empty() ? coarse : level.front()).order.place.size(); }
};

/// Coarsest level: its matrix and the direct solver's factor of it.
class CoarseLevel {
 public:
  CoarseLevel() = default;
  /// Takes the matrix over.
  /// @param options  see norv_velmora_analyse_iparam()
  explicit CoarseLevel(smat* A, const char* options = nullptr);
  /// @param order  see factorize_in_order()
  CoarseLevel(smat* A, Vector<int>& order);
  ~CoarseLevel();
  CoarseLevel(const CoarseLevel&) = delete;
  CoarseLevel& operator=(const CoarseLevel&) = delete;

  const smat* matrix() const { return matrix_; }
  std::int64_t entries() const;
  /// x := A^-1 x, as many values as A has rows, doubles or pairs of them.
  void solve(double* x);

 private:
  smat* matrix_ = nullptr;
  direct_factorization* factor_ = nullptr;
  vec* x_ = nullptr;
};

template <class T>
class Mildlt {
 public:
  /// Sets the levels up.
  /// @param A       symmetric, upper triangle stored; not needed afterwards
  /// @param target  by row of A, for Compensation::target
  /// @param kept    orders of an earlier setup with the same pattern; empty: found here
  Mildlt(const smat* A, const MildltOptions& options, const vec* target, KeptOrders&& kept);

  /// y := B x.
  void apply(const T* x, T* y);

  const MildltTotals& totals() const { return totals_; }
  /// Levels, the coarsest one included.
  int levels() const { return static_cast<int>(levels_.size()) + (coarse_ ? 1 : 0); }
  const LdltFactor<T>& factor(int level) const { return levels_[level].factor; }
  int incomplete_levels() const { return static_cast<int>(levels_.size()); }
  const smat* coarse_matrix() const { return coarse_ ? coarse_->matrix() : nullptr; }
  /// Bytes of the factors that an application reads, without the direct solver's.
  std::int64_t sweep_bytes() const;

  /// The orders of the levels, which a later setup of the same pattern may take; they are gone
  /// from here then.
  KeptOrders take_orders() { return std::move(orders_); }

 private:
  struct Level {
    int m = 0;                ///< rows
    LdltFactor<T> factor;     ///< without entries where there are parts
    FactorParts<T> parts;     ///< for several threads
    Vector<int> place;        ///< [m] position of a row, delays included
    Vector<int> row;          ///< [m] its inverse: both ends of an application gather
    Vector<double> scale;     ///< [m] by row
    Vector<double> scale_at;  ///< [m] by position
    Vector<T> work;           ///< [m]
  };

  UpperRows<T> add_level(UpperRows<T>&& A, const LevelOrder& order, const MildltOptions& options,
                         Vector<T>& target);
  Vector<int> rows_left() const;
  void report(std::int64_t matrix_entries, double seconds) const;
  void solve_level(std::size_t level, const T* x, T* y);

  Vector<Level> levels_;
  std::unique_ptr<CoarseLevel> coarse_;
  KeptOrders orders_;
  MildltTotals totals_;
};

}  // namespace vlm::norv
