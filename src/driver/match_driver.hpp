// SPDX-License-Identifier: BSD-3-Clause
/// Weighted matching within an analysis.
#pragma once

#include <optional>

#include "driver/call.hpp"
#include "driver/options.hpp"
#include "graph/ordering.hpp"
#include "matching/mpssym.hpp"

namespace vlm {

/// What a matching leaves beside the stored permutation and scalings.
struct MatchedOrder {
  std::optional<Ordering> order;  ///< symmetric types: order that keeps 2x2 candidates together
  std::optional<PaddedMatrix> padded;  ///< modes 2 and 4 of symmetric types
};

/// Runs the matching that options.matching asks for and stores permutation and scalings.
///
/// Unsymmetric types take the matching as a row permutation; an incomplete one is an error
/// there.  Symmetric types turn it into an elimination order, unless the caller gave one, and an
/// incomplete one costs them the scaling.  Schur nodes take no part.  The constrained modes 3
/// and 4 are for real values; where no constraint block is found they act as 1 and 2.
/// @param matrix       in
/// @param perm_store   [n] 1-based, row that takes the place of column j, out
/// @param scale_store  [2n] column factors, then row factors, out
/// @return success, error_matching, error_overflow, or error_analysis for an unknown mode
Outcome run_matching(const InputMatrix& matrix, const Options& options, int* perm_store,
                     double* scale_store, MatchedOrder& matched);

}  // namespace vlm
