// SPDX-License-Identifier: BSD-3-Clause
/// Memory for the arrays that hold a factor, see large_block.hpp.
#include "base/large_block.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>

namespace vlm {

void* allocate_block(std::size_t bytes) {
#ifdef MADV_HUGEPAGE
  // The size of a large page on all systems that have this call, or a part of it.
  constexpr std::size_t page = std::size_t{1} << 21;
  if (bytes >= 2 * page) {
    void* block = nullptr;
    if (posix_memalign(&block, page, bytes) != 0) return nullptr;
    // Where there are no large pages, small ones do as well.
    madvise(block, bytes / page * page, MADV_HUGEPAGE);
    return block;
  }
#endif
  return std::malloc(std::max<std::size_t>(bytes, 1));
}

}  // namespace vlm
