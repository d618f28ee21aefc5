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

#include <cstddef>
#include <cstdint>

#include "kernels/pack.hpp"

namespace vlm::VELMORA_ISA {

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

/// Rows of A that are copied later, asked for line by line while those before them are at work.
template <class T>
struct Ahead {
  static constexpr bool asks = true;
  static constexpr int line = 64 / static_cast<int>(sizeof(T));
  const T* a;  ///< first of the columns that are taken
  long lda;
  int row = 0, end = 0;  ///< what is left to ask for

  void fetch(int p) const { __builtin_prefetch(a + p * lda + row, 0, 2); }
};
struct NothingAhead {
  static constexpr bool asks = false;
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
  template <int NR, class Next>
  inline void tile(SecondOperand<T> b, int j0, Next& ahead) const {
    Column<T, MV> acc[NR];
    T* c[NR];
    for (int j = 0; j < NR; ++j) c[j] = column(j0 + j);
    fetch<NR>(c);
    const R* ak = a.a;
    const T* bk = b.at;
    const long b_row = packed ? 1 : b.row, b_column = packed ? NR : b.column;
    const auto step = [&] {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j) acc[j].add(ak, bk + j * b_row);
      ak += a.stride;
      bk += b_column;
    };
    int p = 0;
    if constexpr (Next::asks)
      if (ahead.row < ahead.end) {
        for (; p < k; ++p) {
          ahead.fetch(p);
          step();
        }
        ahead.row += ahead.line;
      }
    for (; p < k; ++p) step();
    if (parts == 1 && where.whole) {
#pragma GCC unroll 8
      for (int j = 0; j < NR; ++j) acc[j].put(reinterpret_cast<R*>(c[j] + where.run[0].to));
    } else {
      scatter<NR>(acc, c);
    }
  }
};

/// Row tiles that take their way through a block of columns together, so that a tile of B serves
/// all of them from the nearest cache.
///
/// The way is compiled into its caller: a call for each tile of rows cost a small update a tenth.
template <class T, int MV, bool packed, int count, class Next>
struct TileGroup {
  const TileRow<T, MV, packed> (&row)[count];
  const int (&q)[count];  ///< columns that each takes; the later, the more
  Next& ahead;

  template <int NR>
  [[gnu::always_inline]] inline void tiles(SecondOperand<T> b, int j) const {
#pragma GCC unroll 2
    for (int t = 0; t < count; ++t)
      if (t == count - 1 || j < q[t]) row[t].template tile<NR>(b, j, ahead);
  }

  [[gnu::always_inline]] inline void columns(const ColumnBlock<T>& block) const {
    constexpr int nr = Kind<T>::columns;
    SecondOperand<T> b = block.b;
    int j = block.first;
    const int end = q[count - 1];
    const auto next = [&](int width) {
      b.at += packed ? static_cast<long>(block.k) * width : b.row * width;
      j += width;
    };
    for (; j < end && j + nr <= block.end; next(nr)) tiles<nr>(b, j);
    if constexpr (nr > 4)
      if (j < end && j + 4 <= block.end) {
        tiles<4>(b, j);
        next(4);
      }
    if constexpr (nr > 2)
      if (j < end && j + 2 <= block.end) {
        tiles<2>(b, j);
        next(2);
      }
    for (; j < end; next(1)) tiles<1>(b, j);
  }
};

/// Few columns don't repay a copy of A.
template <class T>
inline bool is_narrow(int columns) {
  return Kind<T>::parts == 1 && columns <= 2 * Kind<T>::columns;
}

