// SPDX-License-Identifier: BSD-3-Clause
/// Arrays that grow with the matrix: what a failed one asked for, and how much they hold at most.
///
/// A Vector is a std::vector whose failed allocation tells its size, and whose memory is counted
/// by the meter of the calling thread, where it has one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace vlm {

/// A failed allocation.
struct AllocationFailure : std::bad_alloc {
  explicit AllocationFailure(std::size_t size) : bytes(size) {}
  std::size_t bytes;  ///< that were asked for
};

/// Bytes in use, and the most that were at a time.  What was taken before the meter counted may be
/// given back while it does.  Threads of a team may share one.
class MemoryMeter {
 public:
  void add(std::int64_t bytes) {
    const std::int64_t now = now_.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    std::int64_t peak = peak_.load(std::memory_order_relaxed);
    while (now > peak && !peak_.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
  }
  std::int64_t now() const { return now_.load(std::memory_order_relaxed); }
  std::int64_t peak() const { return peak_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::int64_t> now_ = 0, peak_ = 0;
};

/// The meter of the calling thread; null: nothing is counted.
inline constinit thread_local MemoryMeter* thread_meter = nullptr;

/// Counts bytes that are taken, or given back where negative.
inline void count_bytes(std::int64_t bytes) {
  if (thread_meter != nullptr) thread_meter->add(bytes);
}

/// Makes a meter that of the calling thread for the time of a scope.
class MeterScope {
 public:
  explicit MeterScope(MemoryMeter& meter) : MeterScope(&meter) {}
  explicit MeterScope(MemoryMeter* meter) : outer_(thread_meter) { thread_meter = meter; }
  ~MeterScope() { thread_meter = outer_; }
  MeterScope(const MeterScope&) = delete;
  MeterScope& operator=(const MeterScope&) = delete;

 private:
  MemoryMeter* outer_;
};

/// Allocator of a Vector.
template <class T>
struct Allocator {
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
  using value_type = T;

  Allocator() = default;
  template <class U>
  Allocator(const Allocator<U>&) {}

  T* allocate(std::size_t length) {
    const std::size_t bytes = length * sizeof(T);
    void* block = ::operator new(bytes, std::nothrow);
    if (block == nullptr) throw AllocationFailure(bytes);
    count_bytes(static_cast<std::int64_t>(bytes));
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t length) {
    count_bytes(-static_cast<std::int64_t>(length * sizeof(T)));
    ::operator delete(block);
  }
  bool operator==(const Allocator&) const = default;
};

/// Base of objects that are made one by one: a failed `new` tells their size.
struct TellsItsSize {
  static void* operator new(std::size_t bytes) {
    void* block = ::operator new(bytes, std::nothrow);
    if (block == nullptr) throw AllocationFailure(bytes);
    return block;
  }
  static void operator delete(void* block) { ::operator delete(block); }
};

/// Gives freed blocks of the heap back to the system.  Between two stages: else the scratch of
/// one stays in the process beside the arrays of the next, up to half as much again as both need.
void trim_heap();

template <class T>
using Vector = std::vector<T, Allocator<T>>;

}  // namespace vlm
