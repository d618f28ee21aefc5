// SPDX-License-Identifier: BSD-3-Clause
// Every preconditioner and every method on behalf of a caller who wants errors, with one allocation
// after the other failing: a fault, nothing lost, and the next call works.
#include <gtest/gtest.h>

#include <cstdlib>

#include "NORV/corelib/faults.hpp"
#include "allocations.hpp"
#include "norv/classes.h"
#include "norv/krylov.h"
#include "norv/multilevel.h"
#include "norv_log.hpp"
#include "norv_objects.hpp"

namespace vlm::test {
namespace {

/// Runs f as a call of its own with the k-th allocation failing.  @return whether it failed
template <class F>
bool fails(Ledger& ledger, int k, bool& more, const F& f) {
  bool failed = false;
  allocations::arm(k);
  try {
    const CallScope scope(ledger, 0, 1);
    f();
  } catch (const Fault& fault) {
    failed = true;
    EXPECT_TRUE(fault.kind == FaultKind::memory ||
                (fault.kind == FaultKind::direct && fault.code == -2))
        << fault.text;
  }
  more = allocations::disarm().happened;
  if (failed) ledger.release_call();
  return failed;
}

/// An instance with parameters that reach all of its code on a small matrix.
precon* create(const std::string& name, const smat* A) {
  if (name == "AML") {
    precon* const M = precon_aml_create_param(4, 10, 1, 1);
    M->iparam[4] = 2;  // Gauss-Seidel
    return M;
  }
  precon* const M = precon_new_by_name(name.c_str());
  if (name == "AMG" || name == "SMAGGR") {
    M->iparam[0] = 1;
    M->iparam[2] = 20;
  }
  if (name == "SCHILDERS")
    M->iparam[0] = static_cast<int>(A->m) - static_cast<int>(smat_guess_constraint_size(A));
  return M;
}

/// Each allocation of a setup, of another one and of a solve.
void survive(const std::string& name, const Smat& A) {
  RandomContainers random(3);
  const Vec b = random.vector(A->m, A->is_complex), x = zeros(A->m, A->is_complex),
            y = zeros(A->m, A->is_complex);
  int failures = 0;
  bool more = true;
  {
    const Precon once(create(name, A.get()));  // what is made once is there
    precon_setup(once.get(), A.get());
    precon_solve(x.get(), once.get(), b.get());
  }
  for (int k = 1; more; ++k) {  // a setup from nothing
    const long long before = allocations::live();
    {
      Ledger ledger;
      precon* M = nullptr;
      const bool failed = fails(ledger, k, more, [&] {
        M = create(name, A.get());
        precon_setup(M, A.get());
      });
      failures += failed;
      if (!failed) {
        const CallScope scope(ledger, 0, 1);
        precon_free(M, -1);
      }
      ASSERT_EQ(ledger.blocks(), 0U) << "allocation " << k;
    }
    ASSERT_EQ(allocations::live(), before) << "allocation " << k;
  }
  EXPECT_GT(failures, 0);
  // Another setup, and a solve, of an instance that stays.
  Ledger ledger;
  precon* M = nullptr;
  {
    const CallScope scope(ledger, 0, 1);
    M = create(name, A.get());
    precon_setup(M, A.get());
    precon_solve(x.get(), M, b.get());
  }
  more = true;
  for (int k = 1; more; ++k) {
    bool unused = false;
    if (fails(ledger, k, more, [&] { precon_setup(M, A.get()); })) {
      ASSERT_FALSE(fails(ledger, 0, unused, [&] { precon_setup(M, A.get()); }));
    }
    ASSERT_FALSE(fails(ledger, 0, unused, [&] { precon_solve(y.get(), M, b.get()); }));
    ASSERT_TRUE(vec_equal(x.get(), y.get())) << "allocation " << k;
  }
  more = true;
  for (int k = 1; more; ++k) {
    bool unused = false;
    if (fails(ledger, k, more, [&] { precon_solve(y.get(), M, b.get()); })) {
      ASSERT_FALSE(fails(ledger, 0, unused, [&] { precon_solve(y.get(), M, b.get()); }));
    }
    ASSERT_TRUE(vec_equal(x.get(), y.get())) << "allocation " << k;
  }
  const CallScope scope(ledger, 0, 1);
  precon_free(M, -1);
}

class EveryPrecon : public testing::TestWithParam<const char*> {};

TEST_P(EveryPrecon, SurvivesEachFailedAllocation) {
  NorvLog log(0);
  setenv("OMP_NUM_THREADS", "1", 0);
  const std::string name = GetParam();
  const bool multigrid = name == "AML" || name == "AMG" || name == "SMAGGR";
  const bool saddle = name == "CP_DIRECT" || name == "SCHILDERS" || name == "AUGBLOCK";
  const bool full =
      multigrid || name == "SOR" || name.substr(0, 3) == "ILU" || name.substr(0, 5) == "BLOCK";
  std::vector<Matrix> matrices;
  if (saddle)
    matrices = {stokes(4)};
  else if (multigrid)
    matrices = {poisson2d(12), helmholtz(11, 0.5, true, 6)};
  else
    matrices = {poisson2d(7), helmholtz(6, 0.5, true, 6)};
  if (name.substr(0, 3) == "ILU") matrices.push_back(circuit(30, 3));  // matched, ordered
  for (const Matrix& m : matrices) {
    SCOPED_TRACE(m.name);
    survive(name, to_smat(full ? expanded(m) : m));
  }
}
INSTANTIATE_TEST_SUITE_P(Failure, EveryPrecon,
                         testing::Values("DUMMY", "XFSAI", "MFSAI", "AUGBLOCK", "CP_DIRECT",
                                         "SPAINDIAG", "SPAIONE", "ILUT", "ILU0", "ILUC", "LU",
                                         "DIAG", "SOR", "AML", "AMG", "BLOCKLU", "BLOCKGS", "ICHOL",
                                         "PARILDLT", "ILDLT_CP", "ILDLT_SP", "ILDLT_WS", "ILDLT_BK",
                                         "ILDLT", "MILDLT", "SCHILDERS", "SMAGGR", "MPS_DIAG"),
                         [](const auto& each) { return std::string(each.param); });

class EveryMethod : public testing::TestWithParam<const char*> {};

TEST_P(EveryMethod, SurvivesEachFailedAllocation) {
  NorvLog log(0);
  const std::string name = GetParam();
  const Smat A = to_smat(expanded(poisson2d(8)));
  const Precon M = prepared("DIAG", A.get());
  const Vec b = filled(A->m, false, 5), expected = zeros(A->m, false), x = zeros(A->m, false);
  const auto solve = [&](vec* to) {
    vec_clear(to);
    if (name == "LSQR") {
      lsqr(A.get(), to, b.get(), 0, 0, 1e-10, 1e-10, 0, 200);
      return;
    }
    solver* const s = solver_new(name.c_str());
    solver_set_residual_history(s);
    solver_set_precon(s, M.get());
    solver_solve(s, A.get(), to, b.get());
    solver_free(s);
  };
  solve(expected.get());
  EXPECT_LT(residual_by_rows(A.get(), expected.get(), b.get()), 1e-5);
  int failures = 0;
  bool more = true;
  for (int k = 1; more; ++k) {
    const long long before = allocations::live();
    {
      Ledger ledger;
      const bool failed = fails(ledger, k, more, [&] { solve(x.get()); });
      failures += failed;
      if (!failed) {
        EXPECT_TRUE(vec_equal(expected.get(), x.get()));
      }
      ASSERT_EQ(ledger.blocks(), 0U) << "allocation " << k;
    }
    ASSERT_EQ(allocations::live(), before) << "allocation " << k;
  }
  EXPECT_GT(failures, 2);
}
INSTANTIATE_TEST_SUITE_P(Failure, EveryMethod,
                         testing::Values("GS", "BICGSTAB", "QMR", "SQMR", "PCG", "PCG2", "GMRES",
                                         "GMRESDR", "SYMMLQ", "MINRES", "LSQR"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
}  // namespace vlm::test
