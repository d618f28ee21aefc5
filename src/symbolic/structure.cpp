// SPDX-License-Identifier: BSD-3-Clause
/// The finished structure, and the map from the caller's values into the factor.
///
/// The map is built column by column: a counting sort brings the entries of A to the columns
/// of the factor that they land in, then one dense index per panel finds their places.
/// Cost: nnz(A) plus the length of the row lists.
#include "symbolic/structure.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "base/carver.hpp"
#include "base/memory.hpp"
#include "base/work_team.hpp"

namespace vlm {

namespace {

// Each slice of the rows counts the entries of all columns.
constexpr int most_slices = 8;

/// The writable arrays of a Structure.
struct Arrays {
  View<std::int64_t> xlnz, xunz;
  View<int> perm, invp, xsuper, snode, xlindx, lindx, sparent, nmod, range;
  View<int> marked_rows, marked_columns, path;
  View<int> queue, start, up, uplen;
  View<int> lptr, ldst, lsrc, uptr, udst, usrc;
};

/// The widest elements come first, so that all are aligned.
Arrays carve(Carver& carver, const Analysis& analysis, const StructurePlan& plan) {
  const std::size_t n = analysis.graph.n, nsuper = analysis.nsuper;
  const auto ints = [&](std::size_t length) { return carver.take<int>(length); };
  const auto entries = [](const Vector<int>& starts) {
    return starts.empty() ? std::size_t{0} : static_cast<std::size_t>(starts.back() - 1);
  };
  Arrays a;
  a.xlnz = carver.take<std::int64_t>(nsuper + 1);
  a.xunz = carver.take<std::int64_t>(nsuper + 1);
  a.perm = ints(n);
  a.invp = ints(n);
  a.xsuper = ints(nsuper + 1);
  a.snode = ints(n);
  a.xlindx = ints(nsuper + 1);
  a.lindx = ints(analysis.lindx.size());
  a.sparent = ints(nsuper);
  a.nmod = ints(nsuper);
  a.range = ints(2 * analysis.super_ranges.size());
  a.marked_rows = ints(analysis.marked_rows.size());
  a.marked_columns = ints(analysis.marked_columns.size());
  a.path = ints(analysis.path.size());
  a.queue = ints(analysis.queue.size());
  a.start = ints(analysis.updates.start.size());
  a.up = ints(analysis.updates.up.size());
  a.uplen = ints(analysis.updates.uplen.size());
  a.lptr = ints(plan.lower.size());
  a.ldst = ints(entries(plan.lower));
  a.lsrc = ints(entries(plan.lower));
  a.uptr = ints(plan.upper.size());
  a.udst = ints(entries(plan.upper));
  a.usrc = ints(entries(plan.upper));
  return a;
}

/// Position in the permuted matrix of each row of A: invp, or its composition with the
/// matching, by which row row_perm(i) takes the place of node i.
Vector<int> row_positions(const MapInput& input, const Analysis& analysis) {
  Vector<int> position(analysis.order.invp);
  if (input.row_perm == nullptr) return position;
  const int n = analysis.graph.n;
  const View<const int> invp(analysis.order.invp), match(input.row_perm, n);
  const View<int> out(position);
  for (int i = 1; i <= n; ++i) out(match(i)) = invp(i);
  return position;
}

/// Where an entry of A lands: in a column of L's store or of U's, in a row of the panel.
struct Place {
  bool in_u;
  int column;
  int row;  ///< negative for an entry that the symmetric storage holds below the diagonal
};

/// Calls visit(place, p) for each entry p of A in a slice of its rows.
template <class Visit>
void for_each_entry(const MapInput& input, const StructurePlan& plan, const Analysis& analysis,
                    const Slice& rows, Visit visit) {
  const InputMatrix& m = input.matrix;
  const View<const int> row_position(plan.row_position), invp(analysis.order.invp);
  const View<const int> snode(analysis.snode);
  const View<const int> ia(m.ia, m.n + 1), ja(m.ja, static_cast<std::size_t>(m.nnz()));
  for (int i = rows.begin + 1; i <= rows.end; ++i)
    for (int p = ia(i); p < ia(i + 1); ++p) {
      const int r = row_position(i), c = invp(ja(p));
      if (input.symmetric)
        visit(r >= c ? Place{false, c, -r} : Place{false, r, c}, p);
      else if (r >= c || snode(r) == snode(c))  // U11 lives in the diagonal block of the L panel
        visit(Place{false, c, r}, p);
      else
        visit(Place{true, r, c}, p);
    }
}

/// Sorts the entries of A by the column of the factor that they land in; dst takes their rows.
/// Each slice of the rows has its own places in every column.
void distribute(const MapInput& input, StructurePlan& plan, const Analysis& analysis,
                const Arrays& a) {
  const int slices = static_cast<int>(plan.slices.size());
  side_by_side(slices, slices, [&](int t) {
    const View<int> next_lower(plan.slices[t].lower), next_upper(plan.slices[t].upper);
    for_each_entry(input, plan, analysis, Slice(input.matrix.n, t, slices),
                   [&](const Place& at, int p) {
                     const int k = at.in_u ? next_upper(at.column)++ : next_lower(at.column)++;
                     (at.in_u ? a.udst : a.ldst)(k) = at.row;
                     (at.in_u ? a.usrc : a.lsrc)(k) = p;
                   });
  });
}

/// Replaces the rows by positions in the panel, for the panels `from` to `to` - 1.
void place_entries(const Analysis& analysis, const Arrays& a, int from, int to) {
  const View<const int> xsuper(analysis.xsuper), xlindx(analysis.xlindx), lindx(analysis.lindx);
  Vector<int> index_store(analysis.graph.n);
  const View<int> index(index_store);  // place of a row in the current panel's list, from 1
  for (int s = from; s < to; ++s) {
    const int first = xsuper(s), next = xsuper(s + 1), width = next - first;
    const int rows = xlindx(s + 1) - xlindx(s), below = rows - width;
    for (int k = 0; k < rows; ++k) index(lindx(xlindx(s) + k)) = k + 1;
    for (int j = first; j < next; ++j) {
      const int l = (j - first) * rows, u = (j - first) * below - width;
      for (int p = a.lptr(j); p < a.lptr(j + 1); ++p) {
        const int row = a.ldst(p);
        a.ldst(p) = row > 0 ? l + index(row) : -(l + index(-row));
      }
      if (a.uptr.empty()) continue;
      for (int p = a.uptr(j); p < a.uptr(j + 1); ++p) a.udst(p) = u + index(a.udst(p));
    }
  }
}

/// The first panel of part `k` of `parts` with like numbers of rows and entries.
int first_panel(const Analysis& analysis, const Arrays& a, int k, int parts) {
  const View<const int> xsuper(analysis.xsuper), xlindx(analysis.xlindx);
  const auto load = [&](int s) { return static_cast<std::int64_t>(xlindx(s)) + a.lptr(xsuper(s)); };
  const int end = analysis.nsuper + 1;
  const std::int64_t wanted = load(1) + (load(end) - load(1)) * k / parts;
  int low = 1, high = end;
  while (low < high) {
    const int middle = low + (high - low) / 2;
    (load(middle) < wanted ? low : high) = load(middle) < wanted ? middle + 1 : middle;
  }
  return low;
}

/// Counts the entries of each slice and column, and turns the counts into starts.
void count_entries(const MapInput& input, const Analysis& analysis, int slices,
                   StructurePlan& plan) {
  const int n = analysis.graph.n;
  plan.slices.resize(slices);
  side_by_side(slices, slices, [&](int t) {
    ColumnStarts& own = plan.slices[t];
    own.lower.assign(n + 1, 0);
    if (!input.symmetric) own.upper.assign(n + 1, 0);
    for_each_entry(
        input, plan, analysis, Slice(input.matrix.n, t, slices),
        [&](const Place& at, int) { ++(at.in_u ? own.upper : own.lower)[at.column - 1]; });
  });
  for (Vector<int> ColumnStarts::*part : {&ColumnStarts::lower, &ColumnStarts::upper}) {
    Vector<int>& starts = part == &ColumnStarts::lower ? plan.lower : plan.upper;
    if (starts.empty()) continue;
    int next = 1;
    for (int j = 0; j <= n; ++j) {
      starts[j] = next;
      for (ColumnStarts& slice : plan.slices) next += std::exchange((slice.*part)[j], next);
    }
  }
}

/// Copies an array of the analysis to its place in the block.
template <class T>
View<const T> keep(const Vector<T>& from, View<T> to) {
  std::copy(from.begin(), from.end(), to.begin());
  return to;
}

/// Figures of the panels.
void measure_panels(Structure& out) {
  for (int s = 1; s <= out.nsuper; ++s) {
    const int rows = out.xlindx(s + 1) - out.xlindx(s), width = out.xsuper(s + 1) - out.xsuper(s);
    out.max_rows = std::max(out.max_rows, rows);
    out.max_width = std::max(out.max_width, width);
  }
  out.len_lnz = out.xlnz(out.nsuper + 1) - 1;
  out.len_unz = out.xunz(out.nsuper + 1) - 1;
  for (const int s : out.path)
    out.path_entries +=
        static_cast<double>(out.xlnz(s + 1) - out.xlnz(s) + out.xunz(s + 1) - out.xunz(s));
}

}  // namespace

StructurePlan plan_structure(const MapInput& input, const Analysis& analysis, int threads) {
  const std::size_t n = analysis.graph.n;
  StructurePlan plan{row_positions(input, analysis), Vector<int>(n + 1, 0), {}, {}};
  if (!input.symmetric) plan.upper.assign(n + 1, 0);
  const auto entries = static_cast<std::size_t>(input.matrix.nnz());
  count_entries(input, analysis, std::min(threads_for(entries, threads), most_slices), plan);
  Carver carver(nullptr, sizeof(Structure));
  carve(carver, analysis, plan);
  plan.bytes = carver.used();
  return plan;
}

Structure* build_structure(void* block, const MapInput& input, StructurePlan& plan,
                           const Analysis& analysis) {
  Carver carver(block, sizeof(Structure));
  const Arrays a = carve(carver, analysis, plan);
  auto* out = new (block) Structure;
  out->n = analysis.graph.n;
  out->nsuper = analysis.nsuper;
  out->nparts = static_cast<int>(analysis.super_ranges.size()) - 1;
  out->divided = analysis.divided;
  out->max_scaled = analysis.max_scaled;
  out->figures = analysis.figures;
  out->xlnz = keep(analysis.xlnz, a.xlnz);
  out->xunz = keep(analysis.xunz, a.xunz);
  out->perm = keep(analysis.order.perm, a.perm);
  out->invp = keep(analysis.order.invp, a.invp);
  out->xsuper = keep(analysis.xsuper, a.xsuper);
  out->snode = keep(analysis.snode, a.snode);
  out->xlindx = keep(analysis.xlindx, a.xlindx);
  out->lindx = keep(analysis.lindx, a.lindx);
  out->sparent = keep(analysis.sparent, a.sparent);
  out->nmod = keep(analysis.nmod, a.nmod);
  out->marked_rows = keep(analysis.marked_rows, a.marked_rows);
  out->marked_columns = keep(analysis.marked_columns, a.marked_columns);
  out->path = keep(analysis.path, a.path);
  out->schedule = {analysis.updates.scheme, keep(analysis.queue, a.queue),
                   keep(analysis.updates.start, a.start), keep(analysis.updates.up, a.up),
                   keep(analysis.updates.uplen, a.uplen)};
  int k = 0;
  for (const Range& range : analysis.super_ranges) {
    a.range(++k) = range.first;
    a.range(++k) = range.last;
  }
  out->range = a.range;
  keep(plan.lower, a.lptr);
  keep(plan.upper, a.uptr);
  distribute(input, plan, analysis, a);
  const int parts = static_cast<int>(plan.slices.size());
  side_by_side(parts, parts, [&](int t) {
    place_entries(analysis, a, first_panel(analysis, a, t, parts),
                  first_panel(analysis, a, t + 1, parts));
  });
  out->lmap = {a.lptr, a.ldst, a.lsrc};
  out->umap = {a.uptr, a.udst, a.usrc};
  measure_panels(*out);
  return out;
}

}  // namespace vlm
