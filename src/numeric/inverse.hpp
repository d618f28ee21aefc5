// SPDX-License-Identifier: BSD-3-Clause
/// Selected inversion: the entries of the inverse within the pattern of the factor.
#pragma once

#include "base/matrix_types.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

struct InverseOptions {
  const MatrixType& type;
  bool single = false;  ///< the factor is one in single precision
  int threads = 1;      ///< at most
};

/// Wall-clock seconds.
struct InverseTimes {
  double preparation = 0;  ///< plan and scratch
  double separators = 0;   ///< panels near the roots; 0 on one thread
  double domains = 0;
};

/// Replaces the values of a finished factor by those of the inverse of the factored matrix.
///
/// The panels keep their layout; of the diagonal blocks both triangles are written, and the
/// interchanges of the pivoting are undone, so that the entry at row i and column j of the
/// elimination order stands where the factor has its entry (i,j).  The result is the same on any
/// number of threads.  Twice the operations of the factorization.
///
/// All scratch is taken before the first value changes: when its allocation throws, the factor is
/// as it was.
/// @param lu  FACT_L&U, in and out; the pivot records stay
void invert_factor(const InverseOptions& options, const Structure& structure, void* lu,
                   InverseTimes& times);

}  // namespace vlm
