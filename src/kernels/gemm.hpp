// SPDX-License-Identifier: BSD-3-Clause
/// The update kernel: a register-tiled product whose result goes straight to its scattered
/// place, so that no staging buffer is written, read and cleared.
///
/// Rows are taken in tiles of a few vectors.  A tile of A is packed once and meets all
/// columns; short last tiles are padded with zeros in the packing (Goto and van de Geijn,
/// "Anatomy of high-performance matrix multiplication", 2008, for the register tile).
#pragma once

#include "kernels/kernels.hpp"
#include "kernels/simd.hpp"

namespace vlm::VELMORA_ISA {

inline constexpr int depth_limit = 256;  ///< columns of A taken at once

/// How a scalar kind is held in vectors: complex values as separate real and imaginary parts.
template <class T>
struct Kind {
  using Real = T;
  static constexpr int parts = 1, columns = tile_columns;
  static constexpr int vectors = tile_vectors;
};
template <>
struct Kind<zcomplex> {
  using Real = double;
  static constexpr int parts = 2, columns = tile_columns / 2;
  static constexpr int vectors = 2;
};

template <class T>
inline constexpr int lanes = Simd<typename Kind<T>::Real>::width;

/// Tile of A: for each k `stride` reals, first the real parts of its rows.
template <class T>
struct PackedTile {
  const typename Kind<T>::Real* a = nullptr;
  long stride = 0;
};

/// Copies `valid` rows of A for each k, zero beyond them.
template <class T, int MV>
inline PackedTile<T> pack_tile(const T* a, int lda, int valid, int k,
                               typename Kind<T>::Real* buffer) {
  using R = typename Kind<T>::Real;
  constexpr int rows = MV * lanes<T>, stride = rows * Kind<T>::parts;
  for (int p = 0; p < k; ++p) {
    const R* from = reinterpret_cast<const R*>(a + static_cast<long>(p) * lda);
    R* to = buffer + static_cast<long>(p) * stride;
    if constexpr (Kind<T>::parts == 2) {
      for (int i = 0; i < valid; ++i) {
        to[i] = from[2 * i];
        to[rows + i] = from[2 * i + 1];
      }
      for (int i = valid; i < rows; ++i) to[i] = to[rows + i] = R(0);
    } else if (valid == rows) {
      for (int v = 0; v < MV; ++v)
        Simd<R>::store(to + v * lanes<T>, Simd<R>::load(from + v * lanes<T>));
    } else {
      for (int i = 0; i < valid; ++i) to[i] = from[i];
      for (int i = valid; i < rows; ++i) to[i] = R(0);
    }
  }
  return {buffer, stride};
}

/// Where the rows of one tile go in a column of C.
struct TileRows {
  const int* row;  ///< offsets of the valid rows; null when contiguous
  long first;      ///< offset of the first row
  int valid;
};

/// Accumulators of one column of a tile.
template <class T, int MV>
struct Column {
  typename Simd<typename Kind<T>::Real>::Vector part[Kind<T>::parts][MV] = {};

  /// += a * b for one k.
  inline void add(const typename Kind<T>::Real* a, const T* b, bool conjugate) {
    using R = typename Kind<T>::Real;
    using S = Simd<R>;
    if constexpr (Kind<T>::parts == 1) {
      const auto bv = S::fill(*b);
      for (int v = 0; v < MV; ++v) part[0][v] += S::load(a + v * S::width) * bv;
    } else {
      const R* bp = reinterpret_cast<const R*>(b);
      const auto re = S::fill(bp[0]), im = S::fill(conjugate ? -bp[1] : bp[1]);
      for (int v = 0; v < MV; ++v) {
        const auto ar = S::load(a + v * S::width);
        const auto ai = S::load(a + (MV + v) * S::width);
        part[0][v] += ar * re;
        part[0][v] -= ai * im;
        part[1][v] += ar * im;
        part[1][v] += ai * re;
      }
    }
  }

