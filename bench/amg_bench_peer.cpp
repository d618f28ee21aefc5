// SPDX-License-Identifier: BSD-3-Clause
// hypre's BoomerAMG as a preconditioner of its conjugate gradients, for amg_bench.
//
//   [mpirun -np P] amg_bench_peer PROBLEM:EDGE
//
// With the defaults of both but: strong threshold 0.5 in three dimensions, as its manual advises,
// and for elasticity the number of functions, 3.  Prints one line: seconds of the setup and of the
// solve, megabytes of all processes, residual, complexity, iterations, levels.
#include <HYPRE.h>
#include <HYPRE_IJ_mv.h>
#include <HYPRE_krylov.h>
#include <HYPRE_parcsr_ls.h>
#include <mpi.h>

#include <cmath>
#include <cstdio>
#include <numeric>
#include <vector>

#include "amg_problem.hpp"

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  if (argc != 2) return 1;
  int rank = 0, size = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  HYPRE_Init();
  int first = 0, last = 0, count = 0;
  HYPRE_IJMatrix ij = nullptr;
  HYPRE_IJVector ijb = nullptr, ijx = nullptr;
  bench::MultigridFigures f;
  const bool flat = std::string(argv[1]).starts_with("poisson2d");
  std::vector<double> b;
  std::vector<int> rows;
  int block_size = 1;
  bench::GridSystem system = bench::grid_system(argv[1]);
  {
    // A process keeps its rows alone.
    const int nodes = system.n / system.block_size;
    first = int(1LL * nodes * rank / size) * system.block_size;
    last = int(1LL * nodes * (rank + 1) / size) * system.block_size;
    count = last - first;
    block_size = system.block_size;
    const int begin = system.ia[first], end = system.ia[last];
    std::vector<int> ja(system.ja.begin() + begin, system.ja.begin() + end);
    std::vector<double> a(system.a.begin() + begin, system.a.begin() + end);
    std::vector<int> ia(system.ia.begin() + first, system.ia.begin() + last + 1);
    for (int& v : ia) v -= begin;
    b.assign(system.b.begin() + first, system.b.begin() + last);
    system = {};
    system.ia.swap(ia), system.ja.swap(ja), system.a.swap(a);
  }
  rows.resize(count);
  std::iota(rows.begin(), rows.end(), first);
  const bench::PeakGrowth memory;
  HYPRE_IJMatrixCreate(MPI_COMM_WORLD, first, last - 1, first, last - 1, &ij);
  HYPRE_IJMatrixSetObjectType(ij, HYPRE_PARCSR);
  std::vector<int> lengths(count);
  for (int i = 0; i < count; ++i) lengths[i] = system.ia[i + 1] - system.ia[i];
  HYPRE_IJMatrixSetRowSizes(ij, lengths.data());
  HYPRE_IJMatrixInitialize(ij);
  HYPRE_IJMatrixSetValues(ij, count, lengths.data(), rows.data(), system.ja.data(),
                          system.a.data());
  HYPRE_IJMatrixAssemble(ij);
  const auto vector = [&](HYPRE_IJVector& v, const double* values) {
    HYPRE_IJVectorCreate(MPI_COMM_WORLD, first, last - 1, &v);
    HYPRE_IJVectorSetObjectType(v, HYPRE_PARCSR);
    HYPRE_IJVectorInitialize(v);
    HYPRE_IJVectorSetValues(v, count, rows.data(), values);
    HYPRE_IJVectorAssemble(v);
  };
  vector(ijb, b.data());
  vector(ijx, std::vector<double>(b.size(), 0.0).data());
  void *A = nullptr, *pb = nullptr, *px = nullptr;
  HYPRE_IJMatrixGetObject(ij, &A);
  HYPRE_IJVectorGetObject(ijb, &pb);
  HYPRE_IJVectorGetObject(ijx, &px);
  const auto matrix = static_cast<HYPRE_ParCSRMatrix>(A);
  const auto vb = static_cast<HYPRE_ParVector>(pb), vx = static_cast<HYPRE_ParVector>(px);

  HYPRE_Solver amg = nullptr, pcg = nullptr;
  HYPRE_BoomerAMGCreate(&amg);
  HYPRE_BoomerAMGSetTol(amg, 0.0);
  HYPRE_BoomerAMGSetMaxIter(amg, 1);
  HYPRE_BoomerAMGSetPrintLevel(amg, 0);
  if (!flat) HYPRE_BoomerAMGSetStrongThreshold(amg, 0.5);
  if (block_size > 1) HYPRE_BoomerAMGSetNumFunctions(amg, block_size);
  HYPRE_ParCSRPCGCreate(MPI_COMM_WORLD, &pcg);
  HYPRE_PCGSetTol(pcg, 1e-8);
  HYPRE_PCGSetMaxIter(pcg, 500);
  HYPRE_PCGSetTwoNorm(pcg, 1);
  HYPRE_PCGSetPrecond(pcg, reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_BoomerAMGSolve),
                      reinterpret_cast<HYPRE_PtrToSolverFcn>(HYPRE_BoomerAMGSetup), amg);
  MPI_Barrier(MPI_COMM_WORLD);
  const double start = bench::wall_seconds();
  HYPRE_ParCSRPCGSetup(pcg, matrix, vb, vx);
  MPI_Barrier(MPI_COMM_WORLD);
  const double ready = bench::wall_seconds();
  HYPRE_ParCSRPCGSolve(pcg, matrix, vb, vx);
  MPI_Barrier(MPI_COMM_WORLD);
  f.solve = bench::wall_seconds() - ready;
  f.setup = ready - start;
  const double megabytes = memory.megabytes();
  MPI_Reduce(&megabytes, &f.megabytes, 1, MPI_DOUBLE, MPI_SUM, 0, MPI_COMM_WORLD);
  HYPRE_PCGGetNumIterations(pcg, &f.iterations);
  // r = b - A x, by its own product.
  HYPRE_ParCSRMatrixMatvec(-1.0, matrix, vx, 1.0, vb);
  double square = 0, scale = 0, local = 0;
  HYPRE_ParVectorInnerProd(vb, vb, &square);
  for (const double v : b) local += v * v;
  MPI_Allreduce(&local, &scale, 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  f.residual = std::sqrt(square / scale);
  if (rank == 0)
    std::printf("%g %g %g %g %g %d %d\n", f.setup, f.solve, f.megabytes, f.residual, f.complexity,
                f.iterations, f.levels);
  HYPRE_ParCSRPCGDestroy(pcg);
  HYPRE_BoomerAMGDestroy(amg);
  HYPRE_IJMatrixDestroy(ij);
  HYPRE_IJVectorDestroy(ijb);
  HYPRE_IJVectorDestroy(ijx);
  HYPRE_Finalize();
  MPI_Finalize();
  return 0;
}
