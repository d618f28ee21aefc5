// SPDX-License-Identifier: BSD-3-Clause
/// LU families: partial or complete pivoting inside the diagonal block.
///
/// L and U have one row structure; U is kept transposed, so that both halves run through the
/// same update and solve kernels.
#pragma once

#include "numeric/family.hpp"

namespace vlm {

template <class T, bool complete_pivoting>
struct LuFamily {
  static constexpr bool counts_signs = false;

  static void load(const FactorFrame<T>& f, int s) {
    const Structure& st = f.st;
    const Panel<T> panel = panel_of(st, f.store, s);
    std::fill_n(panel.l, static_cast<std::size_t>(panel.rows) * panel.width, T(0));
    std::fill_n(panel.u, static_cast<std::size_t>(panel.below()) * panel.width, T(0));
    for (int j = panel.first; j < panel.first + panel.width; ++j) {
      for (int p = st.lmap.ptr(j); p < st.lmap.ptr(j + 1); ++p) {
        const int place = st.lmap.dst(p) - 1;
        const int row = panel.row[place - (j - panel.first) * panel.rows];
        panel.l[place] += value(f, st.lmap.src(p), row, j);
      }
      for (int p = st.umap.ptr(j); p < st.umap.ptr(j + 1); ++p) {
        const int place = st.umap.dst(p) - 1;
        const int column = panel.row[panel.width + place - (j - panel.first) * panel.below()];
        panel.u[place] += value(f, st.umap.src(p), j, column);
      }
    }
  }

  static void apply(const FactorFrame<T>& f, const UpdateSource<T>& s, const Panel<T>& target,
                    FactorScratch<T>& scratch) {
    int start = 0;
    const int* rows = relative_rows(s, target, scratch, start);
    const Panel<T>& source = s.panel;
    PanelUpdate<T> u;
    u.k = source.width;
    u.q = s.q;
    u.col = rows;
    u.b_row = 1;
    u.space = scratch.space;
    // L part and diagonal block: rows of L times rows of U.
    u.m = s.m;
    u.row = rows;
    u.a = source.l + s.skip;
    u.lda = source.rows;
    u.b = source.u + (s.skip - source.width);
    u.b_col = source.below();
    u.c = target.l + start + static_cast<std::ptrdiff_t>(start) * target.rows;
    u.ldc = target.rows;
    f.kernel.update(u);
    if (s.m == s.q) return;
    // U part: rows of U times rows of L, behind the target's own columns.
    u.m = s.m - s.q;
    u.a = source.u + (s.skip - source.width) + s.q;
    u.lda = source.below();
    u.b = source.l + s.skip;
    u.b_col = source.rows;
    u.ldc = target.below();
    u.c = target.u + static_cast<std::ptrdiff_t>(start) * target.below();
    if (rows) {
      u.row = rows + s.q;
      u.c -= target.width;
    } else {
      u.c += start + s.q - target.width;
    }
    f.kernel.update(u);
  }

  /// A panel of the Schur complement stays as the updates left it.
  static void keep(const FactorFrame<T>&, const Panel<T>& panel) {
    for (int k = 0; k < panel.width; ++k) panel.pivot[k] = panel.column_pivot[k] = k + 1;
  }

  static bool finish(const FactorFrame<T>& f, const Panel<T>& panel, FactorScratch<T>& scratch) {
    if (!factor_block(f, panel, scratch)) return false;
    const int m = panel.below();
    if (m > 0) solve_below(f, panel, m, scratch);
    watch(f, panel, scratch.stats);
    return true;
  }

 private:
  static void solve_below(const FactorFrame<T>& f, const Panel<T>& panel, int m,
                          const FactorScratch<T>& scratch) {
    exchange_columns(panel.width, panel.column_pivot, panel.l21(), panel.rows, m);
    exchange_columns(panel.width, panel.pivot, panel.u, m, m);
    RightSolve<T> solve;
    solve.m = m;
    solve.n = panel.width;
    solve.space = scratch.space;
    solve.l = panel.l;
    // L21 U11 = A21: U11 is the transpose of a lower triangle, reached by its strides.
    solve.l_row = panel.rows;
    solve.l_col = 1;
    solve.x = panel.l21();
    solve.ldx = panel.rows;
    f.kernel.solve_right(solve);
    // U12^T L11^T = A12^T.
    solve.l_row = 1;
    solve.l_col = panel.rows;
    solve.unit = true;
    solve.x = panel.u;
    solve.ldx = m;
    f.kernel.solve_right(solve);
  }

  /// Growth of a finished panel: the largest l of each column times the largest u of its row.
  static void watch(const FactorFrame<T>& f, const Panel<T>& p, BlockPivots<T>& stats) {
    const std::ptrdiff_t ld = p.rows, below = p.below();
    for (int k = 0; k < p.width; ++k) {
      const T* const diagonal = p.l + k + k * ld;
      const double l = largest_of(f, ld - k - 1, diagonal + 1);
      double u = largest_of(f, below, p.u + k * below);
      for (int j = k; j < p.width; ++j)
        u = std::max(u, static_cast<double>(std::abs(diagonal[(j - k) * ld])));
      note_growth(f, l * u, stats);
    }
  }

  /// Entry p of A at (row, column) of the permuted matrix, scaled.
  static T value(const FactorFrame<T>& f, int p, int row, int column) {
    if (!f.scale) return value_at<T>(f.matrix.a, p - 1);
    const int n = f.st.n, node = f.st.perm(row);
    const int a_row = f.match ? f.match[node - 1] : node;
    const double scale = f.scale[f.st.perm(column) - 1] * f.scale[n + a_row - 1];
    return scaled_value<T>(f.matrix.a, p - 1, scale);
  }

  static bool factor_block(const FactorFrame<T>& f, const Panel<T>& panel,
                           FactorScratch<T>& scratch) {
    if constexpr (complete_pivoting) {
      f.kernel.lu_complete(panel.width, panel.l, panel.rows, panel.pivot, panel.column_pivot,
                           scratch.scaled, scratch.stats);
      return true;
    } else {
      for (int k = 0; k < panel.width; ++k) panel.column_pivot[k] = k + 1;
      if (blas::getrf(panel.width, panel.width, panel.l, panel.rows, panel.pivot) != 0)
        return false;
      if (scratch.stats.want_logdet)
        for (int k = 0; k < panel.width; ++k)
          scratch.stats.logdet +=
              std::log(std::abs(panel.l[k + static_cast<std::ptrdiff_t>(k) * panel.rows]));
      return true;
    }
  }

  /// Columns k and record(k) of an m-row rectangle, in order.
  static void exchange_columns(int width, const int* record, T* x, std::ptrdiff_t ldx, int m) {
    for (int k = 0; k < width; ++k)
      if (const int place = record[k] - 1; place != k)
        std::swap_ranges(x + k * ldx, x + k * ldx + m, x + place * ldx);
  }
};

}  // namespace vlm
