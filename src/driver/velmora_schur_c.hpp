// SPDX-License-Identifier: BSD-3-Clause
/// The Schur complement of a factor in the handle.
#pragma once

namespace vlm {

/// Writes the complement of factor mnum in compressed rows, indices from 1: the upper triangle of
/// symmetric storage, all of it otherwise.
///
/// Writes nothing when an argument is null, the handle has no such factor, the analysis had no
/// Schur part, or the complement has more entries than 32-bit row starts can count.
/// @param s   values, complex ones as two doubles  [iparm(39)], out
/// @param is  row starts          [ns+1], out
/// @param js  columns, ascending  [iparm(39)], out
/// @return null, or what went wrong and what to do
const char* velmora_schur_c(void** pt, int mnum, double* s, int* is, int* js);

}  // namespace vlm
