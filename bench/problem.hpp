// SPDX-License-Identifier: BSD-3-Clause
/// The matrices that the benchmark runs on: generator classes at three sizes, or files.
#pragma once

#include <string>
#include <vector>

#include "gallery/gallery.hpp"

namespace bench {

using gallery::Matrix;

/// A family of matrices; `size` is the grid parameter of its generator.
struct ProblemClass {
  const char* name;
  int mtype;
  int small, medium, large;
  bool hard;  ///< zero or tiny diagonal: matching, scaling and Bunch-Kaufman pivots
  Matrix (*make)(int size);
};

const std::vector<ProblemClass>& problem_classes();

struct Problem {
  std::string name, family;
  Matrix matrix;
  bool hard = false;
};

/// Makes or reads a problem.
/// @param spec  "class:small", "class:medium", "class:large", "class:SIZE", or the name of a file:
///              Matrix Market (.mtx, .mtx.gz) or a raw .csr dump
/// @param mtype type to use for a file, 0 to choose from what the file says; a symmetric real file
///              becomes -2, a Hermitian one -4, a complex symmetric one 6, a general one 11 or 13
/// @throws std::runtime_error with one line
Problem load(const std::string& spec, int mtype);

}  // namespace bench
