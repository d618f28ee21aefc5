// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement of the trailing columns, read out of a factor.
#pragma once

#include "symbolic/structure.hpp"

namespace vlm {

/// Entries of the complement's stored triangle: for each column of a panel that ends in the
/// trailing part, the rows from its diagonal down.  Panels never cross the start of that part.
/// @param nschur  order of the complement; 0 gives 0
int schur_entries(const Structure& structure, int nschur);

/// Writes the complement of factor mnum as a triangle in compressed rows, indices from 1.
/// Writes nothing when the handle has no such factor or the analysis had no Schur part.
/// @param s   values              [iparm(39)], out
/// @param is  row starts          [ns+1], out
/// @param js  columns, ascending  [iparm(39)], out
void velmora_schur_c(void** pt, int maxfct, int mnum, int mtype, double* s, int* is, int* js);

}  // namespace vlm
