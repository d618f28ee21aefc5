// SPDX-License-Identifier: BSD-3-Clause
/// A preconditioner that is one incomplete factor of the whole matrix.
#pragma once

#include <memory>

#include "NORV/precons/ildlt.hpp"

namespace vlm::norv {

template <class T>
struct PermutedFactor {
  LdltFactor<T> factor;
  Vector<int> place;  ///< [n] position of a row of the matrix
  Vector<T> work;     ///< [n]
};

/// What hangs on such a record.
struct StandAlone : OfKind<PermutedFactor> {
  const vec* target = nullptr;  ///< of a compensation; the caller's
};

StandAlone* stand_alone(const precon* M);

/// A copy of the class record with its data.
precon* new_stand_alone(const precon& class_record);

/// Takes the factor over and fills the results of the record.
template <class T>
void keep_factor(precon* M, IldltResult<T>&& result);

vec* stand_alone_apply(vec* result, precon* M, const vec* x);
void stand_alone_free(precon* M, int phase);

}  // namespace vlm::norv
