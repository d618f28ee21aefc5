// SPDX-License-Identifier: BSD-3-Clause
/// Faults, the ledger of a handle's blocks, see faults.hpp.
#include "NORV/corelib/faults.hpp"

#include <malloc.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "norv/base.h"

namespace vlm {
namespace {

/// Code with which the process ends when memory runs out, and when the inner solver fails.
constexpr int exit_out_of_memory = 7, exit_direct = 9;

constinit thread_local CallScope* current_scope = nullptr;

/// Bytes of a block of the heap.
std::int64_t held_by(void* block) { return static_cast<std::int64_t>(malloc_usable_size(block)); }

/// A fault with the formatted text, cut where it is too long.
__attribute__((format(printf, 3, 0))) Fault make_fault(FaultKind kind, int code, const char* format,
                                                       std::va_list arguments) {
  Fault fault{.kind = kind, .code = code, .bytes = 0, .text = {}};
  std::vsnprintf(fault.text, sizeof fault.text, format, arguments);
  return fault;
}

/// Throws in a scope; elsewhere logs the text and ends the process.
[[noreturn]] void end(const Fault& fault, int exit_code) {
  _norv_print_error_msg("%s", fault.text);
  if (current_scope != nullptr) throw fault;
  std::exit(exit_code);
}

}  // namespace

CallScope::CallScope(Ledger& blocks, int debug_level, int nthreads)
    : ledger(blocks), level(debug_level), threads(nthreads), outer_(current_scope) {
  ledger.begin_call();
  current_scope = this;
}

CallScope::~CallScope() { current_scope = outer_; }

CallScope* running_scope() { return current_scope; }

void release_block(void* block) {
  if (block != nullptr && current_scope != nullptr) current_scope->ledger.remove(block);
  std::free(block);
}

void enter_finalizer(void* block, Ledger::Finalizer finalizer) {
  if (current_scope == nullptr) return;
  if (!current_scope->ledger.enter_finalizer(block, finalizer)) {
    finalizer(block);
    out_of_memory("ERROR during memory allocation!");
  }
}

void remove_finalizer(const void* block) {
  if (current_scope != nullptr) current_scope->ledger.remove_finalizer(block);
}

void weigh_finalizer(const void* block, std::int64_t bytes) {
  if (current_scope != nullptr) current_scope->ledger.weigh_finalizer(block, bytes);
}

void out_of_memory(const char* message, std::size_t bytes) {
  if (current_scope != nullptr) {
    Fault fault{.kind = FaultKind::memory, .code = 0, .bytes = bytes, .text = {}};
    std::snprintf(fault.text, sizeof fault.text, "%s", message);
    throw fault;
  }
  std::puts(message);
  std::puts("Backtrace not available.");
  std::exit(exit_out_of_memory);
}

void bad_options(int exit_code, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const Fault fault = make_fault(FaultKind::options, 0, format, arguments);
  va_end(arguments);
  end(fault, exit_code);
}

void direct_solver_failed(int error, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const Fault fault = make_fault(FaultKind::direct, error, format, arguments);
  va_end(arguments);
  end(fault, exit_direct);
}

void assertion_failed(const char* test, const char* file, int line, const char* function) {
  if (current_scope != nullptr) {
    Fault fault{.kind = FaultKind::assertion, .code = 0, .bytes = 0, .text = {}};
    std::snprintf(fault.text, sizeof fault.text, "assertion \"%s\" failed in %s", test, function);
    throw fault;
  }
  std::fflush(stdout);
  std::fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed\n", file, line, function, test);
  std::abort();
}

// The ledger: a hash table with linear probing; removal moves later entries of the run up.

std::size_t Ledger::place(const void* block) const {
  std::uint64_t key = reinterpret_cast<std::uintptr_t>(block) >> 4;
  key *= 0x9E3779B97F4A7C15u;  // spreads neighbouring addresses (Knuth, multiplicative hashing)
  return static_cast<std::size_t>(key >> 20) & (capacity_ - 1);
}

bool Ledger::grow() {
  const std::size_t old_capacity = capacity_;
  const std::size_t capacity = std::max<std::size_t>(64, 2 * capacity_);
  Entry* const fresh = static_cast<Entry*>(std::calloc(capacity, sizeof(Entry)));
  if (fresh == nullptr) return false;
  Entry* const old = std::exchange(table_, fresh);
  capacity_ = capacity;
  for (std::size_t i = 0; i < old_capacity; ++i) {
    if (old[i].block == nullptr) continue;
    std::size_t at = place(old[i].block);
    while (table_[at].block != nullptr) at = (at + 1) & (capacity_ - 1);
    table_[at] = old[i];
  }
  std::free(old);
  return true;
}

bool Ledger::enter(void* block) {
  if (2 * (count_ + 1) > capacity_ && !grow()) return false;
  std::size_t at = place(block);
  while (table_[at].block != nullptr) at = (at + 1) & (capacity_ - 1);
  table_[at] = {block, call_};
  ++count_;
  count_bytes(held_by(block));
  return true;
}

void Ledger::remove(const void* block) {
  if (count_ == 0) return;
  const std::size_t mask = capacity_ - 1;
  std::size_t hole = place(block);
  while (table_[hole].block != block) {
    if (table_[hole].block == nullptr) return;  // taken outside of a scope
    hole = (hole + 1) & mask;
  }
  count_bytes(-held_by(table_[hole].block));
  for (std::size_t next = (hole + 1) & mask; table_[next].block != nullptr;
       next = (next + 1) & mask) {
    const std::size_t home = place(table_[next].block);
    if (((next - home) & mask) < ((next - hole) & mask)) continue;  // stays behind its home
    table_[hole] = table_[next];
    hole = next;
  }
  table_[hole] = {};
  --count_;
}

bool Ledger::enter_finalizer(void* block, Finalizer finalizer) {
  auto* const entry = static_cast<Final*>(std::malloc(sizeof(Final)));
  if (entry == nullptr) return false;
  *entry = {block, finalizer, call_, 0, finals_};
  finals_ = entry;
  return true;
}

void Ledger::remove_finalizer(const void* block) {
  for (Final** link = &finals_; *link != nullptr; link = &(*link)->next) {
    if ((*link)->block != block) continue;
    Final* const found = *link;
    *link = found->next;
    count_bytes(-found->bytes);
    std::free(found);
    return;
  }
}

void Ledger::weigh_finalizer(const void* block, std::int64_t bytes) {
  for (Final* each = finals_; each != nullptr; each = each->next) {
    if (each->block != block) continue;
    count_bytes(bytes - each->bytes);
    each->bytes = bytes;
  }
}

void Ledger::count_bytes(std::int64_t bytes) {
  bytes_ += bytes;
  peak_ = std::max(peak_, bytes_);
}

/// Runs the finalizers of that call and later ones, the last first: objects come before what
/// they were made from.  Blocks that they give back leave the ledger, whether or not the caller is
/// still in the scope of a call.
void Ledger::finalize(std::uint32_t since) {
  const CallScope scope(*this, 0, 1);
  while (finals_ != nullptr && finals_->call >= since) {
    Final* const last = finals_;
    finals_ = last->next;
    count_bytes(-last->bytes);
    last->finalizer(last->block);
    std::free(last);
  }
}

void Ledger::release_since(std::uint32_t call) {
  finalize(call);
  for (std::size_t i = 0; i < capacity_; ++i) {
    while (table_[i].block != nullptr && table_[i].call >= call) {
      void* const block = table_[i].block;
      remove(block);  // moves others up, into this place or behind it
      std::free(block);
    }
  }
  if (count_ > 0) return;
  std::free(std::exchange(table_, nullptr));
  capacity_ = 0;
}

void Ledger::release_call() { release_since(call_); }
void Ledger::release_all() { release_since(0); }

}  // namespace vlm
