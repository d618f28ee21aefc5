// SPDX-License-Identifier: BSD-3-Clause
/// Families of the supernodal factorization: what happens to one panel.
///
/// Every family supplies three steps: load a panel through the input map, apply the update
/// of one finished panel, and finish a panel by factoring its diagonal block and solving for
/// the rows below.  A schedule decides which thread does this to which panel when.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/carver.hpp"
#include "base/progress.hpp"
#include "numeric/factor.hpp"
#include "numeric/factorize.hpp"

namespace vlm {

/// What a factorization reads and writes, shared by all its threads.
template <class T>
struct FactorFrame {
  const FactorOptions& options;
  const Structure& st;
  InputMatrix matrix;
  const double* scale = nullptr;  ///< [2n] scalings, null when there are none
  const int* match = nullptr;     ///< [n] row of A in the place of each column; null: identity
  FactorStore<T> store;
  const Kernels<T>& kernel = kernels<T>();
  double eps = 0;
  double growth_limit = 0;       ///< updates that are too large beside the matrix
  int last_eliminated = 0;       ///< columns beyond belong to the Schur complement
  double* logdet = nullptr;      ///< [nsuper] log |det| of each panel's block
  Progress* progress = nullptr;  ///< of the call; null where nobody listens
};

/// Scratch and counters of one thread.
template <class T>
struct FactorScratch {
  View<int> indmap;         ///< [n] place of a row in the target's list, from 0
  int* relative = nullptr;  ///< [max_rows] places of one source's rows
  T* scaled = nullptr;      ///< second operand of an update, or a diagonal block's work
  PackingSpace space;       ///< of the kernels
  BlockPivots<T> stats;

  FactorScratch() = default;
  FactorScratch(const Structure& st, Carver& carver)
      : indmap(carver.take<int>(static_cast<std::size_t>(st.n))),
        relative(carver.take<int>(static_cast<std::size_t>(st.max_rows)).data()),
        scaled(carver
                   .take<T>(static_cast<std::size_t>(
                       std::max<std::int64_t>(st.max_scaled, st.max_width)))
                   .data()) {
    space.bytes = packing_bytes(sizeof(T), st.max_width, st.max_width);
    if (space.bytes > 0) space.at = carver.take<std::byte>(space.bytes).data();
    carver.leave_line();
  }
};

/// The part of a finished panel that updates one target.
template <class T>
struct UpdateSource {
  Panel<T> panel;
  int skip = 0;  ///< rows of the list already consumed, own columns included
  int m = 0;     ///< rows that remain
  int q = 0;     ///< of these, rows that are columns of the target
};

/// Number of rows, from the first remaining one, that are columns of the target.
template <class T>
UpdateSource<T> update_source(const Panel<T>& source, int skip, const Panel<T>& target) {
  UpdateSource<T> out{source, skip, source.rows - skip, 0};
  const int end = target.first + target.width;
  const int* row = source.row + skip;
  while (out.q < out.m && row[out.q] < end) ++out.q;
  return out;
}

template <class T>
void index_rows(const Panel<T>& target, View<int> indmap) {
  for (int k = 0; k < target.rows; ++k) indmap(target.row[k]) = k;
}

/// Relative rows of the source in the target; null when they follow each other, with the
/// first place in `start`.
template <class T>
const int* relative_rows(const UpdateSource<T>& s, const Panel<T>& target,
                         FactorScratch<T>& scratch, int& start) {
  start = 0;
  if (s.m == target.rows) return nullptr;
  const int* row = s.panel.row + s.skip;
  const int first = scratch.indmap(row[0]);
  if (scratch.indmap(row[s.m - 1]) - first == s.m - 1) {
    start = first;
    return nullptr;
  }
  for (int i = 0; i < s.m; ++i) scratch.relative[i] = scratch.indmap(row[i]);
  return scratch.relative;
}

/// Value times scale, formed in double also when the factor is float.
template <class T>
T scaled_value(const double* a, std::ptrdiff_t k, double scale) {
  return static_cast<T>(value_at<Wide<T>>(a, k) * scale);
}

/// Symmetric and Hermitian panels: load and update, for any kind of B operand.
template <class T, bool hermitian>
struct SymmetricBase {
  static void load(const FactorFrame<T>& f, int s) {
    const Structure& st = f.st;
    const Panel<T> panel = panel_of(st, f.store, s);
    std::fill_n(panel.l, static_cast<std::size_t>(panel.rows) * panel.width, T(0));
    for (int j = panel.first; j < panel.first + panel.width; ++j) {
      const int column = (j - panel.first) * panel.rows;
      const double column_scale = f.scale ? f.scale[st.perm(j) - 1] : 1.0;
      for (int p = st.lmap.ptr(j); p < st.lmap.ptr(j + 1); ++p) {
        const int dst = st.lmap.dst(p), place = std::abs(dst) - 1;
        double scale = column_scale;
        if (f.scale) scale *= f.scale[st.perm(panel.row[place - column]) - 1];
        const T v = scaled_value<T>(f.matrix.a, st.lmap.src(p) - 1, scale);
        // A positive place marks an entry of the upper triangle, seen from below.
        panel.l[place] += dst > 0 ? maybe_conj<hermitian>(v) : v;
      }
    }
  }

