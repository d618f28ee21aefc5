// SPDX-License-Identifier: BSD-3-Clause
/// Passes over the caller's matrix when its values are loaded.  Linear in the entries, and bound
/// by memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/input_matrix.hpp"

namespace vlm {

/// 64 bits that tell one pattern (n, ia, ja) from another.
std::uint64_t pattern_checksum(const InputMatrix& matrix);

/// 64 bits that tell the values of one matrix from those of another.
/// @param nvals  doubles of a value
std::uint64_t values_checksum(const InputMatrix& matrix, int nvals);

/// Position of the first value that is NaN or infinite, from 1; 0 when there is none.
/// @param nvals  doubles of a value
std::ptrdiff_t first_not_finite(const InputMatrix& matrix, int nvals);

}  // namespace vlm
