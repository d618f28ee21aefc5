// SPDX-License-Identifier: BSD-3-Clause
/// Wording of the matrix types, as the report and the checker print them.
#pragma once

#include <algorithm>
#include <iterator>

namespace vlm {

struct MatrixTypeName {
  int mtype;
  const char* report;
  const char* checker;
};

inline constexpr MatrixTypeName matrix_type_names[] = {
    {1, "real struct. sym.", "real structurally symmetric"},
    {2, "symm. posit. def.", "real symmetric positive definite"},
    {-2, "symmetric indef.", "real symmetric"},
    {3, "compl. str. sym.", "complex structurally symmetric"},
    {4, "Herm. pos. def.", "complex Hermitian positive definite"},
    {-4, "Hermitian indef.", "complex Hermitian"},
    {6, "complex symmetr.", "complex symmetric"},
    {11, "real nonsymmetric", "general real"},
    {13, "complex nonsym.", "general complex"},
};

/// The names of a type; a code that means no type gives "unknown type" in both wordings.
inline const MatrixTypeName& matrix_type_name(int mtype) {
  static constexpr MatrixTypeName unknown{0, "unknown type", "unknown type"};
  const auto* found = std::ranges::find(matrix_type_names, mtype, &MatrixTypeName::mtype);
  return found == std::end(matrix_type_names) ? unknown : *found;
}

/// What follows from a matrix type alone.
struct MatrixType {
  int mtype = 0;
  bool symmetric = false;  ///< stored as its upper triangle
  bool complex = false;
  bool hermitian = false;
};

inline MatrixType matrix_type(int mtype) {
  const int t = mtype < 0 ? -mtype : mtype;
  return {mtype, t % 2 == 0, t > 2 && t != 11, t == 4};
}

}  // namespace vlm
