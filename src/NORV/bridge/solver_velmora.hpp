// SPDX-License-Identifier: BSD-3-Clause
/// The workspace behind a direct_factorization: a handle of the direct solver with its vectors.
#pragma once

#include "NORV/corelib/base.hpp"
#include "base/memory.hpp"
#include "norv/direct.h"

namespace vlm {

struct DirectWork {
  void* pt[64];
  int iparm[64];
  double dparm[64];
  int mtype;
  int n;
  double* solution;  ///< scratch, n values
};

/// Analyses and factorizes a matrix in an order that can be kept.
/// @param order  perm as iparm(5) has it [n], or empty: the solver's own, which comes back
direct_factorization* factorize_in_order(smat* A, Vector<int>& order);

}  // namespace vlm
