// SPDX-License-Identifier: BSD-3-Clause
/// Choice of the dense kernels by the processor.
#pragma once

#include <array>
#include <cstddef>

#include "kernels/kernels.hpp"

namespace vlm {

/// Tables of one scalar kind, one an instruction set at most; takes no memory.
template <class T>
class KernelList {
 public:
  void push_back(const Kernels<T>* table) { tables_[count_++] = table; }
  const Kernels<T>* const* begin() const { return tables_.data(); }
  const Kernels<T>* const* end() const { return tables_.data() + count_; }
  const Kernels<T>* back() const { return tables_[count_ - 1]; }

 private:
  std::array<const Kernels<T>*, 3> tables_{};
  std::size_t count_ = 0;
};

/// The tables that this processor can run, the widest last; listed once.
template <class T>
const KernelList<T>& runnable_kernels();
template <>
const KernelList<double>& runnable_kernels();
template <>
const KernelList<float>& runnable_kernels();
template <>
const KernelList<zcomplex>& runnable_kernels();

/// The table for this processor.
template <class T>
const Kernels<T>& kernels() {
  return *runnable_kernels<T>().back();
}

}  // namespace vlm