/// Rows i0.. of a block of columns, at most MV vectors of them.
/// @param at  the rows where they were packed before, null: not yet
template <class T, int MV, bool packed, class Next>
inline void update_rows(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int i0, int valid,
                        typename Kind<T>::Real* buffer, Next& ahead, PackedTile<T> at = {}) {
  // Columns right of the tile's last row lie above the diagonal.
  const int q[] = {u.lower && i0 + valid < block.end ? i0 + valid : block.end};
  if (q[0] <= block.first) return;
  if (!at.a) {
    const T* a = u.a + i0 + static_cast<long>(block.k0) * u.lda;
    if (valid == MV * lanes<T> && is_narrow<T>(q[0] - block.first))
      at = {reinterpret_cast<const typename Kind<T>::Real*>(a), u.lda};
    else
      at = pack_tile<T, MV>(a, u.lda, valid, block.k, buffer);
  }
  const TileRow<T, MV, packed> row[] = {{u, block.k, at, {u.row, i0, valid}}};
  TileGroup<T, MV, packed, 1, Next>{row, q, ahead}.columns(block);
}

/// Two full tiles that follow each other from row i0 on.
template <class T, bool packed, class Next>
inline void update_pair(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int i0, Next& ahead,
                        PackedTile<T> at) {
  constexpr int rows = tile_rows<T>;
  const auto columns = [&](int end) { return u.lower && end < block.end ? end : block.end; };
  const int q[] = {columns(i0 + rows), columns(i0 + 2 * rows)};
  if (q[1] <= block.first) return;
  const TileRow<T, Kind<T>::vectors, packed> row[] = {
      {u, block.k, at, {u.row, i0, rows}},
      {u, block.k, {at.a + block.k * at.stride, at.stride}, {u.row, i0 + rows, rows}}};
  TileGroup<T, Kind<T>::vectors, packed, 2, Next>{row, q, ahead}.columns(block);
}

/// Columns of A from which bringing the tiles' operands nearer repays its own instructions.
inline constexpr int deep_from = 48;

/// Full tiles from row i on, packed together, `tiles` of them at `at`.
template <class T, bool packed>
inline void update_deep(const PanelUpdate<T>& u, const ColumnBlock<T>& block, int i, int tiles,
                        PackedTile<T> at) {
  constexpr int rows = tile_rows<T>, vectors = Kind<T>::vectors;
  Ahead<T> ahead{u.a + static_cast<long>(block.k0) * u.lda, u.lda, i + tiles * rows};
  ahead.end = u.m < ahead.row + tiles * rows ? u.m : ahead.row + tiles * rows;
  // Two tiles and what passes beside them fill the first-level cache.
  constexpr int pair = 2 * tile_stride<T, vectors> * static_cast<int>(sizeof(T)) / Kind<T>::parts;
  const bool paired = block.k <= first_level_cache() / pair;
  const long each = static_cast<long>(block.k) * at.stride;
  int t = 0;
  for (; paired && t + 2 <= tiles; t += 2, i += 2 * rows, at.a += 2 * each)
    update_pair<T, packed>(u, block, i, ahead, at);
  for (; t < tiles; ++t, i += rows, at.a += each)
    update_rows<T, vectors, packed>(u, block, i, rows, nullptr, ahead, at);
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
  NothingAhead none;
  while (i < whole) {
    int tiles = 1;
    PackedTile<T> at;
    if (!is_narrow<T>(block.end - block.first)) {
      const int there = (whole - i) / rows;
      tiles = there < together ? there : together;
      pack_tiles<T, vectors>(u.a + i + static_cast<long>(block.k0) * u.lda, u.lda, tiles, block.k,
                             buffer);
      at = {buffer, tile_stride<T, vectors>};
      if constexpr (packed)
        if (block.k >= deep_from) {
          update_deep<T, packed>(u, block, i, tiles, at);
          i += tiles * rows;
          continue;
        }
    }
    for (int t = 0; t < tiles; ++t, i += rows) {
      update_rows<T, vectors, packed>(u, block, i, rows, buffer, none, at);
      if (at.a) at.a += static_cast<long>(block.k) * at.stride;
    }
  }
  if (split) {
    update_rows<T, 2, packed>(u, block, i, 2 * width, buffer, none);
    i += 2 * width;
  }
  const int left = u.m - i;
  if constexpr (vectors > 2)
    if (left > 2 * width) return update_rows<T, 3, packed>(u, block, i, left, buffer, none);
  if (left > width)
    update_rows<T, 2, packed>(u, block, i, left, buffer, none);
  else if (left > 0)
    update_rows<T, 1, packed>(u, block, i, left, buffer, none);
}

