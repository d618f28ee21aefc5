// SPDX-License-Identifier: BSD-3-Clause
/// Right-hand sides into the order of elimination, solutions out of it.
///
/// The caller's vectors lie column after column, those of the sweeps with the values of one unknown
/// next to each other.  A whole solve goes through the nodes in the caller's order, so that it walks
/// each of the caller's columns from its beginning to its end, and a few nodes at a time: they are
/// transposed in a small tile, and only whole rows of the sweeps' vectors lie at permuted places.
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/progress.hpp"
#include "base/scalar.hpp"
#include "base/team.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

constexpr int block_rhs = 64;  ///< most right-hand sides taken at once

/// Node and scale of each position, on the side of the right-hand side or of the solution.
///
/// The factored matrix is P R A C under the symmetric order.  Right-hand sides enter through
/// its rows and solutions leave through its columns; with the transposed matrix the sides
/// change places.
struct Side {
  const int* match = nullptr;  ///< row of A in the place of a node; null: the node itself
  const double* scale = nullptr;
  int node(int order_node) const { return match ? match[order_node - 1] : order_node; }
  double factor(int at) const { return scale ? scale[at - 1] : 1.0; }
};

/// Some of the caller's vectors and those of the sweeps.
template <class T>
struct Exchange {
  const Structure& st;
  Side side;
  bool plain;  ///< positions stand for nodes, as between the steps of a solve
  int count,
      nb;  ///< vectors, at most block_rhs; values of one unknown in y, zero beyond the vectors
  T* y;    ///< [n * nb]

  T* row(int position) const { return y + static_cast<std::ptrdiff_t>(position - 1) * nb; }
  int node_at(int position) const { return plain ? position : side.node(st.perm(position)); }
  double scale_of(int node) const { return plain ? 1.0 : side.factor(node); }
};

constexpr int tiles_ahead = 5;  ///< what a tile needs is asked for so early

/// Nodes that share a tile: a cache line of each of the caller's vectors.
template <class T>
struct Tile {
  static constexpr int nodes = 64 / static_cast<int>(sizeof(Wide<T>));
  int count;
  bool adjacent;  ///< the nodes follow each other
  int node[nodes];
  double scale[nodes];
  T* row[nodes];

  /// Those from `first` on, in the order of the factored matrix.
  Tile(const Exchange<T>& e, int first) : count(std::min(nodes, e.st.n + 1 - first)) {
    adjacent = e.plain || e.side.match == nullptr;
    for (int c = 0; c < count; ++c) {
      const int at = first + c;
      node[c] = e.plain ? at : e.side.node(at);
      scale[c] = e.scale_of(node[c]);
      row[c] = e.row(e.plain ? at : e.st.invp(at));
    }
  }
};

/// Asks for what a tile from node `first` on will touch, of the caller's vectors too: there are more
/// of them than streams that the processor foresees, and its stores wait for one another.
template <class T, bool write>
void ask_for_tile(const Exchange<T>& e, const double* vectors, int first) {
  constexpr int nodes = Tile<T>::nodes, line = 64 / static_cast<int>(sizeof(T));
  constexpr int doubles = sizeof(Wide<T>) / sizeof(double);
  if (first + nodes - 1 > e.st.n) return;
  for (int v = first; v < first + nodes; ++v) {
    const T* const row = e.row(e.plain ? v : e.st.invp(v));
    for (int k = 0; k < e.nb; k += line) __builtin_prefetch(row + k, write ? 0 : 1, 2);
  }
  if (!e.plain && e.side.match) return;
  for (int k = 0; k < e.count; ++k)
    __builtin_prefetch(vectors + (static_cast<std::ptrdiff_t>(k) * e.st.n + first - 1) * doubles,
                       write ? 1 : 0, 2);
}

/// The caller's value of a node, or of a position, in y: row := scaled values.
template <class T>
void gather_row(const Exchange<T>& e, const double* b, int position) {
  const int node = e.node_at(position);
  const double s = e.scale_of(node);
  T* const to = e.row(position);
  for (int k = 0; k < e.count; ++k) {
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(k) * e.st.n + node - 1;
    to[k] = static_cast<T>(value_at<Wide<T>>(b, at) * s);
  }
  std::fill(to + e.count, to + e.nb, T(0));
}

