/// The update kernel: a register-tiled product whose result goes straight to its scattered
/// place, so that no staging buffer is written, read and cleared.
///
/// Rows are taken in tiles of a few vectors.  A tile of A is packed once and meets all
/// columns; short last tiles are padded with zeros in the packing (Goto and van de Geijn,
/// "Anatomy of high-performance matrix multiplication", 2008, for the register tile).
#pragma once

#include "../kernels.hpp"
#include "simd.hpp"

namespace vlm::VELMORA_ISA {

inline constexpr int depth_limit = 256;  ///< columns of A taken at once

/// Packed tile of A: `rows` values for each k, zero beyond the valid ones.
template <class T>
struct PackedTile {
  const T* a = nullptr;
  int stride = 0;
};

template <class T, int MV>
inline PackedTile<T> pack_tile(const T* a, int lda, int valid, int k, T* buffer) {
  constexpr int rows = MV * Simd<T>::width;
  if (valid == rows) {
    for (int p = 0; p < k; ++p)
      for (int v = 0; v < MV; ++v)
        Simd<T>::store(buffer + p * rows + v * Simd<T>::width,
                       Simd<T>::load(a + static_cast<long>(p) * lda + v * Simd<T>::width));
  } else {
    for (int p = 0; p < k; ++p) {
      const T* from = a + static_cast<long>(p) * lda;
      T* to = buffer + p * rows;
      for (int i = 0; i < valid; ++i) to[i] = from[i];
      for (int i = valid; i < rows; ++i) to[i] = T(0);
    }
  }
  return {buffer, rows};
}

/// Where the rows of one tile go in a column of C.
struct TileRows {
  const int* row;    ///< offsets of the valid rows; null when contiguous
  long first;        ///< offset of the first row
  int valid;
};

/// One register tile: MV vectors of rows by NR columns, subtracted from C.
template <class T, int MV, int NR>
inline void tile(int k, PackedTile<T> at, const T* b, long b_row, long b_col, T* c, long ldc,
                 const int* col, int j0, TileRows rows) {
  using S = Simd<T>;
  typename S::Vector acc[NR][MV] = {};
  const T* a = at.a;
  for (int p = 0; p < k; ++p, a += at.stride, b += b_col) {
    typename S::Vector av[MV];
    for (int v = 0; v < MV; ++v) av[v] = S::load(a + v * S::width);
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) {
      const typename S::Vector bj = S::fill(b[j * b_row]);
      for (int v = 0; v < MV; ++v) acc[j][v] += av[v] * bj;
    }
  }
#pragma GCC unroll 8
  for (int j = 0; j < NR; ++j) {
    T* out = c + static_cast<long>(col ? col[j0 + j] : j0 + j) * ldc;
    if (!rows.row && rows.valid == MV * S::width) {
      out += rows.first;
      for (int v = 0; v < MV; ++v)
        S::store(out + v * S::width, S::load(out + v * S::width) - acc[j][v]);
    } else {
      T lane[MV * S::width];
      for (int v = 0; v < MV; ++v) S::store(lane + v * S::width, acc[j][v]);
      if (rows.row)
        for (int i = 0; i < rows.valid; ++i) out[rows.row[i]] -= lane[i];
      else
        for (int i = 0; i < rows.valid; ++i) out[rows.first + i] -= lane[i];
    }
  }
}

/// All columns from j0 to q of one row tile.
template <class T, int MV>
inline void tile_row(const PanelUpdate<T>& u, int k0, int k, PackedTile<T> at, int j0, int q,
                     TileRows rows) {
  constexpr int nr = tile_columns;
  const T* b = u.b + static_cast<long>(k0) * u.b_col;
  int j = j0;
  const auto at_column = [&](int column) { return b + static_cast<long>(column) * u.b_row; };
  for (; j + nr <= q; j += nr)
    tile<T, MV, nr>(k, at, at_column(j), u.b_row, u.b_col, u.c, u.ldc, u.col, j, rows);
  if constexpr (nr > 4)
    if (j + 4 <= q) {
      tile<T, MV, 4>(k, at, at_column(j), u.b_row, u.b_col, u.c, u.ldc, u.col, j, rows);
      j += 4;
    }
  if (j + 2 <= q) {
    tile<T, MV, 2>(k, at, at_column(j), u.b_row, u.b_col, u.c, u.ldc, u.col, j, rows);
    j += 2;
  }
  if (j < q) tile<T, MV, 1>(k, at, at_column(j), u.b_row, u.b_col, u.c, u.ldc, u.col, j, rows);
}

/// Rows i0.. of the update, at most MV vectors of them.
template <class T, int MV>
inline void update_rows(const PanelUpdate<T>& u, int k0, int k, int i0, int valid, T* buffer) {
  constexpr int rows = MV * Simd<T>::width;
  // Columns right of the tile's last row lie above the diagonal.
  const int q = u.lower && i0 + valid < u.q ? i0 + valid : u.q;
  const T* a = u.a + i0 + static_cast<long>(k0) * u.lda;
  const bool direct = valid == rows && q <= 2 * tile_columns;
  const PackedTile<T> at =
      direct ? PackedTile<T>{a, u.lda} : pack_tile<T, MV>(a, u.lda, valid, k, buffer);
  TileRows where{nullptr, i0, valid};
  if (u.row) {
    where.first = u.row[i0];
    if (u.row[i0 + valid - 1] - u.row[i0] != valid - 1) where.row = u.row + i0;
  }
  tile_row<T, MV>(u, k0, k, at, 0, q, where);
}

template <class T>
void update(const PanelUpdate<T>& u) {
  constexpr int width = Simd<T>::width, rows = tile_vectors * width;
  alignas(64) T buffer[rows * depth_limit];
  for (int k0 = 0; k0 < u.k; k0 += depth_limit) {
    const int k = u.k - k0 < depth_limit ? u.k - k0 : depth_limit;
    int i = 0;
    for (; i + rows <= u.m; i += rows) update_rows<T, tile_vectors>(u, k0, k, i, rows, buffer);
    const int left = u.m - i;
    if (left > 2 * width) update_rows<T, 3>(u, k0, k, i, left, buffer);
    else if (left > width) update_rows<T, 2>(u, k0, k, i, left, buffer);
    else if (left > 0) update_rows<T, 1>(u, k0, k, i, left, buffer);
  }
}

}  // namespace vlm::VELMORA_ISA
