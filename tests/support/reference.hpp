// SPDX-License-Identifier: BSD-3-Clause
/// Plain, obviously right versions of what the solver computes: dense LAPACK for the numbers,
/// elimination on sets for the structure.  O(n^3) and worse; meant for n up to a few hundred.
#pragma once

#include <complex>
#include <cstdint>
#include <set>
#include <span>
#include <vector>

#include "gallery.hpp"

namespace vlm::test {

// --- dense ----------------------------------------------------------------------------------

/// Square matrix, column-major, complex whatever the type it came from.
struct Dense {
  int n = 0;
  std::vector<cplx> a;
  cplx& operator()(int i, int j) { return a[static_cast<std::size_t>(j) * n + i]; }
  cplx operator()(int i, int j) const { return a[static_cast<std::size_t>(j) * n + i]; }
};

/// All n*n entries of a matrix of any storage.
Dense to_dense(const Matrix& m);

/// Solves A X = B by LU with partial pivoting; b is n by nrhs.
std::vector<cplx> dense_solve(const Dense& a, const std::vector<cplx>& b, int nrhs);

/// Natural logarithm of |det A|.
double dense_log_abs_det(const Dense& a);

/// Eigenvalues of a real symmetric or Hermitian matrix, ascending.
std::vector<double> dense_eigenvalues(const Dense& a);

struct Inertia {
  int positive = 0, negative = 0;
  bool operator==(const Inertia&) const = default;
};
/// Signs of the eigenvalues of a real symmetric or Hermitian matrix.
Inertia dense_inertia(const Dense& a);

/// Ratio of the extreme singular values, from the eigenvalues of A^H A: exact enough up to 1e7,
/// infinity for a singular matrix.
double dense_condition(const Dense& a);

/// Leading block eliminated: S = A22 - A21 A11^{-1} A12 of the other rows.
Dense dense_schur(const Dense& a, int leading);

// --- vectors and errors ---------------------------------------------------------------------

/// n*nrhs values as the entry point stores them (complex as pairs), each part uniform in (-1, 1).
std::vector<double> random_vector(const Matrix& m, int nrhs, std::uint64_t seed);

/// Value i of a vector in the storage of the matrix's type, i from 0.
cplx vector_value(const Matrix& m, const std::vector<double>& v, std::size_t i);

/// y = A x, or A^T x (not conjugated), n by nrhs.
std::vector<double> product(const Matrix& m, const std::vector<double>& x, int nrhs = 1,
                            bool transpose = false);

/// Largest |b - A x|_i / (|A| |x| + |b|)_i over all rows and right-hand sides; residual in
/// extended precision.  0/0 counts as 0, NaN anywhere gives infinity.
double componentwise_error(const Matrix& m, const std::vector<double>& x,
                           const std::vector<double>& b, int nrhs = 1, bool transpose = false);

/// |b - A x| / (|A| |x| + |b|) in maximum norms, worst right-hand side.
double normwise_error(const Matrix& m, const std::vector<double>& x, const std::vector<double>& b,
                      int nrhs = 1, bool transpose = false);

/// Largest |u - v| over the largest |v|; infinity on NaN.
double relative_difference(const std::vector<double>& u, const std::vector<double>& v);

// --- structure ------------------------------------------------------------------------------

/// True when p holds each of 1..n once.
bool is_permutation(std::span<const int> p);
/// invp(perm(i)) = i for all i.
bool are_inverse(std::span<const int> perm, std::span<const int> invp);

/// What elimination gives for a matrix in a given order.  All numbers are positions from 1;
/// element 0 of every list is unused.
struct SymbolicReference {
  int n = 0;
  std::vector<std::set<int>> column;  ///< [n+1] rows of a column of L, diagonal included
  std::vector<int> parent;            ///< [n+1] elimination tree, 0 for a root
  std::vector<int> colcnt;            ///< [n+1]
  std::int64_t nnz_l = 0;
};

/// Eliminates position after position on sets of neighbours.
/// @param perm  position to node, 1-based [n]
/// @param kept  last positions that are not eliminated: their columns hold the Schur complement,
/// and
///              their parents are a chain
SymbolicReference eliminate(const Matrix& m, std::span<const int> perm, int kept = 0);

/// Partition of the columns into supernodes.
struct SupernodeReference {
  std::vector<int> xsuper;  ///< first column of each supernode, then n+1
  int largest = 0;          ///< widest chain of columns with one structure, before the panel limit
};

/// Column k joins the supernode of k-1 when it is its parent and has one entry less.  A chain is
/// cut every `panel` columns, and once where it first crosses into the `trailing` last columns.
SupernodeReference supernodes(const SymbolicReference& s, int panel, int trailing = 0);

/// Entries of the panels of L: every column as tall as the first of its supernode.
std::int64_t panel_entries(const SymbolicReference& s, const SupernodeReference& p);
/// Entries of the rectangles of U below (right of) the diagonal blocks.
std::int64_t rectangle_entries(const SymbolicReference& s, const SupernodeReference& p);

}  // namespace vlm::test
