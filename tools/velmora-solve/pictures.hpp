// SPDX-License-Identifier: BSD-3-Clause
/// Pictures as PNG files, drawn by gnuplot.
#pragma once

#include <string>
#include <vector>

#include "elimination.hpp"
#include "system.hpp"

namespace tool {

/// Tests that a picture can be drawn there.  @throws InputError as below
void check_picture(const std::string& path);

/// The pattern of the matrix beside that of the factor in elimination order: entries of the matrix
/// dark, fill orange, supernodes and domains as squares on the diagonal.
/// @param order    node, from 1, at each position; behind these n, where there are more, the row
/// that
///                 takes the place of each column
/// @param domains  independent subtrees to mark
/// @throws InputError without gnuplot, or when the file cannot be written
void draw_spy(const std::string& path, const std::string& title, const SparseMatrix& matrix,
              const std::vector<int>& order, int domains);

/// Residuals after a number of refinement steps.
struct RefinementPoint {
  int steps = 0;
  Residual residual;
};

/// Componentwise and normwise residual over the steps of refinement.
/// @throws InputError as above
void draw_convergence(const std::string& path, const std::string& title,
                      const std::vector<RefinementPoint>& points);

/// Relative residual over the iterations of the iterative solver.
/// @throws InputError as above
void draw_iterations(const std::string& path, const std::string& title,
                     const std::vector<double>& history);

}  // namespace tool
