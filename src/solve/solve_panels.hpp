// SPDX-License-Identifier: BSD-3-Clause
/// Steps of the triangular solves with one panel, for one or a block of right-hand sides.
///
/// One right-hand side runs through panel kernels bound by the reading of the factor.
/// Several are taken in blocks and held with the right-hand sides of one unknown next to
/// each other, so that a panel's scattered rows are whole vectors, which the kernels take where
/// they stand.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "numeric/family.hpp"
#include "solve/solve.hpp"

namespace vlm {

/// Vectors of one block of right-hand sides: y(i, k) is right-hand side k of position i, with
/// the block's values adjacent.
template <class T>
struct SolveFrame {
  const SolveOptions& options;
  const Structure& st;
  FactorStore<T> store;
  const Kernels<T>& kernel = kernels<T>();
  T* y = nullptr;      ///< [n * nb]
  T* temp = nullptr;   ///< [max_rows] scratch of one thread for one right-hand side
  int nb = 1;          ///< one, or as block_stride() says
  int tail_first = 0;  ///< updates of rows from here on go to `tail`
  T* tail = nullptr;   ///< as y, valid from tail_first on

  /// Rows of an ascending list that lie before the tail.
  int rows_in_front(const int* row, int count) const {
    if (count == 0 || row[count - 1] < tail_first) return count;
    return static_cast<int>(std::lower_bound(row, row + count, tail_first) - row);
  }
};

/// Values of one unknown in a block of right-hand sides: whole vectors, unless it is a single one.
template <class T>
int block_stride(int nrhs) {
  const int unit = kernels<T>().sweep_unit;
  return nrhs == 1 ? 1 : (nrhs + unit - 1) / unit * unit;
}

/// Applies the interchanges of a panel's diagonal block to its part of y.
template <class T>
void interchange_block(const int* pivot, int width, T* y, int nb, bool undo) {
  const auto swap = [&](int k) {
    const int place = std::abs(pivot[k]) - 1;
    // Of a 2x2 block the second row was exchanged; its first entry repeats the record.
    if (place != k)
      std::swap_ranges(y + static_cast<std::ptrdiff_t>(k) * nb,
                       y + static_cast<std::ptrdiff_t>(k + 1) * nb,
                       y + static_cast<std::ptrdiff_t>(place) * nb);
  };
  if (!undo) {
    for (int k = 0; k < width; ++k) {
      if (pivot[k] < 0) ++k;
      swap(k);
    }
  } else {
    for (int k = width - 1; k >= 0; --k) {
      swap(k);
      if (pivot[k] < 0) --k;
    }
  }
}

/// One triangle of a panel, seen as the lower one: L itself, or U through its transpose.
template <class T>
struct Triangle {
  const T* block;  ///< diagonal block, element (j,k) at j*row + k*col
  int row, col;
  bool unit;
  bool conjugate;  ///< the backward sweep of Hermitian factors
  const T* below;  ///< rows below the block, column-major
  int ld_below;
  const int* pivot;  ///< interchanges that belong to this side; null: none
};

/// Whether the rows below the block continue its columns, so that one kernel takes both.
template <class T>
bool is_trapezoid(const Panel<T>& p, const Triangle<T>& t) {
  return t.row == 1 && t.below == t.block + p.width;
}

/// Adds what a panel contributes to its rows below.
template <class T>
void add_below(const SolveFrame<T>& f, const Panel<T>& p, const T* sum) {
  const int* row = p.row + p.width;
  const int below = p.below(), front = f.rows_in_front(row, below);
  for (int i = 0; i < front; ++i) f.y[row[i] - 1] += sum[i];
  for (int i = front; i < below; ++i) f.tail[row[i] - 1] += sum[i];
}

/// Forward step of one right-hand side, y being the panel's own part.
template <class T>
void forward_vector(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  TriangleSolve<T> solve{p.width, p.width, t.block, t.row, t.col, t.unit, t.conjugate, y};
  if (p.below() == 0) {
    f.kernel.solve_lower(solve);
  } else if (is_trapezoid(p, t)) {
    solve.rows = p.rows;
    solve.x = f.temp;
    std::copy_n(y, p.width, f.temp);
    std::fill_n(f.temp + p.width, p.below(), T(0));
    f.kernel.solve_lower(solve);
    std::copy_n(f.temp, p.width, y);
    add_below(f, p, f.temp + p.width);
  } else {
    f.kernel.solve_lower(solve);
    std::fill_n(f.temp, p.below(), T(0));
    f.kernel.subtract_product(p.below(), p.width, t.below, t.ld_below, y, f.temp);
    add_below(f, p, f.temp);
  }
}

/// Backward step of one right-hand side.
template <class T>
void backward_vector(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  const int* row = p.row + p.width;
  TriangleSolve<T> solve{p.width, p.width, t.block, t.row, t.col, t.unit, t.conjugate, y};
  if (p.below() > 0 && is_trapezoid(p, t)) {
    solve.rows = p.rows;
    solve.x = f.temp;
    std::copy_n(y, p.width, f.temp);
    for (int i = 0; i < p.below(); ++i) f.temp[p.width + i] = f.y[row[i] - 1];
    f.kernel.solve_lower_transposed(solve);
    std::copy_n(f.temp, p.width, y);
    return;
  }
  for (int i = 0; i < p.below(); ++i) f.temp[i] = f.y[row[i] - 1];
  f.kernel.multiply_transposed(p.below(), p.width, t.below, t.ld_below, t.conjugate, f.temp, y);
  f.kernel.solve_lower_transposed(solve);
}

template <class T>
T conjugate_if(T x, bool flag) {
  return flag ? maybe_conj<true>(x) : x;
}

/// Forward step of one right-hand side with a panel of one column: too little work for a kernel.
template <class T>
void forward_column(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  if (!t.unit) *y /= conjugate_if(*t.block, t.conjugate);
  const T v = *y;
  const int* row = p.row + 1;
  const int below = p.below(), front = f.rows_in_front(row, below);
  for (int i = 0; i < front; ++i) f.y[row[i] - 1] -= t.below[i] * v;
  for (int i = front; i < below; ++i) f.tail[row[i] - 1] -= t.below[i] * v;
}

/// Backward step of one right-hand side with a panel of one column.
template <class T>
void backward_column(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  const int* row = p.row + 1;
  T v = *y;
  for (int i = 0; i < p.below(); ++i) v -= conjugate_if(t.below[i], t.conjugate) * f.y[row[i] - 1];
  *y = t.unit ? v : v / conjugate_if(*t.block, t.conjugate);
}

/// A step of several right-hand sides.
template <class T>
PanelSweep<T> block_step(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t, T* y) {
  const int* const row = p.row + p.width;
  return {.width = p.width,
          .below = p.below(),
          .nb = f.nb,
          .l = t.block,
          .l_row = t.row,
          .l_col = t.col,
          .unit = t.unit,
          .conjugate = t.conjugate,
          .rest = t.below,
          .ld_rest = t.ld_below,
          .y = y,
          .row = row,
          .front = f.rows_in_front(row, p.below()),
          .c = f.y - f.nb,
          .tail = f.tail == nullptr ? nullptr : f.tail - f.nb};
}

/// y := (triangle)^-1 y for a panel's columns, and the rows below brought up to date.
template <class T>
void forward_panel(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t) {
  T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
  if (t.pivot && p.width > 1) interchange_block(t.pivot, p.width, y, f.nb, false);
  if (f.nb > 1)
    f.kernel.sweep_forward(block_step(f, p, t, y));
  else if (p.width == 1)
    forward_column(f, p, t, y);
  else
    forward_vector(f, p, t, y);
}

/// y := (triangle)^-T y for a panel's columns, from the finished rows below.
template <class T>
void backward_panel(const SolveFrame<T>& f, const Panel<T>& p, const Triangle<T>& t) {
  T* y = f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb;
  if (f.nb > 1)
    f.kernel.sweep_backward(block_step(f, p, t, y));
  else if (p.width == 1)
    backward_column(f, p, t, y);
  else
    backward_vector(f, p, t, y);
  if (t.pivot && p.width > 1) interchange_block(t.pivot, p.width, y, f.nb, true);
}

/// Symmetric factors: what the three steps do with one panel.
template <class T, bool hermitian, bool unit>
struct SymmetricSolve {
  static Triangle<T> triangle(const Panel<T>& p, bool backward) {
    return {p.l, 1, p.rows, unit, hermitian && backward, p.l21(), p.rows, unit ? p.pivot : nullptr};
  }
  static void forward(const SolveFrame<T>& f, const Panel<T>& p) {
    forward_panel(f, p, triangle(p, false));
    // The block is held transposed: y^T D^-T.
    if (unit)
      divide_by_d<T, hermitian, true>(p, f.y + static_cast<std::ptrdiff_t>(p.first - 1) * f.nb,
                                      f.nb, f.nb);
  }
  static void backward(const SolveFrame<T>& f, const Panel<T>& p) {
    backward_panel(f, p, triangle(p, true));
  }
};

/// LU factors: L forward and U backward, or with the transposed matrix U^T and L^T.
template <class T>
struct LuSolve {
  static Triangle<T> lower(const Panel<T>& p) {
    return {p.l, 1, p.rows, true, false, p.l21(), p.rows, p.pivot};
  }
  static Triangle<T> upper(const Panel<T>& p) {
    return {p.l, p.rows, 1, false, false, p.u, p.below(), p.column_pivot};
  }
  static void forward(const SolveFrame<T>& f, const Panel<T>& p) {
    forward_panel(f, p, f.options.transpose ? upper(p) : lower(p));
  }
  static void backward(const SolveFrame<T>& f, const Panel<T>& p) {
    backward_panel(f, p, f.options.transpose ? lower(p) : upper(p));
  }
};

}  // namespace vlm
