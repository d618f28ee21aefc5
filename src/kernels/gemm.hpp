// SPDX-License-Identifier: BSD-3-Clause
/// The update kernel: a register-tiled product whose result goes straight to its scattered
/// place, so that no staging buffer is written, read and cleared.
///
/// Both operands are packed where they are reused, so that the innermost loop walks two
/// contiguous arrays: a tile of A that stays in the first-level cache, and a block of B that
/// stays in the second (Goto and van de Geijn, "Anatomy of high-performance matrix
/// multiplication", 2008; Van Zee and van de Geijn, "BLIS: a framework for rapidly instantiating
/// BLAS functionality", 2015).  Short last tiles are padded with zeros in the packing.
#pragma once

#include "kernels/scalar.hpp"
#include "kernels/simd.hpp"

namespace vlm::VELMORA_ISA {

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
template <class T>
inline constexpr int tile_rows = Kind<T>::vectors* lanes<T>;

/// Most columns of A taken at once; how many are, follows from the first-level cache.
template <class T>
inline constexpr int depth_limit = 65536 / static_cast<int>(sizeof(T)) /
                                   (tile_rows<T> + 2 * Kind<T>::columns) / 8 * 8;

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

/// B(j,k) = at[j*row + k*column].
template <class T>
struct SecondOperand {
  const T* at = nullptr;
  long row = 1, column = 0;
};

/// Copies the q columns of a block of B, tile after tile.
template <class T>
inline void pack_columns(SecondOperand<T> b, bool conjugate, int q, int k, T* buffer) {
  constexpr int nr = Kind<T>::columns;
  int j = 0;
  const auto copy = [&](int width) {
    const T* from = b.at + j * b.row;
    if (b.row == 1) {
      for (int p = 0; p < k; ++p, from += b.column, buffer += width)
        for (int i = 0; i < width; ++i) buffer[i] = conjugated_if(from[i], conjugate);
    } else {
      for (int i = 0; i < width; ++i)
        for (int p = 0; p < k; ++p)
          buffer[p * width + i] = conjugated_if(from[i * b.row + p * b.column], conjugate);
      buffer += static_cast<long>(k) * width;
    }
    j += width;
  };
  while (q - j >= nr) copy(nr);
  while (q - j >= 4) copy(4);
  while (q - j >= 2) copy(2);
  if (j < q) copy(1);
}

/// Consecutive rows of a tile that stay consecutive in C.
struct RowRun {
  int from, count;  ///< rows of the tile
  int to;           ///< row of C
};

/// Where the rows of one tile go in a column of C.
template <int limit>
struct TileRows {
  int count = 0;  ///< of runs
  RowRun run[limit];

  /// Rows i0.. of an update; `row` null: they stay where they are.
  TileRows(const int* row, int i0, int valid) {
    if (!row || row[i0 + valid - 1] - row[i0] == valid - 1) {
      count = 1;
      run[0] = {0, valid, row ? row[i0] : i0};
      return;
    }
    for (int i = 0; i < valid; ++i) {
      const int to = row[i0 + i];
      if (count > 0 && to == run[count - 1].to + run[count - 1].count)
        ++run[count - 1].count;
      else
        run[count++] = {i, 1, to};
    }
  }
};

/// to(0..count) -= from(0..count).
template <class R, int width>
inline void subtract(R* to, const R* from, int count) {
  using L = Lanes<R, width>;
  for (; count >= width; count -= width, to += width, from += width)
    L::store(to, L::load(to) - L::load(from));
  if constexpr (width > 2) {
    if (count > 0) subtract<R, width / 2>(to, from, count);
  } else {
    if (count > 0) *to -= *from;
  }
}

/// Accumulators of one column of a tile.
template <class T, int MV>
struct Column {
  using R = typename Kind<T>::Real;
  using S = Simd<R>;
  static constexpr int parts = Kind<T>::parts, rows = MV * S::width;
  typename S::Vector part[parts][MV] = {};

