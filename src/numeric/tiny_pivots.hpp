// SPDX-License-Identifier: BSD-3-Clause
/// Signs of D, or of squared Cholesky pivots, that are no more than rounding errors.
///
/// The pivot d(k) is an entry of A less s(k) = sum of |l(k,j)|^2 |d(j)|, and carries an error of
/// some roundings of s(k).  One that is not larger than that has the sign of its error.  Its size
/// alone says nothing: in a badly scaled matrix a small pivot may be as exact as any.  So the sums
/// are formed, for the rows of small pivots only: one pass over L, and none where no pivot is
/// small.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

#include "numeric/family.hpp"

namespace vlm {

/// Finds the pivots of a finished symmetric factor whose signs are doubtful for their size.
template <class T, bool cholesky>
class TinyPivots {
 public:
  explicit TinyPivots(const FactorFrame<T>& frame) : f_(frame) {}

  /// Counts them into `result`, beside those that it has.
  /// @param largest  largest entry of the matrix as it was factored
  void count(double largest, FactorResult& result) {
    find_small(1e2 * tolerance * largest);
    if (small_.empty()) return;
    for (int s = 1; s <= f_.st.nsuper; ++s) add_sums(panel_of(f_.st, f_.store, s));
    for (const Small& pivot : small_) {
      double sum = 0;
      for (int row = 0; row < pivot.order; ++row)
        sum = std::max(sum, sum_[static_cast<std::size_t>(pivot.first + row)]);
      if (!(pivot.size <= tolerance * sum)) continue;
      ++result.doubtful;
      result.doubtful_positive += pivot.positive ? 1 : 0;
    }
  }

 private:
  using Real = decltype(std::abs(T()));
  /// Roundings of the sum that a pivot's error may reach, those of the pivots before it included.
  static constexpr double tolerance = 4096 * std::numeric_limits<Real>::epsilon();

  /// A pivot that may be too small: the smaller eigenvalue of its block.
  struct Small {
    int first, order;  ///< its rows in sum_
    double size;
    bool positive;
  };

  bool eliminated(const Panel<T>& p) const { return p.first <= f_.last_eliminated; }

  void find_small(double limit) {
    for (int s = 1; s <= f_.st.nsuper; ++s) {
      const Panel<T> p = panel_of(f_.st, f_.store, s);
      if (!eliminated(p)) continue;
      bool any = false;
      for (int k = 0; k < p.width; k += order_of(p, k)) {
        const double d = smaller_eigenvalue(p, k);
        if (std::abs(d) > limit || (order_of(p, k) == 1 && std::abs(d) <= f_.eps)) continue;
        if (place_.empty()) place_.assign(static_cast<std::size_t>(f_.st.n) + 1, -1);
        if (!any) find_rows(p);
        any = true;
        small_.push_back({static_cast<int>(sum_.size()), order_of(p, k), std::abs(d), d > 0});
        for (int row = k; row < k + order_of(p, k); ++row) {
          place_[static_cast<std::size_t>(p.first + row_[static_cast<std::size_t>(row)])] =
              static_cast<int>(sum_.size());
          sum_.push_back(0);
        }
      }
    }
  }

  static int order_of(const Panel<T>& p, int k) { return p.pivot[k] > 0 ? 1 : 2; }

  static double smaller_eigenvalue(const Panel<T>& p, int k) {
    const std::ptrdiff_t ld = p.rows;
    const T* const d = p.l + k + k * ld;
    const double d11 = std::real(d[0]);
    if (cholesky) return d11 * d11;
    if (order_of(p, k) == 1) return d11;
    const double d22 = std::real(d[ld + 1]), d21 = std::abs(d[ld]);
    const double mean = (d11 + d22) / 2, spread = std::hypot((d11 - d22) / 2, d21);
    const double far = mean < 0 ? mean - spread : mean + spread;
    return far == 0 ? 0 : d11 * (d22 / far) - d21 * (d21 / far);
  }

  /// Row of the panel, from 0, that stands at each place of its block after the exchanges.
  void find_rows(const Panel<T>& p) {
    row_.resize(static_cast<std::size_t>(p.width));
    std::iota(row_.begin(), row_.end(), 0);
    for (int k = 0; k < p.width; ++k) {
      const int place = std::abs(p.pivot[k]) - 1, front = p.pivot[k] < 0 ? ++k : k;
      std::swap(row_[static_cast<std::size_t>(front)], row_[static_cast<std::size_t>(place)]);
    }
  }

  /// Adds what the columns of a panel took off the rows of small pivots.
  void add_sums(const Panel<T>& p) {
    if (!eliminated(p)) return;
    found_.clear();
    const bool own = has_own(p);
    if (own) find_rows(p);
    for (int i = 0; i < p.rows; ++i) {
      const int row =
          i < p.width ? (own ? p.first + row_[static_cast<std::size_t>(i)] : 0) : p.row[i];
      if (const int at = place_[static_cast<std::size_t>(row)]; at >= 0) found_.push_back({i, at});
    }
    for (const Found& found : found_)
      for (int k = 0; k < std::min(found.offset, p.width); k += order_of(p, k))
        sum_[static_cast<std::size_t>(found.place)] += taken_off(p, k, found.offset);
  }

  bool has_own(const Panel<T>& p) const {
    for (int k = 0; k < p.width; ++k)
      if (place_[static_cast<std::size_t>(p.first + k)] >= 0) return true;
    return false;
  }

  /// |l|^2 |d| of row i, 1x1 or 2x2.
  static double taken_off(const Panel<T>& p, int k, int i) {
    const std::ptrdiff_t ld = p.rows;
    const auto size = [](const T& v) { return static_cast<double>(std::abs(v)); };
    const T* const d = p.l + k + k * ld;
    const double l0 = size(p.l[i + k * ld]);
    if (order_of(p, k) == 1) return l0 * l0 * (cholesky ? 1 : size(d[0]));
    if (i == k + 1) return 0;  // the second row of the pivot itself
    const double l1 = size(p.l[i + (k + 1) * ld]);
    return l0 * l0 * size(d[0]) + 2 * l0 * l1 * size(d[ld]) + l1 * l1 * size(d[ld + 1]);
  }

  struct Found {
    int offset, place;
  };

  const FactorFrame<T>& f_;
  Vector<int> place_;  ///< of each position's sum, -1 where none is formed; 0 is never a position
  Vector<Small> small_;
  Vector<double> sum_;
  Vector<int> row_;
  Vector<Found> found_;
};

}  // namespace vlm
