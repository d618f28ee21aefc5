// SPDX-License-Identifier: BSD-3-Clause
/// What a matrix that came out of a reader must be, whatever went in.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "system.hpp"
#include "types.hpp"
#include "velmora.h"

namespace fuzz {

/// Ends the process with a word where a property does not hold.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

/// Rows that ascend within 1..n, as many values as entries, and after conversion a matrix to which
/// the library's checker has nothing to say but that its numbers are none.
inline void require_sound(tool::SparseMatrix& matrix, int mtype) {
  using tool::Form;
  const auto doubles = static_cast<std::size_t>(matrix.complex ? 2 : 1);
  require(matrix.n >= 1, "n is positive");
  require(matrix.ia.size() == static_cast<std::size_t>(matrix.n) + 1, "one row start a row");
  require(matrix.a.size() == doubles * matrix.ja.size(), "one value an entry");
  int error = 0;
  const auto chk = matrix.complex ? velmora_chkmatrix_z : velmora_chkmatrix;
  chk(&mtype, &matrix.n, matrix.a.data(), matrix.ia.data(), matrix.ja.data(), &error);
  require(error == 0 || error >= 300, "the checker passes it");
}

}  // namespace fuzz
