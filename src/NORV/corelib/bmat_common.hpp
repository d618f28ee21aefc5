// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the bmat family share.
#pragma once

#include <algorithm>

#include "NORV/corelib/dmat_common.hpp"

namespace vlm {

/// Traps a null or damaged record.
inline void require(const bmat* B) {
  NORV_ASSERT(B != 0);
  NORV_ASSERT(B->bn > 0 && B->bdim == B->bn * B->bn);
}

/// Block k in the order of storage.
inline double* block(const bmat* B, std::size_t k) { return B->a + k * B->bdim; }

/// Rows and columns in entries.
inline std::uint64_t rows(const bmat* B) { return static_cast<std::uint64_t>(B->m) * B->bn; }
inline std::uint64_t columns(const bmat* B) { return static_cast<std::uint64_t>(B->n) * B->bn; }

/// Header without arrays; its operator head calls bmat_gemv and bmat_gemv_trans.
bmat* new_bmat_header(unsigned m, unsigned n, unsigned bn, int sym);

/// Calls f(block row, block column, k) for every stored block, in the order of storage.
template <class F>
void for_each_block(const bmat* B, F&& f) {
  for (unsigned i = 0; i < B->m; ++i)
    for (int k = B->ia[i]; k < B->ia[i + 1]; ++k)
      f(i, static_cast<unsigned>(B->ja[k]), static_cast<std::size_t>(k));
}

}  // namespace vlm
