// SPDX-License-Identifier: BSD-3-Clause
/// Real symmetric matrices, definite and indefinite, and those that exist in every symmetric type.
#include <cmath>
#include <utility>

#include "gallery.hpp"
#include "grid.hpp"

namespace gallery {
namespace {

/// Laplacian with Dirichlet boundary: the number of possible neighbours on the diagonal.
Matrix poisson(const Grid& g, std::string name) {
  Builder b(std::move(name), 2, g.size());
  for (int i = 0; i < g.size(); ++i) b.add(i, i, g.nz > 1 ? 6 : 4);
  for_faces(g, [&](const Cell&, int i, int j, int) { b.add(i, j, -1); });
  return definite(b.finish());
}

}  // namespace

// --- real symmetric positive definite -------------------------------------------------------

Matrix poisson2d(int g) { return poisson(Grid::square(g), label("poisson2d", g)); }
Matrix poisson3d(int g) { return poisson(Grid::cube(g), label("poisson3d", g)); }

Matrix elasticity3d(int g, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::cube(g);
  Builder b(label("elasticity3d", g), 2, 3 * grid.size());
  // One bar between nodes i and j (j < 0: a fixed point): stiffness w d d^T, d the unit direction.
  const auto bar = [&](int i, int j, const int* d, double w) {
    const double length2 = d[0] * d[0] + d[1] * d[1] + d[2] * d[2];
    for (int p = 0; p < 3; ++p)
      for (int q = 0; q < 3; ++q) {
        const double k = w * d[p] * d[q] / length2;
        if (p <= q) b.add(3 * i + p, 3 * i + q, k);
        if (j < 0) continue;
        if (p <= q) b.add(3 * j + p, 3 * j + q, k);
        b.add(3 * i + p, 3 * j + q, -k);
      }
  };
  for_cells(grid, [&](const Cell& c, int i) {
    const double stiffness = rng.log10_uniform(-1, 1);
    for (int code = 14; code < 27; ++code) {  // the 13 neighbours that follow in lexical order
      const int d[3] = {code % 3 - 1, code / 3 % 3 - 1, code / 9 - 1};
      const int x = c.x + d[0], y = c.y + d[1], z = c.z + d[2];
      if (x < 0 || x >= g || y < 0 || y >= g || z >= g) continue;
      bar(i, grid.at(x, y, z), d, stiffness);
    }
    if (c.z == 0)
      for (int p = 0; p < 3; ++p) {
        const int d[3] = {p == 0, p == 1, p == 2};
        bar(i, -1, d, stiffness);
      }
  });
  return definite(b.finish());
}

Matrix plate(int g, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::square(g);
  Builder b(label("plate", g), 2, grid.size());
  for_cells(grid, [&](const Cell& c, int i) {
    // Row of L at this node, then its outer product.
    int node[5] = {i};
    double weight[5] = {4, -1, -1, -1, -1};
    int count = 1;
    if (c.x > 0) node[count++] = i - 1;
    if (c.x + 1 < g) node[count++] = i + 1;
    if (c.y > 0) node[count++] = i - g;
    if (c.y + 1 < g) node[count++] = i + g;
    const double d = rng.uniform(0.5, 2);
    for (int p = 0; p < count; ++p)
      for (int q = 0; q < count; ++q)
        if (node[p] <= node[q]) b.add(node[p], node[q], d * weight[p] * weight[q]);
  });
  return definite(b.finish());
}

Matrix random_spd(int n, int degree, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("random_spd", n), mtype, n);
  std::vector<double> sum(static_cast<std::size_t>(n), 0.0);
  for (int i = 0; i < n && n > 1; ++i)
    for (int k = 0; k < degree; k += 2) {  // each entry counts in two rows
      const int j = rng.below(n);
      if (j == i) continue;
      const cplx v = rng.centred(mtype == 4);
      b.add(i, j, v);
      sum[i] += std::abs(v);
      sum[j] += std::abs(v);
    }
  for (int i = 0; i < n; ++i) b.add(i, i, sum[i] + rng.uniform(0.1, 1));
  return definite(b.finish());
}

// --- real symmetric indefinite --------------------------------------------------------------

