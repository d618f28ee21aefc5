// SPDX-License-Identifier: BSD-3-Clause
// Preconditioners with the method that fits, on gallery matrices: fill, setup, iterations, solve.
//
//   precon_bench
//
// A solve goes from zero to a relative residual of 1e-8 as the method measures it; the last column
// is the one of the result, by a product.  1000 iterations are the limit.  Wall-clock seconds of
// one run each; set OMP_NUM_THREADS.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "gallery/gallery.hpp"
#include "norv.h"

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

void run(const char* matrix, smat* A, const char* method, const char* name) {
  precon* const M = precon_new_by_name(name);
  if (M == nullptr) return;
  const double start = seconds();
  const int ready = precon_setup(M, A);
  const double set_up = seconds();
  if (ready == 1) {
    vec *const b = vec_new(A->n), *const x = vec_new_zero(A->n);
    for (unsigned i = 0; i < A->n; ++i) b->v[i] = 1.0 + 0.3 * (i % 7);
    solver* const s = solver_new(method);
    solver_set_maxiter(s, 1000);
    solver_set_precon(s, M);
    const int count = solver_solve(s, A, x, b);
    const double solved = seconds();
    vec* const r = smat_calc_residual(nullptr, A, x, b);
    std::printf("| %s | %s | %s | %.1f | %.3f | %d%s | %.3f | %.1e |\n", matrix, method, name,
                static_cast<double>(M->nnz) / A->nnz, set_up - start, count,
                s->res < 1e-8 ? "" : " not", solved - set_up,
                vec_euclid_norm(r) / vec_euclid_norm(b));
    std::fflush(stdout);
    vec_release(r);
    vec_release(b);
    vec_release(x);
    solver_free(s);
  } else {
    std::printf("| %s | %s | %s | setup failed | | | | |\n", matrix, method, name);
  }
  precon_free(M, -1);
}

void table(const char* matrix, const gallery::Matrix& m, const char* method,
           const std::vector<const char*>& names) {
  smat* const A = as_smat(m);
  for (const char* name : names) run(matrix, A, method, name);
  smat_free(A);
}

}  // namespace

int main() {
  using namespace gallery;
  std::puts(
      "| matrix | method | preconditioner | fill | setup s | iterations | solve s | residual |");
  std::puts("|---|---|---|---|---|---|---|---|");
  table("poisson2d 150", poisson2d(150), "PCG", {"DUMMY", "DIAG", "SPAIONE", "ICHOL"});
  table("elasticity3d 12", elasticity3d(12, 1), "PCG", {"DIAG", "SPAIONE", "ICHOL"});
  table("shifted_laplacian 20", shifted_laplacian(20, 1.3, false, 3), "SQMR",
        {"DIAG", "ILDLT_BK", "MILDLT"});
  table("shifted_laplacian 20", shifted_laplacian(20, 1.3, false, 3), "MINRES", {"DUMMY"});
  table("stokes 40", stokes(40), "SQMR", {"CP_DIRECT", "AUGBLOCK", "MILDLT"});
  const Matrix wind = convection_diffusion(150, 2.0, 5);
  table("convection_diffusion 150", wind, "BICGSTAB",
        {"DIAG", "SOR", "SPAINDIAG", "SPAIONE", "ILU0", "ILUT", "ILUC", "BLOCKGS", "BLOCKLU"});
  table("convection_diffusion 150", wind, "GMRES", {"ILU0", "ILUC"});
  table("convection_diffusion 150", wind, "GMRESDR", {"ILU0"});
  table("convection_diffusion 150", wind, "QMR", {"ILU0", "ILUC"});
  const Matrix net = circuit(8000, 6);
  table("circuit 8000", net, "BICGSTAB", {"DIAG", "MPS_DIAG", "ILU0", "ILUT", "ILUC"});
  table("badly_scaled 20000", badly_scaled(20000, 3, 7), "BICGSTAB",
        {"DIAG", "MPS_DIAG", "ILU0", "ILUT", "ILUC"});
  return 0;
}
