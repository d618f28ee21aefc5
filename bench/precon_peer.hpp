// SPDX-License-Identifier: BSD-3-Clause
/// hypre's incomplete LU under its BiCGStab, where Debian's libhypre-dev is installed.
#pragma once

#include <vector>

#include "gallery/gallery.hpp"

namespace bench {

struct PeerFigures {
  int iterations = 0;
  double setup = 0, solve = 0;  ///< wall clock seconds
};

bool has_peer();

/// Solves a real system once, to `tolerance` of the relative residual or 1000 iterations.
/// @param drop  threshold; 0: incomplete LU on the pattern
/// @param m     both triangles, base 1
/// @param x     out
PeerFigures run_peer(double drop, const gallery::Matrix& m, double tolerance,
                     const std::vector<double>& b, std::vector<double>& x);

}  // namespace bench
