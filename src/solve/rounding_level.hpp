// SPDX-License-Identifier: BSD-3-Clause
/// Whether solutions leave residuals that refinement would not lessen much.
///
/// Two things are asked of each right-hand side, both beside |A||x| + |b|, which rounding errors
/// in a residual are a small multiple of (Oettli and Prager, "Compatibility of approximate solution
/// of linear equations with given error bounds for coefficients and right-hand sides", 1964): that
/// the residual as a whole is one of rounding, and that no row is far from it.
#pragma once

#include <cstddef>

#include "base/amuxy.hpp"

namespace vlm {

/// The sum of residuals is at most this part of the sum of |A||x| + |b|.
inline constexpr double whole_residual = 4e-16;
/// A row's residual is at most this part of its |A||x| + |b|, and with more than so many rows more by
/// the square root of their number.
inline constexpr double worst_row = 1e-14, many_rows = 1e4;

/// What a test that is not passed leaves of all right-hand sides.
struct LeftOver {
  double* residual = nullptr;  ///< [n, nrhs]; written to by a test that is passed, too
  double* norm = nullptr;      ///< [nrhs] sums of the absolute values of the residuals' doubles
};

/// Doubles of room for the test.
std::size_t rounding_room(int n, int nvals, int nrhs, int nthreads);

/// One pass over the matrix for a group of right-hand sides, or for a single one; without `left` it
/// ends with the first that does not pass.  Groups that passed before another one did not are passed
/// over again for their residuals.  Complex numbers count by the sums of their parts' magnitudes,
/// which on the side of |A||x| are halved, so that a test that is passed holds for the moduli.
/// @param x, b  n by nrhs, in
/// @param room  rounding_room() doubles, written to
/// @param left  where residuals are wanted, which a refinement begins with
bool at_rounding_level(const SparseProduct& product, int nrhs, const double* x, const double* b,
                       double* room, const LeftOver& left = {});

}  // namespace vlm
