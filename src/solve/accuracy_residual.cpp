// SPDX-License-Identifier: BSD-3-Clause
/// Residuals in extended precision, see accuracy_residual.hpp.
#include "solve/accuracy_residual.hpp"

#include <algorithm>
#include <cmath>

#include "base/matrix_types.hpp"
#include "base/values.hpp"

namespace vlm {
namespace {

using Real = long double;

void subtract_product(Real& sum, double a, double x) { sum -= Real(a) * Real(x); }

void subtract_product(std::complex<Real>& sum, const zcomplex& a, const zcomplex& x) {
  const Real re = a.real(), im = a.imag();
  sum = {sum.real() - re * x.real() + im * x.imag(), sum.imag() - re * x.imag() - im * x.real()};
}

Real magnitude(Real v) { return std::abs(v); }
Real magnitude(const std::complex<Real>& v) {
  return std::max(std::abs(v.real()), std::abs(v.imag()));
}

double rounded(Real v) { return static_cast<double>(v); }
zcomplex rounded(const std::complex<Real>& v) {
  return {static_cast<double>(v.real()), static_cast<double>(v.imag())};
}

/// sum -= op(A) x.
template <class T>
void subtract_all(const SparseProduct& product, const T* x, Extended<T>* sum) {
  const InputMatrix& m = product.matrix;
  const MatrixType& type = matrix_type(product.mtype);
  const bool rows = type.symmetric || !product.transpose;
  const bool columns = type.symmetric || product.transpose;
  const bool conjugate_row = type.hermitian && product.transpose;
  const bool conjugate_column = type.hermitian && !product.transpose;
  for (int i = 0; i < m.n; ++i)
    for (int p = m.ia[i] - 1; p < m.ia[i + 1] - 1; ++p) {
      const int j = m.ja[p] - 1;
      const T a = value_at<T>(m.a, p), conjugate = maybe_conj<true>(a);
      if (rows) subtract_product(sum[i], conjugate_row ? conjugate : a, x[j]);
      if (columns && !(type.symmetric && i == j))
        subtract_product(sum[j], conjugate_column ? conjugate : a, x[i]);
    }
}

}  // namespace

template <class T>
double extended_residual(const SparseProduct& product, const T* x, const T* b, Extended<T>* sum,
                         T* r) {
  const auto n = static_cast<std::size_t>(product.matrix.n);
  std::copy_n(b, n, sum);
  subtract_all(product, x, sum);
  Real largest = 0;
  for (std::size_t i = 0; i < n; ++i) largest = std::max(largest, magnitude(sum[i]));
  // A power of two that a double holds, be the residual as small as it likes.
  const int exponent =
      largest > 0 && std::isfinite(largest) ? std::clamp(std::ilogb(largest), -1022, 1023) : 0;
  const Real factor = std::ldexp(Real(1), -exponent);
  for (std::size_t i = 0; i < n; ++i) r[i] = rounded(sum[i] * factor);
  return std::ldexp(1.0, exponent);
}

template double extended_residual(const SparseProduct&, const double*, const double*, Real*,
                                  double*);
template double extended_residual(const SparseProduct&, const zcomplex*, const zcomplex*,
                                  std::complex<Real>*, zcomplex*);

}  // namespace vlm
