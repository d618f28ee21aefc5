// SPDX-License-Identifier: BSD-3-Clause
/// Dense kernels of the panels, one table per scalar kind.
///
/// The numeric families work on column-major panels through these few operations.  Their
/// text (instances.cpp) is compiled once for each instruction set; choice.hpp gives the table
/// that fits the processor.  All sizes count values; all positions are 0-based
/// offsets, since the operands are panels and not structural arrays.
#pragma once

#include <complex>
#include <cstddef>

#include "kernels/blas.hpp"

namespace vlm {

/// Bytes of the first-level data cache and of the second-level cache of this processor, asked
/// once.
int first_level_cache();
int second_level_cache();

/// Most columns of both operands that an update takes at once.
inline constexpr int deepest_update = 256;
/// Bytes of the tiles of the first operand that are copied together, one of the deepest at least.
inline constexpr int packed_tiles = 65536;
/// Bytes for a block of the second operand on the stack, which has to grow by them and may be
/// short.
inline constexpr int stack_columns = 65536;

/// Room for the copies that a kernel makes of its operands; every thread needs one of its own.
struct PackingSpace {
  void* at = nullptr;     ///< null: a little of the stack is used instead
  std::size_t bytes = 0;  ///< as packing_bytes() says
};

/// Bytes for updates of values of `scalar` bytes whose q and k are at most `width` and `depth`, so
/// that no block of the second operand is copied in pieces that the second-level cache would hold;
/// 0 where the stack does as well.
std::size_t packing_bytes(std::size_t scalar, int width, int depth);

/// C(row(i), col(j)) -= sum over k of A(i,k) B(j,k).
template <class T>
struct PanelUpdate {
  int m = 0, q = 0, k = 0;  ///< rows of A, rows of B, columns of both
  const T* a = nullptr;     ///< A(i,k) = a[i + k*lda]
  int lda = 0;
  const T* b = nullptr;  ///< B(j,k) = b[j*b_row + k*b_col]
  int b_row = 1, b_col = 0;
  T* c = nullptr;
  int ldc = 0;
  const int* row = nullptr;  ///< [m] rows of C, rising; null: 0, 1, 2, ...
  const int* col = nullptr;  ///< [q] columns of C, rising; null: 0, 1, 2, ...
  bool lower = false;        ///< entries with i < j need not be formed
  bool conjugate = false;    ///< B is conjugated (complex kinds)
  PackingSpace space = {};
};

/// X := X op(L)^-1 from the right, in place.  An upper triangle is given as the lower one that
/// it is transposed, by its strides.
template <class T>
struct RightSolve {
  enum class Op { transposed, plain };
  int m = 0, n = 0;      ///< X is m by n, L n by n lower triangular
  const T* l = nullptr;  ///< L(j,k) = l[j*l_row + k*l_col]
  int l_row = 1, l_col = 0;
  bool unit = false;       ///< the diagonal of L counts as 1
  bool conjugate = false;  ///< L is conjugated (complex kinds)
  Op op = Op::transposed;
  T* x = nullptr;
  int ldx = 0;
  PackingSpace space = {};
};

/// One vector against a lower triangle L(j,k) = l[j*l_row + k*l_col], one stride being 1.
///
/// With contiguous columns (l_row 1) more rows may follow the triangle: the forward solve
/// takes its columns off x(n..rows), the transposed one starts from those entries.
template <class T>
struct TriangleSolve {
  int n = 0, rows = 0;  ///< columns; rows, n for a plain triangle
  const T* l = nullptr;
  int l_row = 1, l_col = 0;
  bool unit = false;
  bool conjugate = false;
  T* x = nullptr;  ///< [rows]
};

/// A panel's triangle and the rows below it against a block of vectors, the values of one unknown
/// next to each other.
template <class T>
struct PanelSweep {
  int width = 0, below = 0;
  int nb = 0;            ///< values of one unknown, a multiple of sweep_unit
  const T* l = nullptr;  ///< the triangle L(j,k) = l[j*l_row + k*l_col]
  int l_row = 1, l_col = 0;
  bool unit = false;        ///< the diagonal of L counts as 1
  bool conjugate = false;   ///< all entries are conjugated (complex kinds)
  const T* rest = nullptr;  ///< [below * width] rows below, column-major
  int ld_rest = 0;
  T* y = nullptr;            ///< [width * nb] the panel's unknowns
  const int* row = nullptr;  ///< [below] rows of c, or of the tail
  int front = 0;             ///< a forward step finds so many rows in c, the others in the tail
  T *c = nullptr, *tail = nullptr;
};

/// Vectors that share a pass over a sparse matrix.
inline constexpr int residual_group = 16;

/// Rows first to last-1 of a sparse matrix times a group of vectors, the values of one unknown next
/// to each other, of complex kinds all real parts before all imaginary ones.  Products are taken off
/// the residuals and their sizes added up, of complex factors the sums of the parts' magnitudes.
template <class T>
struct ResidualRows {
  using Real = decltype(std::real(T()));
  int first = 0, last = 0;
  const int *ia = nullptr, *ja = nullptr;  ///< rows and columns, 1-based
  const T* a = nullptr;
  bool gathers = true, scatters = false;  ///< entries count for their row; for their column
  bool conjugate_here = false, conjugate_there = false;  ///< in the one and the other place
  const Real* x = nullptr;
  Real* residual = nullptr;
  Real* scale = nullptr;  ///< [n * residual_group]
};

/// Pivot statistics and threshold of a diagonal block's factorization.
template <class T>
struct BlockPivots {
  double eps = 0;  ///< threshold and replacement; 0: exact zeros only, replaced by a default
  bool hermitian = false;
  bool want_logdet = false;
  double logdet = 0;
  int perturbed = 0;
  int positive = 0, negative = 0;  ///< signs of D; not counted for complex symmetric blocks
  int doubtful = 0;                ///< of these, signs that the values don't decide
  int doubtful_positive = 0;       ///< of these, positive ones
  double largest_update = 0;       ///< largest product of L and U, or of L, D and L^H
  int grown = 0;                   ///< pivots whose updates exceed the bound on growth
};

template <class T>
struct Kernels {
  const char* isa;
  void (*update)(const PanelUpdate<T>&);
  void (*solve_right)(const RightSolve<T>&);
  /// Cholesky of the lower triangle, L L^H; returns 0, or the 1-based column that failed.
  int (*cholesky)(int n, T* a, int lda);
  /// LDL^T by Bunch-Kaufman pivots inside the block; pivot[n], 1-based, negative for 2x2.
  void (*ldlt)(int n, T* a, int lda, int* pivot, BlockPivots<T>& stats);
  /// LDL^T by diagonal pivots inside the block.
  void (*ldlt_diagonal)(int n, T* a, int lda, int* pivot, BlockPivots<T>& stats);
  /// LU with complete pivoting; row[n] and column[n] take the interchanges, 1-based; work[n].
  void (*lu_complete)(int n, T* a, int lda, int* row, int* column, T* work, BlockPivots<T>& stats);
  /// Largest magnitude among n values, of complex ones that of a part; NaN does not count.
  double (*largest)(std::ptrdiff_t n, const T* x);
  /// t -= A x for an m by n panel.
  void (*subtract_product)(int m, int n, const T* a, int lda, const T* x, T* t);
  /// y(j) -= sum over i of op(A(i,j)) t(i), op the conjugate where asked.
  void (*multiply_transposed)(int m, int n, const T* a, int lda, bool conjugate, const T* t, T* y);
  /// x := op(L)^-1 x and x := op(L)^-T x for one vector; strides as in RightSolve.
  void (*solve_lower)(const TriangleSolve<T>&);
  void (*solve_lower_transposed)(const TriangleSolve<T>&);
  int sweep_unit;  ///< values that a vector holds
  /// y := op(L)^-1 y and the rows below less their entries times y.
  void (*sweep_forward)(const PanelSweep<T>&);
  /// y := op(L)^-T (y - op(entries below)^T c), op the conjugate where asked.
  void (*sweep_backward)(const PanelSweep<T>&);
  void (*residual_rows)(const ResidualRows<T>&);
};

}  // namespace vlm
