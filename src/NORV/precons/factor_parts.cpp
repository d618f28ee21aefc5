// SPDX-License-Identifier: BSD-3-Clause
/// Parts of an incomplete factor, see factor_parts.hpp.  A 2x2 pivot goes by its first row.
#include "NORV/precons/factor_parts.hpp"

#include <algorithm>
#include <utility>

namespace vlm::norv {
namespace {

constexpr int part_count = 16;
constexpr int of_top = -1;

template <class T>
int first_row(const LdltFactor<T>& f, int k) {
  return k > 0 && f.is_pair[k - 1] ? k - 1 : k;
}

template <class T, class F>
void for_each_pivot(const LdltFactor<T>& f, F visit) {
  for (int k = 0; k < f.pivots; k += f.is_pair[k] ? 2 : 1) visit(k);
}

template <class T, class F>
void for_each_column(const LdltFactor<T>& f, int k, F visit) {
  for (std::int64_t p = f.start[k]; p < f.start[k + 1]; p += f.is_pair[k] ? 2 : 1)
    visit(f.column[p]);
}

/// Elimination tree of the pattern (J. W. H. Liu, "A compact row storage scheme for Cholesky
/// factors using elimination trees", 1986): an entry's column is an ancestor of its row, which the
/// first entry of a row alone does not give where fill was dropped.
/// @return parent by first row, -1 for a root
template <class T>
Vector<int> pivot_tree(const LdltFactor<T>& f) {
  Vector<std::int64_t> start(static_cast<std::size_t>(f.pivots) + 2, 0);
  const auto for_each_pair = [&f](auto visit) {
    for_each_pivot(f, [&](int k) {
      for_each_column(f, k, [&](int column) {
        if (column < f.pivots) visit(k, first_row(f, column));
      });
    });
  };
  for_each_pair([&](int, int j) { ++start[j + 2]; });
  for (int j = 0; j < f.pivots; ++j) start[j + 2] += start[j + 1];
  Vector<int> below(static_cast<std::size_t>(start.back()));
  for_each_pair([&](int k, int j) { below[start[j + 1]++] = k; });
  Vector<int> parent(f.pivots, -1), ancestor(f.pivots, -1);
  for_each_pivot(f, [&](int j) {
    for (std::int64_t p = start[j]; p < start[j + 1]; ++p)
      for (int k = below[p], next; k >= 0 && k != j; k = next) {
        next = std::exchange(ancestor[k], j);
        if (next < 0) parent[k] = j;
      }
  });
  return parent;
}

/// Which part a pivot belongs to, by first row.  The heaviest subtree gives its root to the top
/// until all are lighter than a part; then they are dealt out, the heaviest first.
template <class T>
Vector<int> owners(const LdltFactor<T>& f) {
  const Vector<int> parent = pivot_tree(f);
  Vector<std::int64_t> work(f.pivots, 0);
  Vector<int> child(f.pivots, -1), sibling(f.pivots, -1), roots;
  std::int64_t total = 0;
  for_each_pivot(f, [&](int k) {
    constexpr int per_pivot = 2;  // of a pivot's own cost, in entries
    const std::int64_t own = f.start[k + 1] - f.start[k] + per_pivot;
    work[k] += own;
    total += own;
    if (parent[k] < 0) return roots.push_back(k);
    work[parent[k]] += work[k];
    sibling[k] = std::exchange(child[parent[k]], k);
  });
  const auto lighter = [&](int a, int b) {
    return work[a] < work[b] || (work[a] == work[b] && a < b);
  };
  Vector<int> owner(f.pivots, part_count);  // not told yet
  std::make_heap(roots.begin(), roots.end(), lighter);
  while (!roots.empty() && work[roots.front()] > total / part_count) {
    std::pop_heap(roots.begin(), roots.end(), lighter);
    const int root = roots.back();
    roots.pop_back();
    owner[root] = of_top;
    for (int k = child[root]; k >= 0; k = sibling[k]) {
      roots.push_back(k);
      std::push_heap(roots.begin(), roots.end(), lighter);
    }
  }
  std::sort(roots.begin(), roots.end(), [&](int a, int b) { return lighter(b, a); });
  std::int64_t load[part_count] = {};
  for (const int root : roots) {
    const auto least = std::min_element(load, load + part_count) - load;
    owner[root] = static_cast<int>(least);
    load[least] += work[root];
  }
  for (int k = f.pivots - 1; k >= 0; --k)
    if (first_row(f, k) == k && owner[k] == part_count) owner[k] = owner[parent[k]];
  for (int k = 1; k < f.pivots; ++k) owner[k] = owner[first_row(f, k)];
  return owner;
}

}  // namespace

/// @param local  -1 for each row of the whole, in and out
template <class T>
typename FactorParts<T>::Part FactorParts<T>::cut(const LdltFactor<T>& whole,
                                                  const Vector<int>& owner, int number,
                                                  Vector<int>& local) {
  Part part;
  LdltFactor<T>& f = part.factor;
  std::int64_t entries = 0;
  const auto take = [&](int row) {
    if (local[row] >= 0) return;
    local[row] = static_cast<int>(part.position.size());
    part.position.push_back(row);
  };
  for (int k = 0; k < whole.pivots; ++k)
    if (owner[k] == number) {
      take(k);
      entries += whole.start[k + 1] - whole.start[k];
    }
  f.pivots = static_cast<int>(part.position.size());
  f.column.reserve(entries);
  f.value.reserve(entries);
  f.start.reserve(static_cast<std::size_t>(f.pivots) + 1);
  f.start.push_back(0);
  if (number == of_top)
    for (int row = whole.pivots; row < whole.n; ++row) take(row);
  for (int i = 0; i < f.pivots; ++i) {
    const int k = part.position[i];
    const std::int64_t from = whole.start[k], count = whole.start[k + 1] - from;
    int* const column = f.column.extend(count);
    for (std::int64_t p = 0; p < count; ++p) {
      take(whole.column[from + p]);
      column[p] = local[whole.column[from + p]];
    }
    std::copy_n(whole.value.data() + from, count, f.value.extend(count));
    f.start.push_back(f.column.size());
    f.d.push_back(whole.d[k]);
    f.e.push_back(whole.e[k]);
    f.is_pair.push_back(whole.is_pair[k]);
  }
  f.n = static_cast<int>(part.position.size());
  part.y.resize(part.position.size());
  for (const int row : part.position) local[row] = -1;
  return part;
}

template <class T>
FactorParts<T>::FactorParts(const LdltFactor<T>& factor) {
  const Vector<int> owner = owners(factor);
  Vector<int> local(factor.n, -1);
  for (int number = 0; number < part_count; ++number)
    parts_.push_back(cut(factor, owner, number, local));
  top_ = cut(factor, owner, of_top, local);
}

template <class T>
void FactorParts<T>::forward(T* y, int threads) {
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
  for (Part& part : parts_) {
    part.load(y, 0, part.factor.pivots);
    std::fill(part.y.begin() + part.factor.pivots, part.y.end(), T());
    solve_forward(part.factor, part.y.data());
    part.store(y);
  }
  for (const Part& part : parts_)
    for (int i = part.factor.pivots; i < part.factor.n; ++i) y[part.position[i]] += part.y[i];
  top_.load(y, 0, top_.factor.n);
  solve_forward(top_.factor, top_.y.data());
  for (int i = 0; i < top_.factor.n; ++i) y[top_.position[i]] = top_.y[i];
}

template <class T>
void FactorParts<T>::diagonal_backward(T* y, int threads) {
  top_.load(y, 0, top_.factor.n);
  solve_diagonal_backward(top_.factor, top_.y.data());
  top_.store(y);
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
  for (Part& part : parts_) {
    part.load(y, 0, part.factor.n);
    solve_diagonal_backward(part.factor, part.y.data());
    part.store(y);
  }
}

template class FactorParts<double>;
template class FactorParts<zcomplex>;

}  // namespace vlm::norv
