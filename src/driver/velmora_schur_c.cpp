// SPDX-License-Identifier: BSD-3-Clause
#include "driver/velmora_schur_c.hpp"

#include <limits>

#include "driver/factor_store.hpp"
#include "numeric/schur.hpp"

namespace vlm {

void velmora_schur_c(void** pt, int mnum, double* s, int* is, int* js) {
  if (pt == nullptr || handle_is_empty(pt)) return;
  const FactorRecord* record = factor_record(pt, mnum);
  const auto* structure = static_cast<const Structure*>(slot(pt, slot_structure));
  const int schur = control_of(pt).options.schur;
  if (record == nullptr || !record->finished || structure == nullptr || schur < 1) return;
  if (schur_entries(*structure, schur) >= std::numeric_limits<int>::max()) return;
  velmora_fact_schur(*structure, schur, record->single, record->lu, s, is, js);
}

}  // namespace vlm
