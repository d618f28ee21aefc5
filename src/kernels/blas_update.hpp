// SPDX-License-Identifier: BSD-3-Clause
/// The update for processors that no kernel here is tuned for: by the BLAS where it is large.
///
/// The product is formed in a small buffer and subtracted from its scattered place block by block;
/// a place without gaps takes it straight.  Small updates stay with the plain loops, which have no
/// call to pay for.
#pragma once

#include <algorithm>
#include <cstddef>

#include "kernels/kernels.hpp"

namespace vlm {

/// Multiplications from which a call of the BLAS is worth it.
inline constexpr double blas_update_limit = 32.0 * 32.0 * 32.0;

/// Rows i.. and columns j.. of an update, at most one buffer of them.
struct UpdateBlock {
  static constexpr int rows = 128, columns = 32;
  int i, j, m, q;
};

/// P := alpha A B^T + beta P for the rows and columns of a block.
template <class T>
void multiply_block(const PanelUpdate<T>& u, const UpdateBlock& block, T alpha, T beta, T* p,
                    int ldp) {
  const bool stored_by_rows = u.b_row != 1;
  const char op = stored_by_rows ? 'N' : (u.conjugate ? 'C' : 'T');
  const int ldb = stored_by_rows ? std::max(u.b_row, u.k) : std::max(u.b_col, block.q);
  blas::gemm('N', op, block.m, block.q, u.k, alpha, u.a + block.i, u.lda,
             u.b + static_cast<long>(block.j) * u.b_row, ldb, beta, p, ldp);
}

template <class T>
void scatter_block(const PanelUpdate<T>& u, const UpdateBlock& block, const T* p) {
  for (int j = 0; j < block.q; ++j, p += block.m) {
    T* c = u.c + static_cast<long>(u.col ? u.col[block.j + j] : block.j + j) * u.ldc;
    if (u.row) {
      for (int i = 0; i < block.m; ++i) c[u.row[block.i + i]] -= p[i];
    } else {
      for (int i = 0; i < block.m; ++i) c[block.i + i] -= p[i];
    }
  }
}

/// PanelUpdate by the BLAS, or by `plain` where that is the better or the only way.
template <class T, const Kernels<T>& plain>
void update_by_blas(const PanelUpdate<T>& u) {
  // The BLAS conjugates only what it transposes, and knows one stride.
  const bool can = u.b_row == 1 || (u.b_col == 1 && !u.conjugate);
  if (!can || static_cast<double>(u.m) * u.q * u.k < blas_update_limit) return plain.update(u);
  if (!u.row && !u.col && !u.lower)
    return multiply_block<T>(u, {0, 0, u.m, u.q}, T(-1), T(1), u.c, u.ldc);
  // Bytes, since complex values would be zeroed first.
  alignas(64) std::byte storage[UpdateBlock::rows * UpdateBlock::columns * sizeof(T)];
  T* const p = reinterpret_cast<T*>(storage);
  for (int j = 0; j < u.q; j += UpdateBlock::columns)
    for (int i = u.lower ? j : 0; i < u.m; i += UpdateBlock::rows) {
      const UpdateBlock block{i, j, std::min(UpdateBlock::rows, u.m - i),
                              std::min(UpdateBlock::columns, u.q - j)};
      multiply_block(u, block, T(1), T(0), p, block.m);
      scatter_block(u, block, p);
    }
}

}  // namespace vlm
