// SPDX-License-Identifier: BSD-3-Clause
#include "gallery.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vlm::test {

std::vector<int> Rng::permutation(int n) {
  std::vector<int> p(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) p[i] = i + 1;
  for (int i = n - 1; i > 0; --i) std::swap(p[i], p[below(i + 1)]);
  return p;
}

Builder::Builder(std::string name, int mtype, int n) {
  m_.name = std::move(name);
  m_.mtype = mtype;
  m_.n = n;
}

void Builder::add(int i, int j, cplx v) {
  if (m_.triangle() && i > j) {
    std::swap(i, j);
    if (m_.hermitian()) v = std::conj(v);
  }
  row_.push_back(i);
  col_.push_back(j);
  re_.push_back(v.real());
  if (m_.complex()) im_.push_back(v.imag());
}

void Builder::edge(int i, int j, double w) {
  add(i, i, w);
  add(j, j, w);
  add(i, j, -w);
  if (!m_.triangle()) add(j, i, -w);
}

Matrix Builder::finish() {
  if (m_.mtype < 11)
    for (int i = 0; i < m_.n; ++i) add(i, i, 0);
  // Counting sort by row, then each row by column.
  std::vector<std::size_t> start(static_cast<std::size_t>(m_.n) + 1, 0);
  for (const int r : row_) ++start[r + 1];
  for (int i = 0; i < m_.n; ++i) start[i + 1] += start[i];
  std::vector<std::size_t> entry(row_.size()), next(start.begin(), start.end() - 1);
  for (std::size_t k = 0; k < row_.size(); ++k) entry[next[row_[k]]++] = k;

  m_.ia.assign(1, 1);
  for (int i = 0; i < m_.n; ++i) {
    const auto first = entry.begin() + static_cast<std::ptrdiff_t>(start[i]);
    const auto last = entry.begin() + static_cast<std::ptrdiff_t>(start[i + 1]);
    // The index breaks ties, so that duplicates are summed in the order they came.
    std::sort(first, last, [&](std::size_t p, std::size_t q) {
      return col_[p] != col_[q] ? col_[p] < col_[q] : p < q;
    });
    for (auto p = first; p != last;) {
      const int column = col_[*p];
      double re = 0, im = 0;
      for (; p != last && col_[*p] == column; ++p) {
        re += re_[*p];
        if (m_.complex()) im += im_[*p];
      }
      m_.ja.push_back(column + 1);
      m_.a.push_back(re);
      if (m_.complex()) m_.a.push_back(im);
    }
    m_.ia.push_back(m_.nnz() + 1);
  }
  return std::move(m_);
}

namespace {

/// A box of cells, numbered x fastest.
struct Grid {
  int nx, ny, nz;
  int size() const { return nx * ny * nz; }
  int at(int x, int y, int z) const { return (z * ny + y) * nx + x; }
  static Grid square(int g) { return {g, g, 1}; }
  static Grid cube(int g) { return {g, g, g}; }
};

struct Cell {
  int x, y, z;
};

template <class F>
void for_cells(const Grid& g, F visit) {
  for (int z = 0; z < g.nz; ++z)
    for (int y = 0; y < g.ny; ++y)
      for (int x = 0; x < g.nx; ++x) visit(Cell{x, y, z}, g.at(x, y, z));
}

/// Visits every pair of neighbours once: cell, its number, the number of the next cell along an
/// axis, the axis.
template <class F>
void for_faces(const Grid& g, F visit) {
  for_cells(g, [&](const Cell& c, int i) {
    if (c.x + 1 < g.nx) visit(c, i, g.at(c.x + 1, c.y, c.z), 0);
    if (c.y + 1 < g.ny) visit(c, i, g.at(c.x, c.y + 1, c.z), 1);
    if (c.z + 1 < g.nz) visit(c, i, g.at(c.x, c.y, c.z + 1), 2);
  });
}

std::string label(const char* name, int size) {
  return std::string(name) + "_" + std::to_string(size);
}

Matrix definite(Matrix m) {
  m.positive = m.n;
  m.negative = 0;
  return m;
}

/// Laplacian with Dirichlet boundary: the number of possible neighbours on the diagonal.
Matrix poisson(const Grid& g, std::string name) {
  Builder b(std::move(name), 2, g.size());
  for (int i = 0; i < g.size(); ++i) b.add(i, i, g.nz > 1 ? 6 : 4);
  for_faces(g, [&](const Cell&, int i, int j, int) { b.add(i, j, -1); });
  return definite(b.finish());
}

/// A cavity flow: divergence is small and the direction turns through the box.
double wind(const Grid& g, const Cell& c, int axis) {
  const double x = (c.x + 0.5) / g.nx - 0.5, y = (c.y + 0.5) / g.ny - 0.5,
               z = (c.z + 0.5) / g.nz - 0.5;
  switch (axis) {
    case 0:
      return 2 * y * (1 - 2 * x * x);
    case 1:
      return -2 * x * (1 - 2 * y * y);
    default:
      return 0.5 * (x + y) * (1 - 4 * z * z);
  }
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

// --- other forms of a matrix ----------------------------------------------------------------

Matrix expanded(const Matrix& m, int mtype) {
  if (mtype == 0) mtype = m.complex() ? 3 : 1;
  Builder b(m.name + "_full", mtype, m.n);
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) {
      const int j = m.ja[k] - 1;
      const cplx v = m.value(k);
      b.add(i, j, v);
      if (m.triangle() && i != j) b.add(j, i, m.hermitian() ? std::conj(v) : v);
    }
  return b.finish();
}

Matrix transposed(const Matrix& m) {
  Builder b(m.name + "_transposed", m.mtype, m.n);
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k) b.add(m.ja[k] - 1, i, m.value(k));
  return b.finish();
}

