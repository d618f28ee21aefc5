// SPDX-License-Identifier: BSD-3-Clause
/// Matrices with unsymmetric values or pattern, and the complex ones.
#include <algorithm>
#include <cmath>

#include "gallery.hpp"
#include "grid.hpp"

namespace gallery {

// --- unsymmetric ----------------------------------------------------------------------------

Matrix convection_diffusion(int g, double peclet, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  const bool complex = mtype == 13;
  const Grid grid = Grid::cube(g);
  Builder b(label(complex ? "complex_convection" : "convection_diffusion", g), mtype, grid.size());
  for (int i = 0; i < grid.size(); ++i)
    b.add(i, i, complex ? cplx(0.1, rng.uniform(0.1, 0.5)) : 0.1);
  for_faces(grid, [&](const Cell& c, int i, int j, int axis) {
    const double flux = peclet * wind(grid, c, axis);
    const double out = 1 + std::max(flux, 0.0), in = 1 + std::max(-flux, 0.0);
    b.add(i, i, out);
    b.add(j, j, in);
    const auto phase = [&] { return complex ? std::polar(1.0, rng.uniform(-0.4, 0.4)) : cplx(1); };
    if (!complex || rng.uniform() < 0.9) b.add(i, j, -in * phase());
    if (!complex || rng.uniform() < 0.9) b.add(j, i, -out * phase());
  });
  return b.finish();
}

Matrix cfd_blocks(int g, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::cube(g);
  const double unit[4] = {1, 1e3, 1e-2, 30};
  Builder b(label("cfd_blocks", g), 11, 4 * grid.size());
  for (int i = 0; i < grid.size(); ++i)
    for (int p = 0; p < 4; ++p)
      for (int q = 0; q < 4; ++q)
        b.add(4 * i + p, 4 * i + q,
              unit[p] * (p == q ? rng.uniform(1, 2) : rng.uniform(-0.3, 0.3)));
  for_faces(grid, [&](const Cell& c, int i, int j, int axis) {
    const double flux = 4 * wind(grid, c, axis);
    const double out = 0.2 + std::max(flux, 0.0), in = 0.2 + std::max(-flux, 0.0);
    for (int p = 0; p < 4; ++p) {
      b.add(4 * i + p, 4 * i + p, unit[p] * out);
      b.add(4 * j + p, 4 * j + p, unit[p] * in);
      b.add(4 * i + p, 4 * j + p, -unit[p] * in);
      b.add(4 * j + p, 4 * i + p, -unit[p] * out);
      const int q = (p + 1 + axis) % 4;  // each unknown is carried by one other
      if (q == p) continue;
      b.add(4 * i + p, 4 * j + q, unit[p] * rng.uniform(-0.1, 0.1));
      b.add(4 * j + p, 4 * i + q, unit[p] * rng.uniform(-0.1, 0.1));
    }
  });
  return b.finish();
}

Matrix circuit(int nodes, std::uint64_t seed) {
  Rng rng(seed);
  const int sources = nodes / 5;
  Builder b(label("circuit", nodes), 11, nodes + sources);
  for (int i = 0; i < nodes; ++i) b.add(i, i, rng.log10_uniform(-6, -3));  // leak to ground
  for (int i = 1; i < nodes; ++i) {
    // Mostly short wires, sometimes to one of the first nodes, which become hubs.
    b.edge(i, std::max(0, i - 1 - rng.below(8)), rng.log10_uniform(-6, 4));
    if (rng.uniform() < 0.5) b.edge(i, rng.below(i), rng.log10_uniform(-6, 4));
    if (rng.uniform() < 0.3 && i > 12) b.edge(i, rng.below(12), rng.log10_uniform(-6, 4));
    if (rng.uniform() < 0.2)  // current at i controlled by the voltage elsewhere
      b.add(i, rng.below(nodes), rng.log10_uniform(-6, -3));
  }
  for (int s = 0; s < sources; ++s) {
    const int from = 5 * s + rng.below(2), to = 5 * s + 2 + rng.below(3), current = nodes + s;
    b.add(from, current, 1);
    b.add(current, from, 1);
    b.add(to, current, -1);
    b.add(current, to, -1);
  }
  return b.finish();
}

Matrix badly_scaled(int n, double decades, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  const Matrix base = random_unsymmetric(n, 4, 1.0, seed + 1, mtype);
  std::vector<double> row(static_cast<std::size_t>(n)), column(static_cast<std::size_t>(n));
  for (double& r : row) r = rng.log10_uniform(-decades, decades);
  for (double& c : column) c = rng.log10_uniform(-decades, decades);
  const std::vector<int> move = rng.permutation(n);
  Builder b(label("badly_scaled", n), mtype, n);
  for (int i = 0; i < n; ++i)
    for (int k = base.ia[i] - 1; k < base.ia[i + 1] - 1; ++k) {
      const int j = move[base.ja[k] - 1] - 1;
      b.add(i, j, row[i] * column[j] * base.value(k));
    }
  return b.finish();
}

Matrix structurally_singular(int n, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("structurally_singular", n), mtype, n);
  const bool triangle = mtype % 2 == 0;
  const bool complex = b.complex();
  // Rows 0, 1, 2 meet columns n-2 and n-1 only (and the mirror image in a symmetric matrix).
  for (int i = 0; i < 3; ++i)
    for (int j = n - 2; j < n; ++j) b.add(i, j, rng.centred(complex));
  for (int i = 3; i < n; ++i) {
    b.add(i, i, 2.0 + rng.uniform());
    for (int k = 0; k < 3; ++k) {
      const int j = triangle ? 3 + rng.below(n - 3) : rng.below(n);
      if (j != i) b.add(i, j, 0.3 * rng.centred(complex));
    }
  }
  return b.finish();
}

