// SPDX-License-Identifier: BSD-3-Clause
/// Peers of the iterative solver, see iterative_peers.hpp.
#include "iterative_peers.hpp"

#ifdef BENCH_HAS_HYPRE
#include <HYPRE.h>
#include <HYPRE_IJ_mv.h>
#include <HYPRE_krylov.h>
#include <HYPRE_parcsr_ls.h>
#include <mpi.h>

#include <algorithm>
#include <numeric>
#include <utility>
#endif

namespace bench {

#ifdef BENCH_HAS_HYPRE

bool has_peers() { return true; }

namespace {

/// Both triangles by rows, base 0.
struct FullRows {
  std::vector<HYPRE_Int> lengths;
  std::vector<HYPRE_BigInt> columns;
  std::vector<double> values;
};

FullRows full_rows(const gallery::Matrix& m) {
  std::vector<std::vector<std::pair<int, double>>> rows(std::size_t(m.n));
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      rows[i].emplace_back(m.ja[k] - 1, m.a[k]);
      if (m.ja[k] - 1 != i) rows[m.ja[k] - 1].emplace_back(i, m.a[k]);
    }
  FullRows full;
  for (const auto& row : rows) {
    full.lengths.push_back(HYPRE_Int(row.size()));
    for (const auto& [column, value] : row) {
      full.columns.push_back(column);
      full.values.push_back(value);
    }
  }
  return full;
}

HYPRE_IJMatrix make_matrix(const gallery::Matrix& m) {
  HYPRE_IJMatrix A;
  HYPRE_IJMatrixCreate(MPI_COMM_SELF, 0, m.n - 1, 0, m.n - 1, &A);
  HYPRE_IJMatrixSetObjectType(A, HYPRE_PARCSR);
  FullRows full = full_rows(m);
  HYPRE_IJMatrixSetRowSizes(A, full.lengths.data());
  HYPRE_IJMatrixInitialize(A);
  std::vector<HYPRE_BigInt> rows(std::size_t(m.n));
  std::iota(rows.begin(), rows.end(), HYPRE_BigInt{0});
  HYPRE_IJMatrixSetValues(A, m.n, full.lengths.data(), rows.data(), full.columns.data(),
                          full.values.data());
  HYPRE_IJMatrixAssemble(A);
  return A;
}

HYPRE_IJVector make_vector(const std::vector<double>& values) {
  HYPRE_IJVector v;
  HYPRE_IJVectorCreate(MPI_COMM_SELF, 0, HYPRE_BigInt(values.size()) - 1, &v);
  HYPRE_IJVectorSetObjectType(v, HYPRE_PARCSR);
  HYPRE_IJVectorInitialize(v);
  std::vector<HYPRE_BigInt> rows(values.size());
  std::iota(rows.begin(), rows.end(), HYPRE_BigInt{0});
  HYPRE_IJVectorSetValues(v, HYPRE_Int(values.size()), rows.data(), values.data());
  HYPRE_IJVectorAssemble(v);
  return v;
}

/// A preconditioner and its routines.
struct Preconditioner {
  HYPRE_Solver solver = nullptr;
  HYPRE_PtrToSolverFcn solve, setup;
};

/// hypre's threshold ILU with its own threshold, 0.01; multigrid as its manual advises for three
/// dimensions.  One sweep, or cycle, an application.
Preconditioner make_preconditioner(Peer peer) {
  Preconditioner p;
  if (peer == Peer::ilu) {
    HYPRE_ILUCreate(&p.solver);
    HYPRE_ILUSetType(p.solver, 1);
    HYPRE_ILUSetMaxIter(p.solver, 1);
    HYPRE_ILUSetTol(p.solver, 0);
    HYPRE_ILUSetDropThreshold(p.solver, 0.01);
    p.solve = reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_ILUSolve);
    p.setup = reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_ILUSetup);
    return p;
  }
  HYPRE_BoomerAMGCreate(&p.solver);
  HYPRE_BoomerAMGSetMaxIter(p.solver, 1);
  HYPRE_BoomerAMGSetTol(p.solver, 0);
  HYPRE_BoomerAMGSetCoarsenType(p.solver, 10);
  HYPRE_BoomerAMGSetInterpType(p.solver, 6);
  HYPRE_BoomerAMGSetPMaxElmts(p.solver, 4);
  HYPRE_BoomerAMGSetStrongThreshold(p.solver, 0.5);
  HYPRE_BoomerAMGSetRelaxType(p.solver, 6);
  p.solve = reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_BoomerAMGSolve);
  p.setup = reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_BoomerAMGSetup);
  return p;
}

}  // namespace

