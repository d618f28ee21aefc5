// SPDX-License-Identifier: BSD-3-Clause
/// Newton's method in C++: a square plate in which heat is made the faster the hotter it is,
/// -Laplace(u) = 6 exp(u).  Every step factors new values on the pattern of the first analysis.
///
///   c++ -std=c++17 newton.cpp $(pkg-config --cflags --libs velmora)
#include <cmath>
#include <cstdio>
#include <velmora.hpp>

namespace {

constexpr int edge = 60, cells = edge * edge;
constexpr double spacing = 1.0 / (edge + 1), heating = 6;

/// Five-point Laplacian; the walls are at 0.
velm::Compressed<double> laplacian() {
  velm::Compressed<double> a{cells, {0}, {}, {}};
  const auto add = [&a](int column, double value) {
    a.index.push_back(column);
    a.value.push_back(value / (spacing * spacing));
  };
  for (int i = 0; i < cells; ++i) {
    const int x = i % edge, y = i / edge;
    if (y > 0) add(i - edge, -1);
    if (x > 0) add(i - 1, -1);
    add(i, 4);
    if (x < edge - 1) add(i + 1, -1);
    if (y < edge - 1) add(i + edge, -1);
    a.start.push_back(static_cast<int>(a.index.size()));
  }
  return a;
}

}  // namespace

int main() {
  const velm::Compressed<double> stiffness = laplacian();
  velm::Compressed<double> tangent = stiffness;
  std::vector<double> u(cells, 0.0), residual(cells);
  velm::Options options;
  options.threads = 1;
  velm::Solver<double> solver(options);
  solver.analyse(tangent);
  double size = 1;
  try {
    for (int step = 0; step < 12 && size > 1e-9; ++step) {
      size = 0;
      for (int i = 0; i < cells; ++i) {
        residual[i] = heating * std::exp(u[i]);
        for (int p = stiffness.start[i]; p < stiffness.start[i + 1]; ++p) {
          const int j = stiffness.index[p];
          residual[i] -= stiffness.value[p] * u[j];
          tangent.value[p] = stiffness.value[p] - (i == j ? heating * std::exp(u[i]) : 0);
        }
        size = std::max(size, std::abs(residual[i]));
      }
      solver.refactor(tangent);
      const std::vector<double> change = solver.solve(residual);
      for (int i = 0; i < cells; ++i) u[i] += change[i];
      std::printf("step %d: residual %.1e, centre %.6f, %d negative eigenvalues\n", step, size,
                  u[cells / 2 + edge / 2], solver.inertia().negative);
    }
  } catch (const velm::Error& error) {
    std::printf("%s\n", error.what());
    return 1;
  }
  return size < 1e-9 && solver.inertia().negative == 0 ? 0 : 1;
}
