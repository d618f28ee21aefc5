// SPDX-License-Identifier: BSD-3-Clause
/// Incomplete LDL^T by parts: subtrees side by side, then the separators.
///
/// A nested dissection cuts the graph into domains that touch only the separators behind them.
/// Each domain is eliminated by a thread of its own and leaves its share of the Schur complement,
/// in which the pivots that it delays remain; the sum of the shares is factorized last (P. Henon,
/// Y. Saad, "A parallel multistage ILU factorization based on a hierarchical graph decomposition",
/// 2006, with one stage).  The factor does not depend on the number of threads.
#pragma once

#include "NORV/precons/ildlt.hpp"
#include "NORV/precons/preorder.hpp"

namespace vlm::norv {

/// Factorizes A.
/// @param options  of every part; no pairs, no Schur complement
/// @param target   by row of A [n], for a compensation
/// @param threads  of the domains
/// @return place is by row of A
template <class T>
IldltResult<T> factorize_by_parts(const UpperRows<T>& A, const PartedOrder& order,
                                  const IldltOptions& options, const T* target, int threads);

}  // namespace vlm::norv
