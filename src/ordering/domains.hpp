// SPDX-License-Identifier: BSD-3-Clause
/// Domains of an elimination: what threads can eliminate side by side.
///
/// Disjoint subtrees of the elimination tree have no edge between them, whatever the order came
/// from.  The heaviest subtree is split at its root, which joins the separators, until what is left
/// can be dealt out in even shares (G. A. Geist and E. Ng, "Task scheduling for parallel sparse
/// Cholesky factorization", Int. J. Parallel Programming 18 (1989)).  So the order, its fill and
/// its operations do not depend on the number of domains.
#pragma once

#include "base/memory.hpp"

namespace vlm {

/// Deals the subtrees of an elimination out to domains of like work.
/// @param parent   place of the parent, behind its children, or -1  [n], in
/// @param work     operations of the elimination at a place         [n], in
/// @param held     places that are in no domain, nor their ancestors, by a mark  [n] or empty, in
/// @param domains  wanted, at least 1
/// @param domain   of a place, from 1; 0 for the separators         [n], out
/// @return domains found, at most those wanted; 1 where more would not save time: then all but the
///         held places are in it
int deal_out_domains(const Vector<int>& parent, const Vector<double>& work,
                     const Vector<char>& held, int domains, Vector<int>& domain);

}  // namespace vlm
