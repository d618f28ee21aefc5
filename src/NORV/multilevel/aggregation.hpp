// SPDX-License-Identifier: BSD-3-Clause
/// Smoothed aggregation: groups of strongly coupled nodes, and the prolongation that they give.
///
/// P. Vanek, J. Mandel, M. Brezina, "Algebraic multigrid by smoothed aggregation for second and
/// fourth order elliptic problems", 1996.  The modes, vectors that the matrix nearly maps to zero,
/// are cut up by aggregates and orthonormalized there; one damped Jacobi step smooths what the cuts
/// have torn.
#pragma once

#include "NORV/multilevel/interpolation.hpp"

namespace vlm::norv {

/// Modes of a level, n by count, row by row.
template <class T>
struct Modes {
  int count = 0;
  Vector<T> values;
};

/// Groups of nodes.
struct Aggregates {
  int count = 0;
  Vector<int> of;  ///< by node; -1: in none, since coupled with nothing
};

/// Which entries of a matrix with one row a node are strong: |a(i,j)|^2 > t^2 |a(i,i)| |a(j,j)|.
/// Where rows are so long that hardly an entry could be, those are that aren't small beside the
/// largest ones of their row and column.
template <class T>
class StrongNodes {
 public:
  StrongNodes(const Rows<T>& A, double threshold);
  const Rows<T> A;
  bool operator()(int i, int k) const {
    const int j = A.ja[k];
    if (j == i) return false;
    const double size = squared(A.a[k]);
    return size > bound_ * diagonal_[i] * diagonal_[j] ||
           (size > 0 && size >= beside_largest * largest_[i] * largest_[j]);
  }

 private:
  static constexpr double beside_largest = 0.25 * 0.25;
  double bound_;
  Vector<double> diagonal_, largest_;
};

/// Three passes: groups of nodes of which none has a neighbour in a group; then their neighbours
/// join the group of the strongest coupling; then groups of what is left.
template <class T>
Aggregates aggregate_vmb(const StrongNodes<T>& strong);

struct ProlongationOptions {
  int block_size = 1;  ///< unknowns of a node
  double omega = 2.0 / 3.0;
};

/// The smoothed prolongation; each aggregate has as many coarse unknowns as there are modes.
/// @param A      the level
/// @param nodes  strong couplings of its nodes
/// @param modes  of the level, in; of the next one, out
template <class T>
OwnSmat smoothed_prolongation(const smat* A, const StrongNodes<T>& nodes,
                              const Aggregates& aggregates, const ProlongationOptions& options,
                              Modes<T>& modes);

}  // namespace vlm::norv
