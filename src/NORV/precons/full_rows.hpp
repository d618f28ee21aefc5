// SPDX-License-Identifier: BSD-3-Clause
/// Matrices as the incomplete LU factorizations take them: all entries by rows, columns ascending,
/// where it helps with large entries brought to the diagonal and scaled by a weighted matching
/// (matching/mps.hpp), and in an order of minimum degree.
#pragma once

#include "NORV/precons/scalars.hpp"
#include "base/memory.hpp"

namespace vlm::norv {

/// Which rows change places, and factors of rows and columns.
struct Transversal {
  Vector<int> row;     ///< [n] row of the matrix at a position; empty: all stay, without scaling
  Vector<int> column;  ///< [n] column of the matrix at a position; empty: all stay
  Vector<double> row_scale, column_scale;  ///< [n] by row of the matrix, by column

  bool empty() const { return row.empty(); }
};

enum class UseMatching { where_it_helps = 0, always = 1, never = 2 };
/// The order of elimination: the caller's, or one of minimum degree.
enum class UseOrder { where_it_helps = 0, always = 1, never = 2 };

template <class T>
struct FullRows {
  int n = 0;
  Vector<int> start;   ///< [n+1]
  Vector<int> column;  ///< ascending in a row
  Vector<T> value;
};

/// The matching of an unsymmetric matrix, empty where the structural rank is deficient.
template <class T>
Transversal match_rows(const smat* A);

/// Whether a diagonal entry is smaller than a hundredth of its row's largest.
template <class T>
bool has_weak_diagonal(const smat* A);

/// Exchanges rows and columns alike, with large entries on the diagonal where they are, for an
/// order of minimum degree of A + A^T.
template <class T>
void order_by_degree(const smat* A, Transversal& transversal);

/// The matrix in its order of elimination: position i holds row transversal.row[i], scaled.
template <class T>
FullRows<T> full_rows(const smat* A, const Transversal& transversal);

/// What a class does with its options: matching, order, messages.
template <class T>
Transversal choose_transversal(const smat* A, UseMatching use, UseOrder order);

}  // namespace vlm::norv
