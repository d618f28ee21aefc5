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

/// Tile of A: for each k `stride` reals, first the real parts of its rows.
template <class T>
struct PackedTile {
  const typename Kind<T>::Real* a = nullptr;
  long stride = 0;
};

/// Reals of a tile of MV vectors for each k.
template <class T, int MV>
inline constexpr int tile_stride = MV* lanes<T>* Kind<T>::parts;

/// Copies `valid` rows of a column of A into a tile, zero beyond them.
template <class T, int MV>
inline void pack_column(const T* column, int valid, typename Kind<T>::Real* to) {
  using R = typename Kind<T>::Real;
  constexpr int rows = MV * lanes<T>;
  const R* from = reinterpret_cast<const R*>(column);
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

/// Copies one tile of `valid` rows.
template <class T, int MV>
inline PackedTile<T> pack_tile(const T* a, int lda, int valid, int k,
                               typename Kind<T>::Real* buffer) {
  constexpr int stride = tile_stride<T, MV>;
  for (int p = 0; p < k; ++p)
    pack_column<T, MV>(a + static_cast<long>(p) * lda, valid,
                       buffer + static_cast<long>(p) * stride);
  return {buffer, stride};
}

/// Copies full tiles that follow each other.  Their columns may each lie on a page of its own,
/// which is then looked up once for all of them.
template <class T, int MV>
inline void pack_tiles(const T* a, int lda, int tiles, int k, typename Kind<T>::Real* buffer) {
  constexpr int rows = MV * lanes<T>, stride = tile_stride<T, MV>;
  for (int p = 0; p < k; ++p)
    for (int t = 0; t < tiles; ++t)
      pack_column<T, MV>(a + static_cast<long>(p) * lda + t * rows, rows,
                         buffer + (static_cast<long>(t) * k + p) * stride);
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

/// Where the rows of one tile go in a column of C, in runs of at most `limit` rows that lie in one
/// of the tile's pieces of `limit` rows.
template <int rows, int limit>
struct TileRows {
  bool whole = false;          ///< all rows follow each other, from the first run's place on
  int count = 0;               ///< of runs
  int end[rows / limit] = {};  ///< of the runs of each piece
  RowRun run[rows];

  /// Rows i0.. of an update; `row` null: they stay where they are.
  TileRows(const int* row, int i0, int valid) {
    const int first = row ? row[i0] : i0;
    whole = valid == rows && (!row || row[i0 + valid - 1] - first == valid - 1);
    for (int piece = 0; piece < rows / limit; ++piece) {
      const int begin = piece * limit, until = begin + limit < valid ? begin + limit : valid;
      if (whole) {
        run[count++] = {begin, limit, first + begin};
      } else {
        for (int i = begin; i < until; ++i) {
          const int to = row ? row[i0 + i] : first + i;
          if (i > begin && to == run[count - 1].to + run[count - 1].count)
            ++run[count - 1].count;
          else
            run[count++] = {i, 1, to};
        }
      }
      end[piece] = count;
    }
  }
};

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

  /// Vector w of the column as it stands in memory, complex values in pairs.
  inline typename S::Vector in_memory(int w) const {
    if constexpr (parts == 1)
      return part[0][w];
    else
      return w % 2 == 0 ? S::low_pairs(part[0][w / 2], part[1][w / 2])
                        : S::high_pairs(part[0][w / 2], part[1][w / 2]);
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
  /// Runs of a vector where any part of one is written at once, of the whole tile otherwise.
  TileRows<rows, Simd<R>::masked ? lanes<T> / parts : rows> where;

  T* column(int j) const { return u.c + static_cast<long>(u.col ? u.col[j] : j) * u.ldc; }

  /// Asks for the places of a tile, so that they are there when its product is.
  template <int NR>
  inline void fetch(T* const (&c)[NR]) const {
    constexpr int line = 64 / static_cast<int>(sizeof(T));
    for (int r = 0; r < where.count; ++r) {
      const RowRun& run = where.run[r];
      for (int j = 0; j < NR; ++j) {
        for (int i = 0; i < run.count - 1; i += line) __builtin_prefetch(c[j] + run.to + i, 1);
        __builtin_prefetch(c[j] + run.to + run.count - 1, 1);
      }
    }
  }

  /// Subtracts a tile, run by run.
  template <int NR>
  inline void scatter(const Column<T, MV> (&acc)[NR], T* const (&c)[NR]) const {
    using S = Simd<R>;
    if constexpr (S::masked) {
#pragma GCC unroll 8
      for (int w = 0; w < MV * parts; ++w)
        for (int r = w > 0 ? where.end[w - 1] : 0; r < where.end[w]; ++r) {
          const RowRun& run = where.run[r];
          const int skip = run.from * parts - w * S::width;
#pragma GCC unroll 8
          for (int j = 0; j < NR; ++j)
            S::subtract(reinterpret_cast<R*>(c[j] + run.to) - skip, acc[j].in_memory(w), skip,
                        run.count * parts);
        }
    } else {
      // All columns are written before the first is read, which the stores then don't hold up.
      alignas(64) R lane[NR][rows * parts];
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j)
        for (int w = 0; w < MV * parts; ++w) S::store(lane[j] + w * S::width, acc[j].in_memory(w));
      for (int j = 0; j < NR; ++j)
        for (int r = 0; r < where.count; ++r) {
          const RowRun& run = where.run[r];
          subtract_by_halves<R, S::width>(reinterpret_cast<R*>(c[j] + run.to),
                                          lane[j] + run.from * parts, run.count * parts);
        }
    }
  }

  /// One register tile: columns j0.. of C take NR columns of B.
  template <int NR>
  inline void tile(SecondOperand<T> b, int j0) const {
    Column<T, MV> acc[NR];
    T* c[NR];
    for (int j = 0; j < NR; ++j) c[j] = column(j0 + j);
    fetch<NR>(c);
    const R* ak = a.a;
    const T* bk = b.at;
    const long b_row = packed ? 1 : b.row, b_column = packed ? NR : b.column;
    for (int p = 0; p < k; ++p, ak += a.stride, bk += b_column) {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j) acc[j].add(ak, bk + j * b_row);
    }
    if (parts == 1 && where.whole) {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j) acc[j].put(reinterpret_cast<R*>(c[j] + where.run[0].to));
    } else {
      scatter<NR>(acc, c);
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

/// Few columns don't repay a copy of A.
template <class T>
inline bool is_narrow(int columns) {
  return Kind<T>::parts == 1 && columns <= 2 * Kind<T>::columns;
}

/// Rows i0.. of a block of columns, at most MV vectors of them.
/// @param packed_a  the rows where they were packed before, null: not yet
template <class T, int MV, bool packed>
inline void update_rows(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int i0, int valid,
                        typename Kind<T>::Real* buffer, PackedTile<T> at = {}) {
  // Columns right of the tile's last row lie above the diagonal.
  const int q = u.lower && i0 + valid < block.end ? i0 + valid : block.end;
  if (q <= block.first) return;
  if (!at.a) {
    const T* a = u.a + i0 + static_cast<long>(block.k0) * u.lda;
    if (valid == MV * lanes<T> && is_narrow<T>(q - block.first))
      at = {reinterpret_cast<const typename Kind<T>::Real*>(a), u.lda};
    else
      at = pack_tile<T, MV>(a, u.lda, valid, block.k, buffer);
  }
  const TileRow<T, MV, packed> row{u, block.k, at, {u.row, i0, valid}};
  row.columns(block, q);
}

/// All rows of a block of columns.
/// @param together  full tiles of A that are packed at once
template <class T, bool packed>
inline void update_block(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int together,
                         typename Kind<T>::Real* buffer) {
  constexpr int width = lanes<T>, rows = tile_rows<T>, vectors = Kind<T>::vectors;
  // One vector left over is better taken as two tiles of two.
  const int over = u.m % rows;
  const bool split = vectors == 3 && u.m > rows && over > 0 && over <= width;
  const int whole = u.m / rows * rows - (split ? rows : 0);
  int i = u.lower ? block.first / rows * rows : 0;  // rows before lie above the diagonal
  if (i > whole) i = whole;
  while (i < whole) {
    int tiles = 1;
    PackedTile<T> at;
    if (!is_narrow<T>(block.end - block.first)) {
      const int there = (whole - i) / rows;
      tiles = there < together ? there : together;
      pack_tiles<T, vectors>(u.a + i + static_cast<long>(block.k0) * u.lda, u.lda, tiles, block.k,
                             buffer);
      at = {buffer, tile_stride<T, vectors>};
    }
    for (int t = 0; t < tiles; ++t, i += rows) {
      update_rows<T, vectors, packed>(u, block, i, rows, buffer, at);
      if (at.a) at.a += static_cast<long>(block.k) * at.stride;
    }
  }
  if (split) {
    update_rows<T, 2, packed>(u, block, i, 2 * width, buffer);
    i += 2 * width;
  }
  const int left = u.m - i;
  if constexpr (vectors > 2)
    if (left > 2 * width) return update_rows<T, 3, packed>(u, block, i, left, buffer);
  if (left > width)
    update_rows<T, 2, packed>(u, block, i, left, buffer);
  else if (left > 0)
    update_rows<T, 1, packed>(u, block, i, left, buffer);
}

/// How an update is cut: columns of A and of B taken at once, tiles
/// of A packed at once.
struct Blocking {
  int depth, width, tiles;
};

/// Most columns of A taken at once: every further block of them reads and writes C once more.
inline constexpr int deepest = 256;
/// Values of B that are copied at once, if the second-level cache holds twice as many.  With the tiles
/// they are 224 KB of the stack, which has to grow by them where memory is short.
template <class T>
inline constexpr int block_limit = 163840 / static_cast<int>(sizeof(T));
/// Reals of the tiles of A that are packed together, one of the deepest at least.
template <class T>
inline constexpr int tiles_limit = 65536 / static_cast<int>(sizeof(typename Kind<T>::Real));

/// A tile of A fills the first-level cache; a block of B takes half of the second.
template <class T>
inline Blocking blocking(int q, int k) {
  constexpr int nr = Kind<T>::columns;
  constexpr int tile = tile_stride<T, Kind<T>::vectors> * sizeof(typename Kind<T>::Real);
  int limit = first_level_cache() / tile / 8 * 8;
  if (limit > deepest) limit = deepest;
  const int blocks = (k + limit - 1) / limit;
  const int depth = blocks > 1 ? (k + blocks - 1) / blocks : k;
  const int half = second_level_cache() / 2 / static_cast<int>(sizeof(T));
  const int width = (half < block_limit<T> ? half : block_limit<T>) / depth / nr * nr;
  const int tiles = tiles_limit<T> / (depth * tile_stride<T, Kind<T>::vectors>);
  return {depth, width < q ? width : q, tiles};
}

template <class T>
void update(const PanelUpdate<T>& u) {
  if (u.k <= 0) return;
  alignas(64) typename Kind<T>::Real tile[tiles_limit<T>];
  alignas(64) unsigned char columns[block_limit<T> * sizeof(T)];
  T* const buffer = reinterpret_cast<T*>(columns);
  const auto [depth, width, tiles] = blocking<T>(u.q, u.k);
  // Copying B costs what it saves where few tiles of rows meet it.
  const bool pack = u.m > 2 * tile_rows<T> || (Kind<T>::parts == 2 && u.conjugate);
  for (int k0 = 0; k0 < u.k; k0 += depth) {
    const int k = u.k - k0 < depth ? u.k - k0 : depth;
    const SecondOperand<T> b{u.b + static_cast<long>(k0) * u.b_col, u.b_row, u.b_col};
    if (!pack) {
      update_block<T, false>(u, {b, 0, u.q, k0, k}, tiles, tile);
      continue;
    }
    for (int j = 0; j < u.q; j += width) {
      const int end = u.q - j < width ? u.q : j + width;
      pack_columns<T>({b.at + static_cast<long>(j) * u.b_row, u.b_row, u.b_col}, u.conjugate,
                      end - j, k, buffer);
      update_block<T, true>(u, {{buffer}, j, end, k0, k}, tiles, tile);
    }
  }
}

}  // namespace vlm::VELMORA_ISA