  /// += a * b for one k.
  inline void add(const R* a, const T* b) {
    if constexpr (parts == 1) {
      const auto bv = S::fill(*b);
      for (int v = 0; v < MV; ++v) part[0][v] += S::load(a + v * S::width) * bv;
    } else {
      const R* bp = reinterpret_cast<const R*>(b);
      const auto re = S::fill(bp[0]), im = S::fill(bp[1]);
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

  /// Subtracts a full column from consecutive places.
  inline void put(R* out) const {
    for (int v = 0; v < MV; ++v)
      S::store(out + v * S::width, S::load(out + v * S::width) - part[0][v]);
  }

  /// Writes the column, complex values in pairs.
  inline void dump(R* out) const {
    if constexpr (parts == 1) {
      for (int v = 0; v < MV; ++v) S::store(out + v * S::width, part[0][v]);
    } else {
      for (int v = 0; v < MV; ++v)
        for (int i = 0; i < S::width; ++i) {
          out[2 * (v * S::width + i)] = part[0][v][i];
          out[2 * (v * S::width + i) + 1] = part[1][v][i];
        }
    }
  }
};

/// Columns first.. to end of B, for k of A's columns from k0 on.
template <class T>
struct ColumnBlock {
  SecondOperand<T> b;
  int first, end, k0, k;
};

/// A row tile's way through the columns of C.
///
/// Packed columns of B stand in tiles that follow each other, each with its k in turn.
template <class T, int MV, bool packed>
struct TileRow {
  using R = typename Kind<T>::Real;
  static constexpr int rows = MV * lanes<T>, parts = Kind<T>::parts;

  const PanelUpdate<T>& u;
  int k;
  PackedTile<T> a;
  TileRows<rows> where;

  T* column(int j) const { return u.c + static_cast<long>(u.col ? u.col[j] : j) * u.ldc; }

  /// One register tile: columns j0.. of C take NR columns of B.
  template <int NR>
  inline void tile(SecondOperand<T> b, int j0) const {
    Column<T, MV> acc[NR];
    const R* ak = a.a;
    const T* bk = b.at;
    const long b_row = packed ? 1 : b.row, b_column = packed ? NR : b.column;
    for (int p = 0; p < k; ++p, ak += a.stride, bk += b_column) {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j) acc[j].add(ak, bk + j * b_row);
    }
    if (parts == 1 && where.count == 1 && where.run[0].count == rows) {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j)
        acc[j].put(reinterpret_cast<R*>(column(j0 + j) + where.run[0].to));
      return;
    }
    // All columns are written before the first is read, which the stores then don't hold up.
    alignas(64) R lane[NR][rows * parts];
#pragma GCC unroll 8
    for (int j = 0; j < NR; ++j) acc[j].dump(lane[j]);
    for (int j = 0; j < NR; ++j) {
      T* const c = column(j0 + j);
      for (int r = 0; r < where.count; ++r) {
        const RowRun& run = where.run[r];
        subtract<R, lanes<T>>(reinterpret_cast<R*>(c + run.to), lane[j] + run.from * parts,
                              run.count * parts);
      }
    }
  }

