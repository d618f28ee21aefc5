// SPDX-License-Identifier: BSD-3-Clause
/// Dumps of what the driver is given and returns, switched on by environment variables.
///
/// A failing problem can so be captured without a change to the calling program:
///   VELMORA_WRITE_MAT     matrix, and right-hand side, in the plain array format (.iajaa)
///   VELMORA_WRITE_MTX     matrix as coordinate lines (.mtx)
///   VELMORA_WRITE_SOL     solution after the phases 13, 23 and 33 (.iajaa)
///   VELMORA_WRITE_PREFIX  takes the place of the file name prefix of all three
/// A file is named PREFIX_NNN-phase-PP.EXT.  NNN counts the files of its kind from 0 for the
/// life of the process.  A file that cannot be opened costs one line on standard error.
#pragma once

#include <atomic>

#include "base/input_matrix.hpp"

namespace vlm {

/// Numbers of the next files, by kind; calls in different threads share them.
struct DumpCounters {
  std::atomic<int> arrays{0}, coordinates{0}, solutions{0};
};

/// Writes the dumps of a call's input; nothing for phases below 10 or a null structure.
/// @param phase   phase code: values are written when its last digit is above 1, the first
///                right-hand side when it is 3
/// @param b       right-hand sides, may be null, then none is written
void dump_input(DumpCounters& counters, int phase, int mtype, const InputMatrix& matrix,
                const double* b);

/// Writes the solution dump of the phases 13, 23, 33: x for complex types; b for real types,
/// which holds the solution only when the caller has it returned there.
void dump_solution(DumpCounters& counters, int phase, int mtype, int n, const double* b,
                   const double* x);

}  // namespace vlm
