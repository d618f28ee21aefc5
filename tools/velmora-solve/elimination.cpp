// SPDX-License-Identifier: BSD-3-Clause
#include "elimination.hpp"

#include <algorithm>
#include <numeric>
#include <queue>

namespace tool {

Elimination::Elimination(const SparseMatrix& matrix, const std::vector<int>& order) {
  const auto n = static_cast<std::size_t>(matrix.n);
  std::vector<int> position(n);
  for (std::size_t k = 0; k < n; ++k)
    position[static_cast<std::size_t>(order[k] - 1)] = static_cast<int>(k);
  const auto for_lower = [&](auto visit) {
    for (std::size_t i = 0; i < n; ++i) {
      for (int k = matrix.ia[i]; k < matrix.ia[i + 1]; ++k) {
        const int p = position[i];
        const int q =
            position[static_cast<std::size_t>(matrix.ja[static_cast<std::size_t>(k - 1)] - 1)];
        if (p != q) visit(static_cast<std::size_t>(std::max(p, q)), std::min(p, q));
      }
    }
  };
  start_.assign(n + 1, 0);
  for_lower([&](std::size_t row, int) { ++start_[row + 1]; });
  std::partial_sum(start_.begin(), start_.end(), start_.begin());
  lower_.resize(static_cast<std::size_t>(start_.back()));
  std::vector<int> next(start_.begin(), start_.end() - 1);
  for_lower(
      [&](std::size_t row, int column) { lower_[static_cast<std::size_t>(next[row]++)] = column; });

  parent_.assign(n, -1);
  std::vector<int> ancestor(n, -1);
  for (std::size_t i = 0; i < n; ++i) {
    for (int k = start_[i]; k < start_[i + 1]; ++k) {
      for (int j = lower_[static_cast<std::size_t>(k)]; j != -1 && j < static_cast<int>(i);) {
        const auto at = static_cast<std::size_t>(j);
        const int up = ancestor[at];
        ancestor[at] = static_cast<int>(i);
        if (up == -1) parent_[at] = static_cast<int>(i);
        j = up;
      }
    }
  }
  count_.assign(n, 1);
  for_factor([this](int, int column, bool) { ++count_[static_cast<std::size_t>(column)]; });
  nonzeros_ = std::accumulate(count_.begin(), count_.end(), std::int64_t{0});
}

void Elimination::for_factor(const std::function<void(int, int, bool)>& visit) const {
  std::vector<int> seen(parent_.size(), -1), original(parent_.size(), -1);
  for (int i = 0; i < n(); ++i) {
    const auto row = static_cast<std::size_t>(i);
    const auto first = lower_.begin() + start_[row], last = lower_.begin() + start_[row + 1];
    for (auto j = first; j != last; ++j) original[static_cast<std::size_t>(*j)] = i;
    seen[row] = i;
    for (auto j = first; j != last; ++j) {
      for (int k = *j; seen[static_cast<std::size_t>(k)] != i;
           k = parent_[static_cast<std::size_t>(k)]) {
        seen[static_cast<std::size_t>(k)] = i;
        visit(i, k, original[static_cast<std::size_t>(k)] == i);
      }
    }
  }
}

std::vector<Range> Elimination::supernodes() const {
  std::vector<Range> runs;
  for (int j = 0; j < n(); ++j) {
    const auto at = static_cast<std::size_t>(j);
    const bool joins = j > 0 && parent_[at - 1] == j && count_[at - 1] == count_[at] + 1;
    if (joins) {
      runs.back().last = j;
    } else {
      runs.push_back({j, j});
    }
  }
  return runs;
}

std::vector<Range> Elimination::domains(int wanted) const {
  const std::size_t size = parent_.size();
  std::vector<double> work(size);
  std::vector<int> nodes(size, 1), first(size);
  std::vector<std::vector<int>> children(size + 1);  // the last entry: roots
  for (std::size_t j = 0; j < size; ++j) {
    work[j] += static_cast<double>(count_[j]) * count_[j];
    first[j] = children[j].empty() ? static_cast<int>(j) : first[j];
    const std::size_t up = parent_[j] < 0 ? size : static_cast<std::size_t>(parent_[j]);
    children[up].push_back(static_cast<int>(j));
    if (up == size) continue;
    first[up] = children[up].size() == 1 ? first[j] : std::min(first[up], first[j]);
    work[up] += work[j];
    nodes[up] += nodes[j];
  }
  // The heaviest subtree gives way to its children until no one holds more than its share, or
  // where the order does not keep it together.
  const auto lighter = [&](int s, int t) {
    return work[static_cast<std::size_t>(s)] < work[static_cast<std::size_t>(t)];
  };
  std::priority_queue<int, std::vector<int>, decltype(lighter)> heap(lighter, children[size]);
  double total = 0;
  for (int root : children[size]) total += work[static_cast<std::size_t>(root)];
  std::vector<Range> ranges;
  while (!heap.empty() && work[static_cast<std::size_t>(heap.top())] >= total / (10 * wanted)) {
    const int root = heap.top();
    const auto at = static_cast<std::size_t>(root);
    heap.pop();
    const bool together = root - first[at] + 1 == nodes[at];
    if (together && work[at] <= total / wanted) {
      ranges.push_back({first[at], root});
    } else {
      for (int child : children[at]) heap.push(child);
    }
  }
  return ranges;
}

}  // namespace tool
