// SPDX-License-Identifier: BSD-3-Clause
/// What the files of the preconditioners share.
///
/// A class is a record with its routines and default parameters; create copies it.  What a class
/// keeps hangs on `data`: its free releases that, then the record by release_precon().  Its apply
/// allocates nothing that outlives it: what a solve took goes back when that solve fails.
#pragma once

#include "NORV/corelib/base.hpp"

namespace vlm {

/// The routines of a class.
struct PreconRoutines {
  using Apply = vec* (*)(vec* result, precon* M, const vec* x);
  precon* (*create)();
  int (*setup)(precon*, smat*);  ///< null: nothing to set up
  Apply apply, apply_trans;      ///< the latter null: none
  void (*free)(precon*, int);
};

/// A class whose parameters are 0.
constexpr precon class_record(const char* name, const PreconRoutines& routines) {
  precon M{};
  for (int k = 0; name[k] != '\0'; ++k) M.name[k] = name[k];
  M.create = routines.create;
  M.setup = routines.setup;
  M.apply = routines.apply;
  M.apply_trans = routines.apply_trans;
  M.free = routines.free;
  return M;
}

/// Runs a setup that hangs blocks on the data of a class.  A fault takes them back, after which
/// data holds none of them.
template <class Data, class Setup>
int fill(Data& data, const Setup& setup) {
  try {
    return setup();
  } catch (...) {
    data = Data{};
    throw;
  }
}

/// A copy of the class record.
precon* new_precon(const precon& class_record);

/// Frees the record alone.
void release_precon(precon* M);

}  // namespace vlm
