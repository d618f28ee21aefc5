// SPDX-License-Identifier: BSD-3-Clause
/// The phases of the iterative library on a matrix, for IterativeNorvScalar() and for the driver.
#pragma once

#include "NORV/corelib/base.hpp"
#include "norv/interface.h"
#include "norv/precon.h"

namespace vlm {

/// What a phase works on.  The arrays belong to the caller.
struct IterativeCall {
  NorvPars* pars;
  int phase;
  int is_complex;
  smat* A;  ///< base 0
  double *b, *x;
  bool solution_in_b;
  int expected_negative;
  smat* transpose;      ///< of A, to solve with it; null: with A
  bool checked;         ///< a call before this one has tested A
  double second_drop;   ///< of MILDLT: dropped entries down to so many times the threshold still
                        ///< take part in the updates; 0: none
  bool minimum_degree;  ///< MILDLT orders its levels by it, not by nested dissection
};

/// What it found; null where it isn't wanted.  Written by the phases that know it.
struct IterativeResults {
  NorvInfo* info;
  int *perturbed, *positive, *negative, *nnz;
  double* relres;
  int* iterations;
};

/// Runs a phase other than -1.  In a CallScope (NORV/corelib/faults.hpp) what cannot be done is a
/// Fault; elsewhere it is a line on standard output, or the end of the process.
/// @param M  the preconditioner kept between the phases, in and out
/// @return 0, 3 when an object can't be made, or the status of SQMR
int iterative_phase(precon*& M, const IterativeCall& call, const IterativeResults& results);

/// Makes norvPars and norvInfo tell a call's values; calls of several threads take turns.
void publish_records(const NorvPars& pars, const NorvInfo& info);

}  // namespace vlm