template <class T>
void scatter_row(const Exchange<T>& e, double* x, int position) {
  const int node = e.node_at(position);
  const double s = e.scale_of(node);
  const T* const from = e.row(position);
  for (int k = 0; k < e.count; ++k)
    put_value(x, static_cast<std::ptrdiff_t>(k) * e.st.n + node - 1,
              static_cast<Wide<T>>(from[k]) * s);
}

/// The same for the nodes of a tile.
template <class T>
void gather_tile(const Exchange<T>& e, const double* b, const Tile<T>& tile) {
  T values[Tile<T>::nodes][block_rhs];
  for (int k = 0; k < e.count; ++k) {
    const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(k) * e.st.n - 1;
    if (tile.adjacent) {
      const std::ptrdiff_t at = column + tile.node[0];
      for (int c = 0; c < tile.count; ++c)
        values[c][k] = static_cast<T>(value_at<Wide<T>>(b, at + c) * tile.scale[c]);
    } else {
      for (int c = 0; c < tile.count; ++c)
        values[c][k] = static_cast<T>(value_at<Wide<T>>(b, column + tile.node[c]) * tile.scale[c]);
    }
  }
  for (int c = 0; c < std::min(tile.count, Tile<T>::nodes); ++c) {
    std::copy_n(values[c], e.count, tile.row[c]);
    std::fill(tile.row[c] + e.count, tile.row[c] + e.nb, T(0));
  }
}

template <class T>
void scatter_tile(const Exchange<T>& e, double* x, const Tile<T>& tile) {
  T values[Tile<T>::nodes][block_rhs];
  const int count = std::min(e.count, block_rhs);
  for (int c = 0; c < std::min(tile.count, Tile<T>::nodes); ++c)
    std::copy_n(tile.row[c], count, values[c]);
  for (int k = 0; k < e.count; ++k) {
    const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(k) * e.st.n - 1;
    if (tile.adjacent) {
      const std::ptrdiff_t at = column + tile.node[0];
      for (int c = 0; c < tile.count; ++c)
        put_value(x, at + c, static_cast<Wide<T>>(values[c][k]) * tile.scale[c]);
    } else {
      for (int c = 0; c < tile.count; ++c)
        put_value(x, column + tile.node[c], static_cast<Wide<T>>(values[c][k]) * tile.scale[c]);
    }
  }
}

/// Calls visit(first, last) for ranges of 1 to n, which the threads share; every range begins a
/// tile.  May throw Cancelled.
template <class Visit>
void share_positions(int n, int threads, const Visit& visit) {
  constexpr int chunk = 4096;
  const std::int64_t chunks = (static_cast<std::int64_t>(n) + chunk - 1) / chunk;
  const auto take = [&](std::int64_t from, std::int64_t to) {
    for (; from < to; ++from) {
      pulse();
      const auto first = static_cast<int>(from * chunk);
      visit(first + 1, std::min(chunk, n - first) + first);
    }
  };
  if (threads <= 1) return take(0, chunks);
  TeamFailure failure;
#pragma omp parallel num_threads(threads)
  failure.guard([&] {
    const std::int64_t team = omp_get_num_threads(), me = omp_get_thread_num();
    take(chunks * me / team, chunks * (me + 1) / team);
  });
  failure.rethrow();
}

/// All of y from the caller's vectors.  May throw Cancelled, as the next one.
template <class T>
void gather_all(const Exchange<T>& e, const double* b, int threads) {
  share_positions(e.st.n, threads, [&](int first, int last) {
    if (e.count == 1)
      for (int i = first; i <= last; ++i) gather_row(e, b, i);
    else
      for (int v = first; v <= last; v += Tile<T>::nodes) {
        ask_for_tile<T, false>(e, b, v + tiles_ahead * Tile<T>::nodes);
        gather_tile(e, b, Tile<T>(e, v));
      }
  });
}

template <class T>
void scatter_all(const Exchange<T>& e, double* x, int threads) {
  share_positions(e.st.n, threads, [&](int first, int last) {
    if (e.count == 1)
      for (int i = first; i <= last; ++i) scatter_row(e, x, i);
    else
      for (int v = first; v <= last; v += Tile<T>::nodes) {
        ask_for_tile<T, true>(e, x, v + tiles_ahead * Tile<T>::nodes);
        scatter_tile(e, x, Tile<T>(e, v));
      }
  });
}

}  // namespace vlm