  /// Columns of a block, until q is reached.
  inline void columns(const ColumnBlock<T>& block, int q) const {
    constexpr int nr = Kind<T>::columns;
    SecondOperand<T> b = block.b;
    int j = block.first;
    const auto next = [&](int width) {
      b.at += packed ? static_cast<long>(k) * width : b.row * width;
      j += width;
    };
    for (; j < q && j + nr <= block.end; next(nr)) tile<nr>(b, j);
    if constexpr (nr > 4)
      if (j < q && j + 4 <= block.end) {
        tile<4>(b, j);
        next(4);
      }
    if constexpr (nr > 2)
      if (j < q && j + 2 <= block.end) {
        tile<2>(b, j);
        next(2);
      }
    for (; j < q; next(1)) tile<1>(b, j);
  }
};

/// Rows i0.. of a block of columns, at most MV vectors of them.
template <class T, int MV, bool packed>
inline void update_rows(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int i0, int valid,
                        typename Kind<T>::Real* buffer) {
  // Columns right of the tile's last row lie above the diagonal.
  const int q = u.lower && i0 + valid < block.end ? i0 + valid : block.end;
  if (q <= block.first) return;
  const T* a = u.a + i0 + static_cast<long>(block.k0) * u.lda;
  PackedTile<T> at;
  if constexpr (Kind<T>::parts == 1)
    if (valid == MV * lanes<T> && q - block.first <= 2 * Kind<T>::columns) at = {a, u.lda};
  if (!at.a) at = pack_tile<T, MV>(a, u.lda, valid, block.k, buffer);
  const TileRow<T, MV, packed> row{u, block.k, at, {u.row, i0, valid}};
  row.columns(block, q);
}

/// All rows of a block of columns.
template <class T, bool packed>
inline void update_block(const PanelUpdate<T>& u, const ColumnBlock<T>& block,
                         typename Kind<T>::Real* buffer) {
  constexpr int width = lanes<T>, rows = tile_rows<T>;
  int i = 0;
  while (u.m - i >= rows) {
    // One vector left over is better taken as two tiles of two.
    if (Kind<T>::vectors == 3 && u.m - i > rows && u.m - i <= rows + width) {
      update_rows<T, 2, packed>(u, block, i, 2 * width, buffer);
      i += 2 * width;
      break;
    }
    update_rows<T, Kind<T>::vectors, packed>(u, block, i, rows, buffer);
    i += rows;
  }
  const int left = u.m - i;
  if constexpr (Kind<T>::vectors > 2)
    if (left > 2 * width) return update_rows<T, 3, packed>(u, block, i, left, buffer);
  if (left > width)
    update_rows<T, 2, packed>(u, block, i, left, buffer);
  else if (left > 0)
    update_rows<T, 1, packed>(u, block, i, left, buffer);
}

/// How an update is cut: columns of A and of B taken at once.
struct Blocking {
  int depth, width;
};

/// Values of B that are copied at once.
template <class T>
inline constexpr int block_limit = 131072 / static_cast<int>(sizeof(T));

/// A tile of A and two of B fill the first-level cache; a block of B stays in the second.
template <class T>
inline Blocking blocking(int q, int k) {
  constexpr int nr = Kind<T>::columns, size = static_cast<int>(sizeof(T));
  int limit = first_level_cache() / size / (tile_rows<T> + 2 * nr) / 8 * 8;
  if (limit > depth_limit<T>) limit = depth_limit<T>;
  // Deeper blocks would be too narrow, and each tile of A copied once for every few columns.
  if (limit > 160) limit = 160;
  const int blocks = (k + limit - 1) / limit;
  const int depth = blocks > 1 ? (k + blocks - 1) / blocks : k;
  const int width = block_limit<T> / depth / nr * nr;
  return {depth, width < q ? width : q};
}

template <class T>
void update(const PanelUpdate<T>& u) {
  if (u.k <= 0) return;
  alignas(64) typename Kind<T>::Real tile[tile_rows<T> * Kind<T>::parts * depth_limit<T>];
  alignas(64) unsigned char columns[block_limit<T> * sizeof(T)];
  T* const buffer = reinterpret_cast<T*>(columns);
  const auto [depth, width] = blocking<T>(u.q, u.k);
  // Copying B costs what it saves where few tiles of rows meet it.
  const bool pack = u.m > 2 * tile_rows<T> || (Kind<T>::parts == 2 && u.conjugate);
  for (int k0 = 0; k0 < u.k; k0 += depth) {
    const int k = u.k - k0 < depth ? u.k - k0 : depth;
    const SecondOperand<T> b{u.b + static_cast<long>(k0) * u.b_col, u.b_row, u.b_col};
    if (!pack) {
      update_block<T, false>(u, {b, 0, u.q, k0, k}, tile);
      continue;
    }
    for (int j = 0; j < u.q; j += width) {
      const int end = u.q - j < width ? u.q : j + width;
      pack_columns<T>({b.at + static_cast<long>(j) * u.b_row, u.b_row, u.b_col}, u.conjugate,
                      end - j, k, buffer);
      update_block<T, true>(u, {{buffer}, j, end, k0, k}, tile);
    }
  }
}

}  // namespace vlm::VELMORA_ISA
