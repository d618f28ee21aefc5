// SPDX-License-Identifier: BSD-3-Clause
/// Graphs with weighted vertices, as orderings and separators work on them.
#pragma once

#include <vector>

namespace vlm {

/// 0-based compressed rows, both triangles, no diagonal.
struct WeightedGraph {
  int n = 0;
  std::vector<int> ptr;     ///< [n+1]
  std::vector<int> adj;     ///< [ptr[n]]
  std::vector<int> weight;  ///< [n]
};

}  // namespace vlm
