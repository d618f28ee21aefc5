// SPDX-License-Identifier: BSD-3-Clause
/// Diagonal systems.
///
/// A matrix with n stored entries is a diagonal, or a scaled permutation, unless a row holds
/// none or more than one, which the test of the rows finds.  One pass over the rows for the
/// test and one, in parallel, for the solution: O(n nrhs).
#include "driver/diag.hpp"

#include <algorithm>
#include <complex>
#include <cstddef>

namespace vlm {
namespace {

/// Products below which a thread team costs more than it saves.
constexpr std::ptrdiff_t parallel_limit = 50000;

/// Code of the first faulty row, 0 when there is none; visit(a(i)) sees the rows before it.
template <class T, class Visit>
int test_rows(const InputMatrix& matrix, bool test_columns, Visit visit) {
  const T* a = reinterpret_cast<const T*>(matrix.a);
  const int n = matrix.n;
  for (int i = 0; i < n; ++i) {
    // With one entry in each row so far, that of row i is entry i.
    if (matrix.ia[i] != i + 1 || matrix.ia[i + 1] != i + 2) return i + 1;
    if (test_columns && (matrix.ja[i] < 1 || matrix.ja[i] > n)) return i + 1;
    if (a[i] == T(0)) return -(i + 1);
    visit(a[i]);
  }
  return 0;
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
  const auto solve_row = [&](int i) {
    const T r = T(1) / a[i];
    const int j = matrix.ja[i] - 1;
    for (int k = 0; k < nrhs; ++k) {
      const std::ptrdiff_t column = static_cast<std::ptrdiff_t>(k) * n;
      x[column + j] = r * b[column + i];
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

}  // namespace

int diag_velmora(const DiagonalSystem& system, int& npos, int& nneg) {
  npos = nneg = 0;
  const int error = test_rows<double>(system.matrix, system.solve, [&](double d) {
    if (d > 0) ++npos;
    if (d < 0) ++nneg;
  });
  if (error == 0 && system.solve) solve_rows<double>(system);
  return error;
}

int c_diag_velmora(const DiagonalSystem& system) {
  using Value = std::complex<double>;
  const int error = test_rows<Value>(system.matrix, system.solve, [](const Value&) {});
  if (error == 0 && system.solve) solve_rows<Value>(system);
  return error;
}

}  // namespace vlm
