// SPDX-License-Identifier: BSD-3-Clause
/// Heats a cube whose conductivity grows with its temperature: implicit time steps, each a new
/// matrix on the same pattern.  The factor of an earlier step is kept as long as that pays.
///
///   c++ -std=c++17 time_steps.cpp $(pkg-config --cflags --libs velmora)
#include <velmora.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

constexpr int edge = 22, cells = edge * edge * edge;  // the walls around are at temperature 0
constexpr double step_length = 2, heating = 1;

/// Upper triangle of the step's matrix, I / dt + K(T), indices from 1.
struct System {
  std::vector<int> ia, ja;
  std::vector<double> a;
};

double conductivity(double temperature) { return 1 + 0.02 * temperature; }

System assemble(const std::vector<double>& temperature) {
  System s;
  std::vector<double> diagonal(cells, 1 / step_length);
  const int stride[] = {1, edge, edge * edge};
  const auto place = [&](int i, int axis) { return i / stride[axis] % edge; };
  std::vector<std::vector<double>> links(cells, std::vector<double>(3, 0.0));
  for (int i = 0; i < cells; ++i)
    for (int axis = 0; axis < 3; ++axis) {
      if (place(i, axis) == 0) diagonal[i] += conductivity(temperature[i] / 2);
      if (place(i, axis) == edge - 1) {
        diagonal[i] += conductivity(temperature[i] / 2);
        continue;
      }
      const int j = i + stride[axis];
      const double k = conductivity((temperature[i] + temperature[j]) / 2);
      links[i][axis] = k;
      diagonal[i] += k;
      diagonal[j] += k;
    }
  for (int i = 0; i < cells; ++i) {
    s.ia.push_back(static_cast<int>(s.ja.size()) + 1);
    s.ja.push_back(i + 1);
    s.a.push_back(diagonal[i]);
    for (int axis = 0; axis < 3; ++axis) {
      if (links[i][axis] == 0) continue;
      s.ja.push_back(i + stride[axis] + 1);
      s.a.push_back(-links[i][axis]);
    }
  }
  s.ia.push_back(static_cast<int>(s.ja.size()) + 1);
  return s;
}

/// |b - A x| / |b|.
double residual(const System& s, const std::vector<double>& b, const std::vector<double>& x) {
  std::vector<double> r = b;
  for (int i = 0; i < cells; ++i)
    for (int p = s.ia[i] - 1; p < s.ia[i + 1] - 1; ++p) {
      const int j = s.ja[p] - 1;
      r[i] -= s.a[p] * x[j];
      if (j != i) r[j] -= s.a[p] * x[i];
    }
  double left = 0, size = 0;
  for (int i = 0; i < cells; ++i) {
    left += r[i] * r[i];
    size += b[i] * b[i];
  }
  return std::sqrt(left / size);
}

}  // namespace

int main() {
  std::array<void*, 64> pt{};
  std::array<int, 64> iparm{};
  std::array<double, 64> dparm{};
  const int one = 1, direct = 0, quiet = 0, mtype = 2;
  int error = 0, phase = 13;
  iparm[2] = 1;  // threads
  velmorainit(pt.data(), &mtype, &direct, iparm.data(), dparm.data(), &error);
  iparm[3] = 2;   // iparm(4): conjugate gradients with a kept factor, to 1e-12
  iparm[32] = 1;  // iparm(33): the determinant, which tells one factor from another
  double determinant = 0, worst = 0;
  std::vector<double> temperature(cells, 0.0), b(cells);
  for (int step = 1; step <= 12; ++step) {
    const System s = assemble(temperature);
    for (int i = 0; i < cells; ++i) b[i] = temperature[i] / step_length + heating;
    velmora(pt.data(), &one, &one, &mtype, &phase, &cells, s.a.data(), s.ia.data(), s.ja.data(),
            nullptr, &one, iparm.data(), &quiet, b.data(), temperature.data(), &error,
            dparm.data());
    if (error != 0) {
      std::printf("step %d: error %d\n", step, error);
      return 1;
    }
    const bool factored = dparm[32] != determinant;
    determinant = dparm[32];
    const double left = residual(s, b, temperature);
    worst = std::max(worst, left);
    std::printf("step %2d: %-12s %2d iterations, residual %.0e, centre %.2f\n", step,
                factored ? "new factor," : "kept factor,", iparm[19], left,
                temperature[cells / 2 + edge / 2 * (edge + 1)]);
    phase = 23;
  }
  phase = -1;
  velmora(pt.data(), &one, &one, &mtype, &phase, &cells, nullptr, nullptr, nullptr, nullptr, &one,
          iparm.data(), &quiet, nullptr, nullptr, &error, dparm.data());
  return worst < 1e-10 ? 0 : 1;
}
