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

/// Bytes of a request, at least 1 so that null always means failure; 0 when there is no such
/// number, or when it does not fit the 32 bits to which callers of the exported routines are held.
std::size_t request_bytes(std::uint64_t count, std::size_t size) {
  constexpr std::uint64_t limit = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return 0;
  if (bytes > limit && running_scope() == nullptr) return 0;
  return std::max<std::uint64_t>(bytes, 1);
}

/// The block, entered in the ledger of the running call; ends the call or the process for null.
void* entered(void* block, std::size_t bytes, const char* message) {
  CallScope* const scope = running_scope();
  if (block != nullptr && scope != nullptr && !scope->ledger.enter(block)) {
    std::free(block);
    block = nullptr;
  }
  if (block == nullptr) out_of_memory(message, bytes);
  return block;
}

constexpr const char* failed = "ERROR during memory allocation!";
constexpr const char* failed_cleared = "ERROR during cleared memory allocation!";
constexpr const char* failed_again = "ERROR during memory RE-allocation!";

}  // namespace

void* allocate_bytes(std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  return entered(bytes ? std::malloc(bytes) : nullptr, bytes, failed);
}

void* allocate_cleared_bytes(std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  return entered(bytes ? std::calloc(bytes, 1) : nullptr, bytes, failed_cleared);
}

void* try_reallocate_bytes(void* old, std::uint64_t count, std::size_t size) {
  const std::size_t bytes = request_bytes(count, size);
  CallScope* const scope = running_scope();
  if (scope != nullptr && old != nullptr) scope->ledger.remove(old);
  void* const block = bytes ? std::realloc(old, bytes) : nullptr;
  if (scope == nullptr) return block;
  if (block == nullptr) {
    if (old != nullptr) scope->ledger.enter(old);  // its place is free still
    return nullptr;
  }
  return entered(block, bytes, failed_again);
}

void* reallocate_bytes(void* old, std::uint64_t count, std::size_t size) {
  void* const block = try_reallocate_bytes(old, count, size);
  if (block == nullptr) out_of_memory(failed_again, request_bytes(count, size));
  return block;
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
