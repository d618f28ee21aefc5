// SPDX-License-Identifier: BSD-3-Clause
/// A preconditioner that is one incomplete factor of the whole matrix, see stand_alone.hpp.
#include "NORV/precons/stand_alone.hpp"

#include <algorithm>
#include <limits>
#include <new>

#include "NORV/corelib/vec_common.hpp"
#include "NORV/precons/ildlt_params.hpp"
#include "NORV/precons/precons.hpp"

namespace vlm::norv {
namespace {

void delete_data(void* data) { delete static_cast<StandAlone*>(data); }

int bounded(std::int64_t x) {
  return static_cast<int>(std::min<std::int64_t>(x, std::numeric_limits<int>::max()));
}

}  // namespace

StandAlone* stand_alone(const precon* M) { return static_cast<StandAlone*>(M->data); }

precon* new_stand_alone(const precon& class_record) {
  precon* const M = new_precon(class_record);
  M->data = new (std::nothrow) StandAlone;
  if (M->data == nullptr) out_of_memory("ERROR during memory allocation!", sizeof(StandAlone));
  enter_finalizer(M->data, delete_data);
  return M;
}

template <class T>
void keep_factor(precon* M, IldltResult<T>&& result) {
  auto kept = std::make_unique<PermutedFactor<T>>();
  kept->factor = std::move(result.factor);
  kept->place = std::move(result.place);
  kept->work.resize(kept->place.size());
  M->nnz = bounded(kept->factor.entries() + kept->factor.pivots);
  M->npos = kept->factor.npos;
  M->nneg = kept->factor.nneg;
  M->nperturbed = bounded(result.statistics.perturbed);
  stand_alone(M)->of<T>() = std::move(kept);
}

vec* stand_alone_apply(vec* result, precon* M, const vec* x) {
  NORV_ASSERT(x->is_complex == M->is_complex);
  by_kind(x->is_complex, [&](auto kind) {
    using T = decltype(kind);
    auto& kept = stand_alone(M)->of<T>();
    NORV_ASSERT(kept != nullptr);
    NORV_ASSERT(x->n == kept->place.size());
    T* const w = kept->work.data();
    const T* const b = values<T>(x);
    T* const y = values<T>(result);
    for (unsigned i = 0; i < x->n; ++i) w[kept->place[i]] = b[i];
    solve_forward(kept->factor, w);
    solve_diagonal_backward(kept->factor, w);
    for (unsigned i = 0; i < x->n; ++i) y[i] = w[kept->place[i]];
  });
  return result;
}

void stand_alone_free(precon* M, int) {
  remove_finalizer(M->data);
  delete_data(M->data);
  release_precon(M);
}

template void keep_factor(precon*, IldltResult<double>&&);
template void keep_factor(precon*, IldltResult<zcomplex>&&);

}  // namespace vlm::norv
