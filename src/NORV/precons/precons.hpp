// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the preconditioners share.
///
/// A class is a record with its routines and default parameters; create copies it.  What a class
/// keeps hangs on `data`: its free releases that, then the record by release_precon().  Its apply
/// allocates nothing that outlives it: what a solve took goes back when that solve fails.
#pragma once

#include "NORV/corelib/base.hpp"

namespace vlm {

/// A copy of the class record.
precon* new_precon(const precon& class_record);

/// Frees the record alone.
void release_precon(precon* M);

}  // namespace vlm
