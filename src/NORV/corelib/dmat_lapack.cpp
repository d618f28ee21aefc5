// SPDX-License-Identifier: BSD-3-Clause
/// Dense matrices: products, factorizations and eigenvalues through the BLAS and LAPACK.
///
/// A row-major matrix is the transpose of the column-major one that these routines see; the
/// calls are put so that nothing is transposed in memory where that can be helped.
#include <cmath>
#include <limits>

#include "NORV/corelib/dmat_common.hpp"
#include "NORV/corelib/lapack.hpp"

using vlm::count;
using vlm::require;

namespace {

/// Columns per block that the workspaces of the blocked routines are sized for.
constexpr int block_columns = 64;

/// A dimension as the BLAS takes it, and as a leading dimension.
int dimension(unsigned n) { return static_cast<int>(n); }
int leading(unsigned n) { return std::max(1, dimension(n)); }

int require_square(const dmat* A) {
  require(A);
  NORV_ASSERT(A->m == A->n);
  return dimension(A->n);
}

bool all_finite(const dmat* A) {
  return std::all_of(A->a, A->a + count(A), [](double value) { return std::isfinite(value); });
}

/// The values of A, for a routine that destroys them.
vlm::Buffer<double> copy_of(const dmat* A) {
  vlm::Buffer<double> values(count(A));
  std::copy_n(A->a, count(A), values.data());
  return values;
}

vlm::Buffer<double> workspace(int n) {
  return vlm::Buffer<double>(static_cast<std::uint64_t>(std::max(1, n)) * block_columns);
}

/// C := alpha A op(B) + beta C for row-major matrices.
void multiply(double alpha, const dmat* A, const dmat* B, bool transpose_b, double beta, dmat* C) {
  require(A);
  require(B);
  require(C);
  const unsigned inner = transpose_b ? B->n : B->m, columns = transpose_b ? B->m : B->n;
  NORV_ASSERT_TEXT(A->n == inner, transpose_b ? "A->n == B->n" : "A->n == B->m");
  NORV_ASSERT(C->m == A->m && C->n == columns);
  NORV_ASSERT(C != A && C != B);
  if (count(C) == 0) return;
  vlm::lapack::gemm(transpose_b ? 'T' : 'N', 'N', dimension(columns), dimension(A->m),
                    dimension(inner), alpha, B->a, leading(B->n), A->a, leading(A->n), beta, C->a,
                    leading(C->n));
}

/// A op(B), in dst or a new matrix.
dmat* product(dmat* dst, const dmat* A, const dmat* B, bool transpose_b) {
  require(A);
  require(B);
  dst = vlm::destination(dst, A->m, transpose_b ? B->m : B->n);
  multiply(1.0, A, B, transpose_b, 0.0, dst);
  return dst;
}

}  // namespace

void dmat_gemv_blas(double alpha, double beta, const dmat* A, const vec* x, vec* y) {
  require(A);
  vlm::require_real(x, A->n);
  vlm::require_real(y, A->m);
  NORV_ASSERT(x != y);
  if (count(A) == 0)  // the BLAS would leave y as it is
    vlm::scale_or_clear(beta, y->v, y->n);
  else
    vlm::lapack::gemv('T', dimension(A->n), dimension(A->m), alpha, A->a, leading(A->n), x->v, 1,
                      beta, y->v, 1);
}

void dmat_dgemm(double alpha, const dmat* A, const dmat* B, double beta, dmat* C) {
  multiply(alpha, A, B, false, beta, C);
}

dmat* dmat_matmul_blas(dmat* dst, const dmat* A, const dmat* B) {
  return product(dst, A, B, false);
}

dmat* dmat_matmul_ABt(dmat* dst, const dmat* A, const dmat* B) { return product(dst, A, B, true); }

void dmat_lu(dmat* A) {
  const int n = require_square(A);
  if (!A->perm) A->perm = vlm::allocate<int>(A->n);
  const int zero_pivot = vlm::lapack::getrf(n, n, A->a, leading(A->n), A->perm);
  if (zero_pivot > 0)
    _norv_print_warn_msg("Dense matrix is singular (pivot %d is zero).", zero_pivot - 1);
}

void dmat_lu_solve(const dmat* LU, double* x, const double* b) {
  const int n = require_square(LU);
  if (n == 0) return;
  NORV_ASSERT(LU->perm != 0);
  NORV_ASSERT(x != 0 && b != 0);
  if (x != b) std::copy_n(b, n, x);
  vlm::lapack::getrs('T', n, 1, LU->a, n, LU->perm, x, n);
}

