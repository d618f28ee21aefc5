// SPDX-License-Identifier: BSD-3-Clause
/// An array that grows at its end to a length nobody knows beforehand, such as a factor's.
///
/// Large blocks are resized by moving pages, so that the old and the new one don't stand beside
/// each other as they do in a std::vector.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>
#include <utility>

#include "base/memory.hpp"

namespace vlm {

/// Values are undefined until they are written.  A failed allocation throws AllocationFailure and
/// changes nothing.
template <class T>
class Growing {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Growing() = default;
  ~Growing() { release(); }
  Growing(Growing&& other) noexcept { swap(other); }
  Growing& operator=(Growing&& other) noexcept {
    swap(other);
    return *this;
  }
  Growing(const Growing&) = delete;
  Growing& operator=(const Growing&) = delete;

  std::int64_t size() const { return size_; }
  std::int64_t capacity() const { return capacity_; }
  T* data() { return data_; }
  const T* data() const { return data_; }
  T& operator[](std::int64_t k) { return data_[k]; }
  const T& operator[](std::int64_t k) const { return data_[k]; }

  /// Adds that many values at the end and gives the first of them.
  T* extend(std::int64_t count) {
    if (size_ + count > capacity_) resize_block(std::max(size_ + count, capacity_ + capacity_ / 2));
    T* const first = data_ + size_;
    size_ += count;
    return first;
  }
  void reserve(std::int64_t capacity) {
    if (capacity > capacity_) resize_block(capacity);
  }
  /// Gives back what is not used.
  void shrink() {
    if (size_ == 0)
      release();
    else if (size_ < capacity_)
      resize_block(size_);
  }
  void release() {
    count_bytes(-bytes(capacity_));
    std::free(std::exchange(data_, nullptr));
    size_ = capacity_ = 0;
  }
  void swap(Growing& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

 private:
  static std::int64_t bytes(std::int64_t count) {
    return count * static_cast<std::int64_t>(sizeof(T));
  }
  void resize_block(std::int64_t capacity) {
    void* const block = std::realloc(data_, static_cast<std::size_t>(bytes(capacity)));
    if (block == nullptr) throw AllocationFailure(static_cast<std::size_t>(bytes(capacity)));
    count_bytes(bytes(capacity) - bytes(capacity_));
    data_ = static_cast<T*>(block);
    capacity_ = capacity;
  }

  T* data_ = nullptr;
  std::int64_t size_ = 0, capacity_ = 0;
};

}  // namespace vlm
