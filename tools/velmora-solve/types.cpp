// SPDX-License-Identifier: BSD-3-Clause
#include "types.hpp"

#include <fmt/format.h>
#include <velmora/prepare.h>

#include <new>

namespace tool {

const char* label(int mtype) {
  for (const TypeInfo& type : types) {
    if (type.mtype == mtype) return type.label;
  }
  return "unknown";
}

std::optional<int> type_of(const std::string& word) {
  for (const TypeInfo& type : types) {
    if (word == type.word || word == std::to_string(type.mtype)) return type.mtype;
  }
  return std::nullopt;
}

TypeChoice choose_type(const SparseMatrix& matrix) {
  const int form = matrix.form == Form::full ? 0 : matrix.form == Form::symmetric ? 1 : 2;
  const char* reason = "";
  const int mtype = velmora_find_type(matrix.n, matrix.complex ? 1 : 0, form, matrix.ia.data(),
                                      matrix.ja.data(), matrix.a.data(), &reason);
  if (mtype == 0) throw std::bad_alloc();
  return {mtype, reason};
}

std::int64_t convert(SparseMatrix& matrix, const Traits& traits, int mtype) {
  const auto refuse = [&](const char* why) {
    throw InputError(
        fmt::format("the matrix cannot be solved as {} (type {}): {}", label(mtype), mtype, why));
  };
  if (!complex_type(mtype) && matrix.complex) refuse("it has complex values");
  if ((mtype == 1 || mtype == 3) && !traits.structurally_symmetric) {
    refuse("its pattern is not symmetric");
  }
  if ((mtype == 2 || mtype == -2 || mtype == 6) && !traits.symmetric) {
    refuse("it is not symmetric");
  }
  if ((mtype == 4 || mtype == -4) && !traits.hermitian) refuse("it is not Hermitian");
  if (triangular(mtype)) {
    const Form form = mtype == 4 || mtype == -4 ? Form::hermitian : Form::symmetric;
    if (matrix.form == Form::full) {
      matrix = upper_triangle(matrix, form);
    } else {
      matrix.form = form;  // a real symmetric matrix is Hermitian
    }
  } else if (matrix.form != Form::full) {
    matrix = expanded(matrix);
  }
  if (complex_type(mtype)) make_complex(matrix);
  // Unsymmetric types need no diagonal, except that exactly n entries would be taken for a
  // diagonal matrix, and fewer are refused without saying that the matrix is singular.
  const bool few = matrix.entries() <= static_cast<std::size_t>(matrix.n);
  const bool needs_diagonal = (mtype != 11 && mtype != 13) || (few && traits.zero_diagonal > 0);
  return needs_diagonal ? add_missing_diagonal(matrix) : 0;
}

}  // namespace tool
