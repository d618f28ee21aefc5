// SPDX-License-Identifier: BSD-3-Clause
#include "matrix_market.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <limits>
#include <string_view>

#include "text_output.hpp"

namespace tool {
namespace {

constexpr std::string_view banner = "%%matrixmarket";

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

std::vector<std::string> words(std::string_view line) {
  std::vector<std::string> out;
  constexpr std::string_view blanks = " \t";
  for (std::size_t at = line.find_first_not_of(blanks); at != std::string_view::npos;) {
    const std::size_t stop = std::min(line.find_first_of(blanks, at), line.size());
    out.push_back(lower(line.substr(at, stop - at)));
    at = line.find_first_not_of(blanks, stop);
  }
  return out;
}

bool blank_or_comment(std::string_view line) {
  const std::size_t at = line.find_first_not_of(" \t");
  return at == std::string_view::npos || line[at] == '%';
}

/// The value that `word` names in `table`, or an error that lists the choices.
template <typename Enum, std::size_t N>
Enum choose(const LineReader& lines, const std::string& word, const char* kind,
            const std::pair<const char*, Enum> (&table)[N]) {
  std::string choices;
  for (const auto& [text, value] : table) {
    if (word == text) return value;
    choices += choices.empty() ? text : fmt::format(", {}", text);
  }
  lines.fail(fmt::format("unknown {} '{}' (known: {})", kind, excerpt(word), choices));
}

constexpr std::pair<const char*, Layout> layouts[] = {{"coordinate", Layout::coordinate},
                                                      {"array", Layout::array}};
constexpr std::pair<const char*, Field> fields[] = {{"real", Field::real},
                                                    {"double", Field::real},
                                                    {"integer", Field::integer},
                                                    {"pattern", Field::pattern},
                                                    {"complex", Field::complex}};
constexpr std::pair<const char*, Symmetry> symmetries[] = {{"general", Symmetry::general},
                                                           {"symmetric", Symmetry::symmetric},
                                                           {"skew-symmetric", Symmetry::skew},
                                                           {"hermitian", Symmetry::hermitian}};

void read_header(LineReader& lines, MarketFile& file) {
  std::string_view line;
  if (!lines.next(line)) throw InputError(fmt::format("{} is empty", lines.path()));
  if (lower(line.substr(0, banner.size())) != banner) {
    lines.fail("not a Matrix Market file: the first line must begin with %%MatrixMarket");
  }
  const std::vector<std::string> word = words(line);
  if (word.size() != 5) {
    lines.fail("the first line must read: %%MatrixMarket matrix LAYOUT FIELD SYMMETRY");
  }
  if (word[1] != "matrix") {
    lines.fail(fmt::format("the file holds a '{}', not a matrix", excerpt(word[1])));
  }
  file.layout = choose(lines, word[2], "layout", layouts);
  file.field = choose(lines, word[3], "field", fields);
  file.symmetry = choose(lines, word[4], "symmetry", symmetries);
  if (file.layout == Layout::array && file.field == Field::pattern) {
    lines.fail("an array cannot be a pattern: it has no positions");
  }
  if (file.symmetry == Symmetry::skew && file.field == Field::pattern) {
    lines.fail("a pattern cannot be skew-symmetric: it has no signs");
  }
  if (file.symmetry == Symmetry::hermitian && file.field != Field::complex) {
    lines.fail(
        fmt::format("only a complex matrix can be hermitian, this one is {}; "
                    "a real one is symmetric",
                    name(file.field)));
  }
}

/// Line of sizes: rows, columns and, in the coordinate layout, entries.  @return entries
std::int64_t read_sizes(LineReader& lines, MarketFile& file) {
  std::string_view line;
  do {
    if (!lines.next(line)) lines.fail("the file ends before its line of sizes");
  } while (blank_or_comment(line));
  std::int64_t rows = 0, cols = 0, entries = 0;
  Fields numbers(line);
  const bool coordinate = file.layout == Layout::coordinate;
  if (!numbers.read(rows) || !numbers.read(cols) || (coordinate && !numbers.read(entries)) ||
      !numbers.at_end()) {
    lines.fail(fmt::format("the line of sizes must hold {}, not '{}'",
                           coordinate ? "rows, columns and entries" : "rows and columns",
                           excerpt(line)));
  }
  constexpr std::int64_t most = std::numeric_limits<int>::max();
  if (rows < 1 || cols < 1 || entries < 0) {
    lines.fail("the matrix has no rows, no columns or a negative number of entries");
  }
  if (rows > most - 1 || cols > most - 1) {
    lines.fail(fmt::format("{} by {} is beyond 32-bit indices", rows, cols));
  }
  if (file.symmetry != Symmetry::general && rows != cols) {
    lines.fail(fmt::format("a {} matrix cannot be {} by {}", name(file.symmetry), rows, cols));
  }
  if (!coordinate) {
    const std::int64_t below = file.symmetry == Symmetry::skew ? cols - 1 : cols + 1;
    entries = file.symmetry == Symmetry::general ? rows * cols : cols * below / 2;
  }
  if (entries > most) lines.fail(fmt::format("{} entries are beyond 32-bit indices", entries));
  file.rows = static_cast<int>(rows);
  file.cols = static_cast<int>(cols);
  return entries;
}

/// Reads one value of the file's field into `out`; false where there is none.
bool read_value(Fields& numbers, Field field, double* out) {
  switch (field) {
    case Field::pattern:
      out[0] = 1;
      return true;
    case Field::integer: {
      std::int64_t whole = 0;
      if (!numbers.read(whole)) return false;
      out[0] = static_cast<double>(whole);
      return true;
    }
    case Field::real:
      return numbers.read(out[0]);
    case Field::complex:
      return numbers.read(out[0]) && numbers.read(out[1]);
  }
  return false;
}

[[noreturn]] void fail_entry(const LineReader& lines, const MarketFile& file,
                             std::string_view line) {
  constexpr const char* forms[] = {"row column value", "row column integer", "row column",
                                   "row column real imaginary"};
  lines.fail(
      fmt::format("expected '{}', found '{}'", forms[static_cast<int>(file.field)], excerpt(line)));
}

void read_coordinates(LineReader& lines, MarketFile& file, std::int64_t entries) {
  const int doubles = file.complex() ? 2 : 1;
  // The announced count is only believed as far as the file can hold it: an entry takes at
  // least four characters.
  constexpr std::int64_t unknown_size = std::int64_t{1} << 24;
  const std::int64_t bytes = lines.plain_size();
  const auto expected =
      static_cast<std::size_t>(std::min(entries, bytes > 0 ? bytes / 4 : unknown_size));
  file.row.reserve(expected);
  file.col.reserve(expected);
  file.value.reserve(expected * static_cast<std::size_t>(doubles));
  std::string_view line;
  std::int64_t seen = 0;
  bool lower_part = false, upper_part = false;
  while (lines.next(line)) {
    if (blank_or_comment(line)) continue;
    if (seen == entries) {
      lines.fail(fmt::format("more entries than the {} announced", entries));
    }
    std::int64_t row = 0, col = 0;
    double value[2] = {0, 0};
    Fields numbers(line);
    if (!numbers.read(row) || !numbers.read(col) || !read_value(numbers, file.field, value) ||
        !numbers.at_end()) {
      fail_entry(lines, file, line);
    }
    if (row < 1 || row > file.rows || col < 1 || col > file.cols) {
      lines.fail(fmt::format("position ({}, {}) is outside of the matrix of {} by {}", row, col,
                             file.rows, file.cols));
    }
    if (row == col && file.symmetry == Symmetry::hermitian && value[1] != 0) {
      lines.fail(fmt::format("the diagonal entry {} of a hermitian matrix is not real", row));
    }
    if (row == col && file.symmetry == Symmetry::skew && (value[0] != 0 || value[1] != 0)) {
      lines.fail(fmt::format("the diagonal entry {} of a skew-symmetric matrix is not zero", row));
    }
    lower_part |= row > col;
    upper_part |= row < col;
    file.row.push_back(static_cast<int>(row));
    file.col.push_back(static_cast<int>(col));
    file.value.insert(file.value.end(), value, value + doubles);
    ++seen;
  }
  if (seen < entries) {
    lines.fail(fmt::format("the file ends after {} of {} entries", seen, entries));
  }
  if (file.symmetry != Symmetry::general && lower_part && upper_part) {
    lines.fail(
        fmt::format("a {} file stores one triangle, this one has entries on both sides of "
                    "the diagonal",
                    name(file.symmetry)));
  }
}

void read_array(LineReader& lines, MarketFile& file, std::int64_t entries) {
  const int doubles = file.complex() ? 2 : 1;
  std::string_view line;
  std::int64_t seen = 0;
  while (lines.next(line)) {
    if (blank_or_comment(line)) continue;
    for (Fields numbers(line); !numbers.at_end(); ++seen) {
      double value[2] = {0, 0};
      if (!read_value(numbers, file.field, value)) {
        lines.fail(fmt::format("expected {} values, found '{}'", name(file.field), excerpt(line)));
      }
      if (seen == entries) lines.fail(fmt::format("more values than the {} expected", entries));
      file.value.insert(file.value.end(), value, value + doubles);
    }
  }
  if (seen < entries) {
    lines.fail(fmt::format("the file ends after {} of {} values", seen, entries));
  }
}

}  // namespace

const char* name(Field field) {
  constexpr const char* names[] = {"real", "integer", "pattern", "complex"};
  return names[static_cast<int>(field)];
}

const char* name(Symmetry symmetry) {
  constexpr const char* names[] = {"general", "symmetric", "skew-symmetric", "hermitian"};
  return names[static_cast<int>(symmetry)];
}

MarketFile read_market(LineReader& lines) {
  MarketFile file;
  read_header(lines, file);
  const std::int64_t entries = read_sizes(lines, file);
  if (file.layout == Layout::coordinate) {
    read_coordinates(lines, file, entries);
  } else {
    read_array(lines, file, entries);
  }
  return file;
}

MarketFile read_market(const std::string& path) {
  LineReader lines(path);
  return read_market(lines);
}

void to_coordinates(MarketFile& file) {
  if (file.layout == Layout::coordinate) return;
  const std::size_t doubles = file.complex() ? 2 : 1;
  std::vector<double> kept;
  std::size_t at = 0;
  for (int j = 1; j <= file.cols; ++j) {
    const int first = file.symmetry == Symmetry::general ? 1
                      : file.symmetry == Symmetry::skew  ? j + 1
                                                         : j;
    for (int i = first; i <= file.rows; ++i, at += doubles) {
      const double* value = &file.value[at];
      if (i == j && file.symmetry == Symmetry::hermitian && value[1] != 0) {
        throw InputError(fmt::format("the diagonal entry {} of a hermitian matrix is not real", i));
      }
      if (i != j && value[0] == 0 && (doubles == 1 || value[1] == 0)) continue;
      file.row.push_back(i);
      file.col.push_back(j);
      kept.insert(kept.end(), value, value + doubles);
    }
  }
  file.value = std::move(kept);
  file.layout = Layout::coordinate;
}

namespace {

DenseColumns columns_of(MarketFile file) {
  if (file.symmetry != Symmetry::general) {
    throw InputError(fmt::format("a right-hand side cannot be {}", name(file.symmetry)));
  }
  DenseColumns out{file.rows, file.cols, file.complex(), {}};
  if (file.layout == Layout::array) {
    out.value = std::move(file.value);
    return out;
  }
  const std::size_t doubles = file.complex() ? 2 : 1;
  const std::size_t size =
      static_cast<std::size_t>(file.rows) * static_cast<std::size_t>(file.cols);
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw InputError("the right-hand sides are too many values to be held");
  }
  out.value.assign(size * doubles, 0.0);
  for (std::size_t k = 0; k < file.row.size(); ++k) {
    const std::size_t place =
        static_cast<std::size_t>(file.col[k] - 1) * static_cast<std::size_t>(file.rows) +
        static_cast<std::size_t>(file.row[k] - 1);
    for (std::size_t d = 0; d < doubles; ++d) {
      out.value[place * doubles + d] += file.value[k * doubles + d];
    }
  }
  return out;
}

DenseColumns read_plain(LineReader& lines) {
  DenseColumns out;
  std::string_view line;
  while (lines.next(line)) {
    if (blank_or_comment(line)) continue;
    for (Fields numbers(line); !numbers.at_end();) {
      double value = 0;
      if (!numbers.read(value)) {
        lines.fail(fmt::format("expected numbers, found '{}'", excerpt(line)));
      }
      out.value.push_back(value);
    }
  }
  if (out.value.empty()) throw InputError(fmt::format("{} holds no number", lines.path()));
  if (out.value.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw InputError(fmt::format("{} holds too many numbers", lines.path()));
  }
  out.rows = static_cast<int>(out.value.size());
  out.cols = 1;
  return out;
}

}  // namespace

DenseColumns read_columns(const std::string& path) {
  LineReader lines(path);
  if (lower(lines.peek(banner.size())) != banner) return read_plain(lines);
  return columns_of(read_market(lines));
}

void write_columns(const std::string& path, const DenseColumns& columns) {
  TextOutput out(path);
  out.print("%%MatrixMarket matrix array {} general\n{} {}\n", columns.complex ? "complex" : "real",
            columns.rows, columns.cols);
  const std::size_t doubles = columns.complex ? 2 : 1;
  for (std::size_t k = 0; k < columns.value.size(); k += doubles) {
    if (columns.complex) {
      out.print("{} {}\n", columns.value[k], columns.value[k + 1]);
    } else {
      out.print("{}\n", columns.value[k]);
    }
  }
  out.close();
}

}  // namespace tool
