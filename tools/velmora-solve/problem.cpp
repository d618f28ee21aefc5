// SPDX-License-Identifier: BSD-3-Clause
#include "problem.hpp"

#include <fmt/format.h>

#include <random>
#include <utility>

#include "replay.hpp"

namespace tool {
namespace {

/// Right-hand sides from a file, fitted to the kind of the matrix.
std::vector<double> read_rhs(const std::string& path, const SparseMatrix& matrix, int& nrhs) {
  DenseColumns columns = read_columns(path);
  if (columns.rows != matrix.n && columns.cols == 1 && columns.rows % matrix.n == 0) {
    columns.cols = columns.rows / matrix.n;  // plain numbers, column after column
    columns.rows = matrix.n;
  }
  if (columns.rows != matrix.n) {
    throw InputError(fmt::format("{} has {} rows, the matrix {}", path, columns.rows, matrix.n));
  }
  if (columns.complex && !matrix.complex) {
    throw InputError(
        fmt::format("{} is complex, the matrix real; a complex --type takes both", path));
  }
  if (!columns.complex && matrix.complex) {
    std::vector<double> pairs(2 * columns.value.size(), 0.0);
    for (std::size_t k = 0; k < columns.value.size(); ++k) pairs[2 * k] = columns.value[k];
    columns.value = std::move(pairs);
  }
  nrhs = columns.cols;
  return std::move(columns.value);
}

}  // namespace

SparseMatrix read_matrix(const Options& options, Report& report, std::vector<double>& dumped_rhs) {
  if (!options.replay.empty()) {
    Dump dump = read_dump(options.replay, options.type);
    report.file = options.replay;
    report.described = dump.matrix.complex ? "complex, from a dump" : "real, from a dump";
    if (dump.assumed_triangle) {
      report.notes.push_back(
          "the dump is taken as the upper triangle of a symmetric matrix; --type unsym or "
          "complex-unsym if it is a triangular one");
    }
    dumped_rhs = std::move(dump.rhs);
    return std::move(dump.matrix);
  }
  report.file = options.matrix;
  MarketFile file = read_market(options.matrix);
  report.described = fmt::format("{} {}{}", name(file.field), name(file.symmetry),
                                 file.layout == Layout::array ? " array" : "");
  BuildNotes notes;
  SparseMatrix matrix = build_matrix(std::move(file), notes);
  if (notes.duplicates > 0) {
    report.notes.push_back(fmt::format("{} duplicate entries summed", notes.duplicates));
  }
  if (notes.dropped_imaginary) {
    report.notes.emplace_back("all imaginary parts are zero: taken as real");
  }
  return matrix;
}

Rhs make_rhs(const Options& options, const SparseMatrix& matrix, std::vector<double>&& dumped,
             Report& report) {
  report.nrhs = options.nrhs;
  if (!options.rhs.empty()) {
    report.rhs = options.rhs;
    return {read_rhs(options.rhs, matrix, report.nrhs), false};
  }
  if (!dumped.empty()) {
    report.rhs = "of the dump";
    report.nrhs = 1;
    return {std::move(dumped), false};
  }
  const std::size_t doubles = matrix.complex ? 2 : 1;
  const std::size_t column = static_cast<std::size_t>(matrix.n) * doubles;
  const auto count = static_cast<std::size_t>(options.nrhs);
  std::vector<double> b;
  b.reserve(column * count);
  std::vector<double> ones(column, 0.0);
  for (std::size_t k = 0; k < column; k += doubles) ones[k] = 1;
  if (options.rhs_kind == RhsKind::random) {
    report.rhs = fmt::format("random, seed {}", options.seed);
    std::mt19937_64 bits(options.seed);
    while (b.size() < column * count) b.push_back(static_cast<double>(bits() >> 10) * 0x1p-53 - 1);
    return {std::move(b), false};
  }
  const bool sums = options.rhs_kind == RhsKind::row_sums;
  report.rhs = sums ? "row sums" : "ones";
  const std::vector<double> one =
      sums ? multiply(matrix, options.settings.transposed, ones) : std::move(ones);
  for (std::size_t k = 0; k < count; ++k) b.insert(b.end(), one.begin(), one.end());
  return {std::move(b), sums};
}

}  // namespace tool
