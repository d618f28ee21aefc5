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

}  // namespace vlm::VELMORA_ISA
