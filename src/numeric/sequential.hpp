// SPDX-License-Identifier: BSD-3-Clause
/// Sequential schedule of the supernodal factorization, for all panels or for one domain.
#pragma once

#include <utility>

#include "numeric/family.hpp"

namespace vlm {

/// What one panel's elimination came to.
enum class Step { finished, kept, failed };

/// A panel of the Schur complement is left as the updates made it, and updates nothing.
template <class T>
bool is_eliminated(const FactorFrame<T>& f, const Panel<T>& panel) {
  return panel.first + panel.width - 1 <= f.last_eliminated;
}

/// Work of an update, for the progress: what the rows of the source that it consumes stand for. The
/// updates of a panel add up to half of width times rows^2.
template <class T>
double update_work(const UpdateSource<T>& s) {
  return 0.5 * s.panel.width * s.q * (2.0 * s.m - s.q);
}

/// Work of the last steps of a panel, likewise.
template <class T>
double finish_work(const Panel<T>& panel) {
  return 0.5 * panel.width * panel.width * panel.rows;
}

/// Applies an update and counts it.
template <class Family, class T>
void apply_counted(const FactorFrame<T>& f, const UpdateSource<T>& source, const Panel<T>& target,
                   FactorScratch<T>& scratch) {
  Family::apply(f, source, target, scratch);
  if (f.progress != nullptr) f.progress->add(update_work(source));
}

/// False on the thread of the call once its listener has ended it.
template <class T>
bool goes_on(const FactorFrame<T>& f) {
  return f.progress == nullptr || Progress::current() != f.progress || f.progress->pulse();
}

/// Last steps of panel s, which all its updates have reached.  Its share of the determinant is
/// kept by panel, so that threads show nothing in the sum.
template <class Family, class T>
Step complete_panel(const FactorFrame<T>& f, int s, const Panel<T>& target,
                    FactorScratch<T>& scratch) {
  if (!is_eliminated(f, target)) {
    Family::keep(f, target);
    return Step::kept;
  }
  if (!Family::finish(f, target, scratch)) return Step::failed;
  f.logdet[s - 1] = std::exchange(scratch.stats.logdet, 0);
  if (f.progress != nullptr) f.progress->add(finish_work(target));
  return Step::finished;
}

/// Lists of the left-looking schedule, [nsuper] each; domains use disjoint parts.
struct PanelLists {
  View<int> head;      ///< first panel waiting for a target, 0: none
  View<int> next;      ///< next one in the same list
  View<int> consumed;  ///< rows of its list that are used
  PanelLists(const Structure& st, Carver& carver)
      : head(carver.make<int>(static_cast<std::size_t>(st.nsuper))),
        next(carver.take<int>(static_cast<std::size_t>(st.nsuper))),
        consumed(carver.take<int>(static_cast<std::size_t>(st.nsuper))) {}
};

/// Sequential left-looking schedule (Ng and Peyton, "Block sparse Cholesky algorithms on
/// advanced uniprocessor computers", 1993) for panels first to last; what they owe to panels
/// behind is left to others.
///
/// A finished panel waits in the list of the panel that its next unconsumed row belongs to;
/// `consumed` says how much of its row list has been used.  Panels are finished in order.
/// @param finished  called with the number of each panel that is done; false: no more of them
/// @return false when a panel failed, or was not wanted any more
template <class Family, class T, class Finished>
bool run_sequential(const FactorFrame<T>& f, FactorScratch<T>& scratch, const PanelLists& lists,
                    int first, int last, Finished finished) {
  const Structure& st = f.st;
  const View<int> head = lists.head, next = lists.next, consumed = lists.consumed;
  const auto enlist = [&](int s, const Panel<T>& panel, int used) {
    if (used == panel.rows) return;
    const int target = st.snode(panel.row[used]);
    if (target > last) return;
    consumed(s) = used;
    int& list = head(target);
    next(s) = list;
    list = s;
  };

  for (int j = first; j <= last; ++j) {
    const Panel<T> target = panel_of(st, f.store, j);
    Family::load(f, j);
    index_rows(target, scratch.indmap);
    for (int s = head(j); s != 0;) {
      const int following = next(s);
      const auto source = update_source(panel_of(st, f.store, s), consumed(s), target);
      apply_counted<Family>(f, source, target, scratch);
      if (!goes_on(f)) return false;
      enlist(s, source.panel, source.skip + source.q);
      s = following;
    }
    const Step step = complete_panel<Family>(f, j, target, scratch);
    if (step == Step::failed) return false;
    if (!finished(j) || !goes_on(f)) return false;
    if (step == Step::finished) enlist(j, target, target.width);
  }
  return true;
}

}  // namespace vlm
