// SPDX-License-Identifier: BSD-3-Clause
/// Factorizations that the machine has no memory for are refused before they begin.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>
#include <velmora.hpp>

#include "gallery.hpp"

namespace vlm::test {
namespace {

std::string last_message() {
  char text[1024];
  velmora_last_message(text, sizeof text);
  return text;
}

TEST(MemoryLeft, TooMuchIsRefusedWithBothFigures) {
  long long left = -1;
  EXPECT_EQ(velmora_require_memory(1, &left), 0);
  if (left == 0) GTEST_SKIP() << "the system does not tell";
  EXPECT_GT(left, 1000);
  EXPECT_EQ(last_message(), "");
  EXPECT_EQ(velmora_require_memory(1LL << 42, &left), -2);
  EXPECT_NE(last_message().find("needs 4194304.0 GB"), std::string::npos) << last_message();
  EXPECT_NE(last_message().find(" left"), std::string::npos);
  EXPECT_EQ(velmora_require_memory(1, nullptr), 0);
  EXPECT_EQ(last_message(), "");
}

#ifndef VELMORA_SANITIZED  // whose shadow memory no limit leaves room for
TEST(MemoryLeft, SolversRefuseAndWorkAgain) {
  const Matrix m = gallery::poisson3d(40);
  velm::Options options;
  options.kind = velm::Kind::positive_definite;
  velm::Solver<double> solver(options);
  const auto view = velm::rows(m.ia, m.ja, m.a);
  solver.analyse(view);
  ASSERT_GT(solver.figures().factor_kb, 40000);
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
  long long left = 0;
  velmora_require_memory(1, &left);
  rlimit tight = before;
  std::FILE* const file = std::fopen("/proc/self/statm", "r");
  ASSERT_NE(file, nullptr);
  long long pages = 0;
  ASSERT_EQ(std::fscanf(file, "%lld", &pages), 1);
  std::fclose(file);
  tight.rlim_cur = static_cast<rlim_t>(pages * 4096 + (20LL << 20));
  ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
  int code = 0;
  std::string message;
  try {
    solver.factor();
  } catch (const velm::Error& error) {
    code = error.code();
    message = error.message();
  }
  ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
  EXPECT_EQ(code, -2);
  EXPECT_NE(message.find("the machine has"), std::string::npos) << message;
  solver.factor();
  EXPECT_EQ(solver.solve(std::vector<double>(m.n, 1.0)).size(), static_cast<std::size_t>(m.n));
}
#endif

}  // namespace
}  // namespace vlm::test
