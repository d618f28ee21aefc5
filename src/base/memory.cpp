// SPDX-License-Identifier: BSD-3-Clause
#include "base/memory.hpp"

#include <malloc.h>

namespace vlm {

void trim_heap() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace vlm