Matrix shifted_laplacian(int g, double shift, bool flat, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = flat ? Grid::square(g) : Grid::cube(g);
  Builder b(label(flat ? "shifted2d" : "shifted3d", g), -2, grid.size());
  for (int i = 0; i < grid.size(); ++i) b.add(i, i, (flat ? 4 : 6) - shift * rng.uniform(0.7, 1.3));
  for_faces(grid, [&](const Cell&, int i, int j, int) { b.add(i, j, -1); });
  return b.finish();
}

Matrix saddle_point(int g, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::cube(g);
  // Interior faces, and for every cell and axis the face behind it (-1 at the wall).
  std::vector<int> face(3 * static_cast<std::size_t>(grid.size()), -1);
  int faces = 0;
  for_faces(grid, [&](const Cell&, int i, int, int axis) { face[3 * i + axis] = faces++; });
  // The constant pressure is removed by leaving out the last cell's.
  const int pressures = grid.size() - 1;
  Builder b(label("saddle_point", g), -2, faces + pressures);
  const int step[3] = {1, g, g * g};
  for_cells(grid, [&](const Cell& c, int i) {
    const double resistance = rng.log10_uniform(-1, 1);
    const int position[3] = {c.x, c.y, c.z};
    for (int axis = 0; axis < 3; ++axis) {
      const int ahead = face[3 * i + axis];
      const int behind = position[axis] > 0 ? face[3 * (i - step[axis]) + axis] : -1;
      // Lowest-order mixed elements: the fluxes through opposite faces of a cell are coupled.
      if (ahead >= 0) b.add(ahead, ahead, resistance / 3);
      if (behind >= 0) b.add(behind, behind, resistance / 3);
      if (ahead >= 0 && behind >= 0) b.add(ahead, behind, resistance / 6);
      if (i == pressures) continue;
      if (ahead >= 0) b.add(ahead, faces + i, 1);
      if (behind >= 0) b.add(behind, faces + i, -1);
    }
  });
  Matrix m = b.finish();
  m.positive = faces;
  m.negative = pressures;
  return m;
}

Matrix stokes(int g) {
  // Velocities on the inner faces of a g by g grid of cells, pressures in the cells.
  const int across = g * (g - 1), n = 2 * across + g * g;
  Builder builder("stokes_" + std::to_string(g), -2, n);
  const double h = 1.0 / g;
  const auto u = [g](int i, int j) { return j * (g - 1) + i; };
  const auto v = [g, across](int i, int j) { return across + j * g + i; };
  const auto p = [g, across](int i, int j) { return 2 * across + j * g + i; };
  const auto viscosity = [&](int width, int height, const auto& at) {
    for (int j = 0; j < height; ++j)
      for (int i = 0; i < width; ++i) {
        builder.add(at(i, j), at(i, j), 4);
        if (i + 1 < width) builder.add(at(i, j), at(i + 1, j), -1);
        if (j + 1 < height) builder.add(at(i, j), at(i, j + 1), -1);
      }
  };
  viscosity(g - 1, g, u);
  viscosity(g, g - 1, v);
  for (int j = 0; j < g; ++j)
    for (int i = 0; i + 1 < g; ++i) {
      builder.add(u(i, j), p(i, j), -h);
      builder.add(u(i, j), p(i + 1, j), h);
      builder.add(v(j, i), p(j, i), -h);
      builder.add(v(j, i), p(j, i + 1), h);
    }
  builder.add(p(0, 0), p(0, 0),
              -h * h);  // the pressure is given there: else it has a free constant
  return builder.finish();
}

