// SPDX-License-Identifier: BSD-3-Clause
// The scaling of an old factor: found where a matrix is the old one between diagonal matrices, and
// nowhere else.
#include "solve/rescale.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "gallery.hpp"
#include "matrices.hpp"

namespace vlm::test {
namespace {

/// m with its entries (i,j) multiplied.
Matrix multiplied(const Matrix& m, const std::function<double(int, int)>& factor) {
  Matrix out = m;
  for (int i = 1; i <= m.n; ++i)
    for (int p = m.ia[i - 1]; p < m.ia[i]; ++p)
      for (int part = 0; part < m.nvals(); ++part)
        out.a[static_cast<std::size_t>((p - 1) * m.nvals() + part)] *= factor(i, m.ja[p - 1]);
  return out;
}

TEST(Rescale, FindsTheScalingThatThereIs) {
  for (const int mtype : {2, 4}) {
    const Matrix m = random_spd(60, 4, 3, mtype);
    RowSizes sizes;
    std::vector<double> scale(2 * static_cast<std::size_t>(m.n));
    const auto view = [](const Matrix& of) {
      return InputMatrix{of.n, of.ia.data(), of.ja.data(), of.a.data()};
    };
    sizes.measure(view(m), matrix_type(mtype));
    const auto found = [&](const Matrix& now) {
      return sizes.rescale(view(now), matrix_type(mtype), scale.data());
    };
    const auto s = [&](int i) { return 1 + 0.3 * std::sin(6.0 * i / m.n); };
    ASSERT_TRUE(found(multiplied(m, [&](int i, int j) { return s(i) * s(j); })));
    for (int i = 1; i <= m.n; ++i)
      for (const int half : {0, m.n})
        EXPECT_NEAR(scale[static_cast<std::size_t>(half + i - 1)] * s(i), 1, 1e-14);
    // Nearly one, where random perturbations are small beside it.
    EXPECT_TRUE(found(multiplied(
        m, [&](int i, int j) { return s(i) * s(j) * (1 + 1e-3 * std::sin(7.0 * (i + j))); })));
    // The same matrix, other couplings, a shift, and a diagonal that is none of such a matrix.
    EXPECT_FALSE(found(m));
    EXPECT_FALSE(found(multiplied(m, [](int i, int j) { return i == j ? 1 : 0.9; })));
    EXPECT_FALSE(found(multiplied(m, [](int i, int j) { return i == j ? 1.2 : 1; })));
    for (const double bad : {0.0, -1.0, HUGE_VAL, static_cast<double>(NAN)})
      EXPECT_FALSE(found(multiplied(m, [=](int i, int j) { return i == 7 && j == 7 ? bad : 2; })));
  }
}

}  // namespace
}  // namespace vlm::test
