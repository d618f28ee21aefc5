/// Schedules of the supernodal factorization: which thread handles which panel when.
#pragma once

#include <vector>

#include "family.hpp"

namespace vlm {

/// Sequential left-looking schedule (Ng and Peyton, "Block sparse Cholesky algorithms on
/// advanced uniprocessor computers", 1993).
///
/// A finished panel waits in the list of the panel that its next unconsumed row belongs to;
/// `consumed` says how much of its row list has been used.  Panels are finished in order.
/// @param links  [2 * nsuper] scratch
/// @return status_ok or status_pivot
template <class Family, class T>
int run_sequential(const FactorFrame<T>& f, FactorScratch<T>& scratch, int* links) {
  const Structure& st = f.st;
  const std::size_t nsuper = static_cast<std::size_t>(st.nsuper);
  const View<int> head(links, nsuper);           // first panel waiting for a target, 0: none
  const View<int> next(links + nsuper, nsuper);  // next one in the same list
  std::vector<int> consumed_store(nsuper, 0);
  const View<int> consumed(consumed_store);
  std::fill(head.begin(), head.end(), 0);
  const auto enlist = [&](int s, const Panel<T>& panel, int used) {
    if (used == panel.rows) return;
    consumed(s) = used;
    int& list = head(st.snode(panel.row[used]));
    next(s) = list;
    list = s;
  };

  for (int j = 1; j <= st.nsuper; ++j) {
    const Panel<T> target = panel_of(st, f.store, j);
    Family::load(f, j);
    index_rows(target, scratch.indmap);
    for (int s = head(j); s != 0;) {
      const int following = next(s);
      const auto source = update_source(panel_of(st, f.store, s), consumed(s), target);
      Family::apply(f, source, target, scratch);
      enlist(s, source.panel, source.skip + source.q);
      s = following;
    }
    if (target.first + target.width - 1 > f.last_eliminated) {
      Family::keep(f, target);  // a panel of the Schur complement updates nothing
      continue;
    }
    if (!Family::finish(f, target, scratch)) return status_pivot;
    enlist(j, target, target.width);
  }
  return status_ok;
}

}  // namespace vlm
