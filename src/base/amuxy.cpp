// SPDX-License-Identifier: BSD-3-Clause
/// The sparse product for every matrix type.
#include "base/amuxy.hpp"

#include <type_traits>

#include "base/matrix_types.hpp"
#include "base/sparse_product.hpp"

namespace vlm {
namespace {

using sparse::Access;

/// The diagonal may stand anywhere in its row, though the checker asks for it in front.
constexpr sparse::Format format{.base = 1, .diagonal = sparse::Diagonal::anywhere, .several = true};

constexpr sparse::Format absolute_format{
    .base = format.base, .diagonal = format.diagonal, .several = format.several, .absolute = true};

/// f(constant) with the access of a type.
template <class F>
auto with_access(const MatrixType& type, bool transpose, const F& f) {
  const auto go = [&]<Access access>() { return f(std::integral_constant<Access, access>{}); };
  if (type.hermitian)
    return transpose ? go.template operator()<Access::hermitian_transpose>()
                     : go.template operator()<Access::hermitian>();
  if (type.symmetric) return go.template operator()<Access::triangle>();
  return transpose ? go.template operator()<Access::columns>()
                   : go.template operator()<Access::rows>();
}

template <sparse::Format f, class T>
double multiply(const SparseProduct& product, int nrhs, const sparse::Operands<T>& op,
                double* work) {
  const InputMatrix& m = product.matrix;
  const sparse::Rows<f, int, T> A{m.n, m.n, m.ia, m.ja, values_as<T>(m.a)};
  return with_access(matrix_type(product.mtype), product.transpose, [&](auto access) {
    return sparse::multiply<access>(A, op, nrhs, product.nthreads, values_as<T>(work));
  });
}

template <class T>
double subtract(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                double* r, double* work) {
  const sparse::Operands<T> op{.alpha = -1.0,
                               .x = values_as<T>(x),
                               .beta = 1.0,
                               .z = values_as<T>(rhs),
                               .y = values_as<T>(r),
                               .summed = true};
  return multiply<format>(product, nrhs, op, work);
}

/// y = A x, or |A| x, by the format.
template <sparse::Format f>
void multiply_plainly(const SparseProduct& product, int nrhs, const double* x, double* y,
                      double* work) {
  const auto go = [&]<class T>(T* result) {
    const sparse::Operands<T> op{
        .alpha = 1.0, .x = values_as<T>(x), .beta = 0.0, .z = result, .y = result};
    multiply<f>(product, nrhs, op, work);
  };
  if (matrix_type(product.mtype).complex)
    go(values_as<zcomplex>(y));
  else
    go(y);
}

}  // namespace

std::size_t amuxy_work_bytes(int n, int mtype, bool transpose, int nthreads) {
  const MatrixType& type = matrix_type(mtype);
  const std::size_t length = with_access(
      type, transpose, [&](auto access) { return sparse::work_length<access>(n, nthreads); });
  return length * (type.complex ? sizeof(zcomplex) : sizeof(double));
}

double amuxy_res_velmora(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                         double* r, double* work) {
  return matrix_type(product.mtype).complex ? subtract<zcomplex>(product, nrhs, x, rhs, r, work)
                                            : subtract<double>(product, nrhs, x, rhs, r, work);
}

void amuxy_velmora(const SparseProduct& product, int nrhs, const double* x, double* y,
                   double* work) {
  multiply_plainly<format>(product, nrhs, x, y, work);
}

void amuxy_abs_velmora(const SparseProduct& product, int nrhs, const double* x, double* y,
                       double* work) {
  multiply_plainly<absolute_format>(product, nrhs, x, y, work);
}

}  // namespace vlm
