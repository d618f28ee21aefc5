// SPDX-License-Identifier: BSD-3-Clause
/// What the Krylov solvers share: stopping criteria, what a step and an end tell, scratch vectors.
#pragma once

#include <memory>

#include "NORV/corelib/vec_common.hpp"
#include "norv/solver.h"

namespace vlm {

struct ReleaseVec {
  void operator()(vec* x) const { vec_release(x); }
};
/// A vector of a solver's own.
using ScratchVec = std::unique_ptr<vec, ReleaseVec>;

/// A vector of the shape of x, contents undefined.
ScratchVec scratch_like(const vec* x);

/// What every solver demands of its system.
inline void check_system(const smat* A, const vec* x, const vec* b) {
  NORV_ASSERT(A != 0);
  NORV_ASSERT(x != 0);
  NORV_ASSERT(b != 0);
  NORV_ASSERT(A->m == x->n);
  NORV_ASSERT(A->m == b->n);
  NORV_ASSERT(A->is_complex == x->is_complex);
  NORV_ASSERT(A->is_complex == b->is_complex);
}

/// When a solve is done.  Comparisons are strict; a criterion that isn't known never holds.
struct StoppingTest {
  int criterion;
  double epsilon;
  double norm_b;       ///< not 0
  double initial = 0;  ///< norm of the initial residual
  bool holds(double residual) const;
};

/// The preconditioner in a message.
const char* precon_name(const precon* M);

/// Tells the calling thread's listener, and the history of s where there is one.
void tell_step(solver* s, int iteration, double relative_residual);

/// Result of a solve, in its record and the log: "[<name> took <seconds> secs., ...]".
void tell_end(solver* s, const char* name, double start, int iterations, double relative_residual,
              const char* label = "rel.res.");

/// The optimiser's hook; null where there is none.  See norv/interface.h.
using TerminationHook = int (*)(double norm_b, double norm_r, int n, double* x, double* r,
                                int iteration);
TerminationHook termination_hook();

}  // namespace vlm
