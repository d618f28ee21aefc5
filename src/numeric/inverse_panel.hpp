// SPDX-License-Identifier: BSD-3-Clause
/// One panel of the selected inverse, for every family and scalar kind.
///
/// Let J be the columns of a panel, K the rows below its diagonal block, S the block as it was
/// eliminated, Z the inverse.  With Y = L(K,J) L(J,J)^-1, that is A(K,J) S^-1, and V the same of U
/// transposed,
///
///     Z(K,J) = -Z(K,K) Y,   Z(J,K) = -V^T Z(K,K),   Z(J,J) = S^-1 - V^T Z(K,J),
///
/// and Z(K,K) lies within the panels of J's ancestors, which are finished (K. Takahashi, J. Fagan,
/// M.-S. Chen, Formation of a sparse bus impedance matrix and its application to short circuit
/// study, 1973; A. M. Erisman, W. F. Tinney, On computing certain elements of the inverse of a
/// sparse matrix, 1975).  Symmetric panels have V = Y or its conjugate, and the lower triangle of
/// Z alone.
///
/// Y and V are formed in place and then kept in scratch, transposed: the tall dimension is then the
/// long one of the update kernel's second operand, which is the store of the ancestors itself
/// wherever rows follow each other.  Narrow panels have their transposed columns padded to whole
/// vectors.  A panel takes the products in its own store where the padding leaves room for them, so
/// that scratch is little more than one panel a thread.  Of full storage it is Y and V together
/// where that is little beside the factor; else one after the other, and what is gathered is so
/// twice.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "base/backoff.hpp"
#include "base/memory.hpp"
#include "numeric/family.hpp"

namespace vlm {

/// What an inversion reads and writes, shared by all its threads.
template <class T>
struct InverseFrame {
  const Structure& st;
  FactorStore<T> store;
  const Kernels<T>& kernel = kernels<T>();
  std::atomic<char>* done = nullptr;  ///< [nsuper] whether a panel holds the inverse
};

/// Entries of Z that are taken at once, and how many of their rows: such a block stays in cache
/// together with its columns of a panel.
inline constexpr int inverse_entries = 64 * 64, most_inverse_rows = 128, fewest_inverse_rows = 32;
inline int inverse_rows(int columns) {
  return std::clamp(inverse_entries / columns, fewest_inverse_rows, most_inverse_rows);
}

/// Width of a transposed panel: a multiple of the widest vector, where the panel is narrow.
template <class T>
int padded_width(int width) {
  constexpr int lanes = 64 / sizeof(T), wide = 4 * lanes;
  return width >= wide ? width : (width + lanes - 1) / lanes * lanes;
}

/// Whether the store of a panel's side, L with the diagonal block or U, has room for `below`
/// columns of the padded width.
inline bool has_room(int side, int width, int padded, int below) {
  const std::int64_t room = std::int64_t{width} * (side == 0 ? below + width : below);
  return std::int64_t{padded} * below <= room;
}

/// Operands of both sides at a time take at most this part of the factor.
inline constexpr std::size_t part_of_factor = 32;

/// Scratch of one thread.
template <class T>
struct InverseScratch {
  Vector<T> block;        ///< inverse of a diagonal block
  Vector<T> operand[2];   ///< Y and V, transposed; before that, work of a block's inversion
  Vector<T> result[2];    ///< products of panels whose own store has no room for them
  Vector<T> gathered;     ///< part of Z(K,K)
  Vector<int> place;      ///< of K's rows in an ancestor's list, from 0
  Vector<int> labels[2];  ///< columns and rows of a block in their order before the pivoting

  bool has_both() const { return !operand[1].empty(); }

