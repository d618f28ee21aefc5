// SPDX-License-Identifier: BSD-3-Clause
#include "bracket.hpp"

#include <array>
#include <cmath>

namespace gallery {
namespace {

constexpr double leg = 40, thickness = 5;       // mm
constexpr double young = 210e3, poisson = 0.3;  // N/mm^2
constexpr double tip_force = -1000;             // N, downwards

struct Hole {
  double x, y, radius;
  bool clamped;
};
constexpr Hole holes[] = {{20, 100, 7, true}, {20, 60, 7, true}, {80, 20, 10, false}};

/// Stiffness of a square element, displacements (u, v) at the corners counter-clockwise; in plane
/// stress it doesn't depend on the size of the square.
std::array<std::array<double, 8>, 8> element_stiffness() {
  constexpr double corner[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  const double factor = young * thickness / (1 - poisson * poisson);
  const double shear = (1 - poisson) / 2;
  const double point = 1 / std::sqrt(3.0);
  std::array<std::array<double, 8>, 8> k{};
  for (const auto& gauss : corner) {
    const double s = gauss[0] * point, t = gauss[1] * point;
    for (std::size_t i = 0; i < 4; ++i) {
      const double ix = corner[i][0] * (1 + corner[i][1] * t) / 4;  // dN_i/ds
      const double iy = corner[i][1] * (1 + corner[i][0] * s) / 4;  // dN_i/dt
      for (std::size_t j = 0; j < 4; ++j) {
        const double jx = corner[j][0] * (1 + corner[j][1] * t) / 4;
        const double jy = corner[j][1] * (1 + corner[j][0] * s) / 4;
        k[2 * i][2 * j] += factor * (ix * jx + shear * iy * jy);
        k[2 * i][2 * j + 1] += factor * (poisson * ix * jy + shear * iy * jx);
        k[2 * i + 1][2 * j] += factor * (poisson * iy * jx + shear * ix * jy);
        k[2 * i + 1][2 * j + 1] += factor * (iy * jy + shear * ix * jx);
      }
    }
  }
  return k;
}

class Mesh {
 public:
  explicit Mesh(int cells) : h_(leg / cells), side_(3 * cells) {
    const auto nodes = static_cast<std::size_t>(side_ + 1) * static_cast<std::size_t>(side_ + 1);
    number_.assign(nodes, -1);
    for (int y = 0; y < side_; ++y) {
      for (int x = 0; x < side_; ++x) {
        if (!solid(x, y)) continue;
        for (int corner : corners(x, y)) number_[static_cast<std::size_t>(corner)] = 0;
      }
    }
    for (int node = 0; node < static_cast<int>(nodes); ++node) {
      int& number = number_[static_cast<std::size_t>(node)];
      if (number == 0) number = clamped(node) ? -1 : count_++;
    }
  }

  int side() const { return side_; }
  int free_nodes() const { return count_; }
  /// Number of a node among the free ones, -1 for clamped and void ones.
  int number(int node) const { return number_[static_cast<std::size_t>(node)]; }
  int node(int x, int y) const { return y * (side_ + 1) + x; }
  std::array<int, 4> corners(int x, int y) const {
    return {node(x, y), node(x + 1, y), node(x + 1, y + 1), node(x, y + 1)};
  }
  bool solid(int x, int y) const {
    const double cx = (x + 0.5) * h_, cy = (y + 0.5) * h_;
    if (cx > leg && cy > leg) return false;
    for (const Hole& hole : holes) {
      if (std::hypot(cx - hole.x, cy - hole.y) < hole.radius) return false;
    }
    return true;
  }

 private:
  /// On the rim of a clamped hole.
  bool clamped(int node) const {
    const int row = node / (side_ + 1), column = node % (side_ + 1);
    const double x = column * h_, y = row * h_;
    for (const Hole& hole : holes) {
      if (hole.clamped && std::hypot(x - hole.x, y - hole.y) < hole.radius + h_) return true;
    }
    return false;
  }

  double h_;
  int side_;
  int count_ = 0;
  std::vector<int> number_;
};

}  // namespace

Bracket bracket(int cells) {
  const Mesh mesh(cells);
  const auto element = element_stiffness();
  Builder builder("bracket", 2, 2 * mesh.free_nodes());
  for (int y = 0; y < mesh.side(); ++y) {
    for (int x = 0; x < mesh.side(); ++x) {
      if (!mesh.solid(x, y)) continue;
      const std::array<int, 4> node = mesh.corners(x, y);
      for (std::size_t p = 0; p < 8; ++p) {
        for (std::size_t q = 0; q < 8; ++q) {
          const int at = mesh.number(node[p / 2]), to = mesh.number(node[q / 2]);
          if (at < 0 || to < 0) continue;
          const int i = 2 * at + static_cast<int>(p % 2), j = 2 * to + static_cast<int>(q % 2);
          if (i <= j) builder.add(i, j, element[p][q]);
        }
      }
    }
  }
  Bracket out;
  out.stiffness = builder.finish();
  // The tip force spreads over the nodes of the free end; its two outermost nodes carry half.
  out.load.assign(static_cast<std::size_t>(out.stiffness.n), 0.0);
  for (int y = 0; y <= cells; ++y) {
    const int tip = mesh.number(mesh.node(mesh.side(), y));
    const double share = tip_force / cells * (y == 0 || y == cells ? 0.5 : 1.0);
    out.load[2 * static_cast<std::size_t>(tip) + 1] = share;
  }
  return out;
}

}  // namespace gallery
