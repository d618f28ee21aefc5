// SPDX-License-Identifier: BSD-3-Clause
/// Steps of a triangular sweep with a panel, for a block of right-hand sides.
///
/// The values of one unknown lie next to each other, so that they are whole vectors wherever the
/// unknown stands, and an entry of the factor meets them as one factor: nothing is packed, gathered
/// or transposed.  A register tile takes a few rows of the panel in the forward step and a few
/// columns in the backward one; the triangles between are solved in the registers.
#pragma once

#include "kernels/kernels.hpp"
#include "kernels/pack.hpp"

namespace vlm::VELMORA_ISA {

/// Most vectors of right-hand sides in a tile, and most rows or columns of the panel: the sums fill
/// three quarters of the registers.
inline constexpr int sweep_vectors = vector_bytes == 64 ? 4 : 2;
template <class T>
inline constexpr int sweep_rows = 6 / Kind<T>::parts;

/// Rows that are asked for before they are needed: the columns of a panel are too many streams for
/// the processor to foresee.
inline constexpr int sweep_ahead = 32, sweep_many_columns = 12;

/// Rows below a panel whose values stay in the first-level cache beside a tile's columns.
inline constexpr int sweep_chunk = 96;

/// Values of NR unknowns for MV vectors of right-hand sides, complex ones in pairs.
template <class T, int MV, int NR>
struct SweepTile {
  using R = typename Kind<T>::Real;
  using S = Simd<R>;
  using Vector = typename S::Vector;
  static constexpr int parts = Kind<T>::parts;

  Vector sum[NR][parts][MV];  ///< of products with the parts of the entries
  Vector x[NR][MV];
  Vector sign = {};  ///< of what the imaginary parts give

  explicit SweepTile(bool conjugate) {
#pragma GCC unroll 8
    for (int r = 0; r < NR; ++r)
#pragma GCC unroll 8
      for (int part = 0; part < parts; ++part)
#pragma GCC unroll 8
        for (int v = 0; v < MV; ++v) sum[r][part][v] = Vector{};
    if constexpr (parts == 2)
      for (int k = 0; k < S::width; ++k) sign[k] = (k % 2 == 0) == conjugate ? R(1) : R(-1);
  }

  /// sum += entries * values of one unknown; the entries are `stride` apart.
  inline void add(const T* entry, long stride, const T* values) {
    const R* const from = reinterpret_cast<const R*>(values);
    Vector y[MV];
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) y[v] = S::load(from + v * S::width);
#pragma GCC unroll 8
    for (int r = 0; r < NR; ++r) {
      const R* const e = reinterpret_cast<const R*>(entry + r * stride);
#pragma GCC unroll 8
      for (int part = 0; part < parts; ++part) {
        const Vector factor = S::fill(e[part]);
#pragma GCC unroll 8
        for (int v = 0; v < MV; ++v) sum[r][part][v] += y[v] * factor;
      }
    }
  }

  inline Vector product(int r, int v) const {
    if constexpr (parts == 1)
      return sum[r][0][v];
    else
      return sum[r][0][v] + S::exchange_pairs(sum[r][1][v]) * sign;
  }

  /// Takes the sums off the values of an unknown.
  inline void subtract(int r, T* values) const {
    R* const to = reinterpret_cast<R*>(values);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v)
      S::store(to + v * S::width, S::load(to + v * S::width) - product(r, v));
  }

  /// x := values of an unknown less the sums.
  inline void take(int r, const T* values) {
    const R* const from = reinterpret_cast<const R*>(values);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) x[r][v] = S::load(from + v * S::width) - product(r, v);
  }
  inline void store(int r, T* values) const {
    R* const to = reinterpret_cast<R*>(values);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) S::store(to + v * S::width, x[r][v]);
  }

  /// x(r) -= entry x(s)
  inline void eliminate(int r, int s, const T& entry) {
    const R* const e = reinterpret_cast<const R*>(&entry);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      x[r][v] -= S::fill(e[0]) * x[s][v];
      if constexpr (parts == 2) x[r][v] -= S::exchange_pairs(x[s][v]) * (S::fill(e[1]) * sign);
    }
  }

  /// x(r) /= entry
  inline void divide(int r, const T& entry) {
    const T reciprocal = T(1) / entry;
    const R* const e = reinterpret_cast<const R*>(&reciprocal);
#pragma GCC unroll 8
    for (int v = 0; v < MV; ++v) {
      Vector out = x[r][v] * S::fill(e[0]);
      if constexpr (parts == 2) out += S::exchange_pairs(x[r][v]) * (S::fill(e[1]) * sign);
      x[r][v] = out;
    }
  }
};

