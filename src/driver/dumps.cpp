// SPDX-License-Identifier: BSD-3-Clause
/// Writers of the three dump files.
#include "driver/dumps.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "base/matrix_types.hpp"

namespace vlm {
namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opens PREFIX_NNN-phase-PP.EXT under the next number of its kind, which a failure gives back.
File open_dump(const char* default_prefix, const char* extension, int phase,
               std::atomic<int>& counter) {
  const char* prefix = std::getenv("VELMORA_WRITE_PREFIX");
  char numbers[64];
  const int number = counter.fetch_add(1);
  std::snprintf(numbers, sizeof numbers, "_%03d-phase-%02d", number, phase);
  char name[FILENAME_MAX];
  const int length = std::snprintf(name, sizeof name, "%s%s%s", prefix ? prefix : default_prefix,
                                   numbers, extension);
  const bool fits = length > 0 && length < FILENAME_MAX;
  File file(fits ? std::fopen(name, "w") : nullptr);
  if (!file) {
    int taken = number + 1;  // unless another call has gone on from it
    counter.compare_exchange_strong(taken, number);
    std::fprintf(stderr, "[VELMORA]: cannot write dump file %s\n", name);
  }
  return file;
}

/// Offset that a row start means; row starts have not been checked yet and may be negative.
int offset(int row_start) { return std::max(row_start, 1) - 1; }

/// The types whose values are written as pairs; other complex types write their first doubles.
bool writes_pairs(int mtype) { return mtype == 6 || mtype == 13; }

void write_pair(std::FILE* file, const double* v, const char* end) {
  std::fprintf(file, "%32.24e %32.24e%s", v[0], v[1], end);
}

void write_integers(std::FILE* file, const int* v, int count) {
  for (int k = 0; k < count; ++k) std::fprintf(file, "%d\n", v[k]);
}

void write_values(std::FILE* file, const double* v, int count, bool pairs, const char* pair_end) {
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    if (pairs)
      write_pair(file, v + 2 * k, pair_end);
    else
      std::fprintf(file, "%32.24e\n", v[k]);
  }
}

void write_arrays(std::FILE* file, int phase, int mtype, const InputMatrix& matrix,
                  const double* b) {
  const bool pairs = writes_pairs(mtype);
  const int nnz = offset(matrix.ia[matrix.n]);
  std::fprintf(file, "%d\n%d\n", matrix.n, nnz);
  write_integers(file, matrix.ia, matrix.n);
  write_integers(file, matrix.ia + matrix.n, 1);
  write_integers(file, matrix.ja, nnz);
  if (phase % 10 > 1 && matrix.a) write_values(file, matrix.a, nnz, pairs, "\n");
  if (phase % 10 == 3 && b) write_values(file, b, matrix.n, pairs, " \n");
}

/// One line for the diagonal entry, two for any other: the mirror is written for every type.
void write_coordinates(std::FILE* file, int phase, int mtype, const InputMatrix& matrix) {
  const bool with_values = phase % 10 >= 2 && matrix.a;
  const bool pairs = writes_pairs(mtype);
  const int nnz = offset(matrix.ia[matrix.n]);
  const auto line = [&](int row, int column, std::ptrdiff_t position) {
    std::fprintf(file, "%d %d ", row, column);
    if (pairs)
      write_pair(file, matrix.a + 2 * position, "\n");
    else
      std::fprintf(file, "%32.24e\n", matrix.a[position]);
  };
  for (int row = 1; row <= matrix.n; ++row) {
    // Stay inside the entries whatever the row starts say.
    const int first = offset(matrix.ia[row - 1]);
    const int end = std::min(offset(matrix.ia[row]), nnz);
    for (int p = first; p < end; ++p) {
      const int column = matrix.ja[p];
      if (!with_values) {
        std::fprintf(file, "%d %d\n", row, column);
        continue;
      }
      line(row, column, p);
      if (column != row) line(column, row, p);
    }
  }
}

}  // namespace

void dump_input(DumpCounters& counters, int phase, int mtype, const InputMatrix& matrix,
                const double* b) {
  if (phase / 10 <= 0 || matrix.n < 1 || !matrix.ia || !matrix.ja) return;
  if (std::getenv("VELMORA_WRITE_MAT")) {
    if (const File file = open_dump("mat-velmora", ".iajaa", phase, counters.arrays))
      write_arrays(file.get(), phase, mtype, matrix, b);
  }
  if (std::getenv("VELMORA_WRITE_MTX")) {
    if (const File file = open_dump("mat-velmora", ".mtx", phase, counters.coordinates))
      write_coordinates(file.get(), phase, mtype, matrix);
  }
}

void dump_solution(DumpCounters& counters, int phase, int mtype, int n, const double* b,
                   const double* x) {
  if (phase != 13 && phase != 23 && phase != 33) return;
  if (!std::getenv("VELMORA_WRITE_SOL")) return;
  const bool complex = matrix_type(mtype).complex;
  const double* solution = complex ? x : b;
  if (!solution || n < 1) return;
  if (const File file = open_dump("sol-velmora", ".iajaa", phase, counters.solutions))
    write_values(file.get(), solution, n, complex, " \n");
}

}  // namespace vlm
