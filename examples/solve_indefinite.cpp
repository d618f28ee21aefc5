// SPDX-License-Identifier: BSD-3-Clause
/// Solves a symmetric indefinite system in C++: a small saddle point problem, with its inertia.
///
///   c++ -std=c++17 solve_indefinite.cpp $(pkg-config --cflags --libs velmora)
#include <velmora.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <vector>

namespace {

/// A handle that releases its memory, with the calls that a program repeats.
class Solver {
 public:
  Solver(int mtype, int n, std::vector<int> ia, std::vector<int> ja)
      : mtype_(mtype), n_(n), ia_(std::move(ia)), ja_(std::move(ja)) {
    const int direct = 0;
    int error = 0;
    velmorainit(pt_.data(), &mtype_, &direct, iparm.data(), dparm.data(), &error);
  }
  ~Solver() { call(-1, nullptr, nullptr, nullptr); }
  Solver(const Solver&) = delete;
  Solver& operator=(const Solver&) = delete;

  int analyse_and_factor(const std::vector<double>& a) {
    return call(12, a.data(), nullptr, nullptr);
  }
  int solve(const std::vector<double>& a, std::vector<double>& b, std::vector<double>& x) {
    return call(33, a.data(), b.data(), x.data());
  }

  std::array<int, 64> iparm{};
  std::array<double, 64> dparm{};

 private:
  int call(int phase, const double* a, double* b, double* x) {
    const int one = 1, quiet = 0;
    int error = 0;
    velmora(pt_.data(), &one, &one, &mtype_, &phase, &n_, a, ia_.data(), ja_.data(), nullptr, &one,
            iparm.data(), &quiet, b, x, &error, dparm.data());
    return error;
  }

  std::array<void*, 64> pt_{};
  int mtype_, n_;
  std::vector<int> ia_, ja_;
};

}  // namespace

int main() {
  // [ 2  0  1 ]       The upper triangle with its whole diagonal, also where it is zero:
  // [ 0  3  1 ]       a multiplier's row has a zero there.  Indices count from 1.
  // [ 1  1  0 ]
  const std::vector<int> ia = {1, 3, 5, 6}, ja = {1, 3, 2, 3, 3};
  const std::vector<double> a = {2, 1, 3, 1, 0};
  std::vector<double> b = {4, 5, 2}, x(3);

  Solver solver(-2, 3, ia, ja);
  solver.iparm[2] = 1;   // threads
  solver.iparm[20] = 1;  // Bunch-Kaufman pivots, because of the zero on the diagonal
  if (const int error = solver.analyse_and_factor(a)) {
    std::cerr << "factorization: error " << error << '\n';
    return 1;
  }
  if (const int error = solver.solve(a, b, x)) {
    std::cerr << "solution: error " << error << '\n';
    return 1;
  }
  const double residual =
      std::max({std::abs(b[0] - 2 * x[0] - x[2]), std::abs(b[1] - 3 * x[1] - x[2]),
                std::abs(b[2] - x[0] - x[1])});
  std::cout << "x = " << x[0] << ", " << x[1] << "; multiplier " << x[2] << "\nresidual "
            << residual << "; inertia " << solver.iparm[21] << " positive, " << solver.iparm[22]
            << " negative\n";
  const bool good = residual < 1e-13 && solver.iparm[21] == 2 && solver.iparm[22] == 1;
  return good ? 0 : 1;
}
