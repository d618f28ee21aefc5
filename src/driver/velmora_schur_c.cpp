// SPDX-License-Identifier: BSD-3-Clause
#include "driver/velmora_schur_c.hpp"

#include <limits>

#include "driver/factor_store.hpp"
#include "driver/options.hpp"
#include "numeric/schur.hpp"

namespace vlm {

const char* velmora_schur_c(void** pt, int mnum, double* s, int* is, int* js) {
  if (pt == nullptr || s == nullptr || is == nullptr || js == nullptr)
    return "*** Schur complement: a null pointer\n"
           "*** what to do: pass pt, s, is and js; iparm(39) tells the length of s and js";
  const auto* structure =
      handle_is_empty(pt) ? nullptr : static_cast<const Structure*>(slot(pt, slot_structure));
  const FactorRecord* record = structure == nullptr ? nullptr : factor_record(pt, mnum);
  if (record == nullptr || !record->finished)
    return "*** Schur complement: there is no factor of this matrix number\n"
           "*** what to do: set iparm(38) before the analysis, and factor (phases 12, 22)";
  Options as_factored = control_of(pt).options;
  as_factored.type = &matrix_type(record->mtype);
  as_factored.single = record->single;
  const SchurOptions options = schur_options(as_factored);
  if (options.schur < 1)
    return "*** Schur complement: the analysis was of the whole matrix\n"
           "*** what to do: set iparm(38) before the analysis";
  if (schur_entries(*structure, options) >= std::numeric_limits<int>::max())
    return "*** Schur complement: it has more entries than 32-bit integers can count\n"
           "*** what to do: keep fewer unknowns, with a larger iparm(38)";
  velmora_fact_schur(*structure, options, record->lu, s, is, js);
  return nullptr;
}

}  // namespace vlm
