/// Short vectors of the instruction set that this translation unit is compiled for.
///
/// Only compiler vector types and plain loops: a unit compiled for a wide instruction set
/// must not emit copies of library templates that the linker might prefer elsewhere.
#pragma once

namespace vlm::VELMORA_ISA {

#if defined(__AVX512F__)
inline constexpr int vector_bytes = 64, tile_vectors = 3, tile_columns = 8;
#elif defined(__AVX2__)
inline constexpr int vector_bytes = 32, tile_vectors = 3, tile_columns = 4;
#else
inline constexpr int vector_bytes = 16, tile_vectors = 2, tile_columns = 4;
#endif

template <class T>
struct Simd {
  static constexpr int width = vector_bytes / static_cast<int>(sizeof(T));
  typedef T Vector __attribute__((vector_size(vector_bytes)));

  static inline Vector load(const T* p) {
    Vector v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
  }
  static inline void store(T* p, Vector v) { __builtin_memcpy(p, &v, sizeof v); }
  static inline Vector fill(T x) { return Vector{} + x; }
};

}  // namespace vlm::VELMORA_ISA
