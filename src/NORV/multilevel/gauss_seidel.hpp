// SPDX-License-Identifier: BSD-3-Clause
/// Gauss-Seidel sweeps as the smoother of a multigrid level.
///
/// The rows are cut into one part a thread.  Inside of a part a sweep uses the newest values,
/// across parts those from before it, and half of what a row holds outside of its part is added to
/// its diagonal entry, so that the sweep converges for every symmetric positive definite matrix (A.
/// H. Baker, R. D. Falgout, T. V. Kolev, U. M. Yang, "Multigrid smoothers for ultraparallel
/// computing", 2011).  A result depends on the number of parts only, and a backward sweep is the
/// transpose of a forward one.
///
/// A correction sweep, which the way down through the levels is made of, leaves the residual as it
/// goes.  With a symmetric matrix it reads the entries left of the diagonal alone.
#pragma once

#include "NORV/corelib/smat_rows.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

template <class T>
class GaussSeidel {
 public:
  GaussSeidel() = default;
  /// @param A          square, both triangles stored, rows sorted; must live as long
  /// @param symmetric  A is its own transpose, up to rounding
  GaussSeidel(const Rows<T>& A, bool symmetric);

  /// x := x + M^-1 r and r := r - A M^-1 r, with M the lower triangle.
  /// @param fresh   x is taken as zero and only written
  /// @param change  scratch
  void correct(T* x, T* r, T* change, bool fresh) const;
  /// A backward sweep: x := x + M^-T (b - A x).
  /// @param before  scratch
  void backward(const T* b, T* x, T* before) const;

 private:
  int parts() const { return static_cast<int>(begin_.size()) - 1; }
  void correct_part(int part, T* x, T* r, T* change, bool fresh) const;
  void finish_part(int part, T* r, const T* change) const;
  void backward_part(int part, const T* b, T* x, const T* before) const;
  template <class F>
  void for_each_part(const F& f) const;

  Rows<T> A_{};
  bool symmetric_ = false;
  Vector<int> begin_;     ///< [parts+1] rows of the parts
  Vector<int> upper_;     ///< [n] place of the first entry at or right of the diagonal
  Vector<T> inverse_;     ///< [n] of the diagonal entry with its addition; 0: the row is left alone
  Vector<int> crossing_;  ///< rows with entries outside of their part
};

}  // namespace vlm::norv
