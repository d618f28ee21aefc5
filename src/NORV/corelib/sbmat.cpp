// SPDX-License-Identifier: BSD-3-Clause
/// Square sparse matrices cut into blocks of unequal size, each an smat of its own.
#include <algorithm>

#include "NORV/corelib/base.hpp"
#include "NORV/corelib/norvmora_names.hpp"

namespace {

/// Walks the entries of A with the number of the block that each belongs to: `numbers` tells the
/// block row or column of every row or column.  f(block, row, entry) gets them by rows.
template <class F>
void for_each_entry(const smat* A, const vlm::Buffer<unsigned>& numbers, unsigned nb, F&& f) {
  for (std::size_t i = 0; i < A->m; ++i)
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k)
      f(static_cast<std::size_t>(numbers[i]) * nb + numbers[static_cast<std::size_t>(A->ja[k])], i,
        static_cast<std::size_t>(k));
}

/// Makes the blocks with room for their entries, and copies them with their own indices.
void copy_blocks(sbmat* S, const smat* A, const vlm::Buffer<unsigned>& numbers,
                 const vlm::Buffer<int>& first) {
  const std::size_t nb = S->nb, width = vlm::doubles_per_value(A->is_complex);
  vlm::Buffer<unsigned> count(nb * nb, 0);
  for_each_entry(A, numbers, S->nb, [&](std::size_t b, std::size_t, std::size_t) { ++count[b]; });
  for (std::size_t b = 0; b < nb * nb; ++b)
    S->blocks[b] = smat_new_nnz(static_cast<unsigned>(S->sizes[b / nb]),
                                static_cast<unsigned>(S->sizes[b % nb]), count[b],
                                A->is_complex ? NORV_CPX_UNSYM : NORV_REAL_UNSYM);

  vlm::Buffer<int> place(nb * nb, 0);
  for_each_entry(A, numbers, S->nb, [&](std::size_t b, std::size_t i, std::size_t k) {
    smat* const target = S->blocks[b];
    const auto put = static_cast<std::size_t>(place[b]++);
    target->ja[put] = A->ja[k] - first[b % nb];
    std::copy_n(A->a + k * width, width, target->a + put * width);
    ++target->ia[i - static_cast<std::size_t>(first[b / nb]) + 1];
  });
  for (std::size_t b = 0; b < nb * nb; ++b) {
    smat* const target = S->blocks[b];
    vlm::counts_to_starts(target->ia, target->m);
  }
}

}  // namespace

int* smat_find_blocks(const smat* A, unsigned int nb) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(nb > 0);
  int* sizes = vlm::allocate<int>(nb);
  const unsigned size = A->m / nb;
  for (unsigned b = 0; b < nb; ++b) {
    sizes[b] = static_cast<int>(b + 1 < nb ? size : A->m - (nb - 1) * size);
    _norv_print_stat_msg("block %u: %d", b, sizes[b]);
  }
  return sizes;
}

sbmat* sbmat_new(const smat* A, unsigned int nb, const int* sizes) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(A->m == A->n);
  NORV_ASSERT(sizes != 0 || nb == 0);
  vlm::Buffer<unsigned> numbers(A->m);
  vlm::Buffer<int> first(nb);
  std::int64_t sum = 0;
  for (unsigned b = 0; b < nb; ++b) {
    NORV_ASSERT(sizes[b] >= 0);
    first[b] = static_cast<int>(sum);
    sum += sizes[b];
    NORV_ASSERT(sum <= A->m);
    std::fill_n(numbers.data() + first[b], sizes[b], b);
  }
  NORV_ASSERT(sum == A->m);

  const std::uint64_t count = static_cast<std::uint64_t>(nb) * nb;
  sbmat* S = vlm::allocate<sbmat>(1);
  *S = {nb, A->m, 0, vlm::allocate<int>(nb), vlm::allocate<smat*>(count)};
  std::copy_n(sizes, nb, S->sizes);
  smat* const full = A->sym ? smat_copy_full_structure(A) : nullptr;
  const smat* const source = full ? full : A;
  S->nnz = source->nnz;
  copy_blocks(S, source, numbers, first);
  if (full) smat_free(full);
  return S;
}

void sbmat_free(sbmat* S) {
  if (!S) return;
  for (std::size_t b = 0; b < static_cast<std::size_t>(S->nb) * S->nb; ++b) smat_free(S->blocks[b]);
  vlm::release_block(S->blocks);
  vlm::release_block(S->sizes);
  vlm::release_block(S);
}

NORVMORA_SBMAT(NORVMORA_ALIAS)
