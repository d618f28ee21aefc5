// SPDX-License-Identifier: BSD-3-Clause
// Which residuals count as rounding: products of known vectors, and single entries that are off.
#include "solve/rounding_level.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "gallery.hpp"
#include "reference.hpp"

namespace {

using vlm::test::Matrix;

TEST(RoundingLevel, OneEntryThatIsOffIsFound) {
  for (const int mtype : vlm::test::all_mtypes)
    for (const int blocks : {1, 6000})  // the many are worth a team
      for (const bool transpose : {false, true}) {
        const Matrix m = vlm::test::block_diagonal(blocks, 12, 3, mtype);
        if (transpose && m.triangle()) continue;
        for (const int nrhs : blocks == 1 ? std::vector{1, 2, 4, 6, 9} : std::vector{1, 6})
          for (const int threads : {1, 3}) {
            SCOPED_TRACE(m.name + " type " + std::to_string(mtype) + " nrhs " +
                         std::to_string(nrhs) + " threads " + std::to_string(threads));
            const vlm::SparseProduct product{
                {m.n, m.ia.data(), m.ja.data(), m.a.data()}, mtype, transpose, threads};
            std::vector<double> x = vlm::test::random_vector(m, nrhs, 5), b(x.size());
            std::vector<double> work(vlm::amuxy_work_bytes(m.n, mtype, transpose, threads) /
                                     sizeof(double));
            vlm::amuxy_velmora(product, nrhs, x.data(), b.data(), work.data());
            // Exactly the promised room, so that a sanitizer sees a step beyond it.
            std::vector<double> room(vlm::rounding_room(m.n, m.nvals(), nrhs, threads), NAN);
            const auto passes = [&] {
              return vlm::at_rounding_level(product, nrhs, x.data(), b.data(), room.data());
            };
            EXPECT_TRUE(passes());
            // The last column, one right-hand side.
            double& entry = b[b.size() - 1 - x.size() / static_cast<std::size_t>(3 * nrhs)];
            for (const double wrong : {entry * (1 + 1e-9) + 1e-9, double(NAN)}) {
              const double right = entry;
              entry = wrong;
              EXPECT_FALSE(passes());
              entry = right;
            }
            std::fill(x.begin(), x.end(), 0.0);
            EXPECT_FALSE(passes());
            std::fill(b.begin(), b.end(), 0.0);
            EXPECT_TRUE(passes());
          }
      }
}

}  // namespace
