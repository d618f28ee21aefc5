// SPDX-License-Identifier: BSD-3-Clause
/// Full form of a triangle, see full_form.hpp.
#include "driver/full_form.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "base/view.hpp"

namespace vlm {
namespace {

/// An entry is moved with its value, which is one double or two.
struct Entries {
  int nvals;
  double* a;
  int* ja;

  void move(std::ptrdiff_t from, std::ptrdiff_t to) const {
    ja[to] = ja[from];
    for (int k = 0; k < nvals; ++k) a[to * nvals + k] = a[from * nvals + k];
  }
};

}  // namespace

int full_starts(const InputMatrix& triangle, Vector<int>& starts) {
  const int n = triangle.n;
  Vector<std::int64_t> lengths(static_cast<std::size_t>(n) + 1, 0);
  for (int i = 1; i <= n; ++i)
    for (int p = triangle.ia[i - 1]; p < triangle.ia[i]; ++p) {
      const int j = triangle.ja[p - 1];
      if (j < i || j > n) return p;
      ++lengths[static_cast<std::size_t>(i)];
      if (j != i) ++lengths[static_cast<std::size_t>(j)];
    }
  starts.resize(static_cast<std::size_t>(n) + 1);
  std::int64_t start = 1;
  for (std::size_t i = 0; i <= static_cast<std::size_t>(n); ++i) {
    start += lengths[i];
    if (start > std::numeric_limits<int>::max()) throw std::length_error("full form");
    starts[i] = static_cast<int>(start);
  }
  return 0;
}

void fill_triangle(int n, Vector<int>& starts, const MatrixType& type, double* a, int* ia,
                   int* ja) {
  const Entries entries{type.nvals(), a, ja};
  const View<int> start(starts);
  for (int i = n; i >= 1; --i)
    for (int from = ia[i] - 2, to = start(i + 1) - 2; from >= ia[i - 1] - 1; --from, --to)
      entries.move(from, to);
  std::ranges::copy(starts, ia);
  // start(i) becomes the next free place of row i.  When a row's turn comes, all before it have
  // left their entries there, and the next place is the first entry of its own.
  for (int i = 1; i <= n; ++i)
    for (int p = start(i) - 1; p < ia[i] - 1; ++p) {
      const int j = ja[p];
      if (j == i) continue;
      const int to = start(j)++ - 1;
      entries.move(p, to);
      ja[to] = i;
      if (type.hermitian) a[std::ptrdiff_t{to} * 2 + 1] = -a[std::ptrdiff_t{to} * 2 + 1];
    }
}

}  // namespace vlm
