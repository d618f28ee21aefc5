// SPDX-License-Identifier: BSD-3-Clause
/// The box of cells on which the gallery's discretised problems live.
#pragma once

#include <string>

#include "gallery.hpp"

namespace gallery {

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

inline std::string label(const char* name, int size) {
  return std::string(name) + "_" + std::to_string(size);
}

inline Matrix definite(Matrix m) {
  m.positive = m.n;
  m.negative = 0;
  return m;
}

/// A cavity flow: divergence is small and the direction turns through the box.
inline double wind(const Grid& g, const Cell& c, int axis) {
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

}  // namespace gallery
