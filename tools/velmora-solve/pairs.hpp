// SPDX-License-Identifier: BSD-3-Clause
/// The iterative methods and preconditioners by name: what each is for, and which go together.
#pragma once

#include <string>

#include "system.hpp"

namespace tool {

/// What a method asks for.
enum class MethodNeeds {
  nothing,           ///< any matrix, any preconditioner
  transpose,         ///< a preconditioner with a transposed application
  symmetric,         ///< matrix and preconditioner symmetric
  definite,          ///< the same, or Hermitian, and the preconditioner definite
  no_preconditioner  ///< it uses none
};
struct MethodInfo {
  const char* name;
  MethodNeeds needs;
  bool full;  ///< both triangles stored
  const char* line;
};

/// The triangles that a preconditioner reads: either storage, for symmetric matrices alone; the
/// upper one, likewise; both.
enum class Reads { either, symmetric, upper, full };
/// For which matrices it is its own transpose.
enum class OwnTranspose { never, symmetric, hermitian_too };
struct PreconInfo {
  const char* name;
  Reads reads;
  OwnTranspose own;
  bool real_only;
  const char* line;
};

/// By name in any case; null for none.
const MethodInfo* find_method(const std::string& name);
const PreconInfo* find_precon(const std::string& name);

/// Both lists, a line each.
std::string list_of_pairs();

/// How the matrix has to be stored for a pair.
enum class Storage { as_it_is, all_entries };
/// @throws InputError where the two, or one of them and the matrix, don't go together
Storage storage_for(const MethodInfo& method, const PreconInfo* precon, const SparseMatrix& matrix);

}  // namespace tool
