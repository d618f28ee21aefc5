// SPDX-License-Identifier: BSD-3-Clause
/// LU whose pivots are free to come from the whole column, not from a panel's block alone.
///
/// The panels of the other families are laid out before a value is seen, so that their pivots
/// can't leave a diagonal block and small ones are replaced.  This one finds its structure as it
/// goes (Gilbert and Peierls, Sparse partial pivoting in time proportional to arithmetic
/// operations, 1988): every pivot is at least a tenth of the largest entry it could be, and the
/// one on the matched diagonal is taken where it is large enough, which keeps the fill near that of
/// the order.  It works entry by entry on one thread, many times slower than the panels, and is
/// meant for matrices that they can't factor.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "base/memory.hpp"

namespace vlm {

struct FreeLuInput {
  const MatrixType& type;  ///< full storage
  InputMatrix matrix;
  Matching matching;           ///< row that each column prefers, scalings; null: itself, none
  const int* order = nullptr;  ///< [n] columns in the order of elimination, from 1
  double most_operations = 0;  ///< the factorization is given up beyond
};

class FreeLu {
 public:
  /// Factors the matrix.  A column without a pivot gets one of rounding size, counted.
  /// @return status_ok, status_pivot for values that are no numbers, status_work when it takes
  ///         more than the operations granted
  int factor(const FreeLuInput& input);

  /// out = A^-1 in, or with the transposed matrix; n by nrhs, may be the same array.
  int solve(bool transpose, int nrhs, const double* in, double* out) const;

  int perturbed() const { return perturbed_; }
  std::size_t bytes() const;

 private:
  template <class T>
  friend class FreeLuWork;

  /// Entries of a triangle by columns; values as doubles, two each when complex.
  struct Triangle {
    Vector<std::size_t> start;
    Vector<int> index;
    Vector<double> value;
  };

  bool complex_ = false;
  int n_ = 0, perturbed_ = 0;
  Vector<int> row_, column_;  ///< of A, from 0, that each step eliminates
  Vector<double> scale_;      ///< column factors, then row factors  [2n]
  Triangle lower_, upper_;    ///< lower: columns of A; upper: earlier steps
  Vector<double> pivot_;
};

}  // namespace vlm
