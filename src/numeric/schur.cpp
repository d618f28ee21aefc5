// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement.
///
/// A factorization with a Schur part loads and updates the trailing panels but does not
/// eliminate them: they are left holding A22 - L21 D L21^T, each column from its diagonal down.
/// The columns of that lower triangle are the rows of the upper one.
#include "numeric/schur.hpp"

#include <algorithm>

#include "driver/factor_store.hpp"
#include "numeric/factor.hpp"

namespace vlm {
namespace {

/// Calls visit(column, first row, last row) for the trailing columns in order; the rows are
/// positions in lindx, from the diagonal down.
template <class Visit>
void visit_schur_columns(const Structure& st, int nschur, Visit visit) {
  const int leading = st.n - nschur;
  for (int s = 1; s <= st.nsuper; ++s) {
    const int first = st.xsuper(s), next = st.xsuper(s + 1);
    for (int column = std::max(first, leading + 1); column < next; ++column)
      visit(column, st.xlindx(s) + (column - first), st.xlindx(s + 1) - 1);
  }
}

template <class T>
void velmora_fact_schur(const Structure& st, int nschur, void* lu, double* s, int* is, int* js) {
  const FactorStore<T> store = factor_store<T>(st, lu);
  const int leading = st.n - nschur;
  int t = 0;
  is[0] = 1;
  visit_schur_columns(st, nschur, [&](int column, int first, int last) {
    // The column ends with its last row; count its source back from there.
    const T* source = store.lnz + (st.xlnz(column + 1) - 1) - (last - first + 1);
    for (int k = first; k <= last; ++k, ++t) {
      s[t] = static_cast<double>(*source++);
      js[t] = st.lindx(k) - leading;
    }
    is[column - leading] = t + 1;
  });
}

}  // namespace

int schur_entries(const Structure& structure, int nschur) {
  int count = 0;
  if (nschur > 0)
    visit_schur_columns(structure, nschur,
                        [&](int, int first, int last) { count += last - first + 1; });
  return count;
}

void velmora_schur_c(void** pt, int maxfct, int mnum, int mtype, double* s, int* is, int* js) {
  static_cast<void>(maxfct);
  static_cast<void>(mtype);
  if (pt == nullptr || handle_is_empty(pt)) return;
  const FactorRecord* record = factor_record(pt, mnum);
  const auto* structure = static_cast<const Structure*>(slot(pt, slot_structure));
  const int nschur = control_of(pt).nschur;
  if (record == nullptr || record->factored == nullptr || structure == nullptr || nschur < 1)
    return;
  if (record->single32)
    velmora_fact_schur<float>(*structure, nschur, record->lu, s, is, js);
  else
    velmora_fact_schur<double>(*structure, nschur, record->lu, s, is, js);
}

}  // namespace vlm