  /// @param team  threads that have scratch like this one
  InverseScratch(const Structure& st, bool two_sided, int team) {
    const int sides = two_sided ? 2 : 1;
    const auto square = [](int width) {
      return static_cast<std::size_t>(padded_width<T>(width)) * static_cast<std::size_t>(width);
    };
    std::size_t most = square(st.max_width), most_apart[2] = {};
    for (int s = 1; s <= st.nsuper; ++s) {
      const int width = st.xsuper(s + 1) - st.xsuper(s), padded = padded_width<T>(width);
      const int below = st.xlindx(s + 1) - st.xlindx(s) - width;
      const std::size_t size = static_cast<std::size_t>(padded) * static_cast<std::size_t>(below);
      most = std::max(most, size);
      for (int side = 0; side < sides; ++side)
        if (!has_room(side, width, padded, below))
          most_apart[side] = std::max(most_apart[side], size);
    }
    const auto width = static_cast<std::size_t>(st.max_width);
    block.resize(square(st.max_width));
    const auto values = static_cast<std::size_t>(st.len_lnz + st.len_unz);
    operand[0].resize(most);
    if (two_sided && most * static_cast<std::size_t>(team) <= values / part_of_factor)
      operand[1].resize(most);
    for (int side = 0; side < sides; ++side) result[side].resize(most_apart[side]);
    gathered.resize(static_cast<std::size_t>(
        std::min(st.max_width * most_inverse_rows,
                 std::max(inverse_entries, st.max_width * fewest_inverse_rows))));
    place.resize(static_cast<std::size_t>(st.max_rows));
    for (auto& list : labels) list.resize(width);
  }
};

/// to(j, i) := from(i, j), conjugated where asked; `from` is m by n.
template <bool conjugate, class T>
void transpose(int m, int n, const T* from, std::ptrdiff_t ld_from, T* to, std::ptrdiff_t ld_to) {
  constexpr int tile = 16;
  for (int i0 = 0; i0 < m; i0 += tile)
    for (int j = 0; j < n; ++j)
      for (int i = i0; i < std::min(m, i0 + tile); ++i)
        to[j + i * ld_to] = maybe_conj<conjugate>(from[i + j * ld_from]);
}

/// X := the unit matrix of order n.
template <class T>
void set_unit(int n, T* x) {
  std::fill_n(x, static_cast<std::size_t>(n) * n, T(0));
  for (int k = 0; k < n; ++k) x[k + static_cast<std::ptrdiff_t>(k) * n] = T(1);
}

/// Where the entries of a vector in pivoted order belong before the interchanges of a block:
/// entry k of the original order is entry label[k] of the pivoted one.
inline void undo_interchanges(const int* pivot, int width, int* label) {
  for (int k = 0; k < width; ++k) label[k] = k;
  for (int k = width - 1; k >= 0; --k) {
    std::swap(label[k], label[std::abs(pivot[k]) - 1]);
    if (pivot[k] < 0) --k;  // of a 2x2 block the second row was exchanged
  }
}

/// Symmetric and Hermitian panels; `pivoted` for L D L^T with a unit L, else Cholesky.
template <class T, bool hermitian, bool pivoted>
struct SymmetricInverse {
  static constexpr bool two_sided = false, conjugate = hermitian;

  static RightSolve<T> triangle(const Panel<T>& p) {
    return {.n = p.width,
            .l = p.l,
            .l_row = 1,
            .l_col = p.rows,
            .unit = pivoted,
            .op = RightSolve<T>::Op::plain};
  }

  /// x := S^-1 in pivoted order, as L^-H (D^-1 L^-1), with leading dimension ldx; work [width^2].
  static void invert_block(const Kernels<T>& kernel, const Panel<T>& p, T* x, int ldx, T* work) {
    RightSolve<T> solve = triangle(p);
    solve.m = solve.ldx = p.width;
    set_unit(p.width, work);
    if (pivoted) divide_by_d<T, hermitian>(p, work, p.width, p.width);
    solve.x = work;
    kernel.solve_right(solve);
    transpose<hermitian>(p.width, p.width, work, p.width, x, ldx);
    solve.x = x;
    solve.ldx = ldx;
    kernel.solve_right(solve);
  }

  /// L(K,J) := Y, in place.
  static void solve_below(const Kernels<T>& kernel, const Panel<T>& p) {
    RightSolve<T> solve = triangle(p);
    solve.m = p.below();
    solve.x = p.l21();
    solve.ldx = p.rows;
    kernel.solve_right(solve);
  }
};

/// Panels of LU factors, whatever pivots were searched in the block.
template <class T>
struct LuInverse {
  static constexpr bool two_sided = true, conjugate = false;

