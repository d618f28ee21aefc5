// SPDX-License-Identifier: BSD-3-Clause
#include "symbolic/trailing.hpp"

#include <algorithm>

#include "base/memory.hpp"
#include "graph/starts.hpp"
#include "symbolic/symfct.hpp"

namespace vlm {
namespace {

/// The trailing columns, one after the other.
class TrailingColumns {
 public:
  TrailingColumns(const OrderedPattern& pattern, View<const int> parent, int leading)
      : pattern_(pattern),
        leading_(leading),
        n_(pattern.size()),
        root_store_(static_cast<std::size_t>(leading)),
        seen_store_(static_cast<std::size_t>(n_), 0),
        start_store_(static_cast<std::size_t>(leading) + 1, 0),
        root_(root_store_),
        seen_(seen_store_),
        next_(start_store_) {
    for (int j = leading; j >= 1; --j) {
      const int up = parent(j);
      root_(j) = up == 0 || up > leading ? j : root_(up);
    }
    gather_rows();
  }

  /// Rows behind the diagonal of column c, in no order.  Columns are asked for in rising order.
  const Vector<int>& below(int c) {
    rows_.clear();
    const auto add = [&](int row) {
      if (row <= c || seen_(row) == c) return;
      seen_(row) = c;
      rows_.push_back(row);
    };
    const std::size_t all = static_cast<std::size_t>(n_ - c);
    for_each_root(c, [&](int t) {
      ++next_(t);  // passes c itself
      for (int k = next_(t); k < end_store_[t - 1] && rows_.size() < all; ++k)
        add(clique_store_[static_cast<std::size_t>(k - 1)]);
    });
    pattern_.for_each_neighbour(c, add);
    return rows_;
  }

 private:
  /// Calls visit(t) for the roots whose structure has row i.
  template <class Visit>
  void for_each_root(int i, Visit visit) {
    pattern_.for_each_neighbour(i, [&](int j) {
      if (j > leading_ || seen_(root_(j)) == i) return;
      seen_(root_(j)) = i;
      visit(root_(j));
    });
  }

  /// The trailing rows of each root's structure, ascending.
  void gather_rows() {
    for (int i = leading_ + 1; i <= n_; ++i)
      for_each_root(i, [&](int t) { ++start_store_[static_cast<std::size_t>(t)]; });
    counts_to_starts(View<int>(start_store_));
    clique_store_.resize(static_cast<std::size_t>(start_store_.back() - 1));
    std::fill(seen_store_.begin(), seen_store_.end(), 0);
    Vector<int> fill(start_store_);
    for (int i = leading_ + 1; i <= n_; ++i)
      for_each_root(i, [&](int t) {
        clique_store_[static_cast<std::size_t>(fill[static_cast<std::size_t>(t - 1)]++ - 1)] = i;
      });
    end_store_.swap(fill);
    std::fill(seen_store_.begin(), seen_store_.end(), 0);
  }

  const OrderedPattern& pattern_;
  int leading_, n_;
  Vector<int> root_store_, seen_store_, start_store_, end_store_, clique_store_, rows_;
  View<int> root_;  ///< [leading] root of the tree that a column is in
  View<int> seen_;  ///< [n] last column or row that met it
  View<int> next_;  ///< [leading] first trailing row of a root that is not passed
};

/// Gathers consecutive columns while their union has few zeros.
class BlockBuilder {
 public:
  BlockBuilder(Analysis& analysis, int n)
      : analysis_(analysis), stamp_store_(static_cast<std::size_t>(n), 0), stamp_(stamp_store_) {}

  void add(int c, const Vector<int>& below) {
    const auto entries = static_cast<std::int64_t>(below.size()) + 1;
    if (block_.width > 0) {
      int rows = open_ - (stamp_(c) == id_ ? 1 : 0);
      for (const int row : below) rows += stamp_(row) == id_ ? 0 : 1;
      const std::int64_t width = block_.width + 1, size = trapezoid(width, width + rows);
      if (merge_pays(width, size, size - block_.nnz - entries)) {
        take(c, below);
        block_.nnz += entries;
        return;
      }
      close();
    }
    ++id_;
    block_ = {c, 0, 0, entries};
    open_ = 0;
    take(c, below);
  }

  void close() {
    if (block_.width == 0) return;
    const int last = block_.first + block_.width - 1;
    Vector<int>& rows = analysis_.trailing_rows;
    const auto begin = static_cast<std::ptrdiff_t>(rows.size());
    std::copy_if(members_.begin(), members_.end(), std::back_inserter(rows),
                 [&](int row) { return row > last; });
    std::sort(rows.begin() + begin, rows.end());
    block_.height = block_.width + open_;
    analysis_.trailing_blocks.push_back(block_);
    members_.clear();
    block_ = {};
  }

 private:
  void take(int c, const Vector<int>& below) {
    if (stamp_(c) == id_) --open_;
    stamp_(c) = id_;
    for (const int row : below) {
      if (stamp_(row) == id_) continue;
      stamp_(row) = id_;
      members_.push_back(row);
      ++open_;
    }
    ++block_.width;
  }

  Analysis& analysis_;
  Block block_;
  Vector<int> stamp_store_, members_;
  View<int> stamp_;  ///< [n] last block that has the row
  int id_ = 0;
  int open_ = 0;  ///< rows of the block behind its last column
};

}  // namespace

void find_trailing_blocks(const OrderedPattern& pattern, Analysis& analysis) {
  analysis.trailing_blocks.clear();
  analysis.trailing_rows.clear();
  if (analysis.trailing == 0) return;
  const int n = pattern.size(), leading = n - analysis.trailing;
  const View<int> parent(analysis.parent), colcnt(analysis.colcnt);
  TrailingColumns columns(pattern, parent, leading);
  BlockBuilder blocks(analysis, n);
  for (int c = leading + 1; c <= n; ++c) {
    const Vector<int>& below = columns.below(c);
    // A chain, so that whoever updates a column comes before it in any order along the tree.
    parent(c) = c < n ? c + 1 : 0;
    colcnt(c) = static_cast<int>(below.size()) + 1;
    blocks.add(c, below);
  }
  blocks.close();
}

}  // namespace vlm
