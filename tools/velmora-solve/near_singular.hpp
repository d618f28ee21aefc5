// SPDX-License-Identifier: BSD-3-Clause
/// Whether a symmetric or Hermitian matrix has an eigenvalue that is next to nothing.
#pragma once

#include "system.hpp"

namespace tool {

/// True when an eigenvalue is below 1e-14 of the largest, and a vector was found that shows it.
///
/// The vector v shows it with |A v| / |v|, which is at least the smallest eigenvalue, beside the
/// longest column of A, which is at most the largest.  It is sought by two steps of inverse
/// iteration with a factor that replaces next to nothing: an analysis, a factorization, two solves.
/// @param mtype  type with an inertia, in whose storage the matrix is
bool is_near_singular(const SparseMatrix& matrix, int mtype, int threads);

}  // namespace tool
