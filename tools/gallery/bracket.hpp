// SPDX-License-Identifier: BSD-3-Clause
/// A steel bracket bolted to a wall and loaded at its tip, as plane-stress finite elements.
///
/// L-shaped plate 120 mm by 120 mm with legs of 40 mm and 5 mm thick.  Two bolt holes in the
/// standing leg are clamped; a third hole lightens the lying leg, whose end carries 1 kN.
/// Square bilinear elements with exact integration (O. C. Zienkiewicz, The Finite Element
/// Method, 1977); two displacements a node; the stiffness matrix is symmetric positive definite.
#pragma once

#include <vector>

#include "gallery.hpp"

namespace gallery {

struct Bracket {
  Matrix stiffness;          ///< N/mm, mtype 2
  std::vector<double> load;  ///< N, one entry an equation
};

/// @param cells  elements across a leg of 40 mm, at least 4
Bracket bracket(int cells);

}  // namespace gallery
