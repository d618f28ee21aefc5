// SPDX-License-Identifier: BSD-3-Clause
/// A sparse matrix times a group of vectors, with the sizes of what is summed up.
#pragma once

#include "kernels/kernels.hpp"
#include "kernels/pack.hpp"

namespace vlm::VELMORA_ISA {

/// The values of one unknown in a group of vectors: all real parts, then all imaginary ones.
template <class T>
struct GroupValues {
  using R = typename Kind<T>::Real;
  using S = Simd<R>;
  using Vector = typename S::Vector;
  static constexpr int parts = Kind<T>::parts, count = residual_group / S::width;
  static_assert(residual_group % S::width == 0);

  static inline Vector absolute(Vector v) { return v < Vector{} ? -v : v; }

  Vector part[parts][count];

  static inline GroupValues load(const R* from) {
    GroupValues out;
    for (int q = 0; q < parts; ++q)
      for (int v = 0; v < count; ++v)
        out.part[q][v] = S::load(from + q * residual_group + v * S::width);
    return out;
  }
  /// += factor * values, the imaginary part of the factor being given by itself.
  inline void add(R re, R im, const GroupValues& values) {
    for (int v = 0; v < count; ++v) {
      part[0][v] += values.part[0][v] * re;
      if constexpr (parts == 2) {
        part[0][v] -= values.part[1][v] * im;
        part[1][v] += values.part[1][v] * re;
        part[1][v] += values.part[0][v] * im;
      }
    }
  }
  inline void subtract_from(R* to) const {
    for (int q = 0; q < parts; ++q)
      for (int v = 0; v < count; ++v) {
        R* const at = to + q * residual_group + v * S::width;
        S::store(at, S::load(at) - part[q][v]);
      }
  }
  /// Sum of the parts' magnitudes.
  inline Vector size(int v) const {
    if constexpr (parts == 1)
      return absolute(part[0][v]);
    else
      return absolute(part[0][v]) + absolute(part[1][v]);
  }
};

template <class T, bool gathers, bool scatters>
inline void subtract_matrix_rows(const ResidualRows<T>& p) {
  using G = GroupValues<T>;
  using R = typename G::R;
  using S = typename G::S;
  constexpr int parts = G::parts, width = parts * residual_group;
  // The matrix lies in small pages, at whose ends the processor's own prefetching stops.
  constexpr int ahead = 64;
  const R* const a = reinterpret_cast<const R*>(p.a);
  for (long i = p.first; i < p.last; ++i) {
    const G own = G::load(p.x + i * width);
    G sum = {};
    typename G::Vector scale[G::count] = {};
    for (long at = p.ia[i] - 1; at < p.ia[i + 1] - 1; ++at) {
      __builtin_prefetch(a + (at + ahead) * parts);
      __builtin_prefetch(p.ja + at + ahead);
      const long j = p.ja[at] - 1;
      const R re = a[at * parts], im = parts == 2 ? a[at * parts + parts - 1] : R(0);
      const R size = (re < 0 ? -re : re) + (im < 0 ? -im : im);
      if constexpr (gathers) {
        const G x = G::load(p.x + j * width);
        sum.add(re, p.conjugate_here ? -im : im, x);
        for (int v = 0; v < G::count; ++v) scale[v] += x.size(v) * size;
      }
      if constexpr (scatters) {
        if (gathers && j == i) continue;
        G term = {};
        term.add(re, p.conjugate_there ? -im : im, own);
        term.subtract_from(p.residual + j * width);
        R* const to = p.scale + j * residual_group;
        for (int v = 0; v < G::count; ++v)
          S::store(to + v * S::width, S::load(to + v * S::width) + own.size(v) * size);
      }
    }
    if constexpr (gathers) {
      sum.subtract_from(p.residual + i * width);
      R* const to = p.scale + i * residual_group;
      for (int v = 0; v < G::count; ++v)
        S::store(to + v * S::width, S::load(to + v * S::width) + scale[v]);
    }
  }
}

template <class T>
void residual_rows(const ResidualRows<T>& p) {
  if (!p.scatters)
    subtract_matrix_rows<T, true, false>(p);
  else if (!p.gathers)
    subtract_matrix_rows<T, false, true>(p);
  else
    subtract_matrix_rows<T, true, true>(p);
}

}  // namespace vlm::VELMORA_ISA
