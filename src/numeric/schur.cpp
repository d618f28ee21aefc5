// SPDX-License-Identifier: BSD-3-Clause
/// Schur complement.
///
/// A factorization with a Schur part loads and updates the trailing panels but does not
/// eliminate them: they are left holding A22 - L21 D L21^T, each column from its diagonal down.
/// The columns of that lower triangle are the rows of the upper one.
#include "numeric/schur.hpp"

#include <algorithm>

#include "numeric/factor.hpp"

namespace vlm {
namespace {

/// Calls visit(column, first row, last row) for the trailing columns in order; the rows are
/// positions in lindx, from the diagonal down.
template <class Visit>
void visit_schur_columns(const Structure& st, int schur, Visit visit) {
  const int leading = st.n - schur;
  for (int s = 1; s <= st.nsuper; ++s) {
    const int first = st.xsuper(s), next = st.xsuper(s + 1);
    for (int column = std::max(first, leading + 1); column < next; ++column)
      visit(column, st.xlindx(s) + (column - first), st.xlindx(s + 1) - 1);
  }
}

template <class T>
void copy_complement(const Structure& st, int schur, const void* lu, double* s, int* is, int* js) {
  const FactorStore<T> store = factor_store<T>(st, const_cast<void*>(lu));
  const int leading = st.n - schur;
  int t = 0;
  is[0] = 1;
  visit_schur_columns(st, schur, [&](int column, int first, int last) {
    const Panel<T> panel = panel_of(st, store, st.snode(column));
    // The diagonal of a panel's column k stands k rows down.
    const T* source =
        panel.l + static_cast<std::ptrdiff_t>(column - panel.first) * (panel.rows + 1);
    for (int k = first; k <= last; ++k, ++t) {
      s[t] = static_cast<double>(*source++);
      js[t] = st.lindx(k) - leading;
    }
    is[column - leading] = t + 1;
  });
}

}  // namespace

std::int64_t schur_entries(const Structure& structure, int schur) {
  std::int64_t count = 0;
  if (schur > 0)
    visit_schur_columns(structure, schur,
                        [&](int, int first, int last) { count += last - first + 1; });
  return count;
}

void velmora_fact_schur(const Structure& structure, int schur, bool single, const void* lu,
                        double* s, int* is, int* js) {
  if (single)
    copy_complement<float>(structure, schur, lu, s, is, js);
  else
    copy_complement<double>(structure, schur, lu, s, is, js);
}

}  // namespace vlm
