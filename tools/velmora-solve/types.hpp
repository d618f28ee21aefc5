// SPDX-License-Identifier: BSD-3-Clause
/// Matrix types of the library: their names, which one suits a matrix, and the storage they take.
#pragma once

#include <optional>
#include <string>

#include "system.hpp"

namespace tool {

struct TypeInfo {
  int mtype;
  const char* word;   ///< on the command line
  const char* label;  ///< in messages
};
inline constexpr TypeInfo types[] = {
    {1, "struct", "real structurally symmetric"},
    {2, "spd", "real symmetric positive definite"},
    {-2, "sym", "real symmetric indefinite"},
    {3, "complex-struct", "complex structurally symmetric"},
    {4, "hpd", "complex Hermitian positive definite"},
    {-4, "hermitian", "complex Hermitian indefinite"},
    {6, "complex-sym", "complex symmetric"},
    {11, "unsym", "real unsymmetric"},
    {13, "complex-unsym", "complex unsymmetric"},
};

const char* label(int mtype);
/// Type named by a word of the table or its number.
std::optional<int> type_of(const std::string& word);

/// Symmetric and Hermitian types: half of the matrix is stored, and there is an inertia.
constexpr bool triangular(int mtype) { return mtype % 2 == 0; }
constexpr bool has_inertia(int mtype) { return mtype % 2 == 0 && mtype != 6; }
constexpr bool complex_type(int mtype) {
  return mtype != 1 && mtype != 2 && mtype != -2 && mtype != 11;
}

struct TypeChoice {
  int mtype = 0;
  std::string reason;  ///< one clause for the user
};

/// Cheapest type that is safe for a matrix, as the library finds it.
///
/// A symmetric (Hermitian) matrix whose diagonal and 2x2 minors are positive is offered to
/// Cholesky, which finds out by itself when the matrix is not definite.  A pattern that is
/// symmetric is used as such only with a strong diagonal, because that type has no matching.
TypeChoice choose_type(const SparseMatrix& matrix);

/// Brings the matrix into the storage of `mtype`: triangle or all entries, full diagonal, complex
/// values.  @return zeros added on the diagonal
/// @throws InputError when the matrix is not of that type, with what speaks against it
std::int64_t convert(SparseMatrix& matrix, const Traits& traits, int mtype);

}  // namespace tool
