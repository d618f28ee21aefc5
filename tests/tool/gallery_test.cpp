// SPDX-License-Identifier: BSD-3-Clause
// The generated matrices are what the other tests take them for.
#include "gallery.hpp"

#include <gtest/gtest.h>

#include "reference.hpp"

namespace vlm::test {
namespace {

void expect_storage(const Matrix& m) {
  ASSERT_EQ(m.ia.size(), static_cast<std::size_t>(m.n) + 1);
  ASSERT_EQ(m.a.size(), m.ja.size() * m.nvals());
  for (int i = 1; i <= m.n; ++i) {
    if (m.triangle()) {
      ASSERT_EQ(m.ja[m.ia[i - 1] - 1], i);
    }
    for (int k = m.ia[i - 1]; k + 1 < m.ia[i]; ++k) ASSERT_LT(m.ja[k - 1], m.ja[k]);
  }
}

TEST(Gallery, WellConditionedMatricesAreWellFormedAndWellConditioned) {
  for (const int mtype : all_mtypes)
    for (const Matrix& m : well_conditioned(mtype)) {
      SCOPED_TRACE(m.name + " type " + std::to_string(mtype));
      ASSERT_EQ(m.mtype, mtype);
      expect_storage(m);
      EXPECT_LT(dense_condition(to_dense(m)), 1e6);
    }
}

TEST(Gallery, KnownInertiaIsLapacks) {
  for (const Matrix& m :
       {poisson2d(8), poisson3d(4), elasticity3d(3, 1), plate(7, 2), random_spd(90, 5, 3),
        saddle_point(4, 4), interior_point_kkt(8, 4, 5), magnetic_laplacian(4, 0, 6)}) {
    SCOPED_TRACE(m.name);
    ASSERT_GE(m.positive, 0);
    EXPECT_EQ(dense_inertia(to_dense(m)), (Inertia{m.positive, m.negative}));
  }
}

}  // namespace
}  // namespace vlm::test
