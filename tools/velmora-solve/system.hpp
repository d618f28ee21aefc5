// SPDX-License-Identifier: BSD-3-Clause
/// The matrix of a linear system in the library's form: compressed rows, 1-based.
///
/// Built from the entries of a file; examined for symmetry, so that the cheapest type that
/// stays safe can be chosen; multiplied for the residual.  Every routine is linear in the
/// entries but for the sorting of rows that come unsorted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "matrix_market.hpp"

namespace tool {

/// Where the entries lie and what the missing half is.
enum class Form {
  full,       ///< every entry is stored
  symmetric,  ///< upper triangle; the lower one is its mirror
  hermitian   ///< upper triangle; the lower one is its conjugate mirror
};

struct SparseMatrix {
  int n = 0;
  bool complex = false;
  Form form = Form::full;
  std::vector<int> ia;    ///< row starts, 1-based [n + 1]
  std::vector<int> ja;    ///< columns, 1-based, increasing in a row
  std::vector<double> a;  ///< values; two doubles (real, imaginary) each when complex

  std::size_t entries() const { return ja.size(); }
};

/// What building a matrix from a file changed.
struct BuildNotes {
  std::int64_t duplicates = 0;     ///< entries summed into an earlier one
  bool dropped_imaginary = false;  ///< complex file whose imaginary parts are all zero
};

/// Rows from the entries of `file`, which is used up.  Duplicates are summed; a symmetric or
/// Hermitian file gives an upper triangle, a skew-symmetric one all entries.
/// @throws InputError for a matrix that is not square, or beyond 32-bit positions
SparseMatrix build_matrix(MarketFile&& file, BuildNotes& notes);

/// Adds a zero on the diagonal of every row that has none.  @return how many were added
/// @throws InputError when the entries no longer fit 32-bit positions
std::int64_t add_missing_diagonal(SparseMatrix& matrix);

/// Upper triangle of a full matrix that is symmetric or Hermitian.
SparseMatrix upper_triangle(const SparseMatrix& full, Form form);

/// All entries of a matrix stored as a triangle.  @throws InputError beyond 32-bit positions
SparseMatrix expanded(const SparseMatrix& triangle);

/// The diagonal of a matrix with other values on its pattern; zero where it has no entry.
std::vector<double> diagonal_of(const SparseMatrix& pattern, const std::vector<double>& values);

/// Writes a matrix with other values on its pattern in the coordinate layout, a triangle as the
/// lower one of a symmetric or Hermitian matrix, with the digits that bring back the same doubles.
/// A name ending in ".gz" gives a gzipped file.
/// @throws InputError when the file cannot be written
void write_matrix(const std::string& path, const SparseMatrix& pattern,
                  const std::vector<double>& values);

/// Real matrix as complex one.
void make_complex(SparseMatrix& matrix);

/// What a look over the matrix tells about its type.
struct Traits {
  bool structurally_symmetric = false;
  bool symmetric = false;          ///< a(i,j) == a(j,i) exactly
  bool hermitian = false;          ///< a(i,j) == conj(a(j,i)) exactly; for real ones as symmetric
  std::int64_t zero_diagonal = 0;  ///< rows whose diagonal entry is missing or zero
};
Traits examine(const SparseMatrix& matrix);

/// r = b - A x and what it is measured by, for one column.
struct Residual {
  /// Largest |r|_i / (|A||x| + |b|)_i; a row where that nearly vanishes is judged by
  /// (|A||x|)_i + (sum of |a(i,j)|) max|x| instead, and the two kinds are added.
  double componentwise = 0;
  double normwise = 0;  ///< max|r| / (norm(A) max|x| + max|b|), norm: largest row sum
  double two_norm = 0;  ///< |r|_2 / |b|_2, or |r|_2 when b is zero
};

/// Residuals of `nrhs` columns, the worst of each measure.  Sums run in extended precision.
/// @param transposed  A is to be read as its transpose
/// NaN in x gives NaN in every measure that it meets.
Residual residual(const SparseMatrix& matrix, bool transposed, int nrhs,
                  const std::vector<double>& b, const std::vector<double>& x);

/// y = A x for one column, A transposed on demand.
std::vector<double> multiply(const SparseMatrix& matrix, bool transposed,
                             const std::vector<double>& x);

}  // namespace tool
