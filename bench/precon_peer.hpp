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

/// Its form: on the pattern, or by its threshold of 0.01.
enum class PeerIlu { on_pattern, by_threshold };

bool has_peer();

/// Solves a real system once, to `tolerance` of the relative residual or 1000 iterations.
/// @param m  both triangles, base 1
/// @param x  out
PeerFigures run_peer(PeerIlu form, const gallery::Matrix& m, double tolerance,
                     const std::vector<double>& b, std::vector<double>& x);

}  // namespace bench
