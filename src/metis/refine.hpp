// SPDX-License-Identifier: BSD-3-Clause
/// Vertex separators grown and improved by single moves.
///
/// A move takes a vertex of the separator to one side and its neighbours of the other side into the
/// separator.  A pass moves to one side only, the next one to the other: so a separator can travel.
/// Moves are made in the sequence of their gains, through losses, and taken back to the best
/// separator met (C. M. Fiduccia and R. M. Mattheyses, "A linear-time heuristic for improving
/// network partitions", 1982; for vertex separators C. Ashcraft and J. W. H. Liu, "A partition
/// improvement algorithm for generalized nested dissection", 1994).  The gains lie in buckets: a
/// move costs the edges of the vertices that it moves.  A minimum vertex cut in the band around a
/// separator finds what single moves do not (C. Ashcraft and J. W. H. Liu, "Applications of the
/// Dulmage-Mendelsohn decomposition and network flow to graph bisection improvement", SIAM J.
/// Matrix Anal. Appl. 19 (1998)).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/work_team.hpp"
#include "metis/level_graph.hpp"

namespace vlm {

/// 0 and 1 for the sides of a vertex, 2 for the separator.
using Sides = Vector<signed char>;

/// Limits of a refinement.
struct RefineLimits {
  double larger_side = 0.6;   ///< most weight of a side, as a part of the whole
  int passes = 12;            ///< at most; two in a row without improvement end it
  int idle_moves = 120;       ///< moves without improvement that end a pass
  double unlike_sides = 0.5;  ///< part of the separator that the difference of the sides counts
                              ///< for, times its square
};

/// The sides of a graph and its separator, and what moves between them need.
class Separation {
 public:
  /// @param total  weight of the graph to come, for costs that are asked for before it is loaded
  void set_limits(const RefineLimits& limits, std::int64_t total = 0) {
    limits_ = limits;
    set_most(total);
  }
  const RefineLimits& limits() const { return limits_; }

  /// Takes up a graph with its sides.  The graph has to stay.
  void load(const LevelGraph& graph, Sides sides);

  /// The same with the sides of a contracted graph.
  /// @param cluster  vertex of that graph for each of this one  [graph.n]
  void load(const LevelGraph& graph, const Sides& coarse, const Vector<int>& cluster,
            WorkTeam& team);

  /// Grows side 0 from a vertex, and keeps the best separator met.  All is side 1 before.
  void grow_from(int seed);

  /// Improves the separator by moves.
  void refine();

  const Sides& sides() const { return side_; }
  Sides take_sides() { return std::move(side_); }

  /// Weight of a side, or of the separator.
  std::int64_t weight(int s) const { return weight_[s]; }
  /// What the separator costs, the less the better: its weight, a little more where the sides
  /// differ, and far more where one is above its limit.
  double cost() const { return cost_of(weight_); }
  /// The same of a separation with these weights: side 0, side 1, separator.
  double cost_of(const std::array<std::int64_t, 3>& weight) const;

  /// Replaces the separator by a minimum cut within a band around it, where that costs less.
  /// @param layers  of vertices on each side that the band has, at most
  /// @param share   of all weight that the band may have
  void cut_through_band(int layers, double share);

 private:
  // Vertices by gain; of equal gain the last to come is the first to go.
  class GainQueue {
   public:
    void prepare(int n);
    void insert(int v, int bucket);
    void remove(int v);
    void change(int v, int bucket) {
      if (slot_[v] == bucket) return;
      remove(v);
      insert(v, bucket);
    }
    bool holds(int v) const { return slot_[v] >= 0; }
    int top();  // -1: empty
    void clear();

   private:
    Vector<int> head_, next_, previous_;
    Vector<short> slot_;
    int top_ = -1, low_ = 0;  // no vertex lies above or below
  };

  Vector<int> band(int layers, double share);
  WeightedGraph band_graph(const Vector<int>& members, Vector<char>& at_source,
                           Vector<char>& at_sink) const;
  void set_most(std::int64_t total) {
    most_ = static_cast<std::int64_t>(limits_.larger_side * static_cast<double>(total));
  }
  void set_scale();
  void prepare_moves();
  void weigh(const Slice& slice, std::array<std::int64_t, 3>& weight, Vector<int>& separator) const;
  int weight_near(int v, int s) const;
  int bucket(int v) const;
  int choose(int to);
  void move(int v, int to);
  void pull(int u, int to);
  void take_back(std::size_t kept, int to);
  bool pass(int to);

  RefineLimits limits_;
  LevelGraph graph_;
  Sides side_;
  Vector<int> near_;  // of a queued vertex: weight of its neighbours on the side it leaves
  std::array<std::int64_t, 3> weight_ = {0, 0, 0};
  std::int64_t most_ = 0;
  int unit_ = 1;  // gains in a bucket
  GainQueue queue_;
  Vector<int> separator_;  // those of the start, and those that came; may hold others
  Vector<int> trail_;      // moves: the pulled vertices, then the moved one as -1 - v
  Vector<int> place_;      // of a vertex in the band, or none
};

}  // namespace vlm
