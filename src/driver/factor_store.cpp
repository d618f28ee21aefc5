// SPDX-License-Identifier: BSD-3-Clause
/// Handle and factor store, see factor_store.hpp.
#include "driver/factor_store.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

#include "base/large_block.hpp"
#include "driver/iterative.hpp"
#include "driver/second_factor.hpp"

namespace vlm {
namespace {

FactorRecord* allocate_table(int maxfct) {
  const std::size_t length = static_cast<std::size_t>(std::max(maxfct, 1));
  // Zero bytes are the empty record; calloc does not touch them.
  void* table = std::calloc(length, sizeof(FactorRecord));
  if (table == nullptr) throw OutOfMemory(at_table, length * sizeof(FactorRecord));
  return static_cast<FactorRecord*>(table);
}

}  // namespace

FactorRecord* factor_record(void** pt, int mnum) {
  if (mnum < 1 || mnum > control_of(pt).nrecords) return nullptr;
  return factor_table(pt) + (mnum - 1);
}

void* allocate(std::size_t bytes, Location location) {
  void* block = allocate_block(bytes);
  if (block == nullptr) throw OutOfMemory(location, bytes);
  count_bytes(static_cast<std::int64_t>(bytes));
  return block;
}

void release(void** pt, Slot number) {
  std::free(slot(pt, number));
  slot(pt, number) = nullptr;
}

void keep_padded(void** pt, PaddedMatrix&& padded) {
  slot(pt, slot_padded) =
      new (allocate(sizeof(PaddedMatrix), at_matching)) PaddedMatrix(std::move(padded));
}

const PaddedMatrix* padded_of(void** pt) {
  return static_cast<const PaddedMatrix*>(slot(pt, slot_padded));
}

Matching matching_of(void** pt) {
  const Options& options = control_of(pt).options;
  return {options.symmetric ? nullptr : static_cast<const int*>(slot(pt, slot_match_perm)),
          options.scaled ? static_cast<const double*>(slot(pt, slot_match_scale)) : nullptr};
}

void count_call(void** pt) {
  void*& word = slot(pt, slot_calls);
  word = std::bit_cast<void*>(std::bit_cast<std::uintptr_t>(word) + 1);
}

namespace {

std::uintptr_t check_of(const ListenerWords& words) {
  constexpr std::uintptr_t mark = 0x766c6d6c;
  return std::bit_cast<std::uintptr_t>(words.function) ^
         (std::bit_cast<std::uintptr_t>(words.data) * 3) ^ mark;
}

}  // namespace

void set_listener(void** pt, const ListenerWords& words) {
  const bool any = words.function != nullptr;
  slot(pt, slot_listener) = words.function;
  slot(pt, slot_listener_data) = any ? words.data : nullptr;
  slot(pt, slot_listener_check) = any ? std::bit_cast<void*>(check_of(words)) : nullptr;
}

ListenerWords listener_of(void** pt) {
  const ListenerWords words{slot(pt, slot_listener), slot(pt, slot_listener_data)};
  const auto check = std::bit_cast<std::uintptr_t>(slot(pt, slot_listener_check));
  return words.function != nullptr && check == check_of(words) ? words : ListenerWords{};
}

void create_handle(void** pt, int maxfct) {
  const ListenerWords words = listener_of(pt);
  std::fill_n(pt, 64, nullptr);
  set_listener(pt, words);
  slot(pt, slot_basic) = new (allocate(sizeof(Control), at_basic)) Control{};
  try {
    slot(pt, slot_table) = allocate_table(maxfct);
  } catch (const OutOfMemory&) {
    release(pt, slot_basic);
    throw;
  }
  control_of(pt).nrecords = std::max(maxfct, 0);
}

void resize_factor_table(void** pt, int maxfct) {
  if (std::max(maxfct, 0) == control_of(pt).nrecords) return;
  FactorRecord* table = allocate_table(maxfct);
  release(pt, slot_table);
  slot(pt, slot_table) = table;
  control_of(pt).nrecords = std::max(maxfct, 0);
}

void drop_second(FactorRecord& record) {
  delete record.second;
  record.second = nullptr;
}

void clean_fact_fc(FactorRecord& record) {
  drop_second(record);
  delete record.earlier;
  delete record.sizes;
  std::free(record.lu);
  record = FactorRecord{};
}

int release_analysis(void** pt) {
  int deleted = 0;
  for (int mnum = 1; mnum <= control_of(pt).nrecords; ++mnum) {
    FactorRecord& record = *factor_record(pt, mnum);
    if (record.lu != nullptr) ++deleted;
    clean_fact_fc(record);
  }
  if (auto* padded = static_cast<PaddedMatrix*>(slot(pt, slot_padded))) padded->~PaddedMatrix();
  destroy_iterative(slot(pt, slot_iterative));
  for (int number = slot_last; number > slot_table; --number) release(pt, Slot(number));
  control_of(pt).work_bytes = control_of(pt).cgs_held = 0;
  return deleted;
}

void release_handle(void** pt) {
  release(pt, slot_table);
  release(pt, slot_basic);
  slot(pt, slot_calls) = nullptr;
  set_listener(pt, {});
}

void provide_factor(FactorRecord& record, std::size_t bytes) {
  if (record.lu != nullptr && record.bytes == bytes) return;
  clean_fact_fc(record);
  record.lu = allocate(bytes, at_factor);
  record.bytes = bytes;
}

void provide_work(void** pt, std::size_t bytes) {
  Control& control = control_of(pt);
  if (slot(pt, slot_work) != nullptr && control.work_bytes >= bytes) return;
  release(pt, slot_work);
  control.work_bytes = 0;
  slot(pt, slot_work) = allocate(bytes, at_work);
  control.work_bytes = bytes;
}

void provide_cgs(void** pt, std::size_t bytes) {
  Control& control = control_of(pt);
  if (slot(pt, slot_cgs) != nullptr && control.cgs_held >= bytes) return;
  release(pt, slot_cgs);
  control.cgs_held = 0;
  slot(pt, slot_cgs) = allocate(bytes, at_cgs);
  control.cgs_held = bytes;
}

void release_large_cgs(void** pt, std::size_t bytes) {
  constexpr std::size_t small = std::size_t{1} << 20;
  const Control& control = control_of(pt);
  if (control.cgs_held <= bytes + small || control.options.stabilised.k != 0) return;
  release(pt, slot_cgs);
  control_of(pt).cgs_held = 0;
}

std::int64_t numeric_kilobytes(void** pt) {
  const Control& control = control_of(pt);
  std::int64_t sum = 0;
  for (int mnum = 1; mnum <= control.nrecords; ++mnum) {
    const FactorRecord& record = *factor_record(pt, mnum);
    if (record.lu != nullptr) sum += kilobytes(record.bytes);
    if (record.second != nullptr) sum += kilobytes(record.second->bytes());
    if (record.earlier != nullptr) sum += kilobytes(record.earlier->bytes());
    if (record.sizes != nullptr) sum += kilobytes(record.sizes->bytes());
  }
  for (const std::size_t bytes : {control.work_bytes, control.cgs_bytes})
    if (bytes > 0) sum += kilobytes(bytes);
  return sum;
}

void store_memory_figures(const MemoryFigures& memory, View<int> iparm) {
  const auto fit = [](std::int64_t figure) {
    return static_cast<int>(std::min<std::int64_t>(figure, std::numeric_limits<int>::max()));
  };
  iparm(15) = fit(memory.peak);
  iparm(16) = fit(memory.permanent);
  iparm(17) = fit(memory.numeric);
}

}  // namespace vlm
