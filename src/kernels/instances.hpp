// SPDX-License-Identifier: BSD-3-Clause
/// The tables of kernels, one a scalar kind in the namespace of each instruction set.
#pragma once

#include "kernels/kernels.hpp"

/// Declares the tables of an instruction set.
#define VELMORA_DECLARE_KERNELS(isa)              \
  namespace vlm::isa {                            \
  extern const Kernels<double> kernels_double;    \
  extern const Kernels<float> kernels_float;      \
  extern const Kernels<zcomplex> kernels_complex; \
  }
