// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement of the trailing columns, read out of a factor.
#pragma once

#include <cstdint>

#include "symbolic/structure.hpp"

namespace vlm {

/// Entries of the complement's stored triangle: for each column of a panel that ends in the
/// trailing part, the rows from its diagonal down.  Panels never cross the start of that part.
/// @param schur  order of the complement; 0 gives 0
std::int64_t schur_entries(const Structure& structure, int schur);

/// Writes the complement as a triangle in compressed rows, indices from 1.  Its entries are at
/// most 2^31 - 2.
/// @param single  the factor is one in single precision
/// @param s   values              [schur_entries()], out
/// @param is  row starts          [schur+1], out
/// @param js  columns, ascending  [schur_entries()], out
void velmora_fact_schur(const Structure& structure, int schur, bool single, const void* lu,
                        double* s, int* is, int* js);

}  // namespace vlm
