// SPDX-License-Identifier: BSD-3-Clause
// A factor of more than 2^31 entries: analysed, made, told and solved with.
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "gallery.hpp"
#include "session.hpp"

namespace vlm::test {
namespace {

/// Bytes of memory that processes can still have.
std::uint64_t free_memory() {
  struct sysinfo info {};
  sysinfo(&info);
  return (info.freeram + info.bufferram) * std::uint64_t{info.mem_unit};
}

/// Blocks of order `order`, each an arrow that is eliminated from its hub on: its factor is full.
Matrix arrows(int blocks, int order) {
  Matrix m;
  m.name = "arrows";
  m.mtype = -2;
  m.n = blocks * order;
  m.ia.reserve(static_cast<std::size_t>(m.n) + 1);
  for (int node = 1; node <= m.n; ++node) {
    m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
    m.ja.push_back(node);
    m.a.push_back(node % 3 == 0 ? -4.0 : 4.0);
    if ((node - 1) % order != 0) continue;
    for (int k = 1; k < order; ++k) {
      m.ja.push_back(node + k);
      m.a.push_back(1.0 / (node % 7 + k));
    }
  }
  m.ia.push_back(static_cast<int>(m.ja.size()) + 1);
  return m;
}

TEST(LargeFactor, MoreThanTwoToThe31Entries) {
#if defined(VELMORA_SANITIZED) || defined(VELMORA_EMULATED)
  GTEST_SKIP() << "shadow memory, or an emulator's pace";
#endif
  constexpr int blocks = 336000, order = 80;
  constexpr std::int64_t entries = std::int64_t{order} * order * blocks;
  static_assert(entries > std::int64_t{1} << 31);
  if (free_memory() < std::uint64_t{15} << 30) GTEST_SKIP() << "needs 15 GB";
  const Matrix m = arrows(blocks, order);
  Session s(m, 2);
  s.perm.resize(static_cast<std::size_t>(m.n));
  std::iota(s.perm.begin(), s.perm.end(), 1);
  s.iparm(5) = 1;   // hubs first
  s.iparm(8) = 3;   // refinement brings the precision that single lacks
  s.iparm(29) = 1;  // single precision: half the memory
  ASSERT_EQ(s.run(12), 0);
  EXPECT_NEAR(s.iparm(18), -entries / 1000, 0.001 * entries / 1000);
  EXPECT_EQ(s.iparm(22) + s.iparm(23), m.n);
  EXPECT_GT(s.iparm(17), entries / 1024 * 4);

  std::vector<double> x(static_cast<std::size_t>(m.n)), b(x.size(), 0.0);
  Rng rng(5);
  for (double& value : x) value = rng.uniform(-1, 1);
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      b[i] += m.a[p] * x[j];
      if (j != i) b[j] += m.a[p] * x[i];
    }
  const std::vector<double> found = s.solve(b);
  ASSERT_EQ(s.error, 0);
  double worst = 0;
  for (std::size_t k = 0; k < x.size(); ++k) worst = std::max(worst, std::abs(found[k] - x[k]));
  EXPECT_LE(worst, 1e-12);
}

}  // namespace
}  // namespace vlm::test
