// SPDX-License-Identifier: BSD-3-Clause
/// The finished structure, and the map from the caller's values into the factor.
///
/// The map is built column by column: a counting sort brings the entries of A to the columns
/// of the factor that they land in, then one dense index per panel finds their places.
/// Cost: nnz(A) plus the length of the row lists.
#include <algorithm>
#include <cstring>
#include <new>

#include "driver/stages.hpp"
#include "symbolic/structure.hpp"

namespace vlm {

namespace {

/// Where entries of A go: to L (on or below the diagonal of the permuted matrix) or to U.
struct Place {
  int row, column;  ///< position in the permuted matrix, row >= column
  bool upper;       ///< the entry stands above the diagonal there
};

/// Permuted position of stored entry (i, j), both nodes.
Place place_of(View<const int> row_position, View<const int> invp, int i, int j) {
  const int r = row_position(i), c = invp(j);
  return r >= c ? Place{r, c, false} : Place{c, r, true};
}

/// Carves the arrays of a Structure from its block, or only measures them.
class Carver {
 public:
  explicit Carver(void* block) : base_(static_cast<char*>(block)), used_(sizeof(Structure)) {}
  View<int> ints(std::size_t length) {
    int* p = base_ ? reinterpret_cast<int*>(base_ + used_) : nullptr;
    used_ += length * sizeof(int);
    return {p, length};
  }
  std::size_t used() const { return used_; }

 private:
  char* base_;
  std::size_t used_;
};

/// The writable arrays of a Structure.
struct Arrays {
  View<int> perm, invp, xsuper, snode, xlindx, lindx, xlnz, xunz, sparent, nmod, range;
  View<int> queue, start, up, uplen;
  View<int> lptr, ldst, lsrc, uptr, udst, usrc;
};

struct MapSizes {
  std::size_t lower = 0, upper = 0;
};

/// Position in the permuted matrix of each row of A: invp, or its composition with the
/// matching, by which row matching.perm(i) takes the place of node i.
std::vector<int> row_positions(const AnalysisRequest& request, const Control& control,
                               const Analysis& analysis) {
  const View<const int> invp(analysis.order.invp);
  std::vector<int> position(analysis.order.invp);
  if (!control.sym_struct && request.matching.perm != nullptr) {
    const int n = analysis.graph.n;
    const View<const int> match(request.matching.perm, n);
    const View<int> out(position);
    for (int i = 1; i <= n; ++i) out(match(i)) = invp(i);
  }
  return position;
}

MapSizes map_sizes(const AnalysisRequest& request, const Control& control,
                   const Analysis& analysis) {
  const InputMatrix& m = request.matrix;
  const std::size_t nnz = static_cast<std::size_t>(m.nnz());
  if (control.sym_struct) return {nnz, 0};
  const std::vector<int> position = row_positions(request, control, analysis);
  const View<const int> row_position(position), invp(analysis.order.invp);
  const View<const int> ia(m.ia, m.n + 1), ja(m.ja, nnz);
  // U11 lives in the diagonal block of the L panel: only entries right of it go to U.
  const View<const int> snode(analysis.snode);
  MapSizes sizes;
  for (int i = 1; i <= m.n; ++i)
    for (int p = ia(i); p < ia(i + 1); ++p) {
      const Place at = place_of(row_position, invp, i, ja(p));
      const bool in_u = at.upper && snode(at.row) != snode(at.column);
      ++(in_u ? sizes.upper : sizes.lower);
    }
  return sizes;
}

Arrays carve(Carver& carver, const Analysis& analysis, const Control& control, MapSizes sizes) {
  const std::size_t n = analysis.graph.n, nsuper = analysis.nsuper;
  Arrays a;
  a.perm = carver.ints(n);
  a.invp = carver.ints(n);
  a.xsuper = carver.ints(nsuper + 1);
  a.snode = carver.ints(n);
  a.xlindx = carver.ints(nsuper + 1);
  a.lindx = carver.ints(analysis.lindx.size());
  a.xlnz = carver.ints(n + 1);
  a.xunz = carver.ints(n + 1);
  a.sparent = carver.ints(nsuper);
  a.nmod = carver.ints(nsuper);
  a.range = carver.ints(2 * analysis.super_ranges.size());
  a.queue = carver.ints(analysis.queue.size());
  a.start = carver.ints(analysis.updates.start.size());
  a.up = carver.ints(analysis.updates.up.size());
  a.uplen = carver.ints(analysis.updates.uplen.size());
  a.lptr = carver.ints(n + 1);
  a.ldst = carver.ints(sizes.lower);
  a.lsrc = carver.ints(sizes.lower);
  if (!control.sym_struct) {
    a.uptr = carver.ints(n + 1);
    a.udst = carver.ints(sizes.upper);
    a.usrc = carver.ints(sizes.upper);
  }
  return a;
}

/// One entry of the map before its place in the panel is known.
class MapBuilder {
 public:
  MapBuilder(View<int> ptr, View<int> dst, View<int> src) : ptr_(ptr), dst_(dst), src_(src) {}
  void count(int column) { ++ptr_(column + 1); }
  void start() {
    ptr_(1) = 1;
    for (std::size_t j = 2; j <= ptr_.size(); ++j) ptr_(j) += ptr_(j - 1);
  }
  /// Parks the signed row in dst until the panel's row index is at hand.
  void put(int column, int signed_row, int source) {
    const int p = ptr_(column)++;
    dst_(p) = signed_row;
    src_(p) = source;
  }
  void finish() {
    for (std::size_t j = ptr_.size(); j >= 2; --j) ptr_(j) = ptr_(j - 1);
    ptr_(1) = 1;
  }
  int begin(int column) const { return ptr_(column); }
  int end(int column) const { return ptr_(column + 1); }
  int& dst(int p) const { return dst_(p); }