IterativeFigures run_peer(Peer peer, const gallery::Matrix& m, bool definite, double tolerance,
                          const std::vector<double>& b, std::vector<double>& x) {
  constexpr int most_iterations = 300, restart = 50;
  int started = 0;
  MPI_Initialized(&started);
  if (!started) {
    MPI_Init(nullptr, nullptr);
    HYPRE_Init();
  }
  const HYPRE_IJMatrix ij = make_matrix(m);
  const HYPRE_IJVector ij_b = make_vector(b), ij_x = make_vector(x);
  HYPRE_ParCSRMatrix A;
  HYPRE_ParVector pb, px;
  HYPRE_IJMatrixGetObject(ij, reinterpret_cast<void**>(&A));
  HYPRE_IJVectorGetObject(ij_b, reinterpret_cast<void**>(&pb));
  HYPRE_IJVectorGetObject(ij_x, reinterpret_cast<void**>(&px));
  const Preconditioner p = make_preconditioner(peer);
  HYPRE_Solver krylov;
  HYPRE_Int iterations = 0;
  IterativeFigures f;
  const double start = seconds(1);
  double between = 0;
  if (definite) {
    HYPRE_ParCSRPCGCreate(MPI_COMM_SELF, &krylov);
    HYPRE_PCGSetTol(krylov, tolerance);
    HYPRE_PCGSetTwoNorm(krylov, 1);
    HYPRE_PCGSetMaxIter(krylov, most_iterations);
    HYPRE_PCGSetPrecond(krylov, p.solve, p.setup, p.solver);
    HYPRE_ParCSRPCGSetup(krylov, A, pb, px);
    between = seconds(1);
    HYPRE_ParCSRPCGSolve(krylov, A, pb, px);
    HYPRE_PCGGetNumIterations(krylov, &iterations);
  } else {
    HYPRE_ParCSRGMRESCreate(MPI_COMM_SELF, &krylov);
    HYPRE_GMRESSetTol(krylov, tolerance);
    HYPRE_GMRESSetKDim(krylov, restart);
    HYPRE_GMRESSetMaxIter(krylov, most_iterations);
    HYPRE_GMRESSetPrecond(krylov, p.solve, p.setup, p.solver);
    HYPRE_ParCSRGMRESSetup(krylov, A, pb, px);
    between = seconds(1);
    HYPRE_ParCSRGMRESSolve(krylov, A, pb, px);
    HYPRE_GMRESGetNumIterations(krylov, &iterations);
  }
  f.solve = seconds(1) - between;
  f.setup = between - start;
  f.iterations = iterations;
  f.error = 0;
  HYPRE_ClearAllErrors();
  std::vector<HYPRE_BigInt> rows(x.size());
  std::iota(rows.begin(), rows.end(), HYPRE_BigInt{0});
  HYPRE_IJVectorGetValues(ij_x, HYPRE_Int(x.size()), rows.data(), x.data());
  return f;  // the process ends soon
}

#else

bool has_peers() { return false; }

IterativeFigures run_peer(Peer, const gallery::Matrix&, bool, double, const std::vector<double>&,
                          std::vector<double>&) {
  return {};
}

#endif

}  // namespace bench
