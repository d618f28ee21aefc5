// SPDX-License-Identifier: BSD-3-Clause
// Bounds on the error (iparm(40) 2) beside the error itself.
//
//   accuracy_bench_bounds FILE ...      Matrix Market files, as velmora_bench takes them
//
// Each matrix is solved plainly and with iparm(42) 1, in double and, where there is one, in single
// precision; a symmetric one also as type 11 or 13.  The exact solution is the one of iparm(42) 1,
// refined with residuals in quadruple precision until its corrections are below 1e-22, or end to
// contract; corrections above 1e-17 leave a matrix out, which is then too near to a singular one.
// Last line: runs with a bound, bounds below the error, beyond 10 and beyond 100 times the error.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <type_traits>
#include <vector>

#include "problem.hpp"
#include "velmora.h"

namespace {

#ifdef __SIZEOF_FLOAT128__
__extension__ typedef __float128 quad;
#else
using quad = long double;
#endif

struct Solver {
  explicit Solver(const bench::Matrix& matrix) : m(matrix) {
    int solver = 0;
    iparm[2] = 1;
    velmorainit(pt.data(), &m.mtype, &solver, iparm.data(), dparm.data(), &error);
  }
  ~Solver() {
    std::vector<double> none(1);
    run(-1, none, none);
  }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  void run(int phase, std::vector<double>& b, std::vector<double>& x) {
    int one = 1, quiet = 0;
    velmora(pt.data(), &one, &one, &m.mtype, &phase, &m.n, m.a.data(), m.ia.data(), m.ja.data(),
            nullptr, &one, iparm.data(), &quiet, b.data(), x.data(), &error, dparm.data());
  }

  const bench::Matrix& m;
  std::array<void*, 64> pt{};
  std::array<int, 64> iparm{};
  std::array<double, 64> dparm{};
  int error = 0;
};

/// b - A x; complex values are two entries.
std::vector<quad> residual(const bench::Matrix& m, const std::vector<double>& b,
                           const std::vector<quad>& x) {
  std::vector<quad> r(b.begin(), b.end());
  const bool complex = m.complex();
  const auto subtract = [&](std::size_t i, std::size_t j, double re, double im) {
    if (!complex) {
      r[i] -= re * x[j];
      return;
    }
    r[2 * i] -= re * x[2 * j] - im * x[2 * j + 1];
    r[2 * i + 1] -= re * x[2 * j + 1] + im * x[2 * j];
  };
  for (int row = 0; row < m.n; ++row)
    for (int k = m.ia[row] - 1; k < m.ia[row + 1] - 1; ++k) {
      const auto i = static_cast<std::size_t>(row), j = static_cast<std::size_t>(m.ja[k] - 1);
      const gallery::cplx a = m.value(k);
      subtract(i, j, a.real(), a.imag());
      if (m.triangle() && i != j) subtract(j, i, a.real(), m.hermitian() ? -a.imag() : a.imag());
    }
  return r;
}

template <class T>
double largest(const bench::Matrix& m, const std::vector<T>& v) {
  const auto part = [&](std::size_t k) { return static_cast<double>(v[k]); };
  double size = 0;
  for (std::size_t k = 0; k < v.size(); k += static_cast<std::size_t>(m.nvals()))
    size = std::max(size, m.complex() ? std::hypot(part(k), part(k + 1)) : std::abs(part(k)));
  return size;
}

/// The solution to some 20 digits, empty where there is none.
std::vector<quad> exact_solution(const bench::Matrix& m, std::vector<double> b) {
  Solver solver(m);
  solver.iparm[41] = 1;
  std::vector<double> x(b.size()), step(b.size()), r(b.size());
  solver.run(13, b, x);
  if (solver.error != 0) return {};
  std::vector<quad> exact(x.begin(), x.end());
  double left = std::numeric_limits<double>::infinity();
  for (int k = 0; k < 30 && left > 1e-22; ++k) {
    const std::vector<quad> wide = residual(m, b, exact);
    const double size = largest(m, wide);
    if (size == 0) return exact;
    std::transform(wide.begin(), wide.end(), r.begin(),
                   [&](quad v) { return static_cast<double>(v / size); });
    solver.run(33, r, step);
    const double now = largest(m, step) * size / largest(m, exact);
    if (!(now < left / 2)) break;
    left = now;
    for (std::size_t i = 0; i < exact.size(); ++i) exact[i] += static_cast<quad>(step[i]) * size;
  }
  if (!(left < 1e-17)) exact.clear();
  return exact;
}

struct Count {
  int runs = 0, below = 0, beyond_10 = 0, beyond_100 = 0;
};

void measure(const bench::Problem& problem, Count& count) {
  const bench::Matrix& m = problem.matrix;
  gallery::Rng rng(7);
  std::vector<double> b(static_cast<std::size_t>(m.n) * static_cast<std::size_t>(m.nvals()));
  for (double& v : b) v = rng.uniform(-1, 1);
  const std::vector<quad> exact = exact_solution(m, b);
  if (exact.empty())
    return void(std::printf("| %s | %d | | | left out |\n", problem.name.c_str(), m.mtype));
  const bool has_single = m.mtype == 1 || m.mtype == -2 || m.mtype == 11;
  for (const int climbs : {0, 1})
    for (int single = 0; single <= static_cast<int>(has_single); ++single) {
      Solver solver(m);
      solver.iparm[39] = 2;
      solver.iparm[41] = climbs;
      solver.iparm[28] = single;
      std::vector<double> x(b.size()), rhs = b;
      solver.run(13, rhs, x);
      const int verdict = solver.iparm[40];
      if (verdict != 0 && verdict != 1) continue;
      std::vector<quad> off(x.begin(), x.end());
      for (std::size_t i = 0; i < off.size(); ++i) off[i] -= exact[i];
      const double error = largest(m, off) / largest(m, x), bound = solver.dparm[42];
      ++count.runs;
      count.below += bound < error;
      count.beyond_10 += bound > 10 * error;
      count.beyond_100 += bound > 100 * error;
      std::printf("| %s | %d | %s%s | %.1e | %.1e | %.2f |\n", problem.name.c_str(), m.mtype,
                  climbs != 0 ? "climbs" : "plain", single != 0 ? ", single" : "", bound, error,
                  bound / error);
    }
}

}  // namespace

int main(int argc, char** argv) try {
  Count count;
  std::printf("| matrix | type | solve | bound | error | quotient |\n|---|---|---|---|---|---|\n");
  for (int k = 1; k < argc; ++k) {
    const bench::Problem problem = bench::load(argv[k], 0);
    measure(problem, count);
    if (problem.matrix.triangle())
      measure(bench::load(argv[k], problem.matrix.complex() ? 13 : 11), count);
  }
  std::printf("\n%d bounds, %d below the error, %d beyond 10 times, %d beyond 100 times\n",
              count.runs, count.below, count.beyond_10, count.beyond_100);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "accuracy_bench_bounds: %s\n", error.what());
  return 1;
}
