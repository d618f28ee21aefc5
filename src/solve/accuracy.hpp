// SPDX-License-Identifier: BSD-3-Clause
/// How good a solution is: backward errors, a condition estimate, a bound on the error.
///
/// The backward errors tell how much A and b have to change for x to be their exact solution:
/// norm by norm (Rigal and Gaches, On the compatibility of a given solution with the data of a
/// linear system, 1967) and entry by entry (Oettli and Prager, Compatibility of approximate
/// solution of linear equations with given error bounds, 1964).  Rows in which |A||x| + |b| nearly
/// vanishes are judged by the norm of x instead of its entries, as in Arioli, Demmel and Duff,
/// Solving sparse linear systems with sparse backward error, 1989.
///
/// The bound is on the error A^-1 r itself: a solve for the residual r, which is summed up in
/// extended precision, and for what rounding left in r a norm || |A^-1| w ||.  That norm and the
/// condition, with w of ones, are estimated with solves (Hager, Condition estimates, 1984; Higham,
/// FORTRAN codes for estimating the one-norm of a matrix, 1988); the one starts from the row with
/// the largest error.  The factor may belong to a nearby matrix: bound and condition grow by what
/// refinement leaves of the solutions of all these solves.
///
/// Level 1 costs three products, level 2 up to ten solves more.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "solve/refine.hpp"

namespace vlm {

struct AccuracyOptions {
  const MatrixType& type;
  bool transpose = false;
  int level = 0;               ///< 0 nothing, 1 backward errors, 2 also condition and bound
  bool solution_in_b = false;  ///< the right-hand side has to be kept
  int threads = 1;
};

/// iparm(41).
enum AccuracyVerdict : int {
  verdict_none = -1,    ///< nothing was measured
  verdict_good = 0,     ///< small backward error, no pivot replaced, at least six digits certain
  verdict_nearby = 1,   ///< the solution of a nearby system; the bound tells how near
  verdict_useless = 2,  ///< large backward error, or not one digit certain
};

/// Errors are the largest over the right-hand sides; NaN where the solution has one.
struct Accuracy {
  double normwise = 0;       ///< max|r| / (|A| max|x| + max|b|), |A| the largest row sum
  double componentwise = 0;  ///< max of |r| / (|A||x| + |b|), over the two kinds of rows, summed
  double entrywise = 0;      ///< componentwise, the rows of small |A||x| judged like the others
  double condition = 0;      ///< |A| |A^-1|, largest row sums
  double bound = 0;          ///< on max|x - x*| / max|x|
  double contraction = 0;    ///< what a step of refinement leaves: how far the factor is from A
  AccuracyVerdict verdict = verdict_none;
};

struct AccuracyCall {
  const AccuracyOptions& options;
  InputMatrix matrix;
  int nrhs = 1;
  const double* b = nullptr;   ///< right-hand sides as the caller gave them, n by nrhs
  const double* x = nullptr;   ///< their solutions, n by nrhs
  int perturbed = 0;           ///< replaced pivots of the factor
  const SolveStep& solve;      ///< with the factor
  const SolveStep& transpose;  ///< with its transpose
  double* work = nullptr;      ///< what keep_rhs() leaves of accuracy_bytes() bytes
};

/// Right-hand sides that are measured at once, the most that a solve is asked for.
inline constexpr int accuracy_block = 4;

/// Bytes of work, a multiple of sizeof(double).
std::size_t accuracy_bytes(const AccuracyOptions& options, int n, int nrhs);

/// Before the solve: where the right-hand side can be read after it.  Copies b to the work, and
/// moves the work behind it, when the solution overwrites b.
const double* keep_rhs(const AccuracyOptions& options, int n, int nrhs, const double* b,
                       double*& work);

/// After the solve.  @return status_ok, or the status of a failed solve
int measure_accuracy(const AccuracyCall& call, Accuracy& result);

}  // namespace vlm