Matrix interior_point_kkt(int g, int decades, std::uint64_t seed) {
  Rng rng(seed);
  const Grid grid = Grid::square(g);
  const int cells = grid.size(), variables = 2 * cells, far = g / 4, rows = cells + far;
  Builder b(label("interior_point_kkt", g), -2, variables + rows);
  for (int i = 0; i < variables; ++i)
    b.add(i, i, rng.log10_uniform(-decades / 2.0, decades / 2.0));  // barrier term
  for_faces(grid, [&](const Cell&, int i, int j, int) {
    if (rng.uniform() < 0.4) b.edge(2 * i, 2 * j, rng.uniform(0.01, 1));  // objective
  });
  // A cell's own variable dominates its constraint, which gives A full row rank.
  for (int i = 0; i < cells; ++i) {
    b.add(2 * i, variables + i, rng.uniform(1.5, 2));
    b.add(2 * i + 1, variables + i, rng.uniform(-1, 1));
  }
  for_faces(grid, [&](const Cell&, int i, int j, int) {
    b.add(2 * i, variables + j, 0.3 * rng.uniform(-1, 1));
    b.add(2 * j, variables + i, 0.3 * rng.uniform(-1, 1));
  });
  // A far constraint has one second variable to itself, again for the rank.
  for (int k = 0; k < far; ++k) {
    b.add(2 * (k * (cells / far)) + 1, variables + cells + k, 2);
    for (int t = 0; t < 6; ++t)
      b.add(2 * rng.below(cells), variables + cells + k, 0.1 * rng.uniform(-1, 1));
  }
  Matrix m = b.finish();
  m.positive = variables;
  m.negative = rows;
  return m;
}

Matrix random_indefinite(int n, double density, double zero_diagonal, std::uint64_t seed,
                         int mtype) {
  Rng rng(seed);
  Builder b(label("random_indefinite", n), mtype, n);
  for (int i = 0; i < n; ++i) {
    for (int j = i + 1; j < n; ++j)
      if (rng.uniform() < density) b.add(i, j, rng.centred(mtype != -2));
    if (rng.uniform() >= zero_diagonal) b.add(i, i, 2.0 * rng.centred(mtype == 6));
  }
  return b.finish();
}

namespace {
/// A diagonal entry away from zero, of either sign, or positive and dominant for definite types.
cplx pivot(Rng& rng, int mtype, double neighbours) {
  const double size = rng.uniform(1, 2);
  if (mtype == 2 || mtype == 4) return size + 1.5 * neighbours;
  return rng.uniform() < 0.5 ? size : -size;
}
}  // namespace

Matrix arrow(int n, bool reversed, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label(reversed ? "arrow_reversed" : "arrow", n), mtype, n);
  const int hub = reversed ? 0 : n - 1;
  for (int i = 0; i < n; ++i) {
    b.add(i, i, pivot(rng, mtype, i == hub ? n : 1));
    if (i != hub) b.add(i, hub, rng.centred(b.complex()));
  }
  return b.finish();
}

Matrix tridiagonal(int n, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("tridiagonal", n), mtype, n);
  for (int i = 0; i < n; ++i) {
    b.add(i, i, pivot(rng, mtype, 2));
    if (i + 1 < n) b.add(i, i + 1, rng.centred(b.complex()));
  }
  return b.finish();
}

Matrix dense(int n, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("dense", n), mtype, n);
  for (int i = 0; i < n; ++i) {
    b.add(i, i, pivot(rng, mtype, n));
    for (int j = mtype % 2 == 0 ? i + 1 : 0; j < n; ++j)
      if (j != i) b.add(i, j, rng.centred(b.complex()));
  }
  return b.finish();
}

Matrix block_diagonal(int blocks, int size, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("block_diagonal", blocks), mtype, blocks * size);
  for (int k = 0; k < blocks; ++k)
    for (int i = 0; i < size; ++i) {
      b.add(i * blocks + k, i * blocks + k, pivot(rng, mtype, size));
      for (int j = i + 1; j < size; ++j)
        b.add(i * blocks + k, j * blocks + k, rng.centred(b.complex()));
    }
  return b.finish();
}

Matrix diagonal_plus_few(int n, int few, std::uint64_t seed, int mtype) {
  Rng rng(seed);
  Builder b(label("diagonal_plus_few", n), mtype, n);
  for (int i = 0; i < n; ++i) b.add(i, i, pivot(rng, mtype, few));
  for (int k = 0; k < few; ++k) {
    const int i = rng.below(n), j = rng.below(n);
    if (i != j) b.add(i, j, rng.centred(b.complex()));
  }
  return b.finish();
}

}  // namespace gallery
