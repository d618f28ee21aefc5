// SPDX-License-Identifier: BSD-3-Clause
/// The matrix of a call.
#pragma once

namespace vlm {

/// The caller's matrix: compressed rows, 1-based; complex values are two adjacent doubles.
struct InputMatrix {
  int n = 0;
  const int* ia = nullptr;  ///< [n+1]
  const int* ja = nullptr;  ///< [nnz]
  const double* a = nullptr;
  int nnz() const { return ia[n] - 1; }
};

}  // namespace vlm
