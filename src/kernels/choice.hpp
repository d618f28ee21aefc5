// SPDX-License-Identifier: BSD-3-Clause
/// Choice of the dense kernels by the processor.
#pragma once

#include <vector>

#include "kernels/kernels.hpp"

namespace vlm {

/// The tables that this processor can run, the widest last; listed once.
template <class T>
const std::vector<const Kernels<T>*>& runnable_kernels();
template <>
const std::vector<const Kernels<double>*>& runnable_kernels();
template <>
const std::vector<const Kernels<float>*>& runnable_kernels();
template <>
const std::vector<const Kernels<zcomplex>*>& runnable_kernels();

/// The table for this processor.
template <class T>
const Kernels<T>& kernels() {
  return *runnable_kernels<T>().back();
}

}  // namespace vlm
