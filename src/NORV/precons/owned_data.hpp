// SPDX-License-Identifier: BSD-3-Clause
/// Preconditioners whose data is an object of C++: made with the record, released with it, and by
/// the ledger of a call that fails in between.
#pragma once

#include <new>

#include "NORV/precons/precons.hpp"

namespace vlm::norv {

template <class Data>
Data* data_of(const precon* M) {
  NORV_ASSERT(M->data != 0);
  return static_cast<Data*>(M->data);
}

template <class Data>
void delete_data(void* data) {
  delete static_cast<Data*>(data);
}

/// A copy of the class record with its data.
template <class Data>
precon* new_with_data(const precon& class_record) {
  precon* const M = new_precon(class_record);
  M->data = new (std::nothrow) Data;
  if (M->data == nullptr) {
    release_precon(M);
    out_of_memory("ERROR during memory allocation!", sizeof(Data));
  }
  enter_finalizer(M->data, delete_data<Data>);
  return M;
}

template <class Data>
void free_with_data(precon* M, int) {
  remove_finalizer(M->data);
  delete_data<Data>(M->data);
  release_precon(M);
}

}  // namespace vlm::norv