  /// A panel of the Schur complement stays as the updates left it, symmetric in its block.
  static void keep(const FactorFrame<T>& f, const Panel<T>& panel) {
    const std::ptrdiff_t ld = panel.rows;
    for (int k = 0; k < panel.width; ++k) {
      panel.pivot[k] = k + 1;
      if (f.options.pairs) continue;
      for (int i = k + 1; i < panel.width; ++i)
        panel.l[k + i * ld] = maybe_conj<hermitian>(panel.l[i + k * ld]);
    }
  }

  static void update(const FactorFrame<T>& f, const UpdateSource<T>& s, const Panel<T>& target,
                     const T* b, int ldb, bool conjugate, FactorScratch<T>& scratch) {
    int start = 0;
    PanelUpdate<T> u;
    u.row = relative_rows(s, target, scratch, start);
    u.col = u.row;  // the target's first rows are its columns
    u.m = s.m;
    u.q = s.q;
    u.k = s.panel.width;
    u.a = s.panel.l + s.skip;
    u.lda = s.panel.rows;
    u.b = b;
    u.b_row = 1;
    u.b_col = ldb;
    u.c = target.l + start + static_cast<std::ptrdiff_t>(start) * target.rows;
    u.ldc = target.rows;
    u.lower = true;
    u.conjugate = conjugate;
    u.space = scratch.space;
    f.kernel.update(u);
  }
};

/// Cholesky, L L^T or L L^H.
template <class T, bool hermitian>
struct CholeskyFamily : SymmetricBase<T, hermitian> {
  using Base = SymmetricBase<T, hermitian>;
  static constexpr bool counts_signs = true, has_d = false;

  static void apply(const FactorFrame<T>& f, const UpdateSource<T>& s, const Panel<T>& target,
                    FactorScratch<T>& scratch) {
    Base::update(f, s, target, s.panel.l + s.skip, s.panel.rows, hermitian, scratch);
  }