int dmat_invert(dmat* A) {
  const int n = require_square(A);
  vlm::Buffer<int> pivots(A->n);
  if (vlm::lapack::getrf(n, n, A->a, leading(A->n), pivots.data()) != 0) return 0;
  vlm::Buffer<double> work = workspace(n);
  const int lwork = std::max(1, n) * block_columns;
  return vlm::lapack::getri(n, A->a, leading(A->n), pivots.data(), work.data(), lwork) == 0;
}

int dmat_invert_sym(dmat* A) {
  const int n = require_square(A);
  vlm::Buffer<int> pivots(A->n);
  vlm::Buffer<double> work = workspace(n);
  const int lwork = std::max(1, n) * block_columns;
  // The upper triangle by rows is the lower one by columns.
  if (vlm::lapack::sytrf('L', n, A->a, leading(A->n), pivots.data(), work.data(), lwork) != 0)
    return 0;
  if (vlm::lapack::sytri('L', n, A->a, leading(A->n), pivots.data(), work.data()) != 0) return 0;
  dense_U_to_full(A->n, A->a);
  return 1;
}

int dmat_solve_least_squares(const dmat* A, double* x, const double* b) {
  require(A);
  NORV_ASSERT(A->m >= A->n);
  if (A->n == 0) return 1;
  NORV_ASSERT(x != 0 && b != 0);
  const int m = dimension(A->m), n = dimension(A->n);
  vlm::Buffer<double> columns(count(A)), tau(A->n), rhs(A->m), work = workspace(n + block_columns);
  dmat transposed{A->n, A->m, columns.data(), nullptr};
  dmat_copy_trans_to(&transposed, A);
  std::copy_n(b, m, rhs.data());

  // Q R = A; the norms of the columns of R are those of A.
  const int lwork = (n + block_columns) * block_columns;
  if (vlm::lapack::geqrf(m, n, columns.data(), m, tau.data(), work.data(), lwork) != 0) return 0;
  double largest = 0.0;
  const auto r_diagonal = [&](int j) {
    return std::abs(columns[static_cast<std::size_t>(j) * static_cast<std::size_t>(m + 1)]);
  };
  for (int j = 0; j < n; ++j) largest = std::max(largest, r_diagonal(j));
  const double negligible = largest * m * std::numeric_limits<double>::epsilon();
  for (int j = 0; j < n; ++j)
    if (!(r_diagonal(j) > negligible)) return 0;

  if (vlm::lapack::apply_qt(m, 1, n, columns.data(), m, tau.data(), rhs.data(), m, work.data(),
                            lwork) != 0)
    return 0;
  vlm::lapack::trsv('U', 'N', 'N', n, columns.data(), m, rhs.data(), 1);
  std::copy_n(rhs.data(), n, x);
  return 1;
}

int dmat_sym_eigenvalues(const dmat* A, vec* lambda) {
  const int n = require_square(A);
  vlm::require_real(lambda, A->n);
  if (n == 0) return 1;
  if (!all_finite(A)) return 0;
  vlm::Buffer<double> values = copy_of(A), work(26 * std::uint64_t{A->n});
  vlm::Buffer<int> iwork(10 * std::uint64_t{A->n});
  return vlm::lapack::symmetric_eigenvalues('L', n, values.data(), n, lambda->v, work.data(),
                                            iwork.data()) == 0;
}

int dmat_generalized_eigenvalues(const dmat* A, const dmat* B, vec* lambda) {
  const int n = require_square(A);
  NORV_ASSERT(require_square(B) == n);
  NORV_ASSERT(lambda != 0);
  NORV_ASSERT(lambda->n == A->n);
  NORV_ASSERT(lambda->is_complex);
  if (n == 0) return 1;
  if (!all_finite(A) || !all_finite(B)) return 0;
  // The pencil of the transposes has the same eigenvalues.
  vlm::Buffer<double> a = copy_of(A), b = copy_of(B), work(8 * std::uint64_t{A->n});
  vlm::Buffer<double> re(A->n), im(A->n), beta(A->n);
  if (vlm::lapack::pencil_eigenvalues(n, a.data(), n, b.data(), n, re.data(), im.data(),
                                      beta.data(), work.data()) != 0)
    return 0;
  for (std::size_t k = 0; k < A->n; ++k) {
    lambda->v[2 * k] = re[k] / beta[k];
    lambda->v[2 * k + 1] = im[k] == 0.0 ? 0.0 : im[k] / beta[k];
  }
  return 1;
}
