// SPDX-License-Identifier: BSD-3-Clause
#include "types.hpp"

#include <fmt/format.h>

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

TypeChoice choose_type(const SparseMatrix& matrix, const Traits& traits) {
  const bool mirrored = matrix.complex ? traits.hermitian : traits.symmetric;
  const char* kind = matrix.complex ? "Hermitian" : "symmetric";
  if (mirrored && traits.minors_positive) {
    return {matrix.complex ? 4 : 2,
            fmt::format("{} with positive diagonal and 2x2 minors: Cholesky is tried first", kind)};
  }
  if (mirrored) {
    return {matrix.complex ? -4 : -2,
            traits.zero_diagonal > 0
                ? fmt::format("{} with {} zeros on the diagonal", kind, traits.zero_diagonal)
            : traits.positive_diagonal
                ? fmt::format("{}, but a 2x2 minor is not positive", kind)
                : fmt::format("{} with entries on the diagonal that are not positive", kind)};
  }
  if (matrix.complex && traits.symmetric) return {6, "complex symmetric, not Hermitian"};
  if (traits.structurally_symmetric && traits.strong_diagonal) {
    return {matrix.complex ? 3 : 1, "symmetric pattern with a strong diagonal"};
  }
  return {matrix.complex ? 13 : 11, traits.structurally_symmetric
                                        ? "symmetric pattern, but the diagonal is weak"
                                        : "the pattern is not symmetric"};
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
