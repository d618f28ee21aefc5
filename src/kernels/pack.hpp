// SPDX-License-Identifier: BSD-3-Clause
/// Copies of the operands of an update, in the order in which the innermost loop reads them.
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

/// B(j,k) = at[j*row + k*column].
template <class T>
struct SecondOperand {
  const T* at = nullptr;
  long row = 1, column = 0;
};

/// Some of the columns of both operands.
template <class T>
struct Depth {
  int k;
  const T* a[deepest_update];
  const T* b[deepest_update];

  /// Columns first.. of an update, `count` of them.
  Depth(const PanelUpdate<T>& u, int first, int count) : k(count) {
    for (int p = 0; p < k; ++p) {
      a[p] = u.a + static_cast<long>(first + p) * u.lda;
      b[p] = u.b + static_cast<long>(first + p) * u.b_col;
    }
  }
};

/// Copies one tile of `valid` rows from row i on.
template <class T, int MV>
inline PackedTile<T> pack_tile(const Depth<T>& depth, int i, int valid,
                               typename Kind<T>::Real* buffer) {
  constexpr int stride = tile_stride<T, MV>;
  for (int p = 0; p < depth.k; ++p)
    pack_column<T, MV>(depth.a[p] + i, valid, buffer + static_cast<long>(p) * stride);
  return {buffer, stride};
}

/// Copies full tiles that follow each other, from row i on.  Their columns may each lie on a page
/// of its own, which is then looked up once for all of them.
template <class T, int MV>
inline void pack_tiles(const Depth<T>& depth, int i, int tiles, typename Kind<T>::Real* buffer) {
  constexpr int rows = MV * lanes<T>, stride = tile_stride<T, MV>;
  for (int p = 0; p < depth.k; ++p)
    for (int t = 0; t < tiles; ++t)
      pack_column<T, MV>(depth.a[p] + i + t * rows, rows,
                         buffer + (static_cast<long>(t) * depth.k + p) * stride);
}

/// Copies columns j..end of B, tile after tile.
template <class T>
inline void pack_columns(const Depth<T>& depth, long row, bool conjugate, int j, int end,
                         T* buffer) {
  constexpr int nr = Kind<T>::columns;
  const auto copy = [&](int width) {
    if (row == 1) {
      for (int p = 0; p < depth.k; ++p)
        for (int i = 0; i < width; ++i)
          buffer[p * width + i] = conjugated_if(depth.b[p][j + i], conjugate);
    } else {
      for (int i = 0; i < width; ++i)
        for (int p = 0; p < depth.k; ++p)
          buffer[p * width + i] = conjugated_if(depth.b[p][(j + i) * row], conjugate);
    }
    buffer += static_cast<long>(depth.k) * width;
    j += width;
  };
  while (end - j >= nr) copy(nr);
  while (end - j >= 4) copy(4);
  while (end - j >= 2) copy(2);
  if (j < end) copy(1);
}

}  // namespace vlm::VELMORA_ISA
