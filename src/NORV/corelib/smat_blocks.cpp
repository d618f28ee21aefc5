// SPDX-License-Identifier: BSD-3-Clause
/// Blocks inside a matrix: its block diagonal with the inverse and the inverse square root, and
/// the condensed matrix with one entry for each block.

#include <algorithm>
#include <cstdlib>

#include "NORV/corelib/norvmora_names.hpp"
#include "NORV/corelib/smat_rows.hpp"

using namespace vlm;
using namespace vlm::norv;

namespace {

/// Rows i of the blocks of size bs: block number, and first row and size of a block; the last
/// one may be smaller.
struct Blocks {
  unsigned n, bs;

  unsigned count() const { return (n + bs - 1) / bs; }
  unsigned first(unsigned block) const { return block * bs; }
  unsigned size(unsigned block) const { return std::min(bs, n - block * bs); }
};

/// Symmetric matrix with every block on the diagonal stored in full, values 0.
smat* new_block_diagonal(Blocks blocks) {
  smat* D = smat_new(blocks.n, blocks.n, NORV_REAL_SYM);
  for (unsigned i = 0; i < blocks.n; ++i) {
    const unsigned block = i / blocks.bs;
    D->ia[i + 1] = static_cast<int>(blocks.first(block) + blocks.size(block) - i);
  }
  reserve_entries(D, counts_to_starts(D->ia, D->m));
  for (unsigned i = 0; i < blocks.n; ++i) {
    for (int k = D->ia[i]; k < D->ia[i + 1]; ++k) D->ja[k] = static_cast<int>(i) + k - D->ia[i];
  }
  std::fill_n(D->a, D->nnz, 0.0);
  return D;
}

/// One rotation of the Jacobi method: makes s(p,q) zero and turns the columns p, q of v along.
void rotate(unsigned n, double* s, double* v, unsigned p, unsigned q) {
  const double spq = s[p * n + q];
  const double theta = (s[q * n + q] - s[p * n + p]) / (2.0 * spq);
  const double t = std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(theta, 1.0));
  const double c = 1.0 / std::hypot(t, 1.0), sine = t * c;
  const auto turn = [&](double& x, double& y) {
    const double old = x;
    x = c * old - sine * y;
    y = sine * old + c * y;
  };
  for (unsigned k = 0; k < n; ++k) turn(s[k * n + p], s[k * n + q]);
  for (unsigned k = 0; k < n; ++k) turn(s[p * n + k], s[q * n + k]);
  for (unsigned k = 0; k < n; ++k) turn(v[k * n + p], v[k * n + q]);
  s[p * n + q] = s[q * n + p] = 0.0;
}

/// Eigenvalues, on the diagonal of s afterwards, and eigenvectors, columns of v, of a small
/// symmetric matrix: cyclic Jacobi, C. G. J. Jacobi 1846.  Both are n by n, row-major.
void diagonalize(unsigned n, double* s, double* v) {
  constexpr int kMaxSweeps = 60;
  for (unsigned i = 0; i < n * n; ++i) v[i] = i % (n + 1) == 0 ? 1.0 : 0.0;
  for (int round = 0; round < kMaxSweeps; ++round) {
    bool turned = false;
    for (unsigned p = 0; p + 1 < n; ++p) {
      for (unsigned q = p + 1; q < n; ++q) {
        const double small = std::fabs(s[p * n + q]);
        const double beside =
            std::sqrt(std::fabs(s[p * n + p])) * std::sqrt(std::fabs(s[q * n + q]));
        if (small == 0.0 || small < 1e-17 * beside) continue;
        rotate(n, s, v, p, q);
        turned = true;
      }
    }
    if (!turned) return;
  }
}