Matrix with_new_values(const Matrix& m, std::uint64_t seed) {
  Rng rng(seed);
  Matrix r = m;
  // D A D with D near 1 keeps definiteness, and inertia, but changes every entry.
  std::vector<double> d(static_cast<std::size_t>(m.n));
  for (double& v : d) v = rng.uniform(0.6, 1.4);
  const auto nv = static_cast<std::size_t>(m.nvals());
  for (int i = 0; i < m.n; ++i)
    for (int k = m.ia[i] - 1; k < m.ia[i + 1] - 1; ++k)
      for (std::size_t v = 0; v < nv; ++v) r.a[nv * k + v] *= d[i] * d[m.ja[k] - 1];
  return r;
}

namespace {

/// Types with a stored triangle: the classes that can be made in each of them.
void add_triangle_classes(std::vector<Matrix>& list, int mtype) {
  for (const int n : {1, 2, 3}) list.push_back(dense(n, 10 + n, mtype));
  list.push_back(dense(90, 14, mtype));  // wider than one panel
  list.push_back(arrow(60, false, 15, mtype));
  list.push_back(arrow(60, true, 16, mtype));
  list.push_back(tridiagonal(75, 17, mtype));
  list.push_back(block_diagonal(7, 9, 18, mtype));
  list.push_back(diagonal_plus_few(80, 5, 19, mtype));
}

}  // namespace

std::vector<Matrix> well_conditioned(int mtype) {
  std::vector<Matrix> list;
  if (mtype % 2 == 0) add_triangle_classes(list, mtype);
  switch (mtype) {
    case 2:
      list.insert(list.end(), {poisson2d(17), poisson3d(7), elasticity3d(4, 21), plate(12, 22),
                               random_spd(250, 6, 23)});
      break;
    case -2:
      list.insert(list.end(),
                  {shifted_laplacian(16, 1.1, true, 31), shifted_laplacian(7, 1.3, false, 32),
                   saddle_point(4, 33), interior_point_kkt(8, 2, 34),
                   random_indefinite(120, 0.05, 0.0, 35), random_indefinite(60, 0.5, 0.3, 36)});
      break;
    case 4:
      list.insert(list.end(), {magnetic_laplacian(6, 0, 41), random_spd(200, 6, 42, 4)});
      break;
    case -4:
      list.insert(list.end(),
                  {magnetic_laplacian(6, 1.7, 51), random_indefinite(100, 0.06, 0.2, 52, -4)});
      break;
    case 6:
      list.insert(list.end(), {helmholtz(15, 0.6, true, 61), helmholtz(6, 0.8, false, 62),
                               random_indefinite(100, 0.06, 0.2, 63, 6)});
      break;
    case 1:
    case 3:
      list.insert(list.end(), {structurally_symmetric(5, 71, mtype),
                               random_structurally_symmetric(120, 5, 74, mtype),
                               expanded(mtype == 1 ? poisson3d(6) : helmholtz(12, 0.6, true, 72)),
                               expanded(dense(40, 73, mtype == 1 ? 2 : 4), mtype)});
      break;
    case 11:
      list.insert(list.end(), {cfd_blocks(4, 81), random_unsymmetric(150, 5, 0.3, 82)});
      [[fallthrough]];
    case 13:
      list.insert(list.end(), {convection_diffusion(6, 5, 83, mtype),
                               random_unsymmetric(200, 5, 1.0, 84, mtype), dense(50, 85, mtype),
                               random_unsymmetric(2, 1, 1.0, 86, mtype),
                               random_unsymmetric(3, 2, 1.0, 87, mtype)});
      break;
    default:
      break;
  }
  return list;
}

}  // namespace vlm::test