/// Rows or columns that the next tile takes of `left` ones: whole tiles, and a rest in two halves.
template <class T>
inline int next_tile(int left) {
  constexpr int most = sweep_rows<T>;
  if (left <= most) return left;
  return left >= 2 * most ? most : (left + 1) / 2;
}

/// f.template operator()<MV, NR>(at) for all right-hand sides, `at` being the first one's place.
template <class T, int NR, class F>
[[gnu::always_inline]] inline void for_right_hand_sides(int nb, const F& f) {
  constexpr int unit = lanes<T> / Kind<T>::parts;
  int at = 0;
  if constexpr (sweep_vectors > 2)
    for (; at + 4 * unit <= nb; at += 4 * unit) f.template operator()<4, NR>(at);
  for (; at + 2 * unit <= nb; at += 2 * unit) f.template operator()<2, NR>(at);
  if (at < nb) f.template operator()<1, NR>(at);
}

/// The same for a number of rows or columns.
template <class T, int NR, class F>
[[gnu::always_inline]] inline void for_tile(int count, int nb, const F& f) {
  if constexpr (NR > 1)
    if (count < NR) return for_tile<T, NR - 1>(count, nb, f);
  for_right_hand_sides<T, NR>(nb, f);
}

template <class T>
inline const T* diagonal_entry(const PanelSweep<T>& p, int j, int k) {
  return p.l + static_cast<long>(j) * p.l_row + static_cast<long>(k) * p.l_col;
}

/// NR unknowns of the panel from j on, after those before them.
template <class T, int MV, int NR>
inline void forward_own(const PanelSweep<T>& p, int j, int at) {
  SweepTile<T, MV, NR> tile(p.conjugate);
  const long nb = p.nb;
  T* const y = p.y + at;
  const T* l = diagonal_entry(p, j, 0);
  for (int k = 0; k < j; ++k, l += p.l_col) tile.add(l, p.l_row, y + k * nb);
#pragma GCC unroll 8
  for (int r = 0; r < NR; ++r) {
    tile.take(r, y + (j + r) * nb);
#pragma GCC unroll 8
    for (int s = 0; s < r; ++s) tile.eliminate(r, s, *diagonal_entry(p, j + r, j + s));
    if (!p.unit) tile.divide(r, *diagonal_entry(p, j + r, j + r));
    tile.store(r, y + (j + r) * nb);
  }
}

/// Takes the panel's unknowns off NR rows below it.
template <class T, int MV, int NR>
inline void forward_rows(const PanelSweep<T>& p, int i, T* c, int at) {
  SweepTile<T, MV, NR> tile(p.conjugate);
  const T* l = p.rest + i;
  const T* y = p.y + at;
  int k = 0;
  if (p.width >= sweep_many_columns && i + sweep_ahead < p.below)
    for (; k < p.width; ++k, l += p.ld_rest, y += p.nb) {
      __builtin_prefetch(l + sweep_ahead);
      tile.add(l, 1, y);
    }
  for (; k < p.width; ++k, l += p.ld_rest, y += p.nb) tile.add(l, 1, y);
#pragma GCC unroll 8
  for (int r = 0; r < NR; ++r) tile.subtract(r, c + static_cast<long>(p.row[i + r]) * p.nb + at);
}

