// SPDX-License-Identifier: BSD-3-Clause
#include "replay.hpp"

#include <fmt/format.h>

#include <limits>

#include "types.hpp"

namespace tool {
namespace {

std::int64_t read_integer(LineReader& lines, const char* what, std::int64_t least,
                          std::int64_t most) {
  std::string_view line;
  std::int64_t value = 0;
  if (!lines.next(line)) lines.fail(fmt::format("the dump ends before its {}", what));
  Fields numbers(line);
  if (!numbers.read(value) || !numbers.at_end()) {
    lines.fail(fmt::format("expected {}, found '{}'", what, excerpt(line)));
  }
  if (value < least || value > most) {
    lines.fail(fmt::format("{} {} is not between {} and {}", what, value, least, most));
  }
  return value;
}

/// Row starts and columns, checked as they come, so that nothing later leaves the arrays.
void read_structure(LineReader& lines, SparseMatrix& matrix) {
  constexpr std::int64_t most = std::numeric_limits<int>::max() - 1;
  matrix.n = static_cast<int>(read_integer(lines, "number of equations", 1, most));
  const std::int64_t entries = read_integer(lines, "number of entries", 0, most);
  for (int i = 0; i <= matrix.n; ++i) {
    const std::int64_t least = i == 0 ? 1 : matrix.ia.back();
    const std::int64_t largest = i == 0 ? 1 : entries + 1;
    matrix.ia.push_back(static_cast<int>(read_integer(lines, "row start", least, largest)));
  }
  if (matrix.ia.back() != entries + 1) lines.fail("the last row start does not fit the entries");
  for (int i = 0; i < matrix.n; ++i) {
    std::int64_t least = 1;
    const auto row = static_cast<std::size_t>(i);
    for (int k = matrix.ia[row]; k < matrix.ia[row + 1]; ++k) {
      const std::int64_t column = read_integer(lines, "column", least, matrix.n);
      matrix.ja.push_back(static_cast<int>(column));
      least = column + 1;
    }
  }
}

/// All numbers that are left.  @return how many stand on a line, 1 or 2
std::size_t read_values(LineReader& lines, std::vector<double>& values) {
  std::size_t width = 0;
  std::string_view line;
  while (lines.next(line)) {
    double value[2] = {0, 0};
    Fields numbers(line);
    if (numbers.at_end()) continue;
    std::size_t found = 0;
    while (found < 2 && numbers.read(value[found])) ++found;
    if (width == 0) width = found;
    if (found == 0 || found != width || !numbers.at_end()) {
      lines.fail(fmt::format("expected a value, found '{}'", excerpt(line)));
    }
    values.insert(values.end(), value, value + found);
  }
  return width;
}

bool no_entry_below_diagonal(const SparseMatrix& matrix) {
  for (int i = 1; i <= matrix.n; ++i) {
    const int first = matrix.ia[static_cast<std::size_t>(i - 1)];
    if (first < matrix.ia[static_cast<std::size_t>(i)] &&
        matrix.ja[static_cast<std::size_t>(first - 1)] < i) {
      return false;
    }
  }
  return true;
}

}  // namespace

Dump read_dump(const std::string& path, std::optional<int> mtype) {
  if (mtype && (*mtype == 3 || *mtype == 4 || *mtype == -4)) {
    throw InputError(
        fmt::format("a dump of type {} holds only half of the values and cannot be "
                    "solved again",
                    *mtype));
  }
  LineReader lines(path);
  Dump dump;
  SparseMatrix& matrix = dump.matrix;
  read_structure(lines, matrix);
  const std::size_t width = read_values(lines, matrix.a);
  if (width == 0) {
    throw InputError(fmt::format("{} holds no values: dump a call of phase 12 or 13", path));
  }
  matrix.complex = width == 2;
  const std::size_t values = matrix.entries() * width;
  const std::size_t rhs = static_cast<std::size_t>(matrix.n) * width;
  if (matrix.a.size() != values && matrix.a.size() != values + rhs) {
    throw InputError(
        fmt::format("{} holds {} values, which fits neither {} entries nor these and "
                    "{} of a right-hand side",
                    path, matrix.a.size() / width, matrix.entries(), matrix.n));
  }
  dump.rhs.assign(matrix.a.begin() + static_cast<std::ptrdiff_t>(values), matrix.a.end());
  matrix.a.resize(values);
  const bool triangle = mtype ? triangular(*mtype) : no_entry_below_diagonal(matrix);
  if (triangle && !no_entry_below_diagonal(matrix)) {
    throw InputError(
        fmt::format("{} has entries below the diagonal, which type {} has not", path, *mtype));
  }
  matrix.form = triangle ? Form::symmetric : Form::full;
  dump.assumed_triangle = triangle && !mtype;
  return dump;
}

}  // namespace tool
