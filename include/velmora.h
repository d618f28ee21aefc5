/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Velmora: thread-parallel solver for large sparse linear systems A x = b.
 *
 * One operation, velmora(), does the work in phases on a handle that the caller owns:
 *
 *   void  *pt[64];  int iparm[64];  double dparm[64];
 *   int mtype = -2, solver = 0, error = 0;
 *   iparm[2] = 4;                                          four threads, iparm(3)
 *   velmorainit(pt, &mtype, &solver, iparm, dparm, &error);
 *   phase = 13;  velmora(pt, ..., &phase, ...);            analyse, factor, solve
 *   phase = 33;  velmora(pt, ..., &phase, ...);            another right-hand side
 *   phase = -1;  velmora(pt, ..., &phase, ...);            release everything
 *
 * All arguments are passed by reference, so that the same symbols serve C, C++ and Fortran.
 * Integers are 32 bits, reals are doubles, a complex value is two adjacent doubles.  Entries
 * of iparm and dparm are numbered from 1 in this text: iparm(3) is iparm[2] in C.
 *
 * Any number of handles may be in use, and calls on different handles may run at the same time
 * in different threads: each holds to its own iparm(3).  One handle takes one call at a time.  A
 * call from inside a parallel region with iparm(3) 1 stays on its thread and starts no other.
 * Of what belongs to the process only the thread count of a BLAS with threads of its own is
 * touched, by calls that factor or solve; the last one of them restores it.  A process that was
 * forked after a call may make calls of its own.
 *
 * The matrix
 * ----------
 * Compressed rows, indices from 1.  ia has n+1 entries, ia(1) = 1, and row i occupies the
 * positions ia(i) to ia(i+1)-1 of ja (columns, ascending in a row) and of a (values).  Types
 * marked "upper" store the upper triangle with the diagonal, which comes first in its row and
 * must be present even where it is zero.  Types 1 and 3 store all entries of a pattern that is
 * symmetric and has a full diagonal.  velmora_chkmatrix() tests all this.
 *
 *   mtype  1   real, structurally symmetric
 *          2   real, symmetric positive definite                  upper
 *         -2   real, symmetric indefinite                         upper
 *          3   complex, structurally symmetric
 *          4   complex, Hermitian positive definite               upper
 *         -4   complex, Hermitian indefinite                      upper
 *          6   complex, symmetric                                 upper
 *         11   real, unsymmetric
 *         13   complex, unsymmetric
 *
 * The codes 5, -1, -3, -5, -6, -11 pass the check of the arguments but name no type: the analysis
 * ends with error -3 and a message.
 *
 * phase
 * -----
 *   11   analysis: ordering and structure of the factor
 *   12   analysis and factorization
 *   13   analysis, factorization and solve
 *   22   factorization, unless iparm(4) keeps an earlier one; uses the last analysis
 *   23   factorization and solve
 *   33   solve; factors first when matrix number mnum has no factor yet, or has one of another
 *        mtype or precision.  error is 0 afterwards whatever happened, unless iparm(4), iparm(40)
 *        or iparm(42) is set, or an inverse stands for the factor or the matrix;
 *        velmora_last_message() then has the failure
 *    0   release the factor of matrix number mnum
 *   -1   release everything; pt is zero afterwards and can be used again
 *   -2   query: error 18, iparm(1) 23.  No other argument is looked at; they may be null
 *   -3   query: error 500000.  No other argument is looked at; they may be null
 *  -22   selected inversion: a receives the entries of the inverse of the matrix whose factor
 *        matrix number mnum holds, on the matrix's own pattern; see "The inverse" below
 *
 * Arrays that a phase does not use may be null: a in phase 11 unless iparm(13) asks for
 * matching; b and x unless the phase solves; perm unless iparm(5) or iparm(31) asks for it;
 * all of them in phases 0 and -1.
 *
 * error
 * -----
 *     0   success
 *    -1   an argument is wrong, does not fit the earlier calls or the phase, or asks for what
 *         this version does not do.  Nothing that the handle holds has changed.  Also: ia or a
 *         row's first or last column is out of range; ia and ja are not the analysed pattern
 *    -2   out of memory; the message names the array and the bytes asked for.  Phase -22 with
 *         iparm(36) 2: no room in TMPDIR
 *    -3   the analysis failed: perm is no permutation, or mtype names no type
 *    -4   the factorization or the solve failed: zero pivot, matrix not positive definite, NaN
 *         or infinity in a, refinement or an iteration of iparm(4) that does not converge, or the
 *         verdict 2 of iparm(41).  A failed iteration leaves its last iterate in x, and b as it was
 *    -5   something failed that no other class describes; none is known
 *    -6   weighted matching: the matrix is structurally singular; so is a diagonal system in
 *         which two rows share a column
 *    -7   as -1 when msglvl is 0; also: wrong row of a diagonal system (phases 23, 33)
 *    -9   the listener of velmora_set_progress() ended the call; see velmora/progress.h
 *    -8   the order of the graph, its row lists, or positions inside one panel of the factor
 *         exceed the range of 32-bit integers.  The factor itself may be longer
 *     i   diagonal systems, phases 12, 13, 22: row i does not hold exactly one entry
 *    -i   diagonal systems, phases 12, 13, 22: the entry in row i is zero
 *
 * A matrix with n entries is a diagonal system, or a scaled permutation.  It is solved at once: an
 * analysis of it empties the handle, and there is no factor and no report.  Where iparm(38) asks
 * for a Schur complement it is factored like any other.  Its error may be a row's number, which
 * can equal one of the classes above; the message tells them apart.
 *
 * After any error the handle remains good for a new analysis and for phase -1.
 *
 * iparm, 64 integers
 * ------------------
 * "in" is set by the caller, "out" by the library.  The value in brackets is the default that
 * velmorainit() sets.  Entries not listed are reserved; leave them 0.
 *
 *    1  in      [1] 0: the analysis loads its own defaults into iparm (refinement off,
 *               iparm(10) 8 and iparm(21) 1 for -2, -4, 6; iparm(10) 13 for 1, 3; iparm(10) 13,
 *               iparm(11) 1, iparm(13) 1 for 11, 13), and options of later calls are those of
 *               the analysis.  Other values: iparm is used as it stands
 *    2  in      [2] ordering: 0 minimum degree, 1 minimum degree constrained by a partition,
 *               2 nested dissection
 *    3  in,out  [not set] number of threads.  Below 1: as many as the OpenMP runtime gives the
 *               calling thread; that number is written back.  At most 4096
 *    4  in      [0] stabilised solves, for sequences of matrices on one pattern: 10 L + K, with a
 *               sign.  Phases 22 and 23 then keep the factor of an earlier matrix where that pays,
 *               and a solve iterates on the matrix of the call with this factor as preconditioner
 *               (a, ia and ja must be there, in phase 33 as well), without other refinement.
 *                K  |K| 2: conjugate gradients for types that store a triangle; else, and for
 *                   all other types, conjugate gradients squared.  0: off
 *                L  the residual is to fall to 10^-L of that of the factor's own solution, in
 *                   Euclidean norms; 0: 10^-12.  1.4e-14 of |A||x| + |b| counts as rounding
 *                K > 0: at most 1.35 |K| t + 1 iterations, and 100, t being the time of the
 *                   factorization over that of a solve.  Phases 22 and 23 factor after a failure;
 *                   where fewer than five iterations were affordable in the last solve, as before
 *                   the first one; where keeping the factor has become dearer than a new one, or
 *                   has failed lately.  A phase 23 whose iteration fails factors and solves again.
 *                   Such decisions hang on measured times, and may differ from run to run
 *                K < 0: 150 iterations, and a new factor only after a failure
 *               iparm(4) 0 with phase 22 or 23 always factors.  Up to four of the last solutions
 *               are kept, within a quarter of the factor's memory, for first guesses.  Not
 *               together with iparm(26), iparm(31), or a Schur factor of iparm(38): error -1
 *    5  in      [0] > 0: perm holds the elimination order to use, position to node;
 *               < 0: the order that the analysis found is written to perm; -2: where all entries
 *               are stored perm has 2n elements, and behind the order the row that the matching
 *               brings to the place of each column
 *    6  in      [0] 0: the solution goes to x, b is kept; 1: the solution overwrites b, and x
 *               is not used (diagonal systems: x receives it as well)
 *    7  out     steps of iterative refinement in the last solve
 *    8  in      [1; 2 for 11, 13] refinement: at most |iparm(8)| steps, > 0: none where only rounding
 *               is left, of |A||x| + |b| at most 4e-16 in all and max(1e-14, 1e-16 n^1/2) in a row
 *               (not with iparm(40), (42)); 0 two when pivots were perturbed, else none.  Each column
 *               receives the iterate with the least 1-norm of the residual, the last where it ties
 *    9  in      [0] < 0: memory of the factors is not counted into iparm(17)
 *   10  in      [8 for -2, -4, 6; 13 for 1, 3; 12 for 11, 13; else 0] pivots below about
 *               10^-|iparm(10)| times the size of the matrix are perturbed
 *   11  in      [1 for -4, 6, 11, 13; else 0] 1: scale with the factors of the matching;
 *               2: the same if iparm(30) > 0; 0: no scaling.  Read by the analysis
 *   12  in,out  [0] 1: solve with the transposed matrix (unsymmetric storage only; for Hermitian
 *               types conjugate b and x).  A diagonal system leaves -1 here, which counts as 0,
 *               or -2, which counts as 1
 *   13  in      [2 for -4, 6; 1 for 11, 13; else 0] weighted matching: 0 off; 1 on; 2 on, with
 *               2x2 pivot candidates padded to full blocks; 3, 4 as 1, 2 with constraints.
 *               Types -2, -4, 6, 11, 13 only; constraints only with
 *               real values.  Read by the analysis
 *   14  in,out  out: pivots perturbed in the factorization of the factor in use (22, 23 and
 *               dparm(33) are of that factor as well).  in, phase 33: > 0 replaces
 *               that count, and so asks for refinement
 *   15  out     KB: peak of the analysis
 *   16  out     KB: kept after the analysis
 *   17  out     KB: factors, work space and vectors of refinement or iteration; after an analysis the forecast
 *               for one factor
 *   18  in,out  [-1] < 0 before an analysis: receives the number of nonzeros in L and U; above
 *               2147483647 the negative count in thousands
 *   19  out     [-1] real operations of the factorization in 10^9, truncated: those of the
 *               exact factor, without the zeros that panels are padded with
 *   20  in,out  out: after a stabilised solve its iterations, the first solve counted as one; after
 *               one that failed, negative: -10 times that, and the reason, which is
 *                -1  the residual grew to 10^4 times the first one or is NaN; A or the factor is
 *                    not positive definite; or breakdown 1 of conjugate gradients squared
 *                -2  too slow: half of the digits missing after half of the iterations, or not
 *                    worth its time; or breakdown 2
 *                -3  the iterations are used up; or breakdown 3
 *                -4  the solve with the factor failed; or breakdown 4
 *               and -5 alone where no iteration was affordable.  -34 after the two automatic
 *               refinement steps of iparm(8) 0; else 0.
 *               in: with iparm(4) not 0, a negative value makes phases 22 and 23 factor
 *   21  in      [1 for -4, 6; else 0] pivots of -2, -4, 6: 0 diagonal entries only,
 *               1 Bunch-Kaufman with 1x1 and 2x2 pivots
 *   22  out     number of positive eigenvalues (symmetric and Hermitian types)
 *   23  out     number of negative eigenvalues.  Both count the signs of the pivots, all n of them:
 *               iparm(44) tells how many of these say nothing.  After a solve that went on to
 *               another factor (iparm(43)), those of the factor with fewer uncertain signs
 *   24  in      [1] scheme of the factorization on several threads, read by the analysis: 1
 *               two-level (domains of the nested dissection side by side, then the separators),
 *               0 fine-grain (panel by panel); also fine-grain where the order has no domains
 *   25  in      [1] the solve of few right-hand sides, whatever iparm(24) is: 1 two-level, 0
 *               sequential.  With 8 or more a thread, each thread solves for its own
 *   26  in      [0] 0: complete solve; 1: end after the forward step; above 1: without the
 *               forward step.  Not 0: no refinement
 *   28  in      [0] 1: nested dissection on several threads.  Since their order is that of one
 *               thread, 0 takes them as well
 *   29  in      [0] 1: factor and solve in single precision; types 1, -2, 11 only
 *   30  in      [0] > 1: width of the panels.  Not 0: iparm(2) outside 0 to 2 is taken as 2
 *   31  in      [0] not 0: partial solve; perm, read by the analysis, marks with a non-zero the
 *               equations with a right-hand side and the unknowns that are wanted, both of one
 *               number.  b counts as zero in the others, and x stays as it is there.  The solve
 *               visits the paths from the marked nodes to the roots of the elimination tree and
 *               nothing else; it isn't refined.  No mark: a whole solve.  With iparm(38) the last
 *               n - iparm(38) count as marked.  Together with iparm(5) > 0 it is error -1
 *   32  in      [1 if velmorainit() was asked for the iterative solver] 1: iterative solver,
 *               types -2, 2, 6 and 11; others are error -1.  See "Iterative solver" below
 *   33  in      [0] 1: dparm(33) receives the logarithm of |det A|
 *   34  in      [0] not 0: fixed order of updates, so that results do not vary from run to run
 *               with several threads; no refinement.  Only with iparm(2), (24), (25) at 2, 1, 1
 *   35  -       [10 if solver is 10 or 11, else 0] not read
 *   36  in      [0] the factor in phase -22: 0 is overwritten, 1 a copy of it in memory is
 *               inverted, 2 is on disk meanwhile.  See "The inverse"
 *   37  in      [0] 1: phase -22 leaves the inverse of a symmetric type in full form
 *   38  in      [0] from 1 to n-1: eliminate the first iparm(38) unknowns only, and leave the
 *               Schur complement of the others, A22 - A21 A11^-1 A12, for velmora_schur().  0 and
 *               n: eliminate all.  Other values are error -1.  Read by the analysis; a later call
 *               that asks for another complement than it is error -1.  Matching and scaling are
 *               those of A11; log-determinant and inertia, too.  A solve with such a factor:
 *                 iparm(26) 1  the last n - iparm(38) entries of the result are the condensed
 *                              right-hand side, b2 - A21 A11^-1 b1, in the caller's numbering;
 *                              the others are of use to the step that follows only
 *                 iparm(26) 2  takes what the step before left, with the last n - iparm(38)
 *                              unknowns in their entries, and gives the whole solution
 *                 iparm(26) 0  solves with A11 alone: the last unknowns are zero
 *               With iparm(12) 1 all of this is of the transposed matrix.  Only iparm(26) 0
 *               refines, in the first iparm(38) rows
 *   39  out     entries of that Schur complement, after a factorization; above 2147483647 the
 *               negative count in thousands, and velmora_schur() then writes nothing
 *   40  in      [0] accuracy of each solve: 0 is not measured; 1: backward errors, at the cost of
 *               three products with the matrix; 2: also a condition estimate and a bound on the
 *               error, at most ten solves more.  Larger values count as 2.  Above 0 a verdict 2
 *               is error -4, and phase 33 returns its errors like the other phases.  Measured
 *               with the matrix of the call: a, ia and ja must be there, in phase 33 as well
 *   41  out     with iparm(40) above 0, verdict on the solution:
 *                0  good: dparm(41) at most 1e-12, no pivot perturbed, dparm(43) at most 1e-6
 *                1  a nearby system is solved: dparm(41) at most 1e-10, dparm(43) at most 0.2;
 *                   pivots were perturbed, or the matrix is ill-conditioned
 *                2  do not use it: dparm(41) above 1e-10, or not one digit certain, or NaN
 *               -1  not measured: the solve failed, or is a partial one (iparm(31)), single steps
 *                   (iparm(26) not 0), one with a Schur factor (iparm(38)), or of a diagonal
 *                   system.  dparm(40) to dparm(43) are then 0
 *   42  in      [0] 1: go on until the solution is good.  Unless dparm(41) reaches dparm(44) (and,
 *               with iparm(40) 2, the verdict is not 2 and dparm(42) is finite), a solve takes the
 *               rungs of iparm(43) one by one.  Phases 13, 23 and 33, all types, several right-hand
 *               sides, transposed; also where the factorization met a zero pivot, but not where
 *               type 2 or 4 is not definite.  Counts as iparm(40) 1 at least, so that verdict and
 *               errors are told.  The caller's values, analysis and factor stay as they are;
 *               another factor that helped is kept beside them for later solves, counted in
 *               iparm(17), until the next factorization or release.  Not for partial solves,
 *               single steps, Schur factors and diagonal systems
 *   43  out     with iparm(42) 1: the rung that gave the solution (with the factor that the verdict
 *               is from)
 *                0  the solve as asked for          5  rung 4 without matching and scaling
 *                1  refinement judged by rows       6  rung 4 with another order
 *                2  Krylov refinement (FGMRES)      7  as type 11 or 13, with matching
 *                3  the same anew: in double, or    8  as type 11 or 13, with pivots from whole
 *                   where the factor is of others      columns (threshold 0.1), one thread
 *                4  matching, scaling, 2x2 pivots   9  rung 4 with perturbation 10^-6, and many
 *                   and perturbation 10^-13; types     Krylov steps
 *                   1, 3 as 11, 13; 2, 4 as -2, -4
 *               Factors of rungs 3 to 9 are refined like the caller's
 *   44  out     of iparm(22) and iparm(23), signs that are uncertain: of perturbed pivots, of tiny
 *               ones (no larger than the rounding errors of the terms that they are formed from),
 *               and of those whose updates exceed 1e11 (single precision: 186) times the largest
 *               entry of the matrix.  0 for types without inertia
 *   45  out     of iparm(44), those that iparm(22) counts
 *   48  in      [0] expected number of negative eigenvalues, iterative solver
 *   50  -       zeroed by every call
 *   51, 52      [0, 0] distribution over nodes; 1 in iparm(51) becomes 2, and iparm(52) is
 *               the number of nodes, which the report shows.  There is no distributed memory: the
 *               computation stays in the calling process, with its order and its memory; what they
 *               change is that options 28, 29, 31 are off and 24, 25 are 1
 *
 * The inverse
 * -----------
 * Phase -22 takes the finished factor of mnum, of any type and precision, and ia and ja of the
 * analysed matrix.  a is written: entry p of it, at (i,j), receives the entry (i,j) of the inverse
 * of the matrix that was factored, so a and, for iparm(37) 1, ia and ja must not be constants.  Of
 * unsymmetric types it is (i,j) as well, and not (j,i).  Pivoting, matching and scaling are undone.
 * The inverse is that of the perturbed matrix when pivots were perturbed, and of the accuracy of
 * a single-precision factor for iparm(29) 1.
 *
 * It costs about twice the factorization, and beside the factor the scratch of one panel a
 * thread.  The result does not depend on iparm(3).  An unsymmetric pattern whose rows the matching
 * permutes (iparm(13) above 0) has entries outside of the factor's pattern; these take a solve with
 * a part of the factor for each of their columns, and are best avoided by iparm(13) 0.
 *
 *   iparm(36) 0  the inverse takes the place of the factor: phase 33 fails until phase 22 has
 *                factored the matrix again
 *             1  a copy of the factor is inverted in memory; the factor stays
 *             2  the factor is written to a file in the folder TMPDIR (/tmp without it), which
 *                is unlinked as soon as it is there, and read back.  Where there is no room the
 *                error is -2 and the factor stays
 *   iparm(37) 1  for the types that store the upper triangle: a, ia and ja are turned to full
 *                form, row by row with ascending columns.  a and ja must have room for
 *                2 (ia(n+1)-1) - n entries.  Later phases want the triangle again
 *
 * A later phase 33 that reads the matrix, to refine or to factor, fails while a still holds the
 * inverse.  These failures of phase 33 are told in error.  A diagonal system has no factor: after
 * phase 12 or 13 phase -22 inverts the values in a, and the caller keeps track of what a holds.
 * b, x and perm are not looked at.  Factors of a Schur complement (iparm(38)) have no inverse.
 *
 *
 * dparm, 64 doubles
 * -----------------
 *  1 - 9        limits of the iterative solver, see there
 *   33  out     log |det A| when iparm(33) is 1
 *   34  out     iterative solver: relative residual, the largest of the right-hand sides.  At
 *               message level 1 only: it costs a product with A
 *   35  out     iterative solver: iterations, of all right-hand sides together
 *
 * With iparm(40) above 0, the largest over the right-hand sides; r = b - A x, or with the
 * transposed matrix where that is solved:
 *   40  out     normwise backward error: max|r| / (|A| max|x| + max|b|), |A| the largest sum of
 *               absolute values of a row
 *   41  out     componentwise backward error: max |r| / (|A||x| + |b|); a row whose |A||x| + |b|
 *               nearly vanishes beside its sum of |A| times max|x| is judged by that instead
 *   42  out     iparm(40) 2: estimate of the condition number |A| |A^-1|, largest row sums;
 *               infinity where the factor does not stand for A.  Else 0
 *   43  out     iparm(40) 2: bound on max|x - x*| / max|x|, x* the exact solution; infinity where
 *               not one digit is certain.  Estimated, as all that costs less than the inverse.
 *               Else 0.  A solution 0 is judged like one whose entries are 1
 *   44  in      [0] componentwise backward error that iparm(42) goes on for; not between 0 and 1:
 *               1e-12
 *
 * Iterative solver, iparm(32) 1
 * -----------------------------
 * Multilevel incomplete LDL^T preconditions SQMR (norv/ildlt.h); of mtype 11 ILUC BiCGStab.
 * Phases 11 and 12 set it up; 22 again for new values of the pattern, with the orders and scalings
 * that there are; 33 solves with it, a may have changed a little.  0 does nothing.  All read a, ia,
 * ja, dparm, and iparm(3), (6), (48).  x is the starting guess, or 0 where that is better.  Written:
 * iparm(14), (22), (23), of the preconditioner, (18) its nonzeros, (15) and (17) its memory.  From
 * 0.1 % below to 0.05 % above iparm(48), (23) is told as iparm(48) where n is above dparm(3).
 *
 *   dparm(1)  [300]   iterations, at most; reaching that number is error -100
 *   dparm(2)  [1e-6]  a solve ends when |b - A x| / |b| falls below it (Euclidean norms)
 *   dparm(3)  [5000]  a level of at most that many rows goes to the direct solver
 *   dparm(4)  [10]    levels, from 1 to 32
 *   dparm(5)  [0.01]  dropping of entries of the factor
 *   dparm(6)  [0.005] dropping in the Schur complement of a level, at most dparm(5)
 *   dparm(7)  [10]    most entries of a factor's row in average rows of A, an integer; <= 0: any
 *   dparm(8)  [500]   bound on the growth of the inverse factor; <= 0: none
 *   dparm(9)  [25]    steps of the last 25 without change that end a solve with error -101
 *   dparm(10) [0]     dropped entries down to so many times the threshold still take part in updates
 *   dparm(11) [0]     1: levels are ordered by minimum degree, not by nested dissection
 * error -100, -101, also -102 and -103, breakdowns: x is the last iterate, and the preconditioner
 * stays.  -4: its setup failed, and it is gone.  docs/iterative.md says which settings to try.
 */
