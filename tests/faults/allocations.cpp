// SPDX-License-Identifier: BSD-3-Clause
#include "allocations.hpp"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(std::size_t);
void* __real_calloc(std::size_t, std::size_t);
void* __real_realloc(void*, std::size_t);
void* __real_aligned_alloc(std::size_t, std::size_t);
int __real_posix_memalign(void**, std::size_t, std::size_t);
void __real_free(void*);
}

namespace {

std::atomic<int> seen{0}, chosen{0};
std::atomic<bool> counting{false}, happened{false};
std::atomic<std::size_t> failed_bytes{0};
std::atomic<long long> in_use{0};

bool fails(std::size_t bytes) {
  if (!counting.load() || ++seen != chosen.load()) return false;
  failed_bytes = bytes;
  happened = true;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) {
  if (block != nullptr) in_use += static_cast<long long>(malloc_usable_size(block));
  return block;
}

void forget(void* block) {
  if (block != nullptr) in_use -= static_cast<long long>(malloc_usable_size(block));
}

void* allocate(std::size_t bytes) {
  return fails(bytes) ? nullptr : counted(__real_malloc(std::max<std::size_t>(bytes, 1)));
}

void* allocate_aligned(std::size_t bytes, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  if (fails(bytes)) return nullptr;
  return counted(__real_aligned_alloc(step, (bytes + step - 1) / step * step));
}

void release(void* block) {
  forget(block);
  __real_free(block);
}

void* or_throw(void* block) {
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

extern "C" {
void* __wrap_malloc(std::size_t bytes) {
  return fails(bytes) ? nullptr : counted(__real_malloc(bytes));
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails(count * size) ? nullptr : counted(__real_calloc(count, size));
}
void* __wrap_realloc(void* block, std::size_t bytes) {
  if (fails(bytes)) return nullptr;
  const long long before = block != nullptr ? static_cast<long long>(malloc_usable_size(block)) : 0;
  void* moved = __real_realloc(block, bytes);
  if (moved != nullptr || bytes == 0) in_use -= before;
  return counted(moved);
}
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t bytes) {
  return fails(bytes) ? nullptr : counted(__real_aligned_alloc(alignment, bytes));
}
int __wrap_posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
  if (fails(bytes)) return ENOMEM;
  const int result = __real_posix_memalign(block, alignment, bytes);
  if (result == 0) counted(*block);
  return result;
}
void __wrap_free(void* block) { release(block); }
}

void* operator new(std::size_t bytes) { return or_throw(allocate(bytes)); }
void* operator new[](std::size_t bytes) { return or_throw(allocate(bytes)); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return allocate(bytes); }
void* operator new(std::size_t bytes, std::align_val_t step) {
  return or_throw(allocate_aligned(bytes, step));
}
void* operator new[](std::size_t bytes, std::align_val_t step) {
  return or_throw(allocate_aligned(bytes, step));
}
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::align_val_t) noexcept { release(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { release(block); }

namespace vlm::test::allocations {

void arm(int k) {
  seen = 0;
  chosen = k;
  happened = false;
  failed_bytes = 0;
  counting = true;
}

Fault disarm() {
  counting = false;
  return {happened.load(), failed_bytes.load()};
}

long long live() { return in_use.load(); }

}  // namespace vlm::test::allocations
