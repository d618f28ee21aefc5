// SPDX-License-Identifier: BSD-3-Clause
/// One pass over the rows of the matrix, one over the vectors.
#include "base/residual.hpp"

#include <algorithm>
#include <cmath>
#include <complex>

#include "base/scalar.hpp"

namespace vlm {
namespace {

template <class T>
void multiply(bool triangle, const InputMatrix& matrix, const T* a, const T* x, T* y) {
  std::fill_n(y, matrix.n, T{});
  for (int i = 0; i < matrix.n; ++i) {
    const int end = matrix.ia[i + 1] - 1;
    int p = matrix.ia[i] - 1;
    T sum{};
    if (triangle && p < end) {
      sum = a[p] * x[i];
      for (++p; p < end; ++p) {
        const int j = matrix.ja[p] - 1;
        sum += a[p] * x[j];
        y[j] += a[p] * x[i];
      }
    } else {
      for (; p < end; ++p) sum += a[p] * x[matrix.ja[p] - 1];
    }
    y[i] += sum;
  }
}

template <class T>
ResidualNorms residual(bool triangle, const InputMatrix& matrix, const double* b, const double* x,
                       double* y) {
  if (matrix.n < 1) return {};
  const auto values = [](const double* v) { return reinterpret_cast<const T*>(v); };
  multiply(triangle, matrix, values(matrix.a), values(x), reinterpret_cast<T*>(y));
  const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(matrix.n) * (sizeof(T) / sizeof *y);
  double squares = 0, rhs_squares = 0;
  for (std::ptrdiff_t k = 0; k < length; ++k) {
    squares += (y[k] - b[k]) * (y[k] - b[k]);
    rhs_squares += b[k] * b[k];
  }
  return {std::sqrt(squares), std::sqrt(rhs_squares)};
}

}  // namespace

ResidualNorms velmora_residual_r(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y) {
  return residual<double>(mtype == 2 || mtype == -2, matrix, b, x, y);
}

ResidualNorms velmora_residual_c(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y) {
  return residual<zcomplex>(mtype == 6, matrix, b, x, y);
}

}  // namespace vlm
