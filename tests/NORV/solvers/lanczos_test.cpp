// SPDX-License-Identifier: BSD-3-Clause
// How MINRES and SYMMLQ end; the shifted system.
#include <gtest/gtest.h>

#include <cmath>

#include "norv/krylov.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

// ---- MINRES and SYMMLQ ------------------------------------------------------------------

std::string end_of(const char* name, smat* A, const vec* b, precon* M, double epsilon = 1e-10,
                   int maxiter = 200) {
  NorvLog log(1);
  const Vec x = zeros(A->m, A->is_complex);
  const Solver s(solver_new(name));
  solver_set_precon(s.get(), M);
  solver_set_epsilon(s.get(), epsilon);
  solver_set_maxiter(s.get(), maxiter);
  solver_solve(s.get(), A, x.get(), b);
  const std::string text = log.take(), key = std::string(" ") + name + ": ";
  const std::size_t at = text.find(key);
  if (at == std::string::npos) return text;
  return text.substr(at + key.size(), text.find('\n', at) - at - key.size());
}

TEST(Lanczos, TellsHowItEnds) {
  const Smat A = to_smat(shifted_laplacian(6, 0.9, true, 5));
  const Vec b = filled(A->m, false, 13), zero = zeros(A->m, false);
  const Smat unsymmetric = to_smat(convection_diffusion(6, 3.0, 7));
  const Vec b2 = filled(unsymmetric->m, false, 14);
  const Smat symmetric_not_hermitian = to_smat(helmholtz(5, 1.0, true, 6));
  const Vec b3 = filled(symmetric_not_hermitian->m, true, 15);
  precon lower{}, negative{};
  lower.apply = [](vec* y, precon*, const vec* x) {
    for (unsigned i = 0; i < x->n; ++i) y->v[i] = x->v[i] + (i > 0 ? x->v[i - 1] : 0);
    return y;
  };
  negative.apply = [](vec* y, precon*, const vec* x) { return vec_copy_scaled(-1.0, y, x); };
  std::vector<int> index(20);
  std::iota(index.begin(), index.end(), 0);
  const std::vector<double> threes(20, 3.0);
  const Smat multiple(
      smat_new_from_coord(20, 20, 20, index.data(), index.data(), threes.data(), 1));
  const Vec b4 = filled(20, false, 16);
  for (const char* name : {"MINRES", "SYMMLQ"}) {
    SCOPED_TRACE(name);
    const bool minres = name[0] == 'M';
    EXPECT_EQ(end_of(name, A.get(), b.get(), nullptr),
              "Requested accuracy achieved, as determined by rtol.");
    EXPECT_EQ(end_of(name, A.get(), zero.get(), nullptr),
              "beta1 = 0.  The exact solution is  x = 0.");
    EXPECT_EQ(end_of(name, multiple.get(), b4.get(), nullptr),
              "beta2 = 0.  If M = I, b and x are eigenvectors of A.");
    EXPECT_EQ(end_of(name, A.get(), b.get(), nullptr, 0.0),
              "Reasonable accuracy achieved, given eps.");
    EXPECT_EQ(end_of(name, A.get(), b.get(), nullptr, 1e-10, 3),
              "The iteration limit was reached.");
    const char* const not_symmetric =
        minres ? "A does not define a symmetric matrix." : "A is not a symmetric matrix.";
    EXPECT_EQ(end_of(name, unsymmetric.get(), b2.get(), nullptr), not_symmetric);
    EXPECT_EQ(end_of(name, symmetric_not_hermitian.get(), b3.get(), nullptr), not_symmetric);
    EXPECT_EQ(end_of(name, A.get(), b.get(), &lower),
              minres ? "M does not define a symmetric matrix." : "M is not a symmetric matrix.");
    EXPECT_EQ(end_of(name, A.get(), b.get(), &negative),
              minres ? "M does not define a pos-def preconditioner."
                     : "M is not a pos-def preconditioner.");
    // Nothing is solved, and the record says so.
    const Solver s(solver_new(name));
    const Vec x = zeros(A->m, false);
    solver_set_precon(s.get(), &negative);
    solver_solve(s.get(), A.get(), x.get(), b.get());
    EXPECT_NEAR(s->res, 1.0, 1e-12);
  }
}

TEST(Symmlq, SolvesTheShiftedSystem) {
  const Smat A = to_smat(poisson2d(8)), shifted(smat_copy(A.get()));
  smat_add_diag(shifted.get(), -1.3);
  const Vec b = filled(64, false, 17), x = zeros(64, false);
  EXPECT_LT(solve_symmlq_shift(1e-11, 1.3, A.get(), x.get(), b.get(), nullptr, 300, nullptr), 300);
  EXPECT_LT(residual_by_rows(shifted.get(), x.get(), b.get()), 1e-10);
}

}  // namespace
}  // namespace vlm::test
