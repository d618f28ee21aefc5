// SPDX-License-Identifier: BSD-3-Clause
// Preconditioners with the method that fits, on gallery matrices: fill, setup, iterations, solve;
// and hypre's incomplete LU under its BiCGStab where Debian's libhypre-dev is installed.
//
//   precon_bench [MATRIX...]
//
// Matrices by the first word of their rows; all by default.  A solve goes from zero to a relative
// residual of 1e-8 as the method measures it; the last column is the one of the result, by a
// product.  1000 iterations are the limit.  MB is what the preconditioner holds after its setup, by
// the C library's count.  Wall-clock seconds, the run of least total of three;
// set OMP_NUM_THREADS, hypre runs on one thread.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "gallery/gallery.hpp"
#include "norv.h"
#include "precon_peer.hpp"

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

smat* as_smat(const gallery::Matrix& m) {
  std::vector<int> row;
  for (int i = 0; i < m.n; ++i)
    row.insert(row.end(), static_cast<std::size_t>(m.ia[i + 1] - m.ia[i]), i);
  std::vector<int> col(m.ja);
  for (int& j : col) --j;
  const auto n = static_cast<unsigned>(m.n);
  return smat_new_from_coord(n, n, static_cast<unsigned>(col.size()), row.data(), col.data(),
                             m.a.data(), (m.triangle() ? 1 : 0) + (m.complex() ? 2 : 0));
}

constexpr int repetitions = 3;

/// Memory of the heap in use.
double megabytes() {
  const struct mallinfo2 heap = mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd) / 1e6;
}

std::vector<std::string> wanted;  // matrices; empty: all

std::vector<double> right_hand_side(int n) {
  std::vector<double> b(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) b[static_cast<std::size_t>(i)] = 1.0 + 0.3 * (i % 7);
  return b;
}

/// What a run gave; fill and name as the table has them.
struct Row {
  double fill = 0, memory = 0, setup = 0, solve = 0, residual = 0;
  int iterations = 0;
  bool converged = false;
  double total() const { return setup + solve; }
};

void print(const char* matrix, const char* method, const char* name, const Row& r) {
  std::printf("| %s | %s | %s | ", matrix, method, name);
  r.fill > 0 ? std::printf("%.1f", r.fill) : std::printf("-");
  std::printf(" | ");
  r.fill > 0 ? std::printf("%.1f", r.memory) : std::printf("-");
  std::printf(" | %.4f | %d%s | %.4f | %.4f | %.1e |\n", r.setup, r.iterations,
              r.converged ? "" : " not", r.solve, r.total(), r.residual);
  std::fflush(stdout);
}

double relative_residual(smat* A, const vec* x, const vec* b) {
  vec* const r = smat_calc_residual(nullptr, A, x, b);
  const double relative = vec_euclid_norm(r) / vec_euclid_norm(b);
  vec_release(r);
  return relative;
}

/// @return false: the setup failed
bool run(smat* A, const char* method, const char* name, Row& row) {
  // "NAME", or "NAME d0=VALUE i9=VALUE" with some of its parameters.
  std::istringstream text(name);
  std::string word;
  text >> word;
  const double before = megabytes();
  precon* const M = precon_new_by_name(word.c_str());
  while (text >> word) {
    const std::size_t at = word.find('=');
    const int place = std::stoi(word.substr(1, at - 1));
    if (word[0] == 'd')
      M->dparam[place] = std::stod(word.substr(at + 1));
    else
      M->iparam[place] = std::stoi(word.substr(at + 1));
  }
  const double start = seconds();
  const bool ready = precon_setup(M, A) == 1;
  row.setup = seconds() - start;
  row.memory = megabytes() - before;
  if (ready) {
    std::vector<double> values = right_hand_side(static_cast<int>(A->n));
    vec *const b = vec_new_from(A->n, values.data()), *const x = vec_new_zero(A->n);
    solver* const s = solver_new(method);
    solver_set_maxiter(s, 1000);
    solver_set_precon(s, M);
    const double between = seconds();
    row.iterations = solver_solve(s, A, x, b);
    row.solve = seconds() - between;
    row.converged = s->res < 1e-8;
    row.fill = static_cast<double>(M->nnz) / A->nnz;
    row.residual = relative_residual(A, x, b);
    vec_release(x);
    std::free(b);  // the values are ours
    solver_free(s);
  }
  precon_free(M, -1);
  return ready;
}

void run_and_print(const char* matrix, smat* A, const char* method, const char* name) {
  Row best;
  for (int k = 0; k < repetitions; ++k) {
    Row row;
    if (!run(A, method, name, row)) {
      std::printf("| %s | %s | %s | setup failed | | | | | | |\n", matrix, method, name);
      return;
    }
    if (k == 0 || row.total() < best.total()) best = row;
  }
  print(matrix, method, name, best);
}