  static bool finish(const FactorFrame<T>& f, const Panel<T>& panel, FactorScratch<T>& scratch) {
    if (f.kernel.cholesky(panel.width, panel.l, panel.rows) != 0) return false;
    for (int k = 0; k < panel.width; ++k) panel.pivot[k] = k + 1;
    scratch.stats.positive += panel.width;
    if (scratch.stats.want_logdet)
      for (int k = 0; k < panel.width; ++k)
        scratch.stats.logdet +=
            2 * std::log(std::abs(static_cast<double>(
                    std::real(panel.l[k + static_cast<std::ptrdiff_t>(k) * panel.rows]))));
    RightSolve<T> solve;
    solve.m = panel.below();
    solve.n = panel.width;
    solve.l = panel.l;
    solve.l_col = solve.ldx = panel.rows;
    solve.x = panel.l21();
    solve.conjugate = hermitian;
    solve.space = scratch.space;
    if (solve.m > 0) f.kernel.solve_right(solve);
    return true;
  }
};

/// B := the q rows of a source times D, conjugated for Hermitian factors.
///
/// A negative pivot entry marks the two columns of a 2x2 block.  Its diagonal elements stand in
/// place, and the one below the diagonal, d21, is kept above it.
template <class T, bool hermitian>
void scale_by_d(const UpdateSource<T>& s, T* b) {
  const Panel<T>& p = s.panel;
  const std::ptrdiff_t ld = p.rows;
  for (int k = 0; k < p.width;) {
    const T* l0 = p.l + k * ld + s.skip;
    T* b0 = b + static_cast<std::ptrdiff_t>(k) * s.q;
    const T d = p.l[k + k * ld];
    if (p.pivot[k] > 0) {
      for (int j = 0; j < s.q; ++j) b0[j] = maybe_conj<hermitian>(l0[j] * d);
      ++k;
    } else {
      const T d21 = p.l[k + (k + 1) * ld], d22 = p.l[k + 1 + (k + 1) * ld];
      const T d12 = maybe_conj<hermitian>(d21);
      const T* l1 = l0 + ld;
      T* b1 = b0 + s.q;
      for (int j = 0; j < s.q; ++j) {
        const T x = l0[j], y = l1[j];
        b0[j] = maybe_conj<hermitian>(x * d + y * d21);
        b1[j] = maybe_conj<hermitian>(x * d12 + y * d22);
      }
      k += 2;
    }
  }
}

/// X := X D^-1 for the columns of a panel, rows m; X D^-T when transposed.
template <class T, bool hermitian, bool transposed = false>
void divide_by_d(const Panel<T>& p, T* x, std::ptrdiff_t ldx, int m) {
  constexpr bool conjugate_below = hermitian && transposed;
  const std::ptrdiff_t ld = p.rows;
  for (int k = 0; k < p.width;) {
    T* x0 = x + k * ldx;
    const T d = p.l[k + k * ld];
    if (p.pivot[k] > 0) {
      const T r = T(1) / d;
      for (int i = 0; i < m; ++i) x0[i] *= r;
      ++k;
    } else {
      const T below = p.l[k + (k + 1) * ld], d22 = p.l[k + 1 + (k + 1) * ld];
      const T d21 = maybe_conj<conjugate_below>(below);
      const T d12 = maybe_conj<hermitian>(d21);
      const T a0 = d22 / d21, a1 = d / d12;  // scaled so that nothing overflows
      const T f = T(1) / (a0 * a1 - T(1));
      const T f0 = f / d12, f1 = f / d21;
      T* x1 = x0 + ldx;
      for (int i = 0; i < m; ++i) {
        const T y = x0[i], z = x1[i];
        x0[i] = f0 * (a0 * y - z);
        x1[i] = f1 * (a1 * z - y);
      }
      k += 2;
    }
  }
}

/// Notes the update that a pivot makes; one beyond the limit hides what smaller entries say, as a
/// replaced pivot does.
template <class T>
bool note_growth(const FactorFrame<T>& f, double update, BlockPivots<T>& stats) {
  if (!(update <= stats.largest_update)) stats.largest_update = update;
  if (update <= f.growth_limit) return false;
  ++stats.grown;
  return true;
}

/// Largest magnitude among a few or many values.
template <class T>
double largest_of(const FactorFrame<T>& f, std::ptrdiff_t n, const T* x) {
  constexpr std::ptrdiff_t few = 16;
  if (is_complex_v<T> || n > few) return f.kernel.largest(n, x);
  double most = 0;
  for (std::ptrdiff_t i = 0; i < n; ++i) most = std::max(most, static_cast<double>(std::abs(x[i])));
  return most;
}

/// Growth of a finished panel: l^2 |d| of each pivot, with the largest l of its column.
template <class T>
void watch_growth(const FactorFrame<T>& f, const Panel<T>& p, BlockPivots<T>& stats) {
  const std::ptrdiff_t ld = p.rows;
  const auto size = [](const T& v) { return static_cast<double>(std::abs(v)); };
  for (int k = 0; k < p.width;) {
    const int order = p.pivot[k] > 0 ? 1 : 2;
    const T* const diagonal = p.l + k + k * ld;
    double d = size(diagonal[0]), l = largest_of(f, p.rows - k - order, diagonal + order);
    if (order == 2) {
      d = std::max({d, size(diagonal[ld]), size(diagonal[ld + 1])});
      l = std::max(l, largest_of(f, p.rows - k - order, diagonal + ld + order));
    }
    const bool replaced = order == 1 && d <= f.eps;
    if (note_growth(f, l * l * d, stats) && !replaced && stats.positive + stats.negative > 0) {
      stats.doubtful += order;
      if (order == 2 || std::real(diagonal[0]) > 0) ++stats.doubtful_positive;
    }
    k += order;
  }
}

/// LDL^T or LDL^H, with Bunch-Kaufman or diagonal pivots.
template <class T, bool hermitian>
struct LdltFamily : SymmetricBase<T, hermitian> {
  using Base = SymmetricBase<T, hermitian>;
  /// D has signs that rounding may change.
  static constexpr bool counts_signs = hermitian || !is_complex_v<T>, has_d = true;

  static void apply(const FactorFrame<T>& f, const UpdateSource<T>& s, const Panel<T>& target,
                    FactorScratch<T>& scratch) {
    scale_by_d<T, hermitian>(s, scratch.scaled);
    Base::update(f, s, target, scratch.scaled, s.q, false, scratch);
  }

  static bool finish(const FactorFrame<T>& f, const Panel<T>& panel, FactorScratch<T>& scratch) {
    scratch.stats.hermitian = hermitian;
    if (f.options.pairs)
      f.kernel.ldlt(panel.width, panel.l, panel.rows, panel.pivot, scratch.stats);
    else
      f.kernel.ldlt_diagonal(panel.width, panel.l, panel.rows, panel.pivot, scratch.stats);
    const int m = panel.below();
    if (m > 0) solve_below(f, panel, m, scratch);
    watch_growth(f, panel, scratch.stats);
    return true;
  }

 private:
  static void solve_below(const FactorFrame<T>& f, const Panel<T>& panel, int m,
                          const FactorScratch<T>& scratch) {
    T* x = panel.l21();
    for (int k = 0; k < panel.width; ++k) {
      const int place = std::abs(panel.pivot[k]) - 1;
      const int front = panel.pivot[k] < 0 ? ++k : k;  // a 2x2 block exchanged its second row
      if (place != front)
        std::swap_ranges(x + static_cast<std::ptrdiff_t>(front) * panel.rows,
                         x + static_cast<std::ptrdiff_t>(front) * panel.rows + m,
                         x + static_cast<std::ptrdiff_t>(place) * panel.rows);
    }
    RightSolve<T> solve;
    solve.m = m;
    solve.n = panel.width;
    solve.l = panel.l;
    solve.l_col = solve.ldx = panel.rows;
    solve.unit = true;
    solve.x = x;
    solve.conjugate = hermitian;
    solve.space = scratch.space;
    f.kernel.solve_right(solve);
    divide_by_d<T, hermitian>(panel, x, panel.rows, m);
  }
};

}  // namespace vlm
