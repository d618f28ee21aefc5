// SPDX-License-Identifier: BSD-3-Clause
/// Peers of the iterative solver: GMRES, or conjugate gradients where the matrix is definite, with
/// the incomplete LU and the algebraic multigrid of hypre, where Debian's libhypre-dev is
/// installed.
#pragma once

#include <ctime>
#include <vector>

#include "gallery/gallery.hpp"

namespace bench {

/// What one solver needed.
struct IterativeFigures {
  int error = -1, iterations = 0;
  double setup = 0, resetup = 0, solve = 0, residual = 0, entries = 0, megabytes = 0;
};

/// Processor seconds of the process on one thread, wall clock with more.
inline double seconds(int threads) {
  timespec t;
  clock_gettime(threads == 1 ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC, &t);
  return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

enum class Peer { ilu, amg };

bool has_peers();

/// Solves a real symmetric system once.
/// @param m  upper triangle, base 1
/// @param x  0 in, solution out
/// @return times, iterations (300 at most), entries of the factor or of the levels' matrices
IterativeFigures run_peer(Peer peer, const gallery::Matrix& m, bool definite, double tolerance,
                          const std::vector<double>& b, std::vector<double>& x);

}  // namespace bench