  static RightSolve<T> lower(const Panel<T>& p) {
    return {.n = p.width,
            .l = p.l,
            .l_row = 1,
            .l_col = p.rows,
            .unit = true,
            .op = RightSolve<T>::Op::plain};
  }
  /// U transposed, reached by its strides.
  static RightSolve<T> upper(const Panel<T>& p) {
    return {.n = p.width,
            .l = p.l,
            .l_row = p.rows,
            .l_col = 1,
            .unit = false,
            .op = RightSolve<T>::Op::plain};
  }

  /// x := U^-1 L^-1 in pivoted order, with leading dimension ldx; work [width^2].
  static void invert_block(const Kernels<T>& kernel, const Panel<T>& p, T* x, int ldx, T* work) {
    RightSolve<T> solve = lower(p);
    solve.m = solve.ldx = p.width;
    set_unit(p.width, x);
    solve.x = x;
    kernel.solve_right(solve);
    transpose<false>(p.width, p.width, x, p.width, work, p.width);
    solve = upper(p);
    solve.m = solve.ldx = p.width;
    solve.x = work;
    kernel.solve_right(solve);
    transpose<false>(p.width, p.width, work, p.width, x, ldx);
  }

  /// L(K,J) := Y and U(J,K)^T := V, in place.
  static void solve_below(const Kernels<T>& kernel, const Panel<T>& p) {
    RightSolve<T> solve = lower(p);
    solve.m = p.below();
    solve.x = p.l21();
    solve.ldx = p.rows;
    kernel.solve_right(solve);
    solve = upper(p);
    solve.m = solve.ldx = p.below();
    solve.x = p.u;
    kernel.solve_right(solve);
  }
};

/// A block of Z(K,K): rows and columns by their place in K, from 0.
template <class T>
struct InverseBlock {
  const T* z;
  int ld;
  int row, rows;
  int column, columns;
};

/// Which of the operands are at hand.
struct Operands {
  bool y = false, v = false;
};

/// The inversion of one panel.  The products of side 0 are -Z(K,K) Y, those of side 1 -V^T Z(K,K);
/// both lie transposed, width by below(), with the padded width between columns.
template <class Family, class T>
class PanelInversion {
 public:
  PanelInversion(const InverseFrame<T>& frame, InverseScratch<T>& scratch, int s)
      : f_(frame),
        scratch_(scratch),
        panel_(panel_of(frame.st, frame.store, s)),
        padded_(padded_width<T>(panel_.width)),
        s_(s) {}

  void run() {
    const Panel<T>& p = panel_;
    T* const block = scratch_.block.data();
    Family::invert_block(f_.kernel, p, block, padded_, scratch_.operand[0].data());
    if (p.below() > 0) {
      Family::solve_below(f_.kernel, p);
      start_side<Family::conjugate>(0, p.l21(), p.rows, p.l);
      if constexpr (Family::two_sided) {
        if (!scratch_.has_both()) multiply_by_ancestors({.y = true});
        start_side<false>(1, p.u, p.below(), p.u);
        multiply_by_ancestors({.y = scratch_.has_both(), .v = true});
      } else {
        multiply_by_ancestors({.y = true});
      }
      complete_block(block);
    }
    if constexpr (!Family::two_sided) mirror(block);
    put_back(block);
    f_.done[s_ - 1].store(1, std::memory_order_release);
  }

 private:
  bool in_store(int side) const { return has_room(side, panel_.width, padded_, panel_.below()); }
  T* operand_of(int side) const { return scratch_.operand[scratch_.has_both() ? side : 0].data(); }
  static std::size_t size_of(int m, int n) { return static_cast<std::size_t>(m) * n; }

  /// Turns one side of the panel into the operand, and clears its result.
  /// @param from   Y or V, with its leading dimension
  /// @param store  where it lies, which is free from then on
  template <bool conjugate>
  void start_side(int side, const T* from, int ld, T* store) {
    const int w = panel_.width, below = panel_.below();
    T* const operand = operand_of(side);
    transpose<conjugate>(below, w, from, ld, operand, padded_);
    for (int i = 0; padded_ != w && i < below; ++i)
      std::fill_n(operand + static_cast<std::ptrdiff_t>(i) * padded_ + w, padded_ - w, T(0));
    result_[side] = in_store(side) ? store : scratch_.result[side].data();
    std::fill_n(result_[side], size_of(padded_, below), T(0));
  }

