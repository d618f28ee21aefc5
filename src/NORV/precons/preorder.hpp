// SPDX-License-Identifier: BSD-3-Clause
/// Order and scaling of a level, before its incomplete factorization.
#pragma once

#include "NORV/precons/upper_rows.hpp"

namespace vlm::norv {

/// What is done to a level first.
enum class Preordering : int {
  identity = 0,
  metis_equilibrated = 1,  ///< nested dissection; rows and columns scaled to largest entries of 1
  amd_equilibrated = 2,    ///< minimum degree with the same scaling
  metis_matched = 3,       ///< weighted matching with its scaling; partners are kept together in a
                           ///< nested dissection
  amd_matched = 4,         ///< the same in a minimum degree order
};

/// Names as messages have them; [5].
extern const char* const preordering_names[5];

/// Place of a row in the order, and its scaling factor.
struct LevelOrder {
  Vector<int> place;     ///< [n]
  Vector<double> scale;  ///< [n] positive
  bool empty() const { return place.empty(); }
};

/// The order of a level as a later setup takes it over.
struct KeptOrder {
  LevelOrder order;
  Vector<int> row;  ///< [m] which rows of the whole matrix the level's are; empty: all of them
};

/// @param A  upper triangle
template <class T>
LevelOrder order_level(const UpperRows<T>& A, Preordering preordering);

/// The other row of each 2x2 pivot that a symmetric matching proposes, or -1: [n].
/// @param A  upper triangle
template <class T>
Vector<int> pivot_candidates(const UpperRows<T>& A);

/// The order of a level whose rows are nearly those that an order was made for: those it knows keep
/// sequence and scaling, each of the others comes behind its strongest neighbour among them, scaled
/// to a largest entry of 1.
/// @param A     upper triangle
/// @param row   [A.n] which rows of the whole matrix its rows are; empty: all
/// @param kept  without scaling: neither its test nor scalings of new rows
/// @param n     rows of the whole matrix
/// @return      empty where more than a tenth of the rows is new, or the scaling no longer fits
template <class T>
LevelOrder inherit_order(const UpperRows<T>& A, const Vector<int>& row, const KeptOrder& kept,
                         int n);

/// Rows that are eliminated together, [begin, end).
struct PartRange {
  int begin, end;
};

/// Order by parts: the domains one after another, the separators behind them.
struct PartedOrder {
  Vector<int> place;         ///< [n] position of a row
  Vector<PartRange> domain;  ///< in positions; what is behind the last is separator
};

/// @param A       upper triangle
/// @param wanted  domains; a small graph has fewer
template <class T>
PartedOrder order_by_parts(const UpperRows<T>& A, int wanted);

}  // namespace vlm::norv
