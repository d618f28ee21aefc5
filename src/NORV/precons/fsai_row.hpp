// SPDX-License-Identifier: BSD-3-Clause
/// One or two rows of a factored approximate inverse, see fsai.hpp.
#pragma once

#include "NORV/precons/fsai.hpp"

namespace vlm::norv {

/// A 1x1 or 2x2 pivot with its rows of G.
template <class T>
struct FsaiBlock {
  int count = 0;
  int row[2] = {-1, -1};
  Vector<int> pattern;
  Vector<T> g;  ///< pattern.size() a row, the one after the other
  T d11{}, d21{}, d22{};
  double quality = 0;  ///< one over the largest entry of D^-1, of the scaled matrix
  double growth = 0;   ///< largest entry of its rows of G, of the scaled matrix
};

/// Forms blocks, whose patterns have the rows of those that were taken before.
template <class T>
class FsaiRows {
 public:
  FsaiRows(const Rows<T>& A, const FsaiOptions& options);

  /// Fills the block of these rows; j -1: of one.
  void form(int i, int j, FsaiBlock<T>& block);
  /// From now on its rows are in patterns.
  void take(const FsaiBlock<T>& block);
  bool taken(int i) const { return taken_[i] != 0; }
  /// The row that is not taken with the largest coupling of row i; -1: there is none.
  int partner_of(int i) const;
  /// Square root of the largest entry of a row: what its unknown is scaled by.
  double weight(int i) const { return weight_[i]; }

  double pattern_seconds = 0, build_seconds = 0, solve_seconds = 0;

 private:
  void by_paths(FsaiBlock<T>& block, int steps, bool through_taken);
  void by_growth(FsaiBlock<T>& block);
  bool grow(FsaiBlock<T>& block, int most);
  void solve(FsaiBlock<T>& block);
  void drop(FsaiBlock<T>& block) const;
  void form_pivot(FsaiBlock<T>& block);
  template <class F>
  void with_places(const FsaiBlock<T>& block, const F& f);
  double scaled(int i, int k) const {
    return magnitude(A_.a[k]) / (weight_[i] * weight_[A_.ja[k]]);
  }

  const Rows<T> A_;
  const FsaiOptions options_;
  Vector<double> weight_, diagonal_;  ///< diagonal_: moduli, of a zero the square of the weight
  Vector<char> taken_;
  Vector<int> place_, touched_, mark_;
  int stamp_ = 0;
  Vector<T> matrix_, rhs_, work_, residual_;
  Vector<double> gain_;
  Vector<int> chosen_;
};

}  // namespace vlm::norv
