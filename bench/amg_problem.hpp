// SPDX-License-Identifier: BSD-3-Clause
/// What amg_bench and its peer both solve.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// A symmetric positive definite matrix with both triangles stored, from 0.
struct GridSystem {
  int n = 0, block_size = 1;
  std::vector<int> ia, ja;
  std::vector<double> a;
  std::vector<double> coordinates;  ///< three a node where blocks are displacements
  std::vector<double> b;            ///< at random, the same each time
};

/// poisson2d:EDGE, poisson3d:EDGE, elasticity:EDGE.
GridSystem grid_system(const std::string& spec);

/// What a solver needed.
struct MultigridFigures {
  double setup = 0, solve = 0;  ///< wall clock seconds
  double megabytes = 0;         ///< growth of the peak of the resident set
  double residual = 0;          ///< |b - A x| / |b|, recomputed
  double complexity = 0;        ///< entries of the matrices of all levels over those of the first
  int iterations = 0, levels = 0;
};

/// Wall clock.
double wall_seconds();

/// The growth of the resident set's peak since construction.
class PeakGrowth {
 public:
  PeakGrowth();
  double megabytes() const;

 private:
  double before_;
};

}  // namespace bench