/// f of a symmetric block-diagonal matrix, taken of the eigenvalues of each block.  valid(lambda)
/// says where f is defined; null after an error message when a block lies outside.
template <typename Valid, typename F>
smat* function_of_blocks(const smat* D, unsigned bs, const char* fault, Valid valid, F f) {
  NORV_ASSERT(D->sym);
  NORV_ASSERT(!D->is_complex);
  NORV_ASSERT(bs > 0);
  const Blocks blocks{D->m, bs};
  smat* R = new_block_diagonal(blocks);
  Buffer<double> s(std::size_t{bs} * bs), v(std::size_t{bs} * bs);
  for (unsigned block = 0; block < blocks.count(); ++block) {
    const unsigned first = blocks.first(block), n = blocks.size(block);
    std::fill(s.begin(), s.end(), 0.0);
    for (unsigned i = 0; i < n; ++i) {
      for (int k = D->ia[first + i]; k < D->ia[first + i + 1]; ++k) {
        const unsigned j = static_cast<unsigned>(D->ja[k]) - first;
        NORV_ASSERT(j < n);
        s[i * n + j] = s[j * n + i] = D->a[k];
      }
    }
    diagonalize(n, s.data(), v.data());
    for (unsigned i = 0; i < n; ++i) {
      if (valid(s[i * n + i])) continue;
      _norv_print_error_msg("Diagonal block %d is %s.", static_cast<int>(block), fault);
      smat_free(R);
      return nullptr;
    }
    for (unsigned i = 0; i < n; ++i) {
      double* row = R->a + R->ia[first + i];
      for (unsigned j = i; j < n; ++j) {
        for (unsigned k = 0; k < n; ++k)
          row[j - i] += v[i * n + k] * f(s[k * n + k]) * v[j * n + k];
      }
    }
  }
  return R;
}

/// Entry of largest modulus in each bs by bs block that holds one.
template <typename T>
smat* condense(const smat* A, unsigned bs) {
  const Rows<T> R = rows<T>(A);
  const int width = static_cast<int>(bs);
  const Blocks down{A->m, bs}, across{A->n, bs};
  smat* B = smat_new(down.count(), across.count(), type_of(A));
  Buffer<int> place(across.count(), -1);  // of a block column in this block row
  Buffer<int> columns;
  Buffer<T> largest;
  for (unsigned block = 0; block < down.count(); ++block) {
    const std::size_t begin = columns.size();
    const unsigned end_row = down.first(block) + down.size(block);
    for (int k = R.ia[down.first(block)]; k < R.ia[end_row]; ++k) {
      int& at = place[R.ja[k] / width];
      if (at < 0) {
        at = static_cast<int>(columns.size());
        columns.push_back(R.ja[k] / width);
        largest.push_back(R.a[k]);
      } else if (modulus(R.a[k]) > modulus(largest[at])) {
        largest[at] = R.a[k];
      }
    }
    for (std::size_t k = begin; k < columns.size(); ++k) place[columns[k]] = -1;
    B->ia[block + 1] = static_cast<int>(columns.size());
  }
  reserve_entries(B, static_cast<unsigned>(columns.size()));
  std::copy(columns.begin(), columns.end(), B->ja);
  std::copy(largest.begin(), largest.end(), values_as<T>(B->a));
  sort_rows<T>(B);
  return B;
}

}  // namespace

smat* smat_get_sym_block_diag(const smat* A, unsigned bs) {
  NORV_ASSERT(A->sym);
  NORV_ASSERT(!A->is_complex);
  NORV_ASSERT(bs > 0);
  smat* D = new_block_diagonal({A->m, bs});
  for (unsigned i = 0; i < A->m; ++i) {
    const int row = static_cast<int>(i), end = row + D->ia[i + 1] - D->ia[i];
    for (int k = A->ia[i]; k < A->ia[i + 1]; ++k) {
      if (A->ja[k] < end) D->a[D->ia[i] + A->ja[k] - row] = A->a[k];
    }
  }
  return D;
}

smat* smat_inv_sym_block_diag(const smat* D, unsigned bs) {
  return function_of_blocks(
      D, bs, "singular", [](double lambda) { return lambda != 0.0; },
      [](double lambda) { return 1.0 / lambda; });
}

smat* smat_invroot_sym_block_diag(const smat* D, unsigned bs) {
  return function_of_blocks(
      D, bs, "not positive definite", [](double lambda) { return lambda > 0.0; },
      [](double lambda) { return 1.0 / std::sqrt(lambda); });
}

smat* smat_block_condense_max(const smat* A, unsigned bs) {
  NORV_ASSERT(bs > 0);
  return by_kind(A->is_complex, [&](auto zero) { return condense<decltype(zero)>(A, bs); });
}

NORVMORA_SMAT_BLOCKS(NORVMORA_ALIAS)
