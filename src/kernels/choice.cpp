// SPDX-License-Identifier: BSD-3-Clause
/// Choice of the dense kernels by the processor.
#include <vector>

#include "kernels/kernels.hpp"

namespace vlm {

#define VELMORA_DECLARE(isa)                      \
  namespace isa {                                 \
  extern const Kernels<double> kernels_double;    \
  extern const Kernels<float> kernels_float;      \
  extern const Kernels<zcomplex> kernels_complex; \
  }
VELMORA_DECLARE(baseline)
#ifdef VELMORA_WIDE_KERNELS
VELMORA_DECLARE(avx2)
VELMORA_DECLARE(avx512)
#endif
#undef VELMORA_DECLARE

namespace {

/// The tables that this processor can run, the widest last.
template <class T>
std::vector<const Kernels<T>*> runnable(const Kernels<T>& base,
                                        [[maybe_unused]] const Kernels<T>& four,
                                        [[maybe_unused]] const Kernels<T>& eight) {
  std::vector<const Kernels<T>*> list{&base};
#ifdef VELMORA_WIDE_KERNELS
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
    list.push_back(&four);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw"))
      list.push_back(&eight);
  }
#endif
  return list;
}

}  // namespace

#ifdef VELMORA_WIDE_KERNELS
#define VELMORA_TABLES(name) runnable(baseline::name, avx2::name, avx512::name)
#else
#define VELMORA_TABLES(name) runnable(baseline::name, baseline::name, baseline::name)
#endif
#define VELMORA_DEFINE(T, name)                              \
  template <>                                                \
  const std::vector<const Kernels<T>*>& runnable_kernels() { \
    static const auto list = VELMORA_TABLES(name);           \
    return list;                                             \
  }
VELMORA_DEFINE(double, kernels_double)
VELMORA_DEFINE(float, kernels_float)
VELMORA_DEFINE(zcomplex, kernels_complex)
#undef VELMORA_DEFINE

}  // namespace vlm
