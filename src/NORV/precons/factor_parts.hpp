// SPDX-License-Identifier: BSD-3-Clause
/// An incomplete factor cut into parts, so that threads sweep side by side.
///
/// Pivots that are no ancestors of one another in the elimination tree of the factor's own pattern
/// don't meet: subtrees of about equal work become parts, what is above them the top.  Each part,
/// and the top, is a factor of its own over the rows that it touches; a part's effect on the rows
/// of the top is summed up in the part, and added part by part.  The number of parts is fixed, so
/// that a sweep does not depend on the number of threads.
#pragma once

#include "NORV/precons/ldlt_factor.hpp"

namespace vlm::norv {

template <class T>
class FactorParts {
 public:
  FactorParts() = default;
  /// Cuts a factor, which is copied.  Takes time and transient memory linear in its entries.
  explicit FactorParts(const LdltFactor<T>& factor);

  bool empty() const { return parts_.empty(); }

  /// solve_forward() and solve_diagonal_backward() of the whole factor.
  void forward(T* y, int threads);
  void diagonal_backward(T* y, int threads);

 private:
  /// Its pivots, then the rows of the top that they touch.
  struct Part {
    LdltFactor<T> factor;
    Vector<int> position;  ///< of each row in the whole factor
    Vector<T> y;
    void load(const T* whole, int from, int to) {
      for (int i = from; i < to; ++i) y[i] = whole[position[i]];
    }
    void store(T* whole) const {
      for (int i = 0; i < factor.pivots; ++i) whole[position[i]] = y[i];
    }
  };

  static Part cut(const LdltFactor<T>& whole, const Vector<int>& owner, int number,
                  Vector<int>& local);

  Vector<Part> parts_;
  Part top_;
};

}  // namespace vlm::norv
