// SPDX-License-Identifier: BSD-3-Clause
/// Matrix Market exchange format: reading in all its variants, writing of dense arrays.
///
/// Format: R. F. Boisvert, R. Pozo, K. A. Remington, "The Matrix Market exchange formats:
/// initial design", NISTIR 5935 (1996).  Coordinate and array layouts; real, integer, pattern
/// and complex fields; general, symmetric, skew-symmetric and hermitian symmetries; plain or
/// gzipped.  One pass, linear in the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "text_input.hpp"

namespace tool {

enum class Layout { coordinate, array };
enum class Field { real, integer, pattern, complex };
enum class Symmetry { general, symmetric, skew, hermitian };

/// What a file holds, as it stands there: no mirror entries added, no duplicates summed.
struct MarketFile {
  Layout layout = Layout::coordinate;
  Field field = Field::real;
  Symmetry symmetry = Symmetry::general;
  int rows = 0, cols = 0;
  /// 1-based positions of the entries.  Empty in the array layout, whose values go down the
  /// columns; where it has a symmetry, down their parts from the diagonal (or below it, skew).
  std::vector<int> row, col;
  std::vector<double> value;  ///< one double an entry, two (real, imaginary) for complex

  bool complex() const { return field == Field::complex; }
  std::size_t entries() const { return complex() ? value.size() / 2 : value.size(); }
};

/// Words of the format for messages: "real", "symmetric", ...
const char* name(Field field);
const char* name(Symmetry symmetry);

/// Reads a whole file.
/// @throws InputError with one line that names file and line, for anything malformed
MarketFile read_market(const std::string& path);
MarketFile read_market(LineReader& lines);

/// Gives the entries of an array layout their positions; zeros off the diagonal are left out.
void to_coordinates(MarketFile& file);

/// Dense columns from a file: Matrix Market of any layout, or plain numbers, one a line.
struct DenseColumns {
  int rows = 0, cols = 0;
  bool complex = false;
  std::vector<double> value;  ///< column after column
};
/// @throws InputError
DenseColumns read_columns(const std::string& path);

/// Writes `rows` by `cols` values, column after column, in the array layout with the digits that
/// bring back the same doubles.  A name ending in ".gz" gives a gzipped file.
/// @throws InputError when the file cannot be written
void write_columns(const std::string& path, const DenseColumns& columns);

}  // namespace tool
