/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * norv.h - public interface of the NORV iterative library.
 *
 * NORV is the multi-recursive iterative half of velmora.  Its sparse containers
 * also serve the preprocessing of the direct solver, which knows the routines
 * of smat, perm, permcycle, bitvec, prioq and jdxlist by a second name with the
 * prefix NORVMORA_ as well; both names are one routine.
 *
 * General rules
 * -------------
 * Integers are 32 bits, reals are doubles.  A complex value is two adjacent
 * doubles (real, imaginary); lengths and indices always count values, never
 * doubles.
 *
 * Indices are 0-based everywhere; smat_new_from() converts 1-based arrays in
 * place.
 *
 * Matrices are compressed rows; columns rise strictly inside a row.  A matrix
 * with `sym` set holds its upper triangle only (column >= row) and stands for
 * its symmetric completion; all operations act on the completed matrix unless
 * told otherwise.  A complex matrix with `sym` set is symmetric, not Hermitian.
 *
 * Ownership.  What a *_new* or *_copy* routine returns belongs to the caller
 * and goes back through the matching *_free or *_release.  Wrapping routines
 * (smat_new_from, vec_new_from, perm_new_from, bitvec_new_from) take no copy.
 *
 * The `dst` convention.  Most vec routines, and the products, write into an
 * existing vector `dst` and return it; a null `dst` is the order to allocate
 * the result.  `dst` may be one of the operands for elementwise routines; it
 * must not be an operand of a product or of a permuted copy.
 *
 * Failure.  A fault of the caller (null argument, dimensions that don't
 * agree, index out of range) is an assertion, in every build: the text of the
 * test goes to standard error and the process aborts.  Exhausted memory ends
 * the process with exit code 7, bad options of a factorization with exit code 1, an error of the
 * nested direct solver with exit code 9.  Everything else is a return value.  On behalf of
 * velmora(), with iparm(32) 1, the same faults are errors of that call.
 *
 * Messages and what the *_print routines print go to the file
 * "./velmora-ml.out", see the section on logging.
 *
 * One thread works on an object at a time; the level of messages, the termination
 * hook and what IterativeNorvScalar() keeps are of the process.  Products of a
 * large smat and a vector, and sums, products and norms of long vectors, use as
 * many threads as OpenMP offers at the call, omp_get_max_threads(), and one
 * inside a parallel region; with a given number of threads a result is the same
 * each time.
 *
 * Headers: each kind has its own, and this one includes all of them.
 *   norv/base.h   memory, the log, the operator record
 *   norv/vec.h    vectors          norv/smat.h   sparse matrices
 *   norv/perm.h   permutations     norv/dmat.h   dense matrices
 *   norv/sets.h   sets of indices  norv/bmat.h   block matrices
 *   norv/sort.h   sorting          norv/ldu.h    triangular factors
 *   norv/linop.h  operators        norv/precon.h preconditioners
 *   norv/direct.h the bridge to    norv/solver.h Krylov solvers
 *                 velmora()        norv/interface.h  phases of velmora()
 *   norv/ildlt.h  incomplete LDL^T norv/condest.h norms of inverse factors
 *   norv/krylov.h the other Krylov methods, sweeps, least squares
 */
#ifndef VELMORA_NORV_H
#define VELMORA_NORV_H

#include "norv/base.h"
#include "norv/bmat.h"
#include "norv/condest.h"
#include "norv/direct.h"
#include "norv/dmat.h"
#include "norv/ildlt.h"
#include "norv/interface.h"
#include "norv/krylov.h"
#include "norv/ldu.h"
#include "norv/linop.h"
#include "norv/perm.h"
#include "norv/precon.h"
#include "norv/sets.h"
#include "norv/smat.h"
#include "norv/solver.h"
#include "norv/sort.h"
#include "norv/vec.h"

#endif /* VELMORA_NORV_H */
