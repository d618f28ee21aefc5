// SPDX-License-Identifier: BSD-3-Clause
/// Entry points of the routine families, as the stage routine calls them.
///
/// None of them allocates what outlives the call.  Each may throw std::bad_alloc for its own
/// scratch, which the driver turns into the memory error.  Those that return int return a
/// Status.
#pragma once

#include <cstddef>

#include "driver/control.hpp"
#include "symbolic/analysis.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

// --- analysis -----------------------------------------------------------------------------

/// Adjacency, fill-reducing order, regrouping by domains, Schur and partial-solve blocks,
/// supernodes.  Fills analysis.graph, order, trailing, nfw, nbw and, through
/// sfinit_velmora(), the supernode partition; writes nparts, nsuper, maxsup to the control.
int reorder1_velmora(const AnalysisRequest& request, Control& control, Analysis& analysis);

/// Elimination tree, column counts and supernode partition for the order in the analysis.
int sfinit_velmora(Control& control, Analysis& analysis);

/// Supernodal tree, row lists, column pointers, update counts, operation count.
int reorder2_velmora(Control& control, Analysis& analysis);

/// Task schedule for several threads: queue and update lists.  The sequential schedule needs
/// none.
int reorder3_velmora(const Control& control, Analysis& analysis);

// --- numeric work -------------------------------------------------------------------------

/// True when kernels exist for the matrix type; others fail with status_unsupported.
bool kernels_exist(int mtype);

/// Bytes of FACT_L&U.
std::size_t factor_bytes(const Control& control, const Structure& structure);

/// Bytes of work that the solve of nrhs right-hand sides needs, for scalars of that size.
std::size_t solve_work_bytes(const Control& control, const Structure& structure, int nrhs,
                             std::size_t scalar_bytes);

/// Bytes of WORK_R0 that a factorization, and a solve with nrhs right-hand sides, need.
std::size_t work_bytes(const Control& control, const Structure& structure, int nrhs);

/// Factors the matrix into lu.  Writes perturbed, npos, nneg, logdet to the control.
/// @param work  WORK_R0, work_bytes() bytes
int factorize_velmora(Control& control, const Structure& structure, const InputMatrix& matrix,
                      const MatchingStore& matching, void* lu, void* work);

/// Solves with a finished factor: gather and scale, forward, diagonal, backward, scatter.
/// @param b  right-hand sides, n by nrhs, complex values as two doubles, in
/// @param x  solutions, n by nrhs, out; may be b itself
int solve_velmora(const Control& control, const Structure& structure, const MatchingStore& matching,
                  const void* lu, int nrhs, const double* b, double* x, void* work);

}  // namespace vlm
