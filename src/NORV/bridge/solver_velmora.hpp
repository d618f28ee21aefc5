// SPDX-License-Identifier: BSD-3-Clause
/// The workspace behind a direct_factorization: a handle of the direct solver with its vectors.
#pragma once

#include "NORV/corelib/base.hpp"
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

}  // namespace vlm
