// SPDX-License-Identifier: BSD-3-Clause
/// What the slots of the handle `pt` hold: allocation, memory figures, release.
///
/// The caller owns the 64 words, the library what they point to.  Everything that outlives a
/// call is allocated here, by the calling thread, with a location code from which the memory
/// message names the array.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/memory.hpp"
#include "driver/control.hpp"
#include "matching/mpssym.hpp"

namespace vlm {

/// Slots in use, numbered from 1.  The listener's words are the caller's, and survive an analysis.
enum Slot : int {
  slot_calls = 1,         ///< count of calls; 0: the handle is empty
  slot_basic = 2,         ///< Control
  slot_table = 4,         ///< FactorRecord [nrecords]
  slot_structure = 8,     ///< Structure
  slot_work = 10,         ///< work of factorization and solve
  slot_cgs = 11,          ///< vectors of refinement, see release_large_cgs(); of stabilised solves
  slot_match_perm = 13,   ///< permutation of the matching [n]
  slot_match_scale = 14,  ///< scalings of the matching [2n]
  slot_padded = 16,       ///< PaddedMatrix; its content has a destructor, as that of the next
  slot_iterative = 17,    ///< preconditioner and blocks of the iterative solver, see iterative.hpp
  slot_last = 20,
  slot_listener = 61,  ///< function and data of velmora_set_progress(), and a check of both
  slot_listener_data = 62,
  slot_listener_check = 63,
};

/// Where an allocation failed; selects the name in the memory message.
enum Location : int {
  at_basic = -100,
  at_table = -200,
  at_matching = -400,
  at_adjacency = -600,
  at_lists = -700,
  at_structure = -800,
  at_factor = -1100,
  at_work = -1200,
  at_cgs = -1300,
  at_inverse = -1400,
  at_file = -1500,  ///< on disk
  at_iterative = -1600,
};

/// A failed allocation; the driver turns it into the memory error.
struct OutOfMemory : AllocationFailure {
  OutOfMemory(Location where, std::size_t size) : AllocationFailure(size), location(where) {}
  Location location;
};

/// Runs a stage; a failed allocation of its scratch becomes OutOfMemory at the stage's array.
template <class Stage>
auto with_location(Location location, Stage stage) {
  try {
    return stage();
  } catch (const OutOfMemory&) {
    throw;
  } catch (const AllocationFailure& failure) {
    throw OutOfMemory(location, failure.bytes);
  }
}

inline void*& slot(void** pt, Slot number) { return pt[number - 1]; }
inline bool handle_is_empty(void** pt) { return slot(pt, slot_calls) == nullptr; }
inline Control& control_of(void** pt) { return *static_cast<Control*>(slot(pt, slot_basic)); }
inline FactorRecord* factor_table(void** pt) {
  return static_cast<FactorRecord*>(slot(pt, slot_table));
}
/// Record of a matrix number; null when the table has none of that number.
FactorRecord* factor_record(void** pt, int mnum);

/// malloc with a location, counted by the meter of the thread; throws OutOfMemory.
void* allocate(std::size_t bytes, Location location);
/// Frees what malloc gave a slot and zeroes it.
void release(void** pt, Slot number);

/// Keeps the pattern of a padded matrix in its slot.
void keep_padded(void** pt, PaddedMatrix&& padded);
/// That pattern; null when there is none.
const PaddedMatrix* padded_of(void** pt);

/// What the numeric phases are given of a matching: scalings where the values are scaled, and the
/// row permutation of full storage.
Matching matching_of(void** pt);

/// The caller's listener.
struct ListenerWords {
  void *function = nullptr, *data = nullptr;
};
void set_listener(void** pt, const ListenerWords& words);
/// No function where none was set, or the words are of something else.
ListenerWords listener_of(void** pt);

/// Counts one more call in pt(1).
void count_call(void** pt);
/// Gives an empty handle its control record and a factor table of maxfct empty records.
/// After a failure the handle is still empty.
void create_handle(void** pt, int maxfct);
/// Replaces an empty factor table by one of another length.
void resize_factor_table(void** pt, int maxfct);

/// Frees the factor of another rung, beside the caller's.
void drop_second(FactorRecord& record);
/// Frees one factor and forgets its results.
void clean_fact_fc(FactorRecord& record);
/// Frees the factors and all that an analysis left; returns the number of factors.
int release_analysis(void** pt);
/// After release_analysis(): frees the rest and zeroes the handle.
void release_handle(void** pt);

/// Room for the factor of the record, freeing one of another size; throws OutOfMemory.
void provide_factor(FactorRecord& record, std::size_t bytes);
/// At least that much WORK_R0.
void provide_work(void** pt, std::size_t bytes);
/// At least that much CGS_ARR for one solve.
void provide_cgs(void** pt, std::size_t bytes);
/// After the solve: frees CGS_ARR, unless a stabilised sequence goes on, or it takes hardly more than
/// the `bytes` of the caller's own vectors: a loop of solves would pay for its allocation each time.
void release_large_cgs(void** pt, std::size_t bytes);

/// KB that one allocation counts for.
inline std::int64_t kilobytes(std::size_t bytes) {
  return static_cast<std::int64_t>(bytes / 1024 + 1);
}
/// KB of all factors, of WORK_R0 and of the refinement vectors.
std::int64_t numeric_kilobytes(void** pt);
/// Writes the three figures to iparm(15) to iparm(17); one beyond 2 TB as 2^31 - 1.
void store_memory_figures(const MemoryFigures& memory, View<int> iparm);

}  // namespace vlm
