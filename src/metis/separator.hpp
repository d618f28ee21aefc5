// SPDX-License-Identifier: BSD-3-Clause
/// Vertex separators of a graph.
///
/// Multilevel: the graph is contracted by clusters until some hundred vertices are left; separators
/// grown there from several vertices are refined, and the best is carried back level by level and
/// refined on each (G. Karypis and V. Kumar, "A fast and high quality multilevel scheme for
/// partitioning irregular graphs", SIAM J. Sci. Comput. 20 (1998); here with vertex separators
/// throughout instead of edge cuts).  On the graph itself a minimum cut in the band around it has
/// the last word.
///
/// Beside it stands the best layer of equal distance from a vertex at the rim (A. George and J. W.
/// H. Liu, "An automatic nested dissection algorithm for irregular finite element problems", SIAM
/// J. Numer. Anal. 15 (1978)), refined in the same way.  In grids of few neighbours layers run
/// slantwise, where a separator can be a quarter smaller than any along the axes; contraction
/// does not see that.
///
/// Linear in the edges but for the coarsest graph.  The same graph gets the same separator in every
/// run.
#pragma once

#include "graph/dissection_tuning.hpp"
#include "metis/coarsen.hpp"
#include "metis/refine.hpp"

namespace vlm {

/// Vertices of a graph up to which its work arrays are kept for the next one.  Those of larger ones
/// would stand beside everything that follows.
constexpr int most_kept = 16384;

/// Work arrays of a way down the contractions and back.
struct MultilevelWorkspace {
  Separation separation;
  CoarsenWorkspace coarsen;
};

/// Work arrays of find_separator(), for a caller that separates many graphs.
struct SeparatorWorkspace {
  Separation layer;
  MultilevelWorkspace multilevel;
};

/// Vertex separator of a graph: 0 and 1 for the sides, 2 for the separator.
/// @param graph    at least one vertex, in
/// @param layered  whether layers are looked at, in; whether pieces of the graph should, out
/// @param team     its idle threads help; the separator does not depend on them
Sides find_separator(const WeightedGraph& graph, const DissectionTuning& tuning, bool& layered,
                     SeparatorWorkspace& workspace, WorkTeam& team);

}  // namespace vlm
