// SPDX-License-Identifier: BSD-3-Clause
/// One pass over the rows of the matrix, two over the vectors.
#include "base/residual.hpp"

#include <cmath>

#include "base/matrix_types.hpp"
#include "base/sparse_product.hpp"

namespace vlm {
namespace {

using sparse::Access;

constexpr sparse::Format format{.base = 1, .diagonal = sparse::Diagonal::first, .several = false};

template <class T>
ResidualNorms residual(bool triangle, const InputMatrix& m, const double* b, const double* x,
                       double* y) {
  if (m.n < 1) return {};
  const sparse::Rows<format, int, T> A{m.n, m.n, m.ia, m.ja, values_as<T>(m.a)};
  T* const product = values_as<T>(y);
  const sparse::Operands<T> op{
      .alpha = 1.0, .x = values_as<T>(x), .beta = 0.0, .z = product, .y = product};
  if (triangle)
    sparse::multiply<Access::triangle>(A, op);
  else
    sparse::multiply<Access::rows>(A, op);

  const int nthreads = sparse::threads_offered();
  const std::size_t length = static_cast<std::size_t>(m.n) * (sizeof(T) / sizeof *y);
  const auto square = [](double v) { return v * v; };
  const auto norm = [&](const auto& term) {
    return std::sqrt(parallel_sum(length, nthreads, term));
  };
  return {norm([&](std::size_t k) { return square(y[k] - b[k]); }),
          norm([&](std::size_t k) { return square(b[k]); })};
}

}  // namespace

ResidualNorms velmora_residual_r(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y) {
  return residual<double>(matrix_type(mtype).symmetric, matrix, b, x, y);
}

ResidualNorms velmora_residual_c(int mtype, const InputMatrix& matrix, const double* b,
                                 const double* x, double* y) {
  return residual<zcomplex>(matrix_type(mtype).symmetric, matrix, b, x, y);
}

}  // namespace vlm
