// SPDX-License-Identifier: BSD-3-Clause
/// Arrays carved out of one block.  The same code, without a block, measures the bytes it takes.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>

#include "base/view.hpp"

namespace vlm {

class Carver {
 public:
  /// @param block  aligned as by malloc; null: nothing is written, used() tells the bytes
  /// @param used   bytes at its head that are in use
  explicit Carver(void* block, std::size_t used = 0)
      : base_(static_cast<char*>(block)), used_(used) {}

  /// An array whose values are not set.
  template <class T>
  View<T> take(std::size_t length) {
    used_ = (used_ + alignof(T) - 1) / alignof(T) * alignof(T);
    T* p = base_ ? reinterpret_cast<T*>(base_ + used_) : nullptr;
    used_ += length * sizeof(T);
    return {p, base_ ? length : 0};
  }

  /// An array of objects as T() makes them; they need no destructor.
  template <class T>
  View<T> make(std::size_t length) {
    static_assert(std::is_trivially_destructible_v<T>);
    const View<T> out = take<T>(length);
    std::uninitialized_value_construct(out.begin(), out.end());
    return out;
  }

  /// What follows shares no cache line with what another thread has.
  void leave_line() { used_ += 64; }

  std::size_t used() const { return used_; }

 private:
  char* base_;
  std::size_t used_;
};

}  // namespace vlm