  /// The panels that hold Z(K,K), from the root down, each as soon as it is there.
  void multiply_by_ancestors(Operands of) {
    const int* const row = panel_.row + panel_.width;
    for (int end = panel_.below(); end > 0;) {
      const int t = f_.st.snode(row[end - 1]), first = f_.st.xsuper(t);
      int begin = end - 1;
      while (begin > 0 && row[begin - 1] >= first) --begin;
      for (Backoff backoff; f_.done[t - 1].load(std::memory_order_acquire) == 0;) backoff.wait();
      multiply_by(panel_of(f_.st, f_.store, t), of, begin, end - begin);
      end = begin;
    }
  }

  /// The part of Z(K,K) that one ancestor holds: `columns` columns from `begin` on, and the rows
  /// from there to the end.
  void multiply_by(const Panel<T>& z, Operands of, int begin, int columns) {
    const int rows = panel_.below() - begin;
    find_places(z, panel_.row + panel_.width + begin, rows, columns);
    for (int i = 0, count; i < rows; i += count) {
      const bool diagonal = i < columns;  // such blocks hold both triangles of Z
      count = std::min(inverse_rows(columns), (diagonal ? columns : rows) - i);
      const auto lower = block_of(z.l, z.rows, 0, begin, columns, i, count);
      if (of.y) below_diagonal(0, lower);
      if constexpr (Family::two_sided) {
        if (of.v) above_diagonal(1, lower);
        if (diagonal) continue;
        const auto upper = block_of(z.u, z.below(), z.width, begin, columns, i, count);
        if (of.v) below_diagonal(1, upper);
        if (of.y) above_diagonal(0, upper);
      } else if (!diagonal) {
        above_diagonal(0, lower);
      }
    }
  }

  /// Places in the list of an ancestor of rows that it contains.
  void find_places(const Panel<T>& z, const int* row, int rows, int columns) {
    int* const place = scratch_.place.data();
    const int start = row[0] - z.first;
    contiguous_ = start + rows <= z.rows && z.row[start + rows - 1] == row[rows - 1];
    place[0] = start;
    if (contiguous_) return;
    for (int i = 0; i < columns; ++i) place[i] = row[i] - z.first;
    // The lists are close to each other or far apart in length: steps that double find both.
    for (int i = columns, low = z.width; i < rows; ++i) {
      int step = 1;
      while (low + step < z.rows && z.row[low + step] <= row[i]) {
        low += step;
        step *= 2;
      }
      const int* const end = z.row + std::min(low + step, z.rows);
      low = static_cast<int>(std::lower_bound(z.row + low, end, row[i]) - z.row);
      place[i] = low;
    }
  }

  /// Rows i.. of an ancestor's part, from its store or gathered.
  /// @param skip  rows of the list that the store does not have
  InverseBlock<T> block_of(const T* store, int ld, int skip, int begin, int columns, int i,
                           int count) {
    const int* const place = scratch_.place.data();
    InverseBlock<T> out{store, ld, begin + i, count, begin, columns};
    const auto column = [&](int k) {
      return static_cast<std::ptrdiff_t>(contiguous_ ? place[0] + k : place[k]) * ld - skip;
    };
    const bool whole_columns = contiguous_ || place[columns - 1] - place[0] == columns - 1;
    if (contiguous_ || (whole_columns && place[i + count - 1] - place[i] == count - 1)) {
      out.z += column(0) + (contiguous_ ? place[0] + i : place[i]);
      return out;
    }
    T* to = scratch_.gathered.data();
    out.z = to;
    out.ld = count;
    for (int k = 0; k < columns; ++k, to += count) {
      const T* const from = store + column(k);
      for (int r = 0; r < count; ++r) to[r] = from[place[i + r]];
    }
    return out;
  }

  /// result(:, rows) -= operand(:, columns) Z^T.
  void below_diagonal(int side, const InverseBlock<T>& block) {
    PanelUpdate<T> u = product(side, block.row, block.column);
    u.q = block.rows;
    u.k = block.columns;
    u.b = block.z;
    u.b_row = 1;
    u.b_col = block.ld;
    u.conjugate = Family::conjugate;
    f_.kernel.update(u);
  }

