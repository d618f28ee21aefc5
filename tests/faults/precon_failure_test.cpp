// SPDX-License-Identifier: BSD-3-Clause
// Multigrid on behalf of a caller who wants errors, with one allocation after the other failing: a
// fault, nothing lost, and the next call works.
#include <gtest/gtest.h>

#include "../NORV/multilevel/multigrid_support.hpp"
#include "allocations.hpp"
#include "norv_log.hpp"

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

/// An instance with several levels.
precon* create(const std::string& name) {
  if (name != "AML") {
    precon* const M = precon_new_by_name(name.c_str());
    M->iparam[0] = 1;
    M->iparam[2] = 20;
    return M;
  }
  precon* const M = precon_aml_create_param(4, 10, 1, 1);
  M->iparam[4] = 2;  // Gauss-Seidel
  return M;
}

TEST(MultigridFailure, EveryAllocationFailsOnce) {
  NorvLog log(0);
  setenv("OMP_NUM_THREADS", "1", 0);
  RandomContainers random(3);
  for (const Matrix& m : {poisson2d(12), helmholtz(11, 0.5, true, 6)})
    for (const char* name : {"AML", "AMG", "SMAGGR"}) {
      SCOPED_TRACE(m.name + name);
      const Smat A = full(m);
      const Vec b = random.vector(A->m, A->is_complex), x = zeros(A->m, A->is_complex),
                y = zeros(A->m, A->is_complex);
      int failures = 0;
      bool more = true;
      {
        const Precon once(create(name));  // what is made once is there
        precon_setup(once.get(), A.get());
        precon_solve(x.get(), once.get(), b.get());
      }
      for (int k = 1; more; ++k) {  // a setup from nothing
        const long long before = allocations::live();
        {
          Ledger ledger;
          precon* M = nullptr;
          const bool failed = fails(ledger, k, more, [&] {
            M = create(name);
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
      EXPECT_GT(failures, 40);
      // Another setup, and a solve, of an instance that stays.
      Ledger ledger;
      precon* M = nullptr;
      {
        const CallScope scope(ledger, 0, 1);
        M = create(name);
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
}

}  // namespace
}  // namespace vlm::test
