// SPDX-License-Identifier: BSD-3-Clause
/// The small dense problem of a cycle of GMRES: min || c - H y ||, column by column, and the
/// harmonic Ritz vectors of H over a restart (R. B. Morgan, GMRES with deflated restarting, 2002).
///
/// H has one row more than columns.  Behind a deflated restart its leading columns are full,
/// further ones reach one row below the diagonal.  Plane rotations turn it upper triangular, so
/// that the residual of the problem is known after each column.
#pragma once

#include "NORV/corelib/base.hpp"

namespace vlm {

/// Column-major.
template <class T>
struct DenseColumns {
  int rows = 0, columns = 0;
  Buffer<T> values;

  DenseColumns() = default;
  DenseColumns(int m, int n)
      : rows(m),
        columns(n),
        values(static_cast<std::size_t>(m) * static_cast<std::size_t>(n), T{}) {}
  T* column(int j) { return values.data() + std::ptrdiff_t{j} * rows; }
  const T* column(int j) const { return values.data() + std::ptrdiff_t{j} * rows; }
};

template <class T>
class SmallProblem {
 public:
  /// @param most  columns
  explicit SmallProblem(int most) : most_(most) {}

  int columns() const { return columns_; }
  void forget() {
    columns_ = 0;
    H_.clear();
  }
  /// Begins a cycle with the residual along the first basis vector, or in the basis that was kept:
  /// columns()+1 coordinates.
  void begin(T residual);
  void begin(const Buffer<T>& coordinates);
  /// Room for the next column: columns()+2 zeros to be filled.
  T* new_column();
  /// Takes it.  @return the norm of the residual of the small problem
  double enter_column();
  /// Whether the last column depends on the others.
  bool singular() const;
  /// y; 0 along a column that depends on the others.
  Buffer<T> solve() const;
  /// Replaces H by its form in the basis V P, where P, columns()+1 by k+1, has harmonic Ritz
  /// vectors of the k smallest values, and the residual of y last.  k grows by one where it would
  /// part a conjugate pair.  @return P, without columns where there is none
  DenseColumns<T> keep_smallest(int k, const Buffer<T>& y);

 private:
  struct Rotation {
    int row;  ///< and the next one
    T c, s;
  };
  void rotate(T* column) const;
  void reduce(T* column, int upper);
  DenseColumns<T> ritz_vectors(int k) const;

  int most_, columns_ = 0;
  Buffer<Buffer<T>> H_, R_;  ///< by columns; as it is, and rotated
  Buffer<T> c_, g_;          ///< right-hand side, and rotated
  Buffer<Rotation> rotations_;
};

}  // namespace vlm