 private:
  View<int> ptr_, dst_, src_;
};

/// Sorts the entries of A by the column of the factor that they land in.
void distribute(const AnalysisRequest& request, const Control& control, const Analysis& analysis,
                MapBuilder& lower, MapBuilder& upper) {
  const InputMatrix& m = request.matrix;
  const std::vector<int> position = row_positions(request, control, analysis);
  const View<const int> row_position(position), invp(analysis.order.invp);
  const View<const int> snode(analysis.snode);
  const View<const int> ia(m.ia, m.n + 1), ja(m.ja, static_cast<std::size_t>(m.nnz()));
  const bool symmetric = control.sym_struct != 0;
  const auto each_entry = [&](auto&& visit) {
    for (int i = 1; i <= m.n; ++i)
      for (int p = ia(i); p < ia(i + 1); ++p) {
        const Place at = place_of(row_position, invp, i, ja(p));
        visit(at, !symmetric && at.upper && snode(at.row) != snode(at.column), p);
      }
  };
  each_entry([&](const Place& at, bool in_u, int) {
    // An entry of U11 belongs to the column that it stands in, which is the later one.
    if (in_u)
      upper.count(at.column);
    else
      lower.count(!symmetric && at.upper ? at.row : at.column);
  });
  lower.start();
  if (!symmetric) upper.start();
  each_entry([&](const Place& at, bool in_u, int p) {
    if (in_u)
      upper.put(at.column, at.row, p);
    else if (!symmetric && at.upper)
      lower.put(at.row, at.column, p);
    else
      lower.put(at.column, symmetric && !at.upper ? -at.row : at.row, p);
  });
  lower.finish();
  if (!symmetric) upper.finish();
}

/// Replaces the parked rows by positions in the stores, panel by panel.
void place_entries(const Control& control, const Analysis& analysis, MapBuilder& lower,
                   MapBuilder& upper) {
  const View<const int> xsuper(analysis.xsuper), xlindx(analysis.xlindx), lindx(analysis.lindx);
  const View<const int> xlnz(analysis.xlnz), xunz(analysis.xunz);
  std::vector<int> index_store(analysis.graph.n);
  const View<int> index(index_store);  // place of a row in the current panel's list, from 0
  for (int s = 1; s <= analysis.nsuper; ++s) {
    for (int k = xlindx(s); k < xlindx(s + 1); ++k) index(lindx(k)) = k - xlindx(s);
    const int width = xsuper(s + 1) - xsuper(s);
    for (int j = xsuper(s); j < xsuper(s + 1); ++j) {
      for (int p = lower.begin(j); p < lower.end(j); ++p) {
        const int row = lower.dst(p);
        lower.dst(p) = row > 0 ? xlnz(j) + index(row) : -(xlnz(j) + index(-row));
      }
      if (control.sym_struct) continue;
      for (int p = upper.begin(j); p < upper.end(j); ++p)
        upper.dst(p) = xunz(j) + index(upper.dst(p)) - width;
    }
  }
}

/// Copies an array of the analysis to its place in the block.
View<const int> keep(const std::vector<int>& from, View<int> to) {
  std::copy(from.begin(), from.end(), to.begin());
  return to;
}

}  // namespace

std::size_t structure_bytes(const AnalysisRequest& request, const Control& control,
                            const Analysis& analysis) {
  Carver carver(nullptr);
  carve(carver, analysis, control, map_sizes(request, control, analysis));
  return carver.used();
}

Structure* build_structure(void* block, const AnalysisRequest& request, const Control& control,
                           const Analysis& analysis) {
  Carver carver(block);
  const Arrays a = carve(carver, analysis, control, map_sizes(request, control, analysis));
  auto* out = new (block) Structure;
  out->perm = keep(analysis.order.perm, a.perm);
  out->invp = keep(analysis.order.invp, a.invp);
  out->xsuper = keep(analysis.xsuper, a.xsuper);
  out->snode = keep(analysis.snode, a.snode);
  out->xlindx = keep(analysis.xlindx, a.xlindx);
  out->lindx = keep(analysis.lindx, a.lindx);
  out->xlnz = keep(analysis.xlnz, a.xlnz);
  out->xunz = keep(analysis.xunz, a.xunz);
  out->sparent = keep(analysis.sparent, a.sparent);
  out->nmod = keep(analysis.nmod, a.nmod);
  out->schedule = {analysis.updates.scheme, keep(analysis.queue, a.queue),
                   keep(analysis.updates.start, a.start), keep(analysis.updates.up, a.up),
                   keep(analysis.updates.uplen, a.uplen)};
  int k = 0;
  for (const Range& range : analysis.super_ranges) {
    a.range(++k) = range.first;
    a.range(++k) = range.last;
  }
  std::fill(a.lptr.begin(), a.lptr.end(), 0);
  std::fill(a.uptr.begin(), a.uptr.end(), 0);
  MapBuilder lower(a.lptr, a.ldst, a.lsrc), upper(a.uptr, a.udst, a.usrc);
  distribute(request, control, analysis, lower, upper);
  place_entries(control, analysis, lower, upper);

  out->n = analysis.graph.n;
  out->nsuper = analysis.nsuper;
  out->nparts = static_cast<int>(analysis.super_ranges.size()) - 1;
  out->nfw = analysis.nfw;
  out->nbw = analysis.nbw;
  for (int s = 1; s <= analysis.nsuper; ++s) {
    const int rows = a.xlindx(s + 1) - a.xlindx(s), width = a.xsuper(s + 1) - a.xsuper(s);
    out->max_rows = std::max(out->max_rows, rows);
    out->max_below = std::max(out->max_below, rows - width);
    out->max_width = std::max(out->max_width, width);
  }
  out->len_lnz = a.xlnz(out->n + 1) - 1;
  out->len_unz = control.sym_struct ? 0 : a.xunz(out->n + 1) - 1;
  out->max_update = analysis.max_update;
  out->max_scaled = analysis.max_scaled;
  out->range = a.range;
  out->lmap = {a.lptr, a.ldst, a.lsrc};
  out->umap = {a.uptr, a.udst, a.usrc};
  return out;
}

}  // namespace vlm
