// SPDX-License-Identifier: BSD-3-Clause
/// The matrix types: all that follows from the type alone, one row each.
#pragma once

#include <algorithm>
#include <iterator>

namespace vlm {

/// How the diagonal block of a panel is factored.
enum class Family {
  none,
  cholesky,     ///< L L^H
  ldlt,         ///< L D L^T or L D L^H, pivots 1x1 or 2x2
  lu,           ///< partial pivoting in the block
  lu_complete,  ///< complete pivoting in the block
};

/// Options that a type sets; all others of a group are 0.
struct TypeDefaults {
  int refinement = 0;    ///< iparm(8)
  int perturbation = 0;  ///< iparm(10)
  int scaling = 0;       ///< iparm(11)
  int matching = 0;      ///< iparm(13)
  int pivoting = 0;      ///< iparm(21)
};

struct MatrixType {
  int mtype = 0;
  Family family = Family::none;
  bool symmetric = false;  ///< stored as its upper triangle
  bool complex = false;
  bool hermitian = false;
  bool matched = false;      ///< a weighted matching may permute and scale it
  bool single = false;       ///< there are kernels for single-precision factors
  TypeDefaults initial;      ///< set by velmorainit()
  TypeDefaults plain;        ///< set by an analysis with iparm(1) = 0
  const char* report = "";   ///< name in the report
  const char* checker = "";  ///< name in the checker's statistics

  int nvals() const { return complex ? 2 : 1; }  ///< doubles per value
  /// The pattern is symmetric, diagonal included.
  bool structurally_symmetric() const { return family != Family::lu_complete; }
};

// clang-format off
inline constexpr MatrixType matrix_types[] = {
    // mtype, family         symm.  compl. Herm.  match. single
    {1,  Family::lu,         false, false, false, false, true,
     {.refinement = 1, .perturbation = 13}, {.perturbation = 13},
     "real struct. sym.", "real structurally symmetric"},
    {2,  Family::cholesky,   true,  false, false, false, false,
     {.refinement = 1}, {},
     "symm. posit. def.", "real symmetric positive definite"},
    {-2, Family::ldlt,       true,  false, false, true,  true,
     {.refinement = 1, .perturbation = 8}, {.perturbation = 8, .pivoting = 1},
     "symmetric indef.", "real symmetric"},
    {3,  Family::lu,         false, true,  false, false, false,
     {.refinement = 1, .perturbation = 13}, {.perturbation = 13},
     "compl. str. sym.", "complex structurally symmetric"},
    {4,  Family::cholesky,   true,  true,  true,  false, false,
     {.refinement = 1}, {},
     "Herm. pos. def.", "complex Hermitian positive definite"},
    {-4, Family::ldlt,       true,  true,  true,  true,  false,
     {.refinement = 1, .perturbation = 8, .scaling = 1, .matching = 2, .pivoting = 1},
     {.perturbation = 8, .pivoting = 1},
     "Hermitian indef.", "complex Hermitian"},
    {6,  Family::ldlt,       true,  true,  false, true,  false,
     {.refinement = 1, .perturbation = 8, .scaling = 1, .matching = 2, .pivoting = 1},
     {.perturbation = 8, .pivoting = 1},
     "complex symmetr.", "complex symmetric"},
    {11, Family::lu_complete, false, false, false, true,  true,
     {.refinement = 2, .perturbation = 12, .scaling = 1, .matching = 1},
     {.perturbation = 13, .scaling = 1, .matching = 1},
     "real nonsymmetric", "general real"},
    {13, Family::lu_complete, false, true,  false, true,  false,
     {.refinement = 2, .perturbation = 12, .scaling = 1, .matching = 1},
     {.perturbation = 13, .scaling = 1, .matching = 1},
     "complex nonsym.", "general complex"},
};
// clang-format on

/// The row of a code that names no type; initial settings are those that all types share.
inline constexpr MatrixType unknown_type{
    .initial = {.refinement = 1}, .plain = {}, .report = "unknown type", .checker = "unknown type"};

/// The row of a type; that of the unknown type, with family none, for any other code.
inline const MatrixType& matrix_type(int mtype) {
  const auto* found = std::ranges::find(matrix_types, mtype, &MatrixType::mtype);
  return found == std::end(matrix_types) ? unknown_type : *found;
}

/// True for the nine codes that name a matrix type.
inline bool is_matrix_type(int mtype) { return matrix_type(mtype).family != Family::none; }

}  // namespace vlm
