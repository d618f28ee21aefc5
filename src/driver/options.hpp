// SPDX-License-Identifier: BSD-3-Clause
/// The caller's options: defaults, the checked record, and what each stage is given of it.
#pragma once

#include "base/matrix_types.hpp"
#include "driver/call.hpp"
#include "driver/sequence.hpp"
#include "numeric/factorize.hpp"
#include "numeric/schur.hpp"
#include "ordering/reorder1.hpp"
#include "solve/accuracy.hpp"
#include "solve/refine.hpp"
#include "solve/solve.hpp"
#include "symbolic/analysis.hpp"

namespace vlm {

/// What the caller asked for, as the last accepted call said it.  Made by accept_input() alone.
struct Options {
  int mtype = 0;  ///< as given: a few codes are accepted that name no type
  const MatrixType* type = &unknown_type;
  int n = 0;
  int nnz = 0;  ///< entries of the matrix in use
  int nrhs = 0;
  int maxfct = 0;  ///< may be lowered below the length of the factor table
  int threads = 1;
  int nodes = 1;  ///< iparm(52); shown in the report

  // read by the analysis, and valid until the next one
  bool symmetric = false;  ///< storage of the analysed type
  OrderMethod order = OrderMethod::dissection;
  bool user_order = false;  ///< iparm(5) > 0
  int matching = 0;         ///< iparm(13) where matching applies
  bool scaled = false;      ///< values are scaled while the panels are loaded
  int schur = 0;            ///< n - iparm(38) when iparm(38) is in range
  int panel = 80;           ///< width limit of a panel

  // read in every call, unless iparm(1) is 0
  bool transpose = false;
  int partial = 0;              ///< iparm(31)
  bool factor_domains = false;  ///< iparm(24)
  bool solve_domains = false;   ///< iparm(25)
  bool single = false;          ///< iparm(29) where the type has such kernels
  bool fixed_order = false;     ///< iparm(34)
  bool logdet = false;          ///< iparm(33)
  StabilisedOption stabilised;  ///< iparm(4)

  // read in every call
  bool solution_in_b = false;  ///< iparm(6)
  int solve_steps = 0;         ///< iparm(26)
  int refinement = 0;          ///< iparm(8)
  int perturbation = 0;        ///< iparm(10)
  bool pairs = false;          ///< iparm(21)
};

/// Settings of velmorainit(); iparm(3), (29) and others that it does not name are zero.
/// @param solver  0 direct, 1 iterative, 10 and 11 the same in a parallel program
/// @param dparm   written for the iterative solver only  [64]
void initial_settings(int mtype, int solver, View<int> iparm, double* dparm);

/// The driver's own defaults, loaded into iparm by an analysis with iparm(1) 0.  They differ from
/// those of velmorainit(): no refinement, Bunch-Kaufman pivots for -2, no matching for -4 and 6.
void load_defaults(int mtype, View<int> iparm);

/// Order of the Schur complement that iparm(38) asks for; 0 for none.
int schur_asked(const Call& call);

/// What an accepted call says; what it does not say again stays as the call before left it.
/// Settles iparm(51) and iparm(52).
Options accept_input(const Call& call, const Options& before);

/// What a diagonal system leaves in iparm(12): 0 and 1 as they were.
enum DiagonalMark : int { diagonal_system = -1, diagonal_transposed = -2 };

/// Whether iparm(12) asks for the transposed matrix.
bool transpose_asked(const Call& call);

/// Whether iparm(4) asks for stabilised solves, in a call that reads it.
bool stabilised_asked(const Call& call);

/// Whether the analysis of this call computes a weighted matching, which reads the values.
bool matching_asked(const Call& call);

/// Domains to aim at: one a thread, at most n.
int count_domains(const Options& options);

OrderOptions order_options(const Options& options);
SymbolicOptions symbolic_options(const Options& options);
FactorOptions factor_options(const Options& options);
SolveOptions solve_options(const Options& options);
SchurOptions schur_options(const Options& options);
/// @param perturbed  replaced pivots of the factor, which ask for refinement
RefineOptions refine_options(const Options& options, const Call& call, int perturbed);
StabiliseOptions stabilise_options(const Options& options);
/// Level 0 for solves whose residual says nothing: partial ones, single steps, Schur factors.
AccuracyOptions accuracy_options(const Options& options, const Call& call);
/// A solve is to be measured, and tells its errors also in phase 33.
bool accuracy_asked(const Call& call);
/// Where a measurement is asked for: until it has been made nothing is known.
void forget_accuracy(const Call& call);

}  // namespace vlm
