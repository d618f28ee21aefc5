// SPDX-License-Identifier: BSD-3-Clause
/// From the upper triangle of a symmetric matrix to all of its entries, in place.
#pragma once

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "base/memory.hpp"

namespace vlm {

/// Row starts of the full form: entries above the diagonal count twice.  Throws std::length_error
/// when the entries are more than 32 bits count.
/// @param starts  [n+1], from 1, out
/// @return place of the first entry that is not in the upper triangle, from 1; 0: there is none
int full_starts(const InputMatrix& triangle, Vector<int>& starts);

/// Turns the triangle into the full form.  The rows move from the last one on, each to the end of
/// its new place, and their entries are then copied to the columns that they mirror, conjugated
/// for Hermitian types.  Columns ascend afterwards where they did.
/// @param starts  of full_starts(); used up
/// @param ia     row starts [n+1], in, out
/// @param a, ja  with room for the entries of the full form, in, out
void fill_triangle(int n, Vector<int>& starts, const MatrixType& type, double* a, int* ia, int* ja);

}  // namespace vlm