/// Where an update copies its operands to, and how many values each copy holds at most.
template <class T>
struct Room {
  typename Kind<T>::Real* tiles;
  int tile_reals;
  T* columns;
  int column_values;
};

/// How an update is cut: columns of A and of B taken at once, tiles of A packed at once.
struct Blocking {
  int depth, width, tiles;
};

/// A tile of A fills the first-level cache; a block of B takes half of the second.
template <class T>
inline Blocking blocking(int q, int k, const Room<T>& room) {
  constexpr int nr = Kind<T>::columns, stride = tile_stride<T, Kind<T>::vectors>;
  int limit = first_level_cache() / (stride * static_cast<int>(sizeof(T) / Kind<T>::parts)) / 8 * 8;
  if (limit > deepest_update) limit = deepest_update;
  const int blocks = (k + limit - 1) / limit;
  const int depth = blocks > 1 ? (k + blocks - 1) / blocks : k;
  const int half = second_level_cache() / 2 / static_cast<int>(sizeof(T));
  const int values = half < room.column_values ? half : room.column_values;
  const int width = values / depth / nr * nr;
  return {depth, width < q ? width : q, room.tile_reals / (depth * stride)};
}

template <class T>
inline void update_in(const PanelUpdate<T>& u, const Room<T>& room) {
  const Blocking cut = blocking<T>(u.q, u.k, room);
  // Copying B costs what it saves where few tiles of rows meet it.
  const bool pack = u.m > 2 * tile_rows<T> || (Kind<T>::parts == 2 && u.conjugate);
  for (int k0 = 0; k0 < u.k; k0 += cut.depth) {
    const int k = u.k - k0 < cut.depth ? u.k - k0 : cut.depth;
    const SecondOperand<T> b{u.b + static_cast<long>(k0) * u.b_col, u.b_row, u.b_col};
    if (!pack) {
      update_block<T, false>(u, {b, 0, u.q, k0, k}, cut.tiles, room.tiles);
      continue;
    }
    for (int j = 0; j < u.q; j += cut.width) {
      const int end = u.q - j < cut.width ? u.q : j + cut.width;
      pack_columns<T>({b.at + static_cast<long>(j) * u.b_row, u.b_row, u.b_col}, u.conjugate,
                      end - j, k, room.columns);
      update_block<T, true>(u, {{room.columns}, j, end, k0, k}, cut.tiles, room.tiles);
    }
  }
}

template <class T>
__attribute__((noinline)) void update_on_stack(const PanelUpdate<T>& u) {
  alignas(64) typename Kind<T>::Real tiles[packed_tiles / sizeof(typename Kind<T>::Real)];
  alignas(64) unsigned char columns[stack_columns];
  update_in<T>(u, {tiles, sizeof tiles / sizeof *tiles, reinterpret_cast<T*>(columns),
                   stack_columns / static_cast<int>(sizeof(T))});
}

template <class T>
void update(const PanelUpdate<T>& u) {
  if (u.k <= 0) return;
  using Real = typename Kind<T>::Real;
  constexpr std::size_t least = packed_tiles + stack_columns + 64;
  if (u.space.bytes < least) return update_on_stack(u);
  const auto skip = -reinterpret_cast<std::uintptr_t>(u.space.at) % 64;
  char* const at = static_cast<char*>(u.space.at) + skip;
  const std::size_t values = (u.space.bytes - skip - packed_tiles) / sizeof(T);
  constexpr std::size_t most = (1u << 30) / sizeof(T);
  update_in<T>(u, {reinterpret_cast<Real*>(at), packed_tiles / static_cast<int>(sizeof(Real)),
                   reinterpret_cast<T*>(at + packed_tiles),
                   static_cast<int>(values < most ? values : most)});
}

}  // namespace vlm::VELMORA_ISA
