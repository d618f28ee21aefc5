// SPDX-License-Identifier: BSD-3-Clause
/// Allocations of the code under test, one of which can be made to fail.
///
/// The test program replaces the operators new and delete, and its linker sends malloc and its
/// kin, as the library calls them, here (--wrap).  What the OpenMP runtime and the BLAS allocate
/// is theirs and never fails: neither can report it.
#pragma once

#include <cstddef>

namespace vlm::test::allocations {

/// Counts allocations from now on; the k-th of them fails, none for 0.
void arm(int k);
/// Ends it; what failed in the meantime.
struct Fault {
  bool happened = false;
  std::size_t bytes = 0;  ///< asked for
};
Fault disarm();

/// Bytes in use that came from here.
long long live();

}  // namespace vlm::test::allocations
