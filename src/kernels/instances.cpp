// SPDX-License-Identifier: BSD-3-Clause
/// The dense kernels for one instruction set; VELMORA_ISA names its namespace.
#include "kernels/instances.hpp"

#include "kernels/gemm.hpp"
#include "kernels/ldlt.hpp"
#include "kernels/lu.hpp"
#include "kernels/residual.hpp"
#include "kernels/sweep.hpp"
#include "kernels/triangle.hpp"
#include "kernels/vector.hpp"

VELMORA_DECLARE_KERNELS(VELMORA_ISA)

#define VELMORA_TEXT_(x) #x
#define VELMORA_TEXT(x) VELMORA_TEXT_(x)

namespace vlm::VELMORA_ISA {

template <class T>
constexpr Kernels<T> table() {
  return {VELMORA_TEXT(VELMORA_ISA),
          update<T>,
          solve_right<T>,
          cholesky<T>,
          ldlt<T>,
          ldlt_diagonal<T>,
          lu_complete<T>,
          largest<T>,
          subtract_product<T>,
          multiply_transposed<T>,
          solve_lower<T>,
          solve_lower_transposed<T>,
          lanes<T> / Kind<T>::parts,
          sweep_forward<T>,
          sweep_backward<T>,
          residual_rows<T>};
}

const Kernels<double> kernels_double = table<double>();
const Kernels<float> kernels_float = table<float>();
const Kernels<zcomplex> kernels_complex = table<zcomplex>();

}  // namespace vlm::VELMORA_ISA
