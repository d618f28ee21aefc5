// SPDX-License-Identifier: BSD-3-Clause
/// The diagonal scaling that brings an old factor closer to a new matrix.
///
/// Where coefficients change smoothly in space, the new matrix is about S A S with the old A and
/// the S that makes the diagonals agree, and S^-1 A^-1 S^-1 is a better preconditioner than A^-1.
/// A shift of the diagonal is no such change.  Which of the two it is, is told by the sums of the
/// rows beside the diagonal.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "base/memory.hpp"

namespace vlm {

/// Diagonal and sums of absolute values beside it, row by row, of the matrix that was factored.
class RowSizes : public TellsItsSize {
 public:
  /// Takes the figures of a positive definite matrix.
  void measure(const InputMatrix& matrix, const MatrixType& type);

  /// How the figures of a matrix on the same pattern differ.  At most two passes over it.
  /// @param scale  [2n], out: S^-1, twice, as the scalings of a matching are given to a solve
  /// @return whether S explains most of the difference; if not `scale` has no meaning
  bool rescale(const InputMatrix& matrix, const MatrixType& type, double* scale) const;

  std::size_t bytes() const { return figures_.size() * sizeof(double); }

 private:
  Vector<double> figures_;  ///< [2n]: diagonal, sums
};

}  // namespace vlm
