// SPDX-License-Identifier: BSD-3-Clause
// Multigrid as a preconditioner of conjugate gradients: time, memory and iterations to 1e-8, beside
// BoomerAMG where Debian's libhypre-dev is installed.
//
//   amg_bench [-t threads] [-r runs] [-s SOLVER,...] [PROBLEM:EDGE...]
//
// Of several runs the fastest counts.
// Problems: poisson2d, poisson3d, elasticity (block size 3, SMAGGR with rigid body modes), of
// EDGE^2 or EDGE^3 nodes.  Solvers: AMG, SMAGGR, HYPRE; all by default.  Each runs in a process of
// its own; the peer, amg_bench_peer, has one MPI process for each thread.  Seconds are wall clock;
// memory is the growth of the peak of the resident set above the problem's arrays.  The residual is
// recomputed from the problem.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "amg_problem.hpp"
#include "norv.h"

namespace {

using bench::GridSystem;
using bench::MultigridFigures;

constexpr double tolerance = 1e-8;
constexpr int maxiter = 200;

/// Conjugate gradients; the iterations.
int solve(smat* A, vec* x, const vec* b, precon* M) {
  const double norm_b = vec_euclid_norm(b);
  vec *const r = vec_copy(nullptr, b), *const z = vec_new(b->n), *const p = vec_new(b->n),
             *const q = vec_new(b->n);
  vec_clear(x);
  double rho = 0;
  int k = 0;
  while (k < maxiter && !(vec_euclid_norm(r) < tolerance * norm_b)) {
    precon_solve(z, M, r);
    const double before = rho;
    rho = vec_dot(r, z);
    if (k == 0)
      vec_copy(p, z);
    else
      vec_axpby(1.0, rho / before, p, z, p);
    smat_vecmul(q, A, p);
    const double alpha = rho / vec_dot(p, q);
    vec_axpy(alpha, x, p, x);
    vec_axpy(-alpha, r, q, r);
    ++k;
  }
  for (vec* v : {r, z, p, q}) vec_release(v);
  return k;
}

MultigridFigures measure(const std::string& spec, const std::string& solver) {
  GridSystem s = bench::grid_system(spec);
  const unsigned n = unsigned(s.n);
  smat* const A = smat_new_from(n, n, s.ia.data(), s.ja.data(), s.a.data(), NORV_REAL_UNSYM, 0);
  vec* const b = vec_new_from(n, s.b.data());
  std::vector<double> solution(s.b.size());
  vec* const x = vec_new_from(n, solution.data());
  std::vector<double> modes;
  if (!s.coordinates.empty() && solver == "SMAGGR") {
    modes.resize(6 * s.b.size());
    norv_rigid_body_modes(3, n / 3, s.coordinates.data(), modes.data());
  }
  MultigridFigures f;
  {
    const bench::PeakGrowth memory;
    precon* const M = precon_new_by_name(solver.c_str());
    M->iparam[0] = s.block_size;
    if (!modes.empty()) precon_smaggr_set_modes(M, n, 6, modes.data());
    const double start = bench::wall_seconds();
    if (precon_setup(M, A) == 0) std::exit(1);
    const double ready = bench::wall_seconds();
    f.iterations = solve(A, x, b, M);
    f.setup = ready - start;
    f.solve = bench::wall_seconds() - ready;
    f.megabytes = memory.megabytes();
    f.complexity = double(M->nnz) / A->nnz;
    precon_free(M, -1);
  }
  vec* const r = smat_calc_residual(nullptr, A, x, b);
  f.residual = vec_euclid_norm(r) / vec_euclid_norm(b);
  return f;
}

/// The same in a process of its own.
bool measure_apart(const std::string& spec, const std::string& solver, int threads,
                   MultigridFigures& f) {
  int ends[2];
  if (pipe(ends) != 0) return false;
  const pid_t child = fork();
  if (child == 0) {
    const std::string count = std::to_string(threads);
    dup2(ends[1], 1);
    setenv("OMP_NUM_THREADS", count.c_str(), 1);
    execl("/proc/self/exe", "amg_bench", "--one", spec.c_str(), solver.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  const bool done = read(ends[0], &f, sizeof f) == sizeof f;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return done;
}

/// The peer's figures, which it prints in a line of their order.
bool measure_peer(const std::string& directory, const std::string& spec, int threads,
                  MultigridFigures& f) {
  const std::string program = directory + "/amg_bench_peer";
  if (access(program.c_str(), X_OK) != 0) return false;
  const std::string launch =
      threads > 1 ? "mpirun --allow-run-as-root -np " + std::to_string(threads) + " " : "";
  std::FILE* const pipe =
      popen(("OMP_NUM_THREADS=1 " + launch + program + " " + spec + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return false;
  const int read = std::fscanf(pipe, "%lf %lf %lf %lf %lf %d %d", &f.setup, &f.solve, &f.megabytes,
                               &f.residual, &f.complexity, &f.iterations, &f.levels);
  return pclose(pipe) == 0 && read == 7;
}

/// The fastest of several runs.
template <class Measure>
bool fastest(int runs, MultigridFigures& best, const Measure& measure) {
  for (int run = 0; run < runs; ++run) {
    MultigridFigures f;
    if (!measure(f)) return false;
    if (run == 0 || f.setup + f.solve < best.setup + best.solve) best = f;
  }
  return runs > 0;
}

void print_row(const std::string& spec, const std::string& solver, const MultigridFigures& f,
               const MultigridFigures* peer) {
  const int digits = f.setup + f.solve < 1 ? 4 : 2;
  std::printf("| %s | %s | %.*f | %.*f | %.*f | %d | %.0f | ", spec.c_str(), solver.c_str(), digits,
              f.setup + f.solve, digits, f.setup, digits, f.solve, f.iterations, f.megabytes);
  f.complexity > 0 ? std::printf("%.2f", f.complexity) : std::printf("-");
  std::printf(" | %.1e |", f.residual);
  if (peer != nullptr && peer != &f)
    std::printf(" %.2f | %.2f |\n", (f.setup + f.solve) / (peer->setup + peer->solve),
                f.megabytes / peer->megabytes);
  else
    std::printf(" | |\n");
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::strcmp(argv[1], "--one") == 0) {
    const MultigridFigures f = measure(argv[2], argv[3]);
    return write(1, &f, sizeof f) == sizeof f ? 0 : 1;
  }
  int threads = 1, runs = 1;
  std::string solvers = "AMG,SMAGGR,HYPRE";
  std::vector<std::string> problems;
  for (int k = 1; k < argc; ++k) {
    if (std::strcmp(argv[k], "-t") == 0 && k + 1 < argc)
      threads = std::atoi(argv[++k]);
    else if (std::strcmp(argv[k], "-r") == 0 && k + 1 < argc)
      runs = std::atoi(argv[++k]);
    else if (std::strcmp(argv[k], "-s") == 0 && k + 1 < argc)
      solvers = argv[++k];
    else
      problems.push_back(argv[k]);
  }
  if (problems.empty())
    problems = {"poisson2d:100", "poisson2d:316", "poisson2d:1000", "poisson3d:22",
                "poisson3d:46",  "poisson3d:100", "elasticity:15",  "elasticity:32"};
  const std::string self = argv[0];
  const std::string directory =
      self.find('/') == std::string::npos ? "." : self.substr(0, self.rfind('/'));
  std::printf(
      "%d thread%s\n\n| problem | solver | total s | setup | solve | iterations | MB | entries "
      "of all levels / first | residual | time / hypre | MB / hypre |\n"
      "|---|---|---|---|---|---|---|---|---|---|---|\n",
      threads, threads == 1 ? "" : "s");
  for (const std::string& spec : problems) {
    MultigridFigures peer;
    const bool has_peer =
        solvers.find("HYPRE") != std::string::npos && fastest(runs, peer, [&](MultigridFigures& f) {
          return measure_peer(directory, spec, threads, f);
        });
    if (has_peer) print_row(spec, "hypre", peer, &peer);
    for (const char* each : {"AMG", "SMAGGR"}) {
      if ((',' + solvers + ',').find(',' + std::string(each) + ',') == std::string::npos) continue;
      MultigridFigures f;
      if (fastest(runs, f,
                  [&](MultigridFigures& run) { return measure_apart(spec, each, threads, run); }))
        print_row(spec, each, f, has_peer ? &peer : nullptr);
      else
        std::printf("| %s | %s | failed | | | | | | | | |\n", spec.c_str(), each);
    }
  }
  return 0;
}