  /// result(:, columns) -= operand(:, rows) Z.
  void above_diagonal(int side, const InverseBlock<T>& block) {
    PanelUpdate<T> u = product(side, block.column, block.row);
    u.q = block.columns;
    u.k = block.rows;
    u.b = block.z;
    u.b_row = block.ld;
    u.b_col = 1;
    f_.kernel.update(u);
  }

  PanelUpdate<T> product(int side, int to, int from) const {
    return {.m = padded_,
            .a = operand_of(side) + static_cast<std::ptrdiff_t>(from) * padded_,
            .lda = padded_,
            .c = result_[side] + static_cast<std::ptrdiff_t>(to) * padded_,
            .ldc = padded_};
  }

  /// S^-1 - V^T Z(K,J).
  void complete_block(T* block) {
    PanelUpdate<T> u;
    u.m = padded_;
    u.q = panel_.width;
    u.k = panel_.below();
    u.a = operand_of(Family::two_sided ? 1 : 0);
    u.b = result_[0];
    u.lda = u.b_col = u.ldc = padded_;
    u.c = block;
    u.lower = !Family::two_sided;
    u.conjugate = Family::conjugate;
    f_.kernel.update(u);
  }

  /// The upper triangle of a symmetric block from its lower one.
  void mirror(T* block) {
    const std::ptrdiff_t ld = padded_;
    for (int j = 0; j < panel_.width; ++j) {
      if constexpr (Family::conjugate) block[j + j * ld] = std::real(block[j + j * ld]);
      for (int i = j + 1; i < panel_.width; ++i)
        block[j + i * ld] = maybe_conj<Family::conjugate>(block[i + j * ld]);
    }
  }

  /// The results in the layout of the factor, interchanges undone.
  void put_back(const T* block) {
    const Panel<T>& p = panel_;
    const int w = p.width, below = p.below();
    int* const column = scratch_.labels[0].data();
    int* row = column;
    undo_interchanges(p.pivot, w, column);
    if constexpr (Family::two_sided) {
      row = scratch_.labels[1].data();
      undo_interchanges(p.column_pivot, w, row);
    }
    if (below > 0) {  // before the block, in whose place a result may lie
      put_side<Family::conjugate>(0, column, p.l21(), p.rows);
      if constexpr (Family::two_sided) put_side<false>(1, row, p.u, below);
    }
    for (int j = 0; j < w; ++j) {
      T* const to = p.l + static_cast<std::ptrdiff_t>(j) * p.rows;
      const T* const from = block + static_cast<std::ptrdiff_t>(column[j]) * padded_;
      for (int i = 0; i < w; ++i) to[i] = from[row[i]];
    }
  }

  /// One result.  Where it lies in the panel's own store it first takes the place of the operand.
  template <bool conjugate>
  void put_side(int side, const int* label, T* to, int ld) {
    const T* from = result_[side];
    if (in_store(side)) {
      T* const moved = operand_of(side);
      std::copy_n(from, size_of(padded_, panel_.below()), moved);
      from = moved;
    }
    put_rows<conjugate>(from, label, to, ld);
  }

  /// to(i, j) := from(label(j), i), conjugated where asked.
  template <bool conjugate>
  void put_rows(const T* from, const int* label, T* to, std::ptrdiff_t ld) {
    const std::ptrdiff_t ld_from = padded_;
    constexpr int tile = 16;
    for (int i0 = 0; i0 < panel_.below(); i0 += tile)
      for (int j = 0; j < panel_.width; ++j)
        for (int i = i0; i < std::min(panel_.below(), i0 + tile); ++i)
          to[i + j * ld] = maybe_conj<conjugate>(from[label[j] + i * ld_from]);
  }

  const InverseFrame<T>& f_;
  InverseScratch<T>& scratch_;
  const Panel<T> panel_;
  const int padded_;  ///< width of the transposed panel
  const int s_;
  T* result_[2] = {};
  bool contiguous_ = false;  ///< whether the rows follow each other in the ancestor's list
};

}  // namespace vlm
