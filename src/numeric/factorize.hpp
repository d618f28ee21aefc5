// SPDX-License-Identifier: BSD-3-Clause
/// Numerical factorization of a matrix with a finished structure.
#pragma once

#include <cstddef>

#include "base/input_matrix.hpp"
#include "base/matrix_types.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

struct FactorOptions {
  const MatrixType& type;
  bool single = false;   ///< single-precision factor
  bool pairs = false;    ///< LDL^T: 2x2 pivots by Bunch-Kaufman
  int perturbation = 0;  ///< pivots below 10^-|k| of the matrix's size are replaced; 0: exact zeros
  bool fixed_order = false;  ///< updates in an order that no timing changes
  bool logdet = false;       ///< the determinant is wanted
  int schur = 0;             ///< trailing columns that are not eliminated
  int threads = 1;           ///< at most; those of the structure's schedule are used
};

struct FactorResult {
  int perturbed = 0;               ///< replaced pivots
  int positive = 0, negative = 0;  ///< pivots by sign; LU counts none
  double logdet = 0;               ///< log |det A| where it was wanted
  double growth = 0;               ///< largest update beside the largest entry; not for Cholesky
  int grown = 0;                   ///< pivots whose updates are beyond the bound on growth
  /// Signs that rounding decided: of replaced pivots, of those that are no more than the rounding
  /// error of what they were formed from, and of grown ones.
  int doubtful = 0;
  int doubtful_positive = 0;  ///< of these, counted as positive
};

/// Bytes of one value of the factor.
std::size_t scalar_bytes(const MatrixType& type, bool single);

/// Bytes of FACT_L&U.
std::size_t factor_bytes(const FactorOptions& options, const Structure& structure);

/// Bytes of the work that a factorization needs.
std::size_t factor_work_bytes(const FactorOptions& options, const Structure& structure);

/// Factors the matrix.
/// @param matching  scalings, null for none, and row permutation, null for none, in
/// @param lu        factor_bytes() bytes, out
/// @param work      factor_work_bytes() bytes
/// @return status_ok, status_pivot, or status_unsupported
int factorize_velmora(const FactorOptions& options, const Structure& structure,
                      const InputMatrix& matrix, const Matching& matching, void* lu, void* work,
                      FactorResult& result);

}  // namespace vlm
