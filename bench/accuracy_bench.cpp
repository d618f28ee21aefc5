// SPDX-License-Identifier: BSD-3-Clause
// What a solve costs that tells its accuracy, and one that goes on until it is good, beside the
// plain solve with the same factor.
//
//   accuracy_bench [PROBLEM ...]      classes and files as velmora_bench takes them
//
// Seconds are processor time of one thread, the least of nine solves; the four kinds of solve take
// turns.  A second table is of systems that the defaults do not solve: seconds of the first solve
// that goes on, with its factorizations, and of the next one, which finds them there.
#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <vector>

#include "problem.hpp"
#include "velmora.h"

namespace {

struct Handle {
  explicit Handle(const bench::Matrix& matrix, bool hard) : m(matrix) {
    int solver = 0;
    iparm[2] = 1;
    velmorainit(pt.data(), &m.mtype, &solver, iparm.data(), dparm.data(), &error);
    if (hard) iparm[10] = 1, iparm[12] = 2, iparm[20] = 1;
    const auto length = static_cast<std::size_t>(m.n) * static_cast<std::size_t>(m.nvals());
    for (std::size_t k = 0; k < length; ++k) b.push_back(1 + static_cast<double>(k % 7));
    x.resize(length);
  }
  ~Handle() { run(-1); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  /// Processor time of a phase.
  double run(int phase) {
    int one = 1, quiet = 0;
    const std::clock_t start = std::clock();
    velmora(pt.data(), &one, &one, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(), m.ja.data(),
            nullptr, &one, iparm.data(), &quiet, b.data(), x.data(), &error, dparm.data());
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  }
  double solve(int level, int ladder) {
    iparm[39] = level;
    iparm[41] = ladder;
    return run(33);
  }

  const bench::Matrix& m;
  std::array<void*, 64> pt{};
  std::array<int, 64> iparm{};
  std::array<double, 64> dparm{};
  std::vector<double> b, x;
  int error = 0;
};

void print_costs(const std::string& spec) {
  const bench::Problem problem = bench::load(spec, 0);
  Handle handle(problem.matrix, problem.hard);
  handle.run(12);
  if (handle.error != 0) {
    std::printf("| %s | error %d |\n", problem.name.c_str(), handle.error);
    return;
  }
  constexpr int kinds[][2] = {{0, 0}, {1, 0}, {2, 0}, {0, 1}};
  double least[] = {1e30, 1e30, 1e30, 1e30};
  for (int repeat = 0; repeat < 9; ++repeat)
    for (int k = 0; k < 4; ++k)
      least[k] = std::min(least[k], handle.solve(kinds[k][0], kinds[k][1]));
  std::printf("| %s | %.4f | %.2f | %.2f | %.2f | %d | %d |\n", problem.name.c_str(), least[0],
              least[1] / least[0], least[2] / least[0], least[3] / least[0], handle.iparm[41 - 1],
              handle.iparm[43 - 1]);
}

/// [D A^T; A 0] with D over 18 orders of magnitude.
bench::Matrix barrier(int n, std::uint64_t seed) {
  gallery::Rng rng(seed);
  const int variables = n * 7 / 10;
  gallery::Builder builder("barrier", -2, n);
  for (int i = 0; i < variables; ++i) builder.add(i, i, rng.log10_uniform(-9, 9));
  for (int k = 0; k + variables < n; ++k) {
    builder.add(k, variables + k, rng.uniform(0.5, 1));
    for (int entry = 0; entry < 2; ++entry)
      builder.add(n - variables + rng.below(2 * variables - n), variables + k, rng.uniform(-1, 1));
  }
  return builder.finish();
}

void print_climb(const std::string& name, const bench::Matrix& matrix) {
  Handle handle(matrix, false);
  const double factor = handle.run(12), plain = handle.solve(1, 0), error = handle.dparm[41 - 1];
  const double first = handle.solve(2, 1), second = handle.solve(2, 1);
  std::printf("| %s | %d | %.4f | %.4f | %.0e | %.4f | %.4f | %.0e | %d | %d |\n", name.c_str(),
              matrix.n, factor, plain, error, first, second, handle.dparm[41 - 1],
              handle.iparm[41 - 1], handle.iparm[43 - 1]);
}

}  // namespace

int main(int argc, char** argv) try {
  std::vector<std::string> specs(argv + 1, argv + argc);
  if (specs.empty())
    specs = {"poisson2d:medium", "poisson3d:medium", "elasticity:medium", "convdiff:medium",
             "kkt:small"};
  std::printf(
      "| problem | solve | `iparm(40)` 1 | `iparm(40)` 2 | `iparm(42)` 1 | verdict | rung |\n"
      "|---|---|---|---|---|---|---|\n");
  for (const std::string& spec : specs) print_costs(spec);
  std::printf(
      "\n| problem | n | analysis and factor | solve | error | first climb | next solve | "
      "error | verdict | rung |\n|---|---|---|---|---|---|---|---|---|---|\n");
  print_climb("barrier", barrier(2000, 1));
  print_climb("barrier", barrier(20000, 1));
  print_climb("interior point", gallery::interior_point_kkt(40, 16, 1));
  print_climb("Stokes, defaults", gallery::stokes(60));
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "accuracy_bench: %s\n", error.what());
  return 1;
}
