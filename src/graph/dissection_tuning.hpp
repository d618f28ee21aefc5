// SPDX-License-Identifier: BSD-3-Clause
/// The figures by which nested dissection decides: times, savings, sizes.
#pragma once

#include <cstdint>

namespace vlm {

/// Each figure names the command that measures it.  They are rough, and times count only in
/// proportion to each other; `ordering_bench --vary FIGURE` shows what half and twice of one would
/// make of orders and their time.
struct DissectionTuning {
  // A separator, with the graphs of its sides: ordering_bench --separators
  double seconds_per_separator = 2e-4;
  double seconds_per_vertex = 5e-8;
  double seconds_per_neighbour = 1.3e-8;
  /// Operations of a real symmetric matrix.  Those of large fronts run at about 45e9 a second, those
  /// of small ones at half of that; a factor is computed and used more than once:
  /// ordering_bench --operations
  double seconds_per_flop = 1.0 / 20e9;
  /// Operations that a separator saves, in cubes of its weight, above which it is not asked what
  /// minimum degree needs: ordering_bench --vary saved_cubes
  double saved_cubes = 45;
  /// Part of the operations of minimum degree that separators save: of the whole graph, of
  /// one that is solid, and of a piece whose columns reach into the separators around it:
  /// ordering_bench --vary FIGURE
  double saved_of_whole = 0.19;
  double saved_of_solid = 0.4;
  double saved_of_piece = 0.1;
  /// Operations of minimum degree in squares of the weight, above which a graph counts as solid:
  /// in meshes of surfaces they grow more slowly than this square.
  double solid_work = 3;
  /// Vertices and neighbours of a piece that is not cut any more, whatever it would save.
  int least_piece = 4000;
  /// Vertices and neighbours of a graph that minimum degree orders before any separator is sought;
  /// in larger ones the first separator may do without.
  int tried_first = 300000;
  /// Neighbours of a vertex, on average, up to which a graph without separators around it is
  /// ordered by minimum fill; in others, as leaves are not, the order by degree is the quicker by
  /// more than the factorization loses: velmora_bench, ordering_bench --degree
  double sparse_whole = 5;
  /// Vertices and neighbours of a graph that is worth the start of a team: its order takes more
  /// than a millisecond.  ordering_bench --stages
  int least_team = 6000;
  /// Part of the vertices above which the first separator is no better than none: minimum degree
  /// then orders the whole as well, and the cheaper order counts.
  double poor_separator = 1.0 / 8;
  /// The first separator against the power 2/3 of the vertices, from which on no dissection is
  /// tried: three times what a plane of a cube has.
  double hopeless_separator = 3;
  /// Square of a separator against the vertices, up to which a graph counts as flat: the
  /// separators of its pieces shrink with the square root of their vertices, others with the power
  /// 2/3.
  double flat_factor = 9;

  // The search for a separator: ordering_bench --vary FIGURE
  int coarse_enough = 120;    ///< vertices of the coarsest graph, at most
  int first_cluster = 4;      ///< members of a cluster in the first contraction
  int cluster_size = 3;       ///< and in the later ones
  int attempts = 4;           ///< separators grown in the coarsest graph
  int least_shared = 3000;    ///< vertices of a graph that threads work on together
  int passes = 12;            ///< of moves on each level, at most
  int idle_moves = 120;       ///< moves without improvement that end a pass
  double larger_side = 0.6;   ///< most weight of a side, as a part of the whole
  double unlike_sides = 0.5;  ///< squared difference of the sides against the separator
  int band_layers = 3;        ///< of vertices on each side of a separator that a cut runs through
  double band_share = 0.15;   ///< part of all weight that such a band may have
  /// Cost of a layer against that of the separator found, up to which it is refined ...
  double promising_layer = 1.3;
  /// ... and from which on the pieces of the graph are not searched for layers.
  double hopeless_layer = 1.5;

  /// Matrices of fewer nodes keep their matched pairs: ordering_bench --pairs
  int least_exchange = 2000;
};

}  // namespace vlm
