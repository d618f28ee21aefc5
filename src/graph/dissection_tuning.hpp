// SPDX-License-Identifier: BSD-3-Clause
/// The figures by which nested dissection decides: times, savings, sizes.
#pragma once

namespace vlm {

/// Each figure names the command that measures it.  They are rough, and times count only in
/// proportion to each other; `ordering_bench --vary FIGURE` shows what half and twice of one would
/// make of orders and their time.
struct DissectionTuning {
  // A separator of a solid piece: ordering_bench --separators
  double seconds_per_vertex = 2.5e-7;
  double seconds_per_neighbour = 3e-8;
  /// That of a thin piece takes a quarter of the time.  It counts as half of that, because the
  /// last cuts of thin pieces save five times the operations for each second that they take:
  /// ordering_bench --separators, --savings
  double thin_share = 1.0 / 8;
  /// Saved operations lie in large fronts, which run at about 45e9 a second; each counts twice,
  /// because a factor is computed and used more than once: ordering_bench --operations
  double seconds_per_flop = 1.0 / 20e9;
  /// Part of the operations of a piece that one separator is expected to save: ordering_bench
  /// --savings
  double expected_saving = 0.25;
  /// The first cut of a domain has to pay for a second round of minimum degree as well, which
  /// takes about as long as the separator: ordering_bench --separators
  double first_cut = 2;
  /// Pieces of fewer vertices are not cut: ordering_bench --vary least_piece
  int least_piece = 200;

  // The search for a separator: ordering_bench --separators, --vary FIGURE
  int coarse_enough = 1000;  ///< graphs of fewer vertices go to METIS as they are
  int contractions = 2;      ///< at most, before METIS takes over
  int cluster_size = 8;      ///< vertices of the level below in a cluster; stragglers may double it
  int band_layers =
      1;  ///< of vertices around the clusters of a separator that the cut runs through
  /// Square of a separator against the vertices, up to which a graph counts as thin: flat meshes
  /// have 1 to 4, solid ones about the cube root of their vertices.
  double thin_factor = 9;

  /// Matrices of fewer nodes keep their matched pairs: ordering_bench --pairs
  int least_exchange = 2000;
};

}  // namespace vlm
