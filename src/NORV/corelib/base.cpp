// SPDX-License-Identifier: BSD-3-Clause
/// Assertions, checked memory and timers of the containers.
#include "NORV/corelib/base.hpp"

#include <sys/time.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <limits>

namespace vlm {
namespace {

void print_trace() { std::puts("Backtrace not available."); }

/// Bytes of a request, at least 1 so that null always means failure; 0 when the number does
/// not fit 32 bits.
std::size_t request_bytes(std::uint64_t count, std::size_t size) {
  constexpr std::uint64_t limit = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes) || bytes > limit) return 0;
  return std::max<std::uint64_t>(bytes, 1);
}

}  // namespace

void out_of_memory(const char* message) {
  std::puts(message);
  print_trace();
  std::exit(exit_out_of_memory);
}

void assertion_failed(const char* test, const char* file, int line, const char* function) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed\n", file, line, function, test);
  std::abort();
}

void* allocate_bytes(std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  void* memory = bytes ? std::malloc(bytes) : nullptr;
  if (!memory) out_of_memory("ERROR during memory allocation!");
  return memory;
}

void* allocate_cleared_bytes(std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  void* memory = bytes ? std::calloc(bytes, 1) : nullptr;
  if (!memory) out_of_memory("ERROR during cleared memory allocation!");
  return memory;
}

void* reallocate_bytes(void* old, std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  void* memory = bytes ? std::realloc(old, bytes) : nullptr;
  if (!memory) out_of_memory("ERROR during memory RE-allocation!");
  return memory;
}

unsigned counts_to_starts(int* start, unsigned n) {
  start[0] = 0;
  std::int64_t sum = 0;
  for (unsigned i = 1; i <= n; ++i) {
    sum += start[i];
    if (sum > std::numeric_limits<int>::max())
      out_of_memory("ERROR: more entries than 32-bit row starts can count!");
    start[i] = static_cast<int>(sum);
  }
  return static_cast<unsigned>(sum);
}

void MessageText::add(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list again;
  va_copy(again, arguments);
  const int more = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  if (more > 0) {
    const std::size_t needed = length_ + static_cast<std::size_t>(more) + 1;
    if (needed > capacity_) {
      capacity_ = std::max(needed, 2 * capacity_);
      text_ = reallocate(text_, capacity_);
    }
    std::vsnprintf(text_ + length_, capacity_ - length_, format, again);
    length_ = needed - 1;
  }
  va_end(again);
}

}  // namespace vlm

void* _norv_malloc(unsigned int count, unsigned int size) {
  return vlm::allocate_bytes(count, size);
}

void* _norv_calloc(unsigned int count, unsigned int size) {
  return vlm::allocate_cleared_bytes(count, size);
}

void* _norv_realloc(void* ptr, unsigned int count, unsigned int size) {
  return vlm::reallocate_bytes(ptr, count, size);
}

void start_timing(timeval* tv) {
  NORV_ASSERT(tv != 0);
  gettimeofday(tv, nullptr);
}

double get_time_span(const timeval* tv) {
  NORV_ASSERT(tv != 0);
  const auto microseconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_usec);
  };
  timeval now;
  gettimeofday(&now, nullptr);
  return (microseconds(now) - microseconds(*tv)) * 1e-6;
}