  /// Subtracts the column from its place.
  inline void put(T* out, TileRows rows) const {
    using R = typename Kind<T>::Real;
    using S = Simd<R>;
    if constexpr (Kind<T>::parts == 1) {
      if (!rows.row && rows.valid == MV * S::width) {
        out += rows.first;
        for (int v = 0; v < MV; ++v)
          S::store(out + v * S::width, S::load(out + v * S::width) - part[0][v]);
        return;
      }
    }
    R lane[Kind<T>::parts][MV * S::width];
    for (int h = 0; h < Kind<T>::parts; ++h)
      for (int v = 0; v < MV; ++v) S::store(lane[h] + v * S::width, part[h][v]);
    R* to = reinterpret_cast<R*>(out);
    for (int i = 0; i < rows.valid; ++i) {
      const long at = rows.row ? rows.row[i] : rows.first + i;
      for (int h = 0; h < Kind<T>::parts; ++h) to[at * Kind<T>::parts + h] -= lane[h][i];
    }
  }
};

/// One register tile: MV vectors of rows by NR columns, subtracted from C.
template <class T, int MV, int NR>
inline void tile(const PanelUpdate<T>& u, int k, PackedTile<T> at, const T* b, int j0,
                 TileRows rows) {
  Column<T, MV> acc[NR];
  const auto* a = at.a;
  for (int p = 0; p < k; ++p, a += at.stride, b += u.b_col) {
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) acc[j].add(a, b + static_cast<long>(j) * u.b_row, u.conjugate);
  }
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j)
    acc[j].put(u.c + static_cast<long>(u.col ? u.col[j0 + j] : j0 + j) * u.ldc, rows);
}

/// All q columns of one row tile.
template <class T, int MV>
inline void tile_row(const PanelUpdate<T>& u, int k0, int k, PackedTile<T> at, int q,
                     TileRows rows) {
  constexpr int nr = Kind<T>::columns;
  const T* b = u.b + static_cast<long>(k0) * u.b_col;
  int j = 0;
  const auto at_column = [&](int column) { return b + static_cast<long>(column) * u.b_row; };
  for (; j + nr <= q; j += nr) tile<T, MV, nr>(u, k, at, at_column(j), j, rows);
  if constexpr (nr > 4)
    if (j + 4 <= q) {
      tile<T, MV, 4>(u, k, at, at_column(j), j, rows);
      j += 4;
    }
  if constexpr (nr > 2)
    if (j + 2 <= q) {
      tile<T, MV, 2>(u, k, at, at_column(j), j, rows);
      j += 2;
    }
  if (j < q) tile<T, MV, 1>(u, k, at, at_column(j), j, rows);
}

/// Rows i0.. of the update, at most MV vectors of them.
template <class T, int MV>
inline void update_rows(const PanelUpdate<T>& u, int k0, int k, int i0, int valid,
                        typename Kind<T>::Real* buffer) {
  // Columns right of the tile's last row lie above the diagonal.
  const int q = u.lower && i0 + valid < u.q ? i0 + valid : u.q;
  const T* a = u.a + i0 + static_cast<long>(k0) * u.lda;
  PackedTile<T> at;
  if constexpr (Kind<T>::parts == 1)
    if (valid == MV * lanes<T> && q <= 2 * Kind<T>::columns) at = {a, u.lda};
  if (!at.a) at = pack_tile<T, MV>(a, u.lda, valid, k, buffer);
  TileRows where{nullptr, i0, valid};
  if (u.row) {
    where.first = u.row[i0];
    if (u.row[i0 + valid - 1] - u.row[i0] != valid - 1) where.row = u.row + i0;
  }
  tile_row<T, MV>(u, k0, k, at, q, where);
}

template <class T>
void update(const PanelUpdate<T>& u) {
  constexpr int width = lanes<T>, rows = Kind<T>::vectors * width;
  alignas(64) typename Kind<T>::Real buffer[rows * Kind<T>::parts * depth_limit];
  for (int k0 = 0; k0 < u.k; k0 += depth_limit) {
    const int k = u.k - k0 < depth_limit ? u.k - k0 : depth_limit;
    int i = 0;
    while (u.m - i >= rows) {
      // One vector left over is better taken as two tiles of two.
      if (Kind<T>::vectors == 3 && u.m - i > rows && u.m - i <= rows + width) {
        update_rows<T, 2>(u, k0, k, i, 2 * width, buffer);
        i += 2 * width;
        break;
      }
      update_rows<T, Kind<T>::vectors>(u, k0, k, i, rows, buffer);
      i += rows;
    }
    const int left = u.m - i;
    if constexpr (Kind<T>::vectors > 2) {
      if (left > 2 * width) {
        update_rows<T, 3>(u, k0, k, i, left, buffer);
        continue;
      }
    }
    if (left > width)
      update_rows<T, 2>(u, k0, k, i, left, buffer);
    else if (left > 0)
      update_rows<T, 1>(u, k0, k, i, left, buffer);
  }
}

}  // namespace vlm::VELMORA_ISA
