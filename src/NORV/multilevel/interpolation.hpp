// SPDX-License-Identifier: BSD-3-Clause
/// Interpolation of fine unknowns from coarse ones, and what all transfers share.
///
/// A fine unknown is interpolated from the coarse ones that it depends on and, through the fine
/// ones that it depends on, from theirs: extended interpolation, H. De Sterck, R. D. Falgout, J. W.
/// Nolting, U. M. Yang, "Distance-two interpolation for parallel algebraic multigrid", 2008.
/// Constants are reproduced wherever the rows of the matrix add up to zero.
#pragma once

#include "NORV/multilevel/hierarchy.hpp"
#include "NORV/multilevel/strength.hpp"

namespace vlm::norv {

/// @param A           the level
/// @param S           strong couplings of its rows, within a component where there are several
/// @param split       by unknown, or by block of `components` unknowns
/// @param components  unknowns of different remainder are interpolated apart
/// @param most        entries of a row; the largest stay, and their sum
template <class T>
OwnSmat extended_interpolation(const Rows<T>& A, const Graph& S, const Splitting& split,
                               int components, int most);

/// R A P, with a 1 on the diagonal for coarse unknowns that nothing couples with.
OwnSmat coarse_matrix(const smat* R, const smat* A, const smat* P);

}  // namespace vlm::norv