bool is_wanted(const std::string& matrix) {
  const std::string word = matrix.substr(0, matrix.find(' '));
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), word) != wanted.end();
}

void table(const char* matrix, const gallery::Matrix& m, const char* method,
           const std::vector<const char*>& names) {
  if (!is_wanted(matrix)) return;
  smat* const A = as_smat(m);
  for (const char* name : names) run_and_print(matrix, A, method, name);
  smat_free(A);
}

/// hypre's incomplete LU.
void peer_rows(const char* matrix, const gallery::Matrix& m) {
  if (!is_wanted(matrix) || !bench::has_peer()) return;
  smat* const A = as_smat(m);
  for (const auto& [drop, name] :
       {std::pair{0.0, "hypre ILU(0)"}, std::pair{0.01, "hypre ILUT, 0.01"},
        std::pair{1e-4, "hypre ILUT, 1e-4"}, std::pair{1e-6, "hypre ILUT, 1e-6"}}) {
    Row best;
    for (int k = 0; k < repetitions; ++k) {
      std::vector<double> b = right_hand_side(m.n), x(b.size(), 0.0);
      const bench::PeerFigures f = bench::run_peer(drop, m, 1e-8, b, x);
      vec *const vx = vec_new_from(A->n, x.data()), *const vb = vec_new_from(A->n, b.data());
      Row row;
      row.setup = f.setup;
      row.solve = f.solve;
      row.iterations = f.iterations;
      row.residual = relative_residual(A, vx, vb);
      row.converged = row.residual < 1.1e-8;
      std::free(vx);
      std::free(vb);
      if (k == 0 || row.total() < best.total()) best = row;
    }
    print(matrix, "BICGSTAB", name, best);
  }
  smat_free(A);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace gallery;
  wanted.assign(argv + 1, argv + argc);
  std::puts(
      "| matrix | method | preconditioner | fill | MB | setup s | iterations | solve s | total s | "
      "residual "
      "|");
  std::puts("|---|---|---|---|---|---|---|---|---|---|");
  const Matrix grid = poisson2d(150), body = elasticity3d(12, 1);
  table("poisson2d 150", grid, "PCG",
        {"DUMMY", "DIAG", "SPAIONE", "XFSAI", "MFSAI", "ICHOL", "PARILDLT", "LU"});
  table("poisson2d 150", expanded(grid), "PCG", {"AMG", "SMAGGR i0=1", "AML"});
  table("elasticity3d 12", body, "PCG",
        {"DIAG", "SPAIONE", "XFSAI", "MFSAI", "ICHOL", "PARILDLT", "LU"});
  table("elasticity3d 12", expanded(body), "PCG", {"AMG i0=3", "SMAGGR i0=3 i2=1000"});
  table("shifted_laplacian 20", shifted_laplacian(20, 0.4, false, 3), "SQMR",
        {"DIAG", "ILDLT_SP", "ILDLT_BK", "PARILDLT", "MILDLT", "LU"});
  table("shifted_laplacian 20", shifted_laplacian(20, 0.4, false, 3), "MINRES", {"DUMMY", "DIAG"});
  table("stokes 40", stokes(40), "SQMR",
        {"CP_DIRECT", "AUGBLOCK", "MFSAI", "ILDLT_SP", "MILDLT", "LU"});
  const Matrix wind = convection_diffusion(40, 2.0, 5);
  table("convection_diffusion 40", wind, "BICGSTAB",
        {"DIAG", "SOR", "SPAINDIAG", "SPAIONE", "ILU0", "ILUT", "ILUT d0=0.01", "ILUC",
         "ILUC d0=0.05", "BLOCKGS", "BLOCKLU", "LU"});
  peer_rows("convection_diffusion 40", wind);
  table("convection_diffusion 40", wind, "GMRES", {"ILU0", "ILUC"});
  table("convection_diffusion 40", wind, "GMRESDR", {"ILU0"});
  table("convection_diffusion 40", wind, "QMR", {"ILU0", "ILUC"});
  const Matrix net = circuit(8000, 6);
  table("circuit 8000", net, "BICGSTAB",
        {"DIAG", "MPS_DIAG", "ILU0", "ILUT", "ILUT d0=1e-6", "ILUC", "ILUC d0=1e-4", "ILUC d0=1e-5",
         "ILUC d0=1e-5 i9=2", "LU"});
  peer_rows("circuit 8000", net);
  table("badly_scaled 20000", badly_scaled(20000, 3, 7), "BICGSTAB",
        {"DIAG", "MPS_DIAG", "ILU0", "ILUT", "ILUC", "LU"});
  return 0;
}
