// SPDX-License-Identifier: BSD-3-Clause
/// Componentwise backward error of one solution, row by row; sources in accuracy.hpp.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

namespace vlm {

/// The larger one; NaN when one of them is.
inline double larger(double a, double b) { return b > a || std::isnan(b) ? b : a; }

/// part / whole, where nothing of nothing is 0 and a part of what overflowed can't be told.
inline double ratio(double part, double whole) {
  if (!std::isfinite(whole)) return std::numeric_limits<double>::quiet_NaN();
  return part == 0 ? 0 : part / whole;
}

class RowErrors {
 public:
  /// @param n  number of rows
  explicit RowErrors(std::size_t n) : threshold_(1000.0 * static_cast<double>(n) * 0x1p-53) {}

  /// Adds a row with the magnitudes of its residual r, of ax = |A||x|, of b, and of
  /// by_norm = (sum of its |a|) max|x|.  @return what r is compared with
  double add(double r, double ax, double b, double by_norm) {
    const bool vanishes = !(ax + b > threshold_ * (by_norm + b));
    const double whole = ax + (vanishes ? by_norm : b);
    double& worst = vanishes ? by_norm_ : by_entries_;
    worst = larger(worst, ratio(r, whole));
    if (vanishes) smallest_rows_ = larger(smallest_rows_, ratio(r, ax + b));
    return whole;
  }
  double total() const { return by_entries_ + by_norm_; }
  /// With every row compared with its own entries.  Rounding may leave it at 1 where a row of
  /// |A||x| should vanish.
  double entrywise() const { return larger(by_entries_, smallest_rows_); }

 private:
  double threshold_, by_entries_ = 0, by_norm_ = 0, smallest_rows_ = 0;
};

}  // namespace vlm
