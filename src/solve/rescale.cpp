// SPDX-License-Identifier: BSD-3-Clause
/// The figures of the rows, see rescale.hpp.
#include "solve/rescale.hpp"

#include <algorithm>
#include <cmath>

namespace vlm {
namespace {

/// A diagonal that differs by less has not changed.
constexpr double unchanged = 1e-10;
/// The scaling has to make the squares of the differences smaller by this factor.
constexpr double least_gain = 4;

/// Diagonal and sums beside it of a matrix whose upper triangle is stored.  figures: [2n]
void measure_rows(const InputMatrix& m, int nvals, double* figures) {
  double *const diagonal = figures, *const beside = figures + m.n;
  std::fill_n(figures, 2 * static_cast<std::size_t>(m.n), 0.0);
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      const double* const v = m.a + static_cast<std::ptrdiff_t>(p) * nvals;
      if (j == i) {
        diagonal[i] = v[0];
        continue;
      }
      const double size = nvals == 1 ? std::abs(v[0]) : std::sqrt(v[0] * v[0] + v[1] * v[1]);
      beside[i] += size;
      beside[j] += size;
    }
}

/// Whether the diagonal, where it leads its row, is the one at hand.
bool same_diagonal(const InputMatrix& m, int nvals, const double* diagonal) {
  for (int i = 0; i < m.n; ++i) {
    const int p = m.ia[i] - 1;
    if (p == m.ia[i + 1] - 1 || m.ja[p] != i + 1) return false;
    const double change = m.a[static_cast<std::ptrdiff_t>(p) * nvals] - diagonal[i];
    if (!(std::abs(change) <= unchanged * diagonal[i])) return false;
  }
  return true;
}

}  // namespace

void RowSizes::measure(const InputMatrix& matrix, const MatrixType& type) {
  const std::size_t length = 2 * static_cast<std::size_t>(matrix.n);
  if (figures_.size() != length) figures_ = Vector<double>(length);
  measure_rows(matrix, type.nvals(), figures_.data());
}

bool RowSizes::rescale(const InputMatrix& matrix, const MatrixType& type, double* scale) const {
  const int n = matrix.n;
  const double *const old_diagonal = figures_.data(), *const old_beside = old_diagonal + n;
  if (same_diagonal(matrix, type.nvals(), old_diagonal)) return false;
  measure_rows(matrix, type.nvals(), scale);
  double as_it_is = 0, scaled = 0;
  for (int i = 0; i < n; ++i) {
    const double size = scale[i], beside = scale[n + i], ratio = size / old_diagonal[i];
    if (!(ratio > 0) || !std::isfinite(ratio)) return false;
    const auto square = [=](double difference) { return difference / size * (difference / size); };
    as_it_is += square(size - old_diagonal[i]) + square(beside - old_beside[i]);
    scaled += square(beside - ratio * old_beside[i]);
  }
  if (!(scaled * least_gain <= as_it_is)) return false;
  for (int i = 0; i < n; ++i) scale[i] = scale[n + i] = std::sqrt(old_diagonal[i] / scale[i]);
  return true;
}

}  // namespace vlm
