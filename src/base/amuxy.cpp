// SPDX-License-Identifier: BSD-3-Clause
/// Kernels of the sparse products and their division over threads.
#include "base/amuxy.hpp"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <type_traits>

#include "base/matrix_types.hpp"
#include "base/scalar.hpp"
#include "base/vector_primitives.hpp"

namespace vlm {
namespace {

/// How a stored entry a(i,j) enters the product.
enum class Access {
  rows,                 ///< y(i) += a x(j)
  columns,              ///< y(j) += a x(i)
  triangle,             ///< both
  hermitian,            ///< both, y(j) with the conjugate
  hermitian_transpose,  ///< both, y(i) with the conjugate
};

constexpr bool gathers(Access access) { return access != Access::columns; }
constexpr bool scatters(Access access) { return access != Access::rows; }

Access access_of(int mtype, bool transpose) {
  if (mtype == 4 || mtype == -4) return transpose ? Access::hermitian_transpose : Access::hermitian;
  if (matrix_type(mtype).symmetric) return Access::triangle;
  return transpose ? Access::columns : Access::rows;
}

/// s += a*x; spelled out for complex values, whose library product tests for infinities.
inline void add_product(double& s, double a, double x) { s += a * x; }
inline void add_product(zcomplex& s, const zcomplex& a, const zcomplex& x) {
  s = {s.real() + (a.real() * x.real() - a.imag() * x.imag()),
       s.imag() + (a.real() * x.imag() + a.imag() * x.real())};
}

inline double abs_sum(double v) { return std::abs(v); }
inline double abs_sum(const zcomplex& v) { return std::abs(v.real()) + std::abs(v.imag()); }

template <bool conjugate, class T>
T conj_if(const T& v) {
  if constexpr (conjugate && !std::is_same_v<T, double>)
    return std::conj(v);
  else
    return v;
}

/// Operands of one product; null rhs: y = A x, otherwise y = rhs - A x.
template <class T>
struct Operands {
  const InputMatrix& matrix;
  const T* a;
  const T* x;
  const T* rhs;
  T* y;
  std::ptrdiff_t ld;  ///< distance of columns: n

  Operands columns_from(std::ptrdiff_t k) const {
    return {matrix, a, x + k * ld, rhs ? rhs + k * ld : nullptr, y + k * ld, ld};
  }
};

/// Rows first to last-1 of `width` columns.  Scattering forms add to a y that has been set up.
/// @return sum of absolute values of the finished entries, when the rows finish them
template <Access access, int width, class T>
double multiply_rows(const Operands<T>& op, int first, int last) {
  const int* const ia = op.matrix.ia;
  const int* const ja = op.matrix.ja;
  const T* __restrict const a = op.a;
  const T* __restrict const x = op.x;
  T* __restrict const y = op.y;
  const double sign = op.rhs ? -1.0 : 1.0;
  const std::ptrdiff_t ld = op.ld;
  double total = 0;
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum[width] = {};
    T xi[width];
    if constexpr (scatters(access))
      for (int k = 0; k < width; ++k) xi[k] = sign * x[i + k * ld];
    for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) {
      const std::ptrdiff_t j = ja[p] - 1;
      const T here = conj_if<access == Access::hermitian_transpose>(a[p]);
      const T mirror = conj_if<access == Access::hermitian>(a[p]);
      if constexpr (gathers(access))
        for (int k = 0; k < width; ++k) add_product(sum[k], here, x[j + k * ld]);
      if constexpr (scatters(access))
        if (access == Access::columns || j != i)
          for (int k = 0; k < width; ++k) add_product(y[j + k * ld], mirror, xi[k]);
    }
    if constexpr (gathers(access)) {
      for (int k = 0; k < width; ++k) {
        T& yi = y[i + k * ld];
        if constexpr (scatters(access))
          yi += sign * sum[k];
        else
          yi = op.rhs ? op.rhs[i + k * ld] - sum[k] : sum[k];
        total += abs_sum(yi);
      }
    }
  }
  return total;
}

/// The same for any number of columns, four at a time.
template <Access access, class T>
double multiply_columns(const Operands<T>& op, int ncolumns, int first, int last) {
  double total = 0;
  int k = 0;
  for (; k + 4 <= ncolumns; k += 4)
    total += multiply_rows<access, 4>(op.columns_from(k), first, last);
  const Operands<T> rest = op.columns_from(k);
  switch (ncolumns - k) {
    case 1:
      return total + multiply_rows<access, 1>(rest, first, last);
    case 2:
      return total + multiply_rows<access, 2>(rest, first, last);
    case 3:
      return total + multiply_rows<access, 3>(rest, first, last);
    default:
      return total;
  }
}

/// Sets entries first to last-1 of a column to what the scattered terms are added to.
template <class T>
void set_up(const T* rhs, T* y, std::ptrdiff_t first, std::ptrdiff_t last) {
  if (rhs)
    std::copy(rhs + first, rhs + last, y + first);
  else
    std::fill(y + first, y + last, T{});
}

