// SPDX-License-Identifier: BSD-3-Clause
/// How a fault ends: the process, or the call that met it.
///
/// The exported routines of the iterative library end the process when memory runs out, an option
/// is bad, the inner direct solver fails or an assertion doesn't hold.  The same routines also run
/// on behalf of velmora(), which never ends its caller's process: then a CallScope stands on the
/// calling thread, and a fault is thrown as a Fault, which the scope's owner turns into an error.
///
/// Records are plain C structures whose owner a thrown fault passes by.  So each block taken
/// inside a scope is entered in the ledger of the handle, and what a failed call took goes back
/// from there.  This holds as long as the library's blocks come from allocate() and go back by
/// release_block(), and nothing allocates in a parallel region.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlm {

enum class FaultKind {
  memory,     ///< exit code 7
  options,    ///< bad options, exit code 1 or as told at the place
  direct,     ///< the inner direct solver failed, exit code 9
  assertion,  ///< a test that must hold, abort
};

/// What a CallScope's owner catches.
struct Fault {
  FaultKind kind;
  int code = 0;           ///< error of the inner direct solver
  std::size_t bytes = 0;  ///< memory: what was asked for
  char text[400];         ///< the message
};

/// The blocks that hang on a handle, each with the call that took it.
class Ledger {
 public:
  Ledger() = default;
  ~Ledger() { release_all(); }
  Ledger(const Ledger&) = delete;
  Ledger& operator=(const Ledger&) = delete;

  /// Begins a call: what is entered from now on counts as taken by it.
  void begin_call() { ++call_; }
  /// @return false when there is no memory for the entry
  bool enter(void* block);
  void remove(const void* block);
  /// What releases an object that is more than its block, such as a handle of the direct solver:
  /// called with the block, which it must not free.  One a block.
  using Finalizer = void (*)(void* block);
  bool enter_finalizer(void* block, Finalizer finalizer);
  void remove_finalizer(const void* block);
  /// Says how much memory such an object holds.
  void weigh_finalizer(const void* block, std::int64_t bytes);

  /// Frees what the running call took, after a fault in it.
  void release_call();
  void release_all();
  std::size_t blocks() const { return count_; }
  /// Memory that hangs on the handle, and the most since begin_peak().
  std::int64_t bytes() const { return bytes_; }
  std::int64_t peak_bytes() const { return peak_; }
  void begin_peak() { peak_ = bytes_; }

 private:
  struct Entry {
    void* block;
    std::uint32_t call;
  };
  struct Final {
    void* block;
    Finalizer finalizer;
    std::uint32_t call;
    std::int64_t bytes;
    Final* next;
  };
  std::size_t place(const void* block) const;
  bool grow();
  void finalize(std::uint32_t since);
  void count_bytes(std::int64_t bytes);
  void release_since(std::uint32_t call);

  Entry* table_ = nullptr;  ///< open addressing, capacity_ entries, a power of 2
  std::size_t capacity_ = 0;
  std::size_t count_ = 0;
  std::uint32_t call_ = 0;
  std::int64_t bytes_ = 0, peak_ = 0;
  Final* finals_ = nullptr;
};

/// Runs the routines of the iterative library on behalf of a caller who wants errors, on this
/// thread, until it goes out of scope.
class CallScope {
 public:
  /// @param ledger   of the handle
  /// @param level    of the messages, instead of the process's
  /// @param threads  for the inner direct solver
  CallScope(Ledger& ledger, int level, int threads);
  ~CallScope();
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;

  Ledger& ledger;
  int level;
  const int threads;

 private:
  CallScope* const outer_;
};

/// The scope of the calling thread; null: exported routines were called themselves.
CallScope* running_scope();

/// Frees what allocate() gave; null is fine.
void release_block(void* block);

/// Has an object finalized when the call that takes it fails.  Without effect outside of a scope.
void enter_finalizer(void* block, Ledger::Finalizer finalizer);
void remove_finalizer(const void* block);
void weigh_finalizer(const void* block, std::int64_t bytes);

/// The four ends.  Messages of options and of the direct solver also go to the log as errors.
/// @param message  with which memory ended outside of a scope
[[noreturn]] void out_of_memory(const char* message, std::size_t bytes = 0);
[[noreturn]] void bad_options(int exit_code, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
[[noreturn]] void direct_solver_failed(int error, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
[[noreturn]] void assertion_failed(const char* test, const char* file, int line,
                                   const char* function);

}  // namespace vlm
