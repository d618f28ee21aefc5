// SPDX-License-Identifier: BSD-3-Clause
/// Between sparse matrices of entries and of blocks.
#include "NORV/corelib/bmat_common.hpp"
#include "NORV/corelib/smat_rows.hpp"

using vlm::block;
using vlm::require;

namespace {

/// Collects the block columns of block row `i` of A into `found`, rising.  seen[j] is i + 1 when
/// column j is among them already.
unsigned block_columns(const smat* A, unsigned bn, unsigned i, int* seen, int* found) {
  unsigned count = 0;
  for (int k = A->ia[i * bn]; k < A->ia[(i + 1) * bn]; ++k) {
    const int j = A->ja[k] / static_cast<int>(bn);
    if (seen[j] == static_cast<int>(i) + 1) continue;
    seen[j] = static_cast<int>(i) + 1;
    found[count++] = j;
  }
  std::sort(found, found + count);
  return count;
}

/// Adds the entries of A to blocks that are all stored.  A symmetric A has no entries below the
/// diagonal, so the diagonal blocks get theirs here.
void fill_blocks(bmat* B, const smat* A) {
  const std::size_t bn = B->bn;
  for (unsigned i = 0; i < A->m; ++i) {
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      const auto j = static_cast<unsigned>(A->ja[k]);
      double* const a = bmat_get_ij_block(B, i / B->bn, j / B->bn);
      a[i % bn * bn + j % bn] += A->a[k];
      if (A->sym && i != j && i / bn == j / bn) a[j % bn * bn + i % bn] += A->a[k];
    }
  }
}

/// Whether an entry of a block goes into a sparse matrix: one of the stored triangle that is
/// not 0, or on the diagonal of a symmetric matrix.
bool is_stored(const bmat* B, std::size_t i, std::size_t j, double value) {
  if (!B->sym) return value != 0.0;
  return i == j || (i < j && value != 0.0);
}

/// Calls f(row, column, value) for the entries that the sparse form of B stores, by rows.
template <class F>
void for_each_stored(const bmat* B, F&& f) {
  const std::size_t bn = B->bn;
  for (std::size_t i = 0; i < vlm::rows(B); ++i) {
    for (int k = B->ia[i / bn]; k < B->ia[i / bn + 1]; ++k) {
      const double* const a = block(B, static_cast<std::size_t>(k)) + i % bn * bn;
      const std::size_t first = static_cast<std::size_t>(B->ja[k]) * bn;
      for (std::size_t c = 0; c < bn; ++c)
        if (is_stored(B, i, first + c, a[c])) f(i, first + c, a[c]);
    }
  }
}

/// dst := src', for blocks of size bn.
void transpose_block(double* dst, const double* src, std::size_t bn) {
  for (std::size_t r = 0; r < bn; ++r)
    for (std::size_t c = 0; c < bn; ++c) dst[c * bn + r] = src[r * bn + c];
}

}  // namespace

bmat* bmat_new_from_smat(const smat* A, unsigned int bn) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(!A->is_complex);
  NORV_ASSERT(bn > 0);
  NORV_ASSERT(A->m % bn == 0);
  NORV_ASSERT(A->n % bn == 0);
  const unsigned m = A->m / bn, n = A->n / bn;
  vlm::Buffer<int> seen(n, 0), found(n);
  std::uint64_t nzb = 0;
  for (unsigned i = 0; i < m; ++i) nzb += block_columns(A, bn, i, seen.data(), found.data());

  bmat* B = bmat_new_nzb(m, n, static_cast<unsigned>(nzb), bn, A->sym);
  std::fill_n(seen.data(), n, 0);
  for (unsigned i = 0; i < m; ++i) {
    const unsigned count = block_columns(A, bn, i, seen.data(), found.data());
    std::copy_n(found.data(), count, B->ja + B->ia[i]);
    B->ia[i + 1] = B->ia[i] + static_cast<int>(count);
  }
  fill_blocks(B, A);
  return B;
}

smat* bmat_to_smat(const bmat* B) {
  require(B);
  smat* A = smat_new(static_cast<unsigned>(vlm::rows(B)), static_cast<unsigned>(vlm::columns(B)),
                     vlm::norv::type_of(B->sym, 0));
  for_each_stored(B, [&](std::size_t i, std::size_t, double) { ++A->ia[i + 1]; });
  vlm::norv::reserve_entries(A, vlm::counts_to_starts(A->ia, A->m));
  int place = 0;
  for_each_stored(B, [&](std::size_t, std::size_t j, double value) {
    A->ja[place] = static_cast<int>(j);
    A->a[place++] = value;
  });
  return A;
}

smat* bmat_fake_smat(const bmat* B) {
  require(B);
  return smat_new_from(B->m, B->n, B->ia, B->ja, nullptr, vlm::norv::type_of(B->sym, 0), 0);
}

bmat* bmat_copy_full_structure(const bmat* B) {
  require(B);
  bmat* full = bmat_new(B->m, B->n, B->bn, 0);
  vlm::norv::for_each_place(*B, [&](int i, int, int) { ++full->ia[i + 1]; });
  bmat_realloc(full, vlm::counts_to_starts(full->ia, full->m));
  vlm::Buffer<int> next(full->ia, full->ia + full->m);
  // Rows are walked in order, so a row gets its mirrored blocks, whose columns are smaller,
  // before its own.
  vlm::for_each_block(B, [&](unsigned i, unsigned j, std::size_t k) {
    const auto put = [&](unsigned row, unsigned column) {
      full->ja[next[row]] = static_cast<int>(column);
      return block(full, static_cast<std::size_t>(next[row]++));
    };
    std::copy_n(block(B, k), B->bdim, put(i, j));
    if (B->sym && i != j) transpose_block(put(j, i), block(B, k), B->bn);
  });
  return full;
}

int bmat_equal_smat(const bmat* B, const smat* A) {
  require(B);
  NORV_ASSERT(A != 0);
  if (A->is_complex || A->m != vlm::rows(B) || A->n != vlm::columns(B)) return 0;
  bmat* blocks = bmat_copy_full_structure(B);
  smat* entries = smat_copy_full_structure(A);
  const std::size_t bn = B->bn;
  vlm::Buffer<double> row(A->n, 0.0);
  bool equal = true;
  for (std::size_t i = 0; i < A->m && equal; ++i) {
    for (int k = entries->ia[i]; k < entries->ia[i + 1]; ++k) row[entries->ja[k]] += entries->a[k];
    // What equals the row is taken away; anything left is a difference.
    for (int k = blocks->ia[i / bn]; k < blocks->ia[i / bn + 1]; ++k) {
      const double* const a = block(blocks, static_cast<std::size_t>(k)) + i % bn * bn;
      double* const r = row.data() + static_cast<std::size_t>(blocks->ja[k]) * bn;
      for (std::size_t c = 0; c < bn; ++c) {
        if (r[c] != a[c]) equal = false;
        r[c] = 0.0;
      }
    }
    for (int k = entries->ia[i]; k < entries->ia[i + 1]; ++k)
      if (row[entries->ja[k]] != 0.0) equal = false;
  }
  smat_free(entries);
  bmat_free(blocks);
  return equal;
}