/// Whole columns on the calling thread.
template <Access access, class T>
double multiply_serial(const Operands<T>& op, int ncolumns) {
  const std::ptrdiff_t length = op.ld * ncolumns;
  if constexpr (scatters(access)) set_up(op.rhs, op.y, 0, length);
  const double total = multiply_columns<access>(op, ncolumns, 0, op.matrix.n);
  // Transposed rows finish their entries only at the end.
  return access == Access::columns && op.rhs
             ? interleaved_sum(0, static_cast<std::size_t>(length),
                               [&](std::size_t k) { return abs_sum(op.y[k]); })
             : total;
}

/// First row of a thread's share, such that all shares have about the same number of entries.
int share_begin(const InputMatrix& matrix, int thread, int nthreads) {
  if (thread >= nthreads) return matrix.n;
  const long long target = 1 + static_cast<long long>(matrix.nnz()) * thread / nthreads;
  return static_cast<int>(std::lower_bound(matrix.ia, matrix.ia + matrix.n, target) - matrix.ia);
}

/// One column; each thread but the first scatters into a private vector.
/// Runs inside a parallel region; all threads of the team call it.
template <Access access, class T>
double multiply_shared(const Operands<T>& op, T* work) {
  const int thread = omp_get_thread_num();
  const int team = omp_get_num_threads();
  const std::ptrdiff_t n = op.matrix.n;
  const std::ptrdiff_t first = n * thread / team, last = n * (thread + 1) / team;
  T* const mine = thread == 0 ? op.y : work + n * (thread - 1);
  set_up(op.rhs, op.y, first, last);
  if (thread > 0) std::fill(mine, mine + n, T{});
#pragma omp barrier
  Operands<T> local = op;
  local.y = mine;
  multiply_rows<access, 1>(local, share_begin(op.matrix, thread, team),
                           share_begin(op.matrix, thread + 1, team));
#pragma omp barrier
  double total = 0;
  for (std::ptrdiff_t i = first; i < last; ++i) {
    T sum = op.y[i];
    for (int other = 1; other < team; ++other) sum += work[n * (other - 1) + i];
    op.y[i] = sum;
    total += abs_sum(sum);
  }
#pragma omp barrier
  return total;
}

template <Access access, class T>
double multiply_parallel(const Operands<T>& op, int nrhs, int nthreads, T* work) {
  return sum_over_team(nthreads, [&](int thread, int team) {
    if constexpr (!scatters(access)) {
      return multiply_columns<access>(op, nrhs, share_begin(op.matrix, thread, team),
                                      share_begin(op.matrix, thread + 1, team));
    } else if (nrhs >= team) {
      const auto column = [&](int t) { return static_cast<int>(1LL * nrhs * t / team); };
      return multiply_serial<access>(op.columns_from(column(thread)),
                                     column(thread + 1) - column(thread));
    } else {
      double total = 0;
      for (int k = 0; k < nrhs; ++k) total += multiply_shared<access>(op.columns_from(k), work);
      return total;
    }
  });
}

/// Below this many multiplications, some 0.2 ms, a product is not worth a thread team.
constexpr long long parallel_threshold = 400000;

template <class T>
double multiply(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                double* y, double* work) {
  const InputMatrix& matrix = product.matrix;
  const Operands<T> op{matrix,
                       reinterpret_cast<const T*>(matrix.a),
                       reinterpret_cast<const T*>(x),
                       reinterpret_cast<const T*>(rhs),
                       reinterpret_cast<T*>(y),
                       matrix.n};
  const bool serial =
      product.nthreads <= 1 || static_cast<long long>(matrix.nnz()) * nrhs < parallel_threshold;
  const auto run = [&]<Access access>(std::integral_constant<Access, access>) {
    return serial
               ? multiply_serial<access>(op, nrhs)
               : multiply_parallel<access>(op, nrhs, product.nthreads, reinterpret_cast<T*>(work));
  };
  switch (access_of(product.mtype, product.transpose)) {
    case Access::rows:
      return run(std::integral_constant<Access, Access::rows>{});
    case Access::columns:
      return run(std::integral_constant<Access, Access::columns>{});
    case Access::triangle:
      return run(std::integral_constant<Access, Access::triangle>{});
    case Access::hermitian:
      return run(std::integral_constant<Access, Access::hermitian>{});
    case Access::hermitian_transpose:
      return run(std::integral_constant<Access, Access::hermitian_transpose>{});
  }
  return 0;
}

double multiply(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                double* y, double* work) {
  return matrix_type(product.mtype).complex ? multiply<zcomplex>(product, nrhs, x, rhs, y, work)
                                            : multiply<double>(product, nrhs, x, rhs, y, work);
}

}  // namespace

std::size_t amuxy_work_bytes(int n, int mtype, bool transpose, int nthreads) {
  if (nthreads <= 1 || !scatters(access_of(mtype, transpose))) return 0;
  const std::size_t value = matrix_type(mtype).complex ? sizeof(zcomplex) : sizeof(double);
  return static_cast<std::size_t>(n) * static_cast<std::size_t>(nthreads - 1) * value;
}

void amuxy_velmora(const SparseProduct& product, int nrhs, const double* x, double* y,
                   double* work) {
  multiply(product, nrhs, x, nullptr, y, work);
}

double amuxy_res_velmora(const SparseProduct& product, int nrhs, const double* x, const double* rhs,
                         double* r, double* work) {
  return multiply(product, nrhs, x, rhs, r, work);
}

}  // namespace vlm
