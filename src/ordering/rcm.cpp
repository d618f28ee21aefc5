// SPDX-License-Identifier: BSD-3-Clause
#include "ordering/rcm.hpp"

#include <algorithm>

#include "base/view.hpp"

namespace vlm {
namespace {

class CuthillMcKee {
 public:
  explicit CuthillMcKee(const Adjacency& graph)
      : xadj_(graph.xadj), adjncy_(graph.adjncy), numbered_(graph.n + 1, 0), seen_(graph.n + 1, 0) {
    perm_.reserve(graph.n);
  }

  std::vector<int> run(int n) {
    for (int v = 1; v <= n; ++v)
      if (!numbered_[v]) number_component(find_root(v));
    return std::move(perm_);
  }

 private:
  int degree(int v) const { return xadj_(v + 1) - xadj_(v); }

  // Levels of the breadth-first search from root; level_ holds the nodes, last_level_ the
  // place where the last level begins.
  int root_levels(int root) {
    ++stamp_;
    level_.assign(1, root);
    seen_[root] = stamp_;
    int count = 0;
    for (std::size_t begin = 0; begin < level_.size(); ++count) {
      last_level_ = begin;
      const std::size_t end = level_.size();
      for (; begin < end; ++begin) {
        const int v = level_[begin];
        for (int k = xadj_(v); k < xadj_(v + 1); ++k)
          if (const int u = adjncy_(k); seen_[u] != stamp_) {
            seen_[u] = stamp_;
            level_.push_back(u);
          }
      }
    }
    return count;
  }

  // Pseudo-peripheral node: move to a node of least degree in the last level while the
  // number of levels grows.
  int find_root(int start) {
    int root = start;
    int levels = root_levels(root);
    for (;;) {
      const int candidate =
          *std::min_element(level_.begin() + static_cast<std::ptrdiff_t>(last_level_), level_.end(),
                            [&](int a, int b) { return degree(a) < degree(b); });
      const int deeper = root_levels(candidate);
      if (deeper <= levels) return root;
      root = candidate;
      levels = deeper;
    }
  }

  void number_component(int root) {
    const std::size_t first = perm_.size();
    perm_.push_back(root);
    numbered_[root] = 1;
    for (std::size_t at = first; at < perm_.size(); ++at) {
      const int v = perm_[at];
      const std::size_t begin = perm_.size();
      for (int k = xadj_(v); k < xadj_(v + 1); ++k)
        if (const int u = adjncy_(k); !numbered_[u]) {
          numbered_[u] = 1;
          perm_.push_back(u);
        }
      std::stable_sort(perm_.begin() + static_cast<std::ptrdiff_t>(begin), perm_.end(),
                       [&](int a, int b) { return degree(a) < degree(b); });
    }
    std::reverse(perm_.begin() + static_cast<std::ptrdiff_t>(first), perm_.end());
  }

  View<const int> xadj_, adjncy_;
  std::vector<char> numbered_;
  std::vector<int> seen_, level_, perm_;
  std::size_t last_level_ = 0;
  int stamp_ = 0;
};

}  // namespace

std::vector<int> genrcmvelmora(const Adjacency& graph) { return CuthillMcKee(graph).run(graph.n); }

}  // namespace vlm