Matrix random_unsymmetric(int n, int degree, double dominance, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("random_unsymmetric", n), mtype, n);
  for (int i = 0; i < n; ++i) {
    double sum = 0;
    for (int k = 0; k < degree && n > 1; ++k) {
      const int j = rng.below(n);
      if (j == i) continue;
      const cplx v = rng.centred(mtype == 13);
      b.add(i, j, v);
      sum += std::abs(v);
    }
    b.add(i, i, dominance * sum + rng.uniform(0.5, 1));
  }
  return b.finish();
}

// --- structurally symmetric and complex -----------------------------------------------------

Matrix structurally_symmetric(int g, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  const bool complex = mtype == 3;
  const Grid grid = Grid::cube(g);
  Builder b(label("structurally_symmetric", g), mtype, 2 * grid.size());
  for (int i = 0; i < grid.size(); ++i) {
    for (int s = 0; s < 2; ++s)
      b.add(2 * i + s, 2 * i + s, 0.5 + rng.uniform() + 0.3 * rng.centred(complex));
    b.add(2 * i, 2 * i + 1, 0.4 * rng.centred(complex));
    b.add(2 * i + 1, 2 * i, 0.4 * rng.centred(complex));
  }
  for_faces(grid, [&](const Cell&, int i, int j, int) {
    for (int s = 0; s < 2; ++s) {
      b.edge(2 * i + s, 2 * j + s, 1);
      b.add(2 * i + s, 2 * j + s, 0.8 * rng.centred(complex));
      b.add(2 * j + s, 2 * i + s, 0.8 * rng.centred(complex));
    }
  });
  return b.finish();
}

Matrix random_structurally_symmetric(int n, int degree, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("random_structsym", n), mtype, n);
  std::vector<double> sum(static_cast<std::size_t>(n), 0.0);
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < degree; k += 2) {  // each pair counts in two rows
      const int j = rng.below(n);
      if (j == i) continue;
      const cplx v = rng.centred(mtype == 3), w = rng.centred(mtype == 3);
      b.add(i, j, v);
      b.add(j, i, w);
      sum[i] += std::abs(v);
      sum[j] += std::abs(w);
    }
  for (int i = 0; i < n; ++i) b.add(i, i, sum[i] + rng.uniform(0.1, 1));
  return b.finish();
}

Matrix helmholtz(int g, double wavenumber, bool flat, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = flat ? Grid::square(g) : Grid::cube(g);
  Builder b(label(flat ? "helmholtz2d" : "helmholtz3d", g), 6, grid.size());
  for_cells(grid, [&](const Cell& c, int i) {
    const double k2 = wavenumber * wavenumber * rng.uniform(0.8, 1.2);
    int walls = (c.x == 0) + (c.x == g - 1) + (c.y == 0) + (c.y == g - 1);
    if (!flat) walls += (c.z == 0) + (c.z == g - 1);
    // First-order radiation condition: du/dn = i k u through every outer face.
    b.add(i, i, cplx(-k2, -walls * wavenumber));
  });
  for_faces(grid, [&](const Cell&, int i, int j, int) { b.edge(i, j, 1); });
  return b.finish();
}

Matrix magnetic_laplacian(int g, double shift, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::cube(g);
  Builder b(label(shift > 0 ? "magnetic_indefinite" : "magnetic_definite", g), shift > 0 ? -4 : 4,
            grid.size());
  for (int i = 0; i < grid.size(); ++i)
    b.add(i, i, 6 + (shift > 0 ? -shift * rng.uniform(0.8, 1.2) : 0.1 * rng.uniform()));
  for_faces(grid, [&](const Cell& c, int i, int j, int axis) {
    // Field along one axis in a Landau gauge, with disorder.
    const double theta = (axis == 1 ? 0.4 * c.x : 0.0) + rng.uniform(-0.2, 0.2);
    b.add(i, j, -std::polar(1.0, theta));
  });
  return shift > 0 ? b.finish() : definite(b.finish());
}

}  // namespace gallery