#ifndef VELMORA_H
#define VELMORA_H

#if defined(_WIN32)
#define VELMORA_API
#elif defined(__GNUC__)
#define VELMORA_API __attribute__((visibility("default")))
#else
#define VELMORA_API
#endif

/* Version of this header.  VELMORA_VERSION counts 10000 major + 100 minor + patch;
 * VELMORA_VERSION_STRING is "major.minor.patch". */
#define VELMORA_VERSION_MAJOR 4
#define VELMORA_VERSION_MINOR 9
#define VELMORA_VERSION_PATCH 0
#define VELMORA_VERSION \
  (VELMORA_VERSION_MAJOR * 10000 + VELMORA_VERSION_MINOR * 100 + VELMORA_VERSION_PATCH)
#define VELMORA_TEXT_OF_(a, b, c) #a "." #b "." #c
#define VELMORA_TEXT_OF(a, b, c) VELMORA_TEXT_OF_(a, b, c)
#define VELMORA_VERSION_STRING \
  VELMORA_TEXT_OF(VELMORA_VERSION_MAJOR, VELMORA_VERSION_MINOR, VELMORA_VERSION_PATCH)

#ifdef __cplusplus
extern "C" {
#endif

/* Version of the library that is running, in the form of VELMORA_VERSION_STRING. */
VELMORA_API const char* velmora_version(void);

/*
 * What the calling thread's last failed call of velmora() said, at any message level: the lines
 * that it prints at level 1, separated by line feeds, the last one with what to do.  A call that
 * succeeds leaves an empty text, except that a release leaves the text before it.  Also tells
 * what went wrong in a phase 33, whose error is 0.
 *   text    the message, cut to the length, with a terminating zero        [length], out
 *   length  characters that text has room for; 1024 are enough for any     in, by value
 */
VELMORA_API void velmora_last_message(char* text, int length);

/* What a value of error means, in one line.  The text belongs to the library. */
VELMORA_API const char* velmora_error_text(int error);

/* Every operation has these spellings, for callers from other languages. */
#define VELMORA_FOUR_SPELLINGS(lower, upper, arguments) \
  VELMORA_API void lower arguments;                     \
  VELMORA_API void lower##_ arguments;                  \
  VELMORA_API void upper arguments;                     \
  VELMORA_API void upper##_ arguments;
#define VELMORA_FIVE_SPELLINGS(lower, upper, arguments) \
  VELMORA_FOUR_SPELLINGS(lower, upper, arguments)       \
  VELMORA_API void lower##__ arguments;

/*
 * Runs a phase.
 *   pt      handle, 64 words; zero before the first call                       in, out
 *   maxfct  number of matrices of one structure whose factors are kept         in
 *   mnum    which of them this call works on, 1 to maxfct                      in
 *   mtype   matrix type                                                        in
 *   phase   what to do                                                         in
 *   n       number of equations                                                in
 *   a       values; phase -22 writes the inverse there                        in, out
 *   ia, ja  row starts [n+1] and columns                                       in
 *   perm    elimination order or marks [n], see iparm(5), iparm(31)            in or out
 *   nrhs    number of right-hand sides                                         in
 *   iparm   options and results [64]                                           in, out
 *   msglvl  0 silent, otherwise messages and a report on standard output       in
 *   b       right-hand sides, n by nrhs, column by column                      in, out
 *   x       solutions, n by nrhs                                               out
 *   error   outcome                                                            out
 *   dparm   options and results [64]                                           in, out
 */
VELMORA_FOUR_SPELLINGS(velmora, VELMORA,
                       (void** pt, const int* maxfct, const int* mnum, const int* mtype,
                        const int* phase, const int* n, const double* a, const int* ia,
                        const int* ja, int* perm, const int* nrhs, int* iparm, const int* msglvl,
                        double* b, double* x, int* error, double* dparm))

/*
 * Zeroes the handle and sets iparm and dparm to the defaults for a matrix type.
 * iparm(3) is left alone.
 *   solver  0 direct, 1 iterative (types -2, 6, 11; others get the direct solver);
 *           10, 11 the same, with iparm(35) set to 10
 *   error   always 0
 */
VELMORA_FOUR_SPELLINGS(velmorainit, VELMORAINIT,
                       (void** pt, const int* mtype, const int* solver, int* iparm, double* dparm,
                        int* error))

/*
 * Residual of a solution: y = A x, normb the Euclidean norm of b, normr that of b - A x.
 * One right-hand side; types 2, -2, 11, 6, 13.  Any other type prints a line and ends the
 * process.
 */
VELMORA_FOUR_SPELLINGS(velmora_residual, VELMORA_RESIDUAL,
                       (const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, const double* b, const double* x, double* y, double* normb,
                        double* normr))

/*
 * Schur complement after a factorization with iparm(38): compressed rows with ascending columns,
 * indices from 1, ns = n - iparm(38) rows and iparm(39) entries; the upper triangle for the types
 * marked "upper", else all of it.  Zeros are among the entries.  As often as wished, for any factor
 * mnum.  Without such a factor nothing is written, and velmora_last_message() says why.
 *   s   values [iparm(39)], complex ones as two doubles   out
 *   is  row starts [ns+1]                                 out
 *   js  columns [iparm(39)]                               out
 */
VELMORA_FOUR_SPELLINGS(velmora_schur, VELMORA_SCHUR,
                       (void** pt, const int* maxfct, const int* mnum, const int* mtype, double* s,
                        int* is, int* js))

/* Both do nothing; programs that ask for the parallel version or the optimiser's interface
 * link against them. */
VELMORA_FOUR_SPELLINGS(velmora_exist_parallel, VELMORA_EXIST_PARALLEL, (void))
VELMORA_FOUR_SPELLINGS(velmora_ipopt_newinterface, VELMORA_IPOPT_NEWINTERFACE, (void))

/*
 * Checker.  Tests matrix and right-hand sides before they are given to velmora(), and prints
 * their ranges.  Messages go to standard error, the ranges to standard output; the forms with
 * _z are for the complex types.
 *
 *   error    0  good
 *           10  null pointer, bad dimension, or a type of the other kind
 *          100  ia has an entry below 1 or decreases
 *          101  ja has an entry outside 1 to n
 *          200  the columns of a row do not ascend strictly
 *          201  a diagonal entry is missing
 *          202  an entry below the diagonal in a type that stores the upper triangle
 *          300  NaN, in the matrix or in a right-hand side
 *          301  infinity, likewise
 */
VELMORA_FIVE_SPELLINGS(velmora_chkmatrix, VELMORA_CHKMATRIX,
                       (const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, int* error))
VELMORA_FIVE_SPELLINGS(velmora_chkmatrix_z, VELMORA_CHKMATRIX_Z,
                       (const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, int* error))
VELMORA_FIVE_SPELLINGS(velmora_chkvec, VELMORA_CHKVEC,
                       (const int* n, const int* nrhs, const double* b, int* error))
VELMORA_FIVE_SPELLINGS(velmora_chkvec_z, VELMORA_CHKVEC_Z,
                       (const int* n, const int* nrhs, const double* b, int* error))
VELMORA_FIVE_SPELLINGS(velmora_printstats, VELMORA_PRINTSTATS,
                       (const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, const int* nrhs, const double* b, int* error))
VELMORA_FIVE_SPELLINGS(velmora_printstats_z, VELMORA_PRINTSTATS_Z,
                       (const int* mtype, const int* n, const double* a, const int* ia,
                        const int* ja, const int* nrhs, const double* b, int* error))

#undef VELMORA_FOUR_SPELLINGS
#undef VELMORA_FIVE_SPELLINGS

#ifdef __cplusplus
}
#endif

#include "velmora/prepare.h"
#include "velmora/progress.h"

#endif
