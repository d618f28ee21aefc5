/// Choice of the dense kernels by the processor.
#include "kernels.hpp"

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

template <class T>
const Kernels<T>& pick(const Kernels<T>& base, const Kernels<T>& four, const Kernels<T>& eight) {
#ifdef VELMORA_WIDE_KERNELS
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw"))
    return eight;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return four;
#else
  static_cast<void>(four);
  static_cast<void>(eight);
#endif
  return base;
}

}  // namespace

#ifdef VELMORA_WIDE_KERNELS
#define VELMORA_PICK(name) pick(baseline::name, avx2::name, avx512::name)
#else
#define VELMORA_PICK(name) pick(baseline::name, baseline::name, baseline::name)
#endif

template <>
const Kernels<double>& kernels<double>() {
  static const Kernels<double>& chosen = VELMORA_PICK(kernels_double);
  return chosen;
}

template <>
const Kernels<zcomplex>& kernels<zcomplex>() {
  static const Kernels<zcomplex>& chosen = VELMORA_PICK(kernels_complex);
  return chosen;
}

template <>
const Kernels<float>& kernels<float>() {
  static const Kernels<float>& chosen = VELMORA_PICK(kernels_float);
  return chosen;
}

}  // namespace vlm
