// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement of the trailing columns, read out of a factor.
#pragma once

#include <cstdint>

#include "symbolic/structure.hpp"

namespace vlm {

/// What the factor is that holds a complement.
struct SchurOptions {
  int schur = 0;           ///< order of the complement; 0: there is none
  bool symmetric = false;  ///< its upper triangle is wanted, else all of it
  bool hermitian = false;
  bool complex = false;
  bool single = false;  ///< the factor is one in single precision
};

/// Entries of the complement as velmora_fact_schur() writes it, zeros within its panels included.
std::int64_t schur_entries(const Structure& structure, const SchurOptions& options);

/// Writes the complement in compressed rows, indices from 1: the upper triangle of symmetric
/// storage, all of it otherwise.  Its entries are at most 2^31 - 2, its order at least 1.
/// @param s   values, complex ones as two doubles  [schur_entries()], out
/// @param is  row starts          [schur+1], out
/// @param js  columns, ascending  [schur_entries()], out
void velmora_fact_schur(const Structure& structure, const SchurOptions& options, const void* lu,
                        double* s, int* is, int* js);

}  // namespace vlm
