// SPDX-License-Identifier: BSD-3-Clause
/// Choice of the dense kernels by the processor.
#include "kernels/choice.hpp"

#include <unistd.h>

#include <algorithm>

#include "kernels/blas_update.hpp"
#include "kernels/instances.hpp"

VELMORA_DECLARE_KERNELS(baseline)
#ifdef VELMORA_KERNELS_AVX2
VELMORA_DECLARE_KERNELS(avx2)
#endif
#ifdef VELMORA_KERNELS_AVX512
VELMORA_DECLARE_KERNELS(avx512)
#endif

namespace vlm {

namespace {

/// What the system tells of a cache, within limits: untold it counts as the least, and more than the
/// most is no use to the blocks.
#ifdef _SC_LEVEL1_DCACHE_SIZE
int cache_bytes(int level, long least, long most) {
  const long told = sysconf(level == 1 ? _SC_LEVEL1_DCACHE_SIZE : _SC_LEVEL2_CACHE_SIZE);
  return static_cast<int>(std::clamp(told, least, most));
}
#else
int cache_bytes(int, long least, long) { return static_cast<int>(least); }
#endif

}  // namespace

int first_level_cache() {
  // A smaller one is fed by the second level fast enough: shallower blocks, which pass the result
  // more often, cost more than they save.
  static const int bytes = cache_bytes(1, 49152, 65536);
  return bytes;
}

int second_level_cache() {
  static const int bytes = cache_bytes(2, 262144, 1 << 24);
  return bytes;
}

std::size_t packing_bytes(std::size_t scalar, int width, int depth) {
  const auto block = scalar * static_cast<std::size_t>(std::max(width, 1)) *
                     static_cast<std::size_t>(std::clamp(depth, 1, deepest_update));
  if (block <= stack_columns) return 0;
  constexpr std::size_t line = 64;
  return line + packed_tiles + std::min<std::size_t>(block, second_level_cache() / 2);
}

namespace {

#ifdef VELMORA_KERNELS_AVX2
bool runs_avx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"); }
#define VELMORA_ADD_AVX2(name) \
  if (runs_avx2()) list.push_back(&avx2::name)
#else
#define VELMORA_ADD_AVX2(name)
#endif

#ifdef VELMORA_KERNELS_AVX512
bool runs_avx512() {
  return __builtin_cpu_supports("fma") && __builtin_cpu_supports("avx512f") &&
         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
         __builtin_cpu_supports("avx512bw");
}
#define VELMORA_ADD_AVX512(name) \
  if (runs_avx512()) list.push_back(&avx512::name)
#else
#define VELMORA_ADD_AVX512(name)
#endif

}  // namespace

// The plain kernels are tuned for no processor: their large updates go to the BLAS.
#define VELMORA_DEFINE(T, name)                         \
  template <>                                           \
  const KernelList<T>& runnable_kernels() {             \
    static const Kernels<T> plain = [] {                \
      Kernels<T> table = baseline::name;                \
      table.update = update_by_blas<T, baseline::name>; \
      return table;                                     \
    }();                                                \
    static const KernelList<T> tables = [] {            \
      KernelList<T> list;                               \
      list.push_back(&plain);                           \
      VELMORA_ADD_AVX2(name);                           \
      VELMORA_ADD_AVX512(name);                         \
      return list;                                      \
    }();                                                \
    return tables;                                      \
  }
VELMORA_DEFINE(double, kernels_double)
VELMORA_DEFINE(float, kernels_float)
VELMORA_DEFINE(zcomplex, kernels_complex)
#undef VELMORA_DEFINE

}  // namespace vlm
