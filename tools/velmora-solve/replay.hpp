// SPDX-License-Identifier: BSD-3-Clause
/// Systems from the dumps that the library writes when VELMORA_WRITE_MAT is set.
///
/// A dump holds, one item a line: n, the number of entries, the row starts, the columns, from
/// phase 12 on the values, and from phase 13 on the first right-hand side.  It doesn't tell the
/// matrix type.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "system.hpp"

namespace tool {

struct Dump {
  SparseMatrix matrix;
  std::vector<double> rhs;        ///< empty when the dump has none
  bool assumed_triangle = false;  ///< no entry lies below the diagonal, and no type was given
};

/// @param mtype  the type that the caller's program used, when it is known
/// @throws InputError for a dump that is malformed, has no values, or only half of them, which
///         is how complex types other than 6 and 13 are dumped
Dump read_dump(const std::string& path, std::optional<int> mtype);

}  // namespace tool
