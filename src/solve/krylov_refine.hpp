// SPDX-License-Identifier: BSD-3-Clause
/// Refinement of one solution that is judged row by row, plain and by a Krylov method.
///
/// The plain loop goes on as long as the componentwise backward error contracts.  Where it does
/// not, flexible GMRES with the factor as preconditioner does (Saad, A flexible inner-outer
/// preconditioned GMRES algorithm, 1993; Arioli and Duff, Using FGMRES to obtain backward
/// stability in mixed precision, 2009): a factor of a matrix that differs from A in k perturbed
/// pivots is repaired in about k + 1 steps, however large the perturbations.  Each row of the
/// residual is weighted by the terms that it is compared with, so that what the method minimizes
/// is what decides.
///
/// A step costs one solve and one product; a restart two products more.  Memory: 61 vectors.
#pragma once

#include <memory>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "base/memory.hpp"
#include "solve/refine.hpp"

namespace vlm {

/// How good a solution is.
struct ColumnError {
  double componentwise = 0;  ///< backward error; infinity where it is not a number
  double entrywise = 0;      ///< the same with the rows of small |A||x| judged like the others

  bool reaches(double target) const { return componentwise <= target; }
  bool reaches_all(double target) const { return reaches(target) && entrywise <= target; }
  /// Rows of small |A||x| count once the others are good.
  bool better_than(const ColumnError& other, double target) const {
    if (reaches(target) && other.reaches(target)) return entrywise < other.entrywise;
    return componentwise < other.componentwise;
  }
};

/// A matrix whose systems are refined column by column; x and b are one column each.
class ColumnRefiner : public TellsItsSize {
 public:
  virtual ~ColumnRefiner() = default;

  virtual ColumnError error(const double* b, const double* x) = 0;

  /// Refines x while one of its errors is above the target and contracts.  @return error of x
  virtual ColumnError refine(const SolveStep& solve, const double* b, double* x, double target) = 0;

  /// Likewise the componentwise error, by flexible GMRES with so many restarts at most.
  virtual ColumnError refine_by_krylov(const SolveStep& solve, const double* b, double* x,
                                       double target, int restarts) = 0;
};

/// @param transpose  systems with the transposed matrix are meant; full storage only
std::unique_ptr<ColumnRefiner> column_refiner(const MatrixType& type, const InputMatrix& matrix,
                                              bool transpose, int threads);

}  // namespace vlm