/// y := L^-1 y, and the rows below less their entries times y.
template <class T>
void sweep_forward(const PanelSweep<T>& p) {
  for (int j = 0, count; j < p.width; j += count) {
    count = next_tile<T>(p.width - j);
    for_tile<T, sweep_rows<T>>(count, p.nb,
                               [&]<int MV, int NR>(int at) { forward_own<T, MV, NR>(p, j, at); });
  }
  const auto rows = [&](int first, int last, T* c) {
    for (int i = first, count; i < last; i += count) {
      count = next_tile<T>(last - i);
      for_tile<T, sweep_rows<T>>(
          count, p.nb, [&]<int MV, int NR>(int at) { forward_rows<T, MV, NR>(p, i, c, at); });
    }
  };
  rows(0, p.front, p.c);
  rows(p.front, p.below, p.tail);
}

/// Sums of rows first to last-1 below the panel for NR columns from j on.
template <class T, int MV, int NR>
[[gnu::always_inline]] inline void add_rows(SweepTile<T, MV, NR>& tile, const PanelSweep<T>& p,
                                            int j, int first, int last, int at) {
  const long ld = p.ld_rest;
  const T* l = p.rest + j * ld;
  const T* const c = p.c + at;
  int i = first;
  if constexpr (NR == 1) {  // a second row, so that the additions of one don't wait for each other
    SweepTile<T, MV, 1> odd(p.conjugate);
    for (; i + 2 <= last; i += 2) {
      tile.add(l + i, ld, c + static_cast<long>(p.row[i]) * p.nb);
      odd.add(l + i + 1, ld, c + static_cast<long>(p.row[i + 1]) * p.nb);
    }
#pragma GCC unroll 8
    for (int part = 0; part < Kind<T>::parts; ++part)
#pragma GCC unroll 8
      for (int v = 0; v < MV; ++v) tile.sum[0][part][v] += odd.sum[0][part][v];
  }
  for (; i < last; ++i) tile.add(l + i, ld, c + static_cast<long>(p.row[i]) * p.nb);
}

/// Takes some rows below the panel off NR of its unknowns.
template <class T, int MV, int NR>
inline void backward_rows(const PanelSweep<T>& p, int j, int first, int last, int at) {
  SweepTile<T, MV, NR> tile(p.conjugate);
  add_rows(tile, p, j, first, last, at);
#pragma GCC unroll 8
  for (int r = 0; r < NR; ++r) tile.subtract(r, p.y + at + static_cast<long>(j + r) * p.nb);
}

/// NR unknowns of the panel from j on, after the rows from `first` on and those behind them.
template <class T, int MV, int NR>
inline void backward_own(const PanelSweep<T>& p, int j, int first, int at) {
  SweepTile<T, MV, NR> tile(p.conjugate);
  add_rows(tile, p, j, first, p.below, at);
  const long nb = p.nb;
  T* const y = p.y + at;
  const T* l = diagonal_entry(p, j + NR, j);
  for (int k = j + NR; k < p.width; ++k, l += p.l_row) tile.add(l, p.l_col, y + k * nb);
#pragma GCC unroll 8
  for (int r = NR - 1; r >= 0; --r) {
    tile.take(r, y + (j + r) * nb);
#pragma GCC unroll 8
    for (int s = NR - 1; s > r; --s) tile.eliminate(r, s, *diagonal_entry(p, j + s, j + r));
    if (!p.unit) tile.divide(r, *diagonal_entry(p, j + r, j + r));
    tile.store(r, y + (j + r) * nb);
  }
}

/// y := L^-T (y - rows below times their entries).
template <class T>
void sweep_backward(const PanelSweep<T>& p) {
  int first = 0;
  for (; p.below - first > 2 * sweep_chunk; first += sweep_chunk)
    for (int j = 0, count; j < p.width; j += count) {
      count = next_tile<T>(p.width - j);
      for_tile<T, sweep_rows<T>>(count, p.nb, [&]<int MV, int NR>(int at) {
        backward_rows<T, MV, NR>(p, j, first, first + sweep_chunk, at);
      });
    }
  for (int left = p.width, count; left > 0; left -= count) {
    count = next_tile<T>(left);
    for_tile<T, sweep_rows<T>>(count, p.nb, [&]<int MV, int NR>(int at) {
      backward_own<T, MV, NR>(p, left - NR, first, at);
    });
  }
}

}  // namespace vlm::VELMORA_ISA
