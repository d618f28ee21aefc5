// SPDX-License-Identifier: BSD-3-Clause
/// hypre's incomplete LU, see precon_peer.hpp.
#include "precon_peer.hpp"

#ifdef BENCH_HAS_HYPRE
#include <HYPRE.h>
#include <HYPRE_IJ_mv.h>
#include <HYPRE_krylov.h>
#include <HYPRE_parcsr_ls.h>
#include <mpi.h>

#include <chrono>
#include <numeric>
#endif

namespace bench {

#ifdef BENCH_HAS_HYPRE

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

HYPRE_IJMatrix make_matrix(const gallery::Matrix& m, const std::vector<HYPRE_BigInt>& rows) {
  HYPRE_IJMatrix A;
  HYPRE_IJMatrixCreate(MPI_COMM_SELF, 0, m.n - 1, 0, m.n - 1, &A);
  HYPRE_IJMatrixSetObjectType(A, HYPRE_PARCSR);
  std::vector<HYPRE_Int> lengths(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) lengths[i] = m.ia[i + 1] - m.ia[i];
  std::vector<HYPRE_BigInt> columns(m.ja.begin(), m.ja.end());
  for (HYPRE_BigInt& j : columns) --j;
  HYPRE_IJMatrixSetRowSizes(A, lengths.data());
  HYPRE_IJMatrixInitialize(A);
  HYPRE_IJMatrixSetValues(A, m.n, lengths.data(), rows.data(), columns.data(), m.a.data());
  HYPRE_IJMatrixAssemble(A);
  return A;
}

HYPRE_IJVector make_vector(const std::vector<double>& values,
                           const std::vector<HYPRE_BigInt>& rows) {
  HYPRE_IJVector v;
  HYPRE_IJVectorCreate(MPI_COMM_SELF, 0, HYPRE_BigInt(rows.size()) - 1, &v);
  HYPRE_IJVectorSetObjectType(v, HYPRE_PARCSR);
  HYPRE_IJVectorInitialize(v);
  HYPRE_IJVectorSetValues(v, HYPRE_Int(rows.size()), rows.data(), values.data());
  HYPRE_IJVectorAssemble(v);
  return v;
}

}  // namespace

bool has_peer() { return true; }

PeerFigures run_peer(double drop, const gallery::Matrix& m, double tolerance,
                     const std::vector<double>& b, std::vector<double>& x) {
  int started = 0;
  MPI_Initialized(&started);
  if (!started) {
    MPI_Init(nullptr, nullptr);
    HYPRE_Init();
  }
  std::vector<HYPRE_BigInt> rows(b.size());
  std::iota(rows.begin(), rows.end(), HYPRE_BigInt{0});
  const HYPRE_IJMatrix ij = make_matrix(m, rows);
  const HYPRE_IJVector ij_b = make_vector(b, rows), ij_x = make_vector(x, rows);
  HYPRE_ParCSRMatrix A;
  HYPRE_ParVector pb, px;
  HYPRE_IJMatrixGetObject(ij, reinterpret_cast<void**>(&A));
  HYPRE_IJVectorGetObject(ij_b, reinterpret_cast<void**>(&pb));
  HYPRE_IJVectorGetObject(ij_x, reinterpret_cast<void**>(&px));
  HYPRE_Solver ilu, krylov;
  HYPRE_ILUCreate(&ilu);
  HYPRE_ILUSetType(ilu, drop > 0 ? 1 : 0);
  HYPRE_ILUSetMaxIter(ilu, 1);
  HYPRE_ILUSetTol(ilu, 0);
  if (drop > 0) HYPRE_ILUSetDropThreshold(ilu, drop);
  HYPRE_ParCSRBiCGSTABCreate(MPI_COMM_SELF, &krylov);
  HYPRE_BiCGSTABSetTol(krylov, tolerance);
  HYPRE_BiCGSTABSetMaxIter(krylov, 1000);
  HYPRE_BiCGSTABSetPrecond(krylov, reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_ILUSolve),
                           reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_ILUSetup), ilu);
  PeerFigures f;
  const double start = now();
  HYPRE_ParCSRBiCGSTABSetup(krylov, A, pb, px);
  const double between = now();
  HYPRE_ParCSRBiCGSTABSolve(krylov, A, pb, px);
  f.setup = between - start;
  f.solve = now() - between;
  HYPRE_Int iterations = 0;
  HYPRE_BiCGSTABGetNumIterations(krylov, &iterations);
  f.iterations = iterations;
  HYPRE_ClearAllErrors();
  HYPRE_IJVectorGetValues(ij_x, HYPRE_Int(x.size()), rows.data(), x.data());
  HYPRE_ParCSRBiCGSTABDestroy(krylov);
  HYPRE_ILUDestroy(ilu);
  HYPRE_IJVectorDestroy(ij_x);
  HYPRE_IJVectorDestroy(ij_b);
  HYPRE_IJMatrixDestroy(ij);
  return f;
}

#else

bool has_peer() { return false; }

PeerFigures run_peer(double, const gallery::Matrix&, double, const std::vector<double>&,
                     std::vector<double>&) {
  return {};
}

#endif

}  // namespace bench
