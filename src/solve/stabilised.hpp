// SPDX-License-Identifier: BSD-3-Clause
/// Solves with the factor of another matrix: a Krylov iteration on A x = b whose preconditioner is
/// the factor at hand, begun from the solution that this factor gives.
///
/// Conjugate gradients for types that store a triangle (M. R. Hestenes and E. Stiefel, Methods of
/// conjugate gradients for solving linear systems, 1952), conjugate gradients squared for all
/// types (P. Sonneveld, CGS, a fast Lanczos-type solver for nonsymmetric linear systems, 1989),
/// preconditioned from the right, so that both measure residuals of A x = b itself.  With
/// indefinite matrices conjugate gradients minimise nothing, and may break down; they are the
/// Lanczos recurrence in the form r^H M^-1 r (R. W. Freund and N. M. Nachtigal, A new
/// Krylov-subspace method for symmetric indefinite linear systems, 1994), in r^T M^-1 r where
/// matrices are complex symmetric, and a solve brings them as far as one of CGS.
///
/// All right-hand sides go through a step together, each with scalars of its own.  One that has
/// reached its goal leaves the iteration, after a product has confirmed that its solution has the
/// residual which the recurrence claims; where it does not, the recurrence starts anew from the
/// true residual.  Residuals are kept in units of their first size, so that no square overflows
/// and single-precision factors meet values within their range.
///
/// A step of CG costs one solve and one product, one of CGS two of each.  The step of CGS is taken
/// in the two halves that R. W. Freund (A transpose-free quasi-minimal residual algorithm for
/// non-Hermitian linear systems, 1993) makes of it: the solves are those for u and q, not for p and
/// u + q, so that a solution that is there after the first half costs no more than that.
#pragma once

#include <cstddef>
#include <limits>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "solve/refine.hpp"

namespace vlm {

struct StabiliseOptions {
  const MatrixType& type;
  bool transpose = false;            ///< the system, and what the solve solves
  bool conjugate_gradients = false;  ///< CG, for types that store a triangle; else CGS
  double tolerance = 1e-12;          ///< residual that is sought, as a part of the first solution's
  bool corrected = false;  ///< a step of refinement goes first: the factor is that of the matrix
  double sufficient = 0;   ///< a residual of this part of b is good enough
  int threads = 1;

  int solves_per_step() const { return conjugate_gradients ? 1 : 2; }
};

/// How long an iteration may go on.  Counts include the first solve.
struct IterationLimits {
  int most = 0;         ///< the iteration ends at this count
  int judged_from = 0;  ///< from this count on half of the digits have to be there
  /// Steps that are worth their time.  The iteration ends when its rate promises more than these.
  double affordable = std::numeric_limits<double>::infinity();
};

struct StabiliseCall {
  const StabiliseOptions& options;
  InputMatrix matrix;
  int nrhs = 1;
  const double* b = nullptr;  ///< right-hand sides, n by nrhs
  double* x = nullptr;  ///< n by nrhs; in: the solutions that the factor gives, out: those of A
  /// Where the factor was given the residual of a guess: how much smaller than b that was, a column
  /// each.  Null: the factor was given b.
  const double* gain = nullptr;
  const SolveStep& solve;  ///< with the factor
  double* work = nullptr;  ///< stabilised_bytes() bytes
};

/// Why an iteration ended.  Breakdowns have the numbers 1 to 4, negated as well; CG with an
/// indefinite factor knows the second and the third.
enum IterationCode : int {
  iteration_converged = 0,
  iteration_diverged = -1,      ///< residual 10^4 times the first one, or NaN; CG met a direction
                                ///< along which a definite A or its factor is not positive
  iteration_slow = -2,          ///< half of the digits not there in half of the time; not worth it
  iteration_exhausted = -3,     ///< the most steps are done
  iteration_solve_failed = -4,  ///< the solve with the factor did not succeed
  cgs_growth = -1,              ///< residual far from orthogonal to the first one
  cgs_stagnation = -2,          ///< no new direction
  cgs_breakdown = -3,           ///< direction orthogonal to the first residual
  cgs_standstill = -4,          ///< step of no length
};

struct IterationResult {
  int count = 0;   ///< the first solve and the steps
  int code = 0;    ///< IterationCode
  int status = 0;  ///< of the solve that failed

  bool converged() const { return code == iteration_converged; }
  /// iparm(20): the count, or the code and the count of a failure.
  int figure() const { return converged() ? count : code - 10 * count; }
};

/// Bytes of work, a multiple of sizeof(double).
std::size_t stabilised_bytes(const StabiliseOptions& options, int n, int nrhs);

/// Improves x until the residual of every column is the tolerance times that of its first value,
/// or it is sufficient, or one of rounding: 128 unit roundoffs of |A||x| + |b|, in Euclidean norms.
/// After a failure x is the last iterate.  b is not changed.
IterationResult stabilise(const StabiliseCall& call, const IterationLimits& limits);

}  // namespace vlm
