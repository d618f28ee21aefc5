// SPDX-License-Identifier: BSD-3-Clause
// LU with free pivots against dense solves.
#include "numeric/free_lu.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "base/status.hpp"
#include "gallery.hpp"
#include "reference.hpp"

namespace vlm::test {
namespace {

struct Factored {
  FreeLu lu;
  int status = 0;

  explicit Factored(const Matrix& m, const Matching& matching = {}, double most = 1e9) {
    Rng rng(9);
    const std::vector<int> order = rng.permutation(m.n);
    status = lu.factor({.type = matrix_type(m.mtype),
                        .matrix = {m.n, m.ia.data(), m.ja.data(), m.a.data()},
                        .matching = matching,
                        .order = order.data(),
                        .most_operations = most});
  }
};

TEST(FreeLu, SolvesWithAndWithoutTranspose) {
  for (const int mtype : {11, 13})
    for (std::uint64_t seed = 1; seed <= 6; ++seed)
      for (const Matrix& m : {random_unsymmetric(150, 3, 0, seed, mtype),
                              badly_scaled(90, 8, seed, mtype), dense(40, seed, mtype)}) {
        SCOPED_TRACE(m.name + " " + std::to_string(mtype) + " seed " + std::to_string(seed));
        // Any rows and scalings give the same solution.
        Rng rng(seed);
        const std::vector<int> rows = rng.permutation(m.n);
        std::vector<double> scale(2 * static_cast<std::size_t>(m.n));
        for (double& s : scale) s = rng.log10_uniform(-1, 1);
        const bool singular = !(dense_condition(to_dense(m)) < HUGE_VAL);
        if (singular) continue;
        for (const Matching& matching : {Matching{}, Matching{rows.data(), scale.data()}}) {
          const Factored f(m, matching);
          ASSERT_EQ(f.status, status_ok);
          EXPECT_EQ(f.lu.perturbed(), 0);
          for (const bool transpose : {false, true}) {
            const auto b = random_vector(m, 2, seed);
            auto x = b;
            EXPECT_EQ(f.lu.solve(transpose, 2, x.data(), x.data()), status_ok);
            EXPECT_LE(normwise_error(m, x, b, 2, transpose), 1e-11) << transpose;
          }
        }
      }
}

TEST(FreeLu, CountsWhatIsSingularAndStopsInTime) {
  Matrix singular = random_unsymmetric(50, 3, 1, 3, 11);
  std::fill(singular.a.begin() + singular.ia[20] - 1, singular.a.begin() + singular.ia[21] - 1, 0);
  const Factored f(singular);
  ASSERT_EQ(f.status, status_ok);
  EXPECT_EQ(f.lu.perturbed(), 1);
  auto x = random_vector(singular, 1, 1);
  f.lu.solve(false, 1, x.data(), x.data());
  EXPECT_TRUE(std::all_of(x.begin(), x.end(), [](double v) { return std::isfinite(v); }));

  const Matrix m = dense(60, 1, 11);
  EXPECT_EQ(Factored(m, {}, 1000).status, status_work);
  Matrix bad = m;
  bad.a[70] = std::nan("");
  EXPECT_EQ(Factored(bad).status, status_pivot);
}

}  // namespace
}  // namespace vlm::test
