// SPDX-License-Identifier: BSD-3-Clause
/// Diagonal systems.
///
/// A matrix with n stored entries is a diagonal, or a scaled permutation, unless a row holds
/// none or more than one, or a column stands in two rows, which the test of the rows finds.  One
/// pass over the rows for the test and one, in parallel, for the solution: O(n nrhs).
#include "driver/diag.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>

#include "base/memory.hpp"

namespace vlm {
namespace {

/// Products below which a thread team costs more than it saves.
constexpr std::ptrdiff_t parallel_limit = 50000;

/// Columns of the rows so far; nothing is kept while they lie on the diagonal.
class Columns {
 public:
  explicit Columns(int n) : n_(n) {}
  /// @return whether column j of row i, both from 0, is new
  bool add(int i, int j) {
    if (seen_.empty() && i == j) return true;
    if (seen_.empty()) {
      seen_.resize(static_cast<std::size_t>(n_));
      std::fill_n(seen_.begin(), i, 1);
    }
    const auto column = static_cast<std::size_t>(j);
    const bool is_new = seen_[column] == 0;
    seen_[column] = 1;
    return is_new;
  }

 private:
  int n_;
  Vector<char> seen_;
};

bool is_finite(double v) { return std::isfinite(v); }
bool is_finite(const std::complex<double>& v) {
  return std::isfinite(v.real()) && std::isfinite(v.imag());
}

/// The first faulty row; visit(a(i)) sees the rows before it.
template <class T, class Visit>
DiagonalFault test_rows(const InputMatrix& matrix, Visit visit) {
  const T* a = reinterpret_cast<const T*>(matrix.a);
  const int n = matrix.n;
  Columns columns(n);
  for (int i = 0; i < n; ++i) {
    const int row = i + 1;
    // With one entry in each row so far, that of row i is entry i.
    if (matrix.ia[i] != row || matrix.ia[i + 1] != row + 1) return {RowFault::entries, row};
    if (matrix.ja[i] < 1 || matrix.ja[i] > n) return {RowFault::entries, row};
    if (a[i] == T(0)) return {RowFault::zero, row};
    if (!is_finite(a[i])) return {RowFault::not_finite, row};
    if (!columns.add(i, matrix.ja[i] - 1)) return {RowFault::repeated, row};
    visit(a[i]);
  }
  return {};
}

/// What a right-hand side is multiplied with in a row whose entry is d.
template <class T>
T multiplier(const DiagonalSystem& system, const T& d) {
  if (system.steps <= 0) return T(1) / d;
  if (system.definite && std::real(d) > 0) return T(1) / std::sqrt(d);
  return system.steps == 1 ? T(1) : T(1) / d;
}

template <class T>
void solve_rows(const DiagonalSystem& system) {
  const InputMatrix& matrix = system.matrix;
  const T* a = reinterpret_cast<const T*>(matrix.a);
  T* b = reinterpret_cast<T*>(system.b);
  T* x = reinterpret_cast<T*>(system.x);
  const int n = matrix.n, nrhs = system.nrhs;
  const std::ptrdiff_t products = static_cast<std::ptrdiff_t>(n) * std::max(nrhs, 0);
  const bool shared = products > parallel_limit && system.threads > 1;
  const bool in_place = system.steps == 1;  // the exchange of rows belongs to the other half
  const auto solve_row = [&](int i) {
    const T r = multiplier(system, a[i]);
    const int j = in_place ? i : matrix.ja[i] - 1;
    const int from = system.transpose ? j : i, to = system.transpose ? i : j;
    for (int k = 0; k < nrhs; ++k) {
      const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(k) * n;
      x[column + to] = r * b[column + from];
    }
  };
  if (shared) {
#pragma omp parallel for num_threads(system.threads)
    for (int i = 0; i < n; ++i) solve_row(i);
  } else {
    for (int i = 0; i < n; ++i) solve_row(i);
  }
  if (system.overwrite_b) std::copy_n(x, products, b);
}

template <class T>
DiagonalFault invert_rows(const InputMatrix& matrix, double* values) {
  if (const DiagonalFault fault = test_rows<T>(matrix, [](const T&) {})) return fault;
  T* a = reinterpret_cast<T*>(values);
  for (int i = 0; i < matrix.n; ++i) {
    const int j = matrix.ja[i] - 1;
    const bool exchanged = matrix.ja[j] - 1 == i;
    if (exchanged && j < i) continue;  // done with its partner
    const T own = a[i];
    a[i] = exchanged ? T(1) / a[j] : T(0);
    if (j > i && exchanged) a[j] = T(1) / own;
  }
  return {};
}

}  // namespace

DiagonalFault invert_diagonal(const InputMatrix& matrix, double* a) {
  return invert_rows<double>(matrix, a);
}

DiagonalFault c_invert_diagonal(const InputMatrix& matrix, double* a) {
  return invert_rows<std::complex<double>>(matrix, a);
}

DiagonalFault diag_velmora(const DiagonalSystem& system, int& npos, int& nneg) {
  npos = nneg = 0;
  const DiagonalFault fault = test_rows<double>(system.matrix, [&](double d) {
    if (d > 0) ++npos;
    if (d < 0) ++nneg;
  });
  if (!fault && system.solve) solve_rows<double>(system);
  return fault;
}

DiagonalFault c_diag_velmora(const DiagonalSystem& system) {
  using Value = std::complex<double>;
  const DiagonalFault fault = test_rows<Value>(system.matrix, [](const Value&) {});
  if (!fault && system.solve) solve_rows<Value>(system);
  return fault;
}

}  // namespace vlm
