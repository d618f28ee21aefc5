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

// A group that passes keeps its residuals to itself until another one fails.
TEST(RoundingLevel, LeavesTheResidualsOfAllColumns) {
  for (const int mtype : vlm::test::all_mtypes)
    for (const bool transpose : {false, true})
      for (const int threads : {1, 3})
        for (const int nrhs : {1, 2, 5, 16, 37}) {
          const Matrix m = vlm::test::block_diagonal(200, 12, 3, mtype);
          if (transpose && m.triangle()) continue;
          SCOPED_TRACE("type " + std::to_string(mtype) + " nrhs " + std::to_string(nrhs) +
                       " threads " + std::to_string(threads));
          const vlm::SparseProduct product{
              {m.n, m.ia.data(), m.ja.data(), m.a.data()}, mtype, transpose, threads};
          const std::vector<double> x = vlm::test::random_vector(m, nrhs, 5);
          std::vector<double> b(x.size()), expected(x.size()), found(x.size(), NAN);
          std::vector<double> work(vlm::amuxy_work_bytes(m.n, mtype, transpose, threads) /
                                   sizeof(double));
          std::vector<double> room(vlm::rounding_room(m.n, m.nvals(), nrhs, threads), NAN);
          std::vector<double> norm(static_cast<std::size_t>(nrhs), NAN);
          vlm::amuxy_velmora(product, nrhs, x.data(), b.data(), work.data());
          const std::size_t column = b.size() / static_cast<std::size_t>(nrhs);
          const int wrong = nrhs / 2;
          b[column * static_cast<std::size_t>(wrong) + column / 3] += 0.5;
          EXPECT_FALSE(vlm::at_rounding_level(product, nrhs, x.data(), b.data(), room.data(),
                                              {found.data(), norm.data()}));
          vlm::amuxy_res_velmora(product, nrhs, x.data(), b.data(), expected.data(), work.data());
          double most = 0;
          for (std::size_t k = 0; k < x.size(); ++k)
            most = std::fmax(most, std::abs(found[k] - expected[k]));
          EXPECT_LT(most, 1e-12);
          EXPECT_EQ(std::count_if(found.begin(), found.end(), [](double v) { return v != v; }), 0);
          for (int k = 0; k < nrhs; ++k)
            EXPECT_NEAR(norm[static_cast<std::size_t>(k)], k == wrong ? 0.5 : 0, 1e-9) << k;
        }
}

}  // namespace
