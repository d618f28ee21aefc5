// SPDX-License-Identifier: BSD-3-Clause
/// Common ground of the containers: assertions, checked memory, message texts, value kinds.
///
/// Assertions stay in every build: the containers' callers are other programs, and a wrong
/// dimension must stop before it is a wrong address.  Memory comes from malloc, since records
/// and arrays go back through free() in the hands of C callers; running out of it ends the
/// process with exit code 7, so no caller tests for null; on behalf of velmora() it is an
/// exception, see faults.hpp.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "NORV/corelib/faults.hpp"
#include "base/memory.hpp"
#include "base/values.hpp"
#include "norv.h"
#include "norv/direct.h"

/// Level of messages, 0 silent, 1 errors to statistics, 2 all.
extern "C" int _norv_debug_level;

/// Aborts with the text of the test on standard error when the test is false.
#define NORV_ASSERT(test) NORV_ASSERT_TEXT(test, #test)
/// The same where the text is fixed and differs from how the test is written.
#define NORV_ASSERT_TEXT(test, text) \
  ((test) ? static_cast<void>(0) : ::vlm::assertion_failed(text, __FILE__, __LINE__, __func__))

/// Debug message of the source file NORV/corelib/<source>; both are string literals.
#define NORV_DEBUG(source, format, ...)                                                           \
  ::_norv_print_debug_msg("[VELMORA/ML]>> \tNORV/corelib/" source ": " format "\n" __VA_OPT__(, ) \
                              __VA_ARGS__)

namespace vlm {

/// Memory for count values of the given size, not cleared, cleared, or resized.  When memory runs
/// out the process ends, or the running call (faults.hpp); outside of such a call the number of
/// bytes must fit 32 bits.  Goes back by release_block().
void* allocate_bytes(std::uint64_t count, std::size_t size);
void* allocate_cleared_bytes(std::uint64_t count, std::size_t size);
void* reallocate_bytes(void* old, std::uint64_t count, std::size_t size);
/// Null where there is no memory; old is then as it was.
void* try_reallocate_bytes(void* old, std::uint64_t count, std::size_t size);

template <class T>
T* allocate(std::uint64_t count) {
  return static_cast<T*>(allocate_bytes(count, sizeof(T)));
}
template <class T>
T* allocate_cleared(std::uint64_t count) {
  return static_cast<T*>(allocate_cleared_bytes(count, sizeof(T)));
}
template <class T>
T* reallocate(T* old, std::uint64_t count) {
  return static_cast<T*>(reallocate_bytes(old, count, sizeof(T)));
}

/// Allocator that ends the process instead of throwing, and leaves new values undefined.
template <class T>
struct CheckedAllocator {
  using value_type = T;
  CheckedAllocator() = default;
  template <class U>
  CheckedAllocator(const CheckedAllocator<U>&) {}
  T* allocate(std::size_t count) { return vlm::allocate<T>(count); }
  void deallocate(T* p, std::size_t) { release_block(p); }
  template <class U>
  void construct(U* p) {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
  friend bool operator==(CheckedAllocator, CheckedAllocator) { return true; }
};

/// Array that lives as long as its scope.
template <class T>
using Buffer = std::vector<T, CheckedAllocator<T>>;

/// Counts in start[1..n] to row starts in start[0..n]; start[0] is 0.  The sum must fit 32 bits,
/// otherwise the process ends as for exhausted memory.
/// @return  number of entries
unsigned counts_to_starts(int* start, unsigned n);

/// Empties the log without a word.  @return false when it cannot be made
bool empty_log();

/// Text put together piece by piece, so that a table or a row is one message of the log.
class MessageText {
 public:
  MessageText() : text_(allocate_cleared<char>(1)) {}
  ~MessageText() { release_block(text_); }
  MessageText(const MessageText&) = delete;
  MessageText& operator=(const MessageText&) = delete;

  void add(const char* format, ...) __attribute__((format(printf, 2, 3)));
  const char* c_str() const { return text_; }

 private:
  char* text_;
  std::size_t length_ = 0;
  std::size_t capacity_ = 1;
};

/// Calls f with a value of the type that the flag stands for, so that one generic lambda holds
/// the loop for real and complex values: by_kind(x->is_complex, [&](auto kind) {...}).
template <class F>
decltype(auto) by_kind(int is_complex, F&& f) {
  return is_complex ? f(zcomplex{}) : f(double{});
}

/// An object for one kind of scalar or for the other, or none.
template <template <class> class Object>
class OfKind {
 public:
  template <class T>
  std::unique_ptr<Object<T>>& of() {
    if constexpr (std::is_same_v<T, double>)
      return real_;
    else
      return complex_;
  }
  void forget() {
    real_.reset();
    complex_.reset();
  }

 private:
  std::unique_ptr<Object<double>> real_;
  std::unique_ptr<Object<zcomplex>> complex_;
};

/// The larger number, or the one that is none.
inline double larger(double a, double b) { return a >= b || std::isnan(a) ? a : b; }

/// Doubles that a value takes in memory.
inline std::uint64_t doubles_per_value(int is_complex) { return is_complex ? 2 : 1; }

/// Of the bridge: analyses and factorizes a matrix in an order that can be kept.
/// @param order  perm as iparm(5) has it [n], or empty: the solver's own, which comes back
direct_factorization* factorize_in_order(smat* A, Vector<int>& order);

}  // namespace vlm
