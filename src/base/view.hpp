// SPDX-License-Identifier: BSD-3-Clause
/// 1-based views of plain arrays.
///
/// Structural arrays hold 1-based indices and are written about 1-based; a View lets the code
/// read as the formulas do: xlindx(s), lindx(k).  It owns nothing.  Builds with
/// VELMORA_RANGE_CHECKS test every access.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace vlm {

/// Ends the process with a line that tells the index; only reached in range-checked builds.
[[noreturn]] inline void range_fault(long long index, long long length) {
  std::fprintf(stderr, "velmora: index %lld outside 1..%lld\n", index, length);
  std::abort();
}

template <class T>
class View {
 public:
  View() = default;
  View(T* first, std::size_t length) : first_(first), length_(length) {}
  // A view of non-const elements is also a view of const ones.
  template <class U>
  View(const View<U>& other) : first_(other.data()), length_(other.size()) {}
  template <class U, class A>
  explicit View(std::vector<U, A>& v) : first_(v.data()), length_(v.size()) {}
  template <class U, class A>
  explicit View(const std::vector<U, A>& v) : first_(v.data()), length_(v.size()) {}

  T& operator()(std::ptrdiff_t i) const {
#ifdef VELMORA_RANGE_CHECKS
    if (i < 1 || static_cast<std::size_t>(i) > length_)
      range_fault(i, static_cast<long long>(length_));
#endif
    return first_[i - 1];
  }
  /// Address of element i; i may be one behind the last.
  T* at(std::ptrdiff_t i) const { return first_ + (i - 1); }
  T* data() const { return first_; }
  T* begin() const { return first_; }
  T* end() const { return first_ + length_; }
  std::size_t size() const { return length_; }
  bool empty() const { return length_ == 0; }

 private:
  T* first_ = nullptr;
  std::size_t length_ = 0;
};

}  // namespace vlm
